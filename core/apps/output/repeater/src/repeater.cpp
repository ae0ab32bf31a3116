// The engine's life, its setters and the operation that stops everything. Main thread.

#include "repeater.h"

#include <utility>

#include "ondra/device_info.h"
#include "ondra/logger.h"
#include "ondra/thread_name.h"
#include "ondra/timing.h"

namespace {

/// UDP port of Art-Net (Art-Net 4).
constexpr int kArtNetPort = 6454;

}  // namespace

Repeater::Repeater() {
    register_zone_types();
    ondra::device::initialize();
    broadcast_ip_ = ondra::device::broadcast_ip();
    broadcast_address_ = Address(broadcast_ip_, kArtNetPort);
    // Last: everything above is ready before the worker runs.
    render_thread_ = std::thread([this] {
        ondra::name_this_thread("cue-render");
        do_render_work();
    });
}

Repeater::~Repeater() {
    running_.store(false, std::memory_order_release);
    if (render_thread_.joinable()) {
        render_thread_.join();
    }
}

void Repeater::set_root_dir(const QString& path) {
    ONDRA_LOG(ondra::kNormal, "[Repeater::set_root_dir] Set root directory (path:%s)",
              path.toLocal8Bit().constData());
    root_dir_ = path;
}

void Repeater::set_playlist_desc_path(const QString& path) {
    ONDRA_LOG(ondra::kNormal, "[Repeater::set_playlist_desc_path] Set playlist desc path (path:%s)",
              path.toLocal8Bit().constData());
    playlist_desc_path_ = path;
}

void Repeater::set_unicast_enabled(bool enabled) {
    const ondra::WriterGuard guard{lock_};
    unicast_enabled_ = enabled;
}

void Repeater::stop() {
    ONDRA_LOG(ondra::kNormal, "[Repeater::stop] Stop all playlists");
    {
        const ondra::WriterGuard guard{lock_};
        for (const auto& desc : playlists_) {
            desc->finished = true;
        }
    }
    end_loading();
    // Destroyed after the release: giving back a show's memory takes longer than a frame.
    std::vector<std::unique_ptr<PlaylistDesc>> removed;
    const ondra::WriterGuard guard{lock_};
    removed.swap(playlists_);
    merge_packets_.clear();
}

// No lock: only this thread changes the list, and a loader is asked through its atomics.
void Repeater::end_loading() ONDRA_NO_THREAD_SAFETY_ANALYSIS {
    for (const auto& desc : playlists_) {
        desc->loader.stop();
    }
    for (const auto& desc : playlists_) {
        ondra::wait_while([&loader = desc->loader] { return !loader.done(); });
    }
}

void Repeater::update_artnet_node_map(const QString& message) {
    const std::lock_guard guard{node_map_mutex_};
    ondra::update_artnet_node_map(message, pending_node_map_);
    node_map_changed_.store(true, std::memory_order_release);
}
