// Writes a recording of full packets whose channels 0 to 3 number the frames.
//
// Usage: make_show FILE UNIVERSES FRAMES INTERVAL_NS SEQUENCE [FIRST [STEPS]]
// INTERVAL_NS is the time after each frame, as a nanosecond timing packet; negative: no timing packets, which
// makes one frame of everything. SEQUENCE is the sequence byte of all packets; it names the playlist.
// Universes count from FIRST (0). With STEPS, SEQUENCE + n % STEPS stands in frame n: the header, unlike the
// channels, says after merging and at any brightness which frame a packet is from.
//
// The number stands in four digits of base 128, least first, each doubled: brightness 50 halves a digit's
// level without a loss. The file is filled up with zeros to whole blocks of 512 bytes, so that no packet
// plays twice.

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "artnet/recording_writer.h"

namespace {

constexpr std::uint32_t kBase = 128;
constexpr std::streamoff kBlock = 512;

void number(std::array<std::uint8_t, 512>& levels, std::uint32_t serial) {
    for (std::size_t digit = 0; digit < 4; ++digit, serial /= kBase) {
        levels[digit] = static_cast<std::uint8_t>(serial % kBase * 2);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 6 || argc > 8) {
        fputs("usage: make_show FILE UNIVERSES FRAMES INTERVAL_NS SEQUENCE [FIRST [STEPS]]\n", stderr);
        return 2;
    }
    const int universes = atoi(argv[2]);
    const long frames = atol(argv[3]);
    const std::chrono::nanoseconds interval(atoll(argv[4]));
    const int sequence = atoi(argv[5]);
    const int first = argc > 6 ? atoi(argv[6]) : 0;
    const long steps = argc > 7 ? atol(argv[7]) : 1;

    std::ofstream file(argv[1], std::ios::binary);
    RecordingWriter recording(file);
    std::array<std::uint8_t, 512> levels{};
    for (long frame = 0; frame < frames; ++frame) {
        for (std::size_t channel = 4; channel < levels.size(); ++channel) {
            levels[channel] = static_cast<std::uint8_t>(static_cast<std::size_t>(frame) + channel);
        }
        number(levels, static_cast<std::uint32_t>(frame));
        for (int universe = 0; universe < universes; ++universe) {
            recording.dmx(static_cast<std::uint16_t>(first + universe), levels,
                          static_cast<std::uint8_t>(sequence + frame % steps));
        }
        if (interval.count() >= 0) {
            recording.frame_delay(interval);
        }
    }
    const std::streamoff rest = file.tellp() % kBlock;
    if (rest != 0) {
        const std::array<char, kBlock> zeros{};
        file.write(zeros.data(), kBlock - rest);
    }
    file.close();
    if (!file) {
        perror(argv[1]);
        return 1;
    }
    return 0;
}
