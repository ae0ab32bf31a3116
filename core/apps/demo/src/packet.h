#pragma once
// One packet as the demo received it.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace demo {

struct ReceivedPacket {
    /// The kernel's receive time, nanoseconds since 1970.
    std::int64_t time = 0;
    /// Tells apart where packets come from: the forwarder sends to each destination from a socket of its own.
    std::string line;
    /// The Art-Net packet.
    std::vector<std::uint8_t> bytes;
    /// The forwarding header, when the packet came with it; otherwise all zero.
    std::array<std::uint8_t, 24> header{};
};

}  // namespace demo
