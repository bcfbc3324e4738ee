// Framebuffer: the RGBA8 pixel store behind Image and the renderer, and the operations on it
// that every drawing path shares.
//
//   Color, BlendMode, parse_blend_mode, blend   the one blend rule of images, glyphs and the
//                                               rasterizer
//   Framebuffer::create, from_bytes             checked construction
//   fill, fill_rect, blit                       clipped writes; coordinates never wrap
//   downsample, resized                         box average and nearest neighbor, one pool task
//                                               per output row
//
// Pixels are non-premultiplied, packed, top row first. A color word has r in its lowest byte,
// then g, b, a, so on a little-endian machine the bytes in memory are r, g, b, a.
#pragma once

#include <bit>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "failure.hpp"

namespace tv::render {

static_assert(std::endian::native == std::endian::little, "pixel words are stored as bytes r, g, b, a");

using Color = std::uint32_t;

constexpr Color make_color(std::uint32_t r, std::uint32_t g, std::uint32_t b, std::uint32_t a) {
  return r | g << 8 | b << 16 | a << 24;
}
constexpr std::uint32_t channel(Color c, int index) { return (c >> (8 * index)) & 0xff; }
constexpr std::uint32_t alpha(Color c) { return c >> 24; }

enum class BlendMode : std::uint8_t { Copy = 0, Over = 1, Add = 2 };

// "copy", "over", "add" or "additive"; anything else is a Range failure naming the text.
Result<BlendMode> parse_blend_mode(std::string_view text);

// The rasterizer's numbered modes: 0 and 1 are copy and over, every other number adds.
constexpr BlendMode blend_mode_from_number(std::uint8_t number) {
  return number == 0 ? BlendMode::Copy : number == 1 ? BlendMode::Over : BlendMode::Add;
}

// Division by 255 of a sum that already includes the rounding term 127. It is not
// round(sum / 255): a sum of 255k + 128 gives k.
constexpr std::uint32_t div255(std::uint32_t t) { return (t + (t >> 8)) >> 8; }

// Over on a stored pixel d, which may itself be translucent: each color channel is weighted
// by the source alpha, and alpha is combined as if the source color channel were 255.
constexpr Color blend_over(Color d, Color s) {
  const std::uint32_t a = alpha(s);
  if (a == 0) return d;
  if (a == 255) return s;
  Color out = 0;
  for (int i = 0; i < 3; ++i) {
    out |= div255(channel(s, i) * a + channel(d, i) * (255 - a) + 127) << (8 * i);
  }
  return out | div255(255 * a + alpha(d) * (255 - a) + 127) << 24;
}

constexpr Color blend_add(Color d, Color s) {
  const std::uint32_t a = alpha(s);
  Color out = 0;
  for (int i = 0; i < 3; ++i) {
    const std::uint32_t sum = channel(d, i) + div255(channel(s, i) * a + 127);
    out |= (sum < 255 ? sum : 255) << (8 * i);
  }
  const std::uint32_t sum = alpha(d) + a;
  return out | (sum < 255 ? sum : 255) << 24;
}

constexpr Color blend(Color d, Color s, BlendMode mode) {
  switch (mode) {
    case BlendMode::Copy: return s;
    case BlendMode::Over: return blend_over(d, s);
    case BlendMode::Add: break;
  }
  return blend_add(d, s);
}

// Where a blit reads and writes; src_width and src_height are already defaulted.
struct BlitPlacement {
  std::int64_t x = 0, y = 0;
  std::int64_t src_x = 0, src_y = 0;
  std::uint32_t src_width = 0, src_height = 0;
};

class Framebuffer {
 public:
  // Every pixel set to `fill`. A size whose byte count a pointer difference cannot hold is a
  // Range failure, reported before anything is allocated.
  static Result<Framebuffer> create(std::uint32_t width, std::uint32_t height, Color fill = 0);
  // A copy of `bytes`, which must hold exactly width * height * 4 bytes.
  static Result<Framebuffer> from_bytes(std::uint32_t width, std::uint32_t height,
                                        std::span<const std::uint8_t> bytes);

  std::uint32_t width() const { return width_; }
  std::uint32_t height() const { return height_; }
  std::size_t stride() const { return std::size_t{width_} * 4; }
  std::size_t byte_size() const { return pixels_.size() * 4; }
  bool contains(std::uint64_t x, std::uint64_t y) const { return x < width_ && y < height_; }

  std::span<Color> pixels() { return pixels_; }
  std::span<const Color> pixels() const { return pixels_; }
  std::span<Color> row(std::uint32_t y) { return pixels().subspan(std::size_t{y} * width_, width_); }
  std::span<const Color> row(std::uint32_t y) const {
    return pixels().subspan(std::size_t{y} * width_, width_);
  }
  std::span<const std::uint8_t> bytes() const {
    return {reinterpret_cast<const std::uint8_t*>(pixels_.data()), byte_size()};
  }
  std::uint8_t* data() { return reinterpret_cast<std::uint8_t*>(pixels_.data()); }

  // Callers check contains() first.
  Color pixel(std::uint32_t x, std::uint32_t y) const { return row(y)[x]; }
  void set_pixel(std::uint32_t x, std::uint32_t y, Color c) { row(y)[x] = c; }

  void fill(Color c);
  // Blends `c` into the rectangle clipped to the image.
  void fill_rect(std::int64_t x, std::int64_t y, std::uint32_t width, std::uint32_t height, Color c,
                 BlendMode mode);
  // Blends the clipped rectangle of `src` into this image; `src` must be another image.
  void blit(const Framebuffer& src, const BlitPlacement& at, BlendMode mode);

  // Box average over factor x factor blocks, rounding half up; trailing partial blocks are
  // ignored. A factor of 0 is a Range failure.
  Result<Framebuffer> downsample(std::uint32_t factor) const;
  // Nearest neighbor to the new size.
  Result<Framebuffer> resized(std::uint32_t width, std::uint32_t height) const;

 private:
  Framebuffer(std::uint32_t width, std::uint32_t height, std::vector<Color> pixels)
      : width_(width), height_(height), pixels_(std::move(pixels)) {}

  std::uint32_t width_ = 0;
  std::uint32_t height_ = 0;
  std::vector<Color> pixels_;
};

}  // namespace tv::render
