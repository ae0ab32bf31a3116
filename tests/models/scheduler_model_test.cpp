// The whole engine against the model of its scheduler, over random shows with random control calls.
//
// A run of any length: SCHEDULER_MODEL_COUNT=5000 scripts/test dev -R scheduler_model_test -V
// A failure names its seed and how to replay it.

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <utility>

#include "scheduler_model.h"
#include "show_scenario.h"
#include "support/conductor.h"
#include "support/engine_test.h"

namespace {

using model::SchedulerModel;
using model::ShowScenario;
using Kind = ShowScenario::Kind;

constexpr std::uint64_t kDefaultCount = 100;

constexpr std::array kKinds = {std::pair(Kind::Play, "play"),
                               std::pair(Kind::Pause, "pause"),
                               std::pair(Kind::Stop, "stop"),
                               std::pair(Kind::StopAll, "stop all"),
                               std::pair(Kind::Brightness, "brightness"),
                               std::pair(Kind::SpeedBoost, "speed boost"),
                               std::pair(Kind::Unicast, "unicast"),
                               std::pair(Kind::Node, "node"),
                               std::pair(Kind::Zones, "zones")};

std::vector<Zone> zones_of(const ShowScenario& scenario) {
    std::vector<Zone> zones;
    for (const model::Zone& zone : scenario.zones) {
        zones.push_back({zone.id, zone.priority, zone.channels});
    }
    return zones;
}

/// Zero bytes behind the packets, so that the last block holds nothing of the one before.
std::vector<std::uint8_t> recording_of(const std::vector<model::Packet>& packets) {
    Recording recording;
    for (const model::Packet& packet : packets) {
        recording.raw(
            std::string_view(reinterpret_cast<const char*>(packet.bytes.data()), packet.bytes.size()));
        if (packet.delay >= 0) {
            recording.frame_delay(std::chrono::nanoseconds(packet.delay));
        }
    }
    constexpr std::size_t kBlock = 512;
    return recording.fill_to((recording.size() + kBlock - 1) / kBlock * kBlock).bytes();
}

void write(ShowDirectory& show, const ShowScenario& scenario) {
    for (std::size_t index = 0; index < scenario.playlists.size(); ++index) {
        const model::Playlist& playlist = scenario.playlists[index];
        ShowPlaylist made(playlist.id);
        made.loop(playlist.loop).brightness(playlist.brightness).speed_boost(playlist.speed_boost);
        for (std::size_t number = 0; number < playlist.effects.size(); ++number) {
            const model::EffectFiles& files = scenario.files[index][number];
            const std::string path = std::to_string(playlist.id) + "-" + std::to_string(number) + ".rec";
            if (!files.missing) {
                show.recording(path, recording_of(files.recording));
            }
            ShowEffect effect(path);
            if (files.fps != 0) {
                effect.fps(files.fps);
            }
            if (files.packets_per_frame != 0) {
                effect.ppf(files.packets_per_frame);
            }
            for (const auto& [universe, list] : playlist.effects[number].outputs) {
                for (const model::Destination& to : list) {
                    const std::string name = universe == model::kAllOthers ? "*" : std::to_string(universe);
                    effect.output(name + ":" + to.ip + ":" + std::to_string(to.port));
                }
            }
            for (const auto& [universe, zone] : playlist.effects[number].zones) {
                effect.zone(universe, zone);
            }
            made.effect(effect);
        }
        show.playlist(made);
    }
}

class SchedulerModelTest : public EngineTest {
protected:
    ~SchedulerModelTest() override { Conductor::let_go(); }

    /// Plays one show in both worlds; gives what differs first, or nothing.
    std::string play(const ShowScenario& scenario);

    int overlapping_ = 0;
    long long datagrams_ = 0;
    long long ties_ = 0;
    long long endings_ = 0;
    long long nanoseconds_ = 0;
    /// Calls of each kind, and how many of them were refused.
    std::map<Kind, int> calls_;
    int refused_ = 0;

private:
    void begin(const ShowScenario& scenario, ShowDirectory& directory);
    std::string take(const ShowScenario& scenario, const ShowScenario::Step& step);
    bool turn(int cycles);
    std::string compare() const;

