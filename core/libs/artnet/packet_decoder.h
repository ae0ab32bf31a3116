#pragma once
// Reads one Art-Net datagram as it comes from the network, where nothing can be trusted.

#include <cstdint>
#include <optional>
#include <span>

namespace artnet {

/// What a datagram is.
enum class PacketKind {
    Dmx,        ///< levels of one universe
    Sync,       ///< ends a frame
    Other,      ///< Art-Net of another type
    Malformed,  ///< ArtDmx whose Length is 0, above 512, or more than the datagram holds
    NotArtNet   ///< no identifier, or no opcode behind it
};

/// The ArtDmx packet within a datagram, which it borrows.
struct DmxPacket {
    /// Port-address, all 16 bits of it: SubUni + 256 * Net.
    std::uint16_t universe = 0;
    /// 1 to 255; 0: not used.
    std::uint8_t sequence = 0;
    /// The valid channels, 1 to 512, odd counts too.
    std::span<const unsigned char> levels;
    /// The packet without what may follow it in the datagram: 18 bytes and the levels.
    std::span<const unsigned char> bytes;
};

/// What the datagram says it is; nothing where it is NotArtNet.
[[nodiscard]] std::optional<std::uint16_t> opcode_of(std::span<const unsigned char> datagram) noexcept;

/// Fills `dmx` when the result is Dmx, and only then.
[[nodiscard]] PacketKind decode_packet(std::span<const unsigned char> datagram, DmxPacket& dmx) noexcept;

}  // namespace artnet
