// Fuzz target: a recording on its way through the loader into a playlist.
#include <algorithm>
#include <thread>

#include <pthread.h>

#include "loader_model.h"
#include "memory_file.h"
#include "ondra/timing.h"
#include "playlist_loader.h"
#include "recordings.h"
#include "support/playlist_access.h"
#include "target.h"

namespace fuzz {

namespace {

/// Negative counts as none.
ondra::Clock::duration wait_of(const Playlist::Packet& packet) {
    return std::max(packet.delay, ondra::Clock::duration::zero());
}

void check_packet(const Playlist::Packet& packet, const Playlist::Packet& expected) {
    require(packet.universe == expected.universe, "a packet belongs to its universe");
    require(packet.data == expected.data, "a packet is stored as it was recorded");
    require(wait_of(packet) == wait_of(expected), "a packet waits as its frame's timing says");
}

/// Loads once more and stops at once: what is stored, however much, is the beginning of a whole load.
void load_and_stop(Playlist& playlist, PlaylistLoader& loader, const LoadedEffect& expected) {
    loader.start(playlist);
    loader.stop();
    loader.wait_ready();
    while (!loader.done()) {
        std::this_thread::yield();
    }
    const std::size_t each = expected.packets.size();
    // A stop that is noticed at the last packet before a fault ends the effect as if its file had ended: that
    // packet is stored, which the fault would have dropped.
    const std::size_t most = expected.whole ? 2 * each : each + 1;
    require(playlist.packets_loaded() <= static_cast<int>(most),
            "a stopped load stores no more than a whole one and the packet held back");
    Playlist::Packet packet;
    for (int index = 0; index < playlist.packets_loaded(); ++index) {
        require(playlist.packet(index, packet), "a stored packet can be had");
        if (!expected.whole && static_cast<std::size_t>(index) == each) {
            continue;
        }
        require(packet.data == expected.packets.at(static_cast<std::size_t>(index) % each).data,
                "a stopped load is the beginning of a whole one");
    }
}

/// The address sanitizer clears its record of a thread's whole stack at each start, eight megabytes of it by
/// default. The thread sanitizer does not, and needs more stack than this for itself.
bool make_stacks_small() {
#ifdef __SANITIZE_THREAD__
    return true;
#else
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 512 * 1024);
    const bool done = pthread_setattr_default_np(&attributes) == 0;
    pthread_attr_destroy(&attributes);
    return done;
#endif
}

bool run(Input input) {
    static MemoryFile file;
    [[maybe_unused]] static const bool kStacksAreSmall = make_stacks_small();
    format_log_lines();
    Playlist::Effect effect;
    const std::uint8_t rate = take_byte(input);
    effect.fixed_fps = rate % 2 != 0;
    effect.fps = effect.fixed_fps ? rate / 2 - 2 : -1;
    effect.ppf = take_byte(input) % 8 - 2;
    effect.auto_ppf = effect.fixed_fps && effect.ppf == -1;
    effect.path = QString::fromStdString(input.empty() ? "absent" : file.name());
    file.write(to_string(input));

    Playlist playlist;
    playlist.set_root_dir(QLatin1String(MemoryFile::kDirectory));
    PlaylistAccess::effects(playlist) = {effect, effect};
    PlaylistLoader loader;
    loader.start(playlist);
    loader.wait_ready();
    while (!loader.done()) {
        std::this_thread::yield();
    }
    const LoadedEffect expected = expected_load(input, effect);
    const auto each = static_cast<int>(expected.packets.size());
    const int stored = playlist.packets_loaded();
    require(stored == (expected.whole ? 2 * each : each), "the load ends with the first bad recording");
    Playlist::Packet packet;
    for (int index = 0; index < stored; ++index) {
        require(playlist.packet(index, packet), "a stored packet can be had");
        check_packet(packet, expected.packets.at(static_cast<std::size_t>(index % each)));
        const Playlist::Address* address = nullptr;
        int count = 0;
        int zone = 0;
        require(playlist.packet_info(index, &address, count, zone), "a stored packet belongs to an effect");
    }
    const std::vector<int> ends = PlaylistAccess::effect_end(playlist);
    require(ends.at(0) == each - 1 && ends.at(1) == (stored > each ? stored - 1 : -1),
            "an effect ends with its last packet");
    require(PlaylistAccess::loaded_effects(playlist) == (expected.whole ? 2 : 0),
            "whole effects are counted");
    if (rate >= 192) {
        load_and_stop(playlist, loader, expected);
    }
    return stored > 0;
}

std::vector<Seed> seeds() {
    std::vector<Seed> seeds = recording_seeds(std::string("\0\1", 2));
    for (Seed& fixed_rate : recording_seeds(std::string("\x41\1", 2))) {
        fixed_rate.name += "_at_30_fps";
        seeds.push_back(fixed_rate);
    }
    for (Seed& two_a_frame : recording_seeds(std::string("\x41\4", 2))) {
        two_a_frame.name += "_by_two";
        seeds.push_back(two_a_frame);
    }
    for (Seed& stopped : recording_seeds(std::string("\xC2\1", 2))) {
        stopped.name += "_then_stopped";
        seeds.push_back(stopped);
    }
    return seeds;
}

}  // namespace

Target recording_loader() {
    return {"recording_loader",
            run,
            seeds,
            1700,
            kRecordingDictionary,
            "core/apps/output/repeater/src/playlist_loader.cpp"};
}

}  // namespace fuzz
