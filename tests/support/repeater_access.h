#pragma once
// Way into a Repeater for tests.

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "repeater.h"

/// Way into a lock for tests.
struct ReadWriteLockAccess {
    /// Whether a writer holds the lock or waits for it. Any thread.
    static bool write_pending(const ondra::ReadWriteLock& lock) { return lock.writer_flag_.load(); }
};

/**
 * Plain forwarding; no rule of its own.
 *
 * Main thread. But where it says otherwise everything takes the engine's lock as writer, as the bus methods
 * do, so that the render worker is outside; a call is therefore answered after the pending packet.
 */
struct RepeaterAccess {
    using Address = Playlist::Address;

    // Without the lock; any thread.
    /// Whether a control call holds the engine's lock or waits for it.
    static bool write_pending(const Repeater& engine) ONDRA_NO_THREAD_SAFETY_ANALYSIS {
        return ReadWriteLockAccess::write_pending(engine.lock_);
    }
    /// Whether the destructor has told the worker to end.
    static bool ending(const Repeater& engine) { return !engine.running_.load(); }

    // Zones and playlists.
    static std::unordered_map<int, Zone> zones(Repeater& engine) {
        const ondra::WriterGuard guard{engine.lock_};
        return engine.zones_;
    }
    static std::vector<int> playlist_ids(Repeater& engine) {
        const ondra::WriterGuard guard{engine.lock_};
        std::vector<int> ids;
        for (const auto& desc : engine.playlists_) {
            ids.push_back(desc->playlist.id());
        }
        return ids;
    }
    /// "active,play_requested,finished" of the first record with the id, as in "0,1,0"; empty without one.
    static std::string flags(Repeater& engine, int id) ONDRA_NO_THREAD_SAFETY_ANALYSIS {
        return with(engine, id, std::string(), [](const PlaylistDesc& desc) {
            return std::string(desc.active ? "1" : "0") + (desc.play_requested ? ",1" : ",0") +
                   (desc.finished ? ",1" : ",0");
        });
    }
    static int position(Repeater& engine, int id) {
        return with(engine, id, -1, [](const PlaylistDesc& desc) { return desc.position; });
    }
    static ondra::Clock::time_point due_time(Repeater& engine, int id) {
        return with(engine, id, ondra::Clock::time_point{},
                    [](const PlaylistDesc& desc) { return desc.due_time; });
    }
    static int brightness(Repeater& engine, int id) {
        return with(engine, id, -1, [](const PlaylistDesc& desc) { return desc.playlist.get_brightness(); });
    }
    static int speed_boost(Repeater& engine, int id) {
        return with(engine, id, -1, [](const PlaylistDesc& desc) { return desc.playlist.get_speed_boost(); });
    }
    static bool loader_done(Repeater& engine, int id) {
        return with(engine, id, false, [](const PlaylistDesc& desc) { return desc.loader.done(); });
    }
    /// The same without the lock, for a worker that waits in standing time and lets nobody in: only the main
    /// thread changes the list, and a loader tells its end through an atomic.
    static bool loader_done_now(Repeater& engine, int id) {
        const PlaylistDesc* const desc = engine.find_playlist(id);
        return desc != nullptr && desc->loader.done();
    }
    static int packets_loaded(Repeater& engine, int id) {
        return with(engine, id, -1, [](const PlaylistDesc& desc) { return desc.playlist.packets_loaded(); });
    }
    /// Asks for several plays at once, so that the worker takes them up in one cycle.
    static void request_play(Repeater& engine, const std::vector<int>& ids) {
        const ondra::WriterGuard guard{engine.lock_};
        for (const auto& desc : engine.playlists_) {
            if (std::find(ids.begin(), ids.end(), desc->playlist.id()) != ids.end()) {
                desc->play_requested = true;
            }
        }
    }
    static bool load_playlist(Repeater& engine, int id) { return engine.load_playlist(id); }

