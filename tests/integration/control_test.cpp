// Playing, pausing and stopping over the bus: the answers, and every line that goes with them.

#include <filesystem>

#include "service_test.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Lines = std::vector<std::string>;

class ControlTest : public ServiceTest {
protected:
    /// A looping playlist on universe 1 whose frames have 1, 2, 3 ... `frames` on channel 0, 5 ms each.
    void add_counting_playlist(int id, int frames = 200) {
        add_playlist(id, true, counting(frames), {wire_.output("1")});
    }

    /// Fills whole blocks, so that no packet of the last one comes twice.
    static Recording counting(int frames) {
        Recording recording;
        for (int frame = 1; frame <= frames; ++frame) {
            recording.dmx(1, {static_cast<std::uint8_t>(frame)}).frame_delay(5ms);
        }
        return recording.fill_to((recording.size() + 511) / 512 * 512);
    }

    /// The lines of loading a playlist of add_playlist(), up to its last one.
    [[nodiscard]] Lines loading_lines(int id) const {
        const std::string number = std::to_string(id);
        return {"info [Repeater::play_playlist] Play playlist (playlist_id:" + number + ")",
                "info [Repeater::load_playlist] Load playlist (playlist_id:" + number + ")",
                "info [PlaylistParser::parse_desc] Parse playlist desc file (playlist_id:" + number +
                    ", playlist_desc_path:playlists/playlists.json)",
                "info [PlaylistParser::parse_effects] Parse playlist effects file (path:" + data_root() +
                    "/playlists/" + number + ".json)",
                "info [PlaylistParser::parse_outputs] Parse effect outputs",
                "info [PlaylistParser::parse_universes] Parse effect universes"};
    }

    ForwarderSocket wire_;
};

}  // namespace

TEST_F(ControlTest, TheFirstPlayLoadsAndEachStepHasItsLine) {
    add_counting_playlist(3);
    start();
    EXPECT_TRUE(controller().play(3));
    Lines lines = log_since_mark();
    // The loader's line comes from its own thread, before or after the last one of the main thread.
    const std::string loader_line =
        "info [PlaylistLoader::load_effect] Load effect (" + data_root() + "/3.rec)";
    EXPECT_EQ(std::erase(lines, loader_line), 1u);
    Lines expected = loading_lines(3);
    expected.push_back("info [Repeater::load_playlist] Playlist loaded (playlist_id:3)");
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(wire_.next().level(0), 1);
}

TEST_F(ControlTest, PlayingTwiceIsAnsweredTrueAndTheSecondOnlySaysThatItPlays) {
    add_counting_playlist(1);
    start();
    EXPECT_TRUE(controller().play(1));
    static_cast<void>(wire_.next());
    mark_log();
    EXPECT_TRUE(controller().play(1));
    EXPECT_THAT(log_since_mark(), ElementsAre("info [Repeater::play_playlist] Play playlist (playlist_id:1)",
                                              "info [Repeater::play_playlist] Cuelist already playing"));
}

TEST_F(ControlTest, PauseWithNothingLoadedIsRefused) {
    start();
    EXPECT_FALSE(controller().pause(7));
    EXPECT_THAT(log_since_mark(),
                ElementsAre("info [Repeater::pause_playlist] Pause playlist (playlist_id:7)",
                            "info [Repeater::pause_playlist] No active cuelists"));
}

TEST_F(ControlTest, PauseOfAnotherPlaylistThanTheLoadedIsRefused) {
    add_counting_playlist(1);
    start();
    EXPECT_TRUE(controller().play(1));
    static_cast<void>(wire_.next());
    mark_log();
    EXPECT_FALSE(controller().pause(7));
    EXPECT_THAT(log_since_mark(),
                ElementsAre("info [Repeater::pause_playlist] Pause playlist (playlist_id:7)",
                            "info [Repeater::pause_playlist] Cuelist is not active"));
}

