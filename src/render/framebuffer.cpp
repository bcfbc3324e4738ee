#include "render/framebuffer.hpp"

#include <algorithm>
#include <cstddef>
#include <string>

#include "parse.hpp"
#include "pool.hpp"

namespace tv::render {

namespace {

// Rectangle edges are summed in 128 bits, so x + width can pass 64 bits without wrapping.
using Wide = __int128;

struct Interval {
  std::uint32_t begin = 0, end = 0;
  bool empty() const { return begin >= end; }
  std::uint32_t size() const { return end - begin; }
};

// [start, start + length) clipped to [0, limit).
Interval clip(Wide start, Wide length, std::uint32_t limit) {
  const Wide begin = std::max<Wide>(start, 0);
  const Wide end = std::min<Wide>(start + length, limit);
  if (begin >= end) return {};
  return {static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(end)};
}

void blend_span(std::span<Color> target, Color c, BlendMode mode) {
  if (mode == BlendMode::Over && alpha(c) == 0) return;
  if (mode == BlendMode::Copy || (mode == BlendMode::Over && alpha(c) == 255)) {
    std::fill(target.begin(), target.end(), c);
    return;
  }
  for (Color& d : target) d = blend(d, c, mode);
}

void blend_row(std::span<Color> target, std::span<const Color> source, BlendMode mode) {
  if (mode == BlendMode::Copy) {
    std::copy(source.begin(), source.end(), target.begin());
    return;
  }
  for (std::size_t i = 0; i < target.size(); ++i) target[i] = blend(target[i], source[i], mode);
}

// The average of one factor x factor block, each channel rounded half up.
Color block_average(const Framebuffer& source, std::uint32_t x0, std::uint32_t y0, std::uint32_t factor) {
  std::uint64_t sums[4] = {0, 0, 0, 0};
  for (std::uint32_t y = y0; y < y0 + factor; ++y) {
    for (Color c : source.row(y).subspan(x0, factor)) {
      for (int i = 0; i < 4; ++i) sums[i] += channel(c, i);
    }
  }
  const std::uint64_t count = std::uint64_t{factor} * factor;
  Color out = 0;
  for (int i = 0; i < 4; ++i) out |= static_cast<Color>((sums[i] + count / 2) / count) << (8 * i);
  return out;
}

// The factor-2 case of `block_average` for a whole output row, two channels at a time: the four
// pixels' even bytes (and then odd bytes) sum in the two 16-bit halves of a word, at most 1020
// each, so (sum + 2) >> 2 is the same rounded mean without unpacking.
void average_pairs(std::span<const Color> upper, std::span<const Color> lower, std::span<Color> target) {
  constexpr Color kEven = 0x00FF00FFu;
  for (std::size_t x = 0; x < target.size(); ++x) {
    const Color a = upper[2 * x], b = upper[2 * x + 1], c = lower[2 * x], d = lower[2 * x + 1];
    const Color even = (a & kEven) + (b & kEven) + (c & kEven) + (d & kEven) + 0x00020002u;
    const Color odd = ((a >> 8) & kEven) + ((b >> 8) & kEven) + ((c >> 8) & kEven) + ((d >> 8) & kEven) + 0x00020002u;
    target[x] = ((even >> 2) & kEven) | (((odd >> 2) & kEven) << 8);
  }
}

// Nearest source index of each target index, in 64 bits so that index * source_size cannot wrap.
std::uint32_t nearest(std::uint32_t index, std::uint32_t source_size, std::uint32_t target_size) {
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(std::uint64_t{index} * source_size / target_size, source_size - 1));
}

}  // namespace

Result<BlendMode> parse_blend_mode(std::string_view text) {
  if (text == "copy") return BlendMode::Copy;
  if (text == "over") return BlendMode::Over;
  if (text == "add" || text == "additive") return BlendMode::Add;
  return range_failure("unknown blend mode " + quoted_plain(text) +
                       ", expected 'copy', 'over' or 'add'");
}

Result<Framebuffer> Framebuffer::create(std::uint32_t width, std::uint32_t height, Color fill) {
  // Bytes must be countable by a pointer difference, which also bounds Python's buffer sizes.
  const std::uint64_t pixel_count = std::uint64_t{width} * height;
  if (pixel_count > static_cast<std::uint64_t>(PTRDIFF_MAX) / 4) {
    return range_failure("image size " + std::to_string(width) + "x" + std::to_string(height) +
                         " is too large to address");
  }
  return Framebuffer(width, height, std::vector<Color>(pixel_count, fill));
}

