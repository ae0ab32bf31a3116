// The render worker: idling, order of sending, the end of a playlist, failed sends.

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include <QThread>

#include "render_test.h"

using namespace std::chrono_literals;

namespace {

using RepeaterRenderTest = RenderTest;

TEST_F(RepeaterRenderTest, WithNothingLoadedTheWorkerSleepsTenMillisecondsAtATime) {
    const auto before = VirtualClock::now();
    const int sleeps = VirtualClock::sleeps();
    ASSERT_TRUE(eventually([=] { return VirtualClock::sleeps() >= sleeps + 5; }));
    EXPECT_EQ(VirtualClock::last_sleep(), 10ms);
    EXPECT_GE(VirtualClock::now() - before, 40ms);
}

TEST_F(RepeaterRenderTest, WithEverythingPausedItSleepsTheSame) {
    add(1, Recording{}.dmx(0, {1}));
    load_paused({1});
    const int sleeps = VirtualClock::sleeps();
    ASSERT_TRUE(eventually([=] { return VirtualClock::sleeps() >= sleeps + 5; }));
    EXPECT_EQ(VirtualClock::last_sleep(), 10ms);
    EXPECT_EQ(FakeUdpSocket::attempts(), 0U);
}

TEST_F(RepeaterRenderTest, WhileSomethingPlaysItNeverSleeps) {
    add(1, Recording{}.dmx(0, {1}));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(1));
    const int sleeps = VirtualClock::sleeps();
    ASSERT_TRUE(wait_for_sent(50));
    EXPECT_EQ(VirtualClock::sleeps(), sleeps);
}

TEST_F(RepeaterRenderTest, ANewBrightnessCountsFromTheNextPacket) {
    add(1, Recording{}.dmx(0, {200}));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(1));
    EXPECT_EQ(last_sent(0).channel(0), 200);
    engine().set_brightness(1, 50);
    const std::size_t sent = FakeUdpSocket::sent_count();
    ASSERT_TRUE(wait_for_sent(sent + 2));
    EXPECT_EQ(FakeUdpSocket::sent().at(sent + 1).channel(0), 100);
}

TEST_F(RepeaterRenderTest, PacketsOfAllPlaylistsLeaveInTheOrderOfTheirDueTimes) {
    add(1,
        Recording{}
            .dmx(0, {1})
            .frame_delay(30ms)
            .dmx(0, {2})
            .frame_delay(30ms)
            .dmx(0, {3})
            .frame_delay(30ms)
            .dmx(0, {4}),
        false);
    add(2,
        Recording{}
            .dmx(0, {11})
            .frame_delay(20ms)
            .dmx(0, {12})
            .frame_delay(20ms)
            .dmx(0, {13})
            .frame_delay(30ms)
            .dmx(0, {14}),
        false);
    load_paused({1, 2});
    RepeaterAccess::request_play(engine(), {1, 2});
    ASSERT_TRUE(wait_for_sent(8));
    EXPECT_EQ(levels(8), (std::vector<int>{1, 11, 12, 2, 13, 3, 14, 4}));
}

TEST_F(RepeaterRenderTest, OfEqualDueTimesThePlaylistLoadedFirstSendsFirst) {
    for (const int id : {7, 3, 5}) {
        Recording recording;
        for (int frame = 0; frame < 3; ++frame) {
            recording.dmx(0, {static_cast<std::uint8_t>(id)}).frame_delay(20ms);
        }
        add(id, recording, false);
    }
    load_paused({7, 3, 5});
    RepeaterAccess::request_play(engine(), {3, 5, 7});
    ASSERT_TRUE(wait_for_sent(9));
    EXPECT_EQ(levels(9), (std::vector<int>{7, 3, 5, 7, 3, 5, 7, 3, 5}));
}

TEST_F(RepeaterRenderTest, ALoopOfOnePacketRepeatsItAndNeverEnds) {
    int signals = 0;
    QObject::connect(&engine(), &Repeater::OnPlaylistStopped, [&signals](int) { ++signals; });
    add(1, Recording{}.dmx(0, {1}));
    ASSERT_NO_FATAL_FAILURE(play_loaded(1));
    ASSERT_TRUE(wait_for_sent(20));
    EXPECT_EQ(moments(3), (Moments{0ms, 30ms, 60ms}));
    EXPECT_EQ(flags(1), "1,0,0");
    EXPECT_EQ(signals, 0);
}

