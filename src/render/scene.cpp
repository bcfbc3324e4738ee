// Meshes, outlines, camera matrices, camera keywords and the orbit camera.
#include "render/scene.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>

#include "color.hpp"

namespace tv::render {

namespace {

// The cosine of one degree: a crease sharper than this between two triangles is drawn.
constexpr double kCreaseCosine = 0.9998476951563913;
constexpr double kDegree = 0.017453292519943295;

Vector3 operator-(const Vector3& a, const Vector3& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
Vector3 operator+(const Vector3& a, const Vector3& b) { return {a[0] + b[0], a[1] + b[1], a[2] + b[2]}; }
Vector3 operator*(const Vector3& a, double s) { return {a[0] * s, a[1] * s, a[2] * s}; }
double dot(const Vector3& a, const Vector3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Vector3 cross(const Vector3& a, const Vector3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
// v over its length; the zero vector stays zero.
Vector3 normalized(const Vector3& v) {
  const double l = length(v);
  return l == 0.0 ? Vector3{} : v * (1.0 / l);
}
Vector3 vector_of(const Point3& p) { return {p.x, p.y, p.z}; }

// v rotated by the unit quaternion (axis * sin(angle / 2), cos(angle / 2)).
Vector3 rotated(const Vector3& v, const Vector3& axis, double angle) {
  const Vector3 q = axis * std::sin(angle / 2.0);
  const double w = std::cos(angle / 2.0);
  const Vector3 t = cross(q, v) * 2.0;
  return v + t * w + cross(q, t);
}

double to_f32_precision(double x) { return static_cast<double>(static_cast<float>(x)); }

Point3 float_point(const Vertex& v) {
  return {to_f32_precision(v.x.to_f64()), to_f32_precision(v.y.to_f64()), to_f32_precision(v.z.to_f64())};
}

// Scaled by 10000 and rounded half away from zero, saturating at the ends; NaN keys 0.
std::int64_t key_coordinate(double x) {
  const double scaled = std::round(x * 10000.0);
  if (std::isnan(scaled)) return 0;
  if (scaled >= 9223372036854775808.0) return std::numeric_limits<std::int64_t>::max();
  if (scaled <= -9223372036854775808.0) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(scaled);
}

using PointKey = std::array<std::int64_t, 3>;
using EdgeKey = std::array<std::int64_t, 6>;

PointKey key_of(const Point3& p) { return {key_coordinate(p.x), key_coordinate(p.y), key_coordinate(p.z)}; }

EdgeKey edge_key(const PointKey& a, const PointKey& b) { return {a[0], a[1], a[2], b[0], b[1], b[2]}; }

struct EdgeKeyHash {
  std::size_t operator()(const EdgeKey& k) const {
    std::uint64_t h = 0x9E3779B97F4A7C15ull;
    for (const std::int64_t x : k) h = (h ^ static_cast<std::uint64_t>(x)) * 0x100000001B3ull;
    return static_cast<std::size_t>(h);
  }
};

struct OpenEdge {
  Segment3 segment;
  Vector3 normal;
  bool open = true;
};

PieceMesh mesh_of(const Piece& piece) {
  PieceMesh mesh;
  for (std::uint32_t f = 0; f < piece.facets.size(); ++f) {
    const Facet& facet = piece.facets[f];
    if (facet.vertices.size() < 3) continue;
    const Color color = flat_color(facet.color, 1.0);
    std::vector<Point3> points;
    points.reserve(facet.vertices.size());
    for (const std::uint32_t v : facet.vertices) points.push_back(float_point(piece.vertices[v]));
    for (std::size_t k = 1; k + 1 < points.size(); ++k) {
      mesh.triangles.push_back({points[0], points[k], points[k + 1]});
      mesh.colors.push_back(color);
      mesh.facets.push_back(f);
    }
  }
  mesh.outline = outline_of(mesh.triangles);
  return mesh;
}

}  // namespace

double length(const Vector3& v) { return std::sqrt(dot(v, v)); }

std::vector<Segment3> outline_of(const std::vector<Triangle3>& triangles) {
  std::vector<Segment3> outline;
  // Entries in first-seen order; the hash map only finds them.
  std::vector<OpenEdge> edges;
  std::unordered_map<EdgeKey, std::size_t, EdgeKeyHash> index;
  for (const Triangle3& t : triangles) {
    const PointKey keys[3] = {key_of(t[0]), key_of(t[1]), key_of(t[2])};
    if (keys[0] == keys[1] || keys[1] == keys[2] || keys[2] == keys[0]) continue;
    const Vector3 normal = normalized(cross(vector_of(t[1]) - vector_of(t[0]), vector_of(t[2]) - vector_of(t[0])));
    for (int e = 0; e < 3; ++e) {
      const int a = e, b = (e + 1) % 3;
      if (const auto reverse = index.find(edge_key(keys[b], keys[a])); reverse != index.end()) {
        OpenEdge& entry = edges[reverse->second];
        if (!entry.open) continue;
        if (dot(entry.normal, normal) <= kCreaseCosine) outline.push_back({t[a], t[b]});
        entry.open = false;
        continue;
      }
      if (index.try_emplace(edge_key(keys[a], keys[b]), edges.size()).second) {
        edges.push_back({{t[a], t[b]}, normal, true});
      }
    }
  }
  for (const OpenEdge& entry : edges) {
    if (entry.open) outline.push_back(entry.segment);
  }
  return outline;
}

std::vector<PieceMesh> build_scene(const std::vector<Piece>& pieces) {
  std::vector<PieceMesh> meshes;
  meshes.reserve(pieces.size());
  for (const Piece& piece : pieces) meshes.push_back(mesh_of(piece));
  return meshes;
}

Matrix4 multiply(const Matrix4& a, const Matrix4& b) {
  Matrix4 out{};
  for (int column = 0; column < 4; ++column) {
    for (int row = 0; row < 4; ++row) {
      double sum = 0.0;
      for (int k = 0; k < 4; ++k) sum += a[k * 4 + row] * b[column * 4 + k];
      out[column * 4 + row] = sum;
    }
  }
  return out;
}

Matrix4 rotation_matrix(const std::array<double, 4>& q, double scale) {
  const auto [x, y, z, w] = q;
  const Vector3 columns[3] = {
      {1.0 - 2.0 * (y * y + z * z), 2.0 * (x * y + z * w), 2.0 * (x * z - y * w)},
      {2.0 * (x * y - z * w), 1.0 - 2.0 * (x * x + z * z), 2.0 * (y * z + x * w)},
      {2.0 * (x * z + y * w), 2.0 * (y * z - x * w), 1.0 - 2.0 * (x * x + y * y)},
  };
  Matrix4 m{};
  for (int c = 0; c < 3; ++c) {
    for (int r = 0; r < 3; ++r) m[c * 4 + r] = columns[c][r] * scale;
  }
  m[15] = 1.0;
  return m;
}

Matrix4 projection_matrix(const Camera& camera) {
  const double near = camera.near, far = camera.far;
  const double top = near * std::tan(camera.fov * kDegree * 0.5) / camera.zoom;
  const double view_height = 2.0 * top;
  const double view_width = camera.aspect * view_height;
  const double left = -0.5 * view_width;
  const double right = left + view_width;
  const double bottom = top - view_height;
  Matrix4 m{};
  m[0] = 2.0 * near / (right - left);
  m[5] = 2.0 * near / (top - bottom);
  m[8] = (right + left) / (right - left);
  m[9] = (top + bottom) / (top - bottom);
  m[10] = -(far + near) / (far - near);
  m[11] = -1.0;
  m[14] = -2.0 * far * near / (far - near);
  return m;
}

std::optional<Matrix4> view_matrix(const Camera& camera) {
  Vector3 z = camera.position - camera.target;
  if (z == Vector3{}) z = {0.0, 0.0, 1.0};
  z = normalized(z);
  Vector3 x = cross(camera.up, z);
  if (x == Vector3{}) {
    if (std::abs(camera.up[2]) == 1.0) {
      z[0] += 0.0001;
    } else {
      z[2] += 0.0001;
    }
    z = normalized(z);
    x = cross(camera.up, z);
  }
  if (x == Vector3{}) return std::nullopt;
  x = normalized(x);
  const Vector3 y = cross(z, x);
  Matrix4 m{};
  const Vector3* rows[3] = {&x, &y, &z};
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) m[c * 4 + r] = (*rows[r])[c];
    m[12 + r] = -dot(*rows[r], camera.position);
  }
  m[15] = 1.0;
  return m;
}

void apply_camera_keywords(Camera& camera, const CameraKeywords& keywords) {
  if (keywords.yaw || keywords.pitch) {
    const double d = keywords.distance ? *keywords.distance : length(camera.position);
    const double yaw = keywords.yaw.value_or(0.0), pitch = keywords.pitch.value_or(0.0);
    camera.position = {d * std::cos(pitch) * std::sin(yaw), d * std::sin(pitch), d * std::cos(pitch) * std::cos(yaw)};
    camera.up = {0.0, 1.0, 0.0};
  } else if (keywords.distance) {
    const double l = length(camera.position);
    if (l != 0.0) camera.position = camera.position * (*keywords.distance / l);
  }
}

bool ViewChange::any() const {
  return background || supersample || show_arrows || show_edges || show_pieces || line_width || fov || distance ||
         yaw || pitch || camera_position || camera_target || camera_up;
}

void ViewChange::apply(ViewSettings& view, Camera& camera) const {
  constexpr double kRadiansPerDegree = 0.017453292519943295;
  const auto radians = [&](std::optional<double> degrees) -> std::optional<double> {
    if (!degrees) return std::nullopt;
    return *degrees * kRadiansPerDegree;
  };
  if (background) view.background = background->word;
  if (supersample) view.supersample = std::max<std::uint32_t>(*supersample, 1);
  if (show_arrows) view.show_arrows = *show_arrows;
  if (show_edges) view.show_edges = *show_edges;
  if (show_pieces) view.show_pieces = *show_pieces;
  if (line_width) view.line_width = *line_width;
  if (fov) camera.fov = *fov;
  apply_camera_keywords(camera, {radians(yaw), radians(pitch), distance});
  if (camera_position) camera.position = *camera_position;
  if (camera_target) camera.target = *camera_target;
  if (camera_up) camera.up = *camera_up;
}

void orbit_update(OrbitState& orbit, Camera& camera) {
  Vector3 eye = camera.position - orbit.target;
  const Vector3 d = orbit.current_pointer - orbit.previous_pointer;
  if (dot(d, d) > 0.0) {
    const double angle = length(d) * orbit.rotate_speed;
    const Vector3 e = normalized(eye), u = normalized(camera.up);
    const Vector3 side = normalized(cross(u, e));
    const Vector3 move = u * d[1] + side * d[0];
    const Vector3 axis = normalized(cross(move, eye));
    eye = rotated(eye, axis, angle);
    camera.up = rotated(camera.up, axis, angle);
    orbit.last_axis = axis;
    orbit.last_angle = angle;
  } else if (orbit.last_angle != 0.0) {
    orbit.last_angle = orbit.last_angle * std::sqrt(1.0 - orbit.damping);
    eye = rotated(eye, orbit.last_axis, orbit.last_angle);
    camera.up = rotated(camera.up, orbit.last_axis, orbit.last_angle);
  }
  orbit.previous_pointer = orbit.previous_pointer + (orbit.current_pointer - orbit.previous_pointer) * orbit.damping;
  orbit.eye = eye;
  camera.position = orbit.target + eye;
  camera.target = orbit.target;
}

ArrowColors arrow_colors(Color background) {
  const double luminance = 0.299 * channel(background, 0) + 0.587 * channel(background, 1) + 0.114 * channel(background, 2);
  if (luminance > 128.0) {
    return {flat_color({0.012983032338510335, 0.02217388478862708, 0.04373502925049377}, 0.45),
            flat_color({0.018500220124016652, 0.12477181755144427, 0.8307698767709715}, 0.9)};
  }
  return {flat_color({1.0, 1.0, 1.0}, 0.3), flat_color({1.0, 1.0, 0.6038273388475408}, 0.9)};
}

}  // namespace tv::render