Result<Framebuffer> Framebuffer::from_bytes(std::uint32_t width, std::uint32_t height,
                                            std::span<const std::uint8_t> bytes) {
  // Compared in 64 bits before the image exists, so a wrong length never allocates.
  if (bytes.size() % 4 != 0 || bytes.size() / 4 != std::uint64_t{width} * height)
    return range_failure("data length must be width * height * 4");
  TV_TRY(Framebuffer image, create(width, height));
  std::copy(bytes.begin(), bytes.end(), image.data());
  return image;
}

void Framebuffer::fill(Color c) { std::fill(pixels_.begin(), pixels_.end(), c); }

void Framebuffer::fill_rect(std::int64_t x, std::int64_t y, std::uint32_t width, std::uint32_t height,
                            Color c, BlendMode mode) {
  const Interval columns = clip(x, width, width_);
  const Interval rows = clip(y, height, height_);
  if (columns.empty() || rows.empty()) return;
  for (std::uint32_t r = rows.begin; r < rows.end; ++r) {
    blend_span(row(r).subspan(columns.begin, columns.size()), c, mode);
  }
}

void Framebuffer::blit(const Framebuffer& src, const BlitPlacement& at, BlendMode mode) {
  TV_ENSURE(&src != this, "blit reads and writes the same framebuffer");
  const Interval src_columns = clip(at.src_x, at.src_width, src.width_);
  const Interval src_rows = clip(at.src_y, at.src_height, src.height_);
  if (src_columns.empty() || src_rows.empty()) return;
  // The clipped source's place on the target: a source start below 0 moves it right or down.
  const Wide dx = Wide{at.x} + (Wide{src_columns.begin} - at.src_x);
  const Wide dy = Wide{at.y} + (Wide{src_rows.begin} - at.src_y);
  const Interval columns = clip(dx, src_columns.size(), width_);
  const Interval rows = clip(dy, src_rows.size(), height_);
  if (columns.empty() || rows.empty()) return;
  const auto first_src_column = static_cast<std::size_t>(src_columns.begin + (columns.begin - dx));
  for (std::uint32_t r = rows.begin; r < rows.end; ++r) {
    const auto src_row = static_cast<std::uint32_t>(src_rows.begin + (r - dy));
    blend_row(row(r).subspan(columns.begin, columns.size()),
              src.row(src_row).subspan(first_src_column, columns.size()), mode);
  }
}

Result<Framebuffer> Framebuffer::downsample(std::uint32_t factor) const {
  if (factor == 0) return range_failure("factor must be positive");
  if (factor == 1) return *this;
  TV_TRY(Framebuffer out, create(width_ / factor, height_ / factor));
  pool::for_each_task(out.height_, [&](std::size_t y) {
    const std::span<Color> target = out.row(static_cast<std::uint32_t>(y));
    if (factor == 2) {
      average_pairs(row(static_cast<std::uint32_t>(2 * y)), row(static_cast<std::uint32_t>(2 * y + 1)), target);
      return;
    }
    for (std::uint32_t x = 0; x < out.width_; ++x) {
      target[x] = block_average(*this, x * factor, static_cast<std::uint32_t>(y) * factor, factor);
    }
  });
  return out;
}

Result<Framebuffer> Framebuffer::resized(std::uint32_t width, std::uint32_t height) const {
  TV_TRY(Framebuffer out, create(width, height));
  if (width_ == 0 || height_ == 0) return out;
  std::vector<std::uint32_t> source_columns(width);
  for (std::uint32_t x = 0; x < width; ++x) source_columns[x] = nearest(x, width_, width);
  pool::for_each_task(height, [&](std::size_t y) {
    const std::span<const Color> source = row(nearest(static_cast<std::uint32_t>(y), height_, height));
    const std::span<Color> target = out.row(static_cast<std::uint32_t>(y));
    for (std::uint32_t x = 0; x < width; ++x) target[x] = source[source_columns[x]];
  });
  return out;
}

}  // namespace tv::render
