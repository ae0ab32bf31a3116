#pragma once
// What arrives for one universe.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>

#include "capture/endpoint.h"
#include "interval_histogram.h"

namespace node {

/// When something arrived, by the kernel's clock.
using Arrival = std::chrono::nanoseconds;

/// Counts the ArtDmx packets of one universe and watches their sequence numbers.
class UniverseStatistics {
public:
    /// Levels that are kept of the latest packet.
    static constexpr std::size_t kShownLevels = 16;
    /// Senders that are told apart; later ones are counted together with the last of these.
    static constexpr std::size_t kMaxSenders = 16;

    /// @param sequence  0: the sender does not number its packets
    void take(std::uint8_t sequence, std::span<const std::uint8_t> levels, Arrival arrival,
              const capture::Endpoint& sender);

    [[nodiscard]] std::uint64_t packets() const { return packets_; }
    /// Numbers that were skipped and did not come later.
    [[nodiscard]] std::uint64_t lost() const { return lost_; }
    /// Packets that came after one with a later number.
    [[nodiscard]] std::uint64_t late() const { return late_; }
    /// Packets with the number of the one before.
    [[nodiscard]] std::uint64_t repeated() const { return repeated_; }
    [[nodiscard]] std::size_t senders() const { return last_.size(); }
    /// Packets per second between the first and the last; 0 with less than two.
    [[nodiscard]] double fps() const;
    [[nodiscard]] const IntervalHistogram& intervals() const { return intervals_; }
    /// The first channels of the latest packet.
    [[nodiscard]] std::span<const std::uint8_t> levels() const { return {levels_.data(), level_count_}; }

private:
    struct Last {
        std::uint8_t sequence = 0;
        /// The packet before this one came late, and had been counted as lost.
        bool was_late = false;
        bool thought_lost = false;
    };
    void watch_sequence(std::uint8_t sequence, Last& last);

    std::uint64_t packets_ = 0;
    std::uint64_t lost_ = 0;
    std::uint64_t late_ = 0;
    std::uint64_t repeated_ = 0;
    Arrival first_{0};
    Arrival latest_{0};
    IntervalHistogram intervals_;
    std::map<capture::Endpoint, Last> last_;
    std::array<std::uint8_t, kShownLevels> levels_{};
    std::size_t level_count_ = 0;
};

}  // namespace node
