// Shell face colors and the conversions from linear light to sRGB bytes.
#include "color.hpp"

#include <cmath>

namespace tv {

namespace {

inline constexpr std::array<std::uint32_t, 6> kCubeColors = {0xFFFFFF, 0xC41E3A, 0x009E60, 0x0051BA, 0xFF5800, 0xFFD500};
inline constexpr double kGoldenRatio = 1.618033988749895;
// The brightening of the renderer's flat colors.
inline constexpr double kFlatBrightening = 1.5;

double fractional_part(double x) { return x - std::trunc(x); }

// One channel of the fully saturated color of lightness one half at hue offset t (in turns).
double hue_channel(double t) {
  if (t < 0.0) t += 1.0;
  if (t > 1.0) t -= 1.0;
  if (t < 1.0 / 6.0) return t * 6.0;
  if (t < 1.0 / 2.0) return 1.0;
  if (t < 2.0 / 3.0) return (2.0 / 3.0 - t) * 6.0;
  return 0.0;
}

LinearColor decode_packed(std::uint32_t packed) {
  return {srgb_to_linear[(packed >> 16) & 0xFF], srgb_to_linear[(packed >> 8) & 0xFF], srgb_to_linear[packed & 0xFF]};
}

std::uint32_t alpha_byte(double alpha) {
  if (!(alpha > 0.0)) return 0;  // also NaN
  if (alpha > 1.0) alpha = 1.0;
  return static_cast<std::uint32_t>(std::round(alpha * 255.0));
}

}  // namespace

LinearColor shell_face_color(std::size_t i) {
  if (i < kCubeColors.size()) return decode_packed(kCubeColors[i]);
  const double x = static_cast<double>(i) / kGoldenRatio;
  const double h = fractional_part(fractional_part(x) + 1.0);
  return {hue_channel(h + 1.0 / 3.0), hue_channel(h), hue_channel(h - 1.0 / 3.0)};
}

std::uint8_t encode_byte(double v) {
  if (!(v > linear_thresholds[0])) return 0;
  std::size_t lo = 0;
  std::size_t hi = 255;
  while (true) {
    const std::size_t mid = (lo + hi) / 2;
    if (v >= linear_thresholds[mid]) {
      lo = mid;
      if (mid + 1 >= hi) return static_cast<std::uint8_t>(mid + 1);
    } else {
      hi = mid;
      if (lo + 1 >= mid) return static_cast<std::uint8_t>(lo + 1);
    }
  }
}

std::uint32_t pack_rgb(const LinearColor& color) {
  return (std::uint32_t{encode_byte(color.r)} << 16) | (std::uint32_t{encode_byte(color.g)} << 8) | encode_byte(color.b);
}

std::uint32_t flat_color(const LinearColor& color, double alpha) {
  const std::uint32_t r = encode_byte(color.r * kFlatBrightening);
  const std::uint32_t g = encode_byte(color.g * kFlatBrightening);
  const std::uint32_t b = encode_byte(color.b * kFlatBrightening);
  return r | (g << 8) | (b << 16) | (alpha_byte(alpha) << 24);
}

}  // namespace tv
