#include "artnet/artnet_parser.h"

#include <algorithm>
#include <cstring>
#include <fstream>

#include "artnet/opcodes.h"
#include "artnet/universe.h"

namespace {

constexpr std::uint32_t kBlockSize = kRecordingBlockSize;
/// "Art-Net" and its terminating zero.
constexpr char kIdentifier[] = "Art-Net";
constexpr std::uint32_t kIdentifierSize = sizeof kIdentifier;
static_assert(kIdentifierSize == sizeof ArtHeader::ID);

/// Bytes that the last read returned. No more than a block, whatever a derived class has read in between.
std::uint32_t last_count(const std::istream& in) {
    return static_cast<std::uint32_t>(std::min<std::streamsize>(in.gcount(), kBlockSize));
}

template <std::size_t Size>
void terminate(char (&text)[Size]) {
    text[Size - 1] = '\0';
}

}  // namespace

ArtNetParser::ArtNetParser() : buffer_(kBlockSize, '\0'), header_(kIdentifierSize, '\0') {}

void ArtNetParser::parse(const char* path, std::error_code& ec) {
    std::ifstream file(path, std::ios::in | std::ios::binary);
    if (!file) {
        ec = errc::input_file_not_found;
        return;
    }
    parse(file, ec);
}

void ArtNetParser::parse(std::istream& in, std::error_code& ec) {
    running_ = true;
    bool any_found = false;
    block_begin_ = 0;
    filled_ = 0;
    packet_offset_ = 0;
    fill_buffer_without_check(in);
    header_matched_ = 0;
    packet_counter = 0;
    // An input without a byte is one without a packet, not one that ends too early.
    bool more = last_count(in) != 0;
    while (more && !ec) {
        if (search()) {
            any_found = true;
            ArtHeader header;
            std::memcpy(header.ID, header_.data(), sizeof header.ID);
            if (!copy_with_populate(reinterpret_cast<char*>(&header.OpCode), sizeof header.OpCode, in, ec)) {
                break;
            }
            dispatch(header, in, ec);
            ++packet_counter;
            more = running_ && last_count(in) != 0;
        } else {
            fill_buffer_without_check(in);
            more = last_count(in) != 0;
        }
    }
    if (!any_found && !ec) {
        ec = errc::header_not_found;
    }
    running_ = false;
}

void ArtNetParser::convert_to_raw(ArtDmx& dmx) noexcept {
    dmx.Length = swap_word(dmx.Length);
}

void ArtNetParser::parse_unknown(ArtHeader& header, std::istream& /*in*/, std::error_code& /*ec*/) {
    if (on_unknown) {
        on_unknown(header);
    }
}

void ArtNetParser::fill_buffer_without_check(std::istream& in) {
    buffer_pos_ = 0;
    in.read(buffer_.data(), kBlockSize);
    block_begin_ += filled_;
    filled_ = last_count(in);
}

void ArtNetParser::populate_buffer(std::istream& in, std::error_code& ec) {
    fill_buffer_without_check(in);
    if (in.fail() && last_count(in) == 0) {
        ec = errc::unexpected_end_of_input;
    }
}

bool ArtNetParser::search() {
    // The whole block, whatever the last read returned: see the class comment about the stale tail.
    std::uint32_t pos = buffer_pos_;
    while (header_matched_ < kIdentifierSize) {
        if (pos == kBlockSize) {
            return false;
        }
        if (header_matched_ == 0) {
            const void* const first = std::memchr(&buffer_[pos], kIdentifier[0], kBlockSize - pos);
            if (first == nullptr) {
                return false;
            }
            pos = static_cast<std::uint32_t>(static_cast<const char*>(first) - buffer_.data());
        }
        if (buffer_[pos] == kIdentifier[header_matched_]) {
            header_[header_matched_] = buffer_[pos];
            ++header_matched_;
        } else {
            // On purpose, this byte is not tried as the first of another match.
            header_matched_ = 0;
        }
        ++pos;
    }
    buffer_pos_ = pos;
    header_matched_ = 0;
    packet_offset_ = block_begin_ + pos - kIdentifierSize;
    return true;
}

