#pragma once
// Lists of universes as people read them: "0-3,8".

#include <cstdint>
#include <span>
#include <string>

namespace artnet {

inline constexpr std::uint16_t kLastUniverse = 32767;

/// The shortest text. @param universes  ascending, each once
[[nodiscard]] std::string universe_ranges_text(std::span<const std::uint16_t> universes);

}  // namespace artnet
