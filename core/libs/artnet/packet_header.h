#pragma once
// The front that every packet is encoded with.

#include "artnet/records.h"

namespace artnet {

/// @param opcode  host order; see opcodes.h
[[nodiscard]] constexpr ArtHeader header_of(std::uint16_t opcode) {
    return {.ID = {'A', 'r', 't', '-', 'N', 'e', 't', '\0'}, .OpCode = opcode};
}

}  // namespace artnet
