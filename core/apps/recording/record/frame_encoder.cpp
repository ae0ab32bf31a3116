#include "frame_encoder.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "artnet/recording_timing.h"
#include "artnet/recording_writer.h"

using namespace std::chrono_literals;

namespace recording {

namespace {

/// Longest time of a millisecond packet: 49 days.
constexpr std::chrono::milliseconds kLongest{std::numeric_limits<std::uint32_t>::max()};

}  // namespace

std::vector<std::uint8_t> FrameEncoder::encode(Frame frame) {
    std::vector<std::uint8_t> bytes = std::move(frame.packets);
    if (frame.delay) {
        append_timing(bytes, *frame.delay);
    } else {
        carried_ = 0ns;
        append_timing(bytes, kLastFrameTime);
    }
    return bytes;
}

void FrameEncoder::append_timing(std::vector<std::uint8_t>& bytes, std::chrono::nanoseconds delay) {
    if (timing_ == FrameTiming::Nanoseconds) {
        append_artoemvfpsns(bytes, static_cast<std::uint64_t>(delay.count()));
        duration_ += delay;
        return;
    }
    const std::chrono::nanoseconds due = delay + carried_;
    const auto rounded = std::clamp(std::chrono::round<std::chrono::milliseconds>(due), 0ms, kLongest);
    carried_ = due - rounded;
    append_artoemvfps(bytes, static_cast<std::uint32_t>(rounded.count()));
    duration_ += rounded;
}

}  // namespace recording
