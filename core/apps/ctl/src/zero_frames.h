#pragma once
// The frames that make a device's outputs dark.

#include <chrono>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "ondra/artnet_node_map.h"
#include "show.h"

namespace ctl {

/// A frame of zeros to send.
struct ZeroFrame {
    int universe = 0;
    Endpoint to;
    /// Who sends there otherwise: "playlist 1, 2", "node", "broadcast"; joined by ", ".
    std::string reason;
};

/**
 * Every place that a universe of the show can have been sent to, each once, ordered by universe.
 *
 * @param nodes      those of universes that the show does not light are left alone: somebody else does
 * @param broadcast  empty: no frames to a broadcast address
 */
[[nodiscard]] std::vector<ZeroFrame> plan_zero_frames(const ShowOutput& show,
                                                      const ondra::ArtnetNodeMap& nodes,
                                                      const std::string& broadcast);

/// What became of zero frames.
struct ZeroDelivery {
    /// Datagrams that the forwarder's socket took.
    std::size_t sent = 0;
    /// Port of 127.0.0.1 to what went wrong there.
    std::map<int, std::string> failures;
};

/**
 * Hands the frames to the forwarder, all of them `rounds` times, since a datagram may get lost on its way to
 * a receiver. A port that fails is given up.
 *
 * @param manufacturer  code of the device, for the datagrams' headers
 * @param pause         between two rounds
 * Blocks meanwhile.
 */
[[nodiscard]] ZeroDelivery send_zero_frames(std::span<const ZeroFrame> frames, std::uint16_t manufacturer,
                                            int rounds, std::chrono::milliseconds pause);

}  // namespace ctl
