#include <gtest/gtest.h>

#include <set>
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

}  // namespace
}  // namespace tv::render
