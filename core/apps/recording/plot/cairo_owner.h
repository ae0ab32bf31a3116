#pragma once
// Owners of what cairo hands out.

#include <memory>

#include <cairo.h>

namespace plot {

struct CairoRelease {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using Surface = std::unique_ptr<cairo_surface_t, CairoRelease>;
using Context = std::unique_ptr<cairo_t, CairoRelease>;

}  // namespace plot
