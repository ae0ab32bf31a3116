#pragma once
// A random scenario for the merge: a small show, and what happens to it step by step.

#include <cstdint>
#include <map>
#include <vector>

#include "random.h"
#include "show_records.h"

namespace model {

struct MergeScenario {
    enum class Kind { Start, Stop, Send, Brightness, Unicast, EraseZone };
    struct Step {
        Kind kind = Kind::Send;
        /// Index of the playlist.
        int playlist = 0;
        /// Send: index of the packet. Brightness: percent. Unicast: 0 or 1. EraseZone: id.
        int value = 0;
        /// Send: number of the datagram, from 0, that the network refuses; -1: none.
        int refused = -1;
    };

    explicit MergeScenario(std::uint64_t seed);

    std::vector<Zone> zones;
    std::map<int, std::vector<Destination>> nodes;
    std::vector<Playlist> playlists;
    std::vector<Step> steps;

private:
    void make_zones(Random& random);
    void make_nodes(Random& random);
    Effect make_effect(Random& random) const;
    Playlist make_playlist(Random& random, int id);
    void make_steps(Random& random);
    Step random_change(Random& random);

    /// What few universes and destinations the whole scenario shares, so that its playlists meet.
    std::vector<int> universes_;
    std::vector<Destination> destinations_;
};

/// Levels, header and size at random. 18 bytes have no channels.
std::vector<std::uint8_t> random_dmx(Random& random, int universe);
/// A zone that likely shares channels with the others made so.
Zone random_zone(Random& random, int id);

}  // namespace model
