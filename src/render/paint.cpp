#include "render/paint.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

#include "render/draw.hpp"
#include "render/raster.hpp"
#include "render/scene.hpp"
#include "simulator.hpp"
#include "symbolic.hpp"

namespace tv::render {

namespace {

constexpr Color kOpaqueBlack = 0xff000000;

// The place of `word` in `extras`, appended when new.
std::uint32_t extra_index(std::vector<Color>& extras, Color word) {
  const auto found = std::find(extras.begin(), extras.end(), word);
  if (found != extras.end()) return static_cast<std::uint32_t>(found - extras.begin());
  extras.push_back(word);
  return static_cast<std::uint32_t>(extras.size() - 1);
}

// Each mesh triangle's code: the slot of the sticker its facet carries, else its color's extra.
// A slot's triangles also set the drawn color of the slot's color id.
std::vector<std::vector<Color>> triangle_codes(const Simulator& base, const StickerTable& stickers,
                                               PaintTable& table) {
  const auto& meshes = base.scene().meshes;
  std::vector<std::vector<Color>> codes(meshes.size());
  for (std::size_t piece = 0; piece < meshes.size(); ++piece) {
    const PieceMesh& mesh = meshes[piece];
    static const std::vector<std::uint32_t> kNone;
    const auto& facets = piece < stickers.facets_of_piece.size() ? stickers.facets_of_piece[piece] : kNone;
    const auto& slots = piece < stickers.slots_of_piece.size() ? stickers.slots_of_piece[piece] : kNone;
    codes[piece].reserve(mesh.triangles.size());
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t) {
      const Color word = mesh.colors[t];
      const auto found = std::find(facets.begin(), facets.end(), mesh.facets[t]);
      if (found != facets.end() && static_cast<std::size_t>(found - facets.begin()) < slots.size()) {
        const std::uint32_t slot = slots[static_cast<std::size_t>(found - facets.begin())];
        if (slot < table.slot_count) table.palette[stickers.solved_colors[slot]] = word;
        codes[piece].push_back(slot);
      } else {
        codes[piece].push_back(table.slot_count + extra_index(table.extras, word));
      }
    }
  }
  return codes;
}

template <class Entry>
std::vector<Entry> narrowed(std::span<const Color> words) {
  std::vector<Entry> entries(words.size());
  std::transform(words.begin(), words.end(), entries.begin(), [](Color w) { return static_cast<Entry>(w); });
  return entries;
}

// Little-endian bytes r, g, b, a, which is the word's own order on the hosts we build for.
void store_word(std::uint8_t* out, Color word) { std::memcpy(out, &word, 4); }

// Output pixel by pixel: the word of each entry (s = 1), the two-channels-a-word mean of a 2 x 2
// block, or the per-channel rounded mean of an s x s block, as the box average rounds. The loops
// read through local pointers, since the byte stores may alias anything reached by reference.
template <class Entry>
void paint_entries(const Entry* entries, const Color* words, std::uint32_t s, std::uint32_t width,
                   std::uint32_t height, std::uint8_t* frame) {
  const std::size_t row_length = std::size_t{s} * width;
  for (std::uint32_t y = 0; y < height; ++y) {
    const Entry* top = entries + std::size_t{y} * s * row_length;
    std::uint8_t* out = frame + std::size_t{y} * width * 4;
    if (s == 1) {
      for (std::uint32_t x = 0; x < width; ++x) store_word(out + 4 * x, words[top[x]]);
      continue;
    }
    if (s == 2) {
      constexpr Color kEven = 0x00FF00FFu;
      const Entry* bottom = top + row_length;
      for (std::uint32_t x = 0; x < width; ++x) {
        const Entry ea = top[2 * x], eb = top[2 * x + 1], ec = bottom[2 * x], ed = bottom[2 * x + 1];
        // Inside a sticker all four samples show one slot, whose word is its own mean.
        if (ea == eb && ea == ec && ea == ed) {
          store_word(out + 4 * x, words[ea]);
          continue;
        }
        const Color a = words[ea], b = words[eb], c = words[ec], d = words[ed];
        const Color even = (a & kEven) + (b & kEven) + (c & kEven) + (d & kEven) + 0x00020002u;
        const Color odd = ((a >> 8) & kEven) + ((b >> 8) & kEven) + ((c >> 8) & kEven) + ((d >> 8) & kEven) + 0x00020002u;
        store_word(out + 4 * x, ((even >> 2) & kEven) | (((odd >> 2) & kEven) << 8));
      }
      continue;
    }
    const std::uint64_t count = std::uint64_t{s} * s;
    for (std::uint32_t x = 0; x < width; ++x) {
      std::uint64_t sums[4] = {0, 0, 0, 0};
      for (std::uint32_t dy = 0; dy < s; ++dy) {
        const Entry* block = top + dy * row_length + std::size_t{x} * s;
        for (std::uint32_t dx = 0; dx < s; ++dx) {
          const Color w = words[block[dx]];
          for (int k = 0; k < 4; ++k) sums[k] += (w >> (8 * k)) & 0xffu;
        }
      }
      for (int k = 0; k < 4; ++k) out[4 * x + k] = static_cast<std::uint8_t>((sums[k] + count / 2) / count);
    }
  }
}

}  // namespace

