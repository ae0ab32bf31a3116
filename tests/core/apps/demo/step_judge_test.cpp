#include "step_judge.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace demo;

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::size_t kForwardingHeader = 24;

/// Packets as the service would send them, on one line to the stage output.
class StepJudgeTest : public testing::Test {
protected:
    static constexpr std::uint32_t kRound = 7;

    static ReceivedPacket mark(std::uint32_t round = kRound, std::uint32_t destination = 0,
                               const std::string& line = "line") {
        const std::vector<std::uint8_t> datagram = mark_datagram({round, destination}, kStageOutput, 6454);
        return {.time = 0,
                .line = line,
                .bytes = {datagram.begin() + kForwardingHeader, datagram.end()},
                .header = {}};
    }

    static ReceivedPacket packet(const PlaylistPlan& plan, int frame, std::size_t index, int brightness = 100,
                                 const std::string& line = "line") {
        const int universe = plan.universes[index];
        std::vector<std::uint8_t> bytes{
            'A', 'r', 't', '-', 'N', 'e', 't', 0, 0, 0x50, 0, 14, 0, 0, static_cast<std::uint8_t>(universe),
            0,   2,   0};
        bytes[12] = static_cast<std::uint8_t>(plan.first_sequence + frame);
        for (int channel = 0; channel < kChannels; ++channel) {
            bytes.push_back(
                static_cast<std::uint8_t>(plan.level(universe, frame, channel) * brightness / 100));
        }
        return {
            .time = kSecond + frame * kSecond / 40, .line = line, .bytes = std::move(bytes), .header = {}};
    }

    /// Whole frames of the chase, one after the other.
    static void play_chase(StepJudge& judge, int first, int count, int brightness = 100) {
        for (int frame = first; frame < first + count; ++frame) {
            for (std::size_t index = 0; index < 4; ++index) {
                judge.take(packet(playlist(kChase), frame, index, brightness));
            }
        }
    }

    static StepExpectation chase_step(int frames, int brightness = 100) {
        return {.name = "step",
                .label = "step",
                .streams = {expected_stream({kChase, frames, {kStageOutput}, brightness}, {kChase})},
                .destinations = {kStageOutput}};
    }

    LineBook book_;
};

}  // namespace

TEST_F(StepJudgeTest, FramesAsExpectedAreCompleteAndWithoutFault) {
    const StepExpectation step = chase_step(10);
    StepJudge judge(step, book_, kRound);
    judge.take(mark());
    play_chase(judge, 0, 9);
    EXPECT_FALSE(judge.complete());
    play_chase(judge, 9, 1);
    EXPECT_TRUE(judge.complete());
    const StreamMeasurement& chase = judge.streams().front();
    EXPECT_EQ(chase.packets, 40);
    EXPECT_EQ(chase.peak, 255);
    EXPECT_EQ(chase.misplaced, 0);
    EXPECT_EQ(chase.wrong, 0);
    EXPECT_NEAR(chase.rate(40), 40, 1e-6);
    EXPECT_EQ(judge.strays(), 0);
}

TEST_F(StepJudgeTest, NothingIsJudgedBeforeTheMark) {
    const StepExpectation step = chase_step(10, 50);
    StepJudge judge(step, book_, kRound);
    play_chase(judge, 0, 3, 100);
    EXPECT_FALSE(judge.marked());
    judge.take(mark());
    EXPECT_TRUE(judge.marked());
    play_chase(judge, 3, 10, 50);
    EXPECT_TRUE(judge.complete());
    EXPECT_EQ(judge.streams().front().wrong, 0);
    EXPECT_EQ(judge.streams().front().peak, 127);
}

TEST_F(StepJudgeTest, MarksOfAnotherRoundAreIgnored) {
    const StepExpectation step = chase_step(10);
    StepJudge judge(step, book_, kRound);
    judge.take(mark(kRound - 1));
    EXPECT_FALSE(judge.marked());
}

