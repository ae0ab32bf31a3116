#pragma once
// The node: takes datagrams, answers polls, counts frames.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "artnet/packet_decoder.h"
#include "capture/source.h"
#include "frame_statistics.h"
#include "poll_answer.h"
#include "universe_statistics.h"

namespace node {

/// What a node is.
struct NodeSettings {
    std::string name = "cuewright-node";
    /// Ascending, each once.
    std::vector<std::uint16_t> universes;
    std::uint16_t port = artnet::kPort;
    /// A pause that separates frames.
    std::chrono::nanoseconds frame_gap{5'000'000};
};

/// Datagrams by what they were.
struct Traffic {
    std::uint64_t polls = 0;
    /// ArtDmx for a universe of this node.
    std::uint64_t frames = 0;
    /// ArtDmx for others.
    std::uint64_t other_universes = 0;
    /// Other packets of the protocol.
    std::uint64_t other_packets = 0;
    /// What is no Art-Net, or cut short, or too long.
    std::uint64_t malformed = 0;
};

/// Not for several threads.
class Node {
public:
    explicit Node(NodeSettings settings);

    /// Takes a datagram; what is to be sent back to its sender's address, at the node's own port.
    [[nodiscard]] std::vector<PollReply> take(const capture::Datagram& datagram);

    [[nodiscard]] const NodeSettings& settings() const { return settings_; }
    [[nodiscard]] const Traffic& traffic() const { return traffic_; }
    /// Every universe of the node, also those for which nothing has come.
    [[nodiscard]] const std::map<std::uint16_t, UniverseStatistics>& universes() const { return universes_; }
    [[nodiscard]] const FrameStatistics& frames() const { return frames_; }

private:
    void take_dmx(const artnet::DmxPacket& dmx, const capture::Datagram& datagram);
    [[nodiscard]] std::vector<PollReply> take_other(const capture::Datagram& datagram);

    NodeSettings settings_;
    Traffic traffic_;
    std::map<std::uint16_t, UniverseStatistics> universes_;
    FrameStatistics frames_;
};

}  // namespace node
