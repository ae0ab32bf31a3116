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

/// Writes recorded channels into a frame where `owner` owns them.
class Writer {
public:
    Writer(MergePacket& merge_packet, std::span<const unsigned char> data, int brightness, int owner) noexcept
        : in_(data.data() + kDmxHeaderSize),
          out_(merge_packet.packet.data() + kDmxHeaderSize),
          owners_(merge_packet.owners.data()),
          brightness_(brightness),
          owner_(owner) {}

    /// Channels that write_run() takes together.
    static constexpr std::size_t kRun = 16;

    /// Whether write_run() may be used: its products have 16 bits.
    [[nodiscard]] bool takes_runs() const noexcept { return brightness_ >= 0 && brightness_ <= 257; }

    void write(std::size_t channel) const noexcept {
        if (owners_[channel] == owner_) {
            out_[channel] = scale(in_[channel], brightness_);
        }
    }

    /// The same for kRun channels. Three plain loops of fixed length, which the compiler turns into vector
    /// instructions: channel by channel, a zone of a whole universe costs a third of sending the frame.
    void write_run(std::size_t first) const noexcept {
        std::array<unsigned char, kRun> levels;
        const auto brightness = static_cast<std::uint16_t>(brightness_);
        for (std::size_t i = 0; i < kRun; ++i) {
            const auto product = static_cast<std::uint16_t>(in_[first + i] * brightness);
            levels[i] = static_cast<unsigned char>(product / 100);
        }
        std::array<unsigned char, kRun> owned;
        for (std::size_t i = 0; i < kRun; ++i) {
            owned[i] = owners_[first + i] == owner_ ? 0xFF : 0;
        }
        for (std::size_t i = 0; i < kRun; ++i) {
            out_[first + i] =
                static_cast<unsigned char>((levels[i] & owned[i]) | (out_[first + i] & ~owned[i]));
        }
    }

private:
    const unsigned char* in_;
    unsigned char* out_;
    const int* owners_;
    int brightness_;
    int owner_;
};

/// Whether the next kRun entries of a zone's list are channels one after another, all below `count`.
bool is_run(const int* channels, std::size_t count) noexcept {
    const int first = channels[0];
    if (first < 0 || static_cast<std::size_t>(first) + Writer::kRun > count) {
        return false;
    }
    // Counted in 32 bits like the channels, so that the loop is one of vectors.
    const auto start = static_cast<unsigned>(first);
    unsigned differences = 0;
    for (unsigned i = 0; i < Writer::kRun; ++i) {
        differences |= static_cast<unsigned>(channels[i]) ^ (start + i);
    }
    return differences == 0;
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

void write_unowned_channels(MergePacket& merge_packet, std::span<const unsigned char> data,
                            int brightness) noexcept {
    const std::size_t count = channel_count(data);
    if (count == 0) {
        return;
    }
    if (merge_packet.zones.empty() && brightness == kFullBrightness) {
        // Nearly every frame of a show without zones; asking 512 owners costs more than sending the frame.
        std::copy_n(data.begin() + kDmxHeaderSize, count, merge_packet.packet.begin() + kDmxHeaderSize);
        return;
    }
    const Writer writer(merge_packet, data, brightness, kUnowned);
    std::size_t channel = 0;
    for (; writer.takes_runs() && channel + Writer::kRun <= count; channel += Writer::kRun) {
        writer.write_run(channel);
    }
    for (; channel < count; ++channel) {
        writer.write(channel);
    }
}

void write_zone_channels(MergePacket& merge_packet, std::span<const unsigned char> data, int brightness,
                         const Zone& zone) noexcept {
    const std::size_t count = channel_count(data);
    if (count == 0) {
        return;
    }
    const Writer writer(merge_packet, data, brightness, zone.priority);
    const bool runs = writer.takes_runs();
    for (std::size_t i = 0; i < zone.channels.size();) {
        const int number = zone.channels[i];
        if (runs && i + Writer::kRun <= zone.channels.size() && is_run(&zone.channels[i], count)) {
            writer.write_run(static_cast<std::size_t>(number));
            i += Writer::kRun;
            continue;
        }
        if (number >= 0 && static_cast<std::size_t>(number) < count) {
            writer.write(static_cast<std::size_t>(number));
        }
        ++i;
    }
}
