#pragma once
// Time under the control of a test, for tests that link it over ondra::Clock and usleep().

#include <chrono>

#include "ondra/timing.h"

/**
 * While a test runs, ondra::Clock shows this clock's time.
 *
 * Time moves in steps: each turn of a spinning wait for a moment adds one, and each usleep() adds its length,
 * so that such waits pass in no time and moments are exact, whatever the machine does. With a step of zero
 * time stands until advance() is called: a worker that waits for a due time then waits. Any thread.
 */
struct VirtualClock {
    static constexpr std::chrono::microseconds kStep{100};

    /// Time to a fixed start, step to kStep, counts to zero.
    static void reset();
    static void set_step(std::chrono::nanoseconds step);
    static void advance(std::chrono::nanoseconds time);
    /// A spinning wait for a moment now ends at that very nanosecond, whatever the step, unless time stands.
    static void set_exact(bool exact);
    static ondra::Clock::time_point now();

    /// While held, a usleep() does not return: an idle worker stays idle, outside all locks. One that is just
    /// between two sleeps comes by once more.
    static void hold_sleeps(bool hold);
    /// Whether, since sleeps are held, a thread is in one: it stays there until they are let go.
    static bool sleeper_is_held();

    /// Number of usleep() calls so far, and what the last one asked for.
    static int sleeps();
    static std::chrono::microseconds last_sleep();
    /// Turns of spinning waits so far: each asked its predicate and was told to go on waiting.
    static long long turns();
};
