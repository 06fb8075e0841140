#include <syslog.h>

#include <algorithm>
#include <cmath>

#include "app/truncate.h"
#include "overlay/letters.h"
#include "overlay/overlay_manager.h"

namespace {

/// Pixels. Nothing of a stream lies farther out, and cairo's numbers (24 bits before the point) wrap round not much
/// beyond: a mask would then miss the person.
constexpr int kFarAway = 1 << 20;
constexpr double kFullCircle = 6.283184;  // radians

constexpr int kSquare = 4;                    // pixels on a side of a checkered pattern's square
constexpr int kBoard = 2 * kSquare;           // pixels on a side of the pattern
using Board = std::array<std::uint32_t, 64>;  // its pixels, cairo's ARGB32 in the machine's byte order

constexpr Board checkerboard(std::uint32_t color) {
  constexpr std::uint32_t kWhite = 0xFFFFFFFF;
  Board board{};
  for (std::size_t i = 0; i < board.size(); ++i) {
    const bool isRight = i % kBoard >= kSquare;
    const bool isBottom = i / kBoard >= kSquare;
    board[i] = isRight == isBottom ? color : kWhite;
  }
  return board;
}

// Not const, because cairo has no surface for pixels that are.
constinit Board redCheckerboardPatternData = checkerboard(0xFFFF0000);
constinit Board greenCheckerboardPatternData = checkerboard(0xFF00FF00);
constinit Board yellowCheckerboardPatternData = checkerboard(0xFFFFFF00);
constinit Board orangeCheckerboardPatternData = checkerboard(0xFFFF9900);
constinit Board grayCheckerboardPatternData = checkerboard(0xFF808080);

Board& boardFor(int colorIndex) {
  switch (colorIndex) {
    case Red:
      return redCheckerboardPatternData;
    case Green:
      return greenCheckerboardPatternData;
    case Yellow:
      return yellowCheckerboardPatternData;
    case Orange:
      return orangeCheckerboardPatternData;
    default:
      return grayCheckerboardPatternData;
  }
}

double near(int pixels) { return std::clamp(pixels, -kFarAway, kFarAway); }
double near(float pixels) {
  constexpr auto kLimit = static_cast<float>(kFarAway);
  return std::isnan(pixels) ? 0.0 : static_cast<double>(std::clamp(pixels, -kLimit, kLimit));
}

/// What all drawing begins with.
void begin(cairo_t* cairo, int color) {
  cairo_set_operator(cairo, CAIRO_OPERATOR_SOURCE);
  OverlayManager::usePaletteColor(cairo, color, 1.0);
}

void begin(cairo_t* cairo, int color, int width) {
  begin(cairo, color);
  cairo_set_line_width(cairo, near(width));
}

void stroke(cairo_t* cairo, double x0, double y0, double x1, double y1) {
  cairo_move_to(cairo, x0, y0);
  cairo_line_to(cairo, x1, y1);
  cairo_stroke(cairo);
}

/// Fills the path with the checkered pattern; path and source stay.
void fillCheckered(cairo_t* cairo, int color) {
  cairo_pattern_t* const pattern = OverlayManager::getCheckeredPattern(color);
  cairo_save(cairo);
  cairo_set_source(cairo, pattern);
  cairo_fill_preserve(cairo);
  cairo_restore(cairo);
  cairo_pattern_destroy(pattern);
}

float streamLength(const RenderingContext& context, int length) { return static_cast<float>(length) * context.scaleX; }

}  // namespace

int RenderingContext::streamX(int x) const {
  const std::int64_t scaled = truncateToInt(scaleX * (static_cast<float>(x) - epsilon));
  return static_cast<int>(std::clamp<std::int64_t>(isMirrored ? mirrorWidth - scaled : scaled, -kFarAway, kFarAway));
}

int RenderingContext::streamY(int y) const { return truncateToInt(scaleY * static_cast<float>(y)); }

void OverlayManager::usePaletteColor(cairo_t* cairo, int colorIndex, double alpha) {
  struct Color {
    double red, green, blue;
  };
  static constexpr std::array<Color, 8> kPalette = {{{0, 0, 0},
                                                     {1, 0, 0},
                                                     {0, 1, 0},
                                                     {0, 0, 1},
                                                     {1, 1, 0},
                                                     {1, 1, 1},
                                                     {1, 0.6, 0},
                                                     {70 / 255.0, 119 / 255.0, 207 / 255.0}}};
  if (colorIndex < Black || colorIndex > CornflowerBlue) {
    syslog(LOG_ERR, "Unknown color index passed to OverlayManager::usePaletteColor. Using Black.");
    colorIndex = Black;
  }
  const auto& [red, green, blue] = kPalette[static_cast<std::size_t>(colorIndex)];
  cairo_set_source_rgba(cairo, red, green, blue, alpha);
}

