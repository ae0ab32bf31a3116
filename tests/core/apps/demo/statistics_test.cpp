#include "statistics.h"

#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

using namespace demo;

namespace {

/// Arrivals at the given milliseconds after some moment in this century.
std::vector<std::int64_t> arrivals(const std::vector<double>& milliseconds) {
    std::vector<std::int64_t> times;
    for (const double time : milliseconds) {
        times.push_back(1'700'000'000'000'000'000 + static_cast<std::int64_t>(time * 1e6));
    }
    return times;
}

}  // namespace

TEST(StatisticsTest, FewerThanTwoArrivalsHaveNoIntervalsAndNoRate) {
    EXPECT_EQ(interval_statistics({}), IntervalStatistics{});
    EXPECT_EQ(interval_statistics(arrivals({5})), IntervalStatistics{});
    EXPECT_EQ(mean_rate({}), 0);
    EXPECT_EQ(mean_rate(arrivals({5})), 0);
}

TEST(StatisticsTest, IntervalsAreTakenBetweenNeighbours) {
    EXPECT_EQ(interval_statistics(arrivals({0, 10, 30, 60})),
              (IntervalStatistics{20'000'000, 30'000'000, 30'000'000}));
}

TEST(StatisticsTest, NinetyNinePercentLeaveOutTheLongestOfAHundred) {
    std::vector<double> times{0};
    for (int i = 0; i < 99; ++i) {
        times.push_back(times.back() + 25);
    }
    times.push_back(times.back() + 80);
    EXPECT_EQ(interval_statistics(arrivals(times)), (IntervalStatistics{25'000'000, 25'000'000, 80'000'000}));
}

TEST(StatisticsTest, EvenArrivalsHaveTheirRate) {
    EXPECT_DOUBLE_EQ(mean_rate(arrivals({0, 25, 50, 75})), 40);
}

TEST(StatisticsTest, ALatePacketAtTheEndHardlyMovesTheRate) {
    std::vector<double> times;
    for (int i = 0; i < 120; ++i) {
        times.push_back(25.0 * i);
    }
    times.back() += 70;
    EXPECT_TRUE(rate_agrees(40, mean_rate(arrivals(times))));
}

TEST(StatisticsTest, ArrivalsAllAtOnceHaveNoRate) {
    EXPECT_EQ(mean_rate(arrivals({3, 3, 3})), 0);
}

TEST(StatisticsTest, ARateAgreesWithinTwoPercent) {
    EXPECT_TRUE(rate_agrees(40, 40.79));
    EXPECT_TRUE(rate_agrees(40, 39.21));
    EXPECT_FALSE(rate_agrees(40, 40.81));
    EXPECT_FALSE(rate_agrees(40, 39.19));
    EXPECT_FALSE(rate_agrees(40, 0));
}
