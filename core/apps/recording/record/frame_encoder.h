#pragma once
// Puts the timing packet behind a frame.

#include <chrono>
#include <cstdint>
#include <vector>

#include "frame_grouper.h"

namespace recording {

enum class FrameTiming { Nanoseconds, Milliseconds };

/// A frame as it is written.
struct EncodedFrame {
    std::vector<std::uint8_t> bytes;
    /// When it begins for the loader.
    std::chrono::nanoseconds begin{0};
};

/// Encodes frames in their order; a part of a millisecond that one frame cannot express goes to the next, so
/// that nothing drifts.
class FrameEncoder {
public:
    explicit FrameEncoder(FrameTiming timing) : timing_(timing) {}

    /// The frame's packets and one timing packet. The last frame of a capture, which has no time of its own,
    /// gets what playback gives it whatever the file says.
    [[nodiscard]] EncodedFrame encode(Frame frame);

private:
    void append_timing(std::vector<std::uint8_t>& bytes, std::chrono::nanoseconds delay);

    FrameTiming timing_;
    /// Captured time that has not been expressed yet, less than half a millisecond either way.
    std::chrono::nanoseconds carried_{0};
    /// When the next frame begins.
    std::chrono::nanoseconds begin_{0};
};

}  // namespace recording
