#pragma once
// Numbered things in the order in which they fall due.

#include <chrono>
#include <cstddef>
#include <vector>

namespace forwarder {

/**
 * Numbers, each with the time at which it falls due, the earliest first.
 *
 * Whoever uses it adds about the same span to the present each time, so that times come in almost in order: a
 * new one's place is looked for from the end, a few steps away. Memory grows with the largest number ever
 * put and is kept; numbers are small and dense. Used by one thread.
 */
class DueList {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Adds the number, or moves it.
    void put(std::size_t number, Time due);
    /// Takes the number out, if it is there.
    void remove(std::size_t number) noexcept;

    [[nodiscard]] bool empty() const noexcept { return first_ == kNone; }
    [[nodiscard]] bool holds(std::size_t number) const noexcept {
        return number < nodes_.size() && nodes_[number].listed;
    }
    /// When the number, which is there, falls due.
    [[nodiscard]] Time due(std::size_t number) const noexcept { return nodes_[number].due; }
    /// The earliest; there must be one.
    [[nodiscard]] std::size_t first() const noexcept { return first_; }
    /// When the earliest falls due; the end of time when there is none.
    [[nodiscard]] Time first_due() const noexcept { return empty() ? Time::max() : nodes_[first_].due; }

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    struct Node {
        std::size_t before = kNone;
        std::size_t after = kNone;
        Time due;
        bool listed = false;
    };

    std::vector<Node> nodes_;
    std::size_t first_ = kNone;
    std::size_t last_ = kNone;
};

}  // namespace forwarder
