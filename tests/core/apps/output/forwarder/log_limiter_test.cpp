// How many lines get through, and what is said of the others.
#include "log_limiter.h"

#include <gtest/gtest.h>

namespace {

using forwarder::LogLimiter;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr LogLimiter::Clock::time_point kStart{std::chrono::hours(1)};

TEST(LogLimiterTest, BurstGetsThroughAndTheRestIsWithheld) {
    LogLimiter limiter(2, seconds(10));
    EXPECT_EQ(limiter.admit(kStart), 0U);
    EXPECT_EQ(limiter.admit(kStart), 0U);
    EXPECT_FALSE(limiter.admit(kStart));
    EXPECT_FALSE(limiter.admit(kStart + milliseconds(9999)));
}

TEST(LogLimiterTest, NextLineSaysHowManyWereWithheldOnce) {
    LogLimiter limiter(1, seconds(10));
    EXPECT_EQ(limiter.admit(kStart), 0U);
    EXPECT_FALSE(limiter.admit(kStart));
    EXPECT_FALSE(limiter.admit(kStart));
    EXPECT_EQ(limiter.admit(kStart + seconds(10)), 2U);
    EXPECT_FALSE(limiter.admit(kStart + seconds(19)));
    EXPECT_EQ(limiter.admit(kStart + seconds(20)), 1U);
}

TEST(LogLimiterTest, LongSilenceEarnsNoMoreThanTheBurst) {
    LogLimiter limiter(2, seconds(1));
    EXPECT_TRUE(limiter.admit(kStart));
    EXPECT_TRUE(limiter.admit(kStart + seconds(1000)));
    EXPECT_TRUE(limiter.admit(kStart + seconds(1000)));
    EXPECT_FALSE(limiter.admit(kStart + seconds(1000)));
}

TEST(LogLimiterTest, PartOfAnIntervalIsNotLost) {
    LogLimiter limiter(1, seconds(10));
    EXPECT_TRUE(limiter.admit(kStart));
    EXPECT_FALSE(limiter.admit(kStart + seconds(6)));
    EXPECT_TRUE(limiter.admit(kStart + seconds(10)));
}

}  // namespace
