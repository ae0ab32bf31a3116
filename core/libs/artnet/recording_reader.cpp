#include "artnet/recording_reader.h"

#include <cstring>
#include <limits>

#include "artnet/opcodes.h"
#include "artnet/recording_timing.h"

namespace {

constexpr std::uint64_t kNanosecondsPerMillisecond = 1'000'000;

/// What playback makes of a timing packet: a count above the signed range turns negative there, which is no
/// delay.
std::chrono::nanoseconds played_delay(std::uint64_t written) {
    return std::chrono::nanoseconds(
        written > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())
            ? 0
            : static_cast<std::int64_t>(written));
}

std::chrono::nanoseconds saturating_sum(std::chrono::nanoseconds a, std::chrono::nanoseconds b) {
    std::int64_t sum = 0;
    return __builtin_add_overflow(a.count(), b.count(), &sum) ? std::chrono::nanoseconds::max()
                                                              : std::chrono::nanoseconds(sum);
}

}  // namespace

RecordingReader::RecordingReader() {
    parser_.on_artdmx = [this](ArtDmx& dmx) { take_dmx(dmx); };
    parser_.on_artoemvfps = [this](ArtOemVfps& timing) {
        const std::uint32_t milliseconds = timing.Milliseconds;
        take_timing(RecordedTiming::Milliseconds, milliseconds * kNanosecondsPerMillisecond);
    };
    parser_.on_artoemvfpsns = [this](ArtOemVfpsNs& timing) {
        const std::uint64_t nanoseconds = timing.Nanoseconds;
        take_timing(RecordedTiming::Nanoseconds, nanoseconds);
    };
    parser_.on_artpoll = [this](ArtPoll&) { take_other(opcode::kPoll); };
    parser_.on_artpollreply = [this](ArtPollReply&) { take_other(opcode::kPollReply); };
    parser_.on_trigger = [this](ArtTrigger&) { take_other(opcode::kTrigger); };
    parser_.on_unknown = [this](ArtHeader& header) { take_other(header.OpCode); };
    parser_.on_error = [this](const std::error_code&) {
        if (on_oversized) {
            on_oversized();
        }
    };
}

void RecordingReader::read(const char* path, std::error_code& ec) {
    held_ = {};
    parser_.parse(path, ec);
    if (!ec) {
        deliver(true);
    }
}

void RecordingReader::read(std::istream& in, std::error_code& ec) {
    held_ = {};
    parser_.parse(in, ec);
    if (!ec) {
        deliver(true);
    }
}

void RecordingReader::take_dmx(ArtDmx& dmx) {
    deliver(false);
    const std::size_t size = kDmxHeaderSize + dmx.Length;
    held_.universe = universe_of(dmx);
    ArtNetParser::convert_to_raw(dmx);
    std::memcpy(held_bytes_.data(), &dmx, size);
    held_.bytes = std::span(held_bytes_).first(size);
    held_.offset = parser_.packet_offset();
    held_.is_stale = parser_.packet_is_stale();
    if (on_progress) {
        on_progress(parser_.bytes_read());
    }
}

void RecordingReader::take_timing(RecordedTiming timing, std::uint64_t nanoseconds) {
    // Before the first ArtDmx it tells nothing; of several after one, the last counts.
    if (!held_.bytes.empty()) {
        held_.timing = timing;
        held_.written_delay = nanoseconds;
    }
    take_other(timing == RecordedTiming::Milliseconds ? opcode::kOemVfps : opcode::kOemVfpsNs);
}

void RecordingReader::take_other(std::uint16_t opcode) {
    if (on_other) {
        on_other(opcode);
    }
}

void RecordingReader::deliver(bool is_last) {
    if (held_.bytes.empty()) {
        return;
    }
    held_.is_last = is_last;
    held_.ends_frame = is_last || held_.timing != RecordedTiming::None;
    held_.delay = is_last ? kLastFrameTime : played_delay(held_.written_delay);
    if (on_packet) {
        on_packet(held_);
    }
    RecordedPacket next;
    next.begin = saturating_sum(held_.begin, held_.delay);
    next.frame = held_.frame + (held_.ends_frame ? 1 : 0);
    held_ = next;
}
