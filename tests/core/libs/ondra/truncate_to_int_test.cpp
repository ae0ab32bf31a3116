#include "ondra/truncate_to_int.h"

#include <climits>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

using ondra::truncate_to_int;

TEST(TruncateToIntTest, FractionsAreCutOffTowardsZero) {
    EXPECT_EQ(truncate_to_int(3.7), 3);
    EXPECT_EQ(truncate_to_int(29.97), 29);
    EXPECT_EQ(truncate_to_int(1.9), 1);
    EXPECT_EQ(truncate_to_int(-3.7), -3);
    EXPECT_EQ(truncate_to_int(-0.5), 0);
    EXPECT_EQ(truncate_to_int(0.0), 0);
    EXPECT_EQ(truncate_to_int(40.0), 40);
}

TEST(TruncateToIntTest, NumbersOutsideThirtyTwoBitsBecomeTheNearestLimit) {
    EXPECT_EQ(truncate_to_int(2147483647.0), INT_MAX);
    EXPECT_EQ(truncate_to_int(2147483646.9), INT_MAX - 1);
    EXPECT_EQ(truncate_to_int(2147483648.0), INT_MAX);
    EXPECT_EQ(truncate_to_int(1e300), INT_MAX);
    EXPECT_EQ(truncate_to_int(std::numeric_limits<double>::infinity()), INT_MAX);
    EXPECT_EQ(truncate_to_int(-2147483648.0), INT_MIN);
    EXPECT_EQ(truncate_to_int(-2147483647.9), INT_MIN + 1);
    EXPECT_EQ(truncate_to_int(-2147483649.0), INT_MIN);
    EXPECT_EQ(truncate_to_int(-1e300), INT_MIN);
}

TEST(TruncateToIntTest, WhatIsNotANumberIsZero) {
    EXPECT_EQ(truncate_to_int(std::nan("")), 0);
}
