// Owners of what cairo hands out.
#pragma once

#include <cairo.h>

#include <memory>

namespace workstation {

using CairoSurface =
    std::unique_ptr<cairo_surface_t, decltype([](cairo_surface_t* one) { cairo_surface_destroy(one); })>;
using CairoContext = std::unique_ptr<cairo_t, decltype([](cairo_t* one) { cairo_destroy(one); })>;

}  // namespace workstation
