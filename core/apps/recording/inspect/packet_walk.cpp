#include "inspect/packet_walk.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

#include "artnet/errors.h"
#include "artnet/records.h"
#include "inspect/wording.h"

namespace inspect {

namespace {

constexpr std::string_view kIdentifier{"Art-Net\0", 8};
/// The parser reads blocks of this size; what is left of one behind the recording's end is scanned, too.
constexpr std::uint64_t kBlockSize = 512;
constexpr std::size_t kScanSize = std::size_t{1} << 16U;
/// Where an ArtDmx packet has its Length, high byte first.
constexpr std::uint64_t kLengthOffset = 16;
constexpr std::uint64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr std::uint64_t kLongestTiming = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t kTriggerSize = 18;

/// Every place where a whole identifier stands. `progress` is told of the bytes searched; may be empty.
std::vector<std::uint64_t> find_identifiers(std::istream& in,
                                            const std::function<void(std::uint64_t)>& progress) {
    std::vector<std::uint64_t> places;
    std::string window;
    std::uint64_t begin = 0;
    std::vector<char> block(kScanSize);
    while (in.read(block.data(), static_cast<std::streamsize>(block.size())), in.gcount() > 0) {
        window.append(block.data(), static_cast<std::size_t>(in.gcount()));
        for (std::size_t at = window.find(kIdentifier); at != std::string::npos;
             at = window.find(kIdentifier, at + 1)) {
            places.push_back(begin + at);
        }
        // An identifier may go on in the next block.
        const std::size_t keep = std::min(window.size(), kIdentifier.size() - 1);
        begin += window.size() - keep;
        window.erase(0, window.size() - keep);
        if (progress) {
            progress(begin);
        }
    }
    return places;
}

std::string byte_text(std::uint64_t offset) {
    return "byte " + std::to_string(offset);
}

/// What a packet of this type is for, as far as sources are known to send it.
std::string opcode_text(std::uint16_t opcode) {
    char number[16];
    std::snprintf(number, sizeof number, "0x%04x", static_cast<unsigned>(opcode));
    constexpr std::pair<std::uint16_t, const char*> kNames[] = {
        {0x2300, "ArtDiagData"}, {0x2400, "ArtCommand"}, {0x5100, "ArtNzs"},      {0x5200, "ArtSync"},
        {0x6000, "ArtAddress"},  {0x7000, "ArtInput"},   {0x9700, "ArtTimeCode"}, {0x9800, "ArtTimeSync"}};
    for (const auto& [code, name] : kNames) {
        if (code == opcode) {
            return std::string(number) + ", " + name;
        }
    }
    return number;
}

}  // namespace

PacketWalk::PacketWalk(std::string path, std::uint64_t bytes, const Timeline& timeline, bool fixed_fps,
                       Findings& findings)
    : path_(std::move(path)),
      bytes_(bytes),
      timeline_(timeline),
      fixed_fps_(fixed_fps),
      findings_(findings),
      bytes_view_(path_, std::ios::binary),
      stale_run_(findings),
      zero_run_(findings),
      ignored_run_(findings),
      odd_run_(findings) {}

std::optional<std::chrono::nanoseconds> PacketWalk::last_timing() const {
    if (timings_ == 0 || timed_at_ != offsets_.size()) {
        return std::nullopt;
    }
    return timing_;
}

bool PacketWalk::run(const std::function<void(std::uint64_t)>& progress) {
    progress_ = progress;
    identifiers_ = find_identifiers(bytes_view_, progress);
    bytes_view_.clear();
    listen();
    std::ifstream in(path_, std::ios::binary);
    std::error_code error;
    parser_.parse(in, error);
    if (error) {
        take_ending(error);
    } else {
        look_between(std::min(end_, bytes_), bytes_);
    }
    end_runs();
    return !error;
}

void PacketWalk::listen() {
    parser_.on_artdmx = [this](ArtDmx& dmx) { take_dmx(dmx); };
    parser_.on_artoemvfps = [this](ArtOemVfps& timing) {
        // Copied first: the field of the packed record may lie at any address.
        const std::uint32_t milliseconds = timing.Milliseconds;
        take(sizeof timing, "timing packet");
        take_timing(milliseconds * kNanosecondsPerMillisecond);
    };
    parser_.on_artoemvfpsns = [this](ArtOemVfpsNs& timing) {
        const std::uint64_t nanoseconds = timing.Nanoseconds;
        take(sizeof timing, "timing packet");
        take_timing(nanoseconds);
    };
    parser_.on_artpoll = [this](ArtPoll& poll) { take_dropped(sizeof poll, "ArtPoll"); };
    parser_.on_artpollreply = [this](ArtPollReply& reply) { take_dropped(sizeof reply, "ArtPollReply"); };
    parser_.on_trigger = [this](ArtTrigger&) { take_dropped(kTriggerSize, "ArtTrigger"); };
    parser_.on_unknown = [this](ArtHeader& header) { take_unknown(header.OpCode); };
    parser_.on_error = [this](const std::error_code&) { take_oversized(); };
}

void PacketWalk::take(std::uint64_t size, const std::string& what) {
    const std::uint64_t offset = parser_.packet_offset();
    look_between(std::min(end_, bytes_), std::min(offset, bytes_));
    end_ = offset + size;
    open_ended_ = false;
    if (progress_) {
        // Behind the search for identifiers.
        progress_(bytes_ + std::min(end_, bytes_));
    }
    if (offset >= bytes_) {
        // Where it stands is a block before. They follow each other up to the buffer's end.
        if (stale_run_.count() == 0) {
            stale_what_ = what;
        }
        stale_run_.add(0, offset - kBlockSize, frame());
    } else if (end_ > bytes_) {
        add("stale-duplicate", Level::Error, offset,
            "the " + what +
                " here is put together of the file's last bytes and of what the block before left behind "
                "them; pad the file with zeros (truncate -s %512 FILE)");
    }
}

void PacketWalk::take_dmx(const ArtDmx& dmx) {
    const int universe = dmx.SubUni + (dmx.Net << 8);
    const std::size_t number = offsets_.size();
    offsets_.push_back(parser_.packet_offset());
    take(kDmxHeaderSize + dmx.Length, "ArtDmx packet of universe " + std::to_string(universe));
    if (dmx.Length == 0) {
        add("empty-dmx", Level::Warning, offsets_.back(),
            "this ArtDmx packet of universe " + std::to_string(universe) +
                " holds no channel and is never sent; leave it out");
    } else if (dmx.Length % 2 != 0) {
        if (odd_run_.breaks(number)) {
            end_odd_run();
        }
        odd_run_.add(number, offsets_.back(), timeline_.frame_of(number));
    }
}

void PacketWalk::end_odd_run() {
    odd_run_.end("odd-length", Level::Warning, [](std::uint64_t count) {
        return counted(count, "ArtDmx packet") + " from here on " + (count == 1 ? "has" : "have") +
               " an odd Length, which the protocol forbids and some receivers refuse; record or write an "
               "even "
               "number of channels";
    });
}

void PacketWalk::take_timing(std::uint64_t nanoseconds) {
    const std::uint64_t offset = parser_.packet_offset();
    const std::uint64_t packets = offsets_.size();
    if (fixed_fps_) {
        if (!std::exchange(told_unused_timing_, true)) {
            add("timing-unused", Level::Note, offset,
                "the recording has its own timing, which a fixed frame rate ignores; set \"fps\" to -1 to "
                "use "
                "it");
        }
        return;
    }
    if (packets == 0) {
        add("timing-ignored", Level::Warning, offset,
            "this timing packet comes before the first ArtDmx packet and has no effect; put it after the "
            "last "
            "ArtDmx packet of its frame");
        return;
    }
    // Of what stands in the stale tail it has been said that it repeats.
    const bool stale = offset >= bytes_;
    if (!stale && timings_ != 0 && timed_at_ == packets) {
        if (ignored_run_.breaks(timings_)) {
            end_ignored_run();
        }
        ignored_run_.add(timings_, offset, frame());
    }
    ++timings_;
    timed_at_ = packets;
    const bool valid = nanoseconds <= kLongestTiming;
    timing_ = std::chrono::nanoseconds(valid ? static_cast<std::int64_t>(nanoseconds) : 0);
    if (!stale && timing_.count() == 0) {
        if (zero_run_.breaks(timings_)) {
            end_zero_run();
        }
        zero_run_.add(timings_, offset, frame());
        untimed_frames_.insert(frame());
    }
}

void PacketWalk::end_zero_run() {
    zero_run_.end("zero-frame", Level::Warning, [](std::uint64_t count) {
        return counted(count, "timing packet") + " from here on " + (count == 1 ? "gives" : "give") +
               " no time (0, or beyond what 63 bits hold): frames leave at once with the next one, and "
               "receivers show the last; give each frame its time";
    });
}

void PacketWalk::end_ignored_run() {
    ignored_run_.end("timing-ignored", Level::Warning, [](std::uint64_t count) {
        return counted(count, "timing packet") + " from here on " + (count == 1 ? "follows" : "follow") +
               " another one without an ArtDmx packet between them, and only the last has effect; leave one, "
               "with the sum of their times if the frame is to stand as long";
    });
}

void PacketWalk::take_oversized() {
    const std::uint64_t offset = parser_.packet_offset();
    take(kDmxHeaderSize, "ArtDmx header");
    open_ended_ = true;
    std::string length = read_bytes(offset + kLengthOffset, 2);
    length.resize(2);
    const unsigned claimed =
        static_cast<unsigned char>(length[0]) * 256U + static_cast<unsigned char>(length[1]);
    add("oversized-length", Level::Error, offset,
        "this ArtDmx packet claims " + std::to_string(claimed) +
            " channels, above 512: it is not played, and its data are searched for packets; mend its Length "
            "(high byte first) or leave it out");
}

void PacketWalk::take_unknown(std::uint16_t opcode) {
    take(sizeof(ArtHeader), "packet");
    open_ended_ = true;
    add("unknown-packet", Level::Warning, parser_.packet_offset(),
        "the service does not know packets of type " + opcode_text(opcode) +
            " and skips this one; leave it out of the recording");
}

void PacketWalk::take_dropped(std::uint64_t size, const char* name) {
    take(size, name);
    // Replies come in several lengths.
    open_ended_ = true;
    add("dropped-packet", Level::Note, parser_.packet_offset(),
        std::string("the service reads this ") + name + " packet and drops it; it can be left out");
}

void PacketWalk::take_ending(const std::error_code& error) {
    if (error == make_error_code(errc::header_not_found)) {
        // Nothing but hidden packets is worth a word besides.
        open_ended_ = true;
        look_between(0, bytes_);
        add("no-packets", Level::Error, 0,
            "the file holds no Art-Net packet: the load ends here with an error, and the effects that follow "
            "in a playlist are not loaded either; is it a recording?");
        return;
    }
    const std::uint64_t offset = parser_.packet_offset();
    look_between(std::min(end_, bytes_), std::min(offset, bytes_));
    add("truncated-tail", Level::Error, offset,
        "the file ends within this packet, after " + counted(bytes_ - std::min(offset, bytes_), "byte") +
            " of it: the load ends with an error, the packet before it is lost as well, and the effects that "
            "follow in a playlist are not loaded; cut the file at " +
            byte_text(offset) + " and pad it with zeros to a multiple of 512 bytes, or record it anew");
}

void PacketWalk::look_between(std::uint64_t begin, std::uint64_t end) {
    while (next_identifier_ < identifiers_.size() && identifiers_[next_identifier_] < begin) {
        ++next_identifier_;
    }
    bool hidden = false;
    for (; next_identifier_ < identifiers_.size() && identifiers_[next_identifier_] < end;
         ++next_identifier_) {
        hidden = true;
        const std::uint64_t offset = identifiers_[next_identifier_];
        add("hidden-identifier", Level::Error, offset,
            "the packet here is not found and not played: what stands right before its identifier (" +
                std::string(read_bytes(offset - std::min<std::uint64_t>(offset, 1), 1) == "A"
                                ? "the letter A"
                                : "the beginning of another identifier") +
                ") hides it; take those bytes out or put a zero between");
    }
    if (hidden || open_ended_ || begin >= end) {
        return;
    }
    // Zeros are padding. A long stretch is read in pieces.
    for (std::uint64_t at = begin; at < end; at += kScanSize) {
        const std::string part =
            read_bytes(at, static_cast<std::size_t>(std::min<std::uint64_t>(end - at, kScanSize)));
        const std::size_t stray = part.find_first_not_of('\0');
        if (stray != std::string::npos) {
            add("stray-bytes", Level::Warning, at + stray,
                counted(end - at - stray, "byte") +
                    " from here on belong to no packet and are passed over; a packet before or here is "
                    "damaged, or the file is no recording all through");
            return;
        }
    }
}

void PacketWalk::end_runs() {
    stale_run_.end("stale-duplicate", Level::Error, [this](std::uint64_t count) {
        return "the " + stale_what_ + " here" +
               (count == 1 ? "" : " and " + counted(count - 1, "packet") + " after it") +
               (count == 1 ? " is" : " are") +
               " played a second time at the recording's end: the file does not end with a block of 512 "
               "bytes, "
               "and the parser scans what the block before left there; pad the file with zeros (truncate -s "
               "%512 FILE)";
    });
    end_zero_run();
    end_ignored_run();
    end_odd_run();
}

std::uint64_t PacketWalk::frame() const {
    return offsets_.empty() ? 0 : timeline_.frame_of(offsets_.size() - 1);
}

std::string PacketWalk::read_bytes(std::uint64_t offset, std::size_t count) {
    std::string bytes(count, '\0');
    bytes_view_.clear();
    bytes_view_.seekg(static_cast<std::streamoff>(offset));
    bytes_view_.read(bytes.data(), static_cast<std::streamsize>(count));
    bytes.resize(static_cast<std::size_t>(std::max<std::streamsize>(bytes_view_.gcount(), 0)));
    return bytes;
}

void PacketWalk::add(const char* kind, Level level, std::uint64_t offset, std::string text) {
    findings_.add({kind, level, offset, frame(), 1, std::move(text)});
}

}  // namespace inspect
