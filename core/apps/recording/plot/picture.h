#pragma once
// Draws a reduced recording.

#include <cstdint>
#include <functional>
#include <string>

#include "plot/level_map.h"

namespace plot {

/// What stands above and around the drawing.
struct Caption {
    std::string title;
    /// Second line; may be empty.
    std::string subtitle;
};

/// Columns of levels in a picture of this width in pixels.
[[nodiscard]] int level_columns(int width);

enum class PictureKind { Png, Svg };

struct Picture {
    /// What a file of its kind holds.
    std::string bytes;
    /// Pixels.
    int height = 0;
};

/**
 * Draws frame intervals above and one panel a universe below.
 *
 * @param width     pixels, kLeastWidth to kMostWidth
 * @param progress  told how many of how many parts are done; may be empty
 * Throws std::runtime_error when it cannot be drawn or would be too high.
 */
[[nodiscard]] Picture draw_picture(PictureKind kind, const LevelMap& map, const Section& section,
                                   const Caption& caption, int width,
                                   const std::function<void(std::uint64_t, std::uint64_t)>& progress);

inline constexpr int kLeastWidth = 300;
inline constexpr int kMostWidth = 16000;

}  // namespace plot