    std::unique_ptr<SchedulerModel> model_;
    int model_attempts_ = 0;
    int engine_attempts_ = 0;
};

void SchedulerModelTest::begin(const ShowScenario& scenario, ShowDirectory& directory) {
    Conductor::let_go();
    destroy_engine();
    write(directory, scenario);
    VirtualClock::reset();
    VirtualClock::set_exact(true);
    FakeUdpSocket::reset();
    Conductor::reset();
    Conductor::halt_when([] { return Conductor::cycles() == 2; });
    start().set_root_dir(directory.root());
    EXPECT_TRUE(Conductor::wait_for_halt());
    model_ = std::make_unique<SchedulerModel>(VirtualClock::now().time_since_epoch().count());
    model_->merge.broadcast = {FakeDevice::kBroadcastIp, 6454};
    model_attempts_ = 0;
    engine_attempts_ = 0;
    if (const int modulus = scenario.refuse_modulus; modulus != 0) {
        model_->network = [=, this](const model::Sent&) { return ++model_attempts_ % modulus != 3; };
        FakeUdpSocket::set_verdict(
            [=, this](const SentDatagram&) { return ++engine_attempts_ % modulus == 3 ? ENOBUFS : 0; });
    } else {
        model_->network = [](const model::Sent&) { return true; };
    }
    EXPECT_TRUE(engine().init_zones(zones_of(scenario)));
    EXPECT_TRUE(model_->set_zones(scenario.zones));
}

std::string SchedulerModelTest::play(const ShowScenario& scenario) {
    ShowDirectory directory;
    begin(scenario, directory);
    std::vector<int> ended;
    QObject::connect(&engine(), &Repeater::OnPlaylistStopped, [&ended](int id) { ended.push_back(id); });
    bool overlapped = false;
    for (std::size_t number = 0; number < scenario.steps.size(); ++number) {
        const ShowScenario::Step& step = scenario.steps[number];
        std::string difference = turn(step.cycles) ? take(scenario, step) : "the worker does not come by";
        if (VirtualClock::now().time_since_epoch().count() != model_->now && difference.empty()) {
            difference = "time differs";
        }
        overlapped = overlapped || model_->merge.zones_overlap();
        if (!difference.empty()) {
            return "step " + std::to_string(number) + ": " + difference + "; " + compare();
        }
    }
    overlapping_ += overlapped ? 1 : 0;
    datagrams_ += static_cast<long long>(model_->sent.size());
    ties_ += model_->ties;
    endings_ += static_cast<long long>(model_->ended.size());
    nanoseconds_ += model_->now;
    if (!eventually([&] { return ended.size() >= model_->ended.size(); }) || ended != model_->ended) {
        return "ended playlists differ; " + compare();
    }
    return compare();
}

bool SchedulerModelTest::turn(int cycles) {
    if (cycles == 0) {
        return true;
    }
    for (int count = 0; count < cycles; ++count) {
        model_->cycle();
    }
    const long long target = Conductor::cycles() + cycles;
    Conductor::go_on_until([target] { return Conductor::cycles() == target; });
    return Conductor::wait_for_halt();
}

std::string SchedulerModelTest::take(const ShowScenario& scenario, const ShowScenario::Step& step) {
    const model::Playlist& playlist = scenario.playlists[static_cast<std::size_t>(step.playlist)];
    const int id = playlist.id;
    bool reply = true;
    bool expected = true;
    switch (step.kind) {
        case Kind::Play:
            reply = engine().play_playlist(id);
            expected = model_->play(playlist);
            if (reply && !eventually([=, this] { return RepeaterAccess::loader_done(engine(), id); })) {
                return "loading does not end";
            }
            break;
        case Kind::Pause:
            reply = engine().pause_playlist(id);
            expected = model_->pause(id);
            break;
        case Kind::Stop:
            engine().stop_playlist(id);
            model_->stop(id);
            break;
        case Kind::StopAll:
            engine().stop();
            model_->stop_all();
            break;
        case Kind::Brightness:
            engine().set_brightness(id, step.value);
            model_->set_brightness(id, step.value);
            break;
        case Kind::SpeedBoost:
            engine().set_speed_boost(id, step.value);
            model_->set_speed_boost(id, step.value);
            break;
        case Kind::Unicast:
            engine().set_unicast_enabled(step.value != 0);
            model_->merge.unicast = step.value != 0;
            break;
        case Kind::Node: {
            std::ostringstream message;
            message << (step.value != 0 ? "1:" : "0:") << step.universe << ':' << step.node.ip << ':'
                    << step.node.port;
            RepeaterAccess::update_artnet_node_map(engine(), QString::fromStdString(message.str()));
            model_->change_node(step.value != 0, step.universe, step.node);
            break;
        }
        case Kind::Zones:
            reply = engine().init_zones(zones_of(scenario));
            expected = model_->set_zones(scenario.zones);
            break;
    }
    calls_[step.kind] += 1;
    refused_ += expected ? 0 : 1;
    return reply == expected ? "" : "the reply differs";
}

std::string SchedulerModelTest::compare() const {
    const std::vector<SentDatagram> sent = FakeUdpSocket::sent();
    std::ostringstream out;
    for (std::size_t index = 0; index < std::min(sent.size(), model_->sent.size()); ++index) {
        const model::Sent& expected = model_->sent[index];
        const long long time = sent[index].time.time_since_epoch().count();
        const std::vector<std::uint8_t> bytes = model::datagram(FakeDevice::kManufacturer, expected);
        if (time != expected.due || sent[index].bytes != bytes || sent[index].port != expected.to.port) {
            const auto differing = std::mismatch(bytes.begin(), bytes.end(), sent[index].bytes.begin());
            out << "datagram " << index << ": at " << time << " instead of " << expected.due << " ns, to "
                << sent[index].destination() << " instead of " << expected.to.ip << ':' << expected.to.port
                << ", first differing byte " << differing.first - bytes.begin() << " of 554";
            return out.str();
        }
    }
    if (sent.size() != model_->sent.size()) {
        out << sent.size() << " datagrams instead of " << model_->sent.size();
    }
    return out.str();
}

TEST_F(SchedulerModelTest, RandomShowsGoOutAsTheModelSaysMomentByMomentAndByteForByte) {
    const model::Seeds seeds("SCHEDULER_MODEL", kDefaultCount);
    // Missing recordings are part of the shows.
    capture(ondra::kError - 1);
    const auto begin = std::chrono::steady_clock::now();
    for (std::uint64_t seed = seeds.first; seed < seeds.first + seeds.count; ++seed) {
        const std::string difference = play(ShowScenario(seed));
        ASSERT_EQ(difference, "") << "seed " << seed << "; " << seeds.replay(seed);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::cout << seeds.count << " shows of " << nanoseconds_ / 1'000'000'000 << " s in all, " << datagrams_
              << " datagrams compared, " << took.count()
              << " s; with\n  zones that overlap in a frame: " << overlapping_
              << " shows\n  playlists due at the same moment: " << ties_
              << " times\n  playlists that ended: " << endings_ << "\n  calls: ";
    for (const auto& [kind, name] : kKinds) {
        std::cout << calls_[kind] << ' ' << name << ", ";
    }
    std::cout << refused_ << " refused\n";
    if (seeds.count >= 100) {
        EXPECT_GE(2 * static_cast<std::uint64_t>(overlapping_), seeds.count);
        EXPECT_GT(ties_, 0);
        EXPECT_GT(endings_, 0);
        // Each kind at least once in four shows: a generator that no longer makes it would prove nothing of
        // it.
        for (const auto& [kind, name] : kKinds) {
            EXPECT_GT(4 * static_cast<std::uint64_t>(calls_[kind]), seeds.count) << name;
        }
        EXPECT_GT(static_cast<std::uint64_t>(refused_), seeds.count);
    }
}

}  // namespace
