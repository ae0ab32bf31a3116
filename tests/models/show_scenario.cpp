#include "show_scenario.h"

#include <algorithm>

#include "merge_scenario.h"

namespace model {

namespace {

constexpr int kZones = 4;
constexpr int kSteps = 25;
constexpr std::int64_t kLastPacket = 30'000'000;
constexpr std::int64_t kSecond = 1'000'000'000;

/// Number of packets up to the first universe that comes again; 0 while none does among the first `count`.
int found_frame_size(const std::vector<Packet>& packets, std::size_t count) {
    for (std::size_t place = 0; place < count; ++place) {
        for (std::size_t before = 0; before < place; ++before) {
            if (packets[before].universe == packets[place].universe) {
                return static_cast<int>(place);
            }
        }
    }
    return 0;
}

}  // namespace

std::vector<Packet> timed(const EffectFiles& files, int effect) {
    std::vector<Packet> packets = files.recording;
    for (std::size_t place = 0; place < packets.size(); ++place) {
        Packet& packet = packets[place];
        const bool last = place + 1 == packets.size();
        packet.effect = effect;
        if (files.fps == 0) {
            packet.delay = last ? kLastPacket : std::max<std::int64_t>(packet.delay, 0);
            continue;
        }
        // A packet's place in its frame is judged when the next packet is known.
        int size = files.packets_per_frame;
        if (size == 0 && !last) {
            size = found_frame_size(files.recording, place + 2);
        }
        const bool ends_frame = last || (size != 0 && (place + 1) % static_cast<std::size_t>(size) == 0);
        packet.delay = ends_frame ? kSecond / files.fps : 0;
    }
    return packets;
}

ShowScenario::ShowScenario(std::uint64_t seed) {
    Random random(seed);
    universes_ = {random.between(0, 2), random.between(3, 300), random.between(301, 32767)};
    static const std::vector<std::string> addresses{"192.0.2.1", "192.0.2.2", "198.51.100.7"};
    static const std::vector<int> ports{6454, 1024, 32767, 32768, 40000};
    for (int count = random.between(1, 3); count > 0; --count) {
        destinations_.push_back({random.of(addresses), random.of(ports)});
    }
    for (int id = 0; id < kZones; ++id) {
        zones.push_back(random_zone(random, id));
    }
    for (int id = 1, count = random.between(2, 5); id <= count; ++id) {
        playlists.push_back(make_playlist(random, id));
    }
    refuse_modulus = random.chance(30) ? random.between(5, 20) : 0;
    // At first everything is played at the same moment.
    for (int index = 0; index < static_cast<int>(playlists.size()); ++index) {
        steps.push_back({0, Kind::Play, index, 0, 0, {}});
    }
    for (int count = 0; count < kSteps; ++count) {
        steps.push_back(make_step(random));
    }
}

Playlist ShowScenario::make_playlist(Random& random, int id) {
    Playlist playlist;
    playlist.id = id;
    playlist.loop = random.chance(60);
    playlist.brightness = random.chance(60) ? 100 : random.between(-20, 150);
    playlist.speed_boost = random.chance(60) ? 0 : random.between(-150, 150);
    std::vector<EffectFiles>& effects = files.emplace_back();
    bool complete = true;
    for (int number = 0, count = random.between(1, 3); number < count; ++number) {
        effects.push_back(make_files(random));
        playlist.effects.push_back(make_routing(random));
        complete = complete && !effects.back().missing;
        if (complete) {
            const std::vector<Packet> packets = timed(effects.back(), number);
            playlist.packets.insert(playlist.packets.end(), packets.begin(), packets.end());
        }
    }
    return playlist;
}

EffectFiles ShowScenario::make_files(Random& random) const {
    static const std::vector<std::int64_t> delays{0,          1,          5'000'000,  10'000'000, 10'000'000,
                                                  20'000'000, 20'000'000, 40'000'000, 33'333'333, 7'654'321};
    static const std::vector<int> rates{25, 30, 44, 50, 999};
    EffectFiles made;
    made.missing = random.chance(3);
    made.fps = random.chance(30) ? random.of(rates) : 0;
    made.packets_per_frame = random.chance(50) ? random.between(1, 4) : 0;
    const std::int64_t pace = random.of(delays);
    for (int frames = random.between(1, 5); frames > 0; --frames) {
        const int size = random.between(1, 3);
        for (int place = 0; place < size; ++place) {
            const int universe = universes_[static_cast<std::size_t>(place)];
            made.recording.push_back({universe, random_dmx(random, universe), 0, -1});
        }
        made.recording.back().delay = random.chance(70) ? pace : random.of(delays);
    }
    return made;
}

Effect ShowScenario::make_routing(Random& random) const {
    Effect effect;
    for (const int universe : {universes_[0], universes_[1], kAllOthers}) {
        if (random.chance(40)) {
            for (int count = random.between(1, 2); count > 0; --count) {
                effect.outputs[universe].push_back(random.of(destinations_));
            }
        }
    }
    for (const int universe : universes_) {
        if (random.chance(70)) {
            effect.zones[universe] =
                random.chance(85) ? random.between(0, kZones - 1) : random.between(kMuted, kZones);
        }
    }
    return effect;
}

ShowScenario::Step ShowScenario::make_step(Random& random) const {
    static const std::vector<Kind> kinds{Kind::Play,       Kind::Play,       Kind::Play, Kind::Pause,
                                         Kind::Stop,       Kind::Brightness, Kind::Node, Kind::Node,
                                         Kind::SpeedBoost, Kind::Unicast,    Kind::Zones};
    Step step;
    step.cycles = random.chance(20) ? 0 : random.between(1, 12);
    step.kind = random.chance(3) ? Kind::StopAll : random.of(kinds);
    step.playlist = random.between(0, static_cast<int>(playlists.size()) - 1);
    step.value = random.between(-20, 150);
    if (step.kind == Kind::Unicast || step.kind == Kind::Node) {
        step.value = random.chance(70) ? 1 : 0;
    }
    step.universe = random.of(universes_);
    step.node = random.of(destinations_);
    return step;
}

}  // namespace model
