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

EncodedFrame FrameEncoder::encode(Frame frame) {
    EncodedFrame encoded{std::move(frame.packets), begin_};
    if (frame.delay) {
        append_timing(encoded.bytes, *frame.delay);
    } else {
        carried_ = 0ns;
        append_timing(encoded.bytes, kLastFrameTime);
    }
    return encoded;
}

void FrameEncoder::append_timing(std::vector<std::uint8_t>& bytes, std::chrono::nanoseconds delay) {
    if (timing_ == FrameTiming::Nanoseconds) {
        append_artoemvfpsns(bytes, static_cast<std::uint64_t>(delay.count()));
        begin_ += delay;
        return;
    }
    const std::chrono::nanoseconds due = delay + carried_;
    const auto rounded = std::clamp(std::chrono::round<std::chrono::milliseconds>(due), 0ms, kLongest);
    carried_ = due - rounded;
    append_artoemvfps(bytes, static_cast<std::uint32_t>(rounded.count()));
    begin_ += rounded;
}

}  // namespace recording
