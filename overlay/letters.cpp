#include "overlay/letters.h"

#include <cmath>
#include <map>
#include <memory>

namespace {

/// Calls a release function on the pointer that it is given.
template <auto Release>
struct Releaser {
  template <typename T>
  void operator()(T* pointer) const {
    Release(pointer);
  }
};

using Surface = std::unique_ptr<cairo_surface_t, Releaser<cairo_surface_destroy>>;
using Context = std::unique_ptr<cairo_t, Releaser<cairo_destroy>>;
using Font = std::unique_ptr<cairo_scaled_font_t, Releaser<cairo_scaled_font_destroy>>;
using Glyphs = std::unique_ptr<cairo_glyph_t, Releaser<cairo_glyph_free>>;

/// What a letter covers, as opacities. The masks' top left corner lies (left, top) pixels from the letter's origin.
struct Letter {
  int left = 0;
  int top = 0;
  Surface inside;
  Surface outline;
};

/// A mask of the letter's path, as `draw` fills or strokes it.
Surface maskOf(cairo_scaled_font_t* font, const cairo_glyph_t& glyph, int width, int height, void (*draw)(cairo_t*)) {
  Surface mask(cairo_image_surface_create(CAIRO_FORMAT_A8, width, height));
  const Context cairo(cairo_create(mask.get()));
  cairo_set_antialias(cairo.get(), CAIRO_ANTIALIAS_BEST);
  cairo_set_line_width(cairo.get(), 1.0);
  cairo_set_scaled_font(cairo.get(), font);
  cairo_glyph_path(cairo.get(), &glyph, 1);
  draw(cairo.get());
  return mask;
}

Letter letterOf(cairo_scaled_font_t* font, unsigned long index) {
  constexpr int kMargin = 6;  // pixels; half a line at a mitred corner, which is ten times as long at most
  cairo_glyph_t glyph{index, 0.0, 0.0};
  cairo_text_extents_t extents;
  cairo_scaled_font_glyph_extents(font, &glyph, 1, &extents);
  const int left = static_cast<int>(std::floor(extents.x_bearing)) - kMargin;
  const int top = static_cast<int>(std::floor(extents.y_bearing)) - kMargin;
  const int width = static_cast<int>(std::ceil(extents.width)) + 2 * kMargin + 1;
  const int height = static_cast<int>(std::ceil(extents.height)) + 2 * kMargin + 1;
  glyph.x = -left;
  glyph.y = -top;
  return {left, top, maskOf(font, glyph, width, height, cairo_fill), maskOf(font, glyph, width, height, cairo_stroke)};
}

/// Kept until the process ends: there is a font for each stream size that was ever drawn, and few letters of each.
const Letter& cachedLetter(cairo_scaled_font_t* font, unsigned long index) {
  struct Letters {
    Font font;  ///< keeps the address from being given to another one
    std::map<unsigned long, Letter> byIndex;
  };
  static std::map<cairo_scaled_font_t*, Letters> fonts;
  Letters& letters = fonts[font];
  if (!letters.font) {
    letters.font.reset(cairo_scaled_font_reference(font));
  }
  const auto found = letters.byIndex.find(index);
  return found != letters.byIndex.end() ? found->second
                                        : letters.byIndex.emplace(index, letterOf(font, index)).first->second;
}

void drawLetters(cairo_t* cairo, const std::string& text, double x, double y, Surface Letter::*mask) {
  cairo_scaled_font_t* const font = cairo_get_scaled_font(cairo);
  cairo_glyph_t* raw = nullptr;
  int count = 0;
  cairo_scaled_font_text_to_glyphs(font, x, y, text.c_str(), -1, &raw, &count, nullptr, nullptr, nullptr);
  const Glyphs glyphs(raw);
  for (int i = 0; i < count; ++i) {
    const cairo_glyph_t& glyph = glyphs.get()[i];
    const Letter& letter = cachedLetter(font, glyph.index);
    cairo_mask_surface(cairo, (letter.*mask).get(), std::round(glyph.x) + letter.left,
                       std::round(glyph.y) + letter.top);
  }
}

}  // namespace

void fillLetters(cairo_t* cairo, const std::string& text, double x, double y) {
  drawLetters(cairo, text, x, y, &Letter::inside);
}

void outlineLetters(cairo_t* cairo, const std::string& text, double x, double y) {
  drawLetters(cairo, text, x, y, &Letter::outline);
}
