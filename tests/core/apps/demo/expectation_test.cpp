#include "expectation.h"

#include <algorithm>

#include <gtest/gtest.h>

using namespace demo;
using namespace std::chrono_literals;

namespace {

const StepExpectation& step(const std::vector<StepExpectation>& steps, const std::string& name) {
    return *std::ranges::find(steps, name, &StepExpectation::name);
}

}  // namespace

TEST(ExpectationTest, ALoopWithRecordedTimingLosesFiveMillisecondsARound) {
    // 191 frames of 25 ms and a last one of 30 ms: 4.805 s for 192 frames.
    EXPECT_NEAR(expected_rate(playlist(kChase), 0), 192 / 4.805, 1e-9);
}

TEST(ExpectationTest, SpeedBoostOf100HalvesEveryDelay) {
    EXPECT_NEAR(expected_rate(playlist(kChase), 100), 192 / 2.4025, 1e-9);
    EXPECT_NEAR(expected_rate(playlist(kChase), 50), 192 / (4.805 * 0.75), 1e-9);
}

TEST(ExpectationTest, AFixedRateHasNoLongerLastFrame) {
    EXPECT_DOUBLE_EQ(expected_rate(playlist(kPulse), 0), 20);
}

TEST(ExpectationTest, APlaylistThatEndsHasTheRateOfItsFrames) {
    EXPECT_DOUBLE_EQ(expected_rate(playlist(kFade), 0), 25);
}

TEST(ExpectationTest, TheHigherPriorityOwnsTheOverlap) {
    const std::vector<int> both{kChase, kPulse};
    const Channels chase = owned_channels(playlist(kChase), 0, both);
    const Channels pulse = owned_channels(playlist(kPulse), 0, both);
    EXPECT_TRUE(chase.test(7));
    EXPECT_FALSE(chase.test(8));
    EXPECT_FALSE(chase.test(23));
    EXPECT_TRUE(chase.test(24));
    EXPECT_EQ(pulse.count(), 16U);
    EXPECT_TRUE((chase ^ pulse).all());
}

TEST(ExpectationTest, UniversesThatOnlyOnePlaylistHasAreItsOwn) {
    EXPECT_TRUE(owned_channels(playlist(kChase), 2, {kChase, kPulse}).all());
}

TEST(ExpectationTest, AloneAPlaylistOwnsItsWholeZone) {
    EXPECT_TRUE(owned_channels(playlist(kChase), 0, {kChase}).all());
}

TEST(ExpectationTest, APlaylistWithoutZoneWritesEverything) {
    EXPECT_TRUE(owned_channels(playlist(kFade), 4, {kFade}).all());
}

TEST(ExpectationTest, BrightnessIsTruncatedPercent) {
    // The comet's head is at 255 and the channel behind it at 223.
    const StreamExpectation stream = expected_stream({kChase, 10, {kStageOutput}, 50}, {kChase});
    const std::size_t frame_9_universe_0 = 9 * 4;
    EXPECT_EQ(stream.levels[frame_9_universe_0][9], 127);
    EXPECT_EQ(stream.levels[frame_9_universe_0][8], 111);
    EXPECT_EQ(stream.levels[frame_9_universe_0][10], 0);
    EXPECT_EQ(stream.peak, 127);
}

TEST(ExpectationTest, ThePeakLeavesOutChannelsOfOthers) {
    // All channels outside of the pulse's zone are recorded at 255; the zone reaches 200, and 100 at 50 %.
    EXPECT_EQ(expected_stream({kPulse, 40, {kStageOutput}, 50}, {kChase, kPulse}).peak, 100);
}

TEST(ExpectationTest, PacketsCountEveryUniverseAndDestination) {
    EXPECT_EQ(expected_stream({kChase, 120, {kStageOutput}}, {kChase}).packets(), 480);
    EXPECT_EQ(expected_stream({kHouse, 40, {kFirstNode, kSecondNode}}, {kHouse}).packets(), 80);
}

TEST(ExpectationTest, ShortStretchesAreNotJudgedByTheirRate) {
    const std::vector<StepExpectation> steps = expected_steps({});
    EXPECT_TRUE(step(steps, "play").streams[0].rate_judged);
    EXPECT_TRUE(step(steps, "speed-boost").streams[0].rate_judged);
    EXPECT_TRUE(step(steps, "overlay").streams[1].rate_judged);
    EXPECT_FALSE(step(steps, "brightness-50").streams[0].rate_judged);
}

TEST(ExpectationTest, BroadcastsAreExpectedAtTheGivenAddress) {
    EXPECT_EQ(step(expected_steps("192.0.2.255"), "unicast-off").destinations,
              std::vector<std::string>{"192.0.2.255"});
    EXPECT_EQ(step(expected_steps({}), "unicast-off").destinations, std::vector<std::string>{""});
}

TEST(ExpectationTest, TheWholeShowTakesLessThanFortySeconds) {
    double seconds = 0;
    for (const StepExpectation& one : expected_steps({})) {
        double longest = std::chrono::duration<double>(one.silence).count();
        for (const StreamExpectation& stream : one.streams) {
            longest = std::max(longest, stream.frames / stream.rate);
        }
        seconds += longest;
    }
    EXPECT_LT(seconds, 40);
}
