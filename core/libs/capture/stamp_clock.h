#pragma once
// Makes the kernel's receive time stamps steady.

#include <chrono>

namespace capture {

/**
 * The kernel stamps with the wall clock, which somebody may set while a capture runs. This notices such steps
 * and takes them out again, so that differences of stamps are durations. Without a step, stamps stay as they
 * are, to the nanosecond.
 *
 * Gradual corrections of the wall clock go into the steady clock, too, and are left in. One thread.
 */
class StampClock {
public:
    /// A difference between two looks that is no step: what reading two clocks one after the other costs.
    static constexpr std::chrono::milliseconds kSmallestStep{1};

    /// Looks at the system's clocks; now and then, and before stamps are taken over.
    void look() noexcept;
    /// Takes in both clocks as read in the same moment; for look() and tests.
    void observe(std::chrono::nanoseconds wall, std::chrono::nanoseconds steady) noexcept;

    /// A kernel's stamp without the steps seen so far.
    [[nodiscard]] std::chrono::nanoseconds steady(std::chrono::nanoseconds stamp) const noexcept {
        return stamp + correction_;
    }
    /// This moment, comparable to steady().
    [[nodiscard]] std::chrono::nanoseconds now() const noexcept;

private:
    bool observed_ = false;
    /// Wall clock less steady clock at the last look.
    std::chrono::nanoseconds offset_{0};
    std::chrono::nanoseconds correction_{0};
};

}  // namespace capture
