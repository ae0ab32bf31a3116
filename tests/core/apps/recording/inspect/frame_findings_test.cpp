// What the timing of a recording is reported for: each fault, and its neighbour that is none.

#include <utility>

#include "inspect_test.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

using FrameFindingsTest = InspectTest;

/// Frames of universe 0 with one interval, ended by one of 30 ms.
Recording at_interval(int frames, std::chrono::nanoseconds interval) {
    Recording recording;
    for (int frame = 0; frame < frames; ++frame) {
        recording.dmx(0, {1, 2}).frame_delay(interval);
    }
    return recording.dmx(0, {1, 2}).frame_delay(30ms);
}

/// A fade of one universe: a level for each frame.
Recording levels(const std::vector<int>& values) {
    Recording recording;
    for (const int value : values) {
        recording.dmx(2, {static_cast<std::uint8_t>(value), 0}).frame_delay(30ms);
    }
    return recording;
}

}  // namespace

TEST_F(FrameFindingsTest, WithoutTimingEverythingIsSentAtOnce) {
    Recording recording;
    recording.dmx(0, {1, 2}).dmx(1, {1, 2}).dmx(0, {3, 4});
    EXPECT_THAT(findings(recording), ElementsAre("error no-timing @0 frame 0 x3"));
    // A fixed rate needs none, and a single look has no time between its packets.
    EXPECT_THAT(findings(recording, {.fps = 25}), IsEmpty());
    EXPECT_THAT(findings(Recording{}.dmx(0, {1, 2}).dmx(1, {1, 2})), IsEmpty());
}

TEST_F(FrameFindingsTest, FramesWithoutATimeAreJoinedIntoOneFinding) {
    Recording recording = steady(1);
    recording.dmx(0, {1, 2}).frame_delay(0ns);
    recording.dmx(0, {1, 2}).frame_delay_ms(0);
    // Beyond what 63 bits hold.
    recording.dmx(0, {1, 2}).header(0x00FE).raw({0, 0, 0, 0, 0, 0, 0, 0x80});
    recording.dmx(0, {1, 2}).frame_delay(30ms);
    EXPECT_THAT(findings(recording), ElementsAre("warning zero-frame @58 frame 1 x3"));
    EXPECT_THAT(findings(steady(1).dmx(0, {1, 2}).frame_delay(1ns).dmx(0, {1, 2}).frame_delay(30ms)),
                Not(Contains(HasSubstr("zero-frame"))));
}

TEST_F(FrameFindingsTest, FramesOfMoreThanTenSecondsHoldUpTheBus) {
    EXPECT_THAT(findings(at_interval(1, 10s + 1ns)), ElementsAre("warning huge-frame @0 frame 0"));
    EXPECT_THAT(findings(at_interval(1, 10s)), IsEmpty());
}