TEST_F(ControlTest, APausedPlaylistSendsNothingAndResumesAtThePacketWhereItPaused) {
    constexpr int kFrames = 250;
    add_counting_playlist(1, kFrames);
    start();
    EXPECT_TRUE(controller().play(1));
    static_cast<void>(wire_.next(10));
    mark_log();
    EXPECT_TRUE(controller().pause(1));
    EXPECT_THAT(log_since_mark(),
                ElementsAre("info [Repeater::pause_playlist] Pause playlist (playlist_id:1)"));
    const std::vector<Frame> before = wire_.arrived();
    int sent = 10 + static_cast<int>(before.size());
    if (!before.empty()) {
        EXPECT_EQ(before.back().level(0), (sent - 1) % kFrames + 1);
    }
    // A second pause is answered like the first, and no packet came meanwhile.
    EXPECT_TRUE(controller().pause(1));
    EXPECT_THAT(wire_.arrived(), IsEmpty());

    mark_log();
    EXPECT_TRUE(controller().play(1));
    for (const Frame& frame : wire_.next(5)) {
        EXPECT_EQ(frame.level(0), sent++ % kFrames + 1);
    }
    EXPECT_THAT(log_since_mark(),
                ElementsAre("info [Repeater::play_playlist] Play playlist (playlist_id:1)"));
}

TEST_F(ControlTest, StopPlaylistWithNothingLoadedOnlyLogs) {
    start();
    controller().stop_playlist(7);
    EXPECT_THAT(log_since_mark(), ElementsAre("info [Repeater::stop_playlist] Stop playlist (playlist_id:7)",
                                              "info [Repeater::stop_playlist] No active cuelists"));
}

TEST_F(ControlTest, StopPlaylistOfAnotherThanTheLoadedOnlyLogs) {
    add_counting_playlist(1);
    start();
    EXPECT_TRUE(controller().play(1));
    static_cast<void>(wire_.next());
    mark_log();
    controller().stop_playlist(7);
    EXPECT_THAT(log_since_mark(), ElementsAre("info [Repeater::stop_playlist] Stop playlist (playlist_id:7)",
                                              "info [Repeater::stop_playlist] Cuelist is not active"));
    EXPECT_TRUE(controller().pause(1));
}

TEST_F(ControlTest, AStoppedPlaylistIsUnloadedAndPlaysAnewFromItsFirstPacket) {
    add_counting_playlist(1);
    start();
    EXPECT_TRUE(controller().play(1));
    static_cast<void>(wire_.next(5));
    mark_log();
    controller().stop_playlist(1);
    EXPECT_THAT(log_since_mark(),
                ElementsAre("info [Repeater::stop_playlist] Stop playlist (playlist_id:1)"));
    wire_.arrived();
    EXPECT_FALSE(controller().pause(1));
    EXPECT_THAT(wire_.arrived(), IsEmpty());
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(wire_.next().level(0), 1);
    // A stop by command is no end to report.
    controller().stop_playlist(1);
    EXPECT_THAT(controller().stopped(), IsEmpty());
}

TEST_F(ControlTest, AReplayAfterAStopReadsTheFilesAgain) {
    add_counting_playlist(1);
    start();
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(wire_.next().level(0), 1);
    controller().stop_playlist(1);
    wire_.arrived();
    show().recording("1.rec", Recording{}.dmx(1, {99}).frame_delay(5ms).bytes());
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(wire_.next().level(0), 99);
}

TEST_F(ControlTest, AnEndedPlaylistIsNotRestartedByPlayButByStopAndPlay) {
    add_playlist(1, false, Recording{}.dmx(1, {7}), {wire_.output("1")});
    start();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_EQ(wire_.arrived().size(), 1u);
    mark_log();
    EXPECT_TRUE(controller().play(1));
    EXPECT_THAT(log_since_mark(), ElementsAre("info [Repeater::play_playlist] Play playlist (playlist_id:1)",
                                              "info [Repeater::play_playlist] Cuelist already playing"));
    controller().stop_playlist(1);
    EXPECT_THAT(wire_.arrived(), IsEmpty());
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().wait_for_stopped(2));
    EXPECT_EQ(wire_.arrived().size(), 1u);
}

