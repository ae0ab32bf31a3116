#pragma once
// What the playback service is told of: that a node listens to a universe, or no longer does.

#include <compare>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace netsurvey {

/// One node on one universe.
struct NodeRecord {
    /// Port-address, 0 to 32767.
    std::uint16_t universe = 0;
    /// IPv4, host byte order.
    std::uint32_t address = 0;
    std::uint16_t port = 0;

    auto operator<=>(const NodeRecord&) const = default;
};

/// A record that has come or gone.
struct Change {
    bool present = false;
    NodeRecord record;

    bool operator==(const Change&) const = default;
};
using Changes = std::vector<Change>;

/// "STATE:UNIVERSE:ADDRESS:PORT", STATE being 1 or 0.
[[nodiscard]] std::string to_text(const Change& change);
/// The same of each, separated by ";"; empty without any.
[[nodiscard]] std::string to_message(std::span<const Change> changes);

}  // namespace netsurvey