TEST_F(StepJudgeTest, ABrightnessThatWasNotSetIsSeenInEveryFrame) {
    const StepExpectation step = chase_step(10, 50);
    StepJudge judge(step, book_, kRound);
    judge.take(mark());
    play_chase(judge, 0, 10, 100);
    EXPECT_EQ(judge.streams().front().wrong, 40);
    EXPECT_EQ(judge.streams().front().peak, 255);
}

TEST_F(StepJudgeTest, ALostPacketIsOutOfTurn) {
    const StepExpectation step = chase_step(10);
    StepJudge judge(step, book_, kRound);
    judge.take(mark());
    play_chase(judge, 0, 4);
    judge.take(packet(playlist(kChase), 4, 0));
    judge.take(packet(playlist(kChase), 4, 2));
    judge.take(packet(playlist(kChase), 4, 3));
    EXPECT_EQ(judge.streams().front().misplaced, 1);
}

TEST_F(StepJudgeTest, ARepeatedPacketIsOutOfTurn) {
    const StepExpectation step = chase_step(10);
    StepJudge judge(step, book_, kRound);
    judge.take(mark());
    play_chase(judge, 0, 4);
    judge.take(packet(playlist(kChase), 3, 3));
    EXPECT_EQ(judge.streams().front().misplaced, 1);
}

TEST_F(StepJudgeTest, TheLoopGoesOnWithItsFirstFrame) {
    const StepExpectation step = chase_step(4);
    StepJudge judge(step, book_, kRound);
    judge.take(mark());
    play_chase(judge, 190, 2);
    play_chase(judge, 0, 2);
    EXPECT_TRUE(judge.complete());
    EXPECT_EQ(judge.streams().front().misplaced, 0);
}

TEST_F(StepJudgeTest, TheOrderIsFollowedFromStepToStep) {
    const StepExpectation step = chase_step(2);
    {
        StepJudge judge(step, book_, kRound);
        judge.take(mark());
        play_chase(judge, 0, 2);
    }
    StepJudge judge(step, book_, kRound + 1);
    judge.take(mark(kRound + 1));
    play_chase(judge, 3, 2);
    EXPECT_EQ(judge.streams().front().misplaced, 1);
}

TEST_F(StepJudgeTest, AForgottenPlaylistMayBeginAnywhere) {
    const StepExpectation step = chase_step(2);
    {
        StepJudge judge(step, book_, kRound);
        judge.take(mark());
        play_chase(judge, 0, 2);
    }
    book_.forget(kChase);
    StepJudge judge(step, book_, kRound + 1);
    judge.take(mark(kRound + 1));
    play_chase(judge, 100, 2);
    EXPECT_EQ(judge.streams().front().misplaced, 0);
}

TEST_F(StepJudgeTest, AMarkWithinAFrameLeavesTheRestOfThatFrameUncounted) {
    const StepExpectation step = chase_step(2);
    StepJudge judge(step, book_, kRound);
    judge.take(packet(playlist(kChase), 0, 0));
    judge.take(mark());
    for (std::size_t index = 1; index < 4; ++index) {
        judge.take(packet(playlist(kChase), 0, index));
    }
    EXPECT_EQ(judge.streams().front().packets, 0);
    play_chase(judge, 1, 2);
    EXPECT_EQ(judge.streams().front().packets, 8);
    EXPECT_EQ(judge.streams().front().misplaced, 0);
}

TEST_F(StepJudgeTest, MergedFramesKeepWhatTheOtherPlaylistWrote) {
    const std::vector<int> both{kChase, kPulse};
    const StepExpectation step{.name = "step",
                               .label = "step",
                               .streams = {expected_stream({kChase, 2, {kStageOutput}}, both),
                                           expected_stream({kPulse, 1, {kStageOutput}}, both)},
                               .destinations = {kStageOutput}};
    StepJudge judge(step, book_, kRound);
    judge.take(mark());
    // By hand: the pulse's first frame has its zone at 80.
    ReceivedPacket pulse = packet(playlist(kPulse), 0, 0);
    std::fill(pulse.bytes.begin() + 18, pulse.bytes.end(), std::uint8_t{0});
    std::fill_n(pulse.bytes.begin() + 18 + 8, 16, std::uint8_t{80});
    judge.take(pulse);
    ReceivedPacket merged = packet(playlist(kChase), 0, 0);
    std::fill_n(merged.bytes.begin() + 18 + 8, 16, std::uint8_t{80});
    judge.take(merged);
    EXPECT_EQ(judge.streams()[0].wrong, 0);
    EXPECT_EQ(judge.streams()[1].wrong, 0);
    EXPECT_EQ(judge.streams()[1].peak, 80);
    // The other way round: as if the chase had kept the channels.
    judge.take(packet(playlist(kChase), 12, 0));
    EXPECT_EQ(judge.streams()[0].wrong, 1);
}

