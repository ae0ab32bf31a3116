// The control interface under stress: several clients, random calls with ordinary, extreme and wrong
// arguments, while playlists play, load and end. A model says each answer, each log line and each frame in
// advance.
//
// A long run: BUS_STRESS_CALLS=100000 scripts/test dev -R bus_stress -V
// A failure names its seed; BUS_STRESS_SEED replays it.

#include <chrono>
#include <cstdio>

#include "bus_show.h"
#include "live_recording.h"
#include "process_watch.h"
#include "random.h"
#include "service_test.h"
#include "stress_run.h"
#include "support/child_process.h"
#include "support/emulation.h"

namespace {

using namespace integration;
using stress::StressRun;

constexpr std::uint64_t kDefaultCalls = 4000;
/// Samples of what the process holds, over a run.
constexpr std::uint64_t kRests = 40;
constexpr int kArtNetPort = 6454;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
/// What a sanitizer keeps back or shadows is not the service's.
constexpr bool kMemoryIsTheServices = false;
#else
constexpr bool kMemoryIsTheServices = true;
#endif
/// By how much resident memory at rest may grow over the second half of a run, in kB. Well above what chance
/// adds, and half of what 2 kB forgotten by each call would: in a longer run it takes less.
constexpr long kMostGrowth = 2'000;

/// Why there is no network of our own; empty when there is one.
std::string network_missing;

/// Its broadcasts and its port 6454 are nobody else's.
void enter_private_network() {
    try {
        tests::child_process_detail::enter_namespaces(CLONE_NEWNET);
        tests::ip("link set lo up");
    } catch (const tests::Unavailable& reason) {
        network_missing = reason.what();
    }
}

class BusStressTest : public ServiceTest {
protected:
    void SetUp() override {
        const bool with_nodes = network_missing.empty();
        sockets_.push_back(std::make_unique<ForwarderSocket>());
        if (with_nodes) {
            sockets_.push_back(std::make_unique<ForwarderSocket>(kArtNetPort));
            sockets_.push_back(std::make_unique<ForwarderSocket>());
        } else {
            std::printf("without the playlist that needs nodes, for want of a private network: %s\n",
                        network_missing.c_str());
        }
        setting_.with_nodes = with_nodes;
        setting_.show = stress::bus_show(sockets_.front()->port(), with_nodes);
        for (const auto& socket : sockets_) {
            ASSERT_TRUE(socket->bound());
            setting_.sockets.push_back(socket.get());
        }
        stress::write(show(), setting_.show);
        live_ = std::make_unique<stress::LiveRecording>(show().path(stress::kLivePath), stress::live_frame());
        ServiceSettings settings;
        // One memory pool: with several the C library keeps what the largest load left in each, 2 MB at a
        // time, when chance has it.
        settings.environment.emplace_back("GLIBC_TUNABLES=glibc.malloc.arena_max=1");
        start(settings);
        setting_.address = bus().address();
        setting_.syslog_file = service().syslog_file();
        setting_.root = data_root();
    }

    void report(const StressRun& run, const stress::ProcessWatch& process, double seconds) const;
    /// A run that no longer meets these would prove nothing of them.
    void expect_mix(const stress::Mix& mix) const;

