#include "artnet/universe.h"

namespace {

/// Tells a node to program the value.
constexpr unsigned kProgramValue = 0x80;
constexpr unsigned kPortAddressMask = 0x7FFF;

}  // namespace

unsigned short swap_word(unsigned short word) noexcept {
    return static_cast<unsigned short>((word >> 8) | ((word & 0xFF) << 8));
}

void universe_to_addr(unsigned short universe, unsigned char& sw, unsigned char& sub,
                      unsigned char& net) noexcept {
    const unsigned address = (universe - 1U) & kPortAddressMask;
    sw = static_cast<unsigned char>((address & 0x0F) | kProgramValue);
    sub = static_cast<unsigned char>(((address >> 4) & 0x0F) | kProgramValue);
    net = static_cast<unsigned char>((address >> 8) | kProgramValue);
}

unsigned short addr_to_universe(unsigned char sw, unsigned char sub, unsigned char net) noexcept {
    const unsigned address = unsigned{sw} | unsigned{sub} << 4 | unsigned{net} << 8;
    return static_cast<unsigned short>((address & kPortAddressMask) + 1);
}