TEST_F(StepJudgeTest, AWrongHeaderIsAWrongPacket) {
    const StepExpectation step = chase_step(2);
    StepJudge judge(step, book_, kRound);
    judge.take(mark());
    ReceivedPacket short_one = packet(playlist(kChase), 0, 0);
    short_one.bytes[16] = 0;
    short_one.bytes[17] = 10;
    judge.take(short_one);
    EXPECT_EQ(judge.streams().front().wrong, 1);
}

TEST_F(StepJudgeTest, PacketsDuringSilenceAreStrays) {
    const StepExpectation step{.name = "pause",
                               .label = "pause",
                               .destinations = {kStageOutput},
                               .silence = std::chrono::milliseconds(1000)};
    StepJudge judge(step, book_, kRound);
    play_chase(judge, 0, 1);
    EXPECT_EQ(judge.strays(), 0);
    judge.take(mark());
    play_chase(judge, 1, 1);
    EXPECT_EQ(judge.strays(), 4);
}

TEST_F(StepJudgeTest, PacketsToAnotherDestinationAreStrays) {
    const StepExpectation step = chase_step(2);
    StepJudge judge(step, book_, kRound);
    judge.take(mark());
    judge.take(packet(playlist(kChase), 0, 0, 100, "another line"));
    EXPECT_EQ(judge.strays(), 1);
    EXPECT_EQ(judge.streams().front().packets, 0);
}

TEST_F(StepJudgeTest, PacketsOfNoPlaylistAreStrays) {
    const StepExpectation step = chase_step(2);
    StepJudge judge(step, book_, kRound);
    judge.take(mark());
    ReceivedPacket foreign = packet(playlist(kChase), 0, 0);
    foreign.bytes[14] = 9;
    judge.take(foreign);
    foreign.bytes.resize(18);
    judge.take(foreign);
    EXPECT_EQ(judge.strays(), 2);
}

TEST_F(StepJudgeTest, EachDestinationHasToShowItsFrames) {
    const StepExpectation step{.name = "step",
                               .label = "step",
                               .streams = {expected_stream({kHouse, 2, {kFirstNode, kSecondNode}}, {kHouse})},
                               .destinations = {kFirstNode, kSecondNode}};
    StepJudge judge(step, book_, kRound);
    judge.take(mark(kRound, 1, "b"));
    judge.take(mark(kRound, 0, "a"));
    ASSERT_TRUE(judge.marked());
    for (const int frame : {0, 1}) {
        judge.take(packet(playlist(kHouse), frame, 0, 100, "a"));
    }
    EXPECT_FALSE(judge.complete());
    for (const int frame : {0, 1}) {
        judge.take(packet(playlist(kHouse), frame, 0, 100, "b"));
    }
    EXPECT_TRUE(judge.complete());
    EXPECT_EQ(judge.streams().front().packets, 4);
    EXPECT_EQ(judge.streams().front().misplaced, 0);
}

TEST(MarkTest, AMarkIsReadBackFromItsDatagram) {
    const std::vector<std::uint8_t> datagram = mark_datagram({3, 1}, "192.0.2.10", 6454);
    ASSERT_EQ(datagram.size(), 554U);
    EXPECT_EQ(read_mark(std::span(datagram).subspan(kForwardingHeader)), (Mark{3, 1}));
    EXPECT_FALSE(read_mark(std::span(datagram).subspan(kForwardingHeader, 20)));
    EXPECT_FALSE(read_mark(std::vector<std::uint8_t>(530)));
}
