// What the bytes of a recording are reported for: each fault, and its neighbour that is none.

#include <filesystem>
#include <set>

#include <sys/stat.h>
#include <unistd.h>

#include "inspect_test.h"
#include "support/child_process.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using PacketFindingsTest = InspectTest;

/// Of nobody, on every system.
constexpr uid_t kNobody = 65534;

/// A frame in the middle of the first block, where the last block, which is short, leaves it to be found
/// again.
Recording with_stale_tail() {
    Recording recording;
    recording.fill_to(kBlock / 2);
    recording.dmx(7, {1, 2}).frame_delay(30ms);
    recording.fill_to(kBlock);
    recording.dmx(0, {1, 2}).frame_delay(30ms);
    return recording;
}

}  // namespace

TEST_F(PacketFindingsTest, AGoodRecordingHasNone) {
    const auto result = report(padded(steady(60).dmx(0, {100, 200}).frame_delay(30ms)));
    EXPECT_THAT(lines(result), IsEmpty());
    EXPECT_TRUE(result.loads);
    EXPECT_EQ(result.frames, 61U);
    EXPECT_EQ(result.packets, 61U);
    EXPECT_EQ(result.duration, 61 * 30ms);
    ASSERT_EQ(result.universes.size(), 1U);
    EXPECT_EQ(result.universes[0].packets, 61U);
}

TEST_F(PacketFindingsTest, APacketInTheStaleTailPlaysTwiceAndIsNamedWhereItStands) {
    const auto result = report(with_stale_tail());
    EXPECT_THAT(lines(result), ElementsAre("error stale-duplicate @256 frame 2 x2"));
    EXPECT_THAT(text(result, "stale-duplicate"),
                AllOf(HasSubstr("universe 7 here and 1 packet after it"), HasSubstr("truncate -s %512")));
    EXPECT_EQ(result.packets, 3U);
}

TEST_F(PacketFindingsTest, PaddingEndsTheRepetition) {
    EXPECT_THAT(findings(with_stale_tail()), IsEmpty());
}

TEST_F(PacketFindingsTest, APacketThatStaleBytesCompleteIsReported) {
    // The last block's bytes are followed by those of the block before, which hold the rest of a packet.
    const Recording first = steady(1).fill_to(kBlock);
    const auto result = report(Recording(first).raw("Art-Ne"));
    EXPECT_THAT(lines(result),
                ElementsAre("error stale-duplicate @20 frame 1", "error stale-duplicate @512 frame 1"));
    EXPECT_THAT(result.findings.list()[1].text, HasSubstr("put together"));
    // A whole identifier, and nothing behind it.
    EXPECT_THAT(lines(report(Recording(first).raw(std::string_view("Art-Net\0", 8)))),
                ElementsAre("error truncated-tail @512 frame 0"));
}

TEST_F(PacketFindingsTest, AShortLastBlockWithoutRepetitionIsANote) {
    EXPECT_THAT(lines(report(steady(30))), ElementsAre(HasSubstr("error stale-duplicate")));
    Recording lucky;
    lucky.fill_to(kBlock).dmx(0, {1, 2}).frame_delay(30ms);
    EXPECT_THAT(lines(report(lucky)), ElementsAre("note not-padded @550 frame 0"));
    // The only block is followed by zeros.
    EXPECT_THAT(lines(report(steady(1))), IsEmpty());
}

TEST_F(PacketFindingsTest, ALetterABeforeAnIdentifierHidesIt) {
    const auto result = report(padded(steady(1).raw("A").dmx(3, {1, 2}).frame_delay(30ms)));
    EXPECT_THAT(lines(result),
                ElementsAre("error hidden-identifier @39 frame 0", "warning timing-ignored @59 frame 0"));
    EXPECT_THAT(text(result, "hidden-identifier"), HasSubstr("letter A"));
    EXPECT_EQ(result.packets, 1U);
}

TEST_F(PacketFindingsTest, ThePartOfAnIdentifierHidesTheNext) {
    const auto result = report(padded(steady(1).raw("Art-").dmx(3, {1, 2})));
    EXPECT_THAT(lines(result), ElementsAre("error hidden-identifier @42 frame 0"));
    EXPECT_THAT(text(result, "hidden-identifier"), HasSubstr("beginning of another identifier"));
}