TEST_F(RepeaterRenderTest, ALoopWithoutAnyDelayStillLetsControlCallsIn) {
    // So many frames a second leave no whole nanosecond between them.
    show.recording("fast.rec", Recording{}.dmx(0, {1}).bytes());
    show.playlist(
        ShowPlaylist(1).effect(ShowEffect("fast.rec").fps(2000000000).ppf(1).output("*:192.0.2.1:6454")));
    // The fake socket keeps all that it takes: no more than this, however long the loop turns.
    FakeUdpSocket::set_verdict(
        [taken = 0](const SentDatagram&) mutable { return ++taken > 100 ? ENOBUFS : 0; });
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(10));
    engine().stop_playlist(1);
    EXPECT_TRUE(RepeaterAccess::playlist_ids(engine()).empty());
}

TEST_F(RepeaterRenderTest, APlaylistThatDoesNotLoopEndsOnceAfterItsLastPacket) {
    std::vector<int> stopped;
    std::size_t sent_then = 0;
    std::string flags_then;
    QObject::connect(&engine(), &Repeater::OnPlaylistStopped, [&, this](int id) {
        stopped.push_back(id);
        sent_then = FakeUdpSocket::sent_count();
        flags_then = flags(id);
        EXPECT_EQ(QThread::currentThread(), engine().thread());
    });
    add(4, Recording{}.dmx(0, {1}).frame_delay(20ms).dmx(0, {2}), false);
    ASSERT_TRUE(engine().play_playlist(4));
    ASSERT_TRUE(eventually([&stopped] { return !stopped.empty(); }));
    EXPECT_EQ(sent_then, 2U);
    EXPECT_EQ(flags_then, "1,0,1");
    const int sleeps = VirtualClock::sleeps();
    ASSERT_TRUE(eventually([=] { return VirtualClock::sleeps() > sleeps + 5; }));
    EXPECT_EQ(stopped, (std::vector<int>{4}));
    EXPECT_EQ(FakeUdpSocket::sent_count(), 2U);
    // A call made in response finds it playing.
    EXPECT_TRUE(engine().play_playlist(4));
    EXPECT_TRUE(log().has("[Repeater::play_playlist] Cuelist already playing"));
}

TEST_F(RepeaterRenderTest, TheEndDoesNotWaitForTheLastPacketsDelay) {
    add(4, Recording{}.dmx(0, {1}), false);
    load_paused({4});
    VirtualClock::set_step(0ns);
    RepeaterAccess::request_play(engine(), {4});
    // Time stands, so that nothing can wait for a delay.
    EXPECT_TRUE(eventually([this] { return flags(4) == "1,0,1"; }));
    VirtualClock::set_step(VirtualClock::kStep);
}

TEST_F(RepeaterRenderTest, OthersPlayOnWhenAPlaylistEnds) {
    add(1, Recording{}.dmx(0, {1}), false);
    add(2, Recording{}.dmx(0, {2}));
    load_paused({1, 2});
    RepeaterAccess::request_play(engine(), {1, 2});
    ASSERT_TRUE(wait_for_sent(5));
    EXPECT_EQ(levels(5), (std::vector<int>{1, 2, 2, 2, 2}));
}

TEST_F(RepeaterRenderTest, AFailedSendShowsAtTheTraceLevelAndThePlaylistGoesOn) {
    FakeUdpSocket::set_verdict(
        [](const SentDatagram& datagram) { return datagram.channel(0) == 1 ? EAGAIN : 0; });
    add(7, Recording{}.dmx(5, {1}).frame_delay(20ms).dmx(5, {2}), false);
    capture(6);
    ASSERT_TRUE(engine().play_playlist(7));
    ASSERT_TRUE(eventually([this] { return flags(7) == "1,0,1"; }));
    EXPECT_EQ(levels(2), (std::vector<int>{2}));
    EXPECT_EQ(FakeUdpSocket::attempts(), 2U);
    EXPECT_EQ(log().lines_starting("[Repeater::do_render_work] Can't send"),
              (std::vector<std::string>{
                  "[Repeater::do_render_work] Can't send packet (playlist_id:7, packet:0, "
                  "universe:5) due to '" +
                  std::string(std::strerror(EAGAIN)) + "', errno " + std::to_string(EAGAIN)}));
}

