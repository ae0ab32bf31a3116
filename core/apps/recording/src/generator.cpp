#include "generator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <random>
#include <span>

#include "artnet/recording_timing.h"
#include "artnet/records.h"

using namespace std::chrono_literals;

namespace recording {

namespace {

/// Sequence numbers go from 1 to 255; 0 says that there are none.
constexpr std::uint64_t kSequenceNumbers = 255;

std::uint64_t unit_of(const Generation& generation) {
    return generation.timing == TimingUnit::Nanoseconds ? 1 : 1'000'000;
}

/// When a frame begins, in the timing's units. The wide type keeps weeks exact to the
/// nanosecond; where it is no wider than a double, as on 32-bit ARM, days.
std::uint64_t begin_of(const Generation& generation, std::uint64_t frame) {
    const long double units_a_second = 1e9L / static_cast<long double>(unit_of(generation));
    return static_cast<std::uint64_t>(static_cast<long double>(frame) * units_a_second /
                                      static_cast<long double>(generation.fps));
}

std::uint8_t byte_of(std::uint64_t number) {
    return static_cast<std::uint8_t>(number & 0xFF);
}

/// The levels of one pattern, packet by packet in the order of the recording.
class Levels {
public:
    explicit Levels(const Generation& generation) : generation_(generation), random_(generation.seed) {}

    /// @param position  of the universe in its frame, from 0
    void fill(std::span<std::uint8_t> levels, std::uint64_t frame, std::size_t position) {
        for (std::size_t channel = 0; channel < levels.size(); ++channel) {
            levels[channel] = level(frame, position, channel, levels.size());
        }
    }

private:
    std::uint8_t level(std::uint64_t frame, std::size_t position, std::size_t channel, std::size_t channels) {
        const double seconds = static_cast<double>(frame) / generation_.fps;
        switch (generation_.pattern) {
            case Pattern::Chase:
                return chase_level((frame + position + channels - channel) % channels);
            case Pattern::Ramp:
                return byte_of(frame + position + channel);
            case Pattern::Sine:
                return sine_level(seconds / 2 - static_cast<double>(channel + position) / 64);
            case Pattern::Strobe:
                return static_cast<std::uint64_t>(seconds * 8) % 2 == 0 ? 255 : 0;
            case Pattern::Random:
                // The engine's numbers are the same everywhere; those of the library's distributions are not.
                return byte_of(random_() >> 56);
            case Pattern::Still:
                return byte_of(position * 16 + channel);
        }
        return 0;
    }

    /// @param behind  channels behind the bright one
    static std::uint8_t chase_level(std::uint64_t behind) {
        constexpr std::array<std::uint8_t, 4> kTail{255, 128, 64, 32};
        return behind < kTail.size() ? kTail[static_cast<std::size_t>(behind)] : 0;
    }

    /// @param turns  whole turns of the wave
    static std::uint8_t sine_level(double turns) {
        return static_cast<std::uint8_t>(std::lround(127.5 + 127.5 * std::sin(2 * std::numbers::pi * turns)));
    }

    const Generation& generation_;
    std::mt19937_64 random_;
};

}  // namespace

std::uint64_t frame_count(const Generation& generation) {
    return static_cast<std::uint64_t>(std::max(1LL, std::llround(generation.seconds * generation.fps)));
}

std::chrono::nanoseconds frame_time(const Generation& generation, std::uint64_t frame) {
    const std::uint64_t units = begin_of(generation, frame + 1) - begin_of(generation, frame);
    return std::chrono::nanoseconds(static_cast<std::int64_t>(units * unit_of(generation)));
}

std::chrono::nanoseconds generate_recording(const Generation& generation, RecordingWriter& out,
                                            const std::function<void(std::uint64_t)>& on_frame) {
    std::array<std::uint8_t, kMaxDmxChannels> buffer{};
    const std::span levels(buffer.data(), static_cast<std::size_t>(generation.channels));
    Levels pattern(generation);
    const std::uint64_t frames = frame_count(generation);
    std::chrono::nanoseconds duration = kLastFrameTime;
    for (std::uint64_t frame = 0; frame < frames; ++frame) {
        const auto sequence = static_cast<std::uint8_t>(frame % kSequenceNumbers + 1);
        for (std::size_t position = 0; position < generation.universes.size(); ++position) {
            pattern.fill(levels, frame, position);
            out.dmx(generation.universes[position], levels, sequence);
        }
        const std::chrono::nanoseconds time = frame_time(generation, frame);
        if (generation.timing == TimingUnit::Nanoseconds) {
            out.frame_delay(time);
        } else {
            out.frame_delay_ms(static_cast<std::uint32_t>(time / 1ms));
        }
        if (frame + 1 < frames) {
            duration += time;
        }
        on_frame(frame + 1);
    }
    return duration;
}

}  // namespace recording
