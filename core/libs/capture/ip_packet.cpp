#include "capture/ip_packet.h"

#include <algorithm>
#include <cstddef>

#include <netinet/in.h>

namespace capture {

namespace {

constexpr std::size_t kIpHeader = 20;
constexpr std::size_t kUdpHeader = 8;
constexpr std::size_t kTotalLength = 2;
constexpr std::size_t kFragment = 6;
constexpr std::size_t kProtocol = 9;
constexpr std::size_t kSource = 12;
constexpr std::size_t kDestination = 16;
/// "More fragments", and the offset of this one.
constexpr unsigned kFragmentBits = 0x3FFF;

unsigned read16(std::span<const unsigned char> bytes, std::size_t at) noexcept {
    return unsigned{bytes[at]} << 8 | bytes[at + 1];
}

std::uint32_t read32(std::span<const unsigned char> bytes, std::size_t at) noexcept {
    return read16(bytes, at) << 16 | read16(bytes, at + 2);
}

}  // namespace

std::optional<UdpInPacket> udp_in(std::span<const unsigned char> packet) noexcept {
    if (packet.size() < kIpHeader || packet[0] >> 4 != 4 || packet[kProtocol] != IPPROTO_UDP ||
        (read16(packet, kFragment) & kFragmentBits) != 0) {
        return std::nullopt;
    }
    const std::size_t header = std::size_t{packet[0] & 0x0FU} * 4;
    const std::size_t total = read16(packet, kTotalLength);
    if (header < kIpHeader || total > packet.size() || total < header + kUdpHeader) {
        return std::nullopt;
    }
    const std::span<const unsigned char> udp = packet.subspan(header, total - header);
    const std::size_t length = read16(udp, 4);
    if (length < kUdpHeader || length > udp.size()) {
        return std::nullopt;
    }
    return UdpInPacket{{read32(packet, kSource), static_cast<std::uint16_t>(read16(udp, 0))},
                       {read32(packet, kDestination), static_cast<std::uint16_t>(read16(udp, 2))},
                       udp.subspan(kUdpHeader, length - kUdpHeader)};
}

}  // namespace capture
