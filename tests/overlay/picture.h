// A transparent picture to draw on, and a look at its pixels.
#pragma once

#include <cairo.h>

#include <algorithm>
#include <cstdint>
#include <memory>

class Picture {
 public:
  static constexpr std::uint32_t kNone = 0, kBlack = 0xFF000000, kRed = 0xFFFF0000, kGreen = 0xFF00FF00,
                                 kBlue = 0xFF0000FF, kYellow = 0xFFFFFF00, kWhite = 0xFFFFFFFF, kOrange = 0xFFFF9900,
                                 kGray = 0xFF808080;

  Picture(int width, int height)
      : m_width(width),
        m_height(height),
        m_surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height)),
        m_cairo(cairo_create(m_surface.get())) {}

  cairo_t* cairo() const { return m_cairo.get(); }

  /// Opacity, red, green and blue of a pixel, from the highest byte down; 0 outside of the picture.
  std::uint32_t at(int x, int y) const {
    if (x < 0 || y < 0 || x >= m_width || y >= m_height) return kNone;
    cairo_surface_flush(m_surface.get());
    const unsigned char* row = cairo_image_surface_get_data(m_surface.get()) +
                               std::ptrdiff_t{y} * cairo_image_surface_get_stride(m_surface.get());
    return reinterpret_cast<const std::uint32_t*>(row)[x];
  }

  /// The smallest part of the picture that holds all pixels of a colour; left > right when there is none.
  struct Part {
    int left, top, right, bottom, pixels;
  };
  Part find(std::uint32_t color) const {
    Part part{m_width, m_height, -1, -1, 0};
    for (int y = 0; y < m_height; ++y) {
      for (int x = 0; x < m_width; ++x) {
        if (at(x, y) != color) continue;
        part = {std::min(part.left, x), std::min(part.top, y), std::max(part.right, x), y, part.pixels + 1};
      }
    }
    return part;
  }
  /// How many pixels of a part come close to an opaque colour; small letters hardly reach it.
  int countNear(std::uint32_t color, int left, int top, int right, int bottom) const {
    int pixels = 0;
    for (int y = top; y < bottom; ++y) {
      for (int x = left; x < right; ++x) {
        bool isNear = true;
        for (const int shift : {0, 8, 16, 24}) {
          const int distance = static_cast<int>(at(x, y) >> shift & 0xFF) - static_cast<int>(color >> shift & 0xFF);
          isNear = isNear && distance > -100 && distance < 100;
        }
        pixels += isNear;
      }
    }
    return pixels;
  }

 private:
  template <auto Release>
  struct Releaser {
    template <typename T>
    void operator()(T* pointer) const {
      Release(pointer);
    }
  };
  int m_width;
  int m_height;
  std::unique_ptr<cairo_surface_t, Releaser<cairo_surface_destroy>> m_surface;
  std::unique_ptr<cairo_t, Releaser<cairo_destroy>> m_cairo;
};
