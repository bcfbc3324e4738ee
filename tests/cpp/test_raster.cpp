#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "pool.hpp"
#include "render/raster.hpp"

namespace tv::render {
namespace {

constexpr Matrix4 IDENTITY = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
// Perspective with a 90 degree field of view, near 0.1 and far 100: w = -z.
constexpr Matrix4 PERSPECTIVE = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -100.1 / 99.9, -1, 0, 0, -20 / 99.9, 0};
constexpr Color RED = make_color(255, 0, 0, 255), GREEN = make_color(0, 255, 0, 255);
// Added with alpha 255, this raises r by exactly one per draw: a coverage counter.
constexpr Color COUNT_ONE = make_color(1, 0, 0, 255);

// Under the identity, a point given in pixels of a frame `size` pixels square. For sizes that
// are powers of two and coordinates on a 1/256 grid, projection gives the pixels back exactly.
Point3 at_pixel(double x, double y, double size, double z = 0) { return {x * 2 / size - 1, 1 - y * 2 / size, z}; }

RasterFrame draw(std::uint32_t width, std::uint32_t height, const std::vector<DrawItem>& items,
                 const Matrix4& view_projection = IDENTITY) {
  RasterFrame frame = RasterFrame::create(width, height, 0).value();
  RasterScratch scratch;
  rasterize(scratch, frame, items, view_projection);
  return frame;
}

// Red, green and counting colors for up to two triangles, alive as long as any item.
constexpr std::array<Color, 2> REDS = {RED, RED}, GREENS = {GREEN, GREEN};

DrawItem item_of(std::span<const Triangle3> triangles, std::span<const Color> colors) {
  DrawItem item;
  item.model = IDENTITY;
  item.triangles = triangles;
  item.colors = colors;
  item.cull = CullMode::None;
  return item;
}

// Triangles in 1/256-pixel units: a jittered grid mesh whose cells share edges, plus loose
// triangles. Half the coordinates snap to half pixels, so many samples fall exactly on edges.
using GridTriangle = std::array<std::array<std::int64_t, 2>, 3>;

std::vector<GridTriangle> random_mesh(std::mt19937& random, int frame_size) {
  auto coordinate = [&](std::int64_t center) {
    std::int64_t v = center + static_cast<std::int64_t>(random() % 1025) - 512;
    return random() % 2 ? v / 128 * 128 : v;
  };
  const int cells = 5;
  const std::int64_t pitch = (frame_size + 8) * 256 / cells;
  std::vector<std::array<std::int64_t, 2>> points;
  for (int j = 0; j <= cells; ++j) {
    for (int i = 0; i <= cells; ++i) points.push_back({coordinate(i * pitch - 1024), coordinate(j * pitch - 1024)});
  }
  std::vector<GridTriangle> mesh;
  for (int j = 0; j < cells; ++j) {
    for (int i = 0; i < cells; ++i) {
      const auto& a = points[j * (cells + 1) + i];
      const auto& b = points[j * (cells + 1) + i + 1];
      const auto& c = points[(j + 1) * (cells + 1) + i];
      const auto& d = points[(j + 1) * (cells + 1) + i + 1];
      mesh.push_back({a, b, d});
      mesh.push_back(random() % 2 ? GridTriangle{a, d, c} : GridTriangle{c, d, a});
    }
  }
  for (int t = 0; t < 12; ++t) {
    const std::int64_t span = (frame_size + 16) * 256;
    auto loose = [&] { return coordinate(static_cast<std::int64_t>(random() % span) - 2048); };
    mesh.push_back({{{loose(), loose()}, {loose(), loose()}, {loose(), loose()}}});
  }
  return mesh;
}

std::vector<Triangle3> to_screen_triangles(const std::vector<GridTriangle>& mesh, int frame_size, double z) {
  std::vector<Triangle3> triangles;
  for (const GridTriangle& t : mesh) {
    Triangle3 out;
    for (int k = 0; k < 3; ++k) out[k] = at_pixel(t[k][0] / 256.0, t[k][1] / 256.0, frame_size, z);
    triangles.push_back(out);
  }
  return triangles;
}

// Whether the sample at the center of pixel (x, y) lies inside or on `t`, in exact integers.
bool covers(const GridTriangle& t, std::int64_t x, std::int64_t y) {
  const std::int64_t px = x * 256 + 128, py = y * 256 + 128;
  auto edge = [&](const auto& a, const auto& b) { return (py - a[1]) * (b[0] - a[0]) - (px - a[0]) * (b[1] - a[1]); };
  const std::int64_t area = edge(t[0], t[1]) + edge(t[1], t[2]) + edge(t[2], t[0]);
  const std::int64_t e[3] = {edge(t[1], t[2]), edge(t[2], t[0]), edge(t[0], t[1])};
  if (area > 0) return e[0] >= 0 && e[1] >= 0 && e[2] >= 0;
  return area < 0 && e[0] <= 0 && e[1] <= 0 && e[2] <= 0;
}

class RasterCoverage : public testing::TestWithParam<int> {};

TEST_P(RasterCoverage, AddCountsEverySampleOfEveryTriangleAndDepthTestKeepsOne) {
  constexpr int SIZE = 64;
  std::mt19937 random(GetParam());
  const std::vector<GridTriangle> mesh = random_mesh(random, SIZE);
  const std::vector<Triangle3> triangles = to_screen_triangles(mesh, SIZE, 0.25);
  const std::vector<Color> colors(triangles.size(), COUNT_ONE);
  DrawItem counting = item_of(triangles, colors);
  counting.blend = 2;
  DrawItem flat = counting;
  flat.depth_test = flat.depth_write = true;
  const RasterFrame counted = draw(SIZE, SIZE, {counting});
  const RasterFrame once = draw(SIZE, SIZE, {flat});
  for (int y = 0; y < SIZE; ++y) {
    for (int x = 0; x < SIZE; ++x) {
      std::uint32_t expected = 0;
      for (const GridTriangle& t : mesh) expected += covers(t, x, y);
      ASSERT_EQ(channel(counted.color.pixel(x, y), 0), expected) << "pixel " << x << "," << y;
      ASSERT_EQ(channel(once.color.pixel(x, y), 0), expected > 0 ? 1u : 0u) << "pixel " << x << "," << y;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RasterCoverage, testing::Range(1, 9));

TEST(RasterClipping, NearPlaneCutsATriangleIntoItsVisibleQuad) {
  constexpr int SIZE = 64;
  // d = z + w is 1 at the first two corners and -1 at the third, so the cut halves two edges.
  const std::vector<Triangle3> triangles = {
      {at_pixel(8, 8, SIZE), at_pixel(56, 8, SIZE), at_pixel(32, 56, SIZE, -2)}};
  const std::vector<GridTriangle> quad = {{{{8 * 256, 8 * 256}, {56 * 256, 8 * 256}, {44 * 256, 32 * 256}}},
                                          {{{8 * 256, 8 * 256}, {44 * 256, 32 * 256}, {20 * 256, 32 * 256}}}};
  const RasterFrame frame = draw(SIZE, SIZE, {item_of(triangles, REDS)});
  for (int y = 0; y < SIZE; ++y) {
    for (int x = 0; x < SIZE; ++x) {
      ASSERT_EQ(frame.color.pixel(x, y) == RED, covers(quad[0], x, y) || covers(quad[1], x, y)) << x << "," << y;
    }
  }
}

TEST(RasterClipping, WhatLiesBehindOrOutsideIsDropped) {
  // Points with z = -1 are in front of the eye, z = 1 behind it.
  const std::vector<Triangle3> behind = {{{{0, 0, 1}, {1, 0, 1}, {0, 1, 1}}}};
  const std::vector<Triangle3> outside = {{{{3, 3, -1}, {4, 3, -1}, {3, 4, -1}}}};
  const std::vector<Segment3> half_behind = {{{{0, 0, -1}, {0.5, 0.5, 1}}}};
  const std::vector<Segment3> in_front = {{{{0, 0, -1}, {0.5, 0.5, -1}}}};
  auto drawn_pixels = [&](const std::vector<Triangle3>& triangles, const std::vector<Segment3>& segments) {
    DrawItem item = item_of(triangles, REDS);
    item.segments = segments;
    item.segment_color = RED;
    item.line_width = 3;
    RasterFrame frame = RasterFrame::create(40, 40, 0).value();
    RasterScratch scratch;
    rasterize(scratch, frame, std::vector{item}, PERSPECTIVE);
    if (segments.empty()) {
      for (const auto& band : scratch.bands) EXPECT_TRUE(band.empty());
    }
    return std::count(frame.color.pixels().begin(), frame.color.pixels().end(), RED);
  };
  EXPECT_EQ(drawn_pixels(behind, {}), 0);
  EXPECT_EQ(drawn_pixels(outside, {}), 0);
  EXPECT_EQ(drawn_pixels({}, half_behind), 0);
  EXPECT_GT(drawn_pixels({}, in_front), 0);
}

TEST(RasterCulling, KeepsTrianglesBySignOfArea) {
  // Counter-clockwise with y up, as a front face is, gives a negative area on screen.
  const std::vector<Triangle3> front = {{Point3{-0.5, -0.5, 0}, Point3{0.5, -0.5, 0}, Point3{0, 0.5, 0}}};
  const std::vector<Triangle3> back = {{front[0][0], front[0][2], front[0][1]}};
  for (const auto& [cull, front_drawn, back_drawn] :
       {std::tuple{CullMode::Back, true, false}, {CullMode::Front, false, true}, {CullMode::None, true, true}}) {
    DrawItem item = item_of(front, REDS);
    item.cull = cull;
    EXPECT_EQ(draw(16, 16, {item}).color.pixel(8, 8) == RED, front_drawn) << int(cull);
    item.triangles = back;
    EXPECT_EQ(draw(16, 16, {item}).color.pixel(8, 8) == RED, back_drawn) << int(cull);
  }
}

TEST(RasterDepth, EqualDepthKeepsTheFirstAndTranslucentOverStillWritesDepth) {
  const std::vector<Triangle3> near_square = {{{{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}}}, {{{-1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}}};
  const std::vector<Triangle3> far_square = {{{{-1, -1, 0.5}, {1, -1, 0.5}, {1, 1, 0.5}}},
                                             {{{-1, -1, 0.5}, {1, 1, 0.5}, {-1, 1, 0.5}}}};
  DrawItem first = item_of(near_square, REDS);
  DrawItem second = item_of(near_square, GREENS);
  first.depth_test = first.depth_write = second.depth_test = second.depth_write = true;
  EXPECT_EQ(draw(8, 8, {first, second}).color.pixel(3, 4), RED);

  const Color translucent = make_color(0, 0, 255, 77);
  const std::vector<Color> glass_colors(2, translucent);
  DrawItem glass = item_of(near_square, glass_colors);
  glass.blend = 1;
  glass.depth_test = glass.depth_write = true;
  DrawItem behind = item_of(far_square, GREENS);
  behind.depth_test = true;
  EXPECT_EQ(draw(8, 8, {glass, behind}).color.pixel(3, 4), blend_over(0, translucent));
}

class RasterPolygonOffset : public testing::TestWithParam<bool> {};

TEST_P(RasterPolygonOffset, PullsAnOutlineInFrontOfItsOwnFace) {
  const bool offset = GetParam();
  const std::vector<Triangle3> face = {{{{-1, -1, 0.3}, {1, -1, 0.3}, {0, 1, 0.3}}}};
  const std::vector<Segment3> outline = {{{{-1, 0, 0.3}, {1, 0, 0.3}}}};
  DrawItem fill = item_of(face, REDS);
  fill.depth_test = fill.depth_write = true;
  DrawItem edges = fill;
  edges.triangles = {};
  edges.segments = outline;
  edges.segment_color = GREEN;
  edges.line_width = 2;
  edges.polygon_offset = {offset, -1.0f, -4.0f};
  EXPECT_EQ(draw(32, 32, {fill, edges}).color.pixel(16, 16), offset ? GREEN : RED);
}

INSTANTIATE_TEST_SUITE_P(OnOff, RasterPolygonOffset, testing::Bool());

TEST(RasterBands, MissingColorsAreWhiteAndAShortLastBandIsFilled) {
  const std::vector<Triangle3> cover = {{{{-2, -2, 0}, {2, -2, 0}, {2, 2, 0}}}, {{{-2, -2, 0}, {2, 2, 0}, {-2, 2, 0}}}};
  const RasterFrame frame = draw(10, 40, {item_of(cover, std::span(REDS).first(1))});
  EXPECT_EQ(frame.color.pixel(9, 39), RED);
  EXPECT_EQ(frame.color.pixel(0, 0), 0xffffffffu);
  EXPECT_EQ(std::count(frame.color.pixels().begin(), frame.color.pixels().end(), 0u), 0);
}

// A perspective scene with every material, near-plane crossings and segments, for digests.
struct RandomScene {
  std::vector<std::vector<Triangle3>> triangles;
  std::vector<std::vector<Color>> colors;
  std::vector<std::vector<Segment3>> segments;
  std::vector<DrawItem> items;
  Matrix4 view_projection{};

  explicit RandomScene(unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(-1.5, 1.5);
    auto point = [&] { return Point3{unit(random), unit(random), unit(random)}; };
    const int count = 18;
    triangles.resize(count);
    colors.resize(count);
    segments.resize(count);
    for (int i = 0; i < count; ++i) {
      for (int t = 0; t < 40; ++t) {
        triangles[i].push_back({point(), point(), point()});
        if (t % 5) colors[i].push_back(random());
      }
      for (int s = 0; s < 10; ++s) segments[i].push_back({point(), point()});
      DrawItem item;
      item.model = IDENTITY;
      item.model[14] = -1.5 - 3 * unit(random);  // some items reach behind the eye
      item.triangles = triangles[i];
      item.colors = colors[i];
      item.segments = segments[i];
      item.line_width = 1 + i % 4;
      item.segment_color = random();
      item.polygon_offset = {i % 4 == 1, -1.0f, -4.0f};
      item.cull = static_cast<CullMode>(i % 3);
      item.blend = static_cast<std::uint8_t>(i % 4);
      item.depth_write = i % 5 != 0;
      item.depth_test = i % 7 != 0;
      items.push_back(item);
    }
    view_projection = PERSPECTIVE;
  }
};

std::uint64_t digest(const RasterFrame& frame) {
  std::uint64_t hash = 1469598103934665603ull;
  auto mix = [&](const void* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) hash = (hash ^ static_cast<const std::uint8_t*>(data)[i]) * 1099511628211ull;
  };
  mix(frame.color.pixels().data(), frame.color.byte_size());
  mix(frame.depth.data(), frame.depth.size() * sizeof(float));
  return hash;
}

std::uint64_t scene_digest() {
  const RandomScene scene(5);
  return digest(draw(203, 141, scene.items, scene.view_projection));
}

// Runs itself in child processes with different pool sizes, which only print their digest.
TEST(RasterThreads, SameBytesOnAnyPoolSizeAndInsidePoolTasks) {
  const std::uint64_t here = scene_digest();
  if (std::getenv("TORVANE_PRINT_SCENE_DIGEST") != nullptr) {
    std::printf("scene digest %016llx\n", static_cast<unsigned long long>(here));
    return;
  }
  char executable[4096] = {};
  ASSERT_GT(readlink("/proc/self/exe", executable, sizeof executable - 1), 0);
  for (int threads : {1, 2, 8}) {
    const std::string command = "TORVANE_PRINT_SCENE_DIGEST=1 RAYON_NUM_THREADS=" + std::to_string(threads) + " '" + executable +
                                "' --gtest_filter=RasterThreads.SameBytesOnAnyPoolSizeAndInsidePoolTasks";
    FILE* child = popen(command.c_str(), "r");
    ASSERT_NE(child, nullptr);
    char line[256];
    unsigned long long printed = 0;
    while (std::fgets(line, sizeof line, child)) std::sscanf(line, "scene digest %llx", &printed);
    ASSERT_EQ(pclose(child), 0);
    EXPECT_EQ(printed, here) << threads << " threads";
  }
  std::vector<std::uint64_t> nested(4);
  pool::for_each_task(nested.size(), [&](std::size_t i) { nested[i] = scene_digest(); });
  for (std::uint64_t d : nested) EXPECT_EQ(d, here);
}

}  // namespace
}  // namespace tv::render
