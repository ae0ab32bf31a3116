#pragma once
// Replies of nodes, built for tests.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "artnet/poll.h"
#include "node_record.h"
#include "posix/ipv4.h"

namespace netsurvey {

inline std::uint32_t ip(const std::string& text) {
    return posix::parse_ipv4(text).value();
}

/// A reply with up to four output ports of one net and sub-net.
inline ArtPollReply reply_of(const std::string& address, const std::vector<std::uint16_t>& universes,
                             std::uint8_t bind_index = 1) {
    ArtPollReply reply{};
    const std::uint32_t number = ip(address);
    for (unsigned i = 0; i < 4; ++i) {
        reply.IpAddress[i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
    }
    reply.Port = artnet::kPort;
    reply.BindIndex = bind_index;
    std::strcpy(reply.ShortName, "node");
    for (std::size_t i = 0; i < universes.size(); ++i) {
        reply.NetSwitch = static_cast<std::uint8_t>(universes[i] >> 8);
        reply.SubSwitch = static_cast<std::uint8_t>(universes[i] >> 4 & 0x0F);
        reply.PortTypes[i] = artnet::kOutputPort;
        reply.SwOut[i] = static_cast<std::uint8_t>(universes[i] & 0x0F);
    }
    return reply;
}

inline NodeRecord record(std::uint16_t universe, const std::string& address,
                         std::uint16_t port = artnet::kPort) {
    return {universe, ip(address), port};
}

}  // namespace netsurvey
