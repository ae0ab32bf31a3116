// Packets with times in, frames out.
#include "frame_grouper.h"

#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frame_encoder.h"
#include "support/artnet_sender.h"
#include "support/recording.h"

using namespace std::chrono_literals;

namespace {

using recording::Frame;
using recording::FrameEncoder;
using recording::FrameEnd;
using recording::FrameGrouper;
using recording::FrameTiming;
using std::chrono::nanoseconds;
using testing::ElementsAre;

constexpr std::uint32_t kOne = 0x0A000001;
constexpr std::uint32_t kTwo = 0x0A000002;

/// Collects frames as "end@time+delay: universes", in milliseconds.
class Grouping {
public:
    explicit Grouping(nanoseconds gap = 5ms) : grouper_(gap) {}

    Grouping& dmx(std::uint16_t universe, nanoseconds time, std::uint32_t sender = kOne) {
        const std::vector<std::uint8_t> packet = tests::dmx_packet(universe, {1, 2});
        take(grouper_.add({time, sender, universe, packet}));
        return *this;
    }
    Grouping& sync(nanoseconds time, std::uint32_t sender = kOne) {
        grouper_.sync(sender, time);
        return *this;
    }
    std::vector<std::string> frames() {
        take(grouper_.finish());
        return frames_;
    }

private:
    void take(const std::optional<Frame>& frame) {
        if (!frame) {
            return;
        }
        static const char* const kEnds[] = {"sync", "repetition", "gap", "finish"};
        std::ostringstream text;
        text << kEnds[static_cast<int>(frame->end)] << '@' << ms(frame->time);
        if (frame->delay) {
            text << '+' << ms(*frame->delay);
        }
        text << ':';
        for (std::size_t at = 0; at < frame->packets.size(); at += 20) {
            text << ' ' << int{frame->packets[at + 14]};
        }
        EXPECT_EQ(frame->packets.size(), 20 * frame->packet_count);
        frames_.push_back(text.str());
    }
    static double ms(nanoseconds time) { return std::chrono::duration<double, std::milli>(time).count(); }

