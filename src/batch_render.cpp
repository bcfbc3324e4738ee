// Pictures of a batch. A batch of rows paints every copy by lookup in a pixel-to-slot table of
// its solved puzzle (the four most recent views kept), so a frame costs a lookup per sample; a
// copy's frame is the solved picture with each slot showing the color its state puts there. A
// batch of simulators has no such table, since a jumbled copy's stickers leave the solved
// places: each copy is drawn from its own geometry instead.
#include <string>

#include "batch.hpp"
#include "pool.hpp"
#include "render/draw.hpp"
#include "render/paint.hpp"

namespace tv {

namespace {

Status check_channels(std::uint32_t channels) {
  if (channels == 3 || channels == 4) return {};
  return range_failure("a frame has 3 or 4 channels, not " + std::to_string(channels));
}

Failure no_drawing_table() {
  return state_failure(
      "this puzzle has no drawing table: its stickers do not stay on the solved lattice, so which one a pixel shows "
      "depends on the state");
}

std::vector<std::uint64_t> frame_shape(std::uint64_t rows, std::uint32_t width, std::uint32_t height,
                                       std::uint32_t channels, bool channels_first) {
  if (channels_first) return {rows, channels, height, width};
  return {rows, height, width, channels};
}

}  // namespace

Result<const render::PaintTable*> Batch::paint_table(std::uint32_t width, std::uint32_t height) {
  if (!base_) return no_drawing_table();
  return paint_tables_.lookup(*base_, *table_, width, height);
}

Result<ArrayBuffer> Batch::render(std::uint32_t width, std::uint32_t height, std::uint32_t channels,
                                  bool channels_first, bool floats) {
  TV_CHECK(check_channels(channels));
  TV_TRY(ArrayBuffer out, allocate_array(floats ? ElementType::F32 : ElementType::U8,
                                         frame_shape(count(), width, height, channels, channels_first)));
  if (!is_tabular()) {
    TV_CHECK(draw_copies(width, height, channels, channels_first, floats, out));
    return out;
  }
  TV_TRY(const render::PaintTable* paint, paint_table(width, height));
  const auto& colors = table_->solved_colors;
  const std::size_t n = sticker_count();
  std::visit(
      [&](const auto& e) {
        const auto words_of_row = [&](std::size_t copy, std::vector<render::Color>& words) {
          const auto* row = e.states.data() + copy * n;
          render::code_words(*paint, [&](std::uint32_t slot) { return colors[row[slot]]; }, words);
        };
        render::paint_block(*paint, count(), words_of_row, channels, channels_first,
                            floats ? nullptr : out.bytes(), floats ? out.as<float>() : nullptr);
      },
      engine_);
  return out;
}

Status Batch::draw_copies(std::uint32_t width, std::uint32_t height, std::uint32_t channels, bool channels_first,
                          bool floats, ArrayBuffer& out) const {
  const std::size_t stretch = std::size_t{width} * height * channels;
  for (const Simulator& sim : sims_) TV_CHECK(render::check_working_size(width, height, sim.view().supersample));
  return pool::try_for_each(sims_.size(), [&](std::size_t copy) -> Status {
    TV_TRY(render::Framebuffer frame, render::draw_scene(sims_[copy], width, height));
    render::write_frame(frame.bytes(), width, height, channels, channels_first,
                        floats ? nullptr : out.bytes() + copy * stretch,
                        floats ? out.as<float>() + copy * stretch : nullptr);
    return {};
  });
}

Result<ArrayBuffer> Batch::render_states(std::span<const std::uint32_t> states, std::uint32_t width,
                                         std::uint32_t height, std::uint32_t channels, bool channels_first) {
  const std::size_t n = sticker_count();
  if (n == 0 || states.size() % n != 0) {
    return range_failure("a state of this puzzle is " + std::to_string(n) + " colors, and " +
                         std::to_string(states.size()) + " is not a whole number of them");
  }
  TV_CHECK(check_channels(channels));
  const std::uint64_t rows = states.size() / n;
  TV_TRY(ArrayBuffer out, allocate_array(ElementType::U8, frame_shape(rows, width, height, channels, channels_first)));
  TV_TRY(const render::PaintTable* paint, paint_table(width, height));
  const auto words_of_row = [&](std::size_t row, std::vector<render::Color>& words) {
    const std::uint32_t* colors = states.data() + row * n;
    render::code_words(*paint, [&](std::uint32_t slot) { return colors[slot]; }, words);
  };
  render::paint_block(*paint, rows, words_of_row, channels, channels_first, out.bytes(), nullptr);
  return out;
}

Result<ArrayBuffer> bytes_as_floats(const ArrayBuffer& bytes) {
  TV_TRY(ArrayBuffer out, allocate_array(ElementType::F32, bytes.shape()));
  float* target = out.as<float>();
  const std::uint8_t* source = bytes.bytes();
  for (std::size_t i = 0; i < bytes.byte_size(); ++i) target[i] = static_cast<float>(source[i]) / 255.0f;
  return out;
}

}  // namespace tv
