// Control calls change what the render worker reads only while they hold the engine's lock as writer.

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include <gmock/gmock.h>

#include "support/engine_test.h"
#include "support/writer_holds.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// What each hold of the lock changes. The worker sleeps, so that all changes are the call's own.
class RepeaterHoldsTest : public EngineTest {
protected:
    using Holds = std::vector<WriterHold>;

    RepeaterHoldsTest() {
        start();
        hold_idle_worker();
    }
    /// Playlist `id` in zone 3 of universe `id`, with a packet unless its recording is missing.
    void add(int id) {
        const std::string path = std::to_string(id) + ".rec";
        show.recording(path, Recording{}.dmx(id, {1}).bytes());
        show.playlist(
            ShowPlaylist(id).effect(ShowEffect(path).fps(25).ppf(1).output("*:192.0.2.1:6454").zone(id, 3)));
    }
    Holds playlist_holds(const std::function<void(Repeater&)>& call) {
        return holds([this] { return RepeaterAccess::playlists_held(engine()); }, call);
    }
    Holds zone_holds(const std::function<void(Repeater&)>& call) {
        return holds([this] { return RepeaterAccess::zones_held(engine()); }, call);
    }
    Holds holds(const WriterHold::Look& look, const std::function<void(Repeater&)>& call) {
        return WriterHold::during(RepeaterAccess::lock(engine()), look, [&, this] { call(engine()); });
    }
};

TEST_F(RepeaterHoldsTest, UnicastIsSwitchedInOneHold) {
    EXPECT_THAT(holds([this] { return RepeaterAccess::unicast_held(engine()); },
                      [](Repeater& engine) { engine.set_unicast_enabled(false); }),
                ElementsAre(WriterHold{"on", "off"}));
}

TEST_F(RepeaterHoldsTest, BrightnessAndSpeedBoostAreSetInOneHoldEach) {
    add(1);
    ASSERT_TRUE(RepeaterAccess::load_playlist(engine(), 1));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.set_brightness(1, 40); }),
                ElementsAre(WriterHold{"1:0,0,0 100/0;0", "1:0,0,0 40/0;0"}));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.set_speed_boost(1, 30); }),
                ElementsAre(WriterHold{"1:0,0,0 40/0;0", "1:0,0,0 40/30;0"}));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.set_brightness(2, 40); }), IsEmpty());
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.set_speed_boost(2, 40); }), IsEmpty());
}

TEST_F(RepeaterHoldsTest, ALoadedPlaylistIsAppendedInOneHold) {
    add(1);
    add(2);
    ASSERT_TRUE(RepeaterAccess::load_playlist(engine(), 1));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { RepeaterAccess::load_playlist(engine, 2); }),
                ElementsAre(WriterHold{"1:0,0,0 100/0;0", "1:0,0,0 100/0;2:0,0,0 100/0;0"}));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { RepeaterAccess::load_playlist(engine, 3); }),
                IsEmpty());
}

TEST_F(RepeaterHoldsTest, AFirstPlayAppendsThenTakesOwnershipAndAsksForThePlayInOneHold) {
    add(1);
    ASSERT_TRUE(engine().add_zone({3, 5, {0}}));
    EXPECT_THAT(
        playlist_holds([](Repeater& engine) { engine.play_playlist(1); }),
        ElementsAre(WriterHold{"0", "1:0,0,0 100/0;0"}, WriterHold{"1:0,0,0 100/0;0", "1:0,1,0 100/0;1"}));
}

TEST_F(RepeaterHoldsTest, APlaylistWithoutPacketsIsAppendedAndTakenOutAgain) {
    show.playlist(ShowPlaylist(1).effect(ShowEffect("missing.rec").output("*:192.0.2.1:6454")));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.play_playlist(1); }),
                ElementsAre(WriterHold{"0", "1:0,0,0 100/0;0"}, WriterHold{"1:0,0,0 100/0;0", "0"}));
}

TEST_F(RepeaterHoldsTest, APausedPlaylistIsLookedAtInOneHoldAndAskedToPlayInASecond) {
    add(1);
    ASSERT_TRUE(RepeaterAccess::load_playlist(engine(), 1));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.play_playlist(1); }),
                ElementsAre(WriterHold{"1:0,0,0 100/0;0", "1:0,0,0 100/0;0"},
                            WriterHold{"1:0,0,0 100/0;0", "1:0,1,0 100/0;0"}));
    // Already asked for: looked at, no more.
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.play_playlist(1); }),
                ElementsAre(WriterHold{"1:0,1,0 100/0;0", "1:0,1,0 100/0;0"}));
}

