#include "ondra/timing.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <limits>
#include <thread>
#include <vector>

#include <sched.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/eventually.h"

namespace {

using namespace std::chrono_literals;
using ondra::calculate_delay;
using ondra::Clock;
using testing::ElementsAre;
using testing::IsEmpty;

/// Calls of usleep() and sched_yield() by the functions under test.
std::vector<useconds_t> sleeps;
bool really_sleep = true;
int interrupted_sleep = -1;  ///< index of the call that a signal interrupts; -1 for none
std::atomic<int> yields{0};

}  // namespace

extern "C" {
int __real_usleep(useconds_t microseconds);
int __real_sched_yield();
int __wrap_usleep(useconds_t microseconds);
int __wrap_sched_yield();

int __wrap_usleep(useconds_t microseconds) {
    sleeps.push_back(microseconds);
    if (static_cast<int>(sleeps.size()) - 1 == interrupted_sleep) {
        errno = EINTR;
        return -1;
    }
    return really_sleep ? __real_usleep(microseconds) : 0;
}

int __wrap_sched_yield() {
    ++yields;
    return __real_sched_yield();
}
}

namespace {

/// The process's first two calls of now(), made together by two threads before anything else.
struct FirstCalls {
    FirstCalls() {
        const auto begin = std::chrono::steady_clock::now();
        std::thread other([this] { second = Clock::now(); });
        first = Clock::now();
        other.join();
        longest = std::chrono::steady_clock::now() - begin;
    }
    Clock::time_point first;
    Clock::time_point second;
    /// What both calls took together, measured by another clock.
    Clock::duration longest{};
};
const FirstCalls kFirstCalls;

class TimingTest : public testing::Test {
protected:
    TimingTest() {
        sleeps.clear();
        really_sleep = true;
        interrupted_sleep = -1;
        yields = 0;
    }
};

TEST_F(TimingTest, ClockStartsAtItsFirstCallAlsoWhenTwoThreadsMakeItTogether) {
    for (const Clock::time_point call : {kFirstCalls.first, kFirstCalls.second}) {
        EXPECT_GE(call.time_since_epoch(), 0ns);
        EXPECT_LE(call.time_since_epoch(), kFirstCalls.longest);
    }
}

TEST_F(TimingTest, ClockCountsSignedNanosecondsAndNeverGoesBack) {
    static_assert(std::is_same_v<Clock::duration, std::chrono::duration<long long, std::nano>>);
    static_assert(std::is_same_v<Clock::time_point, std::chrono::time_point<Clock, Clock::duration>>);
    static_assert(Clock::is_steady);
    Clock::time_point last = Clock::now();
    for (int i = 0; i < 1000; ++i) {
        const Clock::time_point next = Clock::now();
        EXPECT_GE(next, last);
        last = next;
    }
}

TEST_F(TimingTest, ClockGoesAtTheRateOfTheMonotonicClock) {
    const auto outer = std::chrono::steady_clock::now();
    const Clock::time_point begin = Clock::now();
    const auto inner = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - inner < 20ms) {
    }
    const auto inner_end = std::chrono::steady_clock::now();
    const Clock::duration elapsed = Clock::now() - begin;
    const auto outer_end = std::chrono::steady_clock::now();
    EXPECT_GE(elapsed, inner_end - inner);
    EXPECT_LE(elapsed, outer_end - outer);
}

TEST_F(TimingTest, SleepForCutsToMicroseconds) {
    ondra::sleep_for(1999ns);
    ondra::sleep_for(25us);
    EXPECT_THAT(sleeps, ElementsAre(1U, 25U));
}

TEST_F(TimingTest, SleepForLessThanAMicrosecondSleepsZero) {
    ondra::sleep_for(999ns);
    ondra::sleep_for(1ns);
    EXPECT_THAT(sleeps, ElementsAre(0U, 0U));
}

TEST_F(TimingTest, SleepForZeroOrLessReturnsAtOnce) {
    ondra::sleep_for(0ns);
    ondra::sleep_for(-5s);
    ondra::sleep_for(Clock::duration::min());
    EXPECT_THAT(sleeps, IsEmpty());
}

