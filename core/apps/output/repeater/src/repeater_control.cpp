// Playing, pausing and stopping single playlists, and their brightness and speed boost. Main thread.

#include "repeater.h"

#include <algorithm>
#include <cassert>
#include <exception>
#include <utility>

#include "ondra/logger.h"
#include "ondra/timing.h"

namespace {

/// Brightness and speed boost as the bus methods store them.
int clamp_percent(int value) {
    return std::max(std::min(value, 100), 0);
}

void wait_until_done(const PlaylistLoader& loader) {
    ondra::wait_while([&loader] { return !loader.done(); });
}

}  // namespace

bool Repeater::load_playlist(int playlist_id) {
    ONDRA_LOG(ondra::kNormal, "[Repeater::load_playlist] Load playlist (playlist_id:%d)", playlist_id);
    auto desc = std::make_unique<PlaylistDesc>();
    try {
        desc->playlist.set_root_dir(root_dir_);
        desc->parser.parse_desc(playlist_id, playlist_desc_path_, desc->playlist);
        desc->parser.parse_effects(desc->playlist);
        desc->loader.start(desc->playlist);
    } catch (const std::exception& error) {
        ONDRA_LOG(ondra::kNormal, "[Repeater::load_playlist] Failed to load cuelist (err:%s)", error.what());
        return false;
    }
    {
        const ondra::WriterGuard guard{lock_};
        playlists_.push_back(std::move(desc));
    }
    ONDRA_LOG(ondra::kNormal, "[Repeater::load_playlist] Playlist loaded (playlist_id:%d)", playlist_id);
    return true;
}

// No lock: only this thread changes the list, and a playlist's id never changes.
PlaylistDesc* Repeater::find_playlist(int playlist_id) ONDRA_NO_THREAD_SAFETY_ANALYSIS {
    const auto found = std::find_if(playlists_.begin(), playlists_.end(), [playlist_id](const auto& desc) {
        return desc->playlist.id() == playlist_id;
    });
    return found == playlists_.end() ? nullptr : found->get();
}

std::unique_ptr<PlaylistDesc> Repeater::take_out(const PlaylistDesc& desc) {
    const auto found = std::find_if(playlists_.begin(), playlists_.end(),
                                    [&desc](const auto& entry) { return entry.get() == &desc; });
    assert(found != playlists_.end());
    std::unique_ptr<PlaylistDesc> removed = std::move(*found);
    playlists_.erase(found);
    return removed;
}

bool Repeater::play_playlist(int playlist_id) {
    ONDRA_LOG(ondra::kNormal, "[Repeater::play_playlist] Play playlist (playlist_id:%d)", playlist_id);
    PlaylistDesc* const desc = find_playlist(playlist_id);
    if (desc == nullptr) {
        return load_and_play(playlist_id);
    }
    bool playing = false;
    {
        const ondra::WriterGuard guard{lock_};
        playing = desc->active || desc->play_requested;
    }
    if (playing) {
        ONDRA_LOG(ondra::kNormal, "[Repeater::play_playlist] Cuelist already playing");
        return true;
    }
    // A paused playlist has kept its ownership of merge packets.
    const ondra::WriterGuard guard{lock_};
    desc->play_requested = true;
    return true;
}

bool Repeater::load_and_play(int playlist_id) {
    if (!load_playlist(playlist_id)) {
        ONDRA_LOG(ondra::kNormal, "[Repeater::play_playlist] Failed to load cuelist");
        return false;
    }
    PlaylistDesc& desc = last_playlist();
    desc.loader.wait_ready();
    if (desc.playlist.packets_loaded() == 0) {
        ONDRA_LOG(ondra::kNormal, "[Repeater::play_playlist] Cuelist data is absent");
        desc.loader.stop();
        wait_until_done(desc.loader);
        std::unique_ptr<PlaylistDesc> removed;
        const ondra::WriterGuard guard{lock_};
        removed = take_out(desc);
        return false;
    }
    const ondra::WriterGuard guard{lock_};
    add_merge_packet_owner(desc.playlist);
    desc.play_requested = true;
    return true;
}

bool Repeater::pause_playlist(int playlist_id) {
    ONDRA_LOG(ondra::kNormal, "[Repeater::pause_playlist] Pause playlist (playlist_id:%d)", playlist_id);
    if (nothing_loaded()) {
        ONDRA_LOG(ondra::kNormal, "[Repeater::pause_playlist] No active cuelists");
        return false;
    }
    PlaylistDesc* const desc = find_playlist(playlist_id);
    if (desc == nullptr) {
        ONDRA_LOG(ondra::kNormal, "[Repeater::pause_playlist] Cuelist is not active");
        return false;
    }
    const ondra::WriterGuard guard{lock_};
    desc->active = false;
    desc->play_requested = false;
    return true;
}

void Repeater::stop_playlist(int playlist_id) {
    ONDRA_LOG(ondra::kNormal, "[Repeater::stop_playlist] Stop playlist (playlist_id:%d)", playlist_id);
    if (nothing_loaded()) {
        ONDRA_LOG(ondra::kNormal, "[Repeater::stop_playlist] No active cuelists");
        return;
    }
    PlaylistDesc* const desc = find_playlist(playlist_id);
    if (desc == nullptr) {
        ONDRA_LOG(ondra::kNormal, "[Repeater::stop_playlist] Cuelist is not active");
        return;
    }
    {
        const ondra::WriterGuard guard{lock_};
        desc->finished = true;
    }
    desc->loader.stop();
    wait_until_done(desc->loader);
    // Destroyed after the release: giving back a show's memory takes longer than a frame.
    std::unique_ptr<PlaylistDesc> removed;
    const ondra::WriterGuard guard{lock_};
    remove_merge_packet_owner(desc->playlist);
    removed = take_out(*desc);
}

void Repeater::set_brightness(int playlist_id, int brightness) {
    ONDRA_LOG(ondra::kDetail, "[Repeater::set_brightness] Set brightness (playlist_id:%d, brightness:%d)",
              playlist_id, brightness);
    PlaylistDesc* const desc = find_playlist(playlist_id);
    if (desc == nullptr) {
        ONDRA_LOG(ondra::kNormal, "[Repeater::set_brightness] Cuelist is not active (playlist_id:%d)",
                  playlist_id);
        return;
    }
    const ondra::WriterGuard guard{lock_};
    desc->playlist.set_brightness(clamp_percent(brightness));
}

void Repeater::set_speed_boost(int playlist_id, int speed_boost) {
    ONDRA_LOG(ondra::kDetail, "[Repeater::set_speed_boost] Set speed boost (playlist_id:%d, speed_boost:%d)",
              playlist_id, speed_boost);
    PlaylistDesc* const desc = find_playlist(playlist_id);
    if (desc == nullptr) {
        ONDRA_LOG(ondra::kNormal, "[Repeater::set_speed_boost] Cuelist is not active (playlist_id:%d)",
                  playlist_id);
        return;
    }
    const ondra::WriterGuard guard{lock_};
    desc->playlist.set_speed_boost(clamp_percent(speed_boost));
}

// Without the lock, as find_playlist().
bool Repeater::nothing_loaded() const ONDRA_NO_THREAD_SAFETY_ANALYSIS {
    return playlists_.empty();
}

// Without the lock, as find_playlist().
PlaylistDesc& Repeater::last_playlist() ONDRA_NO_THREAD_SAFETY_ANALYSIS {
    return *playlists_.back();
}
