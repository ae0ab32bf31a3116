#pragma once
// Holds what arrives against a recording: how late it is, what is missing, what is too much.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "capture/endpoint.h"
#include "timeline.h"

namespace monitor {

struct ComparisonCounts {
    /// Packets that are the recording's.
    std::uint64_t matched = 0;
    /// Packets of the recording that did not come although later ones did.
    std::uint64_t missing = 0;
    /// Packets of the recording's universes that are not the recording's next ones.
    std::uint64_t extra = 0;
    /// Packets of other universes, and of a universe's second stream.
    std::uint64_t ignored = 0;
    /// How often the place in the recording was lost and found anew.
    std::uint64_t resynchronised = 0;
};

/// One arrived ArtDmx packet.
struct ArrivedPacket {
    std::chrono::nanoseconds time{0};
    capture::Endpoint peer;
    std::uint16_t universe = 0;
    std::uint8_t sequence = 0;
    LevelMark levels = 0;
};

/**
 * Matches packets by universe and levels, in the recording's order, and measures each against the time at
 * which it is due. The first packet that matches is on time by definition; the recording loops.
 *
 * Where several packets have the same levels, the first that has not come yet is taken, or, where the first
 * match shows that the recorded sequence numbers come through, the one with the same number. A packet is
 * never taken for one that is due more than 20 ms later, less than a frame: what comes twice is not to be
 * taken for equal levels that come later. After a hundred packets in a row that match nothing, the place is
 * looked for anew.
 *
 * Of each universe one stream is followed, the first that matches. One thread.
 */
class Comparison {
public:
    static constexpr std::chrono::milliseconds kEarliest{20};
    static constexpr unsigned kLostAfter = 100;

    /// @param timeline  borrowed
    explicit Comparison(const Timeline& timeline) : timeline_(timeline) {}

    void add(const ArrivedPacket& packet);
    /// Counts as missing what should have come before the last match. Once, at the end.
    void finish();

    [[nodiscard]] const ComparisonCounts& counts() const noexcept { return counts_; }
    /// Of every matched packet, in the order of arrival; negative: before it was due.
    [[nodiscard]] std::span<const std::chrono::nanoseconds> lateness() const noexcept { return lateness_; }

private:
    using Packets = std::vector<ExpectedPacket>;

    struct Universe {
        /// Index of the next packet, counted on through all rounds of the recording.
        std::uint64_t next = 0;
        std::optional<capture::Endpoint> peer;
    };

    [[nodiscard]] std::chrono::nanoseconds due(const Packets& packets, std::uint64_t index) const;
    /// Finds the place of the first packet; false when the recording does not hold it.
    [[nodiscard]] bool find_place(const Packets& packets, const ArrivedPacket& packet);
    /// The packet's index; nothing when it is not one of the next ones.
    [[nodiscard]] std::optional<std::uint64_t> find(const Packets& packets, const Universe& universe,
                                                    const ArrivedPacket& packet) const;
    void add_extra();

    const Timeline& timeline_;
    std::map<std::uint16_t, Universe> universes_;
    /// Arrival less due time of the first match; nothing while the place is not known.
    std::optional<std::chrono::nanoseconds> offset_;
    bool sequences_come_through_ = false;
    unsigned extras_in_a_row_ = 0;
    /// The latest due time of a match.
    std::chrono::nanoseconds reached_{0};
    ComparisonCounts counts_;
    std::vector<std::chrono::nanoseconds> lateness_;
};

}  // namespace monitor
