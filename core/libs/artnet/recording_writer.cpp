#include "artnet/recording_writer.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstring>

#include "artnet/opcodes.h"
#include "artnet/packet_header.h"
#include "artnet/records.h"
#include "artnet/universe.h"

namespace {

/// In no identifier.
constexpr std::uint8_t kSeparator = 0xFF;

template <typename Record>
void append(std::vector<std::uint8_t>& out, const Record& record, std::size_t size = sizeof(Record)) {
    const std::size_t begin = out.size();
    out.resize(begin + size);
    std::memcpy(out.data() + begin, &record, size);
}

}  // namespace

void append_artdmx(std::vector<std::uint8_t>& out, std::uint16_t universe,
                   std::span<const std::uint8_t> levels, std::uint8_t sequence) {
    const std::size_t count = std::min(levels.size(), kMaxDmxChannels);
    ArtDmx dmx;
    dmx.Header = artnet::header_of(opcode::kDmx);
    dmx.ProtVerHi = 0;
    dmx.ProtVerLo = kProtocolVersion;
    dmx.Sequence = sequence;
    dmx.Physical = 0;
    dmx.SubUni = static_cast<std::uint8_t>(universe & 0xFF);
    dmx.Net = static_cast<std::uint8_t>(universe >> 8);
    dmx.Length = swap_word(static_cast<std::uint16_t>(count));
    std::copy_n(levels.begin(), count, dmx.Data.begin());
    append(out, dmx, kDmxHeaderSize + count);
}

void append_artoemvfps(std::vector<std::uint8_t>& out, std::uint32_t milliseconds) {
    append(out, ArtOemVfps{artnet::header_of(opcode::kOemVfps), milliseconds});
}

void append_artoemvfpsns(std::vector<std::uint8_t>& out, std::uint64_t nanoseconds) {
    append(out, ArtOemVfpsNs{artnet::header_of(opcode::kOemVfpsNs), nanoseconds});
}

void append_artsync(std::vector<std::uint8_t>& out) {
    append(out, ArtSync{artnet::header_of(opcode::kSync), 0, kProtocolVersion, 0, 0});
}

std::size_t recording_padding(std::uint64_t size) noexcept {
    return (kRecordingBlockSize - size % kRecordingBlockSize) % kRecordingBlockSize;
}

bool ends_in_identifier_part(std::span<const std::uint8_t> bytes) noexcept {
    const std::span identifier(kArtNetIdentifier);
    for (std::size_t size = std::min(bytes.size(), identifier.size() - 1); size > 0; --size) {
        if (std::ranges::equal(bytes.last(size), identifier.first(size))) {
            return true;
        }
    }
    return false;
}

RecordingWriter& RecordingWriter::dmx(std::uint16_t universe, std::span<const std::uint8_t> levels,
                                      std::uint8_t sequence) {
    append_artdmx(packet_, universe, levels, sequence);
    return flush_packet();
}

RecordingWriter& RecordingWriter::raw_dmx(std::span<const std::uint8_t> packet) {
    assert(packet.size() >= kDmxHeaderSize);
    packet_.assign(packet.begin(), packet.end());
    return flush_packet();
}

RecordingWriter& RecordingWriter::frame_delay(std::chrono::nanoseconds time) {
    assert(time.count() >= 0);
    append_artoemvfpsns(packet_, static_cast<std::uint64_t>(time.count()));
    return flush_packet();
}

RecordingWriter& RecordingWriter::frame_delay_ms(std::uint32_t milliseconds) {
    append_artoemvfps(packet_, milliseconds);
    return flush_packet();
}

RecordingWriter& RecordingWriter::sync() {
    append_artsync(packet_);
    return flush_packet();
}

RecordingWriter& RecordingWriter::raw(std::span<const std::uint8_t> packet) {
    packet_.assign(packet.begin(), packet.end());
    if (ends_in_identifier_part(packet_)) {
        packet_.push_back(kSeparator);
    }
    return flush_packet();
}

RecordingWriter& RecordingWriter::pad() {
    packet_.assign(recording_padding(size_), 0);
    return flush_packet();
}

RecordingWriter& RecordingWriter::flush_packet() {
    out_.write(reinterpret_cast<const char*>(packet_.data()), static_cast<std::streamsize>(packet_.size()));
    size_ += packet_.size();
    packet_.clear();
    return *this;
}
