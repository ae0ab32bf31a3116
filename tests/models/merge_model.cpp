#include "merge_model.h"

#include <algorithm>
#include <sstream>

namespace model {

namespace {

constexpr int kNobody = -1;
constexpr int kSixteenBits = 65536;

int low_16_bits(int value) {
    return ((value % kSixteenBits) + kSixteenBits) % kSixteenBits;
}

/// All ones for what is no dotted address.
std::uint32_t address_number(const std::string& text) {
    std::istringstream in(text);
    std::uint32_t number = 0;
    for (int part = 0; part < 4; ++part) {
        unsigned value = 0;
        char dot = '.';
        if ((part > 0 && (!(in >> dot) || dot != '.')) || !(in >> value) || value > 255) {
            return 0xFFFFFFFF;
        }
        number = number * 256 + value;
    }
    return number;
}

std::uint8_t dimmed(int level, int brightness) {
    // Towards zero, then the lowest byte.
    const long long value = static_cast<long long>(level) * brightness / 100;
    return static_cast<std::uint8_t>(((value % 256) + 256) % 256);
}

}  // namespace

const std::vector<Destination>* destinations_of(const Effect& effect, int universe) {
    for (const int key : {universe, kAllOthers}) {
        if (effect.outputs.count(key) != 0) {
            return &effect.outputs.at(key);
        }
    }
    return nullptr;
}

MergeModel::Name MergeModel::name_of(int universe, const Destination* destination) {
    if (destination == nullptr) {
        return {low_16_bits(universe), 0, 0};
    }
    const int port = low_16_bits(destination->port);
    // From port 32768 on the address does not count.
    const bool address_counts = port < kSixteenBits / 2;
    return {low_16_bits(universe), port, address_counts ? address_number(destination->ip) : 0xFFFFFFFF};
}

std::vector<MergeModel::Claiming> MergeModel::claims_of(const Playlist& playlist) const {
    std::vector<Claiming> result;
    for (const Effect& effect : playlist.effects) {
        for (const auto& [universe, zone] : effect.zones) {
            if (zones.count(zone) == 0) {
                continue;
            }
            const std::vector<Destination>* const list = destinations_of(effect, universe);
            if (list == nullptr) {
                result.push_back({name_of(universe, nullptr), zones.at(zone)});
                continue;
            }
            for (const Destination& destination : *list) {
                result.push_back({name_of(universe, &destination), zones.at(zone)});
            }
        }
    }
    return result;
}

MergeModel::Entry* MergeModel::find(const Name& name) {
    for (Entry& entry : frames_) {
        if (entry.name == name) {
            return &entry;
        }
    }
    return nullptr;
}

void MergeModel::take(const Playlist& playlist) {
    for (const Claiming& claiming : claims_of(playlist)) {
        if (find(claiming.name) == nullptr) {
            frames_.push_back({claiming.name, {}, {}});
        }
        const Zone& zone = claiming.zone;
        find(claiming.name)->claims.push_back({zone.id, true, zone.priority, channels_of(zone)});
    }
}

void MergeModel::give_back(const Playlist& playlist) {
    for (const Claiming& claiming : claims_of(playlist)) {
        Entry* const entry = find(claiming.name);
        const auto is_it = [&](const Claim& claim) { return claim.zone == claiming.zone.id; };
        if (entry == nullptr || std::none_of(entry->claims.begin(), entry->claims.end(), is_it)) {
            continue;
        }
        entry->claims.erase(std::find_if(entry->claims.begin(), entry->claims.end(), is_it));
        for (Claim& claim : entry->claims) {
            claim.counts = zones.count(claim.zone) != 0;
        }
        std::erase_if(frames_, [](const Entry& frame) { return frame.claims.empty(); });
    }
}

MergeModel::Channels MergeModel::channels_of(const Zone& zone) {
    Channels channels;
    for (const int channel : zone.channels) {
        if (channel >= 0 && channel < kChannels) {
            channels.set(static_cast<std::size_t>(channel));
        }
    }
    return channels;
}

int MergeModel::owner(const Entry& entry, int channel) {
    int highest = kNobody;
    for (const Claim& claim : entry.claims) {
        if (claim.counts && claim.channels[static_cast<std::size_t>(channel)]) {
            highest = std::max(highest, claim.priority);
        }
    }
    return highest;
}

void MergeModel::write(Entry& entry, const std::vector<std::uint8_t>& bytes, int brightness, int zone) const {
    std::copy_n(bytes.begin(), kHeader, entry.frame.begin());
    Channels wanted;
    int priority = kNobody;
    if (zone == kNoZone) {
        wanted.set();
    } else if (zones.count(zone) != 0) {
        wanted = channels_of(zones.at(zone));
        priority = zones.at(zone).priority;
    }
    for (int channel = 0; channel < kChannels; ++channel) {
        const auto place = static_cast<std::size_t>(kHeader + channel);
        const bool written = wanted[static_cast<std::size_t>(channel)] && place < bytes.size();
        if (written && owner(entry, channel) == priority) {
            entry.frame[place] = dimmed(bytes[place], brightness);
        }
    }
}

Frame MergeModel::merged(const Packet& packet, const Destination* destination, int brightness, int zone) {
    Entry dark;
    Entry* const kept = find(name_of(packet.universe, destination));
    Entry& entry = kept == nullptr ? dark : *kept;
    write(entry, packet.bytes, brightness, zone);
    return entry.frame;
}

bool MergeModel::send(const Playlist& playlist, const Packet& packet, int brightness,
                      const Network& network) {
    const bool has_channels = packet.bytes.size() > kHeader;
    if (!has_channels || packet.effect < 0) {
        return false;
    }
    const Effect& effect = playlist.effects.at(static_cast<std::size_t>(packet.effect));
    const auto named = effect.zones.find(packet.universe);
    const int zone = named == effect.zones.end() ? kNoZone : named->second;
    if (zone == kMuted) {
        return true;
    }
    if (const auto* const list = destinations_of(effect, packet.universe); list != nullptr) {
        for (const Destination& to : *list) {
            if (!network({0, to, merged(packet, &to, brightness, zone)})) {
                return false;
            }
        }
        return !list->empty();
    }
    if (!unicast) {
        return network({0, broadcast, merged(packet, nullptr, brightness, zone)});
    }
    const std::vector<Destination> list = nodes[packet.universe];
    for (std::size_t node = 0; node < list.size(); ++node) {
        const bool again = node > 0 && list[node] == list[node - 1];
        if (!again && !network({0, list[node], merged(packet, nullptr, brightness, zone)})) {
            return false;
        }
    }
    return !list.empty();
}

bool MergeModel::zones_overlap() const {
    for (const Entry& entry : frames_) {
        for (const Claim& one : entry.claims) {
            for (const Claim& other : entry.claims) {
                if (one.zone != other.zone && (one.channels & other.channels).any()) {
                    return true;
                }
            }
        }
    }
    return false;
}

}  // namespace model
