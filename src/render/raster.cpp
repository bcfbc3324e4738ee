#include "render/raster.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "pool.hpp"

namespace tv::render {

namespace {

// Points with w at or below this are behind the eye, or too close to it to divide by.
constexpr double MIN_W = 1e-9;
constexpr Color OPAQUE_WHITE = 0xffffffff;

Matrix4 multiply(const Matrix4& a, const Matrix4& b) {
  Matrix4 out{};
  for (int column = 0; column < 4; ++column) {
    for (int row = 0; row < 4; ++row) {
      double sum = a[row] * b[column * 4];
      for (int k = 1; k < 4; ++k) sum = sum + a[k * 4 + row] * b[column * 4 + k];
      out[column * 4 + row] = sum;
    }
  }
  return out;
}

ClipVertex transform(const Matrix4& m, const Point3& p) {
  return {m[0] * p.x + m[4] * p.y + m[8] * p.z + m[12], m[1] * p.x + m[5] * p.y + m[9] * p.z + m[13],
          m[2] * p.x + m[6] * p.y + m[10] * p.z + m[14], m[3] * p.x + m[7] * p.y + m[11] * p.z + m[15]};
}

double near_distance(const ClipVertex& v) { return v.z + v.w; }

bool inside_near(const ClipVertex& v) { return v.w > MIN_W && near_distance(v) >= 0; }

ClipVertex interpolate(const ClipVertex& a, const ClipVertex& b, double t) {
  return {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, a.z + (b.z - a.z) * t, a.w + (b.w - a.w) * t};
}

// Screen x runs right and y down from the top-left corner; depth maps [-1, 1] to [0, 1].
ScreenVertex project(const ClipVertex& v, double width, double height) {
  const double inverse_w = 1.0 / (v.w > MIN_W ? v.w : MIN_W);
  return {(v.x * inverse_w + 1.0) * 0.5 * width, (1.0 - v.y * inverse_w) * 0.5 * height,
          (v.z * inverse_w + 1.0) * 0.5};
}

// Twice the signed area; front faces of a solid come out negative, since y runs down.
double signed_area(const ScreenVertex& a, const ScreenVertex& b, const ScreenVertex& c) {
  return (c.y - a.y) * (b.x - a.x) - (c.x - a.x) * (b.y - a.y);
}

bool survives_culling(double area, CullMode cull) {
  switch (cull) {
    case CullMode::Back: return area < 0;
    case CullMode::Front: return area > 0;
    case CullMode::None: break;
  }
  return area != 0;
}

// Converts an integral float to u32, with NaN and everything below 0 giving 0 and everything
// above the range giving its top.
std::uint32_t clamp_to_u32(double v) {
  if (!(v > 0)) return 0;
  if (v >= 4294967295.0) return std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(v);
}

struct Box {
  double min_x, max_x, min_y, max_y;
};

Box bounds(const ScreenTriangle& t) {
  const auto& [a, b, c] = t.vertices;
  return {std::min({a.x, b.x, c.x}), std::max({a.x, b.x, c.x}), std::min({a.y, b.y, c.y}),
          std::max({a.y, b.y, c.y})};
}

Material material_of(const DrawItem& item) {
  return {item.polygon_offset.enabled ? 1u : 0u, item.polygon_offset.factor, item.polygon_offset.units,
          item.depth_write, item.depth_test, item.blend};
}

// Appends the triangles of one item to the frame's list: transform, near clip, project, cull.
class TriangleCollector {
 public:
  TriangleCollector(RasterScratch& scratch, const Framebuffer& frame)
      : scratch_(scratch), width_(frame.width()), height_(frame.height()) {}

  void add_item(const DrawItem& item, const Matrix4& transform_to_clip, std::uint32_t material) {
    for (std::size_t t = 0; t < item.triangles.size(); ++t) {
      const Color color = t < item.colors.size() ? item.colors[t] : OPAQUE_WHITE;
      add_triangle(item.triangles[t], transform_to_clip, color, material, item.cull);
    }
    for (const Segment3& segment : item.segments) {
      add_segment(segment, transform_to_clip, item.line_width * 0.5, item.segment_color, material);
    }
  }

