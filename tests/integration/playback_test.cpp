// Order, looping, timing and the playlists' own settings, as they arrive at the forwarder's end.

#include <algorithm>

#include "service_test.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;

namespace {

using Clock = std::chrono::steady_clock;
using Levels = std::vector<int>;

/// Frames with 1, 2, 3 ... `frames` on channel 0 of a universe; whole blocks, so that none comes twice.
Recording counting(int universe, int frames, std::chrono::nanoseconds delay) {
    Recording recording;
    for (int frame = 1; frame <= frames; ++frame) {
        recording.dmx(universe, {static_cast<std::uint8_t>(frame)}).frame_delay(delay);
    }
    return recording.fill_to((recording.size() + 511) / 512 * 512);
}

Levels first_levels(const std::vector<Frame>& frames) {
    Levels levels;
    for (const Frame& frame : frames) {
        levels.push_back(frame.level(0));
    }
    return levels;
}

class PlaybackTest : public ServiceTest {
protected:
    /// Plays and returns how long after the call the last of `count` datagrams was read.
    Clock::duration time_of(int id, int count) {
        const Clock::time_point before = Clock::now();
        EXPECT_TRUE(controller().play(id));
        return wire_.next(count).back().arrival - before;
    }

    /// A looping playlist of one frame on a universe, `fps` times a second.
    void add_steady(int id, int universe, int fps, double speed_boost = 0) {
        const std::string file = std::to_string(id) + ".rec";
        show()
            .recording(file, Recording{}.dmx(universe, {1}).bytes())
            .playlist(ShowPlaylist(id)
                          .speed_boost(speed_boost)
                          .effect(ShowEffect(file).fps(fps).output(wire_.output("*"))));
    }
    /// Reads up to a frame of universe 1, once each universe has shown two frames: a playlist that has come
    /// round is loaded completely, and from then on nothing but due times counts.
    void skip_to_steady_pace() {
        int first = 0;
        int second = 0;
        wire_.next_where([&](const Frame& frame) {
            ++(frame.universe() == 1 ? first : second);
            return frame.universe() == 1 && first >= 2 && second >= 2;
        });
    }
    /// How many frames of universe 2 come during `count` intervals of universe 1, which begin with the frame
    /// read last. Frames go out in the order of their due times, so no stall changes that.
    int frames_of_the_second_during(int count) {
        int frames = 0;
        while (count > 0 && !HasFailure()) {
            if (wire_.next().universe() == 1) {
                --count;
            } else {
                ++frames;
            }
        }
        return frames;
    }

    ForwarderSocket wire_;
};

}  // namespace

TEST_F(PlaybackTest, PacketsLeaveInTheOrderOfTheRecording) {
    Recording recording;
    recording.dmx(3, {1}).dmx(1, {2}).dmx(2, {3}).frame_delay(2ms).dmx(1, {4}).dmx(3, {5});
    add_playlist(1, false, recording, {wire_.output("*")});
    start();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    std::vector<std::pair<int, int>> sent;
    for (const Frame& frame : wire_.arrived()) {
        sent.emplace_back(frame.universe(), frame.level(0));
    }
    using Sent = std::pair<int, int>;
    EXPECT_THAT(sent, ElementsAre(Sent{3, 1}, Sent{1, 2}, Sent{2, 3}, Sent{1, 4}, Sent{3, 5}));
}

TEST_F(PlaybackTest, EffectsFollowEachOtherAndEachUsesItsOwnOutputs) {
    ForwarderSocket second;
    show()
        .recording("a.rec", counting(1, 2, 1ms).bytes())
        .recording("b.rec", counting(1, 3, 1ms).bytes())
        .playlist(ShowPlaylist(1)
                      .loop(false)
                      .effect(ShowEffect("a.rec").output(wire_.output("1")))
                      .effect(ShowEffect("b.rec").output(second.output("1"))));
    start();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_THAT(first_levels(wire_.arrived()), ElementsAre(1, 2));
    EXPECT_THAT(first_levels(second.arrived()), ElementsAre(1, 2, 3));
}