TEST_F(PacketFindingsTest, OtherBytesBeforeAnIdentifierAreStray) {
    EXPECT_THAT(findings(steady(1).raw("Ab").dmx(0, {1, 2}).frame_delay(30ms)),
                ElementsAre("warning stray-bytes @38 frame 1"));
    EXPECT_THAT(findings(steady(1).raw({0, 0}).dmx(0, {1, 2}).frame_delay(30ms)), IsEmpty());
}

TEST_F(PacketFindingsTest, IdentifiersWithinChannelDataAreNotMissed) {
    std::vector<std::uint8_t> levels;
    for (const char letter : std::string("AArt-Net\0\0", 10)) {
        levels.push_back(static_cast<std::uint8_t>(letter));
    }
    EXPECT_THAT(findings(Recording{}.dmx(0, levels).frame_delay(30ms)), IsEmpty());
}

TEST_F(PacketFindingsTest, AnOversizedLengthIsReportedWithIt) {
    Recording recording = steady(1);
    recording.header(0x5000).raw({0, 14, 0, 0, 0, 0, 2, 1});  // 513
    const auto result = report(padded(recording));
    EXPECT_THAT(lines(result), ElementsAre("error oversized-length @38 frame 0"));
    EXPECT_THAT(text(result, "oversized-length"), HasSubstr("claims 513 channels"));
    EXPECT_THAT(findings(Recording{}.dmx(0, std::vector<std::uint8_t>(512, 1)).frame_delay(30ms)), IsEmpty());
}

TEST_F(PacketFindingsTest, OddLengthsAreJoinedAsLongAsTheyFollowEachOther) {
    Recording recording;
    for (const std::size_t channels : {3U, 3U, 4U, 5U}) {
        recording.dmx(0, std::vector<std::uint8_t>(channels, 9)).frame_delay(30ms);
    }
    EXPECT_THAT(findings(recording),
                ElementsAre("warning odd-length @0 frame 0 x2", "warning odd-length @118 frame 3"));
}

TEST_F(PacketFindingsTest, APacketWithoutChannelsIsNeverSent) {
    EXPECT_THAT(findings(steady(1).dmx(0, {}).frame_delay(30ms)),
                ElementsAre("warning empty-dmx @38 frame 1"));
}

TEST_F(PacketFindingsTest, ACutOffTailEndsTheLoad) {
    const auto result = report(steady(3).cut_to(3 * (kDmx + kTiming) - 1));
    EXPECT_FALSE(result.loads);
    EXPECT_THAT(lines(result), ElementsAre("error truncated-tail @96 frame 1"));
    EXPECT_THAT(text(result, "truncated-tail"),
                AllOf(HasSubstr("17 bytes"), HasSubstr("cut the file at byte 96")));
    // The packet before is lost with it.
    EXPECT_EQ(result.packets, 2U);
}

TEST_F(PacketFindingsTest, PacketsThatDoNotPlayAreNamed) {
    Recording recording = steady(1);
    recording.header(0x5200).raw({0, 14, 0, 0});
    recording.header(0x2000).raw({0, 14, 0, 0});
    recording.header(0x1234);
    const auto result = report(padded(recording));
    EXPECT_THAT(lines(result),
                ElementsAre("warning unknown-packet @38 frame 0", "note dropped-packet @52 frame 0",
                            "warning unknown-packet @66 frame 0"));
    EXPECT_THAT(text(result, "unknown-packet"), HasSubstr("ArtSync"));
}

TEST_F(PacketFindingsTest, AFileWithoutAPacketIsNoRecording) {
    for (const char* const content : {"", "no recording at all"}) {
        const auto result = report(Recording{}.raw(std::string_view(content)));
        EXPECT_FALSE(result.loads);
        EXPECT_THAT(lines(result), ElementsAre("error no-packets @0 frame 0"));
    }
    EXPECT_THAT(findings(Recording{}.raw("A").dmx(0, {1, 2})),
                ElementsAre("error no-packets @0 frame 0", "error hidden-identifier @1 frame 0"));
}

