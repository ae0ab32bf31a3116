// Where the marks of an axis stand and how they read.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "plot/axis.h"

using testing::ElementsAre;

namespace {

std::vector<std::string> labels(const std::vector<plot::Tick>& ticks) {
    std::vector<std::string> result;
    for (const plot::Tick& tick : ticks) {
        result.push_back(tick.label);
    }
    return result;
}

}  // namespace

TEST(AxisTest, TimesStandAtRoundSeconds) {
    EXPECT_THAT(labels(plot::time_ticks(0, 10.005, 10)), ElementsAre("0", "2", "4", "6", "8", "10"));
    EXPECT_THAT(labels(plot::time_ticks(0.03, 0.11, 5)), ElementsAre("0.04", "0.06", "0.08", "0.10"));
}

TEST(AxisTest, LongTimesReadInMinutesAndHours) {
    EXPECT_THAT(labels(plot::time_ticks(0, 180, 6)),
                ElementsAre("0:00", "0:30", "1:00", "1:30", "2:00", "2:30", "3:00"));
    EXPECT_THAT(labels(plot::time_ticks(3000, 6900, 3)), ElementsAre("1:00:00", "1:30:00"));
    // A short stretch late in a recording keeps its decimals.
    EXPECT_THAT(labels(plot::time_ticks(130, 131, 3)), ElementsAre("130.0", "130.5", "131.0"));
}

TEST(AxisTest, OtherScalesAreRoundToo) {
    EXPECT_THAT(labels(plot::linear_ticks(34.5, 4)), ElementsAre("0", "10", "20", "30"));
    EXPECT_THAT(labels(plot::power_ticks(0.1, 1000)), ElementsAre("0.1", "1", "10", "100", "1000"));
}
