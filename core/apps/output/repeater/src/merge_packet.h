#pragma once
// One merged output frame, and the pure operations on it: key, ownership, writing with brightness.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "artnet/records.h"
#include "playlist.h"
#include "zone.h"

/// Channels of a universe.
inline constexpr int kChannels = int{kMaxDmxChannels};
/// A complete ArtDmx packet of 512 channels.
inline constexpr std::size_t kDmxPacketSize = kDmxHeaderSize + kChannels;
using DmxPacket = std::array<unsigned char, kDmxPacketSize>;
/// Owner of a channel that no zone claims.
inline constexpr int kUnowned = -1;

/// Per channel of a frame, 0xFF where a zone may write and 0 elsewhere.
using ChannelMask = std::array<unsigned char, kChannels>;

/**
 * What goes out for one universe and destination.
 *
 * Per channel, the zone of the highest priority that claims it owns it; only playlists that play into that
 * zone write it. Nothing is compared by value. Frames lie in the Repeater's table, but for its blank one.
 */
struct MergePacket {
    MergePacket() { owners.fill(kUnowned); }

    /// The frame to send: ArtDmx header, then 512 channels.
    DmxPacket packet{};
    /// Per channel, the highest priority of the zones that claim it, or kUnowned.
    std::array<int, kChannels> owners;
    /// Zone ids, one entry per ownership taken. While empty, every channel is unowned.
    std::vector<int> zones;

    /// What follows from the owners, for the zones that have written since they changed and (kNoZone) for
    /// what no zone owns, side by side by zone id: to compare 512 owners for each packet costs a fifth of
    /// sending it. Made by the render worker; forget_masks() after each change of owners. A zone itself
    /// changes only while nothing is loaded, and then no frame is in the table.
    std::vector<int> masked_zones;
    std::vector<ChannelMask> masks;

    void forget_masks() noexcept {
        masked_zones.clear();
        masks.clear();
    }
};

/**
 * Key of the frame of `universe` at `destination` (null: no destination).
 *
 * Bits 0 to 15 hold the universe, 16 to 31 the port, 32 to 63 the address in host byte order. The port is
 * sign-extended over the address on purpose: from 32768 on, all addresses share one frame per universe and
 * port, and a show with such ports is merged across its destinations.
 */
[[nodiscard]] std::int64_t merge_packet_key(int universe, const Playlist::Address* destination) noexcept;

/// Raises the owner of each of the zone's channels to the zone's priority where that is higher.
void claim_channels(MergePacket& merge_packet, const Zone& zone) noexcept;

/// Copies the 18 header bytes, the length field included: the newest packet's header heads the frame.
void write_header(MergePacket& merge_packet, std::span<const unsigned char> data) noexcept;

/// Writes the channels of ArtDmx packet `data` that no zone owns. `brightness` in percent, any int; the
/// product is cut toward zero and stored modulo 256. Allocates the first time after the owners have changed,
/// as the next one does.
void write_unowned_channels(MergePacket& merge_packet, std::span<const unsigned char> data, int brightness);

/// Writes those channels of `zone` that are in `data` and owned at the zone's priority. Allocates the first
/// time after the owners have changed.
void write_zone_channels(MergePacket& merge_packet, std::span<const unsigned char> data, int brightness,
                         const Zone& zone);
