#pragma once
// Plain records of a show, as the models and the generators of scenarios use them. Nothing of the product.

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace model {

constexpr int kChannels = 512;
constexpr int kHeader = 18;
/// Zones that are none: a universe without a zone, and one that is muted.
constexpr int kNoZone = -1;
constexpr int kMuted = -2;
/// Universe that stands for all without destinations of their own.
constexpr int kAllOthers = -1;

struct Zone {
    int id = 0;
    int priority = 0;
    std::vector<int> channels;
};

struct Destination {
    std::string ip;
    int port = 0;
    bool operator==(const Destination&) const = default;
};

struct Effect {
    std::map<int, std::vector<Destination>> outputs;
    /// Universe to zone id.
    std::map<int, int> zones;
};

struct Packet {
    int universe = 0;
    /// Header of 18 bytes and the channels.
    std::vector<std::uint8_t> bytes;
    /// Index of its effect; -1: of none.
    int effect = 0;
    /// Nanoseconds until the next one.
    std::int64_t delay = 0;
};

struct Playlist {
    int id = 0;
    bool loop = true;
    int brightness = 100;
    int speed_boost = 0;
    std::vector<Effect> effects;
    std::vector<Packet> packets;
};

using Frame = std::array<std::uint8_t, kHeader + kChannels>;

/// One datagram that must go out: when, where to, what.
struct Sent {
    std::int64_t due = 0;
    Destination to;
    Frame frame{};
};

/// The 554 bytes of a datagram for the forwarder: maker code, address text, port, packet.
inline std::vector<std::uint8_t> datagram(int maker, const Sent& sent) {
    std::vector<std::uint8_t> bytes;
    const auto number = [&bytes](std::uint32_t value) {
        for (int byte = 0; byte < 4; ++byte) {
            bytes.push_back(static_cast<std::uint8_t>(value >> (8 * byte)));
        }
    };
    number(static_cast<std::uint32_t>(maker));
    for (std::size_t place = 0; place < 16; ++place) {
        const bool text = place < sent.to.ip.size();
        bytes.push_back(text ? static_cast<std::uint8_t>(sent.to.ip[place]) : std::uint8_t{0});
    }
    number(static_cast<std::uint32_t>(sent.to.port));
    bytes.insert(bytes.end(), sent.frame.begin(), sent.frame.end());
    return bytes;
}

}  // namespace model
