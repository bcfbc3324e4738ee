// The built-in font: a proportional bitmap font for printable ASCII, compiled in so that text
// looks the same everywhere with no font file.
//
//   GLYPH_ROWS, GLYPH_ADVANCE   the two tables, indexed by code point - 32
//   measure_line                width of the first line of a text
//   draw_text                   glyphs as scale x scale rectangles, blended like fill_rect
//   text_size, fit_text         the box of a text; the longest prefix that fits, with "..."
//
// Text is UTF-8. Every code point outside 32..126 is drawn and measured as '?', so "é" is one
// '?'; a newline is never a glyph, it ends the line. Widths and heights are counted in 64 bits
// and saturate, so no text makes them wrap.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "render/framebuffer.hpp"

namespace tv::render {

inline constexpr std::size_t GLYPH_COUNT = 95;
inline constexpr std::size_t GLYPH_HEIGHT = 9;
// Lines are this far apart; the gap between glyphs is one column.
inline constexpr std::uint32_t LINE_PITCH = 11;

// Nine rows per glyph, top row first; the most significant bit is the leftmost column, and
// only the first GLYPH_ADVANCE columns are ever set. Rows 7 and 8 are used only by descenders.
extern const std::array<std::uint8_t, GLYPH_COUNT * GLYPH_HEIGHT> GLYPH_ROWS;
extern const std::array<std::uint8_t, GLYPH_COUNT> GLYPH_ADVANCE;

struct TextStyle {
  Color color = make_color(0, 0, 0, 255);
  std::uint32_t scale = 1;
  BlendMode mode = BlendMode::Over;
  // Each line's pen starts at x - floor(line width / 2).
  bool center = false;
};

// 0 for an empty first line, else (sum of advances + glyph count - 1) * scale.
std::uint64_t measure_line(std::string_view text, std::uint32_t scale);

// Draws `text` with its first line's top-left at (x, y); returns the widest line's width.
std::uint64_t draw_text(Framebuffer& image, std::int64_t x, std::int64_t y, std::string_view text,
                        const TextStyle& style);

// (widest line, (9n + 2(n - 1)) * scale) for n lines; a trailing newline adds a line.
std::pair<std::uint64_t, std::uint64_t> text_size(std::string_view text, std::uint32_t scale);

// `text` if its first line fits `max_width`; else the longest prefix whose width plus that of
// "..." fits, followed by "..."; empty if "..." alone does not fit. Since no gap is counted
// before the "...", the result can be `scale` pixels wider than `max_width`.
std::string fit_text(std::string_view text, std::uint32_t max_width, std::uint32_t scale);

}  // namespace tv::render
