#include <gtest/gtest.h>

#include <array>
#include <set>
#include <utility>
#include <string_view>

#include "render/font.hpp"

namespace tv::render {
namespace {

std::uint8_t glyph_row(char c, std::size_t r) { return GLYPH_ROWS[(c - 32) * GLYPH_HEIGHT + r]; }

TEST(FontTables, GlyphsAreDistinctAndInkOnlyTheirAdvanceAndRows) {
  std::set<std::array<std::uint8_t, GLYPH_HEIGHT>> seen;
  for (char c = 32; c <= 126; ++c) {
    std::array<std::uint8_t, GLYPH_HEIGHT> rows;
    for (std::size_t r = 0; r < GLYPH_HEIGHT; ++r) rows[r] = glyph_row(c, r);
    EXPECT_TRUE(seen.insert(rows).second) << "glyph '" << c << "' repeats another";
    const unsigned inside = 0xff00u >> GLYPH_ADVANCE[c - 32] & 0xff;
    for (std::uint8_t row : rows) EXPECT_EQ(row & ~inside, 0) << "glyph '" << c << "' inks past its advance";
    const bool descender = std::string_view(",;_gjpqy").find(c) != std::string_view::npos;
    EXPECT_EQ(rows[7] != 0 || rows[8] != 0, descender) << "glyph '" << c << "'";
  }
}

// The rows and advances that are published, byte for byte.
TEST(FontTables, PublishedGlyphsAreExact) {
  using Rows = std::array<std::uint8_t, GLYPH_HEIGHT>;
  const std::pair<char, std::pair<int, Rows>> published[] = {
      {'A', {5, {0x20, 0x50, 0x88, 0x88, 0xf8, 0x88, 0x88, 0x00, 0x00}}},
      {'a', {5, {0x00, 0x00, 0x70, 0x08, 0x78, 0x88, 0x78, 0x00, 0x00}}},
      {'g', {5, {0x00, 0x00, 0x78, 0x88, 0x88, 0x78, 0x08, 0x08, 0x70}}},
      {'?', {5, {0x70, 0x88, 0x08, 0x10, 0x20, 0x00, 0x20, 0x00, 0x00}}},
      {'.', {1, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00}}},
      {'|', {1, {0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x00, 0x00}}},
      {'0', {5, {0x70, 0x88, 0x98, 0xa8, 0xc8, 0x88, 0x70, 0x00, 0x00}}},
      {'j', {2, {0x40, 0x00, 0x40, 0x40, 0x40, 0x40, 0x40, 0x40, 0x80}}},
      {'y', {5, {0x00, 0x00, 0x88, 0x88, 0x88, 0x78, 0x08, 0x10, 0x60}}},
  };
  for (const auto& [c, glyph] : published) {
    Rows rows;
    for (std::size_t r = 0; r < GLYPH_HEIGHT; ++r) rows[r] = glyph_row(c, r);
    EXPECT_EQ(GLYPH_ADVANCE[c - 32], glyph.first) << c;
    EXPECT_EQ(rows, glyph.second) << c;
  }
}

}  // namespace
}  // namespace tv::render
