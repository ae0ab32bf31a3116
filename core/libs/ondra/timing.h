#pragma once
// Monotonic time, coarse sleeps, spinning waits and the arithmetic of frame delays.

#include <chrono>
#include <functional>

namespace ondra {

/**
 * Monotonic clock of signed 64-bit nanoseconds; its epoch is the process's first call of now().
 * Any thread; also two threads may make the first call together.
 */
struct Clock {
    using rep = long long;
    using period = std::nano;
    using duration = std::chrono::duration<rep, period>;
    using time_point = std::chrono::time_point<Clock, duration>;
    static constexpr bool is_steady = true;

    static time_point now();
};

/// `t` + `d`, held at the ends of the 64-bit range instead of overflowing.
[[nodiscard]] Clock::time_point saturating_add(Clock::time_point t, Clock::duration d) noexcept;
[[nodiscard]] Clock::duration saturating_add(Clock::duration a, Clock::duration b) noexcept;

/// Sleeps `d`, cut to whole microseconds; zero or less returns at once. Blocks in the kernel.
void sleep_for(Clock::duration d);

/// Sleeps until `t`; a moment in the past returns at once.
void sleep_until(Clock::time_point t);

/// Spins, yielding the processor, until now() has reached `t`; never returns early.
void wait_until(Clock::time_point t);

/// wait_until(now() + d), saturating.
void wait_for(Clock::duration d);

/// Spins while `predicate` is true; has no bound of its own. Throws std::bad_function_call when it is empty.
void wait_while(const std::function<bool()>& predicate);

/**
 * Spins while `predicate` is true and `timeout` has not passed; asks the predicate at least once.
 *
 * Returns true when the predicate became false, false after the time-out.
 */
bool wait_while(const std::function<bool()>& predicate, Clock::duration timeout);

/**
 * Frame period of `fps` frames per second, truncated to whole nanoseconds.
 *
 * A rate of 0 or less has no period. It yields one second: playback goes on, visibly slow, and a wrong
 * number in a show file can neither stop a playlist for ever nor flood the network.
 */
[[nodiscard]] Clock::duration calculate_delay(int fps);

/**
 * `delay` scaled by a speed boost in percent: -100 doubles it, 0 keeps it, 100 halves it; beyond ±100 the
 * ends hold. The slope is on purpose twice as steep below zero. Saturates at the 64-bit range.
 */
[[nodiscard]] Clock::duration calculate_delay(Clock::duration delay, int speed_boost);

}  // namespace ondra
