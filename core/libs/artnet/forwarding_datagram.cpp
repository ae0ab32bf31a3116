#include "artnet/forwarding_datagram.h"

#include <algorithm>
#include <cstring>

#include <arpa/inet.h>

#include "artnet/records.h"

namespace artnet {

namespace {

constexpr std::size_t kAddressOffset = offsetof(ForwardingDatagram, address);
constexpr std::size_t kPortOffset = offsetof(ForwardingDatagram, port);
constexpr std::uint32_t kLargestPort = 65535;

void write_le32(unsigned char* to, std::uint32_t value) noexcept {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        *to++ = static_cast<unsigned char>(value >> shift);
    }
}

std::uint32_t read_le32(const unsigned char* from) noexcept {
    return std::uint32_t{from[0]} | std::uint32_t{from[1]} << 8 | std::uint32_t{from[2]} << 16 |
           std::uint32_t{from[3]} << 24;
}

}  // namespace

void write_forwarding_header(std::span<unsigned char, kForwardingHeaderSize> header,
                             std::uint16_t manufacturer, std::string_view ip, int port) noexcept {
    std::ranges::fill(header, static_cast<unsigned char>(0));
    const std::string_view text = ip.substr(0, std::min(ip.find('\0'), kForwardingAddressLimit));
    std::ranges::transform(text, header.begin() + kAddressOffset,
                           [](char c) { return static_cast<unsigned char>(c); });
    write_le32(header.data(), manufacturer);
    write_le32(header.data() + kPortOffset, static_cast<std::uint32_t>(port));
}

ForwardingFault parse_forwarding_datagram(std::span<const unsigned char> datagram,
                                          ForwardingTarget& target) noexcept {
    if (datagram.size() != kForwardingDatagramSize) {
        return ForwardingFault::Size;
    }
    std::array<char, sizeof(ForwardingDatagram::address)> text{};
    std::memcpy(text.data(), datagram.data() + kAddressOffset, text.size());
    if (std::ranges::find(text, '\0') == text.end()) {
        return ForwardingFault::UnterminatedAddress;
    }
    in_addr address{};
    if (inet_pton(AF_INET, text.data(), &address) != 1) {
        return ForwardingFault::InvalidAddress;
    }
    // A negative port is above the limit as well once it is read without its sign.
    const std::uint32_t port = read_le32(datagram.data() + kPortOffset);
    if (port == 0 || port > kLargestPort) {
        return ForwardingFault::Port;
    }
    target = {ntohl(address.s_addr), static_cast<std::uint16_t>(port)};
    if (!std::ranges::equal(datagram.subspan(kForwardingHeaderSize, kArtNetIdentifier.size()),
                            kArtNetIdentifier)) {
        return ForwardingFault::Identifier;
    }
    return ForwardingFault::None;
}

}  // namespace artnet
