// The render worker goes through a frame shortly before it is due; nobody may see that it does.

#include <cerrno>
#include <thread>

#include "render_test.h"
#include "support/fifo.h"

using namespace std::chrono_literals;

namespace {

class RepeaterRehearsalTest : public RenderTest {
protected:
    /// Begins the loaded playlists together, in standing time, and waits until `sent` datagrams are out and
    /// the worker waits for the next due time.
    void begin(const std::vector<int>& ids, std::size_t sent) {
        ASSERT_NO_FATAL_FAILURE(load_paused(ids));
        VirtualClock::set_step(0ns);
        RepeaterAccess::request_play(engine(), ids);
        ASSERT_TRUE(wait_for_sent(sent));
        ASSERT_TRUE(worker_is_waiting());
        ASSERT_EQ(FakeUdpSocket::sent_count(), sent);
    }
    /// Lets time pass, and the worker do what it does then.
    static void pass(std::chrono::nanoseconds time) {
        VirtualClock::advance(time);
        ASSERT_TRUE(worker_is_waiting());
    }
    [[nodiscard]] int rehearsed() { return RepeaterAccess::rehearsed_channel(engine(), 0); }
};

TEST_F(RepeaterRehearsalTest, AFrameIsRehearsedHalfAMillisecondBeforeItIsDueAndSentWhenItIs) {
    add(1, Recording{}.dmx(0, {1}).frame_delay(20ms).dmx(0, {2}).frame_delay(20ms).dmx(0, {3}));
    ASSERT_NO_FATAL_FAILURE(begin({1}, 1));
    ASSERT_NO_FATAL_FAILURE(pass(19400us));
    EXPECT_NE(rehearsed(), 2);
    ASSERT_NO_FATAL_FAILURE(pass(100us));
    EXPECT_EQ(rehearsed(), 2);
    ASSERT_NO_FATAL_FAILURE(pass(499us));
    EXPECT_EQ(FakeUdpSocket::attempts(), 1U);
    VirtualClock::advance(1us);
    ASSERT_TRUE(wait_for_sent(2));
    EXPECT_EQ(moments(2), (Moments{0ms, 20ms}));
    EXPECT_EQ(levels(2), (std::vector<int>{1, 2}));
}

TEST_F(RepeaterRehearsalTest, AtALoopsEndItsBeginningIsRehearsed) {
    add(1, Recording{}.dmx(0, {1}).frame_delay(20ms).dmx(0, {2}));
    ASSERT_NO_FATAL_FAILURE(begin({1}, 1));
    VirtualClock::advance(20ms);
    ASSERT_TRUE(wait_for_sent(2));
    ASSERT_NO_FATAL_FAILURE(pass(29600us));
    EXPECT_EQ(rehearsed(), 1);
    EXPECT_EQ(FakeUdpSocket::attempts(), 2U);
}

TEST_F(RepeaterRehearsalTest, ItLogsNothing) {
    add(1, Recording{}.dmx(0, {1}).frame_delay(20ms).dmx(0, {2}));
    capture(CapturedLog::kAllLevels);
    ASSERT_NO_FATAL_FAILURE(begin({1}, 1));
    const std::size_t lines = log().lines().size();
    ASSERT_NO_FATAL_FAILURE(pass(19700us));
    ASSERT_EQ(rehearsed(), 2);
    EXPECT_EQ(log().lines().size(), lines);
    VirtualClock::advance(300us);
    ASSERT_TRUE(wait_for_sent(2));
    EXPECT_EQ(log().lines_starting("[Repeater::send_packet] Send packet (index:1,").size(), 1U);
    EXPECT_EQ(log().lines_starting("[Repeater::send_to_address] Send packet").size(), 2U);
}

TEST_F(RepeaterRehearsalTest, APacketThatFailsFailsOnce) {
    add(1, Recording{}.dmx(0, {1}).frame_delay(20ms).dmx(0, {2}));
    FakeUdpSocket::set_verdict(
        [](const SentDatagram& datagram) { return datagram.channel(0) == 2 ? ENETUNREACH : 0; });
    capture(CapturedLog::kAllLevels);
    ASSERT_NO_FATAL_FAILURE(begin({1}, 1));
    ASSERT_NO_FATAL_FAILURE(pass(19700us));
    ASSERT_EQ(rehearsed(), 2);
    VirtualClock::advance(300us);
    ASSERT_TRUE(eventually([] { return FakeUdpSocket::attempts() == 2; }));
    ASSERT_TRUE(worker_is_waiting());
    EXPECT_EQ(log().lines_starting("[Repeater::do_render_work] Can't send packet").size(), 1U);
}

TEST_F(RepeaterRehearsalTest, ItLeavesTheMergedFrameAsItIs) {
    // Two playlists share a universe, a channel each; the second is due 0.2 ms after the first and is
    // rehearsed with it.
    const auto play_into = [this](int id, const Recording& recording) {
        const std::string path = std::to_string(id) + ".rec";
        show.recording(path, recording.bytes());
        show.playlist(ShowPlaylist(id).effect(ShowEffect(path).output("0:192.0.2.1:6454").zone(0, id)));
    };
    play_into(1, Recording{}.dmx(0, {11, 0}).frame_delay(20ms).dmx(0, {12, 0}));
    play_into(2, Recording{}.dmx(0, {0, 21}).frame_delay(20200us).dmx(0, {0, 22}));
    ASSERT_TRUE(engine().init_zones({Zone{1, 5, {0}}, Zone{2, 5, {1}}}));
    // In this way, unlike load_paused(), the zones are taken.
    hold_idle_worker();
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(engine().play_playlist(2));
    ASSERT_TRUE(wait_until_loaded(1));
    ASSERT_TRUE(wait_until_loaded(2));
    VirtualClock::set_step(0ns);
    VirtualClock::hold_sleeps(false);
    ASSERT_TRUE(wait_for_sent(2));
    ASSERT_NO_FATAL_FAILURE(pass(19800us));
    EXPECT_EQ(RepeaterAccess::rehearsed_channel(engine(), 1), 22);
    VirtualClock::advance(200us);
    ASSERT_TRUE(wait_for_sent(3));
    EXPECT_EQ(FakeUdpSocket::sent()[2].channel(0), 12);
    EXPECT_EQ(FakeUdpSocket::sent()[2].channel(1), 21);
    VirtualClock::advance(200us);
    ASSERT_TRUE(wait_for_sent(4));
    EXPECT_EQ(FakeUdpSocket::sent()[3].channel(0), 12);
    EXPECT_EQ(FakeUdpSocket::sent()[3].channel(1), 22);
}

TEST_F(RepeaterRehearsalTest, ANodeThatComesBetweenRehearsalAndDueTimeGetsTheFrame) {
    show.recording("a.rec", Recording{}.dmx(5, {1}).frame_delay(20ms).dmx(5, {2}).bytes());
    show.playlist(ShowPlaylist(1).effect(ShowEffect("a.rec")));
    RepeaterAccess::update_artnet_node_map(engine(), QStringLiteral("1:5:192.0.2.10:6454"));
    ASSERT_NO_FATAL_FAILURE(begin({1}, 1));
    ASSERT_NO_FATAL_FAILURE(pass(19800us));
    ASSERT_EQ(rehearsed(), 2);
    RepeaterAccess::update_artnet_node_map(engine(), QStringLiteral("1:5:192.0.2.11:6454"));
    VirtualClock::advance(200us);
    ASSERT_TRUE(wait_for_sent(3));
    EXPECT_EQ(FakeUdpSocket::sent()[1].destination(), "192.0.2.10:6454");
    EXPECT_EQ(FakeUdpSocket::sent()[2].destination(), "192.0.2.11:6454");
}

TEST_F(RepeaterRehearsalTest, APlaylistThatIsStillLoadingIsNotRehearsedForAnother) {
    Fifo fifo(show.path("live.rec"));
    show.playlist(ShowPlaylist(1).effect(ShowEffect("live.rec").output("0:192.0.2.1:6454")));
    add(2, Recording{}.dmx(9, {11}).frame_delay(59900us).dmx(9, {12}));
    ASSERT_NO_FATAL_FAILURE(load_paused({2}));
    ASSERT_NO_FATAL_FAILURE(hold_idle_worker());
    std::thread feeder([&fifo] {
        fifo.open();
        fifo.write(Recording{}.dmx(0, {1}).frame_delay_ms(60).dmx(0, {2}).dmx(0, {3}).fill_to(512).bytes());
    });
    EXPECT_TRUE(engine().play_playlist(1));
    feeder.join();
    ASSERT_TRUE(eventually([this] { return RepeaterAccess::packets_loaded(engine(), 1) == 2; }));
    RepeaterAccess::request_play(engine(), {2});
    VirtualClock::set_step(0ns);
    VirtualClock::hold_sleeps(false);
    ASSERT_TRUE(wait_for_sent(2));
    // The second playlist's next frame is due, 0.1 ms later that of the first.
    ASSERT_NO_FATAL_FAILURE(pass(59700us));
    EXPECT_EQ(rehearsed(), 12);
    VirtualClock::advance(300us);
    EXPECT_TRUE(wait_for_sent(4));
    EXPECT_EQ(levels(4), (std::vector<int>{11, 1, 12, 2}));
    fifo.close();
}

/// Each datagram takes a microsecond to build: what is tested here cannot be rehearsed whole.
class RepeaterLongRehearsalTest : public RepeaterRehearsalTest {
protected:
    /// A frame of level 1 and 20 ms later one of `packets` packets of level 2, each sent to `outputs` ports.
    void play(int packets, int outputs) {
        Recording recording;
        recording.dmx(0, {1}).frame_delay(20ms);
        for (int packet = 0; packet < packets; ++packet) {
            recording.dmx(packet, {2});
        }
        recording.frame_delay(20ms);
        show.recording("long.rec", recording.bytes());
        ShowEffect effect("long.rec");
        for (int output = 0; output < outputs; ++output) {
            effect.output("*:192.0.2.1:" + std::to_string(6454 + output));
        }
        show.playlist(ShowPlaylist(1).effect(effect));
        // Building a datagram asks for the manufacturer's code.
        FakeDevice::set_asked([] { VirtualClock::advance(1us); });
        ASSERT_NO_FATAL_FAILURE(load_paused({1}));
        VirtualClock::set_exact(true);
        RepeaterAccess::request_play(engine(), {1});
    }
    /// Looks that the second frame began on its due time, which counts from just before the first datagram,
    /// and went out whole and in order.
    static void expect_in_time(std::size_t first, int count) {
        const std::vector<SentDatagram> all = FakeUdpSocket::sent();
        EXPECT_GE(all.at(first).time - all.front().time, 19990us);
        EXPECT_LE(all.at(first).time - all.front().time, 20010us);
        for (int number = 0; number < count; ++number) {
            const SentDatagram& sent = all.at(first + static_cast<std::size_t>(number));
            ASSERT_EQ(sent.channel(0), 2);
            ASSERT_EQ(sent.universe() + sent.port, 6454 + number);
        }
    }
};

TEST_F(RepeaterLongRehearsalTest, AFrameOfManyPacketsIsNotLateForIt) {
    ASSERT_NO_FATAL_FAILURE(play(2000, 1));
    ASSERT_TRUE(wait_for_sent(2001));
    expect_in_time(1, 2000);
}

TEST_F(RepeaterLongRehearsalTest, APacketForManyDestinationsIsNotLateForIt) {
    ASSERT_NO_FATAL_FAILURE(play(1, 2000));
    ASSERT_TRUE(wait_for_sent(4000));
    expect_in_time(2000, 2000);
}

}  // namespace
