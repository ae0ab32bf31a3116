#pragma once
// Numbers in sentences.

#include <cstdint>
#include <string>

namespace cli {

/// "1 frame", "2 frames".
[[nodiscard]] inline std::string counted(std::uint64_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace cli
