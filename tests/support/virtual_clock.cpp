#include "support/virtual_clock.h"

#include <atomic>
#include <functional>
#include <limits>
#include <thread>

#include <sched.h>
#include <unistd.h>

namespace {

using std::chrono::nanoseconds;

/// Not zero, so that a moment never set shows.
constexpr long long kStart = 1'000'000'000;

std::atomic<long long> current{kStart};
std::atomic<long long> step_size{nanoseconds(VirtualClock::kStep).count()};
std::atomic<int> sleep_count{0};
std::atomic<long long> last_sleep_microseconds{0};
std::atomic<long long> turn_count{0};
std::atomic<bool> sleeps_held{false};
std::atomic<bool> sleeper_held{false};
std::atomic<bool> waits_exact{false};
/// Whether the thread has looked at the clock since its wait last asked the predicate.
thread_local bool asked_for_time = false;

/// Sets the clock to the first moment at which the predicate, true now, is false.
void seek_end_of(const std::function<bool()>& predicate) {
    constexpr long long kLast = std::numeric_limits<long long>::max();
    long long waiting = current.load();
    long long step = 1;
    long long over = waiting;
    do {
        over = waiting > kLast - step ? kLast : waiting + step;
        step = step > kLast / 2 ? kLast : step * 2;
        current.store(over);
    } while (predicate() && over != kLast);
    while (over - waiting > 1) {
        const long long middle = waiting + (over - waiting) / 2;
        current.store(middle);
        (predicate() ? waiting : over) = middle;
    }
    current.store(over);
}

}  // namespace

void VirtualClock::reset() {
    current.store(kStart);
    step_size.store(nanoseconds(kStep).count());
    sleep_count.store(0);
    last_sleep_microseconds.store(0);
    turn_count.store(0);
    hold_sleeps(false);
    waits_exact.store(false);
}

void VirtualClock::set_step(nanoseconds step) {
    step_size.store(step.count());
}

void VirtualClock::advance(nanoseconds time) {
    current.fetch_add(time.count());
}

ondra::Clock::time_point VirtualClock::now() {
    return ondra::Clock::time_point(ondra::Clock::duration(current.load()));
}

void VirtualClock::set_exact(bool exact) {
    waits_exact.store(exact);
}

void VirtualClock::hold_sleeps(bool hold) {
    // First: a sleeper that is just leaving must not count as held anew.
    sleeper_held.store(false);
    sleeps_held.store(hold);
}

bool VirtualClock::sleeper_is_held() {
    return sleeper_held.load();
}

int VirtualClock::sleeps() {
    return sleep_count.load();
}

std::chrono::microseconds VirtualClock::last_sleep() {
    return std::chrono::microseconds(last_sleep_microseconds.load());
}

long long VirtualClock::turns() {
    return turn_count.load();
}

// What the linker puts in the place of the named symbols (--wrap).

ondra::Clock::time_point virtual_now() __asm__("__wrap__ZN5ondra5Clock3nowEv");
ondra::Clock::time_point virtual_now() {
    asked_for_time = true;
    return VirtualClock::now();
}

void virtual_wait_while(const std::function<bool()>& predicate) __asm__(
    "__wrap__ZN5ondra10wait_whileERKSt8functionIFbvEE");
void virtual_wait_while(const std::function<bool()>& predicate) {
    asked_for_time = false;
    while (predicate()) {
        turn_count.fetch_add(1);
        const long long step = step_size.load();
        if (!asked_for_time || step == 0) {
            sched_yield();
        } else if (waits_exact.load()) {
            seek_end_of(predicate);
        } else {
            // Without a yield: a wait of some hundred turns that gives the processor away at each of them
            // takes seconds on a busy machine.
            VirtualClock::advance(nanoseconds(step));
        }
        asked_for_time = false;
    }
}

int virtual_usleep(useconds_t microseconds) __asm__("__wrap_usleep");
int virtual_usleep(useconds_t microseconds) {
    last_sleep_microseconds.store(microseconds);
    sleep_count.fetch_add(1);
    if (step_size.load() != 0) {
        VirtualClock::advance(std::chrono::microseconds(microseconds));
    }
    constexpr std::chrono::microseconds kTurn{200};
    std::this_thread::sleep_for(kTurn);
    while (sleeps_held.load()) {
        sleeper_held.store(true);
        std::this_thread::sleep_for(kTurn);
    }
    return 0;
}
