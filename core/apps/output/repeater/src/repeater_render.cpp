// The render worker: takes up plays, waits for the next due time, sends. All on the render worker.

#include "repeater.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <string>

#include "ondra/logger.h"
#include "ondra/timing.h"
#include "playlist_stopped_object.h"

using ondra::Clock;
using namespace std::chrono_literals;

namespace {

/// Sleep while nothing plays, and step of a playlist whose loader is behind.
constexpr Clock::duration kIdleInterval = 10ms;

/// How long before a frame is due its rehearsal begins: time for most frames' rehearsal with the pauses that
/// cold memory makes in it, and short enough that nothing is forgotten again.
constexpr Clock::duration kRehearsalLead = 500us;

/// What stays free between a rehearsal and the due time. A rehearsal looks at the clock before each datagram,
/// so that even a slow board is through with what it has begun by then.
constexpr Clock::duration kRehearsalMargin = 50us;

/// Limit of a playlist that is still loading: more packets may come.
constexpr int kNoLimit = std::numeric_limits<int>::max();

/// Whether the render worker plays it.
bool plays(const PlaylistDesc& desc) {
    return desc.active && !desc.finished;
}

/// Index of the record's next packet: that of its position, or of its beginning where a loop is at its end.
int next_packet(const PlaylistDesc& desc) {
    // The count is the final one only when it is read after done().
    if (!desc.loader.done() || !desc.playlist.loop_mode()) {
        return desc.position;
    }
    const int count = desc.playlist.packets_loaded();
    return desc.position >= count ? desc.position - count : desc.position;
}

/// Text of an errno value; any thread.
std::string error_text(int error) {
    std::array<char, 128> buffer{};
    return strerror_r(error, buffer.data(), buffer.size());
}

}  // namespace

void Repeater::do_render_work() {
    ONDRA_LOG(ondra::kNormal, "[Repeater::do_render_work] Start render worker");
    socket_ = std::make_unique<ondra::net::UdpSocket>();
    PlaylistStoppedObject stopped;
    // The worker's object and the engine live on different threads, which makes this connection a queued one.
    connect(&stopped, &PlaylistStoppedObject::OnPlaylistStopped, this, &Repeater::OnPlaylistStopped);
    // Reused for every packet, so that playing allocates nothing.
    Playlist::Packet packet;

    // Held for the worker's whole life: it goes to a waiting writer once per cycle and while idle. A control
    // call so waits for the current due time at most, and a frame is never cut by one.
    lock_.lock_as_reader();
    while (running_.load(std::memory_order_acquire)) {
        lock_.resolve_pending_write();
        take_up_requests();
        PlaylistDesc* const desc = next_due();
        if (desc == nullptr) {
            lock_.unlock_as_reader();
            ondra::sleep_for(kIdleInterval);
            lock_.lock_as_reader();
            continue;
        }
        wait_until_due(*desc, packet);
        refresh_node_map();
        if (send_due_packets(*desc, packet)) {
            desc->finished = true;
            Q_EMIT stopped.OnPlaylistStopped(desc->playlist.id());
        }
    }
    lock_.unlock_as_reader();
    socket_.reset();
}

void Repeater::take_up_requests() {
    for (const auto& desc : playlists_) {
        if (desc->play_requested) {
            desc->active = true;
            desc->play_requested = false;
            desc->due_time = Clock::now();
        }
    }
}

PlaylistDesc* Repeater::next_due() {
    PlaylistDesc* next = nullptr;
    for (const auto& desc : playlists_) {
        if (plays(*desc) && (next == nullptr || desc->due_time < next->due_time)) {
            next = desc.get();
        }
    }
    return next;
}

void Repeater::wait_until_due(const PlaylistDesc& next, Playlist::Packet& packet) {
    // Both conditions hold their time by reference: std::function keeps 8 bytes that are aligned to 8 without
    // allocating only where pointers have 8, and the worker must not allocate on a 32-bit board either.
    const Clock::time_point last_moment = next.due_time - kRehearsalMargin;
    if (Clock::now() < last_moment) {
        const Clock::time_point begin = next.due_time - kRehearsalLead;
        ondra::wait_while([&begin] { return Clock::now() < begin; });
        rehearse(next, packet, last_moment);
        // One that follows closely may find no time for a rehearsal of its own.
        const Clock::time_point soon = ondra::saturating_add(next.due_time, kRehearsalLead);
        for (const auto& desc : playlists_) {
            if (Clock::now() >= last_moment) {
                break;
            }
            if (desc.get() != &next && plays(*desc) && desc->due_time < soon) {
                rehearse(*desc, packet, last_moment);
            }
        }
    }
    const Clock::time_point due_time = next.due_time;
    ondra::wait_while([&due_time] { return Clock::now() < due_time; });
}

void Repeater::rehearse(const PlaylistDesc& desc, Playlist::Packet& packet, Clock::time_point end) {
    // A running loader may hold the playlist's lock, and nobody's frame must wait for that before its time.
    if (!desc.loader.done()) {
        return;
    }
    rehearsal_end_ = end;
    int index = next_packet(desc);
    while (Clock::now() < end && desc.playlist.packet(index, packet)) {
        static_cast<void>(send_packet(desc.playlist, index, packet));
        ++index;
        if (packet.delay >= 1ns) {
            break;
        }
    }
    rehearsal_end_.reset();
}

void Repeater::refresh_node_map() {
    if (node_map_changed_.load(std::memory_order_acquire)) {
        const std::lock_guard guard{node_map_mutex_};
        node_map_changed_.store(false, std::memory_order_relaxed);
        node_map_ = pending_node_map_;
    }
}

bool Repeater::send_due_packets(PlaylistDesc& desc, Playlist::Packet& packet) {
    const Playlist& playlist = desc.playlist;
    int limit = kNoLimit;
    if (desc.loader.done()) {
        limit = playlist.packets_loaded();
        desc.position = next_packet(desc);
    }
    while (desc.position < limit) {
        if (!playlist.packet(desc.position, packet)) {
            desc.due_time = ondra::saturating_add(desc.due_time, kIdleInterval);
            break;
        }
        if (!send_packet(playlist, desc.position, packet)) {
            const int error = errno;
            // A failed send counts as sent: the show's time goes on.
            ONDRA_LOG(
                ondra::kSendTrace,
                "[Repeater::do_render_work] Can't send packet (playlist_id:%d, packet:%d, universe:%d) due "
                "to '%s', errno %d",
                playlist.id(), desc.position, packet.universe, error_text(error).c_str(), error);
        }
        ++desc.position;
        if (packet.delay >= 1ns) {
            desc.due_time = ondra::saturating_add(
                desc.due_time, ondra::calculate_delay(packet.delay, playlist.get_speed_boost()));
            break;
        }
    }
    return !playlist.loop_mode() && desc.position >= limit;
}
