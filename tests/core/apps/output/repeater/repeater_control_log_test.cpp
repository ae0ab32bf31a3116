// The level of each line of playlist control.

#include "support/engine_test.h"

namespace {

class RepeaterControlLogTest : public EngineTest {
protected:
    RepeaterControlLogTest() {
        start();
        show.playlist(steady(1, 0, {1}));
        show.playlist(ShowPlaylist(2).effect(ShowEffect("missing.rec").output("0:192.0.2.1:6454")));
        release_log();
    }
    /// Level of a line of play_playlist(id) when nothing is loaded.
    int level_of_first_play(const char* line, int id) {
        return level_of(line, [=, this] {
            engine().play_playlist(id);
            engine().stop();
        });
    }
};

TEST_F(RepeaterControlLogTest, LoadingAndPlaying) {
    EXPECT_EQ(level_of_first_play("[Repeater::play_playlist] Play playlist (playlist_id:1)", 1), 3);
    EXPECT_EQ(level_of_first_play("[Repeater::load_playlist] Load playlist (playlist_id:1)", 1), 3);
    EXPECT_EQ(level_of_first_play("[Repeater::load_playlist] Playlist loaded (playlist_id:1)", 1), 3);
}

TEST_F(RepeaterControlLogTest, Refusals) {
    EXPECT_EQ(level_of_first_play(
                  "[Repeater::load_playlist] Failed to load cuelist (err:Playlist desc not found)", 5),
              3);
    EXPECT_EQ(level_of_first_play("[Repeater::play_playlist] Failed to load cuelist", 5), 3);
    EXPECT_EQ(level_of_first_play("[Repeater::play_playlist] Cuelist data is absent", 2), 3);
}

TEST_F(RepeaterControlLogTest, CallsWithNothingLoaded) {
    EXPECT_EQ(
        level_of("[Repeater::pause_playlist] No active cuelists", [this] { engine().pause_playlist(1); }), 3);
    EXPECT_EQ(level_of("[Repeater::stop_playlist] No active cuelists", [this] { engine().stop_playlist(1); }),
              3);
}

TEST_F(RepeaterControlLogTest, CallsForAPlaylistThatIsNotLoaded) {
    ASSERT_TRUE(engine().play_playlist(1));
    const auto pause = [this] { engine().pause_playlist(5); };
    EXPECT_EQ(level_of("[Repeater::pause_playlist] Pause playlist (playlist_id:5)", pause), 3);
    EXPECT_EQ(level_of("[Repeater::pause_playlist] Cuelist is not active", pause), 3);
    const auto stop = [this] { engine().stop_playlist(5); };
    EXPECT_EQ(level_of("[Repeater::stop_playlist] Stop playlist (playlist_id:5)", stop), 3);
    EXPECT_EQ(level_of("[Repeater::stop_playlist] Cuelist is not active", stop), 3);
    const auto dim = [this] { engine().set_brightness(5, 250); };
    EXPECT_EQ(level_of("[Repeater::set_brightness] Set brightness (playlist_id:5, brightness:250)", dim), 4);
    EXPECT_EQ(level_of("[Repeater::set_brightness] Cuelist is not active (playlist_id:5)", dim), 3);
    const auto boost = [this] { engine().set_speed_boost(5, -7); };
    EXPECT_EQ(level_of("[Repeater::set_speed_boost] Set speed boost (playlist_id:5, speed_boost:-7)", boost),
              4);
    EXPECT_EQ(level_of("[Repeater::set_speed_boost] Cuelist is not active (playlist_id:5)", boost), 3);
}

TEST_F(RepeaterControlLogTest, PlayingAgain) {
    ASSERT_TRUE(engine().play_playlist(1));
    EXPECT_EQ(
        level_of("[Repeater::play_playlist] Cuelist already playing", [this] { engine().play_playlist(1); }),
        3);
}

TEST_F(RepeaterControlLogTest, AtTheDefaultLevelAWholeLifeShowsTheseLinesAndNoOthers) {
    const CapturedLog log(ondra::kNormal);
    ASSERT_TRUE(engine().play_playlist(1));
    engine().set_brightness(1, 50);
    engine().set_speed_boost(1, 50);
    ASSERT_TRUE(engine().pause_playlist(1));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(eventually([this] { return flags(1) == "1,0,0"; }));
    engine().set_unicast_enabled(false);
    engine().stop_playlist(1);
    engine().stop();
    // The loader's line comes from its own thread, at any place.
    EXPECT_EQ(log.lines_starting("[PlaylistLoader::"),
              (std::vector<std::string>{"[PlaylistLoader::load_effect] Load effect (" +
                                        show.path("steady1.rec") + ")"}));
    EXPECT_EQ(log.lines_starting("[PlaylistParser::").size(), 4U);
    EXPECT_EQ(log.lines_starting("[Repeater::"),
              (std::vector<std::string>{"[Repeater::play_playlist] Play playlist (playlist_id:1)",
                                        "[Repeater::load_playlist] Load playlist (playlist_id:1)",
                                        "[Repeater::load_playlist] Playlist loaded (playlist_id:1)",
                                        "[Repeater::pause_playlist] Pause playlist (playlist_id:1)",
                                        "[Repeater::play_playlist] Play playlist (playlist_id:1)",
                                        "[Repeater::stop_playlist] Stop playlist (playlist_id:1)",
                                        "[Repeater::stop] Stop all playlists"}));
    EXPECT_EQ(log.lines().size(), 12U);
}

}  // namespace