TEST_F(TimingTest, SleepForSplitsWhatUsleepCannotTake) {
    really_sleep = false;
    ondra::sleep_for(5000s + 7us);
    EXPECT_GT(sleeps.size(), 1U);
    long long sum = 0;
    for (const useconds_t part : sleeps) {
        sum += part;
    }
    EXPECT_EQ(sum, 5'000'000'007);
}

TEST_F(TimingTest, InterruptedSleepEnds) {
    really_sleep = false;
    interrupted_sleep = 0;
    ondra::sleep_for(5000s);
    EXPECT_EQ(sleeps.size(), 1U);
}

TEST_F(TimingTest, SleepForNeverReturnsEarly) {
    const Clock::time_point begin = Clock::now();
    ondra::sleep_for(3ms);
    EXPECT_GE(Clock::now() - begin, 3ms);
}

TEST_F(TimingTest, SleepUntilThePastDoesNotSleep) {
    ondra::sleep_until(Clock::now());
    ondra::sleep_until(Clock::time_point::min());
    EXPECT_THAT(sleeps, IsEmpty());
}

TEST_F(TimingTest, SleepUntilSleepsWhatIsLeft) {
    really_sleep = false;
    const Clock::time_point begin = Clock::now();
    ondra::sleep_until(begin + 10s);
    const Clock::duration spent = Clock::now() - begin;
    ASSERT_EQ(sleeps.size(), 1U);
    EXPECT_LE(sleeps[0], 10'000'000U);
    EXPECT_GE(sleeps[0], 10'000'000U - static_cast<useconds_t>(spent / 1us) - 1);
}

TEST_F(TimingTest, WaitUntilSpinsAndNeverReturnsEarly) {
    // On a busy machine the moment may have passed before the wait begins; then there is no spin to see.
    EXPECT_TRUE(eventually([] {
        const Clock::time_point due = Clock::now() + 3ms;
        ondra::wait_until(due);
        EXPECT_GE(Clock::now(), due);
        return yields > 0;
    }));
    EXPECT_THAT(sleeps, IsEmpty());
}

TEST_F(TimingTest, WaitUntilThePastReturnsAtOnce) {
    ondra::wait_until(Clock::time_point::min());
    ondra::wait_until(Clock::now());
    EXPECT_EQ(yields, 0);
}

TEST_F(TimingTest, WaitForSpinsTheDuration) {
    const Clock::time_point begin = Clock::now();
    ondra::wait_for(3ms);
    EXPECT_GE(Clock::now() - begin, 3ms);
    EXPECT_THAT(sleeps, IsEmpty());
    yields = 0;
    ondra::wait_for(-1s);
    EXPECT_EQ(yields, 0);
}

TEST_F(TimingTest, WaitWhileReturnsWhenThePredicateIsFalse) {
    int asked = 0;
    ondra::wait_while([&asked] { return ++asked < 4; });
    EXPECT_EQ(asked, 4);
    EXPECT_EQ(yields, 3);
    EXPECT_THAT(sleeps, IsEmpty());
}

TEST_F(TimingTest, WaitWhileWithTimeoutReturnsTrueAtOnceForAFalsePredicate) {
    int asked = 0;
    EXPECT_TRUE(ondra::wait_while([&asked] { return ++asked < 1; }, 1h));
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(yields, 0);
}

TEST_F(TimingTest, WaitWhileWithTimeoutReturnsTrueWhenThePredicateTurnsFalse) {
    int asked = 0;
    EXPECT_TRUE(ondra::wait_while([&asked] { return ++asked < 4; }, 1h));
    EXPECT_EQ(asked, 4);
    EXPECT_EQ(yields, 3);
}

TEST_F(TimingTest, WaitWhileReturnsFalseAfterTheTimeout) {
    const Clock::time_point begin = Clock::now();
    EXPECT_FALSE(ondra::wait_while([] { return true; }, 3ms));
    EXPECT_GE(Clock::now() - begin, 3ms);
}

TEST_F(TimingTest, WaitWhileAsksAtLeastOnce) {
    int asked = 0;
    const auto never = [&asked] {
        ++asked;
        return true;
    };
    EXPECT_FALSE(ondra::wait_while(never, 0ns));
    EXPECT_EQ(asked, 1);
    EXPECT_FALSE(ondra::wait_while(never, Clock::duration::min()));
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(yields, 0);
}

TEST_F(TimingTest, WaitWhileWithALimitlessTimeoutWaits) {
    int asked = 0;
    EXPECT_TRUE(ondra::wait_while([&asked] { return ++asked < 3; }, Clock::duration::max()));
    EXPECT_EQ(asked, 3);
}

TEST_F(TimingTest, EmptyPredicateThrows) {
    EXPECT_THROW(ondra::wait_while(std::function<bool()>()), std::bad_function_call);
    EXPECT_THROW(static_cast<void>(ondra::wait_while(std::function<bool()>(), 1ms)), std::bad_function_call);
}

TEST(SaturatingAddTest, SumsStayInRange) {
    EXPECT_EQ(ondra::saturating_add(2ns, 3ns), 5ns);
    EXPECT_EQ(ondra::saturating_add(2ns, -3ns), -1ns);
    EXPECT_EQ(ondra::saturating_add(Clock::duration::max(), 1ns), Clock::duration::max());
    EXPECT_EQ(ondra::saturating_add(Clock::duration::max() - 1ns, 1ns), Clock::duration::max());
    EXPECT_EQ(ondra::saturating_add(Clock::duration::min(), -1ns), Clock::duration::min());
    EXPECT_EQ(ondra::saturating_add(Clock::duration::min(), Clock::duration::max()), -1ns);
    const Clock::time_point late{Clock::duration::max() - 5ns};
    EXPECT_EQ(ondra::saturating_add(late, 6ns), Clock::time_point::max());
    EXPECT_EQ(ondra::saturating_add(late, -1ns).time_since_epoch(), Clock::duration::max() - 6ns);
}

TEST(CalculateDelayTest, FrameRateGivesTheFramePeriodCutToNanoseconds) {
    EXPECT_EQ(calculate_delay(25), 40000000ns);
    EXPECT_EQ(calculate_delay(30), 33333333ns);
    EXPECT_EQ(calculate_delay(1), 1s);
    EXPECT_EQ(calculate_delay(60), 16666666ns);
    EXPECT_EQ(calculate_delay(std::numeric_limits<int>::max()), 0ns);
}

TEST(CalculateDelayTest, FrameRateOfZeroOrLessIsOneSecond) {
    EXPECT_EQ(calculate_delay(0), 1s);
    EXPECT_EQ(calculate_delay(-25), 1s);
    EXPECT_EQ(calculate_delay(std::numeric_limits<int>::min()), 1s);
}

TEST(CalculateDelayTest, SpeedBoostScalesTheDelay) {
    EXPECT_EQ(calculate_delay(40000000ns, 0), 40000000ns);
    EXPECT_EQ(calculate_delay(40000000ns, 100), 20000000ns);
    EXPECT_EQ(calculate_delay(40000000ns, -100), 80000000ns);
    EXPECT_EQ(calculate_delay(40000000ns, 50), 30000000ns);
    EXPECT_EQ(calculate_delay(40000000ns, -50), 60000000ns);
    EXPECT_EQ(calculate_delay(40000000ns, 1), 39800000ns);
    EXPECT_EQ(calculate_delay(40000000ns, -1), 40400000ns);
}

TEST(CalculateDelayTest, SpeedBoostBeyondTheEndsIsHeldThere) {
    EXPECT_EQ(calculate_delay(40000000ns, 1000), 20000000ns);
    EXPECT_EQ(calculate_delay(40000000ns, 101), 20000000ns);
    EXPECT_EQ(calculate_delay(40000000ns, -101), 80000000ns);
    EXPECT_EQ(calculate_delay(40000000ns, std::numeric_limits<int>::min()), 80000000ns);
    EXPECT_EQ(calculate_delay(40000000ns, std::numeric_limits<int>::max()), 20000000ns);
}

TEST(CalculateDelayTest, ResultIsCutTowardsZero) {
    EXPECT_EQ(calculate_delay(3ns, 100), 1ns);
    EXPECT_EQ(calculate_delay(-3ns, 100), -1ns);
    EXPECT_EQ(calculate_delay(0ns, -100), 0ns);
}

TEST(CalculateDelayTest, DelayPastTheRangeIsHeldAtItsEnd) {
    EXPECT_EQ(calculate_delay(Clock::duration::max(), -100), Clock::duration::max());
    EXPECT_EQ(calculate_delay(Clock::duration::max(), 0), Clock::duration::max());
    EXPECT_EQ(calculate_delay(Clock::duration::min(), -200), Clock::duration::min());
    EXPECT_EQ(calculate_delay(Clock::duration::min(), 0), Clock::duration::min());
}

}  // namespace
