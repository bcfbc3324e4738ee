// The software rasterizer: flat-colored triangles and thick line segments with a depth buffer.
//
//   DrawItem      the one input record: a model matrix, triangles with colors, segments, and
//                 the state they are drawn with
//   RasterFrame   the working frame: colors plus one 32-bit float depth per pixel
//   rasterize     draws items in order into a RasterFrame
//
// The road of a frame: every item's triangles are transformed by view_projection * model,
// clipped against the near plane z + w = 0 and projected; segments become two triangles each.
// The resulting ScreenTriangles are binned into bands of 32 rows, and each band is filled by
// one pool task, which walks its triangles in submission order. A pixel belongs to exactly one
// band, so the bytes written never depend on the number of threads or the schedule, and no
// lock or atomic is needed.
//
// A pixel is covered when its center (x + 0.5, y + 0.5) lies inside or on all three edges.
// There is no tie-break: a center on an edge shared by two triangles is drawn by both.
//
// Every float expression is evaluated in the order written, without contraction, so that
// results are the same on every build.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "render/framebuffer.hpp"

namespace tv::render {

struct Point3 {
  double x = 0, y = 0, z = 0;
};
using Triangle3 = std::array<Point3, 3>;
using Segment3 = std::array<Point3, 2>;
// A 4 x 4 matrix in column order: element (row, column) is at column * 4 + row.
using Matrix4 = std::array<double, 16>;

enum class CullMode : std::uint8_t { Back = 0, Front = 1, None = 2 };

struct PolygonOffset {
  bool enabled = false;
  float factor = 0;
  float units = 0;
};

struct DrawItem {
  Matrix4 model{};
  std::span<const Triangle3> triangles;
  // One per triangle; a triangle beyond the end of this list is opaque white.
  std::span<const Color> colors;
  std::span<const Segment3> segments;
  // Full width of a segment in device pixels of the working frame.
  double line_width = 1.0;
  Color segment_color = 0;
  PolygonOffset polygon_offset;
  CullMode cull = CullMode::Back;
  // 0 replace, 1 over, any other number add.
  std::uint8_t blend = 0;
  bool depth_write = false;
  bool depth_test = false;
};

// The per-item state that the fill needs, at the item's index.
struct Material {
  std::uint32_t offset_kind = 0;  // 1: polygon offset on
  float offset_factor = 0;
  float offset_units = 0;
  std::uint8_t depth_write = 0;
  std::uint8_t depth_test = 0;
  std::uint8_t blend = 0;
};

struct ScreenVertex {
  double x = 0, y = 0, depth = 0;
};

struct ScreenTriangle {
  std::array<ScreenVertex, 3> vertices;
  Color color = 0;
  std::uint32_t material = 0;
};

struct ClipVertex {
  double x = 0, y = 0, z = 0, w = 0;
};

// Working lists of one frame, kept between frames only so that their storage is reused.
struct RasterScratch {
  std::vector<Material> materials;
  std::vector<ScreenTriangle> triangles;
  std::vector<ClipVertex> clipped;
  std::vector<std::vector<std::uint32_t>> bands;
};

struct RasterFrame {
  Framebuffer color;
  std::vector<float> depth;

  // Colors all `background`, depths all positive infinity.
  static Result<RasterFrame> create(std::uint32_t width, std::uint32_t height, Color background);
};

inline constexpr std::uint32_t BAND_ROWS = 32;

void rasterize(RasterScratch& scratch, RasterFrame& frame, std::span<const DrawItem> items,
               const Matrix4& view_projection);

}  // namespace tv::render
