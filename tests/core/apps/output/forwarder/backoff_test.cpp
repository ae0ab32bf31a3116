// Pauses after errors.
#include "backoff.h"

#include <gtest/gtest.h>

namespace {

using forwarder::Backoff;
using std::chrono::milliseconds;

constexpr Backoff::Clock::time_point kStart{std::chrono::hours(1)};

TEST(BackoffTest, ReadyFromTheStart) {
    EXPECT_TRUE(Backoff().ready(kStart));
}

TEST(BackoffTest, FirstErrorPausesAHundredMilliseconds) {
    Backoff backoff;
    backoff.failed(kStart);
    EXPECT_FALSE(backoff.ready(kStart));
    EXPECT_FALSE(backoff.ready(kStart + milliseconds(99)));
    EXPECT_TRUE(backoff.ready(kStart + milliseconds(100)));
}

TEST(BackoffTest, PauseDoublesUpToTwoSeconds) {
    Backoff backoff;
    for (const int pause : {100, 200, 400, 800, 1600, 2000, 2000, 2000}) {
        backoff.failed(kStart);
        EXPECT_FALSE(backoff.ready(kStart + milliseconds(pause - 1))) << pause;
        EXPECT_TRUE(backoff.ready(kStart + milliseconds(pause))) << pause;
    }
}

TEST(BackoffTest, SuccessEndsThePauseAndStartsOver) {
    Backoff backoff;
    backoff.failed(kStart);
    backoff.failed(kStart);
    backoff.succeeded();
    EXPECT_TRUE(backoff.ready(kStart));
    backoff.failed(kStart);
    EXPECT_TRUE(backoff.ready(kStart + milliseconds(100)));
}

}  // namespace