    StressRun::Setting setting_;

private:
    std::vector<std::unique_ptr<ForwarderSocket>> sockets_;
    std::unique_ptr<stress::LiveRecording> live_;
};

void BusStressTest::report(const StressRun& run, const stress::ProcessWatch& process, double seconds) const {
    const stress::Mix& mix = run.mix();
    std::printf("%ld calls in %.1f s, seed %llu; %lld log lines compared, %lld datagrams received\n",
                run.calls(), seconds, static_cast<unsigned long long>(setting_.seed), run.lines_compared(),
                run.frames());
    std::printf("%-22s %8s %8s %8s\n", "answers", "true", "false", "other");
    for (const auto& [row, answers] : mix.answers) {
        std::printf("%-22s %8lld %8lld %8lld\n", row.c_str(), answers.yes, answers.no, answers.other);
    }
    std::printf(
        "answered with others in flight %lld; calls that want no answer %lld; callers that vanished %lld; "
        "node announcements %lld\n",
        mix.pipelined, mix.unanswered, mix.vanished, mix.announcements);
    std::printf("ends %lld; halts that raced with an end %lld, of which the end won %lld\n", mix.ends,
                mix.races, mix.races_ended);
    std::printf("listened %lld times to %lld universes that had to be heard\n", mix.listened, mix.audible);
    run.latencies().print();
    std::printf(
        "resident memory at rest: %ld kB at first, %ld kB half-way, %ld kB at the end;"
        " %.2f kB per 1,000 calls over the second half\n",
        process.samples().front().second, process.samples().back().second - process.growth(),
        process.samples().back().second, process.slope());
}

void BusStressTest::expect_mix(const stress::Mix& mix) const {
    for (const char* const row :
         {"play_playlist", "pause_playlist", "stop_playlist", "stop", "set_brightness", "set_speed_boost",
          "init_zones", "update_zone", "remove_zone", "remove_all_zones", "add_zone", "set_unicast_enabled",
          "setLevel", "getLevel", "useContext", "(wrong call)"}) {
        EXPECT_TRUE(mix.answers.contains(row)) << row;
    }
    for (const char* const row : {"play_playlist", "pause_playlist", "init_zones", "add_zone", "update_zone",
                                  "remove_zone", "remove_all_zones"}) {
        const auto found = mix.answers.find(row);
        EXPECT_TRUE(found != mix.answers.end() && found->second.yes > 0 && found->second.no > 0) << row;
    }
    EXPECT_GT(mix.pipelined, 0);
    EXPECT_GT(mix.unanswered, 0);
    EXPECT_GT(mix.vanished, 0);
    EXPECT_GT(mix.ends, 0);
    EXPECT_GT(mix.races, 0);
    EXPECT_GT(mix.listened, 0);
    EXPECT_GT(mix.audible, 0);
    EXPECT_TRUE(mix.announcements > 0 || !setting_.with_nodes);
}

TEST_F(BusStressTest, EveryCallIsAnsweredAsTheModelSaysAndNothingIsLeftBehind) {
    const std::uint64_t count =
        std::max<std::uint64_t>(model::environment_number("BUS_STRESS_CALLS", kDefaultCalls), 1);
    setting_.seed = model::environment_number("BUS_STRESS_SEED", 1);
    StressRun run(setting_, controller());
    stress::ProcessWatch process(service().program().pid());
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(run.warm_up(1), "") << run.story();
    const std::size_t threads = process.threads();
    const std::size_t descriptors = process.descriptors();
    process.sample(run.calls());

    for (std::uint64_t step = 0; static_cast<std::uint64_t>(run.calls()) < count; ++step) {
        std::string wrong = run.step(step);
        if (wrong.empty() &&
            static_cast<std::uint64_t>(run.calls()) * kRests >= count * process.samples().size()) {
            wrong = run.rest();
            process.sample(run.calls());
        }
        ASSERT_EQ(wrong, "") << "seed " << setting_.seed << ", step " << step << ", " << run.story()
                             << "\nreplay with BUS_STRESS_SEED=" << setting_.seed
                             << " BUS_STRESS_CALLS=" << count;
    }
    ASSERT_EQ(run.rest(), "") << run.story();
    process.sample(run.calls());

    EXPECT_TRUE(service().program().running());
    EXPECT_TRUE(wait_until([&] { return process.threads() <= threads; }))
        << process.threads() << " threads, " << threads << " at the start";
    EXPECT_TRUE(wait_until([&] { return process.descriptors() <= descriptors; }))
        << process.descriptors() << " descriptors, " << descriptors << " at the start";
    // What an emulator keeps for itself is not the service's either; scripts/cross tells of it.
    if (kMemoryIsTheServices && !is_emulated() && count >= kDefaultCalls) {
        EXPECT_LT(process.growth(), kMostGrowth) << "kB of memory over the second half";
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    report(run, process, took.count());
    if (count >= kDefaultCalls) {
        expect_mix(run.mix());
    }
}

}  // namespace

// In place of GoogleTest's: the network has to be entered before there is another thread or a socket.
int main(int argc, char** argv) {
    enter_private_network();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
