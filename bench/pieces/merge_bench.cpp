// Writing one packet of 512 channels into a frame.

#include <benchmark/benchmark.h>

#include <numeric>

#include "merge_packet.h"
#include "sample.h"

namespace {

Zone zone_of_all_channels(int priority) {
    Zone zone{1, priority, std::vector<int>(kChannels)};
    std::iota(zone.channels.begin(), zone.channels.end(), 0);
    return zone;
}

/// range(0): brightness in percent.
void WriteWithoutZone(benchmark::State& state) {
    const auto data = full_packet(1);
    MergePacket frame;
    for (auto _ : state) {
        write_header(frame, data);
        write_unowned_channels(frame, data, static_cast<int>(state.range(0)));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(WriteWithoutZone)->Arg(100)->Arg(50);

/// The same where another zone owns every second channel.
void WriteBesideAZone(benchmark::State& state) {
    const auto data = full_packet(1);
    MergePacket frame;
    frame.zones = {7};
    Zone half{7, 5, {}};
    for (int channel = 0; channel < kChannels; channel += 2) {
        half.channels.push_back(channel);
    }
    claim_channels(frame, half);
    for (auto _ : state) {
        write_header(frame, data);
        write_unowned_channels(frame, data, static_cast<int>(state.range(0)));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(WriteBesideAZone)->Arg(100)->Arg(50);

void WriteIntoAZone(benchmark::State& state) {
    const auto data = full_packet(1);
    MergePacket frame;
    const Zone zone = zone_of_all_channels(5);
    frame.zones = {zone.id};
    claim_channels(frame, zone);
    for (auto _ : state) {
        write_header(frame, data);
        write_zone_channels(frame, data, static_cast<int>(state.range(0)), zone);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(WriteIntoAZone)->Arg(100)->Arg(50);

/// Owners change from channel to channel.
void WriteIntoAZoneWithMixedOwners(benchmark::State& state) {
    const auto data = full_packet(1);
    MergePacket frame;
    const Zone zone = zone_of_all_channels(5);
    Zone rival{2, 9, {}};
    for (int channel = 0; channel < kChannels; channel += 3) {
        rival.channels.push_back(channel);
    }
    frame.zones = {zone.id, rival.id};
    claim_channels(frame, zone);
    claim_channels(frame, rival);
    for (auto _ : state) {
        write_header(frame, data);
        write_zone_channels(frame, data, static_cast<int>(state.range(0)), zone);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(WriteIntoAZoneWithMixedOwners)->Arg(100)->Arg(50);

}  // namespace
