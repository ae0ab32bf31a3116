// Cutting, merging and renumbering: what comes out plays at the times at which it played.
#include <filesystem>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/failure.h"
#include "edited_output.h"
#include "recording_files.h"

using namespace recording;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using tests::played;
using tests::refusal_of;

namespace {

/// Frames of the universes 1 and 2, 10 ms each, whose first level is the frame's number from 1.
Recording five_frames() {
    Recording recording;
    for (std::uint8_t frame = 1; frame <= 5; ++frame) {
        recording.dmx(1, {frame}).dmx(2, {frame}).frame_delay(10ms);
    }
    return recording;
}

class RecordingEditTest : public testing::Test {
protected:
    [[nodiscard]] static RecordingIndex index(const std::string& path) {
        return index_recording(path, CutShort::Refuse);
    }

    /// Writes what an edit gives; returns its path.
    std::string write(const EditedRecording& edited, const std::vector<RecordingIndex>& sources,
                      const std::string& name = "out.rec") {
        testing::internal::CaptureStderr();
        summary_ = write_edited(edited, sources, files_.path(name), true);
        told_ = testing::internal::GetCapturedStderr();
        return files_.path(name);
    }
    std::string cut(const std::string& path, std::chrono::nanoseconds from, std::chrono::nanoseconds to,
                    const std::string& name = "out.rec") {
        const RecordingIndex source = index(path);
        return write(cut_recording(source, from, to), {source}, name);
    }
    std::string merge(const std::vector<std::string>& paths) {
        std::vector<RecordingIndex> sources;
        for (const std::string& path : paths) {
            sources.push_back(index(path));
        }
        return write(merge_recordings(sources), sources);
    }
    std::string remap(const std::string& path, const std::vector<std::string>& rules) {
        std::vector<Renumbering> parsed;
        for (const std::string& rule : rules) {
            parsed.push_back(parse_renumbering(rule));
        }
        const RecordingIndex source = index(path);
        return write(remap_recording(source, parsed), {source});
    }

