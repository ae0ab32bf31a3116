#include "node.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "artnet/opcodes.h"
#include "artnet/records.h"

namespace node {

namespace {

// Places in an ArtDmx packet.
constexpr std::size_t kSequenceAt = offsetof(ArtDmx, Sequence);
constexpr std::size_t kUniverseAt = offsetof(ArtDmx, SubUni);
constexpr std::size_t kLengthAt = offsetof(ArtDmx, Length);

/// The opcode of a packet; nothing for what is none.
std::optional<std::uint16_t> opcode_of(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < sizeof(ArtHeader) ||
        std::memcmp(bytes.data(), kArtNetIdentifier.data(), kArtNetIdentifier.size()) != 0) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(bytes[8] | bytes[9] << 8);
}

Sender sender_of(const Datagram& datagram) {
    return Sender{datagram.sender_address} << 16 | datagram.sender_port;
}

}  // namespace

Node::Node(NodeSettings settings) : settings_(std::move(settings)), frames_(settings_.frame_gap) {
    for (const std::uint16_t universe : settings_.universes) {
        universes_[universe];
    }
}

std::vector<PollReply> Node::take(const Datagram& datagram) {
    const std::optional<std::uint16_t> code = opcode_of(datagram.bytes);
    if (!code) {
        ++traffic_.malformed;
    } else if (*code == opcode::kDmx) {
        take_dmx(datagram);
    } else if (*code == opcode::kPoll && artnet::decode_poll(datagram.bytes)) {
        ++traffic_.polls;
        return answer_poll(settings_.universes, settings_.name, datagram.own_address, settings_.port);
    } else if (*code == opcode::kPoll) {
        ++traffic_.malformed;
    } else {
        ++traffic_.other_packets;
        if (*code == opcode::kSync) {
            frames_.take_sync(datagram.arrival);
        }
    }
    return {};
}

void Node::take_dmx(const Datagram& datagram) {
    const std::span<const std::uint8_t> bytes = datagram.bytes;
    const std::size_t length =
        bytes.size() < kDmxHeaderSize ? 0 : std::size_t{bytes[kLengthAt]} << 8 | bytes[kLengthAt + 1];
    if (length == 0 || length > kMaxDmxChannels || bytes.size() < kDmxHeaderSize + length) {
        ++traffic_.malformed;
        return;
    }
    const auto universe = static_cast<std::uint16_t>(bytes[kUniverseAt] | bytes[kUniverseAt + 1] << 8);
    const auto own = universes_.find(universe);
    if (own == universes_.end()) {
        ++traffic_.other_universes;
        return;
    }
    ++traffic_.frames;
    own->second.take(bytes[kSequenceAt], bytes.subspan(kDmxHeaderSize, length), datagram.arrival,
                     sender_of(datagram));
    frames_.take_dmx(universe, datagram.arrival);
}

}  // namespace node
