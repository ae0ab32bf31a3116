// What is said about a recording as a whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "dump.h"
#include "info_report.h"
#include "recording_files.h"

using namespace recording;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Json = nlohmann::json;

namespace {

/// Universes 1 and 2 for ten frames of 20 ms and one of 100 ms, universe 5 once.
Recording a_show() {
    Recording recording;
    for (int frame = 0; frame < 10; ++frame) {
        recording.dmx(1, {1, 2, 3}).dmx(2, {1}).frame_delay(20ms);
    }
    return recording.dmx(1, {1}).dmx(2, {1}).frame_delay_ms(100).dmx(1, {1}).dmx(5, {}).frame_delay(7ms);
}

class RecordingInfoTest : public testing::Test {
protected:
    [[nodiscard]] InfoReport report(const std::string& path, std::optional<int> boost = std::nullopt) const {
        return {path, boost, statistics_of(path, boost)};
    }
    [[nodiscard]] Json json(const Recording& recording, std::optional<int> boost = std::nullopt) const {
        InfoReport asked = report(files_.padded("a.rec", recording), boost);
        return Json::parse(info_json(asked));
    }
    [[nodiscard]] std::string text(const Recording& recording,
                                   std::optional<int> boost = std::nullopt) const {
        InfoReport asked = report(files_.padded("a.rec", recording), boost);
        return info_text(asked);
    }
    /// What is dumped, up to `end` if that throws.
    [[nodiscard]] std::string dump(const std::string& path, const DumpOptions& options) const {
        std::FILE* const out = std::fopen(files_.path("dump").c_str(), "w");
        tests::refusal_of<std::exception>([&] { dump_recording(path, options, out); });
        std::fclose(out);
        std::ifstream in(files_.path("dump"));
        return {std::istreambuf_iterator<char>(in), {}};
    }

