// The render worker while a recording still arrives.

#include <thread>

#include "render_test.h"
#include "support/fifo.h"

using namespace std::chrono_literals;

namespace {

/// A playlist whose recording arrives through a FIFO.
class RepeaterSlowLoaderTest : public RenderTest {
protected:
    RepeaterSlowLoaderTest() : fifo_(show.path("live.rec")) {
        show.playlist(ShowPlaylist(1).loop(false).effect(ShowEffect("live.rec").output("0:192.0.2.1:6454")));
    }
    /// Ends the loader's wait for more before the engine goes.
    ~RepeaterSlowLoaderTest() override { fifo_.close(); }
    void play() {
        std::thread feeder([this] {
            fifo_.open();
            fifo_.write(Recording{}.dmx(0, {1}).frame_delay_ms(60).dmx(0, {2}).fill_to(512).bytes());
        });
        EXPECT_TRUE(engine().play_playlist(1));
        feeder.join();
    }
    Fifo fifo_;
};

TEST_F(RepeaterSlowLoaderTest, ThePlaylistTriesAgainEveryTenMillisecondsAndSendsNothingMeanwhile) {
    int signals = 0;
    QObject::connect(&engine(), &Repeater::OnPlaylistStopped, [&signals](int) { ++signals; });
    play();
    ASSERT_TRUE(wait_for_sent(1));
    const auto first = FakeUdpSocket::sent().front().time;
    ASSERT_TRUE(eventually([=] { return VirtualClock::now() - first > 200ms; }));
    EXPECT_EQ(FakeUdpSocket::sent_count(), 1U);
    EXPECT_EQ(RepeaterAccess::position(engine(), 1), 1);
    const auto due = RepeaterAccess::due_time(engine(), 1) - first;
    EXPECT_EQ(due % 10ms, 0ns);
    EXPECT_GT(due, 200ms);
    // Not loaded completely, it has not ended either.
    EXPECT_EQ(flags(1), "1,0,0");
    EXPECT_EQ(signals, 0);
    fifo_.write(Recording{}.dmx(0, {3}).fill_to(512).bytes());
    ASSERT_TRUE(wait_for_sent(2));
    const SentDatagram second = FakeUdpSocket::sent().at(1);
    EXPECT_EQ(second.channel(0), 2);
    EXPECT_EQ((second.time - first) % 10ms, 0ns);
    fifo_.close();
    ASSERT_TRUE(eventually([&signals] { return signals == 1; }));
    EXPECT_EQ(levels(9), (std::vector<int>{1, 2, 3}));
}

TEST_F(RepeaterSlowLoaderTest, ALoadThatEndsDuringTheWaitForTheLastPacketEndsThePlaylistWithThatPacket) {
    std::vector<int> stopped;
    QObject::connect(&engine(), &Repeater::OnPlaylistStopped, [&stopped](int id) { stopped.push_back(id); });
    VirtualClock::set_step(0ns);
    play();
    ASSERT_TRUE(wait_for_sent(1));
    // The worker waits for the second packet, which the loader stores when its input ends.
    ASSERT_TRUE(worker_is_waiting());
    fifo_.close();
    ASSERT_TRUE(eventually([this] { return RepeaterAccess::loader_done_now(engine(), 1); }));
    VirtualClock::advance(60ms);
    // Time stands again: an end that came only after the last packet's own delay would not come.
    EXPECT_TRUE(eventually([&stopped] { return !stopped.empty(); }));
    EXPECT_EQ(levels(9), (std::vector<int>{1, 2}));
    EXPECT_EQ(moments(2), (Moments{0ms, 60ms}));
    VirtualClock::set_step(VirtualClock::kStep);
    EXPECT_EQ(flags(1), "1,0,1");
    EXPECT_EQ(stopped, (std::vector<int>{1}));
}

TEST_F(RepeaterSlowLoaderTest, OtherPlaylistsKeepTheirTiming) {
    add(2,
        Recording{}
            .dmx(9, {1})
            .frame_delay(40ms)
            .dmx(9, {2})
            .frame_delay(40ms)
            .dmx(9, {3})
            .frame_delay(40ms)
            .dmx(9, {4}),
        false);
    load_paused({2});
    play();
    ASSERT_TRUE(wait_for_sent(1));
    RepeaterAccess::request_play(engine(), {2});
    ASSERT_TRUE(eventually([] { return sent_to(9).size() == 4; }));
    const std::vector<SentDatagram> sent = sent_to(9);
    for (std::size_t index = 1; index < sent.size(); ++index) {
        EXPECT_EQ(sent[index].time - sent[0].time, index * 40ms);
    }
}

TEST_F(RepeaterSlowLoaderTest, ALoopDoesNotTurnBeforeItsLoadIsComplete) {
    show.playlist(ShowPlaylist(3).effect(ShowEffect("live.rec").output("0:192.0.2.1:6454")));
    std::thread feeder([this] {
        fifo_.open();
        fifo_.write(Recording{}.dmx(0, {1}).frame_delay_ms(60).dmx(0, {2}).fill_to(512).bytes());
    });
    ASSERT_TRUE(engine().play_playlist(3));
    feeder.join();
    ASSERT_TRUE(wait_for_sent(1));
    const auto first = FakeUdpSocket::sent().front().time;
    ASSERT_TRUE(eventually([=] { return VirtualClock::now() - first > 300ms; }));
    EXPECT_EQ(levels(9), (std::vector<int>{1}));
    fifo_.close();
    ASSERT_TRUE(wait_for_sent(4));
    EXPECT_EQ(levels(4), (std::vector<int>{1, 2, 1, 2}));
}

}  // namespace
