#include "merge_scenario.h"

#include <algorithm>

namespace model {

namespace {

constexpr int kKnownZones = 5;
/// Never defined.
constexpr int kUnknownZone = 77;
constexpr int kSteps = 30;

const std::vector<std::string>& addresses() {
    static const std::vector<std::string> list{"192.0.2.1", "192.0.2.2",       "198.51.100.7",
                                               "10.1.2.3",  "255.255.255.255", "no address"};
    return list;
}

const std::vector<int>& ports() {
    static const std::vector<int> list{6454, 6455, 1024, 32767, 32768, 40000, 65535};
    return list;
}

std::vector<int> random_channels(Random& random) {
    std::vector<int> channels;
    for (int runs = random.between(1, 3); runs > 0; --runs) {
        // Runs start in one small range, so that zones meet, and reach over the ends at times.
        const int first = random.chance(10) ? random.between(480, 520) : random.between(-4, 60);
        const int length = random.chance(30) ? random.between(100, 512) : random.between(1, 40);
        const int step = random.chance(80) ? 1 : random.between(-1, 3);
        for (int index = 0; index < length; ++index) {
            channels.push_back(first + index * step);
        }
    }
    if (random.chance(10)) {
        const std::vector<int> strange{-1, 512, 1000000, -2147483647 - 1, 2147483647};
        channels.insert(channels.begin() + random.between(0, 1), random.of(strange));
    }
    return channels;
}

}  // namespace

Zone random_zone(Random& random, int id) {
    static const std::vector<int> priorities{-1, 0, 1, 1, 2, 2, 3, 100, -5};
    return {id, random.of(priorities), random_channels(random)};
}

std::vector<std::uint8_t> random_dmx(Random& random, int universe) {
    const int channels = random.chance(50)   ? kChannels
                         : random.chance(10) ? random.between(0, 1)
                                             : random.between(1, kChannels);
    std::vector<std::uint8_t> bytes{'A', 'r', 't', '-', 'N', 'e', 't', 0, 0, 0x50, 0, 14};
    bytes.push_back(static_cast<std::uint8_t>(random.between(0, 255)));
    bytes.push_back(static_cast<std::uint8_t>(random.between(0, 3)));
    bytes.push_back(static_cast<std::uint8_t>(universe));
    bytes.push_back(static_cast<std::uint8_t>(universe >> 8));
    bytes.push_back(static_cast<std::uint8_t>(channels >> 8));
    bytes.push_back(static_cast<std::uint8_t>(channels));
    while (static_cast<int>(bytes.size()) < kHeader + channels) {
        std::uint64_t levels = random.next();
        for (int byte = 0; byte < 8 && static_cast<int>(bytes.size()) < kHeader + channels; ++byte) {
            bytes.push_back(static_cast<std::uint8_t>(levels));
            levels >>= 8;
        }
    }
    return bytes;
}

MergeScenario::MergeScenario(std::uint64_t seed) {
    Random random(seed);
    universes_.push_back(random.chance(90) ? random.between(0, 3) : random.between(32700, 65535));
    universes_.push_back(random.between(0, 400));
    for (int count = random.between(1, 3); count > 0; --count) {
        destinations_.push_back({random.of(addresses()), random.of(ports())});
    }
    make_zones(random);
    make_nodes(random);
    for (int id = 1, count = random.between(2, 4); id <= count; ++id) {
        playlists.push_back(make_playlist(random, id));
    }
    make_steps(random);
}

void MergeScenario::make_zones(Random& random) {
    for (int id = 0; id < kKnownZones; ++id) {
        zones.push_back(random_zone(random, id));
    }
}

void MergeScenario::make_nodes(Random& random) {
    for (const int universe : universes_) {
        std::vector<Destination> list;
        for (int count = random.between(0, 3); count > 0; --count) {
            const Destination node{random.of(addresses()), random.of(ports())};
            list.insert(list.end(), random.chance(20) ? 2U : 1U, node);
        }
        nodes[universe] = list;
    }
}

Effect MergeScenario::make_effect(Random& random) const {
    Effect effect;
    for (const int universe : {universes_[0], universes_[1], kAllOthers}) {
        if (random.chance(universe == kAllOthers ? 30 : 40)) {
            std::vector<Destination>& list = effect.outputs[universe];
            for (int count = random.chance(5) ? 0 : random.between(1, 3); count > 0; --count) {
                list.push_back(random.of(destinations_));
            }
        }
    }
    for (const int universe : universes_) {
        if (random.chance(85)) {
            effect.zones[universe] = random.chance(90)   ? random.between(0, kKnownZones - 1)
                                     : random.chance(50) ? kUnknownZone
                                                         : random.between(kMuted, kNoZone);
        }
    }
    if (random.chance(5)) {
        // Same frame, since a frame's name holds 16 bits of the universe.
        effect.zones[universes_[0] + 65536] = random.between(0, kKnownZones - 1);
    }
    return effect;
}

Playlist MergeScenario::make_playlist(Random& random, int id) {
    Playlist playlist;
    playlist.id = id;
    // A description file may say anything; the bus clamps.
    playlist.brightness = random.chance(40)   ? 100
                          : random.chance(90) ? random.between(0, 100)
                                              : random.between(-300, 1000);
    const int effects = random.between(1, 2);
    for (int number = 0; number < effects; ++number) {
        playlist.effects.push_back(make_effect(random));
        for (int count = random.between(1, 3); count > 0; --count) {
            const int universe = random.of(universes_);
            playlist.packets.push_back({universe, random_dmx(random, universe), number, 0});
        }
    }
    if (random.chance(5)) {
        playlist.packets.push_back({universes_[0], random_dmx(random, universes_[0]), -1, 0});
    }
    return playlist;
}

void MergeScenario::make_steps(Random& random) {
    std::vector<bool> loaded(playlists.size(), false);
    std::vector<int> positions(playlists.size(), 0);
    for (int number = 0; number < kSteps; ++number) {
        const int index = random.between(0, static_cast<int>(playlists.size()) - 1);
        const auto place = static_cast<std::size_t>(index);
        if (random.chance(6)) {
            Step step = random_change(random);
            step.playlist = index;
            steps.push_back(step);
        } else if (!loaded[place]) {
            steps.push_back({Kind::Start, index, 0});
            loaded[place] = true;
            positions[place] = 0;
        } else if (random.chance(5)) {
            steps.push_back({Kind::Stop, index, 0});
            loaded[place] = false;
        } else {
            steps.push_back(
                {Kind::Send, index, positions[place], random.chance(5) ? random.between(0, 2) : -1});
            positions[place] = (positions[place] + 1) % static_cast<int>(playlists[place].packets.size());
        }
    }
    // Everything ends, and each frame must go with its last owner.
    for (int index = 0; index < static_cast<int>(playlists.size()); ++index) {
        if (loaded[static_cast<std::size_t>(index)]) {
            steps.push_back({Kind::Stop, index, 0});
        }
    }
}

MergeScenario::Step MergeScenario::random_change(Random& random) {
    if (random.chance(50)) {
        return {Kind::Brightness, 0, random.between(0, 100)};
    }
    if (random.chance(70)) {
        return {Kind::Unicast, 0, random.between(0, 1)};
    }
    if (random.chance(30)) {
        return {Kind::EraseZone, 0, random.between(0, kKnownZones - 1)};
    }
    // Gives back what may not have been taken.
    return {Kind::Stop, 0, 0};
}

}  // namespace model