 private:
  void add_triangle(const Triangle3& triangle, const Matrix4& m, Color color, std::uint32_t material,
                    CullMode cull) {
    const std::array<ClipVertex, 3> v = {transform(m, triangle[0]), transform(m, triangle[1]),
                                         transform(m, triangle[2])};
    if (inside_near(v[0]) && inside_near(v[1]) && inside_near(v[2])) {
      keep_if_facing({project(v[0]), project(v[1]), project(v[2])}, color, material, cull);
      return;
    }
    if (near_distance(v[0]) < 0 && near_distance(v[1]) < 0 && near_distance(v[2]) < 0) return;
    clip_to_near_plane(v);
    const std::vector<ClipVertex>& polygon = scratch_.clipped;
    if (polygon.size() < 3) return;
    const ScreenVertex first = project(polygon[0]);
    ScreenVertex previous = project(polygon[1]);
    for (std::size_t i = 2; i < polygon.size(); ++i) {
      const ScreenVertex next = project(polygon[i]);
      keep_if_facing({first, previous, next}, color, material, cull);
      previous = next;
    }
  }

  // Sutherland-Hodgman against z + w = 0, walking the edges 0-1, 1-2, 2-0.
  void clip_to_near_plane(const std::array<ClipVertex, 3>& v) {
    std::vector<ClipVertex>& out = scratch_.clipped;
    out.clear();
    for (std::size_t i = 0; i < 3; ++i) {
      const ClipVertex& a = v[i];
      const ClipVertex& b = v[(i + 1) % 3];
      const double da = near_distance(a);
      const double db = near_distance(b);
      if (da >= 0) out.push_back(a);
      if ((da >= 0) != (db >= 0)) out.push_back(interpolate(a, b, da / (da - db)));
    }
  }

  // A segment is a quad of its screen length and the line width, as two triangles; a segment
  // with an end behind the eye is dropped whole rather than clipped.
  void add_segment(const Segment3& segment, const Matrix4& m, double half_width, Color color,
                   std::uint32_t material) {
    const ClipVertex a = transform(m, segment[0]);
    const ClipVertex b = transform(m, segment[1]);
    if (!(a.w > MIN_W) || !(b.w > MIN_W)) return;
    const ScreenVertex pa = project(a);
    const ScreenVertex pb = project(b);
    const double dx = pb.x - pa.x;
    const double dy = pb.y - pa.y;
    const double length = std::sqrt(dx * dx + dy * dy);
    if (length < 1e-12) return;
    const double nx = -dy / length * half_width;
    const double ny = dx / length * half_width;
    const ScreenVertex p = {pa.x + nx, pa.y + ny, pa.depth};
    const ScreenVertex q = {pa.x - nx, pa.y - ny, pa.depth};
    const ScreenVertex r = {pb.x - nx, pb.y - ny, pb.depth};
    const ScreenVertex s = {pb.x + nx, pb.y + ny, pb.depth};
    keep_if_facing({p, q, r}, color, material, CullMode::None);
    keep_if_facing({p, r, s}, color, material, CullMode::None);
  }

  ScreenVertex project(const ClipVertex& v) const { return render::project(v, width_, height_); }

  void keep_if_facing(const std::array<ScreenVertex, 3>& v, Color color, std::uint32_t material,
                      CullMode cull) {
    if (survives_culling(signed_area(v[0], v[1], v[2]), cull)) scratch_.triangles.push_back({v, color, material});
  }

