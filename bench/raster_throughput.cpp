// Rasterizer throughput: a 1024 x 1024 frame of 6000 small opaque triangles, each with an
// outline segment under polygon offset, the load of a puzzle frame drawn at twice its size.
// Prints milliseconds per frame and screen triangles per second; run it with
// RAYON_NUM_THREADS=1 and =2 to see how the bands scale. Built against the core library:
//
//   g++ -O2 -std=c++20 -ffp-contract=off -Isrc bench/raster_throughput.cpp \
//       build/release/libtorvane_core.a -ltbb -lz -lgmp -o build/raster_throughput
#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

#include "pool.hpp"
#include "render/raster.hpp"

using namespace tv::render;

int main() {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> unit(-1, 1);
  std::vector<Triangle3> triangles;
  std::vector<Segment3> segments;
  for (int t = 0; t < 6000; ++t) {
    const Point3 c{unit(random), unit(random), unit(random)};
    auto near_c = [&] { return Point3{c.x + 0.05 * unit(random), c.y + 0.05 * unit(random), c.z}; };
    triangles.push_back({near_c(), near_c(), near_c()});
    segments.push_back({triangles.back()[0], triangles.back()[1]});
  }
  const std::vector<Color> colors(triangles.size(), make_color(255, 0, 0, 255));
  DrawItem fill;
  fill.model = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, -3, 1};
  fill.triangles = triangles;
  fill.colors = colors;
  fill.cull = CullMode::None;
  fill.depth_test = fill.depth_write = true;
  DrawItem outline = fill;
  outline.triangles = {};
  outline.segments = segments;
  outline.line_width = 2;
  outline.polygon_offset = {true, -1.0f, -4.0f};
  const std::vector<DrawItem> items = {fill, outline};
  // 90 degree field of view, near 0.1, far 100.
  const Matrix4 perspective = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -100.1 / 99.9, -1, 0, 0, -20 / 99.9, 0};

  RasterScratch scratch;
  RasterFrame frame = RasterFrame::create(1024, 1024, 0).value();
  const int frames = 50;
  const auto start = std::chrono::steady_clock::now();
  for (int f = 0; f < frames; ++f) rasterize(scratch, frame, items, perspective);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  std::printf("%zu threads: %.2f ms a frame, %.0f screen triangles per second\n", tv::pool::thread_count(),
              seconds.count() * 1e3 / frames, static_cast<double>(scratch.triangles.size()) * frames / seconds.count());
}
