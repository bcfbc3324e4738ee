#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <set>

#include "color.hpp"

namespace tv {
namespace {

double srgb_decode(double c, double exponent) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, exponent); }

// The byte as the plain count of thresholds at or below v, except that the first threshold
// itself still gives 0.
int counted_byte(double v) {
  if (!(v > linear_thresholds[0])) return 0;
  int count = 0;
  for (const double t : linear_thresholds) count += v >= t;
  return count;
}

TEST(Color, TablesFollowTheirFormulas) {
  for (int b = 0; b < 256; ++b) EXPECT_NEAR(srgb_to_linear[b], srgb_decode(b / 255.0, 2.4), 1.1e-11) << b;
  for (int i = 0; i < 255; ++i) EXPECT_NEAR(linear_thresholds[i], srgb_decode((i + 0.5) / 255.0, 1.0 / 0.41666), 1.1e-11) << i;
  EXPECT_EQ(srgb_to_linear[0], 0.0);
  EXPECT_EQ(srgb_to_linear[255], 1.0);
  EXPECT_NEAR(srgb_to_linear[1], 0.00030352698352941176, 1.1e-11);
  EXPECT_NEAR(srgb_to_linear[102], 0.13286832154414627, 1.1e-11);
  EXPECT_NEAR(linear_thresholds[0], 0.00015176349177441873, 1e-17);
  EXPECT_NEAR(linear_thresholds[254], 0.9955451786029327, 1e-15);
}

TEST(Color, EveryByteSurvivesTheRoundTrip) {
  for (int b = 0; b < 256; ++b) EXPECT_EQ(encode_byte(srgb_to_linear[b]), b);
}

TEST(Color, EncodeByteCountsThresholdsAtAndAroundEachOne) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double t : linear_thresholds) {
    for (const double v : {std::nextafter(t, -infinity), t, std::nextafter(t, infinity)}) {
      EXPECT_EQ(encode_byte(v), counted_byte(v)) << v;
    }
  }
  EXPECT_EQ(encode_byte(linear_thresholds[0]), 0);
  EXPECT_EQ(encode_byte(linear_thresholds[1]), 2);
  EXPECT_EQ(encode_byte(linear_thresholds[254]), 255);
  struct Case {
    double value;
    int byte;
  };
  for (const Case c : {Case{0.0, 0}, Case{-1.0, 0}, Case{1.0, 255}, Case{2.0, 255}, Case{infinity, 255},
                       Case{-infinity, 0}, Case{std::nan(""), 0}}) {
    EXPECT_EQ(encode_byte(c.value), c.byte) << c.value;
  }
}

TEST(Color, ShellFacesTakeTheCubeColorsThenGoldenHues) {
  const std::uint32_t expected[] = {0xFFFFFF, 0xC41E3A, 0x009E60, 0x0051BA, 0xFF5800, 0xFFD500,
                                    0x8900FF, 0x3AFF00, 0xFF009C, 0x00CFFF, 0xF6FF00, 0xE600FF};
  for (std::size_t i = 0; i < std::size(expected); ++i) EXPECT_EQ(pack_rgb(shell_face_color(i)), expected[i]) << i;
  std::set<std::uint32_t> seen;
  for (std::size_t i = 0; i < 120; ++i) {
    const LinearColor color = shell_face_color(i);
    for (const double channel : {color.r, color.g, color.b}) {
      EXPECT_GE(channel, 0.0);
      EXPECT_LE(channel, 1.0);
    }
    const std::uint32_t packed = pack_rgb(color);
    EXPECT_NE(packed, 0x666666u) << i;
    EXPECT_TRUE(seen.insert(packed).second) << "shell face " << i << " repeats a color";
  }
}

TEST(Color, InteriorAndFlatColors) {
  EXPECT_EQ(pack_rgb(kInteriorColor), 0x666666u);
  const LinearColor white = shell_face_color(0);
  EXPECT_EQ(flat_color(white, 1.0), 0xFFFFFFFFu);
  const std::uint32_t interior = flat_color(kInteriorColor, 1.0);
  for (int shift : {0, 8, 16}) EXPECT_GT((interior >> shift) & 0xFF, 0x66u);
  // Red lowest: a pure red face.
  EXPECT_EQ(flat_color({1.0, 0.0, 0.0}, 0.0), 0x000000FFu);
  struct Case {
    double alpha;
    std::uint32_t byte;
  };
  for (const Case c : {Case{0.3, 77}, Case{0.5, 128}, Case{1.0, 255}, Case{2.0, 255}, Case{-0.5, 0}, Case{0.0, 0},
                       Case{std::nan(""), 0}}) {
    EXPECT_EQ(flat_color(white, c.alpha) >> 24, c.byte) << c.alpha;
  }
  // Brightening saturates at 0.664 and above.
  EXPECT_EQ(flat_color({0.664, 0.664, 0.664}, 1.0) & 0xFFFFFF, 0xFFFFFFu);
}

}  // namespace
}  // namespace tv
