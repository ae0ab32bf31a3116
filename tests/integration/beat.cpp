#include "beat.h"

#include <chrono>
#include <optional>

using namespace std::chrono_literals;

namespace integration {

namespace {

constexpr int kFrames = 1000;
constexpr int kLevels = 256;

}  // namespace

Recording numbered_frames(int universe, int frames) {
    Recording recording;
    for (int frame = 0; frame < frames; ++frame) {
        recording
            .dmx(universe,
                 {static_cast<std::uint8_t>(frame % kLevels), static_cast<std::uint8_t>(frame / kLevels)})
            .frame_delay(20ms);
    }
    // Whole blocks, so that no packet of the last one comes a second time.
    constexpr std::size_t kBlock = 512;
    return recording.fill_to((recording.size() + kBlock - 1) / kBlock * kBlock);
}

int mark_of(const Frame& frame) {
    return frame.level(0) + kLevels * frame.level(1);
}

Beat::Beat() : thread_(&Beat::take_in, this) {}

Beat::~Beat() {
    running_.store(false);
    thread_.join();
}

Recording Beat::recording() {
    return numbered_frames(kUniverse, kFrames);
}

std::size_t Beat::count() const {
    const std::scoped_lock guard(mutex_);
    return arrivals_.size();
}

bool Beat::wait_for_more(std::size_t frames) const {
    const std::size_t before = count();
    return wait_until([=, this] { return count() >= before + frames; });
}

std::string Beat::first_gap() const {
    const std::scoped_lock guard(mutex_);
    for (std::size_t i = 0; i < arrivals_.size(); ++i) {
        const auto expected = static_cast<int>(i % kFrames);
        if (arrivals_[i].mark != expected) {
            return "frame " + std::to_string(i) + " has the number " + std::to_string(arrivals_[i].mark) +
                   " instead of " + std::to_string(expected);
        }
    }
    return {};
}

std::string Beat::first_standstill(std::chrono::nanoseconds limit) const {
    const std::scoped_lock guard(mutex_);
    for (std::size_t i = 1; i < arrivals_.size(); ++i) {
        const Sleeper::Time before = arrivals_[i - 1].time;
        const std::chrono::nanoseconds gap = arrivals_[i].time - before;
        if (gap <= limit) {
            continue;
        }
        if (const auto lost = sleeper_.overslept(before, arrivals_[i].time); gap > limit + lost) {
            return "frame " + std::to_string(i) + " came " + std::to_string(gap / 1ms) +
                   " ms behind the one before it, of which the machine took " + std::to_string(lost / 1ms);
        }
    }
    return {};
}

void Beat::take_in() {
    while (running_.load()) {
        if (const std::optional<Frame> frame = socket_.receive(20ms)) {
            const std::scoped_lock guard(mutex_);
            arrivals_.push_back({mark_of(*frame), frame->arrival});
        }
    }
}

}  // namespace integration
