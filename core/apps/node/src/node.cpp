#include "node.h"

#include <utility>

#include "artnet/opcodes.h"

namespace node {

Node::Node(NodeSettings settings) : settings_(std::move(settings)), frames_(settings_.frame_gap) {
    for (const std::uint16_t universe : settings_.universes) {
        universes_[universe];
    }
}

std::vector<PollReply> Node::take(const capture::Datagram& datagram) {
    artnet::DmxPacket dmx;
    switch (artnet::decode_packet(datagram.bytes, dmx)) {
        case artnet::PacketKind::Dmx:
            take_dmx(dmx, datagram);
            break;
        case artnet::PacketKind::Sync:
            ++traffic_.other_packets;
            frames_.take_sync(datagram.time);
            break;
        case artnet::PacketKind::Other:
            return take_other(datagram);
        case artnet::PacketKind::Malformed:
        case artnet::PacketKind::NotArtNet:
            ++traffic_.malformed;
            break;
    }
    return {};
}

void Node::take_dmx(const artnet::DmxPacket& dmx, const capture::Datagram& datagram) {
    const auto own = universes_.find(dmx.universe);
    if (own == universes_.end()) {
        ++traffic_.other_universes;
        return;
    }
    ++traffic_.frames;
    own->second.take(dmx.sequence, dmx.levels, datagram.time, datagram.sender);
    frames_.take_dmx(dmx.universe, datagram.time);
}

std::vector<PollReply> Node::take_other(const capture::Datagram& datagram) {
    if (artnet::opcode_of(datagram.bytes) != opcode::kPoll) {
        ++traffic_.other_packets;
        return {};
    }
    if (!artnet::decode_poll(datagram.bytes)) {
        ++traffic_.malformed;
        return {};
    }
    ++traffic_.polls;
    return answer_poll(settings_.universes, settings_.name, datagram.own_address, settings_.port);
}

}  // namespace node
