#pragma once
// Notices universes that two senders drive at the same time.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "capture/endpoint.h"

namespace capture {

/// Two senders of one universe.
struct SenderConflict {
    std::uint16_t universe = 0;
    Endpoint first;
    Endpoint second;

    bool operator==(const SenderConflict&) const = default;
};

/**
 * A sender that takes over from another is no conflict; one that sends again within two seconds after another
 * has sent is. One thread.
 */
class SenderWatch {
public:
    static constexpr std::chrono::seconds kWindow{2};

    /// Takes in a packet; the conflict that it shows, the first time these two are seen to have it.
    std::optional<SenderConflict> add(std::uint16_t universe, const Endpoint& sender,
                                      std::chrono::nanoseconds time);

    /// Whether the universe has had a conflict in the two seconds before `now`.
    [[nodiscard]] bool conflicting(std::uint16_t universe, std::chrono::nanoseconds now) const;

    /// All conflicts seen, by universe.
    [[nodiscard]] std::vector<SenderConflict> conflicts() const;

private:
    /// Senders remembered for one universe; more are a flood.
    static constexpr std::size_t kMostSenders = 8;

    struct Sender {
        Endpoint endpoint;
        std::chrono::nanoseconds last{0};
    };
    struct Universe {
        Endpoint latest;
        std::vector<Sender> senders;
        std::vector<std::pair<Endpoint, Endpoint>> conflicts;
        std::optional<std::chrono::nanoseconds> last_conflict;
    };

    static Sender& sender_of(Universe& universe, const Endpoint& endpoint, bool& known);

    std::map<std::uint16_t, Universe> universes_;
};

}  // namespace capture