TEST_F(FrameFindingsTest, MoreThanFortyFourFramesASecondAreTooMany) {
    const auto result = report(padded(at_interval(100, 20ms).dmx(0, {1, 2}).frame_delay(30ms)));
    EXPECT_THAT(lines(result), ElementsAre("warning fast-frames @0 frame 0 x100"));
    EXPECT_THAT(text(result, "fast-frames"), HasSubstr("stand 20 ms in the mean"));
    EXPECT_THAT(findings(at_interval(100, std::chrono::nanoseconds(1'000'000'000 / 44))), IsEmpty());
    EXPECT_THAT(findings(at_interval(100, std::chrono::nanoseconds(1'000'000'000 / 45))),
                ElementsAre("warning fast-frames @0 frame 0 x100"));
}

TEST_F(FrameFindingsTest, ShortFramesAmongLongOnesAreJitter) {
    Recording recording;
    for (int pair = 0; pair < 60; ++pair) {
        recording.dmx(0, {1, 2}).frame_delay(pair == 7 ? 19ms : 20ms).dmx(0, {1, 2}).frame_delay(30ms);
    }
    EXPECT_THAT(findings(recording), ElementsAre("note frame-jitter @532 frame 14 x60"));
}

TEST_F(FrameFindingsTest, FastFramesBetweenSlowOnesAreFound) {
    Recording recording = at_interval(50, 25ms);
    for (int frame = 0; frame < 60; ++frame) {
        recording.dmx(0, {1, 2}).frame_delay(10ms);
    }
    for (int frame = 0; frame < 50; ++frame) {
        recording.dmx(0, {1, 2}).frame_delay(30ms);
    }
    EXPECT_THAT(lines(report(padded(recording))), ElementsAre("warning fast-frames @1938 frame 51 x60"));
}

TEST_F(FrameFindingsTest, TheLastFramesTimeIsTheLoaders) {
    const auto note = report(padded(steady(1).dmx(0, {1, 2}).frame_delay(25ms)));
    EXPECT_THAT(lines(note), ElementsAre("note last-frame @38 frame 1"));
    EXPECT_EQ(note.last_recorded, 25ms);
    EXPECT_EQ(note.last_played, 30ms);
    EXPECT_EQ(note.duration, 60ms);
    // Somebody wanted it to stand.
    EXPECT_THAT(findings(steady(1).dmx(0, {1, 2}).frame_delay(5s)),
                ElementsAre("warning last-frame @38 frame 1"));
    EXPECT_THAT(findings(steady(2)), IsEmpty());
}

TEST_F(FrameFindingsTest, TimingPacketsWithoutAnArtDmxOfTheirOwnHaveNoEffect) {
    EXPECT_THAT(findings(Recording{}.frame_delay(30ms).dmx(0, {1, 2}).frame_delay(30ms)),
                ElementsAre("warning timing-ignored @0 frame 0"));
    EXPECT_THAT(findings(steady(1).frame_delay(30ms).frame_delay(30ms).dmx(0, {1, 2}).frame_delay(30ms)),
                ElementsAre("warning timing-ignored @38 frame 0 x2"));
}

TEST_F(FrameFindingsTest, AFixedRateIgnoresTheRecordingsTiming) {
    const auto result = report(padded(steady(10).dmx(0, {1, 2})), {.fps = 25});
    EXPECT_THAT(lines(result), ElementsAre("note timing-unused @20 frame 0"));
    EXPECT_EQ(result.duration, 11 * 40ms);
    EXPECT_EQ(result.frames, 11U);
}

TEST_F(FrameFindingsTest, AUniverseTwiceInAFrameLacksATimingPacket) {
    Recording recording = steady(2);
    recording.dmx(0, {1, 2}).dmx(0, {3, 4}).dmx(0, {3, 4}).frame_delay(30ms);
    recording.dmx(0, {1, 2}).dmx(1, {3, 4}).frame_delay(30ms);
    EXPECT_THAT(findings(recording), ElementsAre("warning universe-repeats @96 frame 2"));
    // Packets per frame that do not fit do the same.
    const Recording two = Recording{}.dmx(0, {1, 2}).dmx(1, {1, 2}).dmx(0, {1, 2}).dmx(1, {1, 2});
    EXPECT_THAT(findings(two, {.fps = 25, .ppf = 4}), ElementsAre("warning universe-repeats @40 frame 0"));
    EXPECT_THAT(findings(two, {.fps = 25, .ppf = 2}), IsEmpty());
}

TEST_F(FrameFindingsTest, AUniverseThatStopsIsNamedAtItsLastPacket) {
    const auto with_second_universe_until = [](int last, int frames) {
        Recording recording;
        for (int frame = 0; frame < frames; ++frame) {
            recording.dmx(0, {1, 2});
            if (frame <= last) {
                recording.dmx(1, {1, 2});
            }
            recording.frame_delay(30ms);
        }
        return recording;
    };
    EXPECT_THAT(findings(with_second_universe_until(9, 60)),
                ElementsAre("warning universe-stops @542 frame 9"));
    // Sources that have nothing new may be silent for a second.
    EXPECT_THAT(findings(with_second_universe_until(9, 43)), IsEmpty());
    EXPECT_THAT(findings(with_second_universe_until(59, 60)), IsEmpty());
}

TEST_F(FrameFindingsTest, ASlowUniverseHasNotStopped) {
    Recording recording;
    for (int frame = 0; frame < 200; ++frame) {
        recording.dmx(0, {1, 2});
        if (frame % 66 == 0 && frame < 198) {
            recording.dmx(1, {1, 2});
        }
        recording.frame_delay(30ms);
    }
    EXPECT_THAT(findings(recording), IsEmpty());
}

TEST_F(FrameFindingsTest, AJumpAtTheSeamIsOneThatTheRecordingDoesNotHave) {
    const Recording rising = levels({0, 10, 20, 30, 40, 50});
    const auto result = report(padded(Recording(rising).dmx(2, {60, 0}).frame_delay(30ms)));
    EXPECT_THAT(lines(result), ElementsAre("warning loop-seam @228 frame 6"));
    EXPECT_THAT(text(result, "loop-seam"), HasSubstr("up to 60 levels (channel 1)"));
    EXPECT_THAT(findings(rising, {.loops = false}), IsEmpty());
    // Down again, too small to be seen, or cut as hard as within.
    EXPECT_THAT(findings(levels({0, 10, 20, 30, 20, 10})), IsEmpty());
    EXPECT_THAT(findings(levels({0, 5, 10, 15, 20, 25})), IsEmpty());
    EXPECT_THAT(findings(levels({0, 10, 20, 50, 60, 59})), IsEmpty());
}
