#include "trim.h"

#include <algorithm>

#include "artnet/opcodes.h"
#include "artnet/records.h"

namespace forwarder {

std::size_t trimmed_size(std::span<const unsigned char> packet) noexcept {
    constexpr std::size_t kOpCode = offsetof(ArtHeader, OpCode);
    constexpr std::size_t kLength = offsetof(ArtDmx, Length);
    if (packet.size() < kDmxHeaderSize ||
        (packet[kOpCode] | unsigned{packet[kOpCode + 1]} << 8) != opcode::kDmx) {
        return packet.size();
    }
    const std::size_t length = std::size_t{packet[kLength]} << 8 | packet[kLength + 1];
    if (length == 0 || length > kMaxDmxChannels) {
        return packet.size();
    }
    return std::min(kDmxHeaderSize + length + length % 2, packet.size());
}

}  // namespace forwarder
