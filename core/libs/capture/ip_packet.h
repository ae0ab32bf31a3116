#pragma once
// Takes a UDP datagram out of an IPv4 packet.

#include <optional>
#include <span>

#include "capture/endpoint.h"

namespace capture {

/// A UDP datagram within a packet, which it borrows.
struct UdpInPacket {
    Endpoint sender;
    Endpoint receiver;
    std::span<const unsigned char> payload;
};

/// Nothing unless the packet is a whole UDP datagram over IPv4: no fragment, no length beyond the packet.
/// Checksums are not looked at; on loopback there are none.
[[nodiscard]] std::optional<UdpInPacket> udp_in(std::span<const unsigned char> packet) noexcept;

}  // namespace capture