  RasterScratch& scratch_;
  double width_;
  double height_;
};

// Lists, for each band of 32 rows, the triangles whose box reaches it, in submission order.
void bin_into_bands(RasterScratch& scratch, std::uint32_t width, std::uint32_t height) {
  scratch.bands.resize((std::uint64_t{height} + BAND_ROWS - 1) / BAND_ROWS);
  for (auto& band : scratch.bands) band.clear();
  TV_ENSURE(scratch.triangles.size() <= std::numeric_limits<std::uint32_t>::max(),
            "more screen triangles than a 32-bit index counts");
  for (std::size_t i = 0; i < scratch.triangles.size(); ++i) {
    const Box box = bounds(scratch.triangles[i]);
    if (box.max_x < 0 || box.max_y < 0 || box.min_x > width - 1.0 || box.min_y > height - 1.0) continue;
    const std::uint32_t first = clamp_to_u32(std::floor(box.min_y)) / BAND_ROWS;
    const std::uint32_t last = std::min(height - 1, clamp_to_u32(std::ceil(box.max_y))) / BAND_ROWS;
    for (std::uint32_t b = first; b <= last; ++b) scratch.bands[b].push_back(static_cast<std::uint32_t>(i));
  }
}

// Zero unless the material's polygon offset is on; the slope term is capped so that steep
// faces do not push an outline through the solid.
double depth_bias(const ScreenTriangle& t, double area, const Material& material) {
  if (material.offset_kind != 1) return 0.0;
  const auto& [v0, v1, v2] = t.vertices;
  double slope = 0.0;
  if (!(std::abs(area) < 1e-6)) {
    const double dzdx = ((v2.y - v0.y) * (v1.depth - v0.depth) - (v1.y - v0.y) * (v2.depth - v0.depth)) / area;
    const double dzdy = ((v2.depth - v0.depth) * (v1.x - v0.x) - (v2.x - v0.x) * (v1.depth - v0.depth)) / area;
    slope = std::min(std::max(std::abs(dzdx), std::abs(dzdy)), 1e-5);
  }
  return static_cast<double>(material.offset_factor) * slope + static_cast<double>(material.offset_units) * 1e-6;
}

// The edge function opposite one vertex: from `a` to `b`, at a sample (px, py), stepped by
// addition from the first sample of the box.
struct Edge {
  double value, step_x, step_y;

  Edge(const ScreenVertex& a, const ScreenVertex& b, double px, double py)
      : value((py - a.y) * (b.x - a.x) - (px - a.x) * (b.y - a.y)), step_x(a.y - b.y), step_y(b.x - a.x) {}
};

class BandFiller {
 public:
  BandFiller(const RasterScratch& scratch, RasterFrame& frame, std::uint32_t band)
      : scratch_(scratch),
        frame_(frame),
        first_row_(band * BAND_ROWS),
        last_row_(std::min(band * BAND_ROWS + (BAND_ROWS - 1), frame.color.height() - 1)) {}

  void fill(std::span<const std::uint32_t> triangles) {
    for (std::uint32_t index : triangles) fill_triangle(scratch_.triangles[index]);
  }

 private:
  void fill_triangle(const ScreenTriangle& t) {
    const Box box = bounds(t);
    const std::uint32_t x0 = clamp_to_u32(std::floor(box.min_x));
    const std::uint32_t x1 = std::min(frame_.color.width() - 1, clamp_to_u32(std::ceil(box.max_x)));
    const std::uint32_t y0 = std::max(clamp_to_u32(std::floor(box.min_y)), first_row_);
    const std::uint32_t y1 = std::min(last_row_, clamp_to_u32(std::ceil(box.max_y)));
    if (x0 > x1 || y0 > y1) return;
    const auto& [v0, v1, v2] = t.vertices;
    const double area = signed_area(v0, v1, v2);
    if (area == 0) return;
    const Material& material = scratch_.materials[t.material];
    const double bias = depth_bias(t, area, material);
    const BlendMode mode = blend_mode_from_number(material.blend);
    Edge e0(v1, v2, px_of(x0), px_of(y0)), e1(v2, v0, px_of(x0), px_of(y0)), e2(v0, v1, px_of(x0), px_of(y0));
    const Shading shading{t, material, mode, bias, 1 / area};
    for (std::uint32_t y = y0; y <= y1; ++y) {
      if (area > 0) {
        fill_row<true>(y, x0, x1, {e0.value, e1.value, e2.value}, {e0.step_x, e1.step_x, e2.step_x}, shading);
      } else {
        fill_row<false>(y, x0, x1, {e0.value, e1.value, e2.value}, {e0.step_x, e1.step_x, e2.step_x}, shading);
      }
      e0.value += e0.step_y;
      e1.value += e1.step_y;
      e2.value += e2.step_y;
    }
  }

