#include "playlist_loader.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <system_error>
#include <unordered_set>
#include <utility>
#include <vector>

#include <QByteArray>
#include <QString>

#include "artnet/artnet_parser.h"
#include "artnet/recording_timing.h"
#include "artnet/records.h"
#include "ondra/logger.h"
#include "ondra/thread_name.h"

using namespace std::chrono_literals;

namespace {

/// Playback may begin once more than this is stored.
constexpr ondra::Clock::duration kReadyAfter = 50ms;

constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;

constexpr int kUnknownFrameSize = -1;

/// Bytes by which the thread's heap grows at a time. Less than the C library takes a mapping of its own for,
/// or gives back at once.
constexpr std::size_t kHeapStep = 96UL * 1024;
/// What the C library adds to an allocation at most.
constexpr std::size_t kHeapOverhead = 24;

}  // namespace

struct PlaylistLoader::EffectLoad {
    Playlist& playlist;
    int index;
    const Playlist::Effect& effect;
    /// kUnknownFrameSize until it is found; 0 never ends a frame.
    int packets_per_frame;
    /// Universes seen while the frame size is being looked for.
    std::unordered_set<int> frame_universes;
    /// Packets of this effect stored so far.
    int flushed = 0;

    /// Whether the pending packet ends a frame, now that one of `universe` follows it.
    bool ends_frame(int universe) {
        if (packets_per_frame == kUnknownFrameSize && !frame_universes.insert(universe).second) {
            packets_per_frame = static_cast<int>(frame_universes.size());
        }
        return packets_per_frame != kUnknownFrameSize && packets_per_frame != 0 &&
               (flushed + 1) % packets_per_frame == 0;
    }
};

PlaylistLoader::~PlaylistLoader() {
    running_.store(false);
    if (thread_.joinable()) {
        thread_.join();
    }
}

void PlaylistLoader::start(Playlist& playlist) {
    running_.store(false);
    if (thread_.joinable()) {
        thread_.join();
    }
    done_flag_.store(false);
    pending_valid_ = false;
    ready_latch_ = false;
    ready_.store(false);
    {
        const ondra::WriterGuard guard{playlist.lock_};
        playlist.packets_.clear();
    }
    loaded_time_ = 0ns;
    stored_bytes_ = kHeapStep;
    playlist.loaded_effects_.store(0);
    playlist.packet_count_.store(0);
    // Entries of an earlier load keep their value: each effect's first packet overwrites its own.
    playlist.effect_end_.resize(playlist.effects_.size(), -1);
    running_.store(true);
    thread_ = std::thread([this, &playlist] {
        ondra::name_this_thread("cue-loader");
        load_playlist(playlist);
    });
}

void PlaylistLoader::stop() noexcept {
    running_.store(false);
}

void PlaylistLoader::wait_ready() const {
    ondra::wait_while([this] { return !ready_.load(std::memory_order_acquire); });
}

void PlaylistLoader::load_playlist(Playlist& playlist) {
    const auto effects = static_cast<int>(playlist.effects().size());
    for (int index = 0; index < effects && running_.load(); ++index) {
        if (!load_effect(playlist, index)) {
            break;
        }
    }
    raise_ready();
    running_.store(false);
    done_flag_.store(true, std::memory_order_release);
}

void PlaylistLoader::make_room(std::size_t size) {
    stored_bytes_ += size + kHeapOverhead;
    if (stored_bytes_ >= kHeapStep) {
        // The C library makes the heap of a thread larger by a page at a time, each by a system call; that
        // was a third of a load's time. What is freed at the heap's end stays there for the packets to come.
        ::operator delete(::operator new(kHeapStep));
        stored_bytes_ = size + kHeapOverhead;
    }
}

void PlaylistLoader::raise_ready() {
    if (!ready_latch_) {
        ready_latch_ = true;
        ready_.store(true, std::memory_order_release);
    }
}

