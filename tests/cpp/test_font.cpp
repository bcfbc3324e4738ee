#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

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

TEST(FontTables, AdvancesFollowTheWidthClasses) {
  const std::pair<const char*, int> classes[] = {{"!'.:i|", 1}, {"(),;[]`j", 2}, {" \"Il", 3}, {"<>fkt{}", 4}};
  for (char c = 32; c <= 126; ++c) {
    int expected = 5;
    for (const auto& [members, width] : classes) {
      if (std::string_view(members).find(c) != std::string_view::npos) expected = width;
    }
    EXPECT_EQ(GLYPH_ADVANCE[c - 32], expected) << "glyph '" << c << "'";
  }
}

struct SizeCase {
  std::string text;
  std::uint32_t scale;
  std::uint64_t width, height;
};

class TextSize : public testing::TestWithParam<SizeCase> {};

TEST_P(TextSize, CountsAdvancesGapsAndLines) {
  const SizeCase& c = GetParam();
  EXPECT_EQ(text_size(c.text, c.scale), std::pair(c.width, c.height)) << c.text;
}

INSTANTIATE_TEST_SUITE_P(Texts, TextSize,
                         testing::Values(SizeCase{"", 1, 0, 9}, SizeCase{"a\n", 1, 5, 20}, SizeCase{"A", 2, 10, 18},
                                         SizeCase{"AA", 1, 11, 9}, SizeCase{"i\n\nlong", 3, 3 * 21, 3 * 31},
                                         SizeCase{"\xc3\xa9\t", 1, 11, 9},  // é and a tab are each one '?'
                                         SizeCase{std::string(1000, 'W'), 4294967295u, 5999ull * 4294967295u, 9ull * 4294967295u}));

// The columns and rows that hold ink, as [first, last + 1).
std::array<std::uint32_t, 4> ink_box(const Framebuffer& image) {
  std::array<std::uint32_t, 4> box = {image.width(), 0, image.height(), 0};
  for (std::uint32_t y = 0; y < image.height(); ++y) {
    for (std::uint32_t x = 0; x < image.width(); ++x) {
      if (image.pixel(x, y) == 0) continue;
      box = {std::min(box[0], x), std::max(box[1], x + 1), std::min(box[2], y), std::max(box[3], y + 1)};
    }
  }
  return box;
}

TEST(DrawText, InksWithinTheMeasuredBoxAndCentersEachLine) {
  Framebuffer image = Framebuffer::create(80, 80).value();
  TextStyle style;
  style.scale = 2;
  EXPECT_EQ(draw_text(image, 3, 4, "Hi|\n\n|y", style), 18u);  // "Hi|": (5 + 1 + 1 + 2 gaps) * 2
  EXPECT_EQ(ink_box(image), (std::array<std::uint32_t, 4>{3, 3 + 18, 4, 4 + 2 * 22 + 18}));

  image.fill(0);
  style.center = true;
  EXPECT_EQ(draw_text(image, 40, 0, "|\n|||", style), 10u);
  // The lone bar starts at 40 - 1, the three bars at 40 - 5.
  EXPECT_EQ(image.pixel(39, 0), style.color);
  EXPECT_EQ(image.pixel(35, 22), style.color);
  EXPECT_EQ(image.pixel(43, 22), style.color);
  EXPECT_EQ(ink_box(image)[1], 45u);

  Framebuffer question = Framebuffer::create(8, 12).value(), accented = question;
  draw_text(question, 0, 0, "?", {});
  draw_text(accented, 0, 0, "\xc3\xa9", {});
  EXPECT_TRUE(std::equal(question.pixels().begin(), question.pixels().end(), accented.pixels().begin()));
  style.scale = 0;
  EXPECT_EQ(draw_text(accented, 0, 0, "x", style), 0u);
  EXPECT_TRUE(std::equal(question.pixels().begin(), question.pixels().end(), accented.pixels().begin()));
}

TEST(DrawText, FarOffCoordinatesDrawNothingAndDoNotWrap) {
  Framebuffer image = Framebuffer::create(8, 8).value();
  TextStyle style;
  style.scale = 4294967295u;
  EXPECT_EQ(draw_text(image, INT64_MAX, INT64_MIN, "WW\nWW", style), 11ull * 4294967295u);
  style.center = true;
  draw_text(image, INT64_MIN, INT64_MAX, "WW", style);
  EXPECT_EQ(ink_box(image)[0], 8u);
}

struct FitCase {
  std::string text;
  std::uint32_t max_width, scale;
  std::string expected;
};

class FitText : public testing::TestWithParam<FitCase> {};

TEST_P(FitText, KeepsTheLongestFittingPrefix) {
  const FitCase& c = GetParam();
  EXPECT_EQ(fit_text(c.text, c.max_width, c.scale), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, FitText,
    testing::Values(FitCase{"hello", 1000, 1, "hello"}, FitCase{"hello", 2, 1, ""}, FitCase{"hello", 5, 1, "..."},
                    // "he" is 11 wide and "..." 5, so 16 fits; "hel" with 15 more does not.
                    FitCase{"hello", 16, 1, "he..."}, FitCase{"hello", 32, 2, "he..."},
                    FitCase{"h\xc3\xa9llo", 16, 1, "h\xc3\xa9..."}, FitCase{"ab\ncdefgh", 100, 1, "ab\ncdefgh"}));

}  // namespace
}  // namespace tv::render
