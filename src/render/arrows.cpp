// The arrow solid, its placement per grip, and the pointer's ray test (Moller-Trumbore).
#include "render/arrows.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <unordered_map>

#include "failure.hpp"

namespace tv::render {

namespace {

constexpr double kArcSpan = 1.9811944901923448;
constexpr double kThickness = 0.2;
constexpr double kArrowScale = 0.2;

double cross(const Point2& o, const Point2& a, const Point2& b) {
  return (a.x - o.x) * (b.y - o.y) - (b.x - o.x) * (a.y - o.y);
}

// Inside or on the counterclockwise triangle abc.
bool inside_or_on(const Point2& p, const Point2& a, const Point2& b, const Point2& c) {
  return cross(a, b, p) >= 0.0 && cross(b, c, p) >= 0.0 && cross(c, a, p) >= 0.0;
}

bool is_ear(const std::vector<Point2>& points, const std::vector<std::uint32_t>& remaining, std::size_t i) {
  const std::size_t n = remaining.size();
  const std::uint32_t prev = remaining[(i + n - 1) % n], cur = remaining[i], next = remaining[(i + 1) % n];
  if (!(cross(points[prev], points[cur], points[next]) > 0.0)) return false;
  for (const std::uint32_t other : remaining) {
    if (other == prev || other == cur || other == next) continue;
    if (inside_or_on(points[other], points[prev], points[cur], points[next])) return false;
  }
  return true;
}

Point3 lifted(const Point2& p, double z) { return {p.x, p.y, z}; }

Vector3 sub(const Vector3& a, const Vector3& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
double dot(const Vector3& a, const Vector3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Vector3 cross(const Vector3& a, const Vector3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
Vector3 scaled(const Vector3& v, double s) { return {v[0] * s, v[1] * s, v[2] * s}; }
Vector3 normalized(const Vector3& v) {
  const double l = length(v);
  return l == 0.0 ? Vector3{} : scaled(v, 1.0 / l);
}

// The grip normal as doubles, normalized, turned by the base rotation like the pieces.
Vector3 arrow_direction(const Plane& plane, const std::array<double, 4>& q) {
  const Vector3 n = normalized({plane.a.to_f64(), plane.b.to_f64(), plane.c.to_f64()});
  const Vector3 axis{q[0], q[1], q[2]};
  const Vector3 t = scaled(cross(axis, n), 2.0);
  const Vector3 u = cross(axis, t);
  return {n[0] + q[3] * t[0] + u[0], n[1] + q[3] * t[1] + u[1], n[2] + q[3] * t[2] + u[2]};
}

// The rotation taking +z to the unit vector n.
std::array<double, 4> rotation_from_z(const Vector3& n) {
  const double t = n[2] + 1.0;
  std::array<double, 4> r = t >= 1e-6 ? std::array<double, 4>{-n[1], n[0], 0.0, t} : std::array<double, 4>{0.0, -1.0, 0.0, 0.0};
  const double l = std::sqrt(r[0] * r[0] + r[1] * r[1] + r[2] * r[2] + r[3] * r[3]);
  if (l == 0.0) return {0.0, 0.0, 0.0, 1.0};
  for (double& x : r) x /= l;
  return r;
}

Vector3 transformed(const Matrix4& m, const Point3& p) {
  return {m[0] * p.x + m[4] * p.y + m[8] * p.z + m[12], m[1] * p.x + m[5] * p.y + m[9] * p.z + m[13],
          m[2] * p.x + m[6] * p.y + m[10] * p.z + m[14]};
}

std::array<double, 4> transformed(const Matrix4& m, const std::array<double, 4>& v) {
  std::array<double, 4> out{};
  for (int r = 0; r < 4; ++r) out[r] = m[r] * v[0] + m[4 + r] * v[1] + m[8 + r] * v[2] + m[12 + r] * v[3];
  return out;
}

// The distance along the ray to triangle abc, from either side, or none.
std::optional<double> ray_hit(const Vector3& origin, const Vector3& direction, const Vector3& a, const Vector3& b,
                              const Vector3& c) {
  const Vector3 e1 = sub(b, a), e2 = sub(c, a);
  const Vector3 p = cross(direction, e2);
  const double det = dot(e1, p);
  if (std::abs(det) < 1e-12) return std::nullopt;
  const double inv = 1.0 / det;
  const Vector3 s = sub(origin, a);
  const double u = dot(s, p) * inv;
  if (!(u >= 0.0 && u <= 1.0)) return std::nullopt;
  const Vector3 q = cross(s, e1);
  const double v = dot(direction, q) * inv;
  if (!(v >= 0.0 && u + v <= 1.0)) return std::nullopt;
  const double t = dot(e2, q) * inv;
  if (!(t > 1e-12)) return std::nullopt;
  return t;
}

// True when the line of the ray passes the arrow's ball with room to spare, so that no triangle
// of the arrow can be hit: the room (a millionth, relative and absolute) is far wider than the
// rounding of the transformed corners and of the ray test, so skipping changes no answer.
bool misses_ball(const Vector3& origin, const Vector3& direction, const Matrix4& model, const Ball& ball) {
  const Vector3 centre = transformed(model, ball.centre);
  double scale = 0.0;
  for (int column = 0; column < 3; ++column) {
    scale = std::max(scale, length({model[4 * column], model[4 * column + 1], model[4 * column + 2]}));
  }
  const double reach = ball.radius * scale * (1 + 1e-6) + 1e-6;
  const double distance = length(cross(sub(centre, origin), direction));
  return distance > reach;
}

}  // namespace

std::vector<Point2> arrow_outline() {
  std::vector<Point2> points;
  for (int i = 0; i <= 12; ++i) {
    const double angle = (i / -12.0) * kArcSpan + 1.5707963267948966;
    points.push_back({std::cos(angle) * 1.375, std::sin(angle) * 1.375});
  }
  points.push_back({1.6046835673383493, -0.69820530556153});
  points.push_back({0.39897446032087436, -0.9169620384790567});
  points.push_back({0.2292405096197642, -0.09974361508021858});
  for (int i = 0; i <= 12; ++i) {
    const double angle = (i / 12.0) * kArcSpan - 0.4103981633974483;
    points.push_back({std::cos(angle) * 0.625, std::sin(angle) * 0.625});
  }
  return points;
}

std::vector<std::array<std::uint32_t, 3>> ear_clip(const std::vector<Point2>& outline) {
  const std::size_t n = outline.size();
  std::vector<std::uint32_t> remaining(n);
  for (std::uint32_t i = 0; i < n; ++i) remaining[i] = i;
  double shoelace = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    const Point2& a = outline[i];
    const Point2& b = outline[(i + 1) % n];
    shoelace += a.x * b.y - b.x * a.y;
  }
  if (shoelace < 0.0) std::reverse(remaining.begin(), remaining.end());
  std::vector<std::array<std::uint32_t, 3>> triangles;
  while (remaining.size() > 3) {
    std::size_t i = 0;
    while (i < remaining.size() && !is_ear(outline, remaining, i)) ++i;
    TV_ENSURE(i < remaining.size(), "ear clipping found no ear");
    const std::size_t m = remaining.size();
    triangles.push_back({remaining[(i + m - 1) % m], remaining[i], remaining[(i + 1) % m]});
    remaining.erase(remaining.begin() + static_cast<std::ptrdiff_t>(i));
  }
  if (remaining.size() == 3) triangles.push_back({remaining[0], remaining[1], remaining[2]});
  return triangles;
}

std::vector<Triangle3> arrow_mesh() {
  const std::vector<Point2> outline = arrow_outline();
  const auto faces = ear_clip(outline);
  std::vector<Triangle3> mesh;
  mesh.reserve(2 * faces.size() + 2 * outline.size());
  for (const auto& [a, b, c] : faces) mesh.push_back({lifted(outline[a], 0.0), lifted(outline[b], 0.0), lifted(outline[c], 0.0)});
  for (const auto& [a, b, c] : faces) {
    mesh.push_back({lifted(outline[c], kThickness), lifted(outline[b], kThickness), lifted(outline[a], kThickness)});
  }
  for (std::size_t i = 0; i < outline.size(); ++i) {
    const Point2& a = outline[i];
    const Point2& b = outline[(i + 1) % outline.size()];
    mesh.push_back({lifted(a, 0.0), lifted(b, 0.0), lifted(b, kThickness)});
    mesh.push_back({lifted(a, 0.0), lifted(b, kThickness), lifted(a, kThickness)});
  }
  return mesh;
}

Ball bounding_ball(const std::vector<Triangle3>& mesh) {
  if (mesh.empty()) return {};
  Point3 low = mesh[0][0], high = mesh[0][0];
  for (const Triangle3& t : mesh) {
    for (const Point3& p : t) {
      low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
      high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
    }
  }
  Ball ball{{(low.x + high.x) / 2, (low.y + high.y) / 2, (low.z + high.z) / 2}, 0.0};
  for (const Triangle3& t : mesh) {
    for (const Point3& p : t) {
      ball.radius = std::max(ball.radius, length({p.x - ball.centre.x, p.y - ball.centre.y, p.z - ball.centre.z}));
    }
  }
  return ball;
}

std::vector<ArrowInstance> place_arrows(const std::vector<GripLayer>& grips, const std::array<double, 4>& base_rotation) {
  std::vector<ArrowInstance> arrows;
  arrows.reserve(2 * grips.size());
  // Looked up only, never walked, so its order cannot leak.
  std::unordered_map<std::string, std::uint32_t> layers;
  for (const GripLayer& grip : grips) {
    const std::uint32_t layer = layers[normal_key(grip.plane)]++;
    const Matrix4 rotation = rotation_matrix(rotation_from_z(arrow_direction(grip.plane, base_rotation)), 1.0);
    const double d = layer * 0.25 + 1.25;
    Matrix4 model{};
    for (int k = 0; k < 12; ++k) model[k] = rotation[k] * kArrowScale;
    for (int r = 0; r < 3; ++r) model[12 + r] = rotation[8 + r] * d;
    model[15] = 1.0;
    arrows.push_back({model});
    for (int r = 0; r < 3; ++r) model[r] = -model[r];
    arrows.push_back({model});
  }
  return arrows;
}

std::optional<Matrix4> inverse(const Matrix4& m) {
  Matrix4 inv{};
  inv[0] = m[5] * m[10] * m[15] - m[5] * m[11] * m[14] - m[9] * m[6] * m[15] + m[9] * m[7] * m[14] + m[13] * m[6] * m[11] - m[13] * m[7] * m[10];
  inv[4] = -m[4] * m[10] * m[15] + m[4] * m[11] * m[14] + m[8] * m[6] * m[15] - m[8] * m[7] * m[14] - m[12] * m[6] * m[11] + m[12] * m[7] * m[10];
  inv[8] = m[4] * m[9] * m[15] - m[4] * m[11] * m[13] - m[8] * m[5] * m[15] + m[8] * m[7] * m[13] + m[12] * m[5] * m[11] - m[12] * m[7] * m[9];
  inv[12] = -m[4] * m[9] * m[14] + m[4] * m[10] * m[13] + m[8] * m[5] * m[14] - m[8] * m[6] * m[13] - m[12] * m[5] * m[10] + m[12] * m[6] * m[9];
  inv[1] = -m[1] * m[10] * m[15] + m[1] * m[11] * m[14] + m[9] * m[2] * m[15] - m[9] * m[3] * m[14] - m[13] * m[2] * m[11] + m[13] * m[3] * m[10];
  inv[5] = m[0] * m[10] * m[15] - m[0] * m[11] * m[14] - m[8] * m[2] * m[15] + m[8] * m[3] * m[14] + m[12] * m[2] * m[11] - m[12] * m[3] * m[10];
  inv[9] = -m[0] * m[9] * m[15] + m[0] * m[11] * m[13] + m[8] * m[1] * m[15] - m[8] * m[3] * m[13] - m[12] * m[1] * m[11] + m[12] * m[3] * m[9];
  inv[13] = m[0] * m[9] * m[14] - m[0] * m[10] * m[13] - m[8] * m[1] * m[14] + m[8] * m[2] * m[13] + m[12] * m[1] * m[10] - m[12] * m[2] * m[9];
  inv[2] = m[1] * m[6] * m[15] - m[1] * m[7] * m[14] - m[5] * m[2] * m[15] + m[5] * m[3] * m[14] + m[13] * m[2] * m[7] - m[13] * m[3] * m[6];
  inv[6] = -m[0] * m[6] * m[15] + m[0] * m[7] * m[14] + m[4] * m[2] * m[15] - m[4] * m[3] * m[14] - m[12] * m[2] * m[7] + m[12] * m[3] * m[6];
  inv[10] = m[0] * m[5] * m[15] - m[0] * m[7] * m[13] - m[4] * m[1] * m[15] + m[4] * m[3] * m[13] + m[12] * m[1] * m[7] - m[12] * m[3] * m[5];
  inv[14] = -m[0] * m[5] * m[14] + m[0] * m[6] * m[13] + m[4] * m[1] * m[14] - m[4] * m[2] * m[13] - m[12] * m[1] * m[6] + m[12] * m[2] * m[5];
  inv[3] = -m[1] * m[6] * m[11] + m[1] * m[7] * m[10] + m[5] * m[2] * m[11] - m[5] * m[3] * m[10] - m[9] * m[2] * m[7] + m[9] * m[3] * m[6];
  inv[7] = m[0] * m[6] * m[11] - m[0] * m[7] * m[10] - m[4] * m[2] * m[11] + m[4] * m[3] * m[10] + m[8] * m[2] * m[7] - m[8] * m[3] * m[6];
  inv[11] = -m[0] * m[5] * m[11] + m[0] * m[7] * m[9] + m[4] * m[1] * m[11] - m[4] * m[3] * m[9] - m[8] * m[1] * m[7] + m[8] * m[3] * m[5];
  inv[15] = m[0] * m[5] * m[10] - m[0] * m[6] * m[9] - m[4] * m[1] * m[10] + m[4] * m[2] * m[9] + m[8] * m[1] * m[6] - m[8] * m[2] * m[5];
  const double det = m[0] * inv[0] + m[1] * inv[4] + m[2] * inv[8] + m[3] * inv[12];
  if (det == 0.0 || !std::isfinite(det)) return std::nullopt;
  for (double& x : inv) x /= det;
  return inv;
}

std::optional<std::uint32_t> arrow_at(const Scene& scene, const Camera& camera, const ViewSettings& view, double x,
                                      double y) {
  if (!view.show_arrows) return std::nullopt;
  const auto view_transform = view_matrix(camera);
  if (!view_transform) return std::nullopt;
  const auto inverse_projection = inverse(projection_matrix(camera));
  const auto inverse_view = inverse(*view_transform);
  if (!inverse_projection || !inverse_view) return std::nullopt;
  auto eye_point = transformed(*inverse_projection, {x, y, 0.5, 1.0});
  for (double& c : eye_point) c /= eye_point[3];
  eye_point[3] = 1.0;
  auto world = transformed(*inverse_view, eye_point);
  for (double& c : world) c /= world[3];
  const Vector3 origin = camera.position;
  const Vector3 direction = normalized(sub({world[0], world[1], world[2]}, origin));
  std::optional<std::uint32_t> best;
  double nearest = std::numeric_limits<double>::infinity();
  for (std::uint32_t i = 0; i < scene.arrows.size(); ++i) {
    const Matrix4& model = scene.arrows[i].model;
    if (misses_ball(origin, direction, model, scene.arrow_ball)) continue;
    for (const Triangle3& t : scene.arrow_mesh) {
      const auto hit = ray_hit(origin, direction, transformed(model, t[0]), transformed(model, t[1]), transformed(model, t[2]));
      if (hit && *hit < nearest) {
        nearest = *hit;
        best = i;
      }
    }
  }
  return best;
}

}  // namespace tv::render
