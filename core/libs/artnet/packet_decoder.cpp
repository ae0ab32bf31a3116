#include "artnet/packet_decoder.h"

#include <algorithm>
#include <cstddef>

#include "artnet/opcodes.h"
#include "artnet/records.h"

namespace artnet {

std::optional<std::uint16_t> opcode_of(std::span<const unsigned char> datagram) noexcept {
    if (datagram.size() < sizeof(ArtHeader) ||
        !std::ranges::equal(datagram.first(kArtNetIdentifier.size()), kArtNetIdentifier)) {
        return std::nullopt;
    }
    constexpr std::size_t kOpCode = offsetof(ArtHeader, OpCode);
    return static_cast<std::uint16_t>(datagram[kOpCode] | unsigned{datagram[kOpCode + 1]} << 8);
}

PacketKind decode_packet(std::span<const unsigned char> datagram, DmxPacket& dmx) noexcept {
    const std::optional<std::uint16_t> opcode = opcode_of(datagram);
    if (!opcode) {
        return PacketKind::NotArtNet;
    }
    if (opcode == opcode::kSync) {
        return PacketKind::Sync;
    }
    if (opcode != opcode::kDmx) {
        return PacketKind::Other;
    }
    if (datagram.size() < kDmxHeaderSize) {
        return PacketKind::Malformed;
    }
    const std::size_t length =
        std::size_t{datagram[offsetof(ArtDmx, Length)]} << 8 | datagram[offsetof(ArtDmx, Length) + 1];
    if (length == 0 || length > kMaxDmxChannels || length > datagram.size() - kDmxHeaderSize) {
        return PacketKind::Malformed;
    }
    dmx.universe = static_cast<std::uint16_t>(datagram[offsetof(ArtDmx, SubUni)] |
                                              unsigned{datagram[offsetof(ArtDmx, Net)]} << 8);
    dmx.sequence = datagram[offsetof(ArtDmx, Sequence)];
    dmx.levels = datagram.subspan(kDmxHeaderSize, length);
    dmx.bytes = datagram.first(kDmxHeaderSize + length);
    return PacketKind::Dmx;
}

}  // namespace artnet
