// Letters that are drawn once per font and size, because filling and stroking their paths takes most of a picture's
// time.
#pragma once

#include <cairo.h>

#include <string>

/// The inside of the text in the context's font, size and source; (x, y) is the left end of the baseline.
void fillLetters(cairo_t* cairo, const std::string& text, double x, double y);
/// Its outline, a pixel wide.
void outlineLetters(cairo_t* cairo, const std::string& text, double x, double y);
