#include "merge_packet.h"

#include <algorithm>

namespace {

constexpr int kFullBrightness = 100;

unsigned char scale(unsigned char value, int brightness) noexcept {
    // 64 bits, since the brightness of a description file is any int.
    return static_cast<unsigned char>(std::int64_t{brightness} * value / 100);
}

/// Channels that an ArtDmx packet of this size carries, 0 to 512.
std::size_t channel_count(std::span<const unsigned char> data) noexcept {
    return data.size() <= kDmxHeaderSize ? 0 : std::min<std::size_t>(data.size() - kDmxHeaderSize, kChannels);
}

/// Channels that write_run() takes together.
constexpr std::size_t kRun = 16;

/// Whether write_run() may be used: its products have 16 bits.
bool takes_runs(int brightness) noexcept {
    return brightness >= 0 && brightness <= 257;
}

using Run = std::array<unsigned char, kRun>;

Run run_at(const unsigned char* bytes) noexcept {
    Run run;
    std::copy_n(bytes, kRun, run.begin());
    return run;
}

/// Writes kRun channels where the mask allows it. Plain loops of fixed length over arrays of their own, which
/// the compiler turns into vector instructions: channel by channel, a whole universe costs a third of sending
/// the frame.
inline void write_run(const unsigned char* in, unsigned char* out, const Run& mask, int percent) noexcept {
    const Run recorded = run_at(in);
    const Run before = run_at(out);
    const auto brightness = static_cast<std::uint16_t>(percent);
    Run levels;
    for (std::size_t i = 0; i < kRun; ++i) {
        const auto product = static_cast<std::uint16_t>(recorded[i] * brightness);
        levels[i] = static_cast<unsigned char>(product / 100);
    }
    Run after;
    for (std::size_t i = 0; i < kRun; ++i) {
        after[i] = static_cast<unsigned char>((levels[i] & mask[i]) | (before[i] & ~mask[i]));
    }
    std::copy_n(after.begin(), kRun, out);
}

constexpr ChannelMask everywhere() noexcept {
    ChannelMask mask{};
    mask.fill(0xFF);
    return mask;
}

/// The mask that is kept under `id`, made by `fill` from one of zeros if there is none.
template <typename Fill>
const ChannelMask& mask_of(MergePacket& merge_packet, int id, Fill fill) {
    const auto& ids = merge_packet.masked_zones;
    const auto known = std::find(ids.begin(), ids.end(), id);
    if (known != ids.end()) {
        return merge_packet.masks[static_cast<std::size_t>(known - ids.begin())];
    }
    merge_packet.masked_zones.push_back(id);
    fill(merge_packet.masks.emplace_back());
    return merge_packet.masks.back();
}

/// What nobody owns.
const ChannelMask& unowned_mask(MergePacket& merge_packet) {
    static constexpr ChannelMask kEverywhere = everywhere();
    if (merge_packet.zones.empty()) {
        return kEverywhere;
    }
    return mask_of(merge_packet, Playlist::kNoZone, [&merge_packet](ChannelMask& mask) {
        std::ranges::transform(merge_packet.owners, mask.begin(), [](int owner) {
            return static_cast<unsigned char>(owner == kUnowned ? 0xFF : 0);
        });
    });
}

/// Where the zone may write: its channels that are owned at its priority.
const ChannelMask& zone_mask(MergePacket& merge_packet, const Zone& zone) {
    return mask_of(merge_packet, zone.id, [&](ChannelMask& mask) {
        for (const int channel : zone.channels) {
            if (channel >= 0 && channel < kChannels) {
                const auto place = static_cast<std::size_t>(channel);
                mask[place] = merge_packet.owners[place] == zone.priority ? 0xFF : 0;
            }
        }
    });
}

/// Writes the first `count` recorded channels where the mask allows it.
void write_channels(MergePacket& merge_packet, std::span<const unsigned char> data, std::size_t count,
                    const ChannelMask& mask, int brightness) noexcept {
    const unsigned char* const in = data.data() + kDmxHeaderSize;
    unsigned char* const out = merge_packet.packet.data() + kDmxHeaderSize;
    std::size_t channel = 0;
    for (; takes_runs(brightness) && channel + kRun <= count; channel += kRun) {
        write_run(in + channel, out + channel, run_at(&mask[channel]), brightness);
    }
    for (; channel < count; ++channel) {
        if (mask[channel] != 0) {
            out[channel] = scale(in[channel], brightness);
        }
    }
}

}  // namespace

std::int64_t merge_packet_key(int universe, const Playlist::Address* destination) noexcept {
    auto key = static_cast<std::uint64_t>(static_cast<std::uint16_t>(universe));
    if (destination != nullptr) {
        const auto port = static_cast<std::int32_t>(static_cast<std::uint32_t>(destination->port) << 16);
        key |= static_cast<std::uint64_t>(std::int64_t{port});
        key |= std::uint64_t{destination->ipv4} << 32;
    }
    return static_cast<std::int64_t>(key);
}

void claim_channels(MergePacket& merge_packet, const Zone& zone) noexcept {
    merge_packet.forget_masks();
    for (const int channel : zone.channels) {
        if (channel >= 0 && channel < kChannels) {
            int& owner = merge_packet.owners[static_cast<std::size_t>(channel)];
            owner = std::max(owner, zone.priority);
        }
    }
}

void write_header(MergePacket& merge_packet, std::span<const unsigned char> data) noexcept {
    std::copy_n(data.begin(), std::min(data.size(), kDmxHeaderSize), merge_packet.packet.begin());
}

void write_unowned_channels(MergePacket& merge_packet, std::span<const unsigned char> data, int brightness) {
    const std::size_t count = channel_count(data);
    if (count == 0) {
        return;
    }
    if (merge_packet.zones.empty() && brightness == kFullBrightness) {
        // Nearly every frame of a show without zones.
        std::copy_n(data.begin() + kDmxHeaderSize, count, merge_packet.packet.begin() + kDmxHeaderSize);
        return;
    }
    write_channels(merge_packet, data, count, unowned_mask(merge_packet), brightness);
}

void write_zone_channels(MergePacket& merge_packet, std::span<const unsigned char> data, int brightness,
                         const Zone& zone) {
    const std::size_t count = channel_count(data);
    if (count > 0) {
        write_channels(merge_packet, data, count, zone_mask(merge_packet, zone), brightness);
    }
}
