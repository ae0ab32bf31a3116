// The engine's life, its setters and stop().

#include <chrono>
#include <thread>

#include "support/engine_test.h"
#include "support/fifo.h"

using namespace std::chrono_literals;

namespace {

using RepeaterLifecycleTest = EngineTest;

TEST_F(RepeaterLifecycleTest, ANewEngineIsEmptyAndHasUnicastOn) {
    start();
    EXPECT_TRUE(RepeaterAccess::playlist_ids(engine()).empty());
    EXPECT_TRUE(RepeaterAccess::zones(engine()).empty());
    EXPECT_EQ(RepeaterAccess::merge_packet_count(engine()), 0U);
    EXPECT_TRUE(RepeaterAccess::node_map(engine()).empty());
    // Without outputs and known nodes, unicast sends nothing.
    show.recording("a.rec", Recording{}.dmx(0, {1}).bytes());
    show.playlist(ShowPlaylist(1).effect(ShowEffect("a.rec").fps(25)));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(eventually([this] { return RepeaterAccess::node_map(engine()).count(0) == 1; }));
    EXPECT_EQ(FakeUdpSocket::attempts(), 0U);
}

TEST_F(RepeaterLifecycleTest, TheConstructorGathersTheDeviceFactsAndRegistersTheZoneTypes) {
    start();
    EXPECT_EQ(FakeDevice::initialized(), 1);
    EXPECT_NE(QMetaType::type("Zone"), int{QMetaType::UnknownType});
    EXPECT_NE(QMetaType::type("std::vector<Zone>"), int{QMetaType::UnknownType});
}

TEST_F(RepeaterLifecycleTest, ASecondEngineInTheSameProcessWorksToo) {
    start();
    destroy_engine();
    VirtualClock::reset();
    start();
    show.playlist(steady(1, 0, {5}));
    EXPECT_TRUE(engine().play_playlist(1));
    EXPECT_TRUE(wait_for_sent(1));
}

TEST_F(RepeaterLifecycleTest, TheSettersAndTheWorkerSayWhatTheyDo) {
    start();
    EXPECT_TRUE(log().has("[Repeater::do_render_work] Start render worker"));
    engine().set_root_dir(QStringLiteral("/a/../data"));
    engine().set_playlist_desc_path(QString::fromUtf8("p\xC3\xA9.json"));
    EXPECT_TRUE(log().has("[Repeater::set_root_dir] Set root directory (path:/a/../data)"));
    EXPECT_TRUE(log().has("[Repeater::set_playlist_desc_path] Set playlist desc path (path:p\xC3\xA9.json)"));
}

TEST_F(RepeaterLifecycleTest, LinesHaveTheirLevels) {
    start();
    release_log();
    EXPECT_EQ(level_of("[Repeater::set_root_dir] Set root directory (path:x)",
                       [this] { engine().set_root_dir(QStringLiteral("x")); }),
              3);
    EXPECT_EQ(level_of("[Repeater::set_playlist_desc_path] Set playlist desc path (path:x)",
                       [this] { engine().set_playlist_desc_path(QStringLiteral("x")); }),
              3);
    EXPECT_EQ(level_of("[Repeater::stop] Stop all playlists", [this] { engine().stop(); }), 3);
    EXPECT_EQ(level_of("[Repeater::do_render_work] Start render worker",
                       [] {
                           VirtualClock::reset();
                           const Repeater second;
                           EXPECT_TRUE(eventually([] { return VirtualClock::sleeps() > 2; }));
                       }),
              3);
}

TEST_F(RepeaterLifecycleTest, TheWorkerMakesTheSocketAndDestroysItAtItsEnd) {
    start();
    EXPECT_TRUE(RepeaterAccess::has_socket(engine()));
    EXPECT_EQ(FakeUdpSocket::destroyed(), 0);
    destroy_engine();
    EXPECT_EQ(FakeUdpSocket::destroyed(), 1);
}

TEST_F(RepeaterLifecycleTest, SetUnicastEnabledSaysNothing) {
    start();
    capture(6);
    engine().set_unicast_enabled(false);
    EXPECT_TRUE(log().lines().empty());
}

TEST_F(RepeaterLifecycleTest, StopWithoutPlaylistsLogsAndClearsTheMergePackets) {
    start();
    RepeaterAccess::init_merge_packet(engine(), 3, nullptr);
    ASSERT_EQ(RepeaterAccess::merge_packet_count(engine()), 1U);
    engine().stop();
    EXPECT_EQ(RepeaterAccess::merge_packet_count(engine()), 0U);
    EXPECT_TRUE(log().has("[Repeater::stop] Stop all playlists"));
}

TEST_F(RepeaterLifecycleTest, StopUnloadsEverythingAtOnceButKeepsTheZones) {
    start();
    ASSERT_TRUE(engine().add_zone({1, 5, {0}}));
    for (const int id : {1, 2}) {
        const std::string path = std::to_string(id) + ".rec";
        show.recording(path, Recording{}.dmx(id, {9}).bytes());
        show.playlist(
            ShowPlaylist(id).effect(ShowEffect(path).fps(25).output("*:192.0.2.1:6454").zone(id, 1)));
        ASSERT_TRUE(engine().play_playlist(id));
    }
    ASSERT_EQ(RepeaterAccess::merge_packet_count(engine()), 2U);
    engine().stop();
    EXPECT_TRUE(RepeaterAccess::playlist_ids(engine()).empty());
    EXPECT_EQ(RepeaterAccess::merge_packet_count(engine()), 0U);
    EXPECT_EQ(RepeaterAccess::zones(engine()).size(), 1U);
    // No ownership is removed one by one, so nothing is missed either.
    EXPECT_TRUE(log().lines_starting("[Repeater::remove_merge_packet_owner]").empty());
}

TEST_F(RepeaterLifecycleTest, StopSendsNoBlackoutAndNoSignal) {
    start();
    show.playlist(steady(1, 0, {200}));
    int signals = 0;
    QObject::connect(&engine(), &Repeater::OnPlaylistStopped, [&signals](int) { ++signals; });
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(1));
    engine().stop();
    const std::size_t sent = FakeUdpSocket::sent_count();
    const int sleeps = VirtualClock::sleeps();
    ASSERT_TRUE(eventually([=] { return VirtualClock::sleeps() > sleeps + 5; }));
    EXPECT_EQ(FakeUdpSocket::sent_count(), sent);
    EXPECT_EQ(last_sent(0).channel(0), 200);
    EXPECT_EQ(signals, 0);
}