TEST_F(RepeaterHoldsTest, APlaylistIsPausedInOneHold) {
    add(1);
    ASSERT_TRUE(engine().play_playlist(1));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.pause_playlist(1); }),
                ElementsAre(WriterHold{"1:0,1,0 100/0;0", "1:0,0,0 100/0;0"}));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.pause_playlist(2); }), IsEmpty());
}

TEST_F(RepeaterHoldsTest, AStoppedPlaylistIsMarkedInOneHoldAndTakenOutWithItsOwnershipInASecond) {
    add(1);
    add(2);
    ASSERT_TRUE(engine().add_zone({3, 5, {0}}));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(engine().play_playlist(2));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.stop_playlist(1); }),
                ElementsAre(WriterHold{"1:0,1,0 100/0;2:0,1,0 100/0;2", "1:0,1,1 100/0;2:0,1,0 100/0;2"},
                            WriterHold{"1:0,1,1 100/0;2:0,1,0 100/0;2", "2:0,1,0 100/0;1"}));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.stop_playlist(1); }), IsEmpty());
}

TEST_F(RepeaterHoldsTest, StopMarksAllInOneHoldAndEmptiesEverythingInASecond) {
    add(1);
    add(2);
    ASSERT_TRUE(engine().add_zone({3, 5, {0}}));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(engine().play_playlist(2));
    EXPECT_THAT(playlist_holds([](Repeater& engine) { engine.stop(); }),
                ElementsAre(WriterHold{"1:0,1,0 100/0;2:0,1,0 100/0;2", "1:0,1,1 100/0;2:0,1,1 100/0;2"},
                            WriterHold{"1:0,1,1 100/0;2:0,1,1 100/0;2", "0"}));
}

TEST_F(RepeaterHoldsTest, EachZoneOperationChangesTheTableInOneHold) {
    EXPECT_THAT(zone_holds([](Repeater& engine) {
                    engine.init_zones({Zone{1, 5, {}}, Zone{2, 6, {}}});
                }),
                ElementsAre(WriterHold{"", "1/5;2/6;"}));
    EXPECT_THAT(zone_holds([](Repeater& engine) {
                    engine.add_zone({3, 7, {}});
                }),
                ElementsAre(WriterHold{"1/5;2/6;", "1/5;2/6;3/7;"}));
    EXPECT_THAT(zone_holds([](Repeater& engine) {
                    engine.update_zone({3, 8, {}});
                }),
                ElementsAre(WriterHold{"1/5;2/6;3/7;", "1/5;2/6;3/8;"}));
    EXPECT_THAT(zone_holds([](Repeater& engine) { engine.remove_zone(2); }),
                ElementsAre(WriterHold{"1/5;2/6;3/8;", "1/5;3/8;"}));
    EXPECT_THAT(zone_holds([](Repeater& engine) { engine.remove_all_zones(); }),
                ElementsAre(WriterHold{"1/5;3/8;", ""}));
}

TEST_F(RepeaterHoldsTest, ARefusedZoneOperationHasLookedInOneHold) {
    ASSERT_TRUE(engine().add_zone({1, 5, {}}));
    const WriterHold look{"1/5;", "1/5;"};
    using Call = std::function<void(Repeater&)>;
    const std::vector<std::pair<const char*, Call>> refused{
        {"init, negative id",
         [](Repeater& engine) {
             engine.init_zones({Zone{-1, 5, {}}});
         }},
        {"add, negative id",
         [](Repeater& engine) {
             engine.add_zone(Zone{-1, 5, {}});
         }},
        {"add, known id",
         [](Repeater& engine) {
             engine.add_zone(Zone{1, 6, {}});
         }},
        {"update, unknown id",
         [](Repeater& engine) {
             engine.update_zone(Zone{2, 6, {}});
         }},
        {"remove, unknown id", [](Repeater& engine) { engine.remove_zone(2); }}};
    for (const auto& [name, call] : refused) {
        EXPECT_THAT(zone_holds(call), ElementsAre(look)) << name;
    }
    add(1);
    ASSERT_TRUE(RepeaterAccess::load_playlist(engine(), 1));
    const std::vector<std::pair<const char*, Call>> refused_while_loaded{
        {"init", [](Repeater& engine) { engine.init_zones({}); }},
        {"add",
         [](Repeater& engine) {
             engine.add_zone(Zone{2, 5, {}});
         }},
        {"update",
         [](Repeater& engine) {
             engine.update_zone(Zone{1, 6, {}});
         }},
        {"remove", [](Repeater& engine) { engine.remove_zone(1); }},
        {"remove all", [](Repeater& engine) { engine.remove_all_zones(); }}};
    for (const auto& [name, call] : refused_while_loaded) {
        EXPECT_THAT(zone_holds(call), ElementsAre(look)) << name;
    }
}

