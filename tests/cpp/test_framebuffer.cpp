#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <string>

#include "render/framebuffer.hpp"

namespace tv::render {
namespace {

using Wide = __int128;

Framebuffer noise_image(std::uint32_t width, std::uint32_t height, std::mt19937& random) {
  Framebuffer image = Framebuffer::create(width, height).value();
  for (Color& c : image.pixels()) c = random();
  return image;
}

struct BlendCase {
  const char* name;
  Color stored, source;
  BlendMode mode;
  Color expected;
};

class Blend : public testing::TestWithParam<BlendCase> {};

TEST_P(Blend, MatchesTheRoundingRule) {
  const BlendCase& c = GetParam();
  EXPECT_EQ(blend(c.stored, c.source, c.mode), c.expected) << c.name;
}

INSTANTIATE_TEST_SUITE_P(
    Figures, Blend,
    testing::Values(
        BlendCase{"copy keeps alpha 0", make_color(1, 2, 3, 4), make_color(10, 20, 30, 0), BlendMode::Copy,
                  make_color(10, 20, 30, 0)},
        BlendCase{"over with alpha 0 keeps", make_color(1, 2, 3, 4), make_color(10, 20, 30, 0), BlendMode::Over,
                  make_color(1, 2, 3, 4)},
        BlendCase{"over with alpha 255 stores", make_color(1, 2, 3, 4), make_color(10, 20, 30, 255),
                  BlendMode::Over, make_color(10, 20, 30, 255)},
        // div255(255 * 128 + 255 * 127 + 127) is 255.
        BlendCase{"half over opaque stays opaque", make_color(0, 0, 0, 255), make_color(255, 255, 255, 128),
                  BlendMode::Over, make_color(128, 128, 128, 255)},
        // A sum of 255k + 128 gives k, not k + 1: here r sums to 128 and gives 0.
        BlendCase{"sum 128 rounds down", make_color(0, 0, 0, 0), make_color(128, 0, 0, 1), BlendMode::Over,
                  make_color(0, 0, 0, 1)},
        // Over a translucent pixel is not Porter-Duff: color channels are not reweighted by d's alpha.
        BlendCase{"over translucent", make_color(200, 100, 0, 64), make_color(0, 100, 200, 64), BlendMode::Over,
                  make_color(150, 100, 50, 112)},
        BlendCase{"add saturates", make_color(250, 0, 0, 200), make_color(10, 255, 0, 255), BlendMode::Add,
                  make_color(255, 255, 0, 255)},
        BlendCase{"add weights by alpha", make_color(0, 0, 0, 0), make_color(255, 128, 2, 128), BlendMode::Add,
                  make_color(128, 64, 1, 128)}),
    [](const testing::TestParamInfo<BlendCase>& info) { return "case" + std::to_string(info.index); });

TEST(BlendModeText, ParsesTheFourNamesAndQuotesAnythingElse) {
  EXPECT_EQ(parse_blend_mode("copy").value(), BlendMode::Copy);
  EXPECT_EQ(parse_blend_mode("over").value(), BlendMode::Over);
  EXPECT_EQ(parse_blend_mode("add").value(), BlendMode::Add);
  EXPECT_EQ(parse_blend_mode("additive").value(), BlendMode::Add);
  for (const auto& [text, message] : {
           std::pair{"Add", R"(unknown blend mode "Add", expected 'copy', 'over' or 'add')"},
           std::pair{R"(a"b\)", R"(unknown blend mode "a\"b\\", expected 'copy', 'over' or 'add')"},
       }) {
    const auto parsed = parse_blend_mode(text);
    ASSERT_FALSE(parsed.ok());
    EXPECT_EQ(parsed.failure().kind, FailureKind::Range);
    EXPECT_EQ(parsed.failure().message, message);
  }
}

// Coordinates at the 64-bit limits, where x + width passes 64 bits, next to ordinary ones.
std::int64_t pick_coordinate(std::mt19937& random) {
  constexpr std::int64_t edges[] = {std::numeric_limits<std::int64_t>::min(), -4294967296, -7, -1, 0, 3,
                                    std::numeric_limits<std::int64_t>::max()};
  if (random() % 2) return edges[random() % std::size(edges)];
  return static_cast<std::int64_t>(random() % 21) - 8;
}

std::uint32_t pick_length(std::mt19937& random) {
  return random() % 4 == 0 ? std::numeric_limits<std::uint32_t>::max() : random() % 20;
}

bool in_span(Wide value, Wide start, Wide length) { return value >= start && value < start + length; }

TEST(Rectangles, FillRectTouchesExactlyTheClippedPixels) {
  std::mt19937 random(7);
  for (int round = 0; round < 500; ++round) {
    const Framebuffer before = noise_image(9, 6, random);
    Framebuffer image = before;
    const std::int64_t x = pick_coordinate(random), y = pick_coordinate(random);
    const std::uint32_t w = pick_length(random), h = pick_length(random);
    const Color color = random();
    const auto mode = static_cast<BlendMode>(random() % 3);
    image.fill_rect(x, y, w, h, color, mode);
    for (std::uint32_t py = 0; py < 6; ++py) {
      for (std::uint32_t px = 0; px < 9; ++px) {
        const bool inside = in_span(px, x, w) && in_span(py, y, h);
        const Color old = before.pixel(px, py);
        ASSERT_EQ(image.pixel(px, py), inside ? blend(old, color, mode) : old)
            << "round " << round << " at " << px << "," << py;
      }
    }
  }
}

TEST(Rectangles, BlitReadsTheSourcePixelAtTheSameOffset) {
  std::mt19937 random(11);
  for (int round = 0; round < 500; ++round) {
    const Framebuffer source = noise_image(5, 4, random);
    const Framebuffer before = noise_image(8, 7, random);
    Framebuffer image = before;
    BlitPlacement at{pick_coordinate(random), pick_coordinate(random), pick_coordinate(random),
                     pick_coordinate(random), pick_length(random), pick_length(random)};
    const auto mode = static_cast<BlendMode>(random() % 3);
    image.blit(source, at, mode);
    for (std::uint32_t py = 0; py < 7; ++py) {
      for (std::uint32_t px = 0; px < 8; ++px) {
        // The source pixel that lines up with (px, py), if the clipped source rectangle holds it.
        const Wide sx = Wide{at.src_x} + px - at.x, sy = Wide{at.src_y} + py - at.y;
        const bool from_source = in_span(sx, 0, 5) && in_span(sx, at.src_x, at.src_width) && in_span(sy, 0, 4) &&
                                 in_span(sy, at.src_y, at.src_height);
        const Color old = before.pixel(px, py);
        const Color expected =
            from_source ? blend(old, source.pixel(static_cast<std::uint32_t>(sx), static_cast<std::uint32_t>(sy)), mode)
                        : old;
        ASSERT_EQ(image.pixel(px, py), expected) << "round " << round << " at " << px << "," << py;
      }
    }
  }
}

TEST(Rectangles, NegativeSourceOriginMovesTheCopyRight) {
  Framebuffer source = Framebuffer::create(2, 1).value();
  source.set_pixel(0, 0, 1);
  source.set_pixel(1, 0, 2);
  Framebuffer image = Framebuffer::create(4, 1).value();
  image.blit(source, {0, 0, -1, 0, 3, 1}, BlendMode::Copy);
  EXPECT_EQ(image.row(0)[0], 0u);
  EXPECT_EQ(image.row(0)[1], 1u);
  EXPECT_EQ(image.row(0)[2], 2u);
}

TEST(BoxAverage, RoundsHalfUpPerChannelAndDropsPartialBlocks) {
  Framebuffer image = Framebuffer::create(5, 3).value();
  image.set_pixel(0, 0, make_color(0, 0, 0, 255));
  image.set_pixel(3, 1, make_color(4, 3, 2, 1));
  image.set_pixel(4, 0, make_color(255, 255, 255, 255));  // in the dropped column
  const Framebuffer half = image.downsample(2).value();
  ASSERT_EQ(half.width(), 2u);
  ASSERT_EQ(half.height(), 1u);
  EXPECT_EQ(half.pixel(0, 0), make_color(0, 0, 0, 64));  // (255 + 2) / 4, not 63
  EXPECT_EQ(half.pixel(1, 0), make_color(1, 1, 1, 0));   // (4 + 2) / 4, (3 + 2) / 4, (2 + 2) / 4, (1 + 2) / 4

  const Framebuffer same = image.downsample(1).value();
  EXPECT_TRUE(std::equal(same.pixels().begin(), same.pixels().end(), image.pixels().begin()));
  EXPECT_NE(same.pixels().data(), image.pixels().data());
  EXPECT_EQ(image.downsample(6).value().pixels().size(), 0u);
  EXPECT_EQ(image.downsample(0).failure().message, "factor must be positive");
}

TEST(NearestNeighbor, PicksFlooredSourceIndices) {
  Framebuffer image = Framebuffer::create(3, 2).value();
  for (std::uint32_t i = 0; i < 6; ++i) image.pixels()[i] = i + 1;
  const Framebuffer wide = image.resized(7, 3).value();
  // Columns x * 3 / 7 and rows y * 2 / 3.
  const std::uint32_t columns[] = {0, 0, 0, 1, 1, 2, 2}, rows[] = {0, 0, 1};
  for (std::uint32_t y = 0; y < 3; ++y) {
    for (std::uint32_t x = 0; x < 7; ++x) EXPECT_EQ(wide.pixel(x, y), image.pixel(columns[x], rows[y]));
  }
  const Framebuffer empty = Framebuffer::create(0, 4).value();
  const Framebuffer zeros = empty.resized(2, 2).value();
  EXPECT_EQ(zeros.pixel(1, 1), 0u);
}

TEST(Sizes, UnaddressableSizesAndWrongLengthsFailBeforeAllocating) {
  const auto huge = Framebuffer::create(4294967295u, 4294967295u);
  ASSERT_FALSE(huge.ok());
  EXPECT_EQ(huge.failure().message, "image size 4294967295x4294967295 is too large to address");
  const std::uint8_t three[3] = {1, 2, 3};
  EXPECT_EQ(Framebuffer::from_bytes(1, 1, three).failure().message, "data length must be width * height * 4");
  EXPECT_TRUE(Framebuffer::create(0, 4294967295u).ok());
}

}  // namespace
}  // namespace tv::render
