// Where a packet goes, and the one exit of every frame. All on the render worker.

#include "repeater.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <span>

#include "artnet/forwarding_datagram.h"
#include "ondra/device_info.h"
#include "ondra/logger.h"
#include "ondra/timing.h"

namespace {

/// Header and at least one channel; nothing shorter is sent.
constexpr std::size_t kSmallestPacket = kDmxHeaderSize + 1;

/// Zone of a universe that is muted on purpose.
constexpr int kMutedZone = -2;

constexpr const char* kForwarderIp = "127.0.0.1";

/// Converted once: sending parses no address.
const ondra::net::HostAddress& forwarder_address() {
    static const ondra::net::HostAddress address{kForwarderIp};
    return address;
}

}  // namespace

bool Repeater::send_packet(const Playlist& playlist, int index, const Playlist::Packet& packet) {
    if (!rehearsal_end_) {
        ONDRA_LOG(ondra::kSendTrace, "[Repeater::send_packet] Send packet (index:%d, bytes:%u, universe:%d)",
                  index, static_cast<unsigned>(packet.data.size()), packet.universe);
    }
    if (packet.data.size() < kSmallestPacket) {
        return false;
    }
    const Address* addresses = nullptr;
    int count = 0;
    int zone = Playlist::kNoZone;
    if (!playlist.packet_info(index, &addresses, count, zone)) {
        return false;
    }
    if (zone == kMutedZone) {
        return true;
    }
    if (addresses != nullptr) {
        return send_to_destinations(playlist, packet, zone, {addresses, static_cast<std::size_t>(count)});
    }
    if (unicast_enabled_) {
        return send_to_nodes(playlist, packet, zone);
    }
    return send_to_address(merge(playlist, packet, zone, nullptr), broadcast_address_);
}

const DmxPacket& Repeater::merge(const Playlist& playlist, const Playlist::Packet& packet, int zone,
                                 const Address* destination) {
    MergePacket& frame = get_merge_packet(packet.universe, destination);
    if (!rehearsal_end_) {
        modify_packet(frame, packet.data, playlist.id(), playlist.get_brightness(), zone);
        return frame.packet;
    }
    // The bytes alone are put back: to copy owners and masks as well would take the longer the more zones the
    // frame has, and the masks that are made here are those of the real packet.
    const DmxPacket before = frame.packet;
    modify_packet(frame, packet.data, playlist.id(), playlist.get_brightness(), zone);
    rehearsed_packet_ = frame.packet;
    frame.packet = before;
    return rehearsed_packet_;
}

bool Repeater::send_to_destinations(const Playlist& playlist, const Playlist::Packet& packet, int zone,
                                    std::span<const Address> destinations) {
    const auto send = [&](const Address& destination) ONDRA_REQUIRES_SHARED(lock_) {
        return send_to_address(merge(playlist, packet, zone, &destination), destination);
    };
    // The first failure ends the packet: the destinations after it get the next one.
    return !destinations.empty() && std::all_of(destinations.begin(), destinations.end(), send);
}

bool Repeater::send_to_nodes(const Playlist& playlist, const Playlist::Packet& packet, int zone) {
    const std::vector<ondra::ArtnetNode>& nodes = node_map_[packet.universe];
    if (nodes.empty()) {
        return false;
    }
    const ondra::ArtnetNode* previous = nullptr;
    for (const ondra::ArtnetNode& node : nodes) {
        // A node announced twice stands twice, side by side.
        const bool repeated = previous != nullptr && node == *previous;
        previous = &node;
        if (repeated) {
            continue;
        }
        node_address_.ip = node.ip;
        node_address_.port = node.port;
        if (!send_to_address(merge(playlist, packet, zone, nullptr), node_address_)) {
            return false;
        }
    }
    return true;
}

bool Repeater::send_to_address(const DmxPacket& packet, const Address& address) const {
    if (!rehearsal_end_) {
        ONDRA_LOG(ondra::kSendTrace,
                  "[Repeater::send_to_address] Send packet (bytes:%u, address:(%s:%d)), proxy: %s",
                  static_cast<unsigned>(packet.size()), address.ip.c_str(), address.port, kForwarderIp);
    }
    std::array<unsigned char, artnet::kForwardingDatagramSize> datagram;
    artnet::write_forwarding_header(std::span(datagram).first<artnet::kForwardingHeaderSize>(),
                                    ondra::device::manufacturer_id(), address.ip, address.port);
    std::copy(packet.begin(), packet.end(), datagram.begin() + artnet::kForwardingHeaderSize);
    if (rehearsal_end_) {
        // Keeps the compiler from leaving out a datagram that nobody gets.
        std::atomic_signal_fence(std::memory_order_seq_cst);
        return ondra::Clock::now() < *rehearsal_end_;
    }
    // A datagram of characters for the socket: the cast changes no byte.
    return socket_->writeDatagram(reinterpret_cast<const char*>(datagram.data()),
                                  static_cast<unsigned>(datagram.size()), forwarder_address(),
                                  address.port) != -1;
}