TEST_F(RepeaterRenderTest, FailedSendsKeepThePace) {
    std::vector<ondra::Clock::time_point> attempts;
    FakeUdpSocket::set_verdict([&attempts](const SentDatagram&) {
        attempts.push_back(VirtualClock::now());
        return ENOBUFS;
    });
    add(7, Recording{}.dmx(0, {1}).frame_delay(20ms).dmx(0, {2}).frame_delay(20ms).dmx(0, {3}), false);
    ASSERT_TRUE(engine().play_playlist(7));
    ASSERT_TRUE(eventually([this] { return flags(7) == "1,0,1"; }));
    ASSERT_EQ(attempts.size(), 3U);
    EXPECT_EQ(attempts[2] - attempts[0], 40ms);
    EXPECT_EQ(FakeUdpSocket::sent_count(), 0U);
}

TEST_F(RepeaterRenderTest, APacketWithoutChannelsIsAFailedSend) {
    capture(6);
    add(7, Recording{}.dmx(5, {}).dmx(5, {1}), false);
    ASSERT_TRUE(engine().play_playlist(7));
    ASSERT_TRUE(eventually([this] { return flags(7) == "1,0,1"; }));
    EXPECT_TRUE(log().has("[Repeater::send_packet] Send packet (index:0, bytes:18, universe:5)"));
    EXPECT_EQ(log()
                  .lines_starting("[Repeater::do_render_work] Can't send packet (playlist_id:7, packet:0, "
                                  "universe:5) due to '")
                  .size(),
              1U);
    EXPECT_EQ(levels(2), (std::vector<int>{1}));
}

TEST_F(RepeaterRenderTest, SendLinesHaveTheTraceLevel) {
    FakeUdpSocket::set_verdict([](const SentDatagram&) { return EPERM; });
    add(7, Recording{}.dmx(5, {1}), false);
    release_log();
    const auto play = [this] {
        engine().play_playlist(7);
        EXPECT_TRUE(eventually([this] { return flags(7) == "1,0,1"; }));
        engine().stop_playlist(7);
    };
    EXPECT_EQ(
        level_of("[Repeater::do_render_work] Can't send packet (playlist_id:7, packet:0, universe:5) due to "
                 "'Operation not permitted', errno 1",
                 play),
        6);
    EXPECT_EQ(level_of("[Repeater::send_packet] Send packet (index:0, bytes:19, universe:5)", play), 6);
    EXPECT_EQ(
        level_of("[Repeater::send_to_address] Send packet (bytes:530, address:(192.0.2.1:6454)), proxy: "
                 "127.0.0.1",
                 play),
        6);
}

TEST_F(RepeaterRenderTest, AControlCallIsAnsweredAfterThePendingPacket) {
    add(1, Recording{}.dmx(0, {1}).frame_delay(40ms).dmx(0, {2}).frame_delay(40ms).dmx(0, {3}).frame_delay(
               40ms));
    load_paused({1});
    VirtualClock::set_step(0ns);
    RepeaterAccess::request_play(engine(), {1});
    ASSERT_TRUE(wait_for_sent(1));
    // Waiting for the second packet: from here on the call below has to wait for it, too.
    ASSERT_TRUE(worker_is_waiting());
    std::thread time([this] {
        // Not before the call is there: it would come too late for the packet, and wait for one for ever.
        EXPECT_TRUE(eventually([this] { return RepeaterAccess::write_pending(engine()); }));
        EXPECT_TRUE(worker_is_waiting());
        VirtualClock::advance(40ms);
    });
    ASSERT_TRUE(engine().pause_playlist(1));
    time.join();
    EXPECT_EQ(levels(9), (std::vector<int>{1, 2}));
    VirtualClock::set_step(VirtualClock::kStep);
}

TEST_F(RepeaterRenderTest, AControlCallNeverCutsAFrame) {
    add(1, Recording{}
               .dmx(0, {200})
               .dmx(1, {200})
               .dmx(2, {200})
               .frame_delay(20ms)
               .dmx(0, {200})
               .dmx(1, {200})
               .dmx(2, {200}));
    load_paused({1});
    const auto in_frame = std::make_shared<std::atomic<bool>>(false);
    FakeUdpSocket::set_verdict([this, in_frame](const SentDatagram& /*datagram*/) {
        // Holds the worker within the frame until the call below is there.
        if (!in_frame->exchange(true)) {
            EXPECT_TRUE(eventually([this] { return RepeaterAccess::write_pending(engine()); }));
        }
        return 0;
    });
    RepeaterAccess::request_play(engine(), {1});
    ASSERT_TRUE(eventually([in_frame] { return in_frame->load(); }));
    engine().set_brightness(1, 50);
    ASSERT_TRUE(wait_for_sent(6));
    EXPECT_EQ(levels(6), (std::vector<int>{200, 200, 200, 100, 100, 100}));
}

}  // namespace
