// Pictures of a tabular batch by lookup. The solved puzzle is rasterized once with a code in
// place of each color: below `slot_count` the sticker slot a sample shows, above it a fixed color
// (`extras`: the background first, then inner faces and the outline color). A copy's frame is
// then, for each sample, the color its state puts in that slot, box-averaged to the frame: no
// geometry and no depth, just s * s lookups a pixel.
//
// A table depends only on the solved puzzle and the view it was drawn for (its key), so no move
// of any copy touches it. A batch keeps the four most recently used.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <variant>
#include <vector>

#include "failure.hpp"
#include "pool.hpp"
#include "render/framebuffer.hpp"

namespace tv {
class Simulator;
struct StickerTable;
}  // namespace tv

namespace tv::render {

// The view a table was drawn for. Floats are kept as bit patterns, so that -0.0 and 0.0 are two
// keys and a NaN matches itself.
struct PaintKey {
  std::array<std::uint64_t, 10> camera{};  // position, target, up, fov
  std::uint64_t line_width = 0;
  std::uint32_t width = 0, height = 0, supersample = 1;
  Color background = 0;
  bool show_edges = true, show_pieces = true;

  bool operator==(const PaintKey&) const = default;
};

PaintKey paint_key(const Simulator& base, std::uint32_t width, std::uint32_t height);

struct PaintTable {
  PaintKey key;
  // One code per sample of the working frame, row after row, at the narrowest width that holds
  // every code.
  std::variant<std::vector<std::uint8_t>, std::vector<std::uint16_t>, std::vector<std::uint32_t>> entries;
  std::vector<Color> extras;
  std::vector<Color> palette;  // drawn color per color id
  std::uint32_t slot_count = 0, width = 0, height = 0, supersample = 1;
};

// Draws the solved `base` (arrows never) with codes for colors at width x height.
Result<PaintTable> build_paint_table(const Simulator& base, const StickerTable& stickers, std::uint32_t width,
                                     std::uint32_t height);

// The color word of every code when slot s holds color id `color_of(s)`: a slot's word is
// palette[color id], an extra's its own; an id past the palette is opaque black.
template <class ColorOf>
void code_words(const PaintTable& table, ColorOf color_of, std::vector<Color>& words) {
  words.resize(std::size_t{table.slot_count} + table.extras.size());
  for (std::uint32_t slot = 0; slot < table.slot_count; ++slot) {
    const std::uint64_t c = color_of(slot);
    words[slot] = c < table.palette.size() ? table.palette[c] : 0xff000000u;
  }
  std::copy(table.extras.begin(), table.extras.end(), words.begin() + table.slot_count);
}

// A frame (width x height RGBA bytes, row after row) from the code words of one state.
void paint_frame(const PaintTable& table, std::span<const Color> words, std::span<std::uint8_t> frame);

// Copies a painted frame into its stretch of an output block: the first `channels` bytes of
// each pixel, channels last or (with channels_first) one plane per channel; as bytes, or as
// 32-bit floats byte / 255.
void write_frame(std::span<const std::uint8_t> frame, std::uint32_t width, std::uint32_t height,
                 std::uint32_t channels, bool channels_first, std::uint8_t* bytes, float* floats);

// Paints `rows` frames into one block, row i into stretch i (channels * width * height elements,
// bytes or floats): `words_of_row(i, words)` gives the code words of row i. Rows are split over
// the pool by halving; a task keeps one frame and one word list for all its rows, so nothing is
// allocated per row and the bytes never depend on the schedule.
template <class WordsOfRow>
void paint_block(const PaintTable& table, std::uint64_t rows, WordsOfRow words_of_row, std::uint32_t channels,
                 bool channels_first, std::uint8_t* bytes, float* floats) {
  const std::size_t pixels = std::size_t{table.width} * table.height;
  const std::size_t stretch = pixels * channels;
  const bool direct = bytes != nullptr && channels == 4 && !channels_first;
  pool::for_each_leaf(rows, [&](std::size_t begin, std::size_t end) {
    std::vector<Color> words;
    std::vector<std::uint8_t> frame(direct ? 0 : pixels * 4);
    for (std::size_t row = begin; row < end; ++row) {
      words_of_row(row, words);
      if (direct) {
        paint_frame(table, words, {bytes + row * stretch, pixels * 4});
        continue;
      }
      paint_frame(table, words, frame);
      write_frame(frame, table.width, table.height, channels, channels_first,
                  bytes != nullptr ? bytes + row * stretch : nullptr, floats != nullptr ? floats + row * stretch : nullptr);
    }
  });
}

// The four most recently used tables of a batch, the most recent first.
class PaintTables {
 public:
  static constexpr std::size_t kKept = 4;

  // The table of base's current view at width x height, moved to the front, or built and
  // inserted there when no kept table has that key (the oldest then falls off).
  Result<const PaintTable*> lookup(const Simulator& base, const StickerTable& stickers, std::uint32_t width,
                                   std::uint32_t height);
  const std::vector<std::unique_ptr<PaintTable>>& tables() const { return tables_; }

 private:
  std::vector<std::unique_ptr<PaintTable>> tables_;
};

}  // namespace tv::render
