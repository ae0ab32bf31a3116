#pragma once
// Recordings and packets that the benchmarks work on.

#include <cstdint>
#include <string>
#include <vector>

#include "artnet/recording_writer.h"

/// `frames` frames of `universes` full ArtDmx packets, each frame with a 25 ms nanosecond timing packet;
/// padded to whole 512-byte blocks.
inline std::string full_recording(int universes, int frames) {
    std::vector<std::uint8_t> bytes;
    std::vector<std::uint8_t> levels(512);
    for (int frame = 0; frame < frames; ++frame) {
        for (std::size_t channel = 0; channel < levels.size(); ++channel) {
            levels[channel] = static_cast<std::uint8_t>(static_cast<std::size_t>(frame) + channel);
        }
        for (int universe = 0; universe < universes; ++universe) {
            append_artdmx(bytes, static_cast<std::uint16_t>(universe), levels);
        }
        append_artoemvfpsns(bytes, 25'000'000);
    }
    bytes.resize((bytes.size() + 511) / 512 * 512);
    return {bytes.begin(), bytes.end()};
}

/// One complete ArtDmx packet of 512 channels in wire order.
inline std::vector<unsigned char> full_packet(int universe) {
    std::vector<std::uint8_t> levels(512);
    for (std::size_t channel = 0; channel < levels.size(); ++channel) {
        levels[channel] = static_cast<std::uint8_t>(channel);
    }
    std::vector<std::uint8_t> bytes;
    append_artdmx(bytes, static_cast<std::uint16_t>(universe), levels);
    return bytes;
}
