// What arrives against what is due.
#include "comparison.h"

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

using monitor::Comparison;
using monitor::Timeline;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr capture::Endpoint kPlayer{0x0A000001, 6454};
constexpr nanoseconds kStart = 1000s;

/// Universes 1 and 2, a frame every 25 ms; `levels` of each frame are the same in both.
Timeline timeline_of(const std::vector<monitor::LevelMark>& levels, bool sequences = false) {
    Timeline timeline;
    for (std::size_t frame = 0; frame < levels.size(); ++frame) {
        for (const std::uint16_t universe : {std::uint16_t{1}, std::uint16_t{2}}) {
            timeline.universes[universe].push_back(
                {frame * 25ms, levels[frame], static_cast<std::uint8_t>(sequences ? frame + 1 : 0)});
            ++timeline.packets;
        }
    }
    timeline.duration = levels.size() * 25ms;
    return timeline;
}

/// Hands packets to a comparison.
class Arrivals {
public:
    explicit Arrivals(const Timeline& timeline) : comparison_(timeline) {}

    Arrivals& packet(std::uint16_t universe, monitor::LevelMark levels, nanoseconds time,
                     std::uint8_t sequence = 0, capture::Endpoint peer = kPlayer) {
        comparison_.add({kStart + time, peer, universe, sequence, levels});
        return *this;
    }
    const Comparison& finish() {
        comparison_.finish();
        return comparison_;
    }

private:
    Comparison comparison_;
};

std::vector<nanoseconds> lateness_of(const Comparison& comparison) {
    return {comparison.lateness().begin(), comparison.lateness().end()};
}

TEST(ComparisonTest, LatenessIsHeldAgainstTheFirstPacket) {
    const Timeline timeline = timeline_of({10, 11, 12});
    Arrivals arrivals(timeline);
    const Comparison& result = arrivals.packet(1, 10, 0ms)
                                   .packet(2, 10, 40us)
                                   .packet(1, 11, 25ms)
                                   .packet(2, 11, 28ms)
                                   .packet(1, 12, 49ms)
                                   .packet(2, 12, 50ms)
                                   .finish();
    EXPECT_THAT(lateness_of(result), ElementsAre(0ms, 40us, 0ms, 3ms, -1ms, 0ms));
    EXPECT_EQ(result.counts().matched, 6U);
    EXPECT_EQ(result.counts().missing, 0U);
    EXPECT_EQ(result.counts().extra, 0U);
}

TEST(ComparisonTest, WhatIsLeftOutIsMissingAndWhatIsUnknownIsExtra) {
    const Timeline timeline = timeline_of({10, 11, 12, 13});
    Arrivals arrivals(timeline);
    const Comparison& result = arrivals.packet(1, 10, 0ms)
                                   .packet(2, 10, 0ms)
                                   .packet(1, 12, 50ms)
                                   .packet(1, 99, 51ms)
                                   .packet(2, 12, 51ms)
                                   .packet(2, 12, 52ms)
                                   .packet(1, 13, 75ms)
                                   .packet(2, 13, 75ms)
                                   .finish();
    EXPECT_EQ(result.counts().matched, 6U);
    EXPECT_EQ(result.counts().missing, 2U) << "11 in both universes";
    EXPECT_EQ(result.counts().extra, 2U) << "unknown levels, and the same packet again";
}

TEST(ComparisonTest, AUniverseThatFallsSilentIsMissingUpToWhereTheOtherOneGot) {
    const Timeline timeline = timeline_of({10, 11, 12, 13});
    Arrivals arrivals(timeline);
    const Comparison& result =
        arrivals.packet(1, 10, 0ms).packet(1, 11, 25ms).packet(1, 12, 50ms).packet(1, 13, 75ms).finish();
    EXPECT_EQ(result.counts().missing, 3U) << "its last packet may have been on its way";
}

TEST(ComparisonTest, TheRecordingGoesOnFromItsBegin) {
    const Timeline timeline = timeline_of({10, 11});
    Arrivals arrivals(timeline);
    const Comparison& result = arrivals.packet(1, 11, 0ms)
                                   .packet(2, 11, 0ms)
                                   .packet(1, 10, 26ms)
                                   .packet(2, 10, 27ms)
                                   .packet(1, 11, 50ms)
                                   .packet(2, 11, 50ms)
                                   .packet(1, 11, 100ms)
                                   .finish();
    EXPECT_THAT(lateness_of(result), ElementsAre(0ms, 0ms, 1ms, 2ms, 0ms, 0ms, 0ms));
    EXPECT_EQ(result.counts().missing, 2U) << "10 of the second round in both";
}