TEST_F(RepeaterHoldsTest, ANodeMapComesWithoutTheLock) {
    EXPECT_THAT(playlist_holds([](Repeater& engine) {
                    RepeaterAccess::update_artnet_node_map(engine, QStringLiteral("1:5:192.0.2.50:6454"));
                }),
                IsEmpty());
}

/// Playlist 1 plays, 2 is paused, and in standing time the worker waits for the next packet.
class RepeaterWaitingWorkerTest : public EngineTest {
protected:
    static constexpr std::chrono::milliseconds kFrame{40};

    RepeaterWaitingWorkerTest() {
        start();
        show.playlist(steady(1, 1, {1}));
        show.playlist(steady(2, 2, {1}));
        show.playlist(steady(3, 3, {1}));
        for (const int id : {1, 2}) {
            EXPECT_TRUE(RepeaterAccess::load_playlist(engine(), id));
            EXPECT_TRUE(wait_until_loaded(id));
        }
        VirtualClock::set_step(0ns);
        RepeaterAccess::request_play(engine(), {1});
        EXPECT_TRUE(wait_for_sent(1));
        EXPECT_TRUE(worker_is_waiting());
    }
    /// How much time had passed when `call` returned, moving on by a frame whenever it waits for the worker.
    std::chrono::nanoseconds time_taken(const std::function<void(Repeater&)>& call) {
        const auto before = VirtualClock::now();
        std::atomic<bool> returned{false};
        std::thread time([this, &returned] {
            const auto waits = [this] { return RepeaterAccess::write_pending(engine()); };
            while (eventually([&] { return returned.load() || waits(); }) && !returned.load()) {
                // While the worker waits it lets nobody in, so that the call waits, too.
                if (worker_is_waiting() && waits()) {
                    VirtualClock::advance(kFrame);
                }
            }
        });
        call(engine());
        const auto taken = VirtualClock::now() - before;
        returned.store(true);
        time.join();
        return taken;
    }
};

TEST_F(RepeaterWaitingWorkerTest, AControlCallIsAnsweredWhenThePendingPacketIsDue) {
    const std::vector<std::pair<const char*, std::function<void(Repeater&)>>> calls{
        {"set_unicast_enabled", [](Repeater& engine) { engine.set_unicast_enabled(false); }},
        {"set_brightness", [](Repeater& engine) { engine.set_brightness(2, 40); }},
        {"set_speed_boost", [](Repeater& engine) { engine.set_speed_boost(2, 40); }},
        {"pause_playlist", [](Repeater& engine) { EXPECT_TRUE(engine.pause_playlist(2)); }},
        {"play_playlist", [](Repeater& engine) { EXPECT_TRUE(engine.play_playlist(1)); }},
        {"init_zones", [](Repeater& engine) { EXPECT_FALSE(engine.init_zones({})); }},
        {"add_zone",
         [](Repeater& engine) {
             EXPECT_FALSE(engine.add_zone(Zone{1, 1, {}}));
         }},
        {"update_zone",
         [](Repeater& engine) {
             EXPECT_FALSE(engine.update_zone(Zone{1, 1, {}}));
         }},
        {"remove_zone", [](Repeater& engine) { EXPECT_FALSE(engine.remove_zone(1)); }},
        {"remove_all_zones", [](Repeater& engine) { EXPECT_FALSE(engine.remove_all_zones()); }},
    };
    for (const auto& [name, call] : calls) {
        EXPECT_EQ(time_taken(call), kFrame) << name;
        ASSERT_TRUE(worker_is_waiting()) << name;
    }
}

TEST_F(RepeaterWaitingWorkerTest, ACallThatTakesTheLockTwiceIsAnsweredAtADueTimeToo) {
    const std::vector<std::pair<const char*, std::function<void(Repeater&)>>> calls{
        {"play_playlist, paused", [](Repeater& engine) { EXPECT_TRUE(engine.play_playlist(2)); }},
        {"play_playlist, new", [](Repeater& engine) { EXPECT_TRUE(engine.play_playlist(3)); }},
        {"stop_playlist", [](Repeater& engine) { engine.stop_playlist(2); }},
    };
    for (const auto& [name, call] : calls) {
        const auto taken = time_taken(call);
        // It may get in a second time before the worker goes on, or only at the next due time.
        EXPECT_GE(taken, kFrame) << name;
        EXPECT_EQ(taken % kFrame, 0ns) << name;
        ASSERT_TRUE(worker_is_waiting()) << name;
    }
}

TEST_F(RepeaterWaitingWorkerTest, ANodeMapIsTakenAtOnce) {
    // Nobody moves time, so a call that waited for the worker would never return.
    RepeaterAccess::update_artnet_node_map(engine(), QStringLiteral("1:5:192.0.2.50:6454"));
    EXPECT_TRUE(worker_is_waiting());
}

}  // namespace