TEST_F(PlaybackTest, ALoopRestartsAtTheFirstPacketAndNeverEnds) {
    add_playlist(1, true, counting(1, 3, 2ms), {wire_.output("1")});
    start();
    EXPECT_TRUE(controller().play(1));
    EXPECT_THAT(first_levels(wire_.next(9)), ElementsAre(1, 2, 3, 1, 2, 3, 1, 2, 3));
    EXPECT_THAT(controller().stopped(), IsEmpty());
}

TEST_F(PlaybackTest, ALongRecordingArrivesWholeAndInOrder) {
    add_playlist(1, false, counting(1, 250, 1ms), {wire_.output("1")});
    start();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    const Levels levels = first_levels(wire_.arrived());
    ASSERT_EQ(levels.size(), 250u);
    EXPECT_TRUE(std::is_sorted(levels.begin(), levels.end()));
    EXPECT_EQ(levels.front(), 1);
    EXPECT_EQ(levels.back(), 250);
}

TEST_F(PlaybackTest, PlaylistsInterleaveInTheOrderOfTheirDueTimes) {
    // Due every 40 and every 30 ms: between two of the slow one lie one or two of the fast one, whatever
    // stalls.
    show()
        .recording("slow.rec", Recording{}.dmx(1, {1}).bytes())
        .recording("fast.rec", Recording{}.dmx(2, {1}).bytes())
        .playlist(ShowPlaylist(2).effect(ShowEffect("slow.rec").fps(25).output(wire_.output("*"))))
        .playlist(ShowPlaylist(3).effect(ShowEffect("fast.rec").output(wire_.output("*"))));
    start();
    EXPECT_TRUE(controller().play(2));
    EXPECT_TRUE(controller().play(3));
    skip_to_steady_pace();
    int fast_between = 0;
    int slow = 0;
    int fast = 0;
    while (slow < 10 && !HasFailure()) {
        if (wire_.next().universe() == 2) {
            ++fast_between;
            ++fast;
            continue;
        }
        EXPECT_GE(fast_between, 1);
        EXPECT_LE(fast_between, 2);
        fast_between = 0;
        ++slow;
    }
    // 400 ms hold 13 intervals of 30 ms.
    EXPECT_GE(fast, 13);
    EXPECT_LE(fast, 14);
}

TEST_F(PlaybackTest, PausingOnePlaylistLeavesTheOthersPlaying) {
    ForwarderSocket other;
    add_playlist(1, true, counting(1, 3, 2ms), {wire_.output("1")});
    add_playlist(2, true, counting(1, 3, 2ms), {other.output("1")});
    start();
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    static_cast<void>(wire_.next());
    EXPECT_TRUE(controller().pause(1));
    wire_.arrived();
    other.arrived();
    static_cast<void>(other.next(6));
    EXPECT_THAT(wire_.arrived(), IsEmpty());
}

TEST_F(PlaybackTest, AFrameIsNeverEarly) {
    add_playlist(1, true, counting(1, 4, 20ms), {wire_.output("1")});
    start();
    // Three recorded delays and the last packet's thirty milliseconds.
    EXPECT_GE(time_of(1, 5), 90ms);
}

TEST_F(PlaybackTest, AFullSpeedBoostHalvesTheIntervals) {
    // Beside another one of the same pace, which tells the time.
    add_steady(1, 1, 25);
    add_steady(2, 2, 25);
    start();
    const Clock::time_point before = Clock::now();
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    skip_to_steady_pace();
    // As many as the other's, wherever the ten intervals begin.
    EXPECT_THAT(frames_of_the_second_during(10), AllOf(Ge(9), Le(11)));
    // Clamped to 100.
    controller().set_speed_boost(2, 250);
    wire_.arrived();
    // One interval may still be an old one.
    static_cast<void>(frames_of_the_second_during(3));
    EXPECT_THAT(frames_of_the_second_during(10), AllOf(Ge(19), Le(21)));
    // None of the other's intervals, at least 24, was shorter than its own.
    EXPECT_GE(Clock::now() - before, 24 * 40ms);
}

