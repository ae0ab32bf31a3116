#pragma once
// A random show for the whole engine: files, and control calls at chosen cycles of the worker.

#include <cstdint>
#include <vector>

#include "random.h"
#include "show_records.h"

namespace model {

/// An effect as its files say it; what playback makes of it is in the playlist's packets.
struct EffectFiles {
    /// Frames per second; 0: the recording's own timing.
    int fps = 0;
    /// Packets per frame; 0: to be found from the recording.
    int packets_per_frame = 0;
    /// No recording: loading ends here.
    bool missing = false;
    /// Its packets, each with the delay of the timing packet behind it; negative: none is there.
    std::vector<Packet> recording;
};

struct ShowScenario {
    enum class Kind { Play, Pause, Stop, StopAll, Brightness, SpeedBoost, Unicast, Node, Zones };
    struct Step {
        /// Cycles that the worker turns before the call.
        int cycles = 0;
        Kind kind = Kind::Play;
        /// Index of the playlist.
        int playlist = 0;
        /// Percent; or 0 and 1 for off and on, or for a node gone and there.
        int value = 0;
        int universe = 0;
        Destination node;
    };

    explicit ShowScenario(std::uint64_t seed);

    std::vector<Zone> zones;
    /// Their packets carry the delays that loading must give them.
    std::vector<Playlist> playlists;
    /// Per playlist, its effects' files.
    std::vector<std::vector<EffectFiles>> files;
    std::vector<Step> steps;
    /// Each datagram whose number leaves 3 when divided by this is refused; 0: none.
    int refuse_modulus = 0;

private:
    Playlist make_playlist(Random& random, int id);
    EffectFiles make_files(Random& random) const;
    Effect make_routing(Random& random) const;
    Step make_step(Random& random) const;

    std::vector<int> universes_;
    std::vector<Destination> destinations_;
};

/// The packets of one effect with the delays that its files mean, for effect number `effect`.
std::vector<Packet> timed(const EffectFiles& files, int effect);

}  // namespace model