bool ArtNetParser::copy_with_populate(char* dst, unsigned n, std::istream& in, std::error_code& ec) {
    const std::uint32_t count = last_count(in);
    const std::uint32_t in_block = kBlockSize - buffer_pos_;
    const bool stale = buffer_pos_ > count;
    if (stale && n > in_block) {
        // The recording's own packets have all been delivered: nothing to report, nothing left to find.
        running_ = false;
        return false;
    }
    if (stale || count - buffer_pos_ >= n) {
        std::memcpy(dst, buffer_.data() + buffer_pos_, n);
        buffer_pos_ += n;
        return true;
    }
    // After a short last block the bytes behind it are taken here as well; the read below then fails.
    const std::uint32_t taken = std::min(n, in_block);
    std::memcpy(dst, buffer_.data() + buffer_pos_, taken);
    populate_buffer(in, ec);
    if (ec) {
        return false;
    }
    const std::uint32_t rest = n - taken;
    if (rest > last_count(in)) {
        ec = errc::unexpected_end_of_input;
        return false;
    }
    std::memcpy(dst + taken, buffer_.data(), rest);
    buffer_pos_ = rest;
    return true;
}

template <typename Record>
bool ArtNetParser::read_record(const ArtHeader& header, Record& record, unsigned n, std::istream& in,
                               std::error_code& ec) {
    std::memcpy(&record, &header, sizeof header);
    return copy_with_populate(reinterpret_cast<char*>(&record) + sizeof header, n, in, ec);
}

void ArtNetParser::dispatch(ArtHeader& header, std::istream& in, std::error_code& ec) {
    switch (header.OpCode) {
        case opcode::kDmx:
            return parse_artdmx(header, in, ec);
        case opcode::kOemVfps:
            return parse_artoemvfps(header, in, ec);
        case opcode::kOemVfpsNs:
            return parse_artoemvfpsns(header, in, ec);
        case opcode::kPoll:
            return parse_artpoll(header, in, ec);
        case opcode::kPollReply:
            return parse_artpollreply(header, in, ec);
        case opcode::kTrigger:
            return parse_trigger(header, in, ec);
        default:
            return parse_unknown(header, in, ec);
    }
}

void ArtNetParser::parse_artpoll(ArtHeader& header, std::istream& in, std::error_code& ec) {
    ArtPoll poll;
    if (read_record(header, poll, sizeof poll - sizeof header, in, ec) && on_artpoll) {
        on_artpoll(poll);
    }
}

void ArtNetParser::parse_artpollreply(ArtHeader& header, std::istream& in, std::error_code& ec) {
    ArtPollReply reply{};
    // Nodes send replies of several lengths. In a small recording the length follows the size of the last
    // read, on purpose: recordings of a single reply are one read, and its size is the reply's.
    constexpr std::uint32_t kHeader = sizeof(ArtHeader);
    const std::uint32_t size = std::clamp<std::uint32_t>(last_count(in), kHeader, sizeof reply);
    if (!read_record(header, reply, size - kHeader, in, ec)) {
        return;
    }
    reply.VersInfo = swap_word(reply.VersInfo);
    reply.Oem = swap_word(reply.Oem);
    reply.NumPorts = swap_word(reply.NumPorts);
    terminate(reply.ShortName);
    terminate(reply.LongName);
    terminate(reply.NodeReport);
    if (on_artpollreply) {
        on_artpollreply(reply);
    }
}

void ArtNetParser::parse_artdmx(ArtHeader& header, std::istream& in, std::error_code& ec) {
    // Not zeroed: the bytes behind Length are nobody's.
    ArtDmx dmx;
    if (!read_record(header, dmx, kDmxHeaderSize - sizeof header, in, ec)) {
        return;
    }
    dmx.Length = swap_word(dmx.Length);
    if (dmx.Length > kMaxDmxChannels) {
        // The channels are not skipped but searched for identifiers like any other bytes.
        if (on_error) {
            on_error(errc::data_buffer_oversized);
        }
        return;
    }
    if (copy_with_populate(reinterpret_cast<char*>(dmx.Data.data()), dmx.Length, in, ec) && on_artdmx) {
        on_artdmx(dmx);
    }
}

void ArtNetParser::parse_artoemvfps(ArtHeader& header, std::istream& in, std::error_code& ec) {
    ArtOemVfps timing;
    if (read_record(header, timing, sizeof timing - sizeof header, in, ec) && on_artoemvfps) {
        on_artoemvfps(timing);
    }
}

void ArtNetParser::parse_artoemvfpsns(ArtHeader& header, std::istream& in, std::error_code& ec) {
    ArtOemVfpsNs timing;
    if (read_record(header, timing, sizeof timing - sizeof header, in, ec) && on_artoemvfpsns) {
        on_artoemvfpsns(timing);
    }
}

void ArtNetParser::parse_trigger(ArtHeader& header, std::istream& in, std::error_code& ec) {
    ArtTrigger trigger{};
    if (!read_record(header, trigger, offsetof(ArtTrigger, Data) - sizeof header, in, ec)) {
        return;
    }
    trigger.ProtVer = swap_word(trigger.ProtVer);
    trigger.OemCode = swap_word(trigger.OemCode);
    if (on_trigger) {
        on_trigger(trigger);
    }
}