    tests::RecordingFiles files_;
};

TEST_F(RecordingInfoTest, DurationFramesAndIntervalsAreThoseOfPlayback) {
    const Json info = json(a_show());
    EXPECT_EQ(info["duration_ns"], 330'000'000);
    EXPECT_EQ(info["timed"], true);
    EXPECT_EQ(info["frames"], 12);
    EXPECT_NEAR(info["frames_per_second"], 11 / 0.3, 1e-9);
    EXPECT_EQ(info["intervals"]["p50_ns"], 20'000'000);
    EXPECT_EQ(info["intervals"]["p99_ns"], 100'000'000);
    EXPECT_EQ(info["intervals"]["max_ns"], 100'000'000);
    EXPECT_EQ(info["last_frame_ns"], 30'000'000);
    EXPECT_EQ(info["last_frame_written_ns"], 7'000'000);
    EXPECT_EQ(info["bytes"], 1024);
    EXPECT_NEAR(info["bytes_per_second"], 1024 / 0.33, 1e-6);
    EXPECT_FALSE(info.contains("speed_boost"));
}

TEST_F(RecordingInfoTest, EachUniverseHasItsOwnRateAndChannels) {
    const Json universes = json(a_show())["universes"];
    ASSERT_EQ(universes.size(), 3U);
    EXPECT_EQ(universes[0]["universe"], 1);
    EXPECT_EQ(universes[0]["packets"], 12);
    EXPECT_EQ(universes[0]["fewest_channels"], 1);
    EXPECT_EQ(universes[0]["most_channels"], 3);
    EXPECT_NEAR(universes[0]["packets_per_second"], 11 / 0.3, 1e-9);
    EXPECT_EQ(universes[1]["packets"], 11);
    EXPECT_NEAR(universes[1]["packets_per_second"], 10 / 0.2, 1e-9);
    EXPECT_EQ(universes[1]["intervals"]["max_ns"], 20'000'000);
    EXPECT_EQ(universes[2]["universe"], 5);
    EXPECT_EQ(universes[2]["packets_per_second"], nullptr);
    EXPECT_EQ(universes[2]["intervals"], nullptr);
}

TEST_F(RecordingInfoTest, DurationAtASpeedBoostScalesEveryFrameAsPlaybackDoes) {
    EXPECT_EQ(json(a_show(), 100)["duration_at_speed_boost_ns"], 165'000'000);
    EXPECT_EQ(json(a_show(), -100)["duration_at_speed_boost_ns"], 660'000'000);
    const Json odd =
        json(Recording{}.dmx(1, {1}).frame_delay(3ns).dmx(1, {1}).frame_delay(3ns).dmx(1, {1}), 50);
    // Each delay is cut to whole nanoseconds: 2.25 is 2.
    EXPECT_EQ(odd["duration_at_speed_boost_ns"], 2 + 2 + 22'500'000);
    EXPECT_EQ(odd["speed_boost"], 50);
    EXPECT_THAT(text(a_show(), 100), HasSubstr("duration    0.33 s, at a speed boost of 100: 0.165 s\n"));
}

TEST_F(RecordingInfoTest, PacketsAreCountedByType) {
    Recording recording = a_show();
    recording.header(0x5200).header(0x1234).header(0x1234);
    recording.header(0x5000).raw({0, 14, 0, 0, 1, 0, 2, 1});
    const Json info = json(recording);
    EXPECT_EQ(info["packets"],
              (Json{{"ArtDmx", 24}, {"timing-ns", 11}, {"timing-ms", 1}, {"ArtSync", 1}, {"0x1234", 2}}));
    EXPECT_EQ(info["oversized"], 1);
    EXPECT_THAT(text(recording),
                HasSubstr("24 ArtDmx, 1 ArtSync, 1 ArtDmx left out for more than 512 channels"));
}

TEST_F(RecordingInfoTest, TheLinesForAReaderSayThatTheLastFrameStandsThirtyMilliseconds) {
    EXPECT_THAT(text(a_show()),
                HasSubstr("last frame  always stands 30 ms when played; its timing packet says 7 ms"));
    EXPECT_THAT(text(a_show()), HasSubstr("intervals   p50 20 ms, p99 100 ms, max 100 ms\n"));
    EXPECT_THAT(text(a_show()), HasSubstr("         1        12       1-3    36.667  p50 20 ms"));
}

TEST_F(RecordingInfoTest, WithoutTimingPacketsThereAreNoFramesToCount) {
    const Recording untimed = Recording{}.dmx(1, {1}).dmx(1, {1});
    const Json info = json(untimed);
    EXPECT_EQ(info["timed"], false);
    EXPECT_EQ(info["frames"], nullptr);
    EXPECT_EQ(info["frames_per_second"], nullptr);
    EXPECT_EQ(info["last_frame_written_ns"], nullptr);
    EXPECT_EQ(info["duration_ns"], 30'000'000);
    EXPECT_THAT(text(untimed), HasSubstr("not timed: playable at a fixed rate"));
}

TEST_F(RecordingInfoTest, WhatAnIncompleteLastBlockRepeatsIsCounted) {
    Recording recording;
    for (int packet = 0; packet < 27; ++packet) {  // of 19 bytes: 513
        recording.dmx(1, {0});
    }
    InfoReport asked = report(files_.raw("a.rec", recording));
    EXPECT_EQ(Json::parse(info_json(asked))["repeated"], 25);
    EXPECT_THAT(info_text(asked), HasSubstr("repeated    25 of the ArtDmx, by an incomplete last block"));
    EXPECT_THAT(text(recording), Not(HasSubstr("repeated"))) << "padded";
}

TEST_F(RecordingInfoTest, WithoutAnArtDmxNoTimePassesAndThereIsNoRate) {
    const Recording timing = Recording{}.frame_delay(1s).frame_delay(1s);
    const Json info = json(timing);
    EXPECT_EQ(info["duration_ns"], 0);
    EXPECT_EQ(info["frames"], 0);
    EXPECT_EQ(info["bytes_per_second"], nullptr);
    EXPECT_THAT(text(timing), HasSubstr("  size        512 bytes\n"));
    EXPECT_THAT(text(timing), HasSubstr("  frames      0, - a second\n"));
}

TEST_F(RecordingInfoTest, AnEmptyRangeOfIntervalsHasNoPercentiles) {
    Intervals intervals;
    EXPECT_EQ(intervals.percentile(0.5), 0ns);
    for (const int value : {5, 1, 4, 2, 3}) {
        intervals.add(std::chrono::nanoseconds(value));
    }
    EXPECT_EQ(intervals.percentile(0), 1ns);
    EXPECT_EQ(intervals.percentile(0.5), 3ns);
    EXPECT_EQ(intervals.percentile(0.6), 3ns);
    EXPECT_EQ(intervals.percentile(0.61), 4ns);
    EXPECT_EQ(intervals.longest(), 5ns);
}

TEST_F(RecordingInfoTest, DumpHasALineForEachPacketWithItsOffsetAndTime) {
    const std::string path = files_.padded("a.rec", Recording{}
                                                        .dmx(0x0102, {7, 8})
                                                        .frame_delay(1'500'000'001ns)
                                                        .header(0x5200)
                                                        .dmx(1, {})
                                                        .frame_delay_ms(4));
    EXPECT_EQ(dump(path, {}),
              "         0       0     0.000000000 ArtDmx universe 258 sequence 0 physical 0 channels 2\n"
              "        20       1     0.000000000 timing-ns nanoseconds 1500000001\n"
              "        38       2     0.000000000 ArtSync passed_over\n"
              "        48       3     1.500000001 ArtDmx universe 1 sequence 0 physical 0 channels 0\n"
              "        66       4     1.500000001 timing-ms milliseconds 4\n");
}

TEST_F(RecordingInfoTest, TimesBeyondWhatTheServiceCountsStandAtTheirEnd) {
    constexpr std::chrono::nanoseconds kLongest = std::chrono::nanoseconds::max();
    Recording recording;
    for (int frame = 0; frame < 4; ++frame) {
        recording.dmx(1, {1}).frame_delay(kLongest);
    }
    const std::string lines = dump(files_.padded("a.rec", recording), {});
    EXPECT_THAT(lines, HasSubstr("\n       111       6 9223372036.854775807 ArtDmx"));
    EXPECT_EQ(json(recording)["duration_ns"], kLongest.count());
}

TEST_F(RecordingInfoTest, DumpPrintsJsonWithLevelsOnRequest) {
    const std::string path = files_.padded("a.rec", Recording{}.dmx(3, {7, 8}).frame_delay(5ns));
    std::istringstream lines(dump(path, {.json = true, .levels = true}));
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(Json::parse(line), (Json{{"offset", 0},
                                       {"index", 0},
                                       {"time_ns", 0},
                                       {"type", "ArtDmx"},
                                       {"opcode", "0x5000"},
                                       {"universe", 3},
                                       {"sequence", 0},
                                       {"physical", 0},
                                       {"channels", 2},
                                       {"levels", {7, 8}}}));
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(Json::parse(line)["nanoseconds"], 5);
    EXPECT_FALSE(std::getline(lines, line));
    EXPECT_THAT(dump(path, {.json = true}), Not(HasSubstr("levels")));
}

TEST_F(RecordingInfoTest, DumpMarksWhatIsRepeatedAndPrintsWhatComesBeforeAnError) {
    Recording recording;
    for (int packet = 0; packet < 27; ++packet) {
        recording.dmx(1, {0});
    }
    const std::string repeated = dump(files_.raw("a.rec", recording), {});
    EXPECT_THAT(repeated, HasSubstr("\n       531      27     0.000000000 ArtDmx universe 1 sequence 0 "
                                    "physical 0 channels 1 repeated\n"));
    const std::string path = files_.raw("b.rec", Recording{}.dmx(1, {1}).dmx(1, {1}).cut_to(37));
    EXPECT_EQ(dump(path, {}),
              "         0       0     0.000000000 ArtDmx universe 1 sequence 0 physical 0 channels 1\n");
    EXPECT_EQ(tests::refusal_of<std::exception>([&] { dump_recording(path, {}, stdout); }),
              path + ": ends within the packet at byte 19");
}

}  // namespace
