// A log line that the level filters out, and one that goes nowhere after formatting.

#include <benchmark/benchmark.h>

#include "ondra/logger.h"

namespace {

void LogFilteredLine(benchmark::State& state) {
    ondra::Logger::instance()->setLevel(ondra::kNormal);
    int index = 0;
    for (auto _ : state) {
        ONDRA_LOG(ondra::kSendTrace, "[Repeater::send_packet] Send packet (index:%d)", ++index);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(LogFilteredLine);

void LogFormattedLine(benchmark::State& state) {
    ondra::Logger::instance()->setLevel(ondra::kNormal);
    ondra::Logger::instance()->setOutput(ondra::Logger::None);
    int index = 0;
    for (auto _ : state) {
        ONDRA_LOG(ondra::kNormal, "[Repeater::play_playlist] Play playlist (playlist_id:%d)", ++index);
    }
}
BENCHMARK(LogFormattedLine);

}  // namespace
