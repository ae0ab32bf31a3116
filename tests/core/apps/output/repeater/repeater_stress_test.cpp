// Thousands of direct calls of the engine in random order, beside the model of its states and zones. In the
// build with the address sanitizer it also shows that none of them leaves memory behind, which the program,
// ended by a signal, cannot show.
//
// A longer run: REPEATER_STRESS_COUNT=1000 scripts/test asan -R repeater_stress_test -V
// A failure names its seed and how to replay it.

#include <chrono>
#include <filesystem>

#include <unistd.h>

#include "control_model.h"
#include "random.h"
#include "support/engine_test.h"
#include "support/leak_check.h"

namespace {

using model::ControlledPlaylist;
using model::ControlModel;
using model::Random;

constexpr std::uint64_t kDefaultCount = 20;
/// Calls to one engine.
constexpr int kCalls = 500;
/// Calls after which the fake socket forgets what was sent: time flies, and it keeps everything.
constexpr int kForgetFrames = 20;
constexpr int kPort = 20000;

/// Playlist that is long enough to be stopped while it loads.
constexpr int kLong = 6;
/// One without outputs: its frames go to the nodes.
constexpr int kToNodes = 8;
/// One whose recording is missing, and one whose recording breaks off within a packet.
constexpr int kMissing = 9;
constexpr int kBroken = 10;
constexpr int kLast = kBroken;

int frames_of(int id) {
    return id == kLong ? 2000 : 3;
}

ControlledPlaylist playlist(int id, bool loop) {
    ControlledPlaylist made;
    made.id = id;
    made.loop = loop;
    made.ends = !loop;
    model::ControlledEffect effect;
    effect.path = std::to_string(id) + ".rec";
    effect.outputs = {{id, "192.0.2.1", kPort}, {id, "192.0.2.2", kPort + 1}};
    effect.zones = {{id, id % 3}};
    effect.looks = {{id, {1, 2, 3}}};
    made.effect = effect;
    return made;
}

std::vector<ControlledPlaylist> small_show() {
    std::vector<ControlledPlaylist> show = {
        playlist(1, true),        playlist(2, true),       playlist(3, false), playlist(4, false),
        playlist(5, true),        playlist(kLong, true),   playlist(7, true),  playlist(kToNodes, true),
        playlist(kMissing, true), playlist(kBroken, false)};
    const auto of = [&show](int id) -> ControlledPlaylist& { return show[static_cast<std::size_t>(id - 1)]; };
    // One that has no packets, and one without an effects file.
    of(5).effect->looks.clear();
    of(7).file = model::EffectsFile::Missing;
    of(kToNodes).effect->outputs.clear();
    of(kMissing).effect->looks.clear();
    return show;
}

class RepeaterStressTest : public EngineTest {
protected:
    RepeaterStressTest() {
        for (const ControlledPlaylist& entry : small_show()) {
            ShowEffect effect(entry.effect->path);
            for (const auto& output : entry.effect->outputs) {
                effect.output(std::to_string(output.universe) + ":" + output.ip + ":" +
                              std::to_string(output.port));
            }
            effect.zone(entry.effect->zones.front().first, entry.effect->zones.front().second);
            show.playlist(ShowPlaylist(entry.id).loop(entry.loop).effect(effect));
            Recording recording;
            for (const model::ControlledEffect::Look& look : entry.effect->looks) {
                for (int i = 0; i < frames_of(entry.id); ++i) {
                    recording.dmx(look.universe, look.levels).frame_delay(std::chrono::milliseconds(2));
                }
            }
            if (entry.id == kBroken) {
                recording.dmx(entry.id, {4, 5, 6});
                recording.cut_to(recording.size() - 5);
            }
            show.recording(entry.effect->path, recording.bytes());
        }
        std::filesystem::remove(show.path("playlists/7.json"));
        std::filesystem::remove(show.path(std::to_string(kMissing) + ".rec"));
        // The lines are another test's.
        capture(ondra::kError - 1);
    }

