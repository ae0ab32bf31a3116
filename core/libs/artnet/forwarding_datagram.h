#pragma once
// The datagram that carries one Art-Net packet and its real destination to the local forwarder.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace artnet {

/// Bytes of the forwarding header, of the Art-Net packet behind it, and of both together.
inline constexpr std::size_t kForwardingHeaderSize = 24;
inline constexpr std::size_t kForwardedPacketSize = 530;
inline constexpr std::size_t kForwardingDatagramSize = kForwardingHeaderSize + kForwardedPacketSize;

/// Most characters of address text that the writer takes; more would run past the port field.
inline constexpr std::size_t kForwardingAddressLimit = 19;

/// The datagram as it lies on the wire; numbers are little-endian bytes, so alignment never matters.
struct ForwardingDatagram {
    /// ESTA manufacturer code of the sending device, unsigned 32 bits.
    std::array<unsigned char, 4> manufacturer;
    /// Destination as dotted IPv4 text, filled up with NUL.
    std::array<unsigned char, 16> address;
    /// Destination port, signed 32 bits.
    std::array<unsigned char, 4> port;
    /// Complete Art-Net packet.
    std::array<unsigned char, kForwardedPacketSize> packet;
};
static_assert(sizeof(ForwardingDatagram) == kForwardingDatagramSize);
static_assert(offsetof(ForwardingDatagram, address) == 4);
static_assert(offsetof(ForwardingDatagram, port) == 20);
static_assert(offsetof(ForwardingDatagram, packet) == kForwardingHeaderSize);

/**
 * Writes all 24 header bytes: the address text, cut at 19 characters, then manufacturer and port.
 *
 * The port is written last on purpose: it replaces what a text longer than its 16-byte field left there.
 * A text ends at its first NUL. `port` is written as it is, also outside 16 bits. Cannot fail.
 */
void write_forwarding_header(std::span<unsigned char, kForwardingHeaderSize> header,
                             std::uint16_t manufacturer, std::string_view ip, int port) noexcept;

/// What is wrong with a forwarding datagram, in the order in which it is looked at.
enum class ForwardingFault {
    None,
    Size,                 ///< not 554 bytes
    UnterminatedAddress,  ///< no NUL within the address field
    InvalidAddress,       ///< not a dotted IPv4 address
    Port,                 ///< outside 1 to 65535
    Identifier            ///< the packet does not begin with "Art-Net" and a NUL
};

/// Where a forwarding datagram wants its packet sent.
struct ForwardingTarget {
    /// IPv4 address in host byte order.
    std::uint32_t address = 0;
    std::uint16_t port = 0;

    bool operator==(const ForwardingTarget&) const = default;
};

/// Checks a whole datagram; fills `target` when the header is good: the result is None or Identifier.
[[nodiscard]] ForwardingFault parse_forwarding_datagram(std::span<const unsigned char> datagram,
                                                        ForwardingTarget& target) noexcept;

}  // namespace artnet
