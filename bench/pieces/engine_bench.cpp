// Pieces inside the engine: frame look-up, the forwarding datagram with its send, the walk over nodes.

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <vector>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include "artnet/forwarding_datagram.h"
#include "ondra/logger.h"
#include "repeater.h"
#include "sample.h"

namespace {

constexpr int kPort = 16454;

}  // namespace

/// The way in that the engine grants to measurements and tests. The engine is idle here: no playlist is
/// loaded.
struct RepeaterAccess {
    static MergePacket& find_frame(Repeater& engine, int universe,
                                   const Playlist::Address* destination) ONDRA_NO_THREAD_SAFETY_ANALYSIS {
        return engine.get_merge_packet(universe, destination);
    }
    static void add_frame(Repeater& engine, int universe,
                          const Playlist::Address* destination) ONDRA_NO_THREAD_SAFETY_ANALYSIS {
        engine.init_merge_packet(universe, destination).zones = {1};
    }
    static void write(Repeater& engine, MergePacket& frame, const std::vector<unsigned char>& data,
                      int brightness, int zone_id) ONDRA_NO_THREAD_SAFETY_ANALYSIS {
        engine.modify_packet(frame, data, 1, brightness, zone_id);
    }
    static bool send(Repeater& engine, const MergePacket& frame, const Playlist::Address& address) {
        return engine.send_to_address(frame.packet, address);
    }
    static void set_nodes(Repeater& engine, int universe, int count) {
        for (int node = 0; node < count; ++node) {
            engine.node_map_[universe].push_back(
                {"10.0." + std::to_string(node / 256) + "." + std::to_string(node % 256), kPort});
        }
    }
    static bool send_to_nodes(Repeater& engine, const Playlist& playlist,
                              const Playlist::Packet& packet) ONDRA_NO_THREAD_SAFETY_ANALYSIS {
        return engine.send_to_nodes(playlist, packet, Playlist::kNoZone);
    }
    /// Ends the worker and does its first act, so that the caller's thread can take its place.
    static void replace_worker(Repeater& engine) {
        engine.running_.store(false);
        engine.render_thread_.join();
        engine.socket_ = std::make_unique<ondra::net::UdpSocket>();
    }
};

namespace {

/// The forwarder's place: where nobody listens the kernel has the refusal to do, where nobody reads the loss.
class Listener {
public:
    /// What its buffer holds in any case.
    static constexpr int kRoom = 64;

    Listener() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(kPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bound_ = bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() { close(socket_); }

    [[nodiscard]] bool bound() const { return bound_; }
    void drain() const {
        std::array<char, 1024> datagram;
        while (recv(socket_, datagram.data(), datagram.size(), MSG_DONTWAIT) >= 0) {
        }
    }

private:
    int socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool bound_ = false;
};

/// Times `send`, which sends `count` datagrams, and takes them in meanwhile, untimed.
template <typename Send>
void time_sends(benchmark::State& state, std::int64_t count, Send send) {
    const Listener listener;
    if (!listener.bound()) {
        state.SkipWithError("port 16454 is in use");
        return;
    }
    const std::int64_t calls = std::max<std::int64_t>(Listener::kRoom / count, 1);
    while (state.KeepRunningBatch(calls)) {
        for (std::int64_t call = 0; call < calls; ++call) {
            send();
        }
        state.PauseTiming();
        listener.drain();
        state.ResumeTiming();
    }
}

void quiet() {
    ondra::Logger::instance()->setOutput(ondra::Logger::None);
}

/// range(0): frames in the table.
void FrameLookUp(benchmark::State& state) {
    quiet();
    Repeater engine;
    const Playlist::Address destination("192.0.2.1", kPort);
    for (int universe = 0; universe < state.range(0); ++universe) {
        RepeaterAccess::add_frame(engine, universe, &destination);
    }
    int universe = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(&RepeaterAccess::find_frame(engine, universe, &destination));
        universe = (universe + 1) % static_cast<int>(state.range(0));
    }
}
BENCHMARK(FrameLookUp)->Arg(1)->Arg(256);

void FrameLookUpOfTheBlankOne(benchmark::State& state) {
    quiet();
    Repeater engine;
    const Playlist::Address destination("192.0.2.1", kPort);
    for (auto _ : state) {
        benchmark::DoNotOptimize(&RepeaterAccess::find_frame(engine, 0, &destination));
    }
}
BENCHMARK(FrameLookUpOfTheBlankOne);

/// A packet's way into a frame. range(0): brightness in percent; range(1): the zone, all of whose channels it
/// owns and that is looked for among 64, or none.
void ModifyPacket(benchmark::State& state) {
    quiet();
    Repeater engine;
    std::vector<Zone> zones;
    for (int id = 1; id <= 64; ++id) {
        zones.push_back({id, id, std::vector<int>(kChannels)});
        std::iota(zones.back().channels.begin(), zones.back().channels.end(), 0);
    }
    if (!engine.init_zones(zones)) {
        state.SkipWithError("the zones were refused");
        return;
    }
    const auto zone = static_cast<int>(state.range(1));
    const auto data = full_packet(1);
    MergePacket frame;
    if (zone != Playlist::kNoZone) {
        frame.zones = {zone};
        claim_channels(frame, zones[static_cast<std::size_t>(zone) - 1]);
    }
    for (auto _ : state) {
        RepeaterAccess::write(engine, frame, data, static_cast<int>(state.range(0)), zone);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(ModifyPacket)->ArgsProduct({{100, 50}, {Playlist::kNoZone, 64}});

void ForwardingHeader(benchmark::State& state) {
    std::array<unsigned char, artnet::kForwardingHeaderSize> header{};
    for (auto _ : state) {
        artnet::write_forwarding_header(header, 0x7FF0, "192.0.2.1", 6454);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(ForwardingHeader);

void ForwardingDatagramWithSend(benchmark::State& state) {
    quiet();
    Repeater engine;
    RepeaterAccess::replace_worker(engine);
    const Playlist::Address destination("192.0.2.1", kPort);
    const MergePacket frame;
    time_sends(state, 1, [&] { benchmark::DoNotOptimize(RepeaterAccess::send(engine, frame, destination)); });
}
BENCHMARK(ForwardingDatagramWithSend);

/// range(0): nodes of the universe; includes their sends.
void NodeWalk(benchmark::State& state) {
    quiet();
    Repeater engine;
    RepeaterAccess::replace_worker(engine);
    RepeaterAccess::set_nodes(engine, 1, static_cast<int>(state.range(0)));
    const Playlist playlist;
    Playlist::Packet packet;
    packet.universe = 1;
    packet.data = full_packet(1);
    time_sends(state, state.range(0),
               [&] { benchmark::DoNotOptimize(RepeaterAccess::send_to_nodes(engine, playlist, packet)); });
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
// More nodes than the listener has room for would time losses.
BENCHMARK(NodeWalk)->Arg(1)->Arg(16)->Arg(64);

}  // namespace
