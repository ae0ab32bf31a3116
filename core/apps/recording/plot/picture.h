#pragma once
// Draws a reduced recording.

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

/**
 * Draws frame intervals above and one panel a universe below, to a file.
 *
 * @param path  ends in ".png" or ".svg", which is the kind of picture
 * @param width  pixels, kLeastWidth to kMostWidth
 * Throws std::runtime_error, naming the file, when it cannot be written or would be too high.
 */
void draw_picture(const std::string& path, const LevelMap& map, const Section& section,
                  const Caption& caption, int width);

inline constexpr int kLeastWidth = 300;
inline constexpr int kMostWidth = 16000;

}  // namespace plot