TEST_F(ControlTest, APausedEndedPlaylistFollowsItsFlagsWhenPlayedAgain) {
    add_playlist(1, false, Recording{}.dmx(1, {7}), {wire_.output("1")});
    add_counting_playlist(2);
    start();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_TRUE(controller().pause(1));
    wire_.arrived();
    mark_log();
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(1));
    EXPECT_THAT(log_since_mark(), ElementsAre("info [Repeater::play_playlist] Play playlist (playlist_id:1)",
                                              "info [Repeater::play_playlist] Play playlist (playlist_id:1)",
                                              "info [Repeater::play_playlist] Cuelist already playing"));
    // Another playlist runs for a while; of the ended one nothing comes, neither frame nor signal.
    EXPECT_TRUE(controller().play(2));
    for (const Frame& frame : wire_.next(6)) {
        EXPECT_LT(frame.level(0), 7);
    }
    EXPECT_THAT(controller().stopped(), ElementsAre(1));
}

TEST_F(ControlTest, BrightnessAndSpeedBoostOfAnUnloadedPlaylistOnlyLog) {
    start();
    controller().set_brightness(5, 50);
    controller().set_speed_boost(5, 50);
    EXPECT_THAT(log_since_mark(),
                ElementsAre("info [Repeater::set_brightness] Cuelist is not active (playlist_id:5)",
                            "info [Repeater::set_speed_boost] Cuelist is not active (playlist_id:5)"));
}

TEST_F(ControlTest, BrightnessAndSpeedBoostAreDetailsInTheLogAsTheyWereGiven) {
    add_counting_playlist(1);
    start();
    EXPECT_TRUE(controller().play(1));
    static_cast<void>(wire_.next());
    controller().set_log_level(4);
    mark_log();
    controller().set_brightness(1, 250);
    controller().set_speed_boost(1, -5);
    EXPECT_THAT(
        log_since_mark(),
        ElementsAre("info [Repeater::set_brightness] Set brightness (playlist_id:1, brightness:250)",
                    "info [Repeater::set_speed_boost] Set speed boost (playlist_id:1, speed_boost:-5)"));
}

TEST_F(ControlTest, BrightnessIsClampedToZeroAndOneHundred) {
    add_playlist(1, true, Recording{}.dmx(1, {200}).frame_delay(5ms), {wire_.output("1")});
    start();
    EXPECT_TRUE(controller().play(1));
    const auto level_at = [this](int brightness) {
        controller().set_brightness(1, brightness);
        // Answered before the worker goes on, so all that comes from here on is scaled.
        wire_.arrived();
        return wire_.next().level(0);
    };
    EXPECT_EQ(level_at(-5), 0);
    EXPECT_EQ(level_at(250), 200);
    EXPECT_EQ(level_at(0), 0);
    EXPECT_EQ(level_at(100), 200);
    EXPECT_EQ(level_at(50), 100);
}

TEST_F(ControlTest, BrightnessOfAPausedPlaylistIsKept) {
    add_playlist(1, true, Recording{}.dmx(1, {200}).frame_delay(5ms), {wire_.output("1")});
    start();
    EXPECT_TRUE(controller().play(1));
    static_cast<void>(wire_.next());
    EXPECT_TRUE(controller().pause(1));
    wire_.arrived();
    controller().set_brightness(1, 25);
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(wire_.next().level(0), 50);
}

