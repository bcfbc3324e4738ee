#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

#include "color.hpp"

namespace tv {
namespace {

double srgb_decode(double c, double exponent) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, exponent); }

TEST(Color, TablesFollowTheirFormulasAndEveryByteRoundTrips) {
  for (int b = 0; b < 256; ++b) {
    EXPECT_NEAR(srgb_to_linear[b], srgb_decode(b / 255.0, 2.4), 1.1e-11) << b;
    EXPECT_EQ(encode_byte(srgb_to_linear[b]), b);
  }
  EXPECT_NEAR(srgb_to_linear[102], 0.13286832154414627, 1.1e-11);
}

// The thresholds carry no tolerance: the two published ends, and the formula's double between.
TEST(Color, EveryThresholdIsExact) {
  EXPECT_EQ(linear_thresholds[0], 0.00015176349177441873);
  EXPECT_EQ(linear_thresholds[254], 0.9955451786029327);
  for (int i = 1; i < 254; ++i) EXPECT_EQ(linear_thresholds[i], srgb_decode((i + 0.5) / 255.0, 1 / 0.41666)) << i;
}

// Against a plain count of the thresholds at or below v (the first one itself still gives 0).
TEST(Color, EncodeByteCountsThresholdsAtAndAroundEachOne) {
  const double inf = std::numeric_limits<double>::infinity();
  for (const double t : linear_thresholds) {
    for (const double v : {std::nextafter(t, -inf), t, std::nextafter(t, inf)}) {
      int count = 0;
      for (const double u : linear_thresholds) count += v >= u;
      EXPECT_EQ(encode_byte(v), v > linear_thresholds[0] ? count : 0) << v;
    }
  }
  for (const auto& [v, byte] : {std::pair{0.0, 0}, {-1.0, 0}, {1.0, 255}, {2.0, 255}, {inf, 255}, {std::nan(""), 0}}) {
    EXPECT_EQ(encode_byte(v), byte) << v;
  }
}

TEST(Color, ShellFacesTakeTheCubeColorsThenDistinctGoldenHues) {
  const std::uint32_t expected[] = {0xFFFFFF, 0xC41E3A, 0x009E60, 0x0051BA, 0xFF5800, 0xFFD500,
                                    0x8900FF, 0x3AFF00, 0xFF009C, 0x00CFFF, 0xF6FF00, 0xE600FF};
  for (std::size_t i = 0; i < std::size(expected); ++i) EXPECT_EQ(pack_rgb(shell_face_color(i)), expected[i]) << i;
  std::set<std::uint32_t> seen{pack_rgb(kInteriorColor)};
  EXPECT_EQ(*seen.begin(), 0x666666u);
  for (std::size_t i = 0; i < 120; ++i) EXPECT_TRUE(seen.insert(pack_rgb(shell_face_color(i))).second) << i;
}

TEST(Color, FlatColorsAreBrightenedWithRedLowest) {
  EXPECT_EQ(flat_color(shell_face_color(0), 1.0), 0xFFFFFFFFu);
  EXPECT_EQ(flat_color({1.0, 0.0, 0.0}, 0.0), 0x000000FFu);
  EXPECT_EQ(flat_color({0.664, 0.664, 0.664}, 1.0) & 0xFFFFFF, 0xFFFFFFu);
  const std::uint32_t interior = flat_color(kInteriorColor, 1.0);
  for (int shift : {0, 8, 16}) EXPECT_GT((interior >> shift) & 0xFF, 0x66u);
  for (const auto& [alpha, byte] : {std::pair{0.3, 77u}, {0.5, 128u}, {2.0, 255u}, {-0.5, 0u}, {std::nan(""), 0u}}) {
    EXPECT_EQ(flat_color({}, alpha) >> 24, byte) << alpha;
  }
}

}  // namespace
}  // namespace tv
