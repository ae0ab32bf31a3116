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

TEST(LogLimiterTest, LineNeedsBothLimitersAndTellsWhatEitherWithheld) {
    LogLimiter own(1, seconds(10));
    LogLimiter common(1, seconds(1));
    EXPECT_EQ(forwarder::admit(own, common, kStart), 0U);
    EXPECT_FALSE(forwarder::admit(own, common, kStart + seconds(1)));
    LogLimiter other(1, seconds(10));
    EXPECT_EQ(forwarder::admit(other, common, kStart + seconds(1)), 0U)
        << "own's refusal cost common nothing";
    EXPECT_EQ(forwarder::admit(own, common, kStart + seconds(10)), 1U);
}

TEST(LogLimiterTest, WhatOneKindWithheldIsNotLostWhenItsTurnComesAtABadMoment) {
    LogLimiter own(1, seconds(10));
    LogLimiter other(1, seconds(10));
    LogLimiter common(1, seconds(100));
    std::uint64_t told = 0;
    std::uint64_t lines = 0;
    std::uint64_t events = 0;
    const auto happens = [&](LogLimiter& kind, seconds at) {
        ++events;
        if (const auto withheld = forwarder::admit(kind, common, kStart + at)) {
            ++lines;
            told += *withheld;
        }
    };
    happens(own, seconds(0));
    happens(own, seconds(1));   // withheld by its own limiter
    happens(own, seconds(10));  // its own would tell of that one now, the common one refuses
    happens(other, seconds(100));
    EXPECT_EQ(lines, 2U);
    EXPECT_EQ(told + lines, events);
}

}  // namespace
