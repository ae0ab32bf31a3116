#include "artnet/universe_ranges.h"

#include <cstddef>

namespace artnet {

std::string universe_ranges_text(std::span<const std::uint16_t> universes) {
    std::string text;
    for (std::size_t begin = 0; begin < universes.size();) {
        std::size_t end = begin + 1;
        while (end < universes.size() && universes[end] == universes[end - 1] + 1) {
            ++end;
        }
        text += (text.empty() ? "" : ",") + std::to_string(universes[begin]);
        if (end - begin > 1) {
            text += "-" + std::to_string(universes[end - 1]);
        }
        begin = end;
    }
    return text;
}

}  // namespace artnet