TEST_F(PlaybackTest, ASpeedBoostFromTheFileIsNotClamped) {
    // -100 doubles the intervals, which no call over the bus can; below that it stays there.
    show()
        .recording("1.rec", Recording{}.dmx(1, {1}).bytes())
        .playlist(ShowPlaylist(1).speed_boost(-100).effect(ShowEffect("1.rec").output(wire_.output("1"))))
        .playlist(ShowPlaylist(2).speed_boost(-500).effect(ShowEffect("1.rec").output(wire_.output("1"))));
    start();
    EXPECT_GE(time_of(1, 4), 180ms);
    controller().stop();
    wire_.arrived();
    EXPECT_GE(time_of(2, 4), 180ms);
}

TEST_F(PlaybackTest, ASpeedBoostBelowZeroOverTheBusCountsAsNone) {
    // Beside another one of the same pace, which tells the time.
    add_steady(1, 1, 25);
    add_steady(2, 2, 25, -500);
    start();
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    skip_to_steady_pace();
    // Doubled intervals.
    EXPECT_THAT(frames_of_the_second_during(10), AllOf(Ge(4), Le(6)));
    controller().set_speed_boost(2, -50);
    wire_.arrived();
    // One interval may still be an old one. Half again as long, six or seven of them would go into ten.
    static_cast<void>(frames_of_the_second_during(4));
    EXPECT_THAT(frames_of_the_second_during(10), AllOf(Ge(9), Le(11)));
}

TEST_F(PlaybackTest, BrightnessIsAPercentageRoundedDown) {
    add_playlist(1, true, Recording{}.dmx(1, {255, 1, 100, 0, 2}).frame_delay(2ms), {wire_.output("1")});
    start();
    EXPECT_TRUE(controller().play(1));
    const auto levels_at = [this](int brightness) {
        controller().set_brightness(1, brightness);
        wire_.arrived();
        return wire_.next().levels(5);
    };
    EXPECT_EQ(levels_at(50), (Levels{127, 0, 50, 0, 1}));
    EXPECT_EQ(levels_at(33), (Levels{84, 0, 33, 0, 0}));
    EXPECT_EQ(levels_at(99), (Levels{252, 0, 99, 0, 1}));
    EXPECT_EQ(levels_at(1), (Levels{2, 0, 1, 0, 0}));
    EXPECT_EQ(levels_at(100), (Levels{255, 1, 100, 0, 2}));
}

TEST_F(PlaybackTest, BrightnessOfOnePlaylistLeavesTheOthersAlone) {
    ForwarderSocket other;
    add_playlist(1, true, Recording{}.dmx(1, {200}).frame_delay(2ms), {wire_.output("1")});
    add_playlist(2, true, Recording{}.dmx(1, {100}).frame_delay(2ms), {other.output("1")});
    start();
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    controller().set_brightness(1, 50);
    wire_.arrived();
    other.arrived();
    EXPECT_EQ(wire_.next().level(0), 100);
    EXPECT_EQ(other.next().level(0), 100);
}

TEST_F(PlaybackTest, AControlCallIsAnsweredDuringALoopWithoutAnyDelay) {
    // Two frames a nanosecond: the delay of each truncates to none.
    show()
        .recording("1.rec", Recording{}.dmx(1, {1}).dmx(1, {2}).bytes())
        .playlist(ShowPlaylist(1).effect(ShowEffect("1.rec").fps(2e9).output(wire_.output("1"))));
    start();
    EXPECT_TRUE(controller().play(1));
    static_cast<void>(wire_.next(20));
    EXPECT_TRUE(controller().pause(1));
    controller().stop_playlist(1);
}

TEST_F(PlaybackTest, APlaylistsEndIsSignalledForEachThatEndsAndNotForALoop) {
    add_playlist(1, false, counting(1, 2, 1ms), {wire_.output("1")});
    add_playlist(2, true, counting(1, 2, 1ms), {wire_.output("1")});
    add_playlist(3, false, counting(1, 60, 1ms), {wire_.output("1")});
    start();
    EXPECT_TRUE(controller().play(2));
    EXPECT_TRUE(controller().play(3));
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(2));
    controller().stop();
    EXPECT_THAT(controller().stopped(), testing::UnorderedElementsAre(1, 3));
}
