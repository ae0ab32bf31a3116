#pragma once
// What a picture of a recording shows, for any surface.

#include <cstdint>
#include <functional>

#include <cairo.h>

#include "plot/level_map.h"
#include "plot/picture.h"

namespace plot {

/// Pixels that the picture of a reduced recording is high.
[[nodiscard]] int picture_height(const LevelMap& map);

/// Draws frame intervals above and one panel a universe below.
/// @param context      of a surface `width` wide and picture_height() high
/// @param on_universe  told of the number of universes drawn
void paint(cairo_t* context, const LevelMap& map, const Section& section, const Caption& caption, int width,
           const std::function<void(std::uint64_t)>& on_universe);

}  // namespace plot
