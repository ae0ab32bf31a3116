#pragma once
// A captured datagram, read as Art-Net.

#include <chrono>

#include "artnet/packet_decoder.h"
#include "capture/endpoint.h"
#include "capture/source.h"

namespace capture {

/// What datagrams hold.
enum class Payload {
    Plain,   ///< Art-Net
    Wrapped  ///< forwarding datagrams, Art-Net behind a header that names the destination
};

/// Valid as long as the datagram.
struct Arrival {
    std::chrono::nanoseconds time{0};
    /// Plain: who sent it. Wrapped: where it is to go, since all of them come from the service.
    Endpoint peer;
    artnet::PacketKind kind = artnet::PacketKind::NotArtNet;
    /// Filled when `kind` is Dmx.
    artnet::DmxPacket dmx;
};

[[nodiscard]] Arrival read_arrival(const Datagram& datagram, Payload payload) noexcept;

}  // namespace capture