PaintKey paint_key(const Simulator& base, std::uint32_t width, std::uint32_t height) {
  const Camera& camera = base.camera();
  const ViewSettings& view = base.view();
  PaintKey key;
  for (int i = 0; i < 3; ++i) {
    key.camera[i] = std::bit_cast<std::uint64_t>(camera.position[i]);
    key.camera[3 + i] = std::bit_cast<std::uint64_t>(camera.target[i]);
    key.camera[6 + i] = std::bit_cast<std::uint64_t>(camera.up[i]);
  }
  key.camera[9] = std::bit_cast<std::uint64_t>(camera.fov);
  key.line_width = std::bit_cast<std::uint64_t>(view.line_width);
  key.width = width;
  key.height = height;
  key.supersample = std::max<std::uint32_t>(view.supersample, 1);
  key.background = view.background;
  key.show_edges = view.show_edges;
  key.show_pieces = view.show_pieces;
  return key;
}

Result<PaintTable> build_paint_table(const Simulator& base, const StickerTable& stickers, std::uint32_t width,
                                     std::uint32_t height) {
  PaintTable table;
  table.key = paint_key(base, width, height);
  table.width = width;
  table.height = height;
  table.supersample = table.key.supersample;
  const std::uint32_t s = table.supersample;
  TV_CHECK(check_working_size(width, height, s));
  table.slot_count = static_cast<std::uint32_t>(stickers.solved_colors.size());
  const auto largest = std::max_element(stickers.solved_colors.begin(), stickers.solved_colors.end());
  table.palette.assign(largest == stickers.solved_colors.end() ? 0 : std::size_t{*largest} + 1, kOpaqueBlack);
  table.extras = {base.view().background};
  const std::vector<std::vector<Color>> codes = triangle_codes(base, stickers, table);
  const Color outline_code = table.slot_count + extra_index(table.extras, kOpaqueBlack);

  TV_TRY(RasterFrame frame, RasterFrame::create(s * width, s * height, table.slot_count));
  if (const auto transform = frame_transform(base, width, height)) {
    std::vector<DrawItem> items;
    add_piece_items(base, s, codes, outline_code, items);
    RasterScratch scratch;
    rasterize(scratch, frame, items, *transform);
  }
  const std::uint64_t n = table.extras.size() + std::uint64_t{table.slot_count};
  const std::span<const Color> words = frame.color.pixels();
  if (n < 257) {
    table.entries = narrowed<std::uint8_t>(words);
  } else if (n < 65537) {
    table.entries = narrowed<std::uint16_t>(words);
  } else {
    table.entries = std::vector<std::uint32_t>(words.begin(), words.end());
  }
  return table;
}

void paint_frame(const PaintTable& table, std::span<const Color> words, std::span<std::uint8_t> frame) {
  std::visit(
      [&](const auto& entries) {
        paint_entries(entries.data(), words.data(), table.supersample, table.width, table.height, frame.data());
      },
      table.entries);
}

namespace {

template <class Out, class Convert>
void copy_channels(const std::uint8_t* frame, std::size_t pixels, std::uint32_t channels, bool channels_first,
                   Out* out, Convert convert) {
  if (channels_first) {
    for (std::uint32_t k = 0; k < channels; ++k) {
      Out* plane = out + k * pixels;
      for (std::size_t p = 0; p < pixels; ++p) plane[p] = convert(frame[4 * p + k]);
    }
    return;
  }
  for (std::size_t p = 0; p < pixels; ++p) {
    for (std::uint32_t k = 0; k < channels; ++k) out[p * channels + k] = convert(frame[4 * p + k]);
  }
}

}  // namespace

void write_frame(std::span<const std::uint8_t> frame, std::uint32_t width, std::uint32_t height,
                 std::uint32_t channels, bool channels_first, std::uint8_t* bytes, float* floats) {
  const std::size_t pixels = std::size_t{width} * height;
  if (bytes != nullptr && channels == 4 && !channels_first) {
    std::copy(frame.begin(), frame.begin() + 4 * pixels, bytes);
  } else if (bytes != nullptr) {
    copy_channels(frame.data(), pixels, channels, channels_first, bytes, [](std::uint8_t v) { return v; });
  }
  if (floats != nullptr) {
    copy_channels(frame.data(), pixels, channels, channels_first, floats,
                  [](std::uint8_t v) { return static_cast<float>(v) / 255.0f; });
  }
}

Result<const PaintTable*> PaintTables::lookup(const Simulator& base, const StickerTable& stickers,
                                             std::uint32_t width, std::uint32_t height) {
  const PaintKey key = paint_key(base, width, height);
  const auto found = std::find_if(tables_.begin(), tables_.end(), [&](const auto& t) { return t->key == key; });
  if (found != tables_.end()) {
    std::rotate(tables_.begin(), found, found + 1);
    return tables_.front().get();
  }
  TV_TRY(PaintTable table, build_paint_table(base, stickers, width, height));
  tables_.insert(tables_.begin(), std::make_unique<PaintTable>(std::move(table)));
  if (tables_.size() > kKept) tables_.resize(kKept);
  return tables_.front().get();
}

}  // namespace tv::render