    // What the lock guards, as text. The caller holds the lock, or the worker is asleep.
    /// "id:active,play_requested,finished brightness/speed_boost;" per playlist, then the number of frames.
    static std::string playlists_held(const Repeater& engine) ONDRA_NO_THREAD_SAFETY_ANALYSIS {
        std::string text;
        for (const auto& desc : engine.playlists_) {
            text += std::to_string(desc->playlist.id()) + ":" + (desc->active ? "1" : "0") +
                    (desc->play_requested ? ",1" : ",0") + (desc->finished ? ",1 " : ",0 ") +
                    std::to_string(desc->playlist.get_brightness()) + "/" +
                    std::to_string(desc->playlist.get_speed_boost()) + ";";
        }
        return text + std::to_string(engine.merge_packets_.size());
    }
    /// "id/priority;" per zone, in the order of the ids.
    static std::string zones_held(const Repeater& engine) ONDRA_NO_THREAD_SAFETY_ANALYSIS {
        std::map<int, int> sorted;
        for (const auto& [id, zone] : engine.zones_) {
            sorted.emplace(id, zone.priority);
        }
        std::string text;
        for (const auto& [id, priority] : sorted) {
            text += std::to_string(id) + "/" + std::to_string(priority) + ";";
        }
        return text;
    }
    static std::string unicast_held(const Repeater& engine) ONDRA_NO_THREAD_SAFETY_ANALYSIS {
        return engine.unicast_enabled_ ? "on" : "off";
    }
    static const ondra::ReadWriteLock& lock(const Repeater& engine) { return engine.lock_; }
    /// Channel `channel` of the packet that the worker rehearsed last. The worker waits in standing time.
    static int rehearsed_channel(const Repeater& engine, std::size_t channel) {
        return engine.rehearsed_packet_.at(kDmxHeaderSize + channel);
    }

    // Merged frames.
    static std::size_t merge_packet_count(Repeater& engine) {
        const ondra::WriterGuard guard{engine.lock_};
        return engine.merge_packets_.size();
    }
    static MergePacket& get_merge_packet(Repeater& engine, int universe, const Address* destination) {
        const ondra::WriterGuard guard{engine.lock_};
        return engine.get_merge_packet(universe, destination);
    }
    static MergePacket& init_merge_packet(Repeater& engine, int universe, const Address* destination) {
        const ondra::WriterGuard guard{engine.lock_};
        return engine.init_merge_packet(universe, destination);
    }
    static void delete_merge_packet(Repeater& engine, int universe, const Address* destination) {
        const ondra::WriterGuard guard{engine.lock_};
        engine.delete_merge_packet(universe, destination);
    }
    static void add_owner(Repeater& engine, const Playlist& playlist) {
        const ondra::WriterGuard guard{engine.lock_};
        engine.add_merge_packet_owner(playlist);
    }
    static void remove_owner(Repeater& engine, const Playlist& playlist) {
        const ondra::WriterGuard guard{engine.lock_};
        engine.remove_merge_packet_owner(playlist);
    }
    static void modify_packet(Repeater& engine, MergePacket& merge_packet,
                              const std::vector<unsigned char>& data, int brightness, int zone_id) {
        const ondra::WriterGuard guard{engine.lock_};
        engine.modify_packet(merge_packet, data, 1, brightness, zone_id);
    }
    /// Also while a playlist is loaded, when the bus methods refuse.
    static void erase_zone(Repeater& engine, int id) {
        const ondra::WriterGuard guard{engine.lock_};
        engine.zones_.erase(id);
    }

    // Output. The render worker must have made its socket.
    static bool send_to_address(Repeater& engine, const std::array<unsigned char, kDmxPacketSize>& packet,
                                const Address& address) {
        const ondra::WriterGuard guard{engine.lock_};
        return engine.send_to_address(packet, address);
    }
    static bool send_packet(Repeater& engine, const Playlist& playlist, int index,
                            const Playlist::Packet& packet) {
        const ondra::WriterGuard guard{engine.lock_};
        return engine.send_packet(playlist, index, packet);
    }
    static bool has_socket(Repeater& engine) {
        const ondra::WriterGuard guard{engine.lock_};
        return engine.socket_ != nullptr;
    }
    static void update_artnet_node_map(Repeater& engine, const QString& message) {
        engine.update_artnet_node_map(message);
    }
    /// The render worker's own copy.
    static ondra::ArtnetNodeMap node_map(Repeater& engine) {
        const ondra::WriterGuard guard{engine.lock_};
        return engine.node_map_;
    }
    /// In the place of what the worker copied last; nothing must play.
    static void set_node_map(Repeater& engine, const ondra::ArtnetNodeMap& map) {
        const ondra::WriterGuard guard{engine.lock_};
        engine.node_map_ = map;
    }

private:
    template <typename Result, typename Read>
    static Result with(Repeater& engine, int id, Result otherwise, Read read) {
        const ondra::WriterGuard guard{engine.lock_};
        for (const auto& desc : engine.playlists_) {
            if (desc->playlist.id() == id) {
                return read(*desc);
            }
        }
        return otherwise;
    }
};