TEST_F(ControlTest, StopUnloadsEverythingWithOneLineAndNoSignalNorBlackout) {
    add_counting_playlist(1);
    add_counting_playlist(2);
    start();
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    static_cast<void>(wire_.next(10));
    mark_log();
    controller().stop();
    EXPECT_THAT(log_since_mark(), ElementsAre("info [Repeater::stop] Stop all playlists"));
    for (const Frame& frame : wire_.arrived()) {
        EXPECT_NE(frame.level(0), 0);
    }
    EXPECT_FALSE(controller().pause(1));
    EXPECT_THAT(log_since_mark().back(), "info [Repeater::pause_playlist] No active cuelists");
    EXPECT_THAT(wire_.arrived(), IsEmpty());
    EXPECT_THAT(controller().stopped(), IsEmpty());
    // The engine itself goes on.
    EXPECT_TRUE(controller().play(2));
    EXPECT_EQ(wire_.next().level(0), 1);
}

TEST_F(ControlTest, StopWithNothingLoadedOnlyLogs) {
    start();
    controller().stop();
    EXPECT_THAT(log_since_mark(), ElementsAre("info [Repeater::stop] Stop all playlists"));
}

TEST_F(ControlTest, StopWhileAPlaylistStillLoadsWaitsForItsLoader) {
    // Long enough to be still loading when the stop arrives.
    Recording recording;
    for (int frame = 0; frame < 40'000; ++frame) {
        recording.dmx(1, {1}).frame_delay(60ms);
    }
    add_playlist(1, true, recording, {wire_.output("1")});
    start();
    EXPECT_TRUE(controller().play(1));
    controller().stop();
    EXPECT_TRUE(controller().add_zone({1, 0, {0}}));
    EXPECT_TRUE(controller().play(1));
    controller().stop_playlist(1);
    EXPECT_TRUE(controller().remove_zone(1));
}

TEST_F(ControlTest, ARecordingWithoutPacketsIsAbsentDataAndLeavesNothingLoaded) {
    add_playlist(1, true, Recording{}, {wire_.output("1")});
    start();
    EXPECT_FALSE(controller().play(1));
    Lines lines = log_since_mark();
    EXPECT_EQ(std::erase(lines, "info [PlaylistLoader::load_effect] Load effect (" + data_root() + "/1.rec)"),
              1u);
    EXPECT_EQ(std::erase(lines, "err playlist_loader.cpp [PlaylistLoader::load_effect] Cue (" + data_root() +
                                    "/1.rec) parse error (3)"),
              1u);
    Lines expected = loading_lines(1);
    expected.push_back("info [Repeater::load_playlist] Playlist loaded (playlist_id:1)");
    expected.push_back("info [Repeater::play_playlist] Cuelist data is absent");
    EXPECT_EQ(lines, expected);
    mark_log();
    EXPECT_FALSE(controller().pause(1));
    EXPECT_EQ(log_since_mark().back(), "info [Repeater::pause_playlist] No active cuelists");
}

TEST_F(ControlTest, AMissingRecordingAndADirectoryAreErrorsLikeAnyBadRecording) {
    show().playlist(ShowPlaylist(1).effect(ShowEffect("missing.rec")));
    show().playlist(ShowPlaylist(2).effect(ShowEffect("folder")));
    std::filesystem::create_directory(show().path("folder"));
    start();
    EXPECT_FALSE(controller().play(1));
    EXPECT_THAT(log_since_mark(),
                testing::Contains("err playlist_loader.cpp [PlaylistLoader::load_effect] Cue (" +
                                  data_root() + "/missing.rec) parse error (1)"));
    EXPECT_FALSE(controller().play(2));
    EXPECT_THAT(
        log_since_mark(),
        testing::Contains(testing::StartsWith("err playlist_loader.cpp [PlaylistLoader::load_effect] Cue (" +
                                              data_root() + "/folder) parse error (")));
}

TEST_F(ControlTest, APlaylistWithoutEffectsIsAbsentData) {
    show().playlist(ShowPlaylist(1));
    start();
    EXPECT_FALSE(controller().play(1));
    EXPECT_EQ(log_since_mark().back(), "info [Repeater::play_playlist] Cuelist data is absent");
}
