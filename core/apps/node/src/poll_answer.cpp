#include "poll_answer.h"

#include <algorithm>

namespace node {

namespace {

/// "Unknown", and the code for prototypes.
constexpr std::uint16_t kOem = 0x00FF;
constexpr std::uint16_t kEsta = 0x7FF0;
constexpr std::uint16_t kVersion = 1;
/// Understands port-addresses of 15 bits.
constexpr std::uint8_t kStatus2 = 0x08;
/// Data go out at the port.
constexpr std::uint8_t kSending = 0x80;

template <std::size_t Size>
void put_text(char (&field)[Size], const std::string& text) {
    std::copy_n(text.begin(), std::min(text.size(), Size - 1), field);
}

std::array<std::uint8_t, 4> octets(std::uint32_t address) {
    return {static_cast<std::uint8_t>(address >> 24), static_cast<std::uint8_t>(address >> 16),
            static_cast<std::uint8_t>(address >> 8), static_cast<std::uint8_t>(address)};
}

}  // namespace

std::vector<std::vector<std::uint16_t>> split_into_replies(std::span<const std::uint16_t> universes) {
    std::vector<std::vector<std::uint16_t>> replies;
    for (const std::uint16_t universe : universes) {
        if (replies.empty() || replies.back().size() == artnet::kPortsPerReply ||
            replies.back().front() >> 4 != universe >> 4) {
            replies.emplace_back();
        }
        replies.back().push_back(universe);
    }
    return replies;
}

std::vector<PollReply> answer_poll(std::span<const std::uint16_t> universes, const std::string& name,
                                   std::uint32_t address, std::uint16_t port) {
    std::vector<PollReply> datagrams;
    std::uint8_t bind_index = 0;
    for (const std::vector<std::uint16_t>& ports : split_into_replies(universes)) {
        ArtPollReply reply{};
        reply.IpAddress = octets(address);
        reply.Port = port;
        reply.VersInfo = kVersion;
        reply.NetSwitch = static_cast<std::uint8_t>(ports.front() >> 8);
        reply.SubSwitch = static_cast<std::uint8_t>(ports.front() >> 4 & 0x0F);
        reply.Oem = kOem;
        reply.EstaMan = kEsta;
        put_text(reply.ShortName, name);
        put_text(reply.LongName, name + ", simulated by cuewright-node");
        put_text(reply.NodeReport, "#0001 [0000] ready");
        reply.NumPorts = static_cast<std::uint16_t>(ports.size());
        for (std::size_t i = 0; i < ports.size(); ++i) {
            reply.PortTypes[i] = artnet::kOutputPort;
            reply.GoodOutput[i] = kSending;
            reply.SwOut[i] = static_cast<std::uint8_t>(ports[i] & 0x0F);
        }
        reply.BindIp = octets(address);
        reply.BindIndex = ++bind_index;
        reply.Status2 = kStatus2;
        datagrams.push_back(artnet::encode_poll_reply(reply));
    }
    return datagrams;
}

}  // namespace node
