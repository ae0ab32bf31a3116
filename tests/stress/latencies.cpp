#include "latencies.h"

#include <algorithm>
#include <cstdio>

namespace stress {

namespace {

constexpr std::chrono::milliseconds kBeat{1};

double milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace

Pulse::Pulse()
    : thread_([this] {
          while (!stopping_.load()) {
              const auto begin = std::chrono::steady_clock::now();
              std::this_thread::sleep_for(kBeat);
              const long long late = (std::chrono::steady_clock::now() - begin - kBeat).count();
              long long longest = longest_.load();
              while (late > longest && !longest_.compare_exchange_weak(longest, late)) {
              }
          }
      }) {}

Pulse::~Pulse() {
    stopping_.store(true);
    thread_.join();
}

std::chrono::nanoseconds Pulse::take() {
    return std::chrono::nanoseconds(longest_.exchange(0));
}

void Latencies::print() const {
    std::printf("%-22s %8s %9s %9s %9s   longest\n", "latency in ms", "calls", "p50", "p99", "max");
    for (const auto& [name, row] : rows_) {
        std::vector<std::chrono::nanoseconds> times = row.times;
        std::sort(times.begin(), times.end());
        std::printf("%-22s %8zu %9.3f %9.3f %9.3f   %s\n", name.c_str(), times.size(),
                    milliseconds(times[times.size() / 2]), milliseconds(times[times.size() * 99 / 100]),
                    milliseconds(times.back()), row.story.c_str());
    }
}

}  // namespace stress