    /// Calls one engine from its start to its end. Empty, or the first call that was not answered as it
    /// should.
    std::string play(std::uint64_t seed);

private:
    std::string call(Random& random, ControlModel& model);
    std::string change_zones(Random& random, ControlModel& model);
    void announce(Random& random);
};

std::string RepeaterStressTest::change_zones(Random& random, ControlModel& model) {
    const model::Zone drawn{random.between(-1, 3), random.between(-2, 5), {random.between(-1, 5), 1, 600}};
    const Zone zone{drawn.id, drawn.priority, drawn.channels};
    switch (random.between(0, 4)) {
        case 0:
            return engine().init_zones({zone, zone}) == model.init_zones({drawn, drawn}) ? "" : "init_zones";
        case 1:
            return engine().add_zone(zone) == model.add_zone(drawn) ? "" : "add_zone";
        case 2:
            return engine().update_zone(zone) == model.update_zone(drawn) ? "" : "update_zone";
        case 3:
            return engine().remove_zone(drawn.id) == model.remove_zone(drawn.id) ? "" : "remove_zone";
        default:
            return engine().remove_all_zones() == model.remove_all_zones() ? "" : "remove_all_zones";
    }
}

/// Nodes come and go, some twice, some with a port of 0, between records that are none.
void RepeaterStressTest::announce(Random& random) {
    QString message;
    for (int records = random.between(0, 6); records > 0; --records) {
        message += random.chance(85) ? QStringLiteral("%1:%2:10.0.0.%3:%4;")
                                           .arg(random.between(0, 1))
                                           .arg(random.chance(80) ? kToNodes : random.between(-1, kLast))
                                           .arg(random.between(1, 9))
                                           .arg(random.chance(90) ? kPort : 0)
                                     : QStringLiteral("1:8:too:many:fields;;nonsense;");
    }
    RepeaterAccess::update_artnet_node_map(engine(), message);
}

std::string RepeaterStressTest::call(Random& random, ControlModel& model) {
    const int id = random.between(0, kLast);
    switch (random.between(0, 12)) {
        case 0:
        case 1:
        case 2:
        case 3:
            return engine().play_playlist(id) == model.play(id) ? "" : "play_playlist";
        case 4:
        case 5:
            return engine().pause_playlist(id) == model.pause(id) ? "" : "pause_playlist";
        case 6:
        case 7:
            engine().stop_playlist(id);
            model.stop_playlist(id);
            return {};
        case 8:
            engine().set_brightness(id, random.between(-50, 150));
            engine().set_speed_boost(id, random.between(-50, 150));
            engine().set_unicast_enabled(random.chance(50));
            return {};
        case 9:
            if (random.chance(70)) {
                return {};
            }
            engine().stop();
            model.stop();
            return {};
        case 10:
            announce(random);
            return {};
        default:
            return change_zones(random, model);
    }
}

std::string RepeaterStressTest::play(std::uint64_t seed) {
    Random random(seed);
    ControlModel model(small_show(), "");
    VirtualClock::reset();
    FakeUdpSocket::reset();
    start();
    int impossible = 0;
    QObject::connect(&engine(), &Repeater::OnPlaylistStopped,
                     [&](int id) { impossible += model.ended(id) ? 0 : 1; });
    for (int number = 0; number < kCalls; ++number) {
        const std::string wrong = call(random, model);
        // All ends before the call are queued by now.
        QCoreApplication::processEvents();
        model.settle();
        static_cast<void>(model.take_lines());
        if (number % kForgetFrames == 0) {
            FakeUdpSocket::reset();
        }
        if (!wrong.empty() || impossible != 0) {
            return (wrong.empty() ? "an impossible end" : wrong) + " at call " + std::to_string(number) +
                   " with " + model.state();
        }
    }
    const bool as_loaded = RepeaterAccess::playlist_ids(engine()).empty() == model.nothing_loaded();
    // With whatever is loaded, playing or still loading.
    destroy_engine();
    return as_loaded ? "" : "what is loaded at the end differs";
}

TEST_F(RepeaterStressTest, CallsInAnyOrderAreAnsweredAsTheModelSaysAndLeaveNoMemoryBehind) {
    const model::Seeds seeds("REPEATER_STRESS", kDefaultCount);
    for (std::uint64_t seed = seeds.first; seed < seeds.first + seeds.count; ++seed) {
        ASSERT_EQ(play(seed), "") << "seed " << seed << "; " << seeds.replay(seed);
    }
    FakeUdpSocket::reset();
    EXPECT_FALSE(tests::memory_has_leaked());
}

/// Out of line, and many, so that no register or stack slot keeps them all reachable.
__attribute__((noinline)) void forget_blocks() {
    for (int i = 0; i < 100; ++i) {
        int* volatile block = new int[100];
        block[0] = i;
        block = nullptr;
    }
}

TEST(LeakCheckTest, ForgottenMemoryIsFoundInTheBuildThatLooksForIt) {
    if (!tests::kFindsLeaks) {
        EXPECT_FALSE(tests::memory_has_leaked());
        return;
    }
    EXPECT_EXIT(
        {
            forget_blocks();
            _exit(tests::memory_has_leaked() ? 42 : 0);
        },
        testing::ExitedWithCode(42), "detected memory leaks");
}

}  // namespace
