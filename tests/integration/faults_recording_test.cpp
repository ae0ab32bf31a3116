// Recordings that cannot be read: which answer, which lines, and that everything else plays on.

#include <filesystem>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "faults_test.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

struct BadRecording {
    const char* name;
    void (*make)(ShowDirectory& show);
    /// As the error line shows it.
    int code;
};

Recording one_frame(std::uint8_t level) {
    return Recording{}.dmx(1, {level}).fill_to(512);
}

const BadRecording kBadRecordings[] = {
    {"Missing", [](ShowDirectory&) {}, 1},
    {"Unreadable",
     [](ShowDirectory& show) {
         show.recording("bad.rec", one_frame(7).bytes());
         ASSERT_EQ(chmod(show.path("bad.rec").c_str(), 0), 0);
     },
     1},
    {"Empty", [](ShowDirectory& show) { show.file("bad.rec", ""); }, 3},
    {"WithoutAPacket", [](ShowDirectory& show) { show.file("bad.rec", std::string(5000, 'x')); }, 3},
    {"ADirectory", [](ShowDirectory& show) { std::filesystem::create_directory(show.path("bad.rec")); }, 3},
    {"CutWithinItsFirstPacket",
     [](ShowDirectory& show) {
         show.recording("bad.rec", Recording{}.dmx(1, {7, 7, 7}).cut_to(20).bytes());
     },
     2},
};

class FaultsRecordingTest : public FaultsTest, public testing::WithParamInterface<BadRecording> {
protected:
    void SetUp() override {
        if (const std::string reason = why_all_is_readable(); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
        GetParam().make(show());
    }
    /// As nobody whose rights go beyond those of the files.
    void start_as_anybody() {
        ServiceSettings settings;
        settings.prepare = drop_right_to_read_all;
        start_with_beat(settings);
    }

    ForwarderSocket wire_;
};

INSTANTIATE_TEST_SUITE_P(Recordings, FaultsRecordingTest, testing::ValuesIn(kBadRecordings),
                         [](const testing::TestParamInfo<BadRecording>& bad) {
                             return std::string(bad.param.name);
                         });

}  // namespace

TEST_P(FaultsRecordingTest, AsTheOnlyOneRefusesThePlayUntilItIsMended) {
    show().playlist(ShowPlaylist(1).loop(false).effect(ShowEffect("bad.rec").output(wire_.output("1"))));
    start_as_anybody();
    EXPECT_FALSE(controller().play(1));
    EXPECT_EQ(trouble(), refused_by_recording("bad.rec", GetParam().code));
    expect_not_loaded(1);
    expect_beat_goes_on();

    std::filesystem::remove(show().path("bad.rec"));
    show().recording("bad.rec", one_frame(7).bytes());
    mark_log();
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(wire_.next().level(0), 7);
    EXPECT_TRUE(controller().wait_for_stopped(1));
    EXPECT_EQ(trouble(), Lines{});
    expect_beat_goes_on(1);
}

TEST_P(FaultsRecordingTest, BehindAGoodOneLeavesThatToPlayAndEndsTheLoad) {
    show().recording("good.rec", Recording{}.dmx(1, {1}).frame_delay(5ms).dmx(1, {2}).fill_to(512).bytes());
    show().recording("later.rec", one_frame(9).bytes());
    ShowPlaylist playlist(1);
    playlist.loop(false);
    for (const char* const path : {"good.rec", "bad.rec", "later.rec"}) {
        playlist.effect(ShowEffect(path).output(wire_.output("1")));
    }
    show().playlist(playlist);
    start_as_anybody();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    std::vector<int> levels;
    for (const Frame& frame : wire_.arrived()) {
        levels.push_back(frame.level(0));
    }
    EXPECT_THAT(levels, ElementsAre(1, 2));
    EXPECT_THAT(trouble(), ElementsAre(parse_error_line("bad.rec", GetParam().code)));
    expect_beat_goes_on();
}
