#include "artnet/packet_decoder.h"

#include <algorithm>
#include <cstddef>

#include "artnet/opcodes.h"
#include "artnet/records.h"

namespace artnet {

PacketKind decode_packet(std::span<const unsigned char> datagram, DmxPacket& dmx) noexcept {
    if (datagram.size() < sizeof(ArtHeader) ||
        !std::ranges::equal(datagram.first(kArtNetIdentifier.size()), kArtNetIdentifier)) {
        return PacketKind::NotArtNet;
    }
    constexpr std::size_t kOpCode = offsetof(ArtHeader, OpCode);
    const unsigned opcode = datagram[kOpCode] | unsigned{datagram[kOpCode + 1]} << 8;
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
