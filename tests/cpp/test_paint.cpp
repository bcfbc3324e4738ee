#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "render/draw.hpp"
#include "render/paint.hpp"
#include "simulator.hpp"
#include "symbolic.hpp"

namespace tv::render {
namespace {

struct Solved {
  Simulator sim;
  std::shared_ptr<const StickerTable> stickers;
};

Solved solved(const char* query) {
  auto sim = Simulator::from_recipe_text(query);
  EXPECT_TRUE(sim.ok()) << query;
  auto stickers = sim->sticker_table();
  EXPECT_TRUE(stickers.ok()) << query;
  sim->view().show_arrows = false;
  return {std::move(sim).value(), *stickers};
}

std::vector<std::uint8_t> painted(const PaintTable& table, const StickerTable& stickers) {
  std::vector<Color> words;
  code_words(table, [&](std::uint32_t slot) { return stickers.solved_colors[slot]; }, words);
  std::vector<std::uint8_t> frame(std::size_t{table.width} * table.height * 4);
  paint_frame(table, words, frame);
  return frame;
}

std::vector<std::uint8_t> drawn(const Simulator& sim, std::uint32_t width, std::uint32_t height) {
  auto image = draw_scene(sim, width, height);
  EXPECT_TRUE(image.ok());
  std::vector<std::uint8_t> bytes;
  for (Color c : image->pixels())
    for (int k = 0; k < 4; ++k) bytes.push_back(static_cast<std::uint8_t>(c >> (8 * k)));
  return bytes;
}

struct View {
  std::uint32_t supersample, width, height;
  double line_width;
  Color background;
  bool edges, pieces;
};

class PaintedEqualsDrawn : public ::testing::TestWithParam<std::tuple<const char*, View>> {};

// The solved copy painted by lookup is the frame the rasterizer draws, byte for byte.
TEST_P(PaintedEqualsDrawn, SolvedCopies) {
  const auto& [query, view] = GetParam();
  Solved s = solved(query);
  s.sim.view().supersample = view.supersample;
  s.sim.view().line_width = view.line_width;
  s.sim.view().background = view.background;
  s.sim.view().show_edges = view.edges;
  s.sim.view().show_pieces = view.pieces;
  render::apply_camera_keywords(s.sim.camera(), {0.6, 0.45, std::nullopt});
  auto table = build_paint_table(s.sim, *s.stickers, view.width, view.height);
  ASSERT_TRUE(table.ok());
  const auto frame = painted(*table, *s.stickers);
  EXPECT_EQ(frame, drawn(s.sim, view.width, view.height));
  std::set<std::vector<std::uint8_t>> pixels;
  for (std::size_t p = 0; p < frame.size(); p += 4) pixels.insert({frame.begin() + p, frame.begin() + p + 4});
  EXPECT_GT(pixels.size(), 2u);  // the puzzle is in the picture
}

INSTANTIATE_TEST_SUITE_P(
    Views, PaintedEqualsDrawn,
    ::testing::Combine(::testing::Values("?shell=C$1&cut=C$1/3", "?shell=D$1&cut=D$1/2", "?shell=T$1&cut=T$1/4"),
                       ::testing::Values(View{1, 64, 64, 1.0, 0, true, true}, View{2, 33, 70, 2.5, 0, true, true},
                                         View{3, 41, 29, 1.0, 0xff000000, true, true},
                                         View{2, 40, 40, 1.0, 0xff204060, false, true},
                                         View{2, 40, 40, 1.5, 0xffffffff, true, false})));

TEST(PaintTable, EntriesAreAsNarrowAsTheCodes) {
  Solved cube = solved("?shell=C$1&cut=C$1/3");
  auto table = build_paint_table(cube.sim, *cube.stickers, 16, 16);
  ASSERT_TRUE(table.ok());
  EXPECT_TRUE(std::holds_alternative<std::vector<std::uint8_t>>(table->entries));
  Solved big = solved("?shell=C$1&cut=C$1/7&cut=C$3/7&cut=C$5/7");  // 294 slots
  auto wide = build_paint_table(big.sim, *big.stickers, 16, 16);
  ASSERT_TRUE(wide.ok());
  EXPECT_EQ(wide->slot_count, 294u);
  EXPECT_TRUE(std::holds_alternative<std::vector<std::uint16_t>>(wide->entries));
}

TEST(PaintTables, KeepTheFourMostRecentlyUsedViews) {
  Solved s = solved("?shell=C$1&cut=C$1/3");
  PaintTables tables;
  const auto front_width = [&] { return tables.tables().front()->width; };
  const auto widths = [&] {
    std::vector<std::uint32_t> w;
    for (const auto& t : tables.tables()) w.push_back(t->width);
    return w;
  };
  for (std::uint32_t w : {8u, 9u, 10u, 11u}) ASSERT_TRUE(tables.lookup(s.sim, *s.stickers, w, 8).ok());
  EXPECT_EQ(widths(), (std::vector<std::uint32_t>{11, 10, 9, 8}));
  const PaintTable* nine = tables.tables()[2].get();
  ASSERT_TRUE(tables.lookup(s.sim, *s.stickers, 9, 8).ok());
  EXPECT_EQ(tables.tables().front().get(), nine);  // found, not rebuilt
  EXPECT_EQ(widths(), (std::vector<std::uint32_t>{9, 11, 10, 8}));
  ASSERT_TRUE(tables.lookup(s.sim, *s.stickers, 12, 8).ok());
  EXPECT_EQ(widths(), (std::vector<std::uint32_t>{12, 9, 11, 10}));
  // A line width changed and changed back finds its table again.
  const double line_width = s.sim.view().line_width;
  s.sim.view().line_width = 3.0;
  ASSERT_TRUE(tables.lookup(s.sim, *s.stickers, 12, 8).ok());
  s.sim.view().line_width = line_width;
  const PaintTable* twelve = tables.tables()[1].get();
  ASSERT_TRUE(tables.lookup(s.sim, *s.stickers, 12, 8).ok());
  EXPECT_EQ(tables.tables().front().get(), twelve);
  EXPECT_EQ(front_width(), 12u);
  // Floats are keys by their bits: -0.0 is not 0.0, and NaN finds itself.
  s.sim.camera().target[0] = -0.0;
  ASSERT_TRUE(tables.lookup(s.sim, *s.stickers, 12, 8).ok());
  EXPECT_NE(tables.tables().front().get(), twelve);
  s.sim.camera().fov = std::nan("");
  ASSERT_TRUE(tables.lookup(s.sim, *s.stickers, 12, 8).ok());
  const PaintTable* nan = tables.tables().front().get();
  ASSERT_TRUE(tables.lookup(s.sim, *s.stickers, 12, 8).ok());
  EXPECT_EQ(tables.tables().front().get(), nan);
}

// Rows painted as one block, in any layout, are the rows painted one by one.
TEST(PaintBlock, RowsLandInTheirOwnStretches) {
  Solved s = solved("?shell=C$1&cut=C$1/3");
  s.sim.view().supersample = 2;
  auto table = build_paint_table(s.sim, *s.stickers, 24, 20);
  ASSERT_TRUE(table.ok());
  std::vector<std::vector<std::uint16_t>> rows(37, s.stickers->solved_colors);
  for (std::size_t r = 0; r < rows.size(); ++r) std::rotate(rows[r].begin(), rows[r].begin() + r, rows[r].end());
  const auto words_of_row = [&](std::size_t r, std::vector<Color>& words) {
    code_words(*table, [&](std::uint32_t slot) { return rows[r][slot]; }, words);
  };
  const std::size_t pixels = 24 * 20;
  for (std::uint32_t channels : {3u, 4u}) {
    for (bool first : {false, true}) {
      std::vector<std::uint8_t> bytes(rows.size() * pixels * channels);
      std::vector<float> floats(bytes.size());
      paint_block(*table, rows.size(), words_of_row, channels, first, bytes.data(), nullptr);
      paint_block(*table, rows.size(), words_of_row, channels, first, nullptr, floats.data());
      for (std::size_t r = 0; r < rows.size(); ++r) {
        std::vector<Color> words;
        words_of_row(r, words);
        std::vector<std::uint8_t> frame(pixels * 4), one(pixels * channels);
        paint_frame(*table, words, frame);
        write_frame(frame, 24, 20, channels, first, one.data(), nullptr);
        ASSERT_TRUE(std::equal(one.begin(), one.end(), bytes.begin() + r * one.size())) << r;
        for (std::size_t i = 0; i < one.size(); ++i)
          ASSERT_EQ(floats[r * one.size() + i], static_cast<float>(one[i]) / 255.0f);
      }
    }
  }
}

TEST(WriteFrame, ChannelsLastFirstAndFloats) {
  const std::vector<std::uint8_t> frame = {1, 2, 3, 255, 5, 6, 7, 0};  // 2 x 1 pixels
  std::vector<std::uint8_t> last(6), first(8);
  std::vector<float> floats(8);
  write_frame(frame, 2, 1, 3, false, last.data(), nullptr);
  write_frame(frame, 2, 1, 4, true, first.data(), nullptr);
  write_frame(frame, 2, 1, 4, true, nullptr, floats.data());
  EXPECT_EQ(last, (std::vector<std::uint8_t>{1, 2, 3, 5, 6, 7}));
  EXPECT_EQ(first, (std::vector<std::uint8_t>{1, 5, 2, 6, 3, 7, 255, 0}));
  EXPECT_EQ(floats[6], 1.0f);
  EXPECT_EQ(floats[7], 0.0f);
}

}  // namespace
}  // namespace tv::render
