#pragma once
// Makes recordings: encodes ArtDmx and timing packets and appends them to bytes or to a stream.

#include <chrono>
#include <cstdint>
#include <ostream>
#include <span>
#include <vector>

/**
 * Appends an ArtDmx packet.
 *
 * @param universe  port-address, all 16 bits of it
 * @param levels    up to 512 channels; what is beyond is left out
 * @param sequence  1 to 255; 0: not used
 */
void append_artdmx(std::vector<std::uint8_t>& out, std::uint16_t universe,
                   std::span<const std::uint8_t> levels, std::uint8_t sequence = 0);

/// Appends the packet that says how long the frame before it stands, in milliseconds.
void append_artoemvfps(std::vector<std::uint8_t>& out, std::uint32_t milliseconds);

/// Appends the packet that says how long the frame before it stands, in nanoseconds.
void append_artoemvfpsns(std::vector<std::uint8_t>& out, std::uint64_t nanoseconds);

/**
 * Writes a recording packet by packet to a stream that it borrows; the stream's state tells of failures.
 *
 * A timing packet follows the last ArtDmx packet of the frame whose time it gives.
 */
class RecordingWriter {
public:
    explicit RecordingWriter(std::ostream& out) : out_(out) {}

    RecordingWriter& dmx(std::uint16_t universe, std::span<const std::uint8_t> levels,
                         std::uint8_t sequence = 0);
    /// Not negative.
    RecordingWriter& frame_delay(std::chrono::nanoseconds time);
    RecordingWriter& frame_delay_ms(std::uint32_t milliseconds);

private:
    RecordingWriter& flush_packet();

    std::ostream& out_;
    /// The packet being encoded, reused from one to the next.
    std::vector<std::uint8_t> packet_;
};