TEST_F(RepeaterLifecycleTest, AfterStopPlaylistsCanBeLoadedAgainAtOnce) {
    start();
    show.playlist(steady(1, 0, {200}));
    ASSERT_TRUE(engine().play_playlist(1));
    engine().stop();
    const std::size_t sent = FakeUdpSocket::sent_count();
    ASSERT_TRUE(engine().play_playlist(1));
    EXPECT_TRUE(wait_for_sent(sent + 1));
}

/// A playlist whose recording arrives through a FIFO, with enough of it there to play.
class RepeaterWhileLoadingTest : public EngineTest {
protected:
    RepeaterWhileLoadingTest() {
        // Before the engine's first line, so that the directory for the FIFO is there.
        show.playlist(ShowPlaylist(1).effect(ShowEffect("live.rec").output("*:192.0.2.1:6454")));
        fifo_ = std::make_unique<Fifo>(show.path("live.rec"));
    }
    ~RepeaterWhileLoadingTest() override { fifo_->close(); }

    void play() {
        start();
        std::thread feeder([this] {
            fifo_->open();
            fifo_->write(block());
        });
        EXPECT_TRUE(engine().play_playlist(1));
        feeder.join();
        EXPECT_FALSE(RepeaterAccess::loader_done(engine(), 1));
    }
    static std::vector<std::uint8_t> block() {
        return Recording{}.dmx(0, {1}).frame_delay_ms(60).dmx(0, {2}).fill_to(512).bytes();
    }

