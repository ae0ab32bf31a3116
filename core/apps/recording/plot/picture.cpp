#include "plot/picture.h"

#include <exception>
#include <stdexcept>

#include <cairo-svg.h>

#include "plot/cairo_owner.h"
#include "plot/painter.h"

namespace plot {

namespace {

/// What cairo can draw, in pixels.
constexpr int kMostHeight = 32000;

void require(cairo_status_t status) {
    if (status != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error(std::string("the picture cannot be drawn: ") +
                                 cairo_status_to_string(status));
    }
}

/// For cairo: appends what it writes to the std::string that is `to`.
cairo_status_t append(void* to, const unsigned char* data, unsigned int size) noexcept {
    try {
        static_cast<std::string*>(to)->append(reinterpret_cast<const char*>(data), size);
    } catch (const std::exception&) {
        return CAIRO_STATUS_NO_MEMORY;
    }
    return CAIRO_STATUS_SUCCESS;
}

}  // namespace

Picture draw_picture(PictureKind kind, const LevelMap& map, const Section& section, const Caption& caption,
                     int width, const std::function<void(std::uint64_t, std::uint64_t)>& progress) {
    Picture picture;
    picture.height = picture_height(map);
    if (picture.height > kMostHeight) {
        throw std::runtime_error("the picture would be " + std::to_string(picture.height) +
                                 " pixels high; choose fewer universes");
    }
    // The universes, and the picture's bytes.
    const std::uint64_t parts = map.universes.size() + 1;
    const auto tell = [&](std::uint64_t done) {
        if (progress) {
            progress(done, parts);
        }
    };
    const bool svg = kind == PictureKind::Svg;
    const Surface surface(
        svg ? cairo_svg_surface_create_for_stream(append, &picture.bytes, width, picture.height)
            : cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, picture.height));
    require(cairo_surface_status(surface.get()));
    {
        const Context context(cairo_create(surface.get()));
        paint(context.get(), map, section, caption, width, tell);
        require(cairo_status(context.get()));
    }
    if (svg) {
        cairo_surface_finish(surface.get());
        require(cairo_surface_status(surface.get()));
    } else {
        require(cairo_surface_write_to_png_stream(surface.get(), append, &picture.bytes));
    }
    tell(parts);
    return picture;
}

}  // namespace plot