    tests::RecordingFiles files_;
    WrittenSummary summary_;
    std::string told_;
};

TEST_F(RecordingEditTest, CutTakesTheFramesThatBeginInTheRange) {
    const std::string path = files_.padded("a.rec", five_frames());
    EXPECT_THAT(played(cut(path, 10ms, 30ms)),
                ElementsAre("1@0:2", "2@0:2", "1@10000:3", "2@10000:3", "=40000"));
    EXPECT_THAT(played(cut(path, 0ns, std::chrono::nanoseconds::max())), testing::ContainerEq(played(path)));
    EXPECT_THAT(played(cut(path, 0ns, 1ns)), ElementsAre("1@0:1", "2@0:1", "=30000"));
    EXPECT_THAT(written_text(summary_, Counting::Packets),
                HasSubstr("2 packets of 2 universes, 0.03 s, of which the last frame stands 30 ms"));
}

TEST_F(RecordingEditTest, CutWithinAFrameBeginsWithTheRestOfIt) {
    const std::string out = cut(files_.padded("a.rec", five_frames()), 14ms, 31ms);
    EXPECT_THAT(played(out),
                ElementsAre("1@0:2", "2@0:2", "1@6000:3", "2@6000:3", "1@16000:4", "2@16000:4", "=46000"));
}

TEST_F(RecordingEditTest, CutBeginsWithTheLastPacketOfEachUniverseThatHasNoneAtThatTime) {
    const std::string path = files_.padded("a.rec", Recording{}
                                                        .dmx(7, {1})
                                                        .dmx(8, {2})
                                                        .frame_delay(10ms)
                                                        .dmx(9, {3})
                                                        .frame_delay(10ms)
                                                        .dmx(9, {4})
                                                        .dmx(9, {5})
                                                        .frame_delay(10ms)
                                                        .dmx(8, {6}));
    EXPECT_THAT(played(cut(path, 20ms, 1h)),
                ElementsAre("7@0:1", "8@0:2", "9@0:4", "9@0:5", "8@10000:6", "=40000"));
    EXPECT_THAT(played(cut(path, 25ms, 1h)), ElementsAre("7@0:1", "8@0:2", "9@0:5", "8@5000:6", "=35000"));
    EXPECT_THAT(played(cut(path, 35ms, 1h)), ElementsAre("7@0:1", "9@0:5", "8@0:6", "=30000"))
        << "in the order of the file";
}

TEST_F(RecordingEditTest, TwoPartsOfARecordingAreTheWhole) {
    const std::string path = files_.padded("a.rec", five_frames());
    std::vector<std::string> packets = played(cut(path, 0ns, 20ms));
    packets.pop_back();
    for (const std::string& packet : played(cut(path, 20ms, 1h))) {
        const std::size_t at = packet.find('@');
        const std::size_t colon = packet.find(':');
        packets.push_back(at == std::string::npos
                              ? packet
                              : packet.substr(0, at + 1) +
                                    std::to_string(std::stol(packet.substr(at + 1, colon)) + 20'000) +
                                    packet.substr(colon));
    }
    EXPECT_EQ(packets.back(), "=50000") << "the second part's own length";
    packets.back() = "=70000";
    EXPECT_THAT(packets, testing::ContainerEq(played(path)));
}

TEST_F(RecordingEditTest, TheLastTimingPacketSaysWhereTheCutWas) {
    const std::string out = cut(files_.padded("a.rec", five_frames()), 0ns, 13ms);
    RecordingReader reader;
    std::vector<std::uint64_t> written;
    reader.on_packet = [&](const RecordedPacket& packet) { written.push_back(packet.written_delay); };
    std::error_code error;
    reader.read(out.c_str(), error);
    EXPECT_THAT(written, ElementsAre(0U, 10'000'000U, 0U, 3'000'000U));
}

TEST_F(RecordingEditTest, CutRefusesWhatHasNothingThereOrNoTimes) {
    const std::string path = files_.padded("a.rec", five_frames());
    EXPECT_THAT(refusal_of<cli::Failure>([&] { cut(path, 50ms, 1h); }),
                AllOf(HasSubstr(path + ": ends at 0.05 s"), HasSubstr("from 0.05 s on")));
    const std::string untimed = files_.padded("b.rec", Recording{}.dmx(1, {1}).dmx(1, {2}));
    EXPECT_THAT(refusal_of<cli::Failure>([&] { cut(untimed, 0ns, 1h); }),
                HasSubstr(untimed + ": has no timing packets"));
    const std::string still = files_.padded("c.rec", Recording{}.dmx(1, {1}).dmx(2, {2}));
    EXPECT_THAT(played(cut(still, 5ms, 1h)), ElementsAre("1@0:1", "2@0:2", "=30000")) << "a single frame";
}

TEST_F(RecordingEditTest, MergePutsPacketsInTheOrderOfTheirTimes) {
    const std::string a = files_.padded(
        "a.rec",
        Recording{}.dmx(1, {1}).frame_delay(33'333'333ns).dmx(1, {2}).frame_delay(33'333'333ns).dmx(1, {3}));
    const std::string b = files_.padded(
        "b.rec",
        Recording{}.dmx(5, {1}).dmx(6, {1}).frame_delay_ms(40).dmx(5, {2}).dmx(6, {2}).frame_delay_ms(40));
    const std::string out = merge({a, b});
    EXPECT_THAT(played(out), ElementsAre("1@0:1", "5@0:1", "6@0:1", "1@33333:2", "5@40000:2", "6@40000:2",
                                         "1@66666:3", "=96666"));
    EXPECT_THAT(tests::types_of(out),
                ElementsAre(0x5000, 0x5000, 0x5000, 0xFE, 0x5000, 0xFE, 0x5000, 0x5000, 0xFE, 0x5000, 0xFE));
    EXPECT_EQ(index(out).packets[3].begin, 33'333'333ns) << "to the nanosecond";
    EXPECT_EQ(index(out).packets[6].begin, 66'666'666ns);
    EXPECT_THAT(played(merge({b, a}))[0], "5@0:1") << "at one time, in the order of the inputs";
}

TEST_F(RecordingEditTest, FramesOfNoTimeStayFrames) {
    const std::string path = files_.padded("a.rec", Recording{}
                                                        .dmx(1, {1})
                                                        .frame_delay(0ns)
                                                        .dmx(1, {2})
                                                        .frame_delay(10ms)
                                                        .dmx(1, {3})
                                                        .dmx(2, {3})
                                                        .frame_delay(0ns)
                                                        .dmx(1, {4})
                                                        .frame_delay(0ns));
    const std::vector<int> expected = tests::types_of(path);
    EXPECT_EQ(tests::types_of(remap(path, {"1=7"})), expected);
    EXPECT_EQ(tests::types_of(cut(path, 0ns, 1h)), expected);
    EXPECT_THAT(tests::types_of(cut(path, 5ms, 1h)),
                ElementsAre(0x5000, 0xFE, 0x5000, 0x5000, 0xFE, 0x5000, 0xFE))
        << "the look at the begin is one frame";
    const std::string other = files_.padded("b.rec", Recording{}.dmx(9, {1}).frame_delay(10ms).dmx(9, {2}));
    EXPECT_THAT(played(merge({path, other})), ElementsAre("1@0:1", "1@0:2", "9@0:1", "1@10000:3", "2@10000:3",
                                                          "1@10000:4", "9@10000:2", "=40000"));
    EXPECT_THAT(tests::types_of(merge({path, other})), ElementsAre(0x5000, 0xFE, 0x5000, 0x5000, 0xFE, 0x5000,
                                                                   0x5000, 0xFE, 0x5000, 0xFE, 0x5000, 0xFE));
}

TEST_F(RecordingEditTest, MergeRefusesAUniverseThatTwoRecordingsHave) {
    const std::string a = files_.padded("a.rec", Recording{}.dmx(1, {1}).dmx(2, {1}));
    const std::string b = files_.padded("b.rec", Recording{}.dmx(3, {1}));
    const std::string c = files_.padded("c.rec", Recording{}.dmx(4, {1}).dmx(2, {1}));
    EXPECT_EQ(refusal_of<cli::Failure>([&] {
                  merge({a, b, c});
              }),
              "universe 2 is both in " + a + " and in " + c);
    const std::string untimed = files_.padded("d.rec", Recording{}.dmx(9, {1}).dmx(9, {2}));
    EXPECT_THAT(refusal_of<cli::Failure>([&] {
                    merge({a, untimed});
                }),
                HasSubstr(untimed + ": has no timing packets"));
}

TEST_F(RecordingEditTest, RemapChangesTheUniversesAndNothingElse) {
    const std::string path = files_.padded(
        "a.rec",
        Recording{}.dmx(0, {1}).dmx(1, {2}).dmx(7, {3}).frame_delay(5ms).dmx(1, {4}).frame_delay(7ms));
    EXPECT_THAT(played(remap(path, {"0-3=256-259"})),
                ElementsAre("256@0:1", "257@0:2", "7@0:3", "257@5000:4", "=35000"));
    EXPECT_THAT(played(remap(path, {"0=1", "1=0"})),
                ElementsAre("1@0:1", "0@0:2", "7@0:3", "0@5000:4", "=35000"));
    EXPECT_EQ(std::filesystem::file_size(remap(path, {"7=32767"})), std::filesystem::file_size(path));
    EXPECT_THAT(played(remap(path, {"7=65535"})).at(2), "65535@0:3")
        << "all 16 bits, as a capture takes them";
}

TEST_F(RecordingEditTest, RemapRefusesCollisionsAndRulesThatNameNothing) {
    const std::string path = files_.padded("a.rec", Recording{}.dmx(0, {1}).dmx(1, {2}));
    EXPECT_EQ(refusal_of<cli::Failure>([&] { remap(path, {"0=1"}); }),
              path + ": universes 0 and 1 would both become 1");
    EXPECT_EQ(refusal_of<cli::Failure>([&] { remap(path, {"5-6=1-2"}); }), path + ": has no universe 5-6");
    EXPECT_EQ(refusal_of<cli::UsageError>([&] {
                  remap(path, {"0=5", "0-1=8-9"});
              }),
              "universe 0 is renumbered twice");
    for (const char* rule : {"", "1", "1=", "=1", "1=2=3", "1-2=3", "1,2=3,4", "1=65536", "a=b"}) {
        EXPECT_THAT(refusal_of<cli::UsageError>([&] { static_cast<void>(parse_renumbering(rule)); }),
                    HasSubstr(": expected "))
            << rule;
    }
}

TEST_F(RecordingEditTest, AnUntimedRecordingStaysUntimedWhenItIsRenumbered) {
    const std::string path = files_.padded("a.rec", Recording{}.dmx(0, {1}).dmx(0, {2}).dmx(0, {3}));
    EXPECT_THAT(tests::types_of(remap(path, {"0=4"})), ElementsAre(0x5000, 0x5000, 0x5000));
}

TEST_F(RecordingEditTest, WhatPlaybackRepeatsOrPassesOverIsLeftOutAndTold) {
    Recording recording;
    for (int packet = 0; packet < 26; ++packet) {  // of 19 bytes: 494
        recording.dmx(1, {1});
    }
    recording.frame_delay(5ms).header(0x5200).dmx(1, {2});
    const std::string path = files_.raw("a.rec", recording);
    ASSERT_THAT(played(path).at(27), EndsWith("stale"));
    const std::string out = cut(path, 0ns, 1h);
    EXPECT_EQ(played(out).size(), 27U + 1U);
    EXPECT_THAT(tests::types_of(out), testing::Not(testing::Contains(0x5200)));
    EXPECT_THAT(
        told_,
        AllOf(HasSubstr(path +
                        ": packets left out, which its incomplete last block makes playback repeat: 24\n"),
              HasSubstr(path + ": packets left out, which playback passes over: 1\n")));
    EXPECT_EQ(std::filesystem::file_size(out) % 512, 0U);
    EXPECT_EQ(summary_.repeated, 24U);
    EXPECT_EQ(summary_.passed_over, 1U);
}

TEST_F(RecordingEditTest, AFileThatIsCutShortIsRefusedOrGivesAllButItsLastPacket) {
    Recording recording = five_frames();
    const std::string path = files_.raw("a.rec", recording.cut_to(recording.size() - 5));
    EXPECT_EQ(refusal_of<cli::Failure>([&] { static_cast<void>(index(path)); }),
              path + ": ends within the packet at byte " + std::to_string(recording.size() - 13));
    testing::internal::CaptureStderr();
    const RecordingIndex mended = index_recording(path, CutShort::Accept);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("which is left out"));
    EXPECT_EQ(mended.packets.size(), 10U);
    EXPECT_EQ(mended.end, 70ms) << "the last frame has lost its timing packet";
}

TEST_F(RecordingEditTest, WhatCannotBeIndexedIsRefusedByName) {
    const auto refusal = [](const std::string& path) {
        return refusal_of<cli::Failure>([&] { static_cast<void>(index(path)); });
    };
    EXPECT_THAT(refusal(files_.path("none")), EndsWith("none: No such file or directory"));
    EXPECT_THAT(refusal(files_.path("")), HasSubstr("is a directory"));
    EXPECT_THAT(refusal("/dev/null"), EndsWith("expected a recording in a file"));
    EXPECT_THAT(refusal(files_.raw("empty", Recording{})), HasSubstr("empty: holds no Art-Net packet"));
    EXPECT_THAT(refusal(files_.raw("text", Recording{}.raw("no recording"))),
                HasSubstr("text: holds no Art-Net packet"));
    EXPECT_THAT(refusal(files_.padded("timing", Recording{}.frame_delay(1ms))),
                HasSubstr("timing: holds no ArtDmx packet"));
}

TEST_F(RecordingEditTest, AFileThatChangesWhileItIsReadIsAnErrorAndNothingIsWritten) {
    const std::string path = files_.padded("a.rec", five_frames());
    const RecordingIndex source = index(path);
    std::filesystem::resize_file(path, 10);
    EXPECT_THAT(refusal_of<cli::Failure>([&] {
                    static_cast<void>(write_edited(cut_recording(source, 0ns, 1h), {source},
                                                   files_.path("out.rec"), false));
                }),
                EndsWith("a.rec: has changed while it was read"));
    EXPECT_THAT(files_.names(), ElementsAre("a.rec"));
}

TEST_F(RecordingEditTest, AnExistingFileIsKeptUnlessForced) {
    const std::string path = files_.padded("a.rec", five_frames());
    const RecordingIndex source = index(path);
    EXPECT_EQ(refusal_of<cli::Failure>([&] {
                  static_cast<void>(write_edited(cut_recording(source, 0ns, 10ms), {source}, path, false));
              }),
              path + ": File exists (--force replaces it)");
    EXPECT_EQ(played(path).back(), "=70000");
    write(cut_recording(source, 0ns, 10ms), {source}, "a.rec");
    EXPECT_EQ(played(path).back(), "=30000") << "also where it is the source";
}

}  // namespace
