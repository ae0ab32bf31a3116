// The recording parser, over full ArtDmx packets with timing packets and over bytes without any packet.

#include <benchmark/benchmark.h>

#include <istream>
#include <sstream>

#include "artnet/artnet_parser.h"
#include "sample.h"

namespace {

void parse(benchmark::State& state, const std::string& input) {
    std::istringstream in(input);
    for (auto _ : state) {
        in.clear();
        in.seekg(0);
        ArtNetParser parser;
        std::size_t channels = 0;
        parser.on_artdmx = [&](ArtDmx& dmx) { channels += dmx.Length; };
        std::error_code error;
        parser.parse(in, error);
        benchmark::DoNotOptimize(channels);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(input.size()));
}

void ParserOverFullPackets(benchmark::State& state) {
    parse(state, full_recording(16, 1000));
}
BENCHMARK(ParserOverFullPackets);

void ParserOverGarbage(benchmark::State& state) {
    std::string garbage;
    std::uint32_t value = 1;
    for (int i = 0; i < 8'000'000; ++i) {
        value = value * 1664525U + 1013904223U;
        garbage.push_back(static_cast<char>(value >> 24));
    }
    parse(state, garbage);
}
BENCHMARK(ParserOverGarbage);

}  // namespace
