#pragma once
// Halts the render worker at the top of a chosen cycle, so that a test's control calls fall at exact places.

#include <functional>

/**
 * Link it to have the worker pass here at the top of each cycle, where it lets waiting control calls in.
 *
 * A halted worker lets in every control call until it may go on, so that even calls that take the engine's
 * lock several times happen as a whole between two cycles: with VirtualClock, the whole run is then the same
 * each time. Static, for the one engine of the process.
 */
struct Conductor {
    /// Asked on the render worker at the top of each cycle.
    using Condition = std::function<bool()>;

    /// Never halts, counts cycles from zero. Not while an engine runs.
    static void reset();
    /// Halts at the first cycle, counted from the one after the present, where the condition holds.
    static void halt_when(Condition condition);
    /// Waits until the worker is halted; false when it still is not after a long while.
    [[nodiscard]] static bool wait_for_halt();
    /// Lets a halted worker go on until the condition holds; does not wait for that.
    static void go_on_until(Condition condition);
    /// Lets the worker go on for good. Before the engine is destroyed.
    static void let_go();

    /// Cycles begun, the one at whose top the worker stands included.
    static long long cycles();
};
