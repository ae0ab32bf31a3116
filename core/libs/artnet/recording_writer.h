#pragma once
// Makes recordings: encodes packets and appends them to bytes or to a stream.

#include <chrono>
#include <cstddef>
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

/// Appends the packet that ends a frame on the wire.
void append_artsync(std::vector<std::uint8_t>& out);

/// Bytes that fill a recording of `size` bytes up to whole blocks, so that its reader has no stale tail: 0 to
/// 511. Zeros serve, unless the recording ends in the beginning of an identifier.
[[nodiscard]] std::size_t recording_padding(std::uint64_t size) noexcept;

/**
 * Whether the bytes end in the beginning of an identifier.
 *
 * What is searched for identifiers must not end like that: a zero might complete it, and the first byte of
 * the identifier that follows, which breaks the match, would not be tried again, so that its packet is lost.
 */
[[nodiscard]] bool ends_in_identifier_part(std::span<const std::uint8_t> bytes) noexcept;

/**
 * Writes a recording packet by packet to a stream that it borrows; the stream's state tells of failures.
 *
 * A timing packet follows the last ArtDmx packet of the frame whose time it gives. End with pad().
 */
class RecordingWriter {
public:
    explicit RecordingWriter(std::ostream& out) : out_(out) {}

    RecordingWriter& dmx(std::uint16_t universe, std::span<const std::uint8_t> levels,
                         std::uint8_t sequence = 0);
    /// A complete ArtDmx packet in wire order, 18 + Length bytes.
    RecordingWriter& raw_dmx(std::span<const std::uint8_t> packet);
    /// Not negative.
    RecordingWriter& frame_delay(std::chrono::nanoseconds time);
    RecordingWriter& frame_delay_ms(std::uint32_t milliseconds);
    RecordingWriter& sync();
    /**
     * A packet of any type, as it stands.
     *
     * The reader may search its body for identifiers. Where that ends in the beginning of one, a byte that
     * belongs to none is put behind it, so that the next packet is found.
     */
    RecordingWriter& raw(std::span<const std::uint8_t> packet);
    /// Fills up to whole blocks with bytes that hold no identifier.
    RecordingWriter& pad();

    /// Bytes written so far.
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

private:
    RecordingWriter& flush_packet();

    std::ostream& out_;
    std::uint64_t size_ = 0;
    /// The packet being encoded, reused from one to the next.
    std::vector<std::uint8_t> packet_;
};