bool PlaylistLoader::load_effect(Playlist& playlist, int effect_index) {
    const Playlist::Effect& effect = playlist.effects()[static_cast<std::size_t>(effect_index)];
    const QByteArray path = (playlist.get_root_dir() + QStringLiteral("/") + effect.path).toLocal8Bit();
    ONDRA_LOG(ondra::kNormal, "[PlaylistLoader::load_effect] Load effect (%s)", path.constData());

    ArtNetParser parser;
    EffectLoad load{playlist, effect_index, effect, effect.auto_ppf ? kUnknownFrameSize : effect.ppf, {}};
    // A timing packet tells the delay of the ArtDmx packet before it; the last one before the next counts.
    const auto set_delay = [&](std::int64_t nanoseconds) {
        if (!effect.fixed_fps && pending_valid_) {
            pending_.delay = ondra::Clock::duration(nanoseconds);
        }
    };
    parser.on_artdmx = [&](ArtDmx& dmx) { take_dmx(load, parser, dmx); };
    parser.on_artoemvfps = [&](ArtOemVfps& timing) {
        // Copied first: the field of the packed record may lie at any address, where no reference may bind.
        const std::uint32_t milliseconds = timing.Milliseconds;
        set_delay(std::int64_t{milliseconds} * kNanosecondsPerMillisecond);
    };
    parser.on_artoemvfpsns = [&](ArtOemVfpsNs& timing) {
        // Above the signed range it turns negative, which playback takes as no delay.
        set_delay(static_cast<std::int64_t>(timing.Nanoseconds));
    };
    parser.on_unknown = [&](ArtHeader& header) {
        ONDRA_LOG(ondra::kNormal,
                  "[PlaylistLoader::load_effect] Skipped unknown ArtNet packet (%d) with OpCode (0x%x)",
                  static_cast<int>(parser.packet_counter), static_cast<unsigned>(header.OpCode));
    };
    parser.on_error = [&](const std::error_code& error) {
        ONDRA_LOG(ondra::kWarning, "[PlaylistLoader::load_effect] Non-critical error (%s:%d) in packet (%d)",
                  error.category().name(), error.value(), static_cast<int>(parser.packet_counter));
    };

    std::error_code error;
    parser.parse(path.constData(), error);
    if (error) {
        ONDRA_LOG(ondra::kError, "[PlaylistLoader::load_effect] Cue (%s) parse error (%d)", path.constData(),
                  error.value());
        return false;
    }
    if (!effect.fixed_fps && pending_valid_) {
        pending_.delay = kLastFrameTime;
    }
    flush_pending_packet(playlist, effect_index, true);
    playlist.loaded_effects_.fetch_add(1, std::memory_order_release);
    return true;
}

void PlaylistLoader::take_dmx(EffectLoad& load, ArtNetParser& parser, ArtDmx& dmx) {
    const int universe = universe_of(dmx);
    const bool frame_end = load.ends_frame(universe);
    if (flush_pending_packet(load.playlist, load.index, frame_end)) {
        ++load.flushed;
    }
    const std::size_t size = offsetof(ArtDmx, Data) + dmx.Length;
    parser.convert_to_raw(dmx);
    const auto* const raw = reinterpret_cast<const unsigned char*>(&dmx);
    make_room(size);
    pending_.universe = universe;
    pending_.data = std::vector<unsigned char>(raw, raw + size);
    pending_.delay = 0ns;
    pending_valid_ = true;
    if (!running_.load()) {
        parser.stop();
    }
}

bool PlaylistLoader::flush_pending_packet(Playlist& playlist, int effect_index, bool frame_end) {
    if (!pending_valid_) {
        return false;
    }
    pending_valid_ = false;
    const Playlist::Effect& effect = playlist.effects()[static_cast<std::size_t>(effect_index)];
    if (frame_end && effect.fixed_fps) {
        pending_.delay = ondra::calculate_delay(effect.fps);
    }
    const int index = playlist.packets_loaded();
    ONDRA_LOG(ondra::kLoadTrace,
              "[PlaylistLoader::flush_pending_packet] Loaded packet (index:%d, size:%d, universe:%d)", index,
              static_cast<int>(pending_.data.size()), pending_.universe);
    // A delay below zero is none.
    if (pending_.delay > 0ns) {
        loaded_time_ = ondra::saturating_add(loaded_time_, pending_.delay);
    }
    playlist.add_packet(std::move(pending_));
    std::atomic_ref<int>(playlist.effect_end_[static_cast<std::size_t>(effect_index)])
        .store(index, std::memory_order_release);
    if (loaded_time_ > kReadyAfter) {
        raise_ready();
    }
    return true;
}
