// The engine's merged frames: look-up, ownership by zones, writing. Under lock_ throughout.

#include "repeater.h"

#include <algorithm>

#include "ondra/logger.h"

MergePacket& Repeater::get_merge_packet(int universe, const Address* destination) {
    const auto entry = merge_packets_.find(merge_packet_key(universe, destination));
    if (entry != merge_packets_.end()) {
        return entry->second;
    }
    blank_merge_packet_.packet.fill(0);
    // Its zones may have changed since it was written last.
    blank_merge_packet_.forget_masks();
    return blank_merge_packet_;
}

MergePacket& Repeater::init_merge_packet(int universe, const Address* destination) {
    return merge_packets_[merge_packet_key(universe, destination)];
}

void Repeater::delete_merge_packet(int universe, const Address* destination) {
    merge_packets_.erase(merge_packet_key(universe, destination));
}

void Repeater::modify_merge_packet_owner(const Playlist& playlist, const OwnerAction& action) {
    for (const Playlist::Effect& effect : playlist.effects()) {
        for (const auto& [universe, zone_id] : effect.universes) {
            const auto zone = zones_.find(zone_id);
            if (zone == zones_.end()) {
                continue;
            }
            auto output = effect.outputs.find(universe);
            if (output == effect.outputs.end()) {
                output = effect.outputs.find(Playlist::kAllUniverses);
            }
            if (output == effect.outputs.end()) {
                action(universe, nullptr, zone->second);
                continue;
            }
            for (const Address& address : output->second) {
                action(universe, &address, zone->second);
            }
        }
    }
}

void Repeater::add_merge_packet_owner(const Playlist& playlist) {
    modify_merge_packet_owner(playlist,
                              [this](int universe, const Address* destination, const Zone& zone)
                                  ONDRA_REQUIRES(lock_) { add_owner(universe, destination, zone); });
}

void Repeater::remove_merge_packet_owner(const Playlist& playlist) {
    modify_merge_packet_owner(playlist,
                              [this](int universe, const Address* destination, const Zone& zone)
                                  ONDRA_REQUIRES(lock_) { remove_owner(universe, destination, zone); });
}

void Repeater::add_owner(int universe, const Address* destination, const Zone& zone) {
    MergePacket& merge_packet = init_merge_packet(universe, destination);
    merge_packet.zones.push_back(zone.id);
    claim_channels(merge_packet, zone);
}

void Repeater::remove_owner(int universe, const Address* destination, const Zone& zone) {
    MergePacket& merge_packet = get_merge_packet(universe, destination);
    const auto ownership = std::find(merge_packet.zones.begin(), merge_packet.zones.end(), zone.id);
    if (ownership == merge_packet.zones.end()) {
        // Written within the lock, on purpose: the walk goes on under it, and this is no everyday line.
        ONDRA_LOG(
            ondra::kNormal,
            "[Repeater::remove_merge_packet_owner] Invalid merge packet ownership (id:%d, uni:%d, ip:%d, "
            "port:%d)",
            zone.id, universe, destination == nullptr ? -1 : static_cast<int>(destination->ipv4),
            destination == nullptr ? -1 : destination->port);
        return;
    }
    merge_packet.zones.erase(ownership);
    merge_packet.owners.fill(kUnowned);
    merge_packet.forget_masks();
    if (merge_packet.zones.empty()) {
        delete_merge_packet(universe, destination);
        return;
    }
    for (const int id : merge_packet.zones) {
        if (const auto remaining = zones_.find(id); remaining != zones_.end()) {
            claim_channels(merge_packet, remaining->second);
        }
    }
}

void Repeater::modify_packet(MergePacket& merge_packet, const std::vector<unsigned char>& data,
                             int /*playlist_id*/, int brightness, int zone_id) {
    write_header(merge_packet, data);
    if (zone_id == Playlist::kNoZone) {
        write_unowned_channels(merge_packet, data, brightness);
        return;
    }
    if (const auto zone = zones_.find(zone_id); zone != zones_.end()) {
        write_zone_channels(merge_packet, data, brightness, zone->second);
    }
}