  static double px_of(std::uint32_t x) { return x + 0.5; }

  struct Shading {
    const ScreenTriangle& triangle;
    const Material& material;
    BlendMode mode;
    double bias;
    double inverse_area;
  };

  // A sample is covered when all three edge values have the area's sign, zero included.
  template <bool PositiveArea>
  static bool covered(const std::array<double, 3>& w) {
    if constexpr (PositiveArea) return (w[0] >= 0) & (w[1] >= 0) & (w[2] >= 0);
    return (w[0] <= 0) & (w[1] <= 0) & (w[2] <= 0);
  }

  static void step(std::array<double, 3>& w, const std::array<double, 3>& by) {
    w[0] += by[0];
    w[1] += by[1];
    w[2] += by[2];
  }

  // Adding a constant keeps each edge value monotone along the row (NaN stays NaN), so the
  // covered samples of a row are one run: step to its start, shade it, and stop where it ends.
  template <bool PositiveArea>
  void fill_row(std::uint32_t y, std::uint32_t x0, std::uint32_t x1, std::array<double, 3> w,
                const std::array<double, 3>& step_x, const Shading& s) {
    std::uint32_t x = x0;
    while (!covered<PositiveArea>(w)) {
      if (x == x1) return;
      step(w, step_x);
      ++x;
    }
    const std::span<Color> colors = frame_.color.row(y);
    float* depths = frame_.depth.data() + std::size_t{y} * frame_.color.width();
    const auto& [v0, v1, v2] = s.triangle.vertices;
    while (true) {
      const auto depth = static_cast<float>((v0.depth * w[0] + v1.depth * w[1] + v2.depth * w[2]) * s.inverse_area + s.bias);
      // A stored depth that is not strictly greater keeps the pixel; so does NaN.
      if (!s.material.depth_test || depths[x] > depth) {
        if (s.material.depth_write) depths[x] = depth;
        colors[x] = blend(colors[x], s.triangle.color, s.mode);
      }
      if (x == x1) return;
      step(w, step_x);
      ++x;
      if (!covered<PositiveArea>(w)) return;
    }
  }

  const RasterScratch& scratch_;
  RasterFrame& frame_;
  std::uint32_t first_row_;
  std::uint32_t last_row_;
};

}  // namespace

Result<RasterFrame> RasterFrame::create(std::uint32_t width, std::uint32_t height, Color background) {
  TV_TRY(Framebuffer color, Framebuffer::create(width, height, background));
  std::vector<float> depth(color.pixels().size(), std::numeric_limits<float>::infinity());
  return RasterFrame{std::move(color), std::move(depth)};
}

void rasterize(RasterScratch& scratch, RasterFrame& frame, std::span<const DrawItem> items,
               const Matrix4& view_projection) {
  const std::uint32_t width = frame.color.width();
  const std::uint32_t height = frame.color.height();
  if (items.empty() || width == 0 || height == 0) return;
  TV_ENSURE(frame.depth.size() == frame.color.pixels().size(), "depth buffer does not match the frame");

  scratch.materials.clear();
  scratch.triangles.clear();
  TriangleCollector collector(scratch, frame.color);
  for (std::size_t i = 0; i < items.size(); ++i) {
    scratch.materials.push_back(material_of(items[i]));
    collector.add_item(items[i], multiply(view_projection, items[i].model), static_cast<std::uint32_t>(i));
  }
  if (scratch.triangles.empty()) return;

  bin_into_bands(scratch, width, height);
  pool::for_each_task(scratch.bands.size(), [&](std::size_t band) {
    BandFiller(scratch, frame, static_cast<std::uint32_t>(band)).fill(scratch.bands[band]);
  });
}

}  // namespace tv::render
