#pragma once
// Which of several copies of a universe is recorded.

#include <chrono>
#include <cstdint>
#include <map>

#include "capture/endpoint.h"
#include "capture/sender_watch.h"

namespace recording {

/**
 * The service hands its forwarder one datagram for each destination of a universe, all with the same frame.
 * Of those copies one is recorded: that of the destination that came first. When nothing has gone to it for
 * the time in which two senders would be a conflict, another takes its place, as after a node was
 * found. One thread.
 */
class DestinationChoice {
public:
    /// Takes in a packet; whether it is one to be recorded.
    [[nodiscard]] bool chooses(std::uint16_t universe, const capture::Endpoint& destination,
                               std::chrono::nanoseconds time) {
        const auto [entry, is_new] = chosen_.try_emplace(universe, Chosen{destination, time});
        Chosen& chosen = entry->second;
        if (!is_new && chosen.destination != destination) {
            if (time - chosen.latest <= capture::SenderWatch::kWindow) {
                return false;
            }
            chosen.destination = destination;
        }
        chosen.latest = time;
        return true;
    }

private:
    struct Chosen {
        capture::Endpoint destination;
        std::chrono::nanoseconds latest{0};
    };

    std::map<std::uint16_t, Chosen> chosen_;
};

}  // namespace recording