TEST_F(PacketFindingsTest, WithoutAnArtDmxNothingIsSent) {
    EXPECT_THAT(findings(Recording{}.header(0x5200)),
                ElementsAre("warning unknown-packet @0 frame 0", "error no-dmx @0 frame 0"));
    // Nor is there a frame to name where its last block is not full.
    const auto result = report(Recording{}.frame_delay(30ms).fill_to(kBlock + 20));
    EXPECT_TRUE(result.loads);
    EXPECT_THAT(lines(result), ElementsAre("warning timing-ignored @0 frame 0", "error no-dmx @0 frame 0",
                                           "note not-padded @" + std::to_string(kBlock + 20) + " frame 0"));
}

TEST_F(PacketFindingsTest, WhatCannotBeReadIsAFindingAndNeverWaits) {
    const auto reason = [&](const std::string& name) {
        const auto result = inspect::inspect_recording(path(name), {});
        EXPECT_THAT(lines(result), ElementsAre("error unreadable @0 frame 0"));
        EXPECT_FALSE(result.loads);
        return text(result, "unreadable");
    };
    EXPECT_THAT(reason("absent.rec"), HasSubstr("No such file"));
    std::filesystem::create_directory(path("folder.rec"));
    EXPECT_THAT(reason("folder.rec"), HasSubstr("is a directory"));
    // Nobody writes into it.
    ASSERT_EQ(mkfifo(path("fifo.rec").c_str(), 0600), 0);
    EXPECT_THAT(reason("fifo.rec"), HasSubstr("no regular file"));
}

TEST_F(PacketFindingsTest, WhatMayNotBeReadIsAFinding) {
    namespace fs = std::filesystem;
    ASSERT_TRUE(steady(1).write(path("open.rec")));
    ASSERT_TRUE(steady(1).write(path("secret.rec")));
    fs::permissions(path("open.rec"), fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    fs::permissions(path("secret.rec"), fs::perms::none);
    fs::permissions(path("."), fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
    const tests::ChildReport child = tests::run_in_child(0, [&]() -> std::string {
        // Root may read everything.
        if (geteuid() == 0 && setuid(kNobody) != 0) {
            throw tests::Unavailable("root cannot be given up here");
        }
        if (access(path("open.rec").c_str(), R_OK) != 0) {
            throw tests::Unavailable("others than root do not get to temporary files here");
        }
        const auto result = inspect::inspect_recording(path("secret.rec"), {});
        return testing::PrintToString(lines(result)) + (result.loads ? " loads: " : ": ") +
               text(result, "unreadable");
    });
    SKIP_IF_UNAVAILABLE(child);
    EXPECT_THAT(child.text, testing::StartsWith(
                                "{ \"error unreadable @0 frame 0\" }: cannot be read: Permission denied; "));
}

TEST_F(PacketFindingsTest, EveryPartOfTheWorkTellsHowFarItHasCome) {
    Recording recording = steady(60);
    ASSERT_TRUE(padded(recording).write(path("test.rec")));
    std::uint64_t latest = 0;
    std::uint64_t total = 0;
    std::set<std::uint64_t> thirds;
    static_cast<void>(
        inspect::inspect_recording(path("test.rec"), {}, [&](std::uint64_t done, std::uint64_t of) {
            if (of == 0) {
                return;
            }
            EXPECT_GE(done, latest);
            EXPECT_LE(done, of);
            latest = done;
            total = of;
            thirds.insert(3 * done / of);
        }));
    EXPECT_THAT(thirds, ElementsAre(0U, 1U, 2U)) << "the search, the walk, the frames";
    EXPECT_GE(latest, total * 9 / 10);
}

TEST_F(PacketFindingsTest, OnlyTheFirstOfAKindAreKeptAndTheOthersCounted) {
    Recording recording = steady(1);
    for (int packet = 0; packet < 25; ++packet) {
        recording.header(0x5200);
    }
    const auto result = report(padded(recording), {.per_kind = 3});
    EXPECT_EQ(result.findings.list().size(), 3U);
    EXPECT_EQ(result.findings.left_out().at("unknown-packet"), 22U);
    EXPECT_EQ(result.findings.count(inspect::Level::Warning), 25U);
    EXPECT_EQ(report(padded(recording), {.per_kind = 0}).findings.list().size(), 25U);
}