    FrameGrouper grouper_;
    std::vector<std::string> frames_;
};

TEST(FrameGrouperTest, WithoutPacketsThereAreNoFrames) {
    EXPECT_THAT(Grouping().sync(1ms).frames(), ElementsAre());
}

TEST(FrameGrouperTest, AUniverseThatRepeatsBeginsAFrameAtItsOwnTime) {
    EXPECT_THAT(Grouping(100ms).dmx(0, 0ms).dmx(1, 1ms).dmx(0, 25ms).dmx(1, 26ms).dmx(0, 50500us).frames(),
                ElementsAre("repetition@0+25: 0 1", "repetition@25+25.5: 0 1", "finish@50.5: 0"));
}

TEST(FrameGrouperTest, AGapBeginsAFrameAlsoWhereNothingRepeats) {
    EXPECT_THAT(
        Grouping().dmx(2, 0ms).dmx(3, 5ms).dmx(0, 25ms).dmx(1, 26ms).dmx(2, 26ms).dmx(3, 27ms).frames(),
        ElementsAre("gap@0+25: 2 3", "finish@25: 0 1 2 3"))
        << "a capture that begins in the middle of a frame finds the frames' borders";
}

TEST(FrameGrouperTest, APacketThatIsLateKeepsItsTimeAndTheFramesFindTheirOrderAgain) {
    EXPECT_THAT(Grouping()
                    .dmx(0, 0ms)
                    .dmx(1, 1ms)
                    .dmx(2, 9ms)
                    .dmx(0, 25ms)
                    .dmx(1, 26ms)
                    .dmx(2, 27ms)
                    .dmx(0, 50ms)
                    .frames(),
                ElementsAre("gap@0+9: 0 1", "gap@9+16: 2", "repetition@25+25: 0 1 2", "finish@50: 0"));
}

TEST(FrameGrouperTest, ArtSyncEndsAFrameHoweverFarItsPacketsAreApart) {
    EXPECT_THAT(Grouping()
                    .dmx(0, 0ms)
                    .dmx(1, 1ms)
                    .sync(2ms)
                    .dmx(0, 3ms)
                    .dmx(1, 20ms)
                    .sync(24ms)
                    .dmx(0, 25ms)
                    .sync(26ms)
                    .frames(),
                ElementsAre("sync@0+3: 0 1", "sync@3+22: 0 1", "sync@25: 0"));
}

TEST(FrameGrouperTest, AnArtSyncThatWasLostCostsNoTiming) {
    EXPECT_THAT(Grouping().dmx(0, 0ms).sync(2ms).dmx(0, 25ms).dmx(1, 40ms).dmx(0, 50ms).sync(51ms).frames(),
                ElementsAre("sync@0+25: 0", "repetition@25+25: 0 1", "sync@50: 0"));
}

TEST(FrameGrouperTest, ASenderThatStopsItsArtSyncIsGroupedByGapsAgain) {
    EXPECT_THAT(Grouping().dmx(0, 0ms).sync(1ms).dmx(0, 5s).dmx(1, 5s + 10ms).frames(),
                ElementsAre("sync@0+5000: 0", "gap@5000+10: 0", "finish@5010: 1"));
}

TEST(FrameGrouperTest, TheArtSyncOfOneSenderLeavesTheOtherAlone) {
    EXPECT_THAT(Grouping()
                    .dmx(0, 0ms, kOne)
                    .sync(1ms, kOne)
                    .dmx(8, 10ms, kTwo)
                    .sync(11ms, kOne)
                    .dmx(9, 12ms, kTwo)
                    .dmx(0, 30ms, kOne)
                    .dmx(1, 45ms, kOne)
                    .sync(46ms, kOne)
                    .dmx(0, 60ms, kOne)
                    .frames(),
                ElementsAre("sync@0+10: 0", "gap@10+20: 8 9", "sync@30+30: 0 1", "finish@60: 0"));
}

TEST(FrameGrouperTest, TwoSendersOfOneUniverseNeverShareAFrame) {
    EXPECT_THAT(Grouping().dmx(0, 0ms, kOne).dmx(0, 1ms, kTwo).dmx(0, 25ms, kOne).frames(),
                ElementsAre("repetition@0+1: 0", "repetition@1+24: 0", "finish@25: 0"));
}

TEST(FrameGrouperTest, APacketThatOvertookAnotherMakesNoNegativeDelayAndShiftsNothing) {
    EXPECT_THAT(Grouping().dmx(0, 10ms).dmx(0, 9ms).dmx(0, 35ms).frames(),
                ElementsAre("repetition@10+0: 0", "repetition@10+25: 0", "finish@35: 0"));
}

Frame frame_of(std::uint16_t universe, std::optional<nanoseconds> delay) {
    return {0ns, delay, FrameEnd::Repetition, tests::dmx_packet(universe, {7}), 1};
}

TEST(FrameEncoderTest, NanosecondsStandAsTheyAreAndTheLastFrameHasWhatPlaybackGivesIt) {
    FrameEncoder encoder(FrameTiming::Nanoseconds);
    EXPECT_EQ(encoder.encode(frame_of(1, 25000001ns)).bytes,
              Recording{}.dmx(1, {7}).frame_delay(25000001ns).bytes());
    EXPECT_EQ(encoder.encode(frame_of(1, 0ns)).bytes, Recording{}.dmx(1, {7}).frame_delay(0ns).bytes());
    const recording::EncodedFrame last = encoder.encode(frame_of(1, std::nullopt));
    EXPECT_EQ(last.bytes, Recording{}.dmx(1, {7}).frame_delay(30ms).bytes());
    EXPECT_EQ(last.begin, 25000001ns);
}

TEST(FrameEncoderTest, MillisecondsCarryWhatTheyCannotExpressSoThatNothingDrifts) {
    FrameEncoder encoder(FrameTiming::Milliseconds);
    std::vector<int> written;
    for (int i = 0; i < 3000; ++i) {
        const std::vector<std::uint8_t> bytes = encoder.encode(frame_of(1, 33333333ns)).bytes;
        EXPECT_EQ(bytes.size(), 19U + 14U);
        written.push_back(bytes[29]);
    }
    EXPECT_THAT(std::vector<int>(written.begin(), written.begin() + 6), ElementsAre(33, 34, 33, 33, 34, 33));
    EXPECT_EQ(encoder.encode(frame_of(1, std::nullopt)).begin, 100s)
        << "an hour of whole cut-off milliseconds would lose 36 seconds";
}

}  // namespace
