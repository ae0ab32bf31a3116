#pragma once
// Way into a Playlist for tests: what the parser and the loader write.

#include <atomic>
#include <utility>
#include <vector>

#include "playlist.h"

/// Plain forwarding; no rule of its own.
struct PlaylistAccess {
    static std::vector<Playlist::Effect>& effects(Playlist& playlist) { return playlist.effects_; }
    static void set_id(Playlist& playlist, int id) { playlist.id_ = id; }

    /// The state of a load: per effect its last packet or -1, and how many effects are read completely.
    static void set_progress(Playlist& playlist, std::vector<int> effect_end, int loaded_effects) {
        playlist.effect_end_ = std::move(effect_end);
        playlist.loaded_effects_.store(loaded_effects);
    }
    static std::vector<int> effect_end(const Playlist& playlist) { return playlist.effect_end_; }
    static void set_effect_end(Playlist& playlist, std::size_t effect, int index) {
        std::atomic_ref<int>(playlist.effect_end_[effect]).store(index, std::memory_order_release);
    }
    static int loaded_effects(const Playlist& playlist) { return playlist.loaded_effects_.load(); }
    /// What guards the packets.
    static ondra::ReadWriteLock& lock(Playlist& playlist) { return playlist.lock_; }
    /// Where packet `index` lies.
    static const Playlist::Packet* stored(const Playlist& playlist, int index) {
        return &playlist.packets_.at(index);
    }
};
