// The render worker: the moments at which packets go out.

#include "render_test.h"

using namespace std::chrono_literals;

namespace {

using RepeaterTimingTest = RenderTest;

TEST_F(RepeaterTimingTest, FramesGoOutExactlyTheirDelaysApartWithoutDrift) {
    Recording recording;
    for (std::uint8_t frame = 0; frame < 10; ++frame) {
        recording.dmx(0, {frame}).frame_delay(33300us);
    }
    recording.dmx(0, {10});
    add(1, recording);
    ASSERT_NO_FATAL_FAILURE(play_loaded(1));
    ASSERT_TRUE(wait_for_sent(11));
    Moments expected;
    for (int frame = 0; frame <= 10; ++frame) {
        expected.push_back(frame * 33300us);
    }
    EXPECT_EQ(moments(11), expected);
}

TEST_F(RepeaterTimingTest, APacketIsNeverSentBeforeItIsDue) {
    // A step that does not divide the delay: late by less than a step, never early, and no sum of it.
    VirtualClock::set_step(7ms);
    add(1, Recording{}
               .dmx(0, {1})
               .frame_delay(10ms)
               .dmx(0, {2})
               .frame_delay(10ms)
               .dmx(0, {3})
               .frame_delay(10ms)
               .dmx(0, {4}));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(4));
    EXPECT_EQ(moments(4), (Moments{0ms, 14ms, 21ms, 35ms}));
}

TEST_F(RepeaterTimingTest, ThePacketsOfOneFrameGoOutBackToBack) {
    add(1, Recording{}.dmx(0, {1}).dmx(1, {2}).dmx(2, {3}).frame_delay(20ms).dmx(0, {4}).dmx(1, {5}).dmx(
               2, {6}));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(6));
    EXPECT_EQ(levels(6), (std::vector<int>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(moments(6), (Moments{0ms, 0ms, 0ms, 20ms, 20ms, 20ms}));
}

TEST_F(RepeaterTimingTest, ANegativeDelayIsNone) {
    add(1, Recording{}.dmx(0, {1}).frame_delay(-5ms).dmx(0, {2}).frame_delay(20ms).dmx(0, {3}));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(3));
    EXPECT_EQ(moments(3), (Moments{0ms, 0ms, 20ms}));
}

TEST_F(RepeaterTimingTest, TheLongestDelayHoldsAtTheEndOfTimeInsteadOfOverflowing) {
    add(1, Recording{}.dmx(0, {1}).frame_delay(std::chrono::nanoseconds::max()).dmx(0, {2}), false);
    load_paused({1});
    VirtualClock::set_step(0ns);
    RepeaterAccess::request_play(engine(), {1});
    ASSERT_TRUE(wait_for_sent(1));
    ASSERT_TRUE(worker_is_waiting());
    EXPECT_EQ(FakeUdpSocket::sent_count(), 1U);
    VirtualClock::advance(ondra::Clock::time_point::max() - VirtualClock::now());
    EXPECT_TRUE(wait_for_sent(2));
    ASSERT_TRUE(eventually([this] { return flags(1) == "1,0,1"; }));
    destroy_engine();
}

TEST_F(RepeaterTimingTest, ADelayOfOneNanosecondEndsTheFrame) {
    add(1, Recording{}.dmx(0, {1}).frame_delay(1ns).dmx(0, {2}), false);
    load_paused({1});
    VirtualClock::set_step(0ns);
    RepeaterAccess::request_play(engine(), {1});
    ASSERT_TRUE(wait_for_sent(1));
    // Time stands: the second packet is due a nanosecond later.
    ASSERT_TRUE(worker_is_waiting());
    EXPECT_EQ(FakeUdpSocket::sent_count(), 1U);
    VirtualClock::advance(1ns);
    EXPECT_TRUE(wait_for_sent(2));
    VirtualClock::set_step(VirtualClock::kStep);
}

TEST_F(RepeaterTimingTest, AfterAStallTheMissedFramesGoOutBackToBackAndNoneIsDropped) {
    Recording recording;
    for (std::uint8_t frame = 0; frame < 6; ++frame) {
        recording.dmx(0, {frame}).frame_delay(10ms);
    }
    add(1, recording, false);
    FakeUdpSocket::set_verdict([](const SentDatagram& datagram) {
        if (datagram.channel(0) == 1) {
            VirtualClock::advance(25ms);
        }
        return 0;
    });
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(6));
    EXPECT_EQ(levels(6), (std::vector<int>{0, 1, 2, 3, 4, 5}));
    // The second is seen 25 ms late; the next two were due meanwhile, then the old pace holds.
    EXPECT_EQ(moments(6), (Moments{0ms, 35ms, 35ms, 35ms, 40ms, 50ms}));
}

TEST_F(RepeaterTimingTest, TheSpeedBoostScalesTheDelays) {
    Recording recording;
    for (std::uint8_t frame = 0; frame < 4; ++frame) {
        recording.dmx(0, {frame}).frame_delay(40ms);
    }
    show.recording("fast.rec", recording.bytes());
    show.playlist(ShowPlaylist(1).speed_boost(50).effect(ShowEffect("fast.rec").output("*:192.0.2.1:6454")));
    ASSERT_NO_FATAL_FAILURE(play_loaded(1));
    ASSERT_TRUE(wait_for_sent(4));
    EXPECT_EQ(moments(4), (Moments{0ms, 30ms, 60ms, 90ms}));
}

TEST_F(RepeaterTimingTest, ANewSpeedBoostCountsFromTheNextInterval) {
    add(1, Recording{}.dmx(0, {1}).frame_delay(40ms).dmx(0, {2}).frame_delay(40ms));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(2));
    engine().set_speed_boost(1, 100);
    const std::size_t sent = FakeUdpSocket::sent_count();
    ASSERT_TRUE(wait_for_sent(sent + 8));
    const std::vector<SentDatagram> all = FakeUdpSocket::sent();
    // 40 and 30 ms halved.
    EXPECT_EQ(all[sent + 7].time - all[sent + 5].time, 35ms);
}

TEST_F(RepeaterTimingTest, ALoopStartsAgainAfterTheLastPacketsDelayWithoutAGap) {
    add(1, Recording{}.dmx(0, {1}).frame_delay(20ms).dmx(0, {2}));
    load_paused({1});
    RepeaterAccess::request_play(engine(), {1});
    ASSERT_TRUE(wait_for_sent(5));
    EXPECT_EQ(levels(5), (std::vector<int>{1, 2, 1, 2, 1}));
    EXPECT_EQ(moments(5), (Moments{0ms, 20ms, 50ms, 70ms, 100ms}));
}

}  // namespace