TEST(ComparisonTest, OfPacketsWithTheSameLevelsTheNextOneIsTaken) {
    const Timeline timeline = timeline_of({10, 10, 10, 10});
    Arrivals arrivals(timeline);
    const Comparison& result =
        arrivals.packet(1, 10, 0ms).packet(1, 10, 90ms).packet(1, 10, 91ms).packet(1, 10, 92ms).finish();
    EXPECT_THAT(lateness_of(result), ElementsAre(0ms, 65ms, 41ms, 17ms)) << "a stall, nothing lost";
}

TEST(ComparisonTest, SequenceNumbersThatComeThroughTellTheSameLevelsApart) {
    const Timeline timeline = timeline_of({10, 10, 10, 10}, true);
    Arrivals arrivals(timeline);
    const Comparison& result = arrivals.packet(1, 10, 0ms, 1).packet(1, 10, 76ms, 4).finish();
    EXPECT_THAT(lateness_of(result), ElementsAre(0ms, 1ms));
    EXPECT_EQ(result.counts().missing, 2U + 3U) << "two here, and three of the silent universe";

    Arrivals rewritten(timeline);
    const Comparison& other = rewritten.packet(1, 10, 0ms, 200).packet(1, 10, 25ms, 201).finish();
    EXPECT_THAT(lateness_of(other), ElementsAre(0ms, 0ms)) << "numbers of the forwarder's say nothing";
}

TEST(ComparisonTest, APacketIsNeverTakenForOneThatIsDueMuchLater) {
    std::vector<monitor::LevelMark> levels;
    for (monitor::LevelMark mark = 0; mark < 40; ++mark) {
        levels.push_back(mark);
    }
    const Timeline timeline = timeline_of(levels);
    Arrivals arrivals(timeline);
    const Comparison& result = arrivals.packet(1, 0, 0ms)
                                   .packet(1, 30, 25ms)
                                   .packet(1, 1, 25ms)
                                   .packet(1, 2, 30ms)
                                   .packet(1, 3, 54ms)
                                   .finish();
    EXPECT_THAT(lateness_of(result), ElementsAre(0ms, 0ms, -20ms)) << "20 ms are the limit";
    EXPECT_EQ(result.counts().extra, 2U) << "725 and 21 ms early";
}

TEST(ComparisonTest, OtherUniversesAndSecondStreamsAreIgnored) {
    const Timeline timeline = timeline_of({10, 11});
    Arrivals arrivals(timeline);
    const Comparison& result = arrivals.packet(1, 10, 0ms)
                                   .packet(1, 10, 1ms, 0, {0x0A000002, 6454})
                                   .packet(7, 10, 2ms)
                                   .packet(1, 11, 25ms)
                                   .finish();
    EXPECT_EQ(result.counts().matched, 2U);
    EXPECT_EQ(result.counts().ignored, 2U);
    EXPECT_EQ(result.counts().extra, 0U);
}

TEST(ComparisonTest, WhatComesBeforeTheFirstMatchIsExtraAndMeasuresNothing) {
    const Timeline timeline = timeline_of({10, 11});
    Arrivals arrivals(timeline);
    const Comparison& result = arrivals.packet(1, 98, 0ms).packet(1, 99, 10ms).finish();
    EXPECT_THAT(lateness_of(result), IsEmpty());
    EXPECT_EQ(result.counts().extra, 2U);
    EXPECT_EQ(result.counts().missing, 0U);
}

TEST(ComparisonTest, AfterAHundredStrangersThePlaceIsLookedForAnew) {
    const Timeline timeline = timeline_of({10, 11, 12});
    Arrivals arrivals(timeline);
    arrivals.packet(1, 10, 0ms);
    for (unsigned i = 0; i < Comparison::kLostAfter; ++i) {
        arrivals.packet(1, 99, 1ms);
    }
    const Comparison& result = arrivals.packet(1, 11, 5s).packet(1, 12, 5s + 26ms).finish();
    EXPECT_EQ(result.counts().resynchronised, 1U);
    EXPECT_THAT(lateness_of(result), ElementsAre(0ms, 0ms, 1ms));
}

TEST(ComparisonTest, ARecordingThatStandsForCenturiesEndsNoLoop) {
    Timeline timeline;
    timeline.universes[1] = {{0ns, 10, 0}, {nanoseconds::max(), 11, 0}};
    timeline.duration = nanoseconds::max();
    Arrivals arrivals(timeline);
    const Comparison& result = arrivals.packet(1, 10, 0ms).packet(1, 99, 1ms).finish();
    EXPECT_EQ(result.counts().extra, 1U);
}

}  // namespace
