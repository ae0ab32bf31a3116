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
    return marks_.size();
}

bool Beat::wait_for_more(std::size_t frames) const {
    const std::size_t before = count();
    return wait_until([=, this] { return count() >= before + frames; });
}

std::string Beat::first_gap() const {
    const std::scoped_lock guard(mutex_);
    for (std::size_t i = 0; i < marks_.size(); ++i) {
        const auto expected = static_cast<int>(i % kFrames);
        if (marks_[i] != expected) {
            return "frame " + std::to_string(i) + " has the number " + std::to_string(marks_[i]) +
                   " instead of " + std::to_string(expected);
        }
    }
    return {};
}

void Beat::take_in() {
    while (running_.load()) {
        if (const std::optional<Frame> frame = socket_.receive(20ms)) {
            const std::scoped_lock guard(mutex_);
            marks_.push_back(mark_of(*frame));
        }
    }
}

}  // namespace integration
