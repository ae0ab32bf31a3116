// The engine's merge and routing against the model, over random scenarios.
//
// A run of any length: MERGE_MODEL_COUNT=100000 scripts/test dev -R merge_model_test -V
// A failure names its seed and how to replay it.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>

#include "merge_model.h"
#include "merge_scenario.h"
#include "support/engine_test.h"
#include "support/playlist_access.h"

namespace {

using model::MergeModel;
using model::MergeScenario;
using Kind = MergeScenario::Kind;

constexpr std::uint64_t kDefaultCount = 5000;

/// How many scenarios had what.
struct Mix {
    int overlapping = 0;
    int short_packets = 0;
    int dimmed = 0;
    int odd_brightness = 0;
    int high_ports = 0;
    int low_ports = 0;
    int unknown_zone = 0;
    int priority_minus_one = 0;
    int strange_channels = 0;
    int muted = 0;
    int refused = 0;
    int broadcast = 0;
    int unicast_nodes = 0;
    int started_beside = 0;
    int stopped_beside = 0;
    long long datagrams = 0;

    void print(std::uint64_t scenarios, double seconds) const;
    /// A generator that no longer reaches these would prove nothing of them.
    void expect_all(std::uint64_t scenarios) const;
};

void Mix::print(std::uint64_t scenarios, double seconds) const {
    std::cout << scenarios << " scenarios, " << datagrams << " datagrams compared, " << seconds
              << " s; with\n";
    const auto line = [scenarios](const char* what, int count) {
        std::cout << "  " << what << ": " << count << " ("
                  << 100 * static_cast<std::uint64_t>(count) / scenarios << " %)\n";
    };
    line("zones that overlap in a frame", overlapping);
    line("short packets", short_packets);
    line("brightness below 100 %", dimmed);
    line("brightness outside 0 to 100 %", odd_brightness);
    line("destinations below port 32768", low_ports);
    line("destinations from port 32768 on", high_ports);
    line("unknown zones", unknown_zone);
    line("zones of priority -1", priority_minus_one);
    line("channels outside 0 to 511", strange_channels);
    line("muted universes", muted);
    line("refused datagrams", refused);
    line("broadcast", broadcast);
    line("discovered nodes", unicast_nodes);
    line("playlists that start while others play", started_beside);
    line("playlists that stop while others play on and send", stopped_beside);
}

void Mix::expect_all(std::uint64_t scenarios) const {
    const auto percent = [scenarios](int count) {
        return 100 * static_cast<std::uint64_t>(count) / scenarios;
    };
    EXPECT_GE(percent(overlapping), 50U);
    EXPECT_GT(percent(short_packets), 50U);
    EXPECT_GT(percent(dimmed), 50U);
    EXPECT_GT(percent(odd_brightness), 1U);
    EXPECT_GT(percent(low_ports), 50U);
    EXPECT_GT(percent(high_ports), 40U);
    EXPECT_GT(percent(unknown_zone), 10U);
    EXPECT_GT(percent(priority_minus_one), 15U);
    EXPECT_GT(percent(strange_channels), 50U);
    EXPECT_GT(percent(muted), 3U);
    EXPECT_GT(percent(refused), 15U);
    EXPECT_GT(percent(broadcast), 5U);
    EXPECT_GT(percent(unicast_nodes), 40U);
    EXPECT_GT(percent(started_beside), 50U);
    EXPECT_GT(percent(stopped_beside), 50U);
}

Playlist::Address address_of(const model::Destination& destination) {
    return {destination.ip, destination.port};
}

Zone zone_of(const model::Zone& zone) {
    return {zone.id, zone.priority, zone.channels};
}

/// The product's record of a model playlist, as parser and loader would leave it.
std::unique_ptr<Playlist> build(const model::Playlist& from) {
    auto playlist = std::make_unique<Playlist>();
    PlaylistAccess::set_id(*playlist, from.id);
    playlist->set_brightness(from.brightness);
    std::vector<int> ends(from.effects.size(), -1);
    for (const model::Effect& effect : from.effects) {
        Playlist::Effect& made = PlaylistAccess::effects(*playlist).emplace_back();
        for (const auto& [universe, list] : effect.outputs) {
            std::vector<Playlist::Address>& addresses = made.outputs[universe];
            std::transform(list.begin(), list.end(), std::back_inserter(addresses), address_of);
        }
        made.universes.insert(effect.zones.begin(), effect.zones.end());
    }
    for (const model::Packet& packet : from.packets) {
        if (packet.effect >= 0) {
            ends[static_cast<std::size_t>(packet.effect)] = playlist->packets_loaded();
        }
        playlist->add_packet({packet.universe, packet.bytes, ondra::Clock::duration(packet.delay)});
    }
    const int loaded = static_cast<int>(ends.size());
    PlaylistAccess::set_progress(*playlist, ends, loaded);
    return playlist;
}

ondra::ArtnetNodeMap build(const std::map<int, std::vector<model::Destination>>& from) {
    ondra::ArtnetNodeMap map;
    for (const auto& [universe, nodes] : from) {
        for (const model::Destination& node : nodes) {
            map[universe].push_back({node.ip, node.port});
        }
    }
    return map;
}

/// Plays one scenario in both worlds.
class Comparison {
public:
    Comparison(Repeater& engine, const MergeScenario& scenario, Mix& mix);
    /// Empty, or what differs first.
    std::string run();

private:
    std::string play(const MergeScenario::Step& step);
    std::string send(const MergeScenario::Step& step);
    std::string compare_datagrams() const;
    void count_mix();