    std::unique_ptr<Fifo> fifo_;
};

TEST_F(RepeaterWhileLoadingTest, StopWaitsUntilTheLoaderHasStoppedThenRemovesThePlaylist) {
    play();
    std::atomic<bool> fed{false};
    std::thread feeder([this, &fed] {
        // Only once the stop is under way.
        EXPECT_TRUE(eventually([this] { return flags(1) == "1,0,1"; }));
        fed.store(true);
        while (fifo_->write(block())) {
        }
    });
    engine().stop();
    EXPECT_TRUE(fed.load());
    feeder.join();
    EXPECT_TRUE(RepeaterAccess::playlist_ids(engine()).empty());
}

TEST_F(RepeaterWhileLoadingTest, StopPlaylistWaitsUntilTheLoaderHasStoppedToo) {
    play();
    std::atomic<bool> fed{false};
    std::thread feeder([this, &fed] {
        // Stopping: still in the list, and not to be played any more.
        EXPECT_TRUE(eventually([this] { return flags(1) == "1,0,1"; }));
        fed.store(true);
        while (fifo_->write(block())) {
        }
    });
    engine().stop_playlist(1);
    EXPECT_TRUE(fed.load());
    feeder.join();
    EXPECT_TRUE(RepeaterAccess::playlist_ids(engine()).empty());
}

TEST_F(RepeaterWhileLoadingTest, StopAsksAllLoadersBeforeItWaitsForTheFirst) {
    show.playlist(ShowPlaylist(2).effect(ShowEffect("second.rec").output("*:192.0.2.1:6454")));
    Fifo second(show.path("second.rec"));
    play();
    std::thread opener([&second] {
        second.open();
        second.write(block());
    });
    EXPECT_TRUE(engine().play_playlist(2));
    opener.join();
    std::thread feeder([this, &second] {
        // The first loader gets nothing and so cannot end. The second has been asked all the same: it ends
        // with what it gets, and nobody reads its pipe any more.
        EXPECT_TRUE(eventually([&second] { return !second.write(block()); }));
        EXPECT_TRUE(eventually([this] { return !fifo_->write(block()); }));
        second.close();
    });
    engine().stop();
    feeder.join();
    EXPECT_TRUE(RepeaterAccess::playlist_ids(engine()).empty());
}

TEST_F(RepeaterWhileLoadingTest, TheDestructorEndsTheLoaders) {
    play();
    std::thread feeder([this] {
        while (fifo_->write(block())) {
        }
    });
    destroy_engine();
    feeder.join();
    EXPECT_EQ(FakeUdpSocket::destroyed(), 1);
}

TEST_F(RepeaterLifecycleTest, DestroyingWhileAPlaylistPlaysReturnsAfterItsPendingPacket) {
    start();
    show.playlist(steady(1, 0, {200}));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(3));
    VirtualClock::set_step(0ms);
    // Time stands; once the worker waits for a packet it can be woken by nothing but time, also not by its
    // end, so it is seen waiting before the engine goes and still waiting while it goes. Time that came
    // before the end was asked for would let the worker on to another packet, to wait for that for ever.
    ASSERT_TRUE(worker_is_waiting());
    std::thread time([&going = engine()] {
        EXPECT_TRUE(eventually([&going] { return RepeaterAccess::ending(going); }));
        EXPECT_TRUE(worker_is_waiting());
        VirtualClock::advance(40ms);  // One packet interval.
    });
    destroy_engine();
    time.join();
    EXPECT_EQ(FakeUdpSocket::destroyed(), 1);
}

TEST_F(RepeaterLifecycleTest, DestroyingAnIdleEngineReturnsAlthoughTimeStands) {
    start();
    VirtualClock::set_step(0ms);
    destroy_engine();
    EXPECT_EQ(FakeUdpSocket::destroyed(), 1);
}

}  // namespace