cairo_pattern_t* OverlayManager::getCheckeredPattern(int colorIndex) {
  cairo_surface_t* const board =
      cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(boardFor(colorIndex).data()),
                                          CAIRO_FORMAT_ARGB32, kBoard, kBoard, kBoard * int{sizeof(std::uint32_t)});
  cairo_pattern_t* const pattern = cairo_pattern_create_for_surface(board);
  cairo_surface_destroy(board);  // the pattern keeps it
  cairo_pattern_set_extend(pattern, CAIRO_EXTEND_REPEAT);
  cairo_pattern_set_filter(pattern, CAIRO_FILTER_NEAREST);
  return pattern;
}

void OverlayManager::drawLine(cairo_t* cairo, int x0, int y0, int x1, int y1, int color, int width) {
  begin(cairo, color, width);
  stroke(cairo, near(x0), near(y0), near(x1), near(y1));
}

void OverlayManager::drawCross(cairo_t* cairo, int x, int y, int color, int width, float size) {
  begin(cairo, color, width);
  stroke(cairo, near(x), near(y) - near(size), near(x), near(y) + near(size));
  stroke(cairo, near(x) - near(size), near(y), near(x) + near(size), near(y));
}

void OverlayManager::drawCircle(cairo_t* cairo, int x, int y, int color, int width, float radius, bool fill) {
  begin(cairo, color, width);
  cairo_new_sub_path(cairo);
  cairo_arc(cairo, near(x), near(y), near(radius), 0.0, kFullCircle);
  if (fill) {
    cairo_stroke_preserve(cairo);
    cairo_fill_preserve(cairo);
  }
  cairo_stroke(cairo);
}

void OverlayManager::drawRectangle(cairo_t* cairo, int x0, int y0, int x1, int y1, int color, int width, bool fill) {
  begin(cairo, color, width);
  cairo_move_to(cairo, near(x0), near(y0));
  cairo_line_to(cairo, near(x1), near(y0));
  cairo_line_to(cairo, near(x1), near(y1));
  cairo_line_to(cairo, near(x0), near(y1));
  cairo_close_path(cairo);
  if (fill) {
    cairo_stroke_preserve(cairo);
    fillCheckered(cairo, color);
  }
  cairo_stroke(cairo);
}

void OverlayManager::drawBox(cairo_t* cairo, int x, int y, int color, int width, int half) {
  begin(cairo, color, width);
  cairo_rectangle(cairo, near(x) - near(half), near(y) - near(half), 2 * near(half), 2 * near(half));
  cairo_stroke(cairo);
}

void OverlayManager::drawText(cairo_t* cairo, const std::string& text, int x, int y, int color) {
  begin(cairo, color);
  fillLetters(cairo, text, near(x), near(y));
  usePaletteColor(cairo, Black, 1.0);
  outlineLetters(cairo, text, near(x), near(y));
}

void OverlayManager::drawTextNoOutline(cairo_t* cairo, const std::string& text, int x, int y, int color) {
  begin(cairo, color);
  fillLetters(cairo, text, near(x), near(y));
  outlineLetters(cairo, text, near(x), near(y));
}

void OverlayManager::drawLine(const RenderingContext& context, int x0, int y0, int x1, int y1, int color, int width) {
  drawLine(context.pCairo, context.streamX(x0), context.streamY(y0), context.streamX(x1), context.streamY(y1), color,
           width);
}

void OverlayManager::drawLine(const RenderingContext& context, const Point& from, const Point& to, int color,
                              int width) {
  drawLine(context, from.x, from.y, to.x, to.y, color, width);
}

void OverlayManager::drawCross(const RenderingContext& context, int x, int y, int color, int width, int size) {
  drawCross(context.pCairo, context.streamX(x), context.streamY(y), color, width, streamLength(context, size));
}

void OverlayManager::drawCross(const RenderingContext& context, const Point& at, int color, int width, int size) {
  drawCross(context, at.x, at.y, color, width, size);
}

void OverlayManager::drawCircle(const RenderingContext& context, int x, int y, int color, int width, int radius) {
  drawCircle(context.pCairo, context.streamX(x), context.streamY(y), color, width, streamLength(context, radius));
}

void OverlayManager::drawCircle(const RenderingContext& context, const Point& at, int color, int width, int radius) {
  drawCircle(context, at.x, at.y, color, width, radius);
}

void OverlayManager::drawRectangle(const RenderingContext& context, int x0, int y0, int x1, int y1, int color,
                                   int width, bool fill) {
  drawRectangle(context.pCairo, context.streamX(x0), context.streamY(y0), context.streamX(x1), context.streamY(y1),
                color, width, fill);
}

void OverlayManager::drawRectangle(const RenderingContext& context, const BoundingBox& box, int color, int width,
                                   bool fill) {
  drawRectangle(context, box.topLeft.x, box.topLeft.y, box.bottomRight.x, box.bottomRight.y, color, width, fill);
}

std::string OverlayManager::secondsToTimeText(int seconds) {
  constexpr int kMinute = 60;
  if (seconds == 1) {
    return "1 second";
  }
  if (seconds < kMinute) {
    return std::to_string(seconds) + " seconds";
  }
  const int minutes = seconds / kMinute;
  return minutes == 1 ? "1 minute" : std::to_string(minutes) + " minutes";
}
