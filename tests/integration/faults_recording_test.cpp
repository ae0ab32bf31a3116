// Recordings that cannot be read: which answer, which lines, and that everything else plays on.

#include <filesystem>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "faults_test.h"
#include "support/fifo.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

struct BadRecording {
    const char* name;
    void (*make)(ShowDirectory& show);
    /// As the error line shows it.
    int code;
    /// Whether the service has to be somebody who may not read everything.
    bool needs_rights_dropped = false;
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
     1, true},
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
        const std::string reason = GetParam().needs_rights_dropped ? why_all_is_readable() : "";
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
        GetParam().make(show());
    }
    /// As nobody whose rights go beyond those of the files.
    void start_as_anybody() {
        ServiceSettings settings;
        if (GetParam().needs_rights_dropped) {
            settings.prepare = drop_right_to_read_all;
        }
        start_with_beat(settings);
    }

    ForwarderSocket wire_;
};

/// A recording that has come half when something is done to its file: a FIFO, so that the test has it in
/// hand.
class FaultsLoadingRecordingTest : public FaultsTest {
protected:
    /// Playlist 1 plays the FIFO and then another recording, which is not opened before the FIFO's end.
    void start_and_load_half() {
        show().recording("later.rec", one_frame(50).bytes());
        show().playlist(ShowPlaylist(1)
                            .loop(false)
                            .effect(ShowEffect("live.rec").output(wire_.output("1")))
                            .effect(ShowEffect("later.rec").output(wire_.output("1"))));
        start_with_beat();
        const QDBusPendingCall play = call_later(QStringLiteral("play_playlist"), {1});
        fifo_.open();
        ASSERT_TRUE(fifo_.write(frames(1, 5)));
        ASSERT_TRUE(wait_for_answer(play));
    }
    void load_the_rest() {
        ASSERT_TRUE(fifo_.write(frames(6, 8)));
        fifo_.close();
    }
    /// Of all frames that have come since the last time.
    [[nodiscard]] std::vector<int> levels() {
        std::vector<int> all;
        for (const Frame& frame : wire_.arrived()) {
            all.push_back(frame.level(0));
        }
        return all;
    }

    ForwarderSocket wire_;

private:
    /// A frame a block, with levels from `first` to `last`.
    static std::vector<std::uint8_t> frames(std::uint8_t first, std::uint8_t last) {
        Recording recording;
        for (std::uint8_t level = first; level <= last; ++level) {
            recording.dmx(1, {level}).frame_delay(20ms).fill_to(recording.size() / 512 * 512 + 512);
        }
        return recording.bytes();
    }

    Fifo fifo_{show().path("live.rec")};
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

TEST_F(FaultsLoadingRecordingTest, ReplacedItLoadsToItsEndAndTheNextPlayTakesTheNewOnes) {
    start_and_load_half();
    show().recording("new.rec", one_frame(7).bytes()).recording("new_later.rec", one_frame(60).bytes());
    std::filesystem::rename(show().path("new.rec"), show().path("live.rec"));
    // Not opened yet, so the new one counts at once.
    std::filesystem::rename(show().path("new_later.rec"), show().path("later.rec"));
    expect_beat_goes_on();
    load_the_rest();
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_THAT(levels(), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 60));

    controller().stop_playlist(1);
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(2));
    EXPECT_THAT(levels(), ElementsAre(7, 60));
    EXPECT_EQ(trouble(), Lines{});
    expect_beat_goes_on();
}

TEST_F(FaultsLoadingRecordingTest, DeletedItLoadsToItsEndAndTheNextPlayIsRefused) {
    start_and_load_half();
    std::filesystem::remove(show().path("live.rec"));
    expect_beat_goes_on();
    load_the_rest();
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_THAT(levels(), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 50));
    EXPECT_EQ(trouble(), Lines{});

    controller().stop_playlist(1);
    EXPECT_FALSE(controller().play(1));
    EXPECT_EQ(trouble(), refused_by_recording("live.rec", 1));
    expect_not_loaded(1);
    expect_beat_goes_on();
}