    Repeater& engine_;
    const MergeScenario& scenario_;
    Mix& mix_;
    MergeModel model_;
    std::vector<std::unique_ptr<Playlist>> playlists_;
    std::vector<int> brightness_;
    std::vector<model::Sent> expected_;
    /// Step of each expected datagram.
    std::vector<std::size_t> steps_;
    std::size_t step_ = 0;
    bool overlapped_ = false;
    bool refused_ = false;
    bool broadcast_ = false;
    bool nodes_ = false;
    /// Places of the playlists that play.
    std::set<std::size_t> playing_;
    bool started_beside_ = false;
    /// Those that played when another stopped and still do; the next packet of one of them makes it count.
    std::set<std::size_t> bereft_;
    bool stopped_beside_ = false;
};

Comparison::Comparison(Repeater& engine, const MergeScenario& scenario, Mix& mix)
    : engine_(engine), scenario_(scenario), mix_(mix) {
    std::vector<Zone> zones;
    for (const model::Zone& zone : scenario.zones) {
        zones.push_back(zone_of(zone));
        model_.zones[zone.id] = zone;
    }
    engine_.stop();
    EXPECT_TRUE(engine_.init_zones(zones));
    engine_.set_unicast_enabled(true);
    RepeaterAccess::set_node_map(engine_, build(scenario.nodes));
    model_.nodes = scenario.nodes;
    model_.broadcast = {FakeDevice::kBroadcastIp, 6454};
    for (const model::Playlist& playlist : scenario.playlists) {
        playlists_.push_back(build(playlist));
        brightness_.push_back(playlist.brightness);
    }
    FakeUdpSocket::reset();
}

std::string Comparison::run() {
    std::string difference;
    for (step_ = 0; step_ < scenario_.steps.size() && difference.empty(); ++step_) {
        difference = play(scenario_.steps[step_]);
        overlapped_ = overlapped_ || model_.zones_overlap();
        if (difference.empty() && RepeaterAccess::merge_packet_count(engine_) != model_.frame_count()) {
            difference = "number of merged frames differs at step " + std::to_string(step_);
        }
    }
    FakeUdpSocket::set_verdict(nullptr);
    const std::string datagrams = compare_datagrams();
    count_mix();
    return datagrams.empty() ? difference : datagrams;
}

std::string Comparison::play(const MergeScenario::Step& step) {
    const auto place = static_cast<std::size_t>(step.playlist);
    switch (step.kind) {
        case Kind::Start:
            RepeaterAccess::add_owner(engine_, *playlists_[place]);
            model_.take(scenario_.playlists[place]);
            started_beside_ = started_beside_ || !playing_.empty();
            playing_.insert(place);
            break;
        case Kind::Stop:
            RepeaterAccess::remove_owner(engine_, *playlists_[place]);
            model_.give_back(scenario_.playlists[place]);
            bereft_.erase(place);
            // Some stops are of a playlist that does not play.
            if (playing_.erase(place) > 0) {
                bereft_ = playing_;
            }
            break;
        case Kind::Brightness:
            playlists_[place]->set_brightness(step.value);
            brightness_[place] = step.value;
            break;
        case Kind::Unicast:
            engine_.set_unicast_enabled(step.value != 0);
            model_.unicast = step.value != 0;
            break;
        case Kind::EraseZone:
            RepeaterAccess::erase_zone(engine_, step.value);
            model_.zones.erase(step.value);
            break;
        case Kind::Send:
            return send(step);
    }
    return {};
}

std::string Comparison::send(const MergeScenario::Step& step) {
    const auto place = static_cast<std::size_t>(step.playlist);
    const model::Playlist& playlist = scenario_.playlists[place];
    const model::Packet& packet = playlist.packets[static_cast<std::size_t>(step.value)];
    stopped_beside_ = stopped_beside_ || bereft_.contains(place);
    int number = 0;
    FakeUdpSocket::set_verdict(
        [&number, &step](const SentDatagram&) { return number++ == step.refused ? ENOBUFS : 0; });
    Playlist::Packet fetched;
    if (!playlists_[place]->packet(step.value, fetched)) {
        return "packet is missing";
    }
    const bool sent = RepeaterAccess::send_packet(engine_, *playlists_[place], step.value, fetched);
    int model_number = 0;
    const bool expected = model_.send(playlist, packet, brightness_[place], [&](const model::Sent& datagram) {
        if (model_number++ == step.refused) {
            refused_ = true;
            return false;
        }
        const bool routed = model::destinations_of(playlist.effects[static_cast<std::size_t>(packet.effect)],
                                                   packet.universe) != nullptr;
        nodes_ = nodes_ || (!routed && model_.unicast);
        broadcast_ = broadcast_ || (!routed && !model_.unicast);
        expected_.push_back(datagram);
        steps_.push_back(step_);
        return true;
    });
    if (sent != expected || number != model_number) {
        std::ostringstream out;
        out << "step " << step_ << ": sent " << sent << " with " << number << " attempts, expected "
            << expected << " with " << model_number;
        return out.str();
    }
    return {};
}

std::string Comparison::compare_datagrams() const {
    const std::vector<SentDatagram> sent = FakeUdpSocket::sent();
    std::ostringstream out;
    for (std::size_t index = 0; index < std::min(sent.size(), expected_.size()); ++index) {
        const std::vector<std::uint8_t> bytes = model::datagram(FakeDevice::kManufacturer, expected_[index]);
        const auto [one, other] =
            std::mismatch(bytes.begin(), bytes.end(), sent[index].bytes.begin(), sent[index].bytes.end());
        if (one != bytes.end() || other != sent[index].bytes.end() ||
            sent[index].port != expected_[index].to.port || sent[index].ip != "127.0.0.1") {
            out << "datagram " << index << " of step " << steps_[index] << " differs at byte "
                << one - bytes.begin() << " of 554, to " << sent[index].destination() << " universe "
                << sent[index].universe();
            return out.str();
        }
    }
    if (sent.size() != expected_.size()) {
        out << sent.size() << " datagrams instead of " << expected_.size();
    }
    return out.str();
}

void Comparison::count_mix() {
    const auto any_zone = [this](auto test) {
        return std::any_of(scenario_.zones.begin(), scenario_.zones.end(), test);
    };
    const auto any_playlist = [this](auto test) {
        return std::any_of(scenario_.playlists.begin(), scenario_.playlists.end(), test);
    };
    const auto named_zone = [&](int id) {
        return any_playlist([id](const model::Playlist& playlist) {
            return std::any_of(playlist.effects.begin(), playlist.effects.end(), [id](const auto& effect) {
                return std::any_of(effect.zones.begin(), effect.zones.end(),
                                   [id](const auto& entry) { return entry.second == id; });
            });
        });
    };
    const auto any_port = [this](auto test) {
        return std::any_of(expected_.begin(), expected_.end(),
                           [&](const model::Sent& sent) { return test(sent.to.port); });
    };
    const auto add = [](int& count, bool on) { count += on ? 1 : 0; };
    add(mix_.overlapping, overlapped_);
    add(mix_.short_packets, any_playlist([](const model::Playlist& playlist) {
            return std::any_of(playlist.packets.begin(), playlist.packets.end(), [](const auto& packet) {
                return packet.bytes.size() < model::kHeader + model::kChannels;
            });
        }));
    add(mix_.dimmed, std::any_of(brightness_.begin(), brightness_.end(),
                                 [](int percent) { return percent >= 0 && percent < 100; }));
    add(mix_.odd_brightness, std::any_of(brightness_.begin(), brightness_.end(),
                                         [](int percent) { return percent < 0 || percent > 100; }));
    add(mix_.low_ports, any_port([](int port) { return port < 32768; }));
    add(mix_.high_ports, any_port([](int port) { return port >= 32768; }));
    add(mix_.unknown_zone, named_zone(77));
    add(mix_.muted, named_zone(model::kMuted));
    add(mix_.priority_minus_one, any_zone([](const auto& zone) { return zone.priority == -1; }));
    add(mix_.strange_channels, any_zone([](const model::Zone& zone) {
            return std::any_of(zone.channels.begin(), zone.channels.end(),
                               [](int channel) { return channel < 0 || channel >= model::kChannels; });
        }));
    add(mix_.refused, refused_);
    add(mix_.broadcast, broadcast_);
    add(mix_.unicast_nodes, nodes_);
    add(mix_.started_beside, started_beside_);
    add(mix_.stopped_beside, stopped_beside_);
    mix_.datagrams += static_cast<long long>(expected_.size());
}

using MergeModelTest = EngineTest;

TEST_F(MergeModelTest, EveryFrameOfRandomShowsIsTheModelsByteForByte) {
    const model::Seeds seeds("MERGE_MODEL", kDefaultCount);
    Repeater& engine = start();
    // The worker stays asleep, outside all locks: every step is this thread's.
    ASSERT_NO_FATAL_FAILURE(hold_idle_worker());
    capture(ondra::kError);
    Mix mix;
    const auto begin = std::chrono::steady_clock::now();
    for (std::uint64_t seed = seeds.first; seed < seeds.first + seeds.count; ++seed) {
        const MergeScenario scenario(seed);
        const std::string difference = Comparison(engine, scenario, mix).run();
        ASSERT_EQ(difference, "") << "seed " << seed << "; " << seeds.replay(seed);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    mix.print(seeds.count, took.count());
    if (seeds.count >= 100) {
        mix.expect_all(seeds.count);
    }
}

}  // namespace
