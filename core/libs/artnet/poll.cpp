#include "artnet/poll.h"

#include <algorithm>
#include <cstring>

#include "artnet/opcodes.h"
#include "artnet/packet_header.h"
#include "artnet/universe.h"

namespace artnet {

namespace {

bool begins_with(std::span<const std::uint8_t> datagram, const ArtHeader& header) {
    return datagram.size() >= sizeof header && std::memcmp(datagram.data(), &header, sizeof header) == 0;
}

template <typename Record>
std::array<std::uint8_t, sizeof(Record)> bytes_of(const Record& record) {
    std::array<std::uint8_t, sizeof(Record)> bytes;
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

/// The numbers that go high byte first, from host order or back.
void swap_numbers(ArtPollReply& reply) {
    reply.VersInfo = swap_word(reply.VersInfo);
    reply.Oem = swap_word(reply.Oem);
    reply.NumPorts = swap_word(reply.NumPorts);
}

}  // namespace

std::array<std::uint8_t, kPollSize> encode_poll(std::uint8_t flags) {
    return bytes_of(ArtPoll{.Header = header_of(opcode::kPoll),
                            .ProtVerHi = 0,
                            .ProtVerLo = kProtocolVersion,
                            .Flags = flags,
                            .DiagPriority = 0});
}

std::optional<ArtPoll> decode_poll(std::span<const std::uint8_t> datagram) {
    if (datagram.size() < kPollSize || !begins_with(datagram, header_of(opcode::kPoll))) {
        return std::nullopt;
    }
    ArtPoll poll{};
    std::memcpy(&poll, datagram.data(), sizeof poll);
    return poll;
}

std::array<std::uint8_t, kPollReplySize> encode_poll_reply(ArtPollReply reply) {
    reply.Header = header_of(opcode::kPollReply);
    swap_numbers(reply);
    return bytes_of(reply);
}

std::optional<ArtPollReply> decode_poll_reply(std::span<const std::uint8_t> datagram) {
    if (datagram.size() < kShortestPollReply || !begins_with(datagram, header_of(opcode::kPollReply))) {
        return std::nullopt;
    }
    ArtPollReply reply{};
    std::memcpy(&reply, datagram.data(), std::min(datagram.size(), sizeof reply));
    swap_numbers(reply);
    reply.ShortName[sizeof reply.ShortName - 1] = '\0';
    reply.LongName[sizeof reply.LongName - 1] = '\0';
    reply.NodeReport[sizeof reply.NodeReport - 1] = '\0';
    return reply;
}

std::vector<std::uint16_t> output_universes(const ArtPollReply& reply) {
    std::vector<std::uint16_t> universes;
    for (std::size_t port = 0; port < kPortsPerReply; ++port) {
        if ((reply.PortTypes[port] & kOutputPort) != 0) {
            // The upper bits of each are not the address's, whatever a node leaves in them.
            const unsigned net = reply.NetSwitch & 0x7FU;
            const unsigned sub_net = reply.SubSwitch & 0x0FU;
            const unsigned universe = reply.SwOut[port] & 0x0FU;
            universes.push_back(static_cast<std::uint16_t>(net << 8 | sub_net << 4 | universe));
        }
    }
    std::ranges::sort(universes);
    universes.erase(std::unique(universes.begin(), universes.end()), universes.end());
    return universes;
}

}  // namespace artnet
