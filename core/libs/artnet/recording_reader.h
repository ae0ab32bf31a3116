#pragma once
// Reads a recording as what it plays: its ArtDmx packets with their times and frames.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <istream>
#include <span>
#include <system_error>

#include "artnet/artnet_parser.h"
#include "artnet/records.h"

/// Which kind of timing packet told the time of a packet.
enum class RecordedTiming : std::uint8_t { None, Milliseconds, Nanoseconds };

/// An ArtDmx packet of a recording, as playback with the recording's own timing takes it.
struct RecordedPacket {
    /// The complete packet in wire order, 18 to 530 bytes. Valid during the call.
    std::span<const std::uint8_t> bytes;
    std::uint16_t universe = 0;
    /// ArtNetParser::packet_offset() and packet_is_stale() of the packet.
    std::uint64_t offset = 0;
    bool is_stale = false;
    /// When it is sent, from the begin of the recording. Saturates.
    std::chrono::nanoseconds begin{0};
    /// What playback waits after it: 0 within a frame, kLastFrameTime for the last packet of all.
    std::chrono::nanoseconds delay{0};
    /// Where its own timing packet comes from, and what that says, in nanoseconds. Above the signed 64-bit
    /// range it counts as no delay.
    RecordedTiming timing = RecordedTiming::None;
    std::uint64_t written_delay = 0;
    /// Index of its frame, which ends with a timing packet, also one of no time, or with the recording.
    std::uint64_t frame = 0;
    bool ends_frame = false;
    bool is_last = false;
};

/**
 * Reads recordings with the service's own parser, and gives each packet the delay that the service gives it.
 *
 * Assign the callbacks, then call read(); all run within it, in the order of the file, each packet when the
 * next one has been found. Holds one packet and allocates none. One reader per recording. Reports by
 * std::error_code.
 */
class RecordingReader {
public:
    RecordingReader();
    RecordingReader(const RecordingReader&) = delete;
    RecordingReader& operator=(const RecordingReader&) = delete;

    std::function<void(const RecordedPacket&)> on_packet;
    /// The type of a packet that is no ArtDmx, timing packets included; at its place in the file, which is
    /// before on_packet has told of the ArtDmx before it.
    std::function<void(std::uint16_t opcode)> on_other;
    /// An ArtDmx that is left out, since it claims more than 512 channels.
    std::function<void()> on_oversized;
    /// Bytes read so far; at every ArtDmx.
    std::function<void(std::uint64_t bytes)> on_progress;

    /**
     * Reads a file to its end.
     *
     * @param ec  as for ArtNetParser::parse(). After an error, the packet found last has not been delivered,
     *            as it is not played either; see deliver_rest().
     */
    void read(const char* path, std::error_code& ec);
    void read(std::istream& in, std::error_code& ec);

    /**
     * After an error: delivers the packet found last all the same, as the last one.
     *
     * Playback drops it; what mends a recording that was cut short need not.
     */
    void deliver_rest() { deliver(true); }

    /// Where the reading stands, for offsets within a callback and after an error.
    [[nodiscard]] const ArtNetParser& parser() const noexcept { return parser_; }

private:
    void take_dmx(ArtDmx& dmx);
    void take_timing(RecordedTiming timing, std::uint64_t nanoseconds);
    void take_other(std::uint16_t opcode);
    /// Delivers the packet that is held, if there is one.
    void deliver(bool is_last);

    ArtNetParser parser_;
    /// The ArtDmx found last, whose delay is not known yet; empty `bytes`: none.
    RecordedPacket held_;
    std::array<std::uint8_t, sizeof(ArtDmx)> held_bytes_{};
};
