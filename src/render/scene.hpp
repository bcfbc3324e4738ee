// The float picture of a puzzle and the camera that looks at it.
//
//   PieceMesh, build_scene   per piece, once: fan triangles of its facets in 32-bit precision,
//                            one flat color and facet index per triangle, and the outline
//                            segments where two triangles meet at more than one degree
//   ViewSettings, Camera     what a frame looks like and where it is seen from
//   projection_matrix,       the matrices a frame and the pointer's ray share
//   view_matrix
//   CameraKeywords           yaw, pitch and distance, the one rule for the constructor,
//                            render overrides and look_from
//   ViewChange               the view keywords of one call, applied in their fixed order
//   OrbitState, orbit_update the dragged camera with inertia
//
// Everything here is float. The exact world is read only by build_scene, once per puzzle.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "piece.hpp"
#include "render/framebuffer.hpp"
#include "render/raster.hpp"

namespace tv::render {

using Vector3 = std::array<double, 3>;

struct ViewSettings {
  double line_width = 1.0;
  Color background = 0;
  std::uint32_t supersample = 2;  // never 0
  bool show_edges = true;
  bool show_arrows = true;
  bool show_pieces = true;
};

struct Camera {
  double fov = 15.0;  // vertical, degrees
  double aspect = 1.0;
  double near = 0.1;
  double far = 100.0;
  double zoom = 1.0;
  Vector3 position{0.0, 0.0, 12.0};
  Vector3 target{0.0, 0.0, 0.0};
  Vector3 up{0.0, 1.0, 0.0};
};

struct OrbitState {
  double rotate_speed = 3.0;
  double damping = 0.2;
  Vector3 target{};
  Vector3 eye{};
  Vector3 previous_pointer{};
  Vector3 current_pointer{};
  Vector3 last_axis{0.0, 1.0, 0.0};
  double last_angle = 0.0;
  bool dragging = false;
};

struct PieceMesh {
  std::vector<Triangle3> triangles;  // coordinates rounded to 32-bit floats, held as doubles
  std::vector<Color> colors;         // one per triangle
  std::vector<std::uint32_t> facets;  // the facet each triangle comes from
  std::vector<Segment3> outline;
};

// One arrow's model matrix: the shared arrow mesh placed and scaled for one grip direction.
struct ArrowInstance {
  Matrix4 model{};
};

// A ball holding every vertex of a mesh, in the mesh's own coordinates.
struct Ball {
  Point3 centre;
  double radius = 0.0;
};

struct Scene {
  std::vector<PieceMesh> meshes;
  std::vector<Triangle3> arrow_mesh;
  Ball arrow_ball;  // around arrow_mesh, so that the pointer's ray can pass an arrow at once
  std::vector<ArrowInstance> arrows;
};

// The meshes of the pieces in their own, unscaled coordinates.
std::vector<PieceMesh> build_scene(const std::vector<Piece>& pieces);
// The outline segments of one mesh's triangles.
std::vector<Segment3> outline_of(const std::vector<Triangle3>& triangles);

Matrix4 multiply(const Matrix4& a, const Matrix4& b);
// The rotation of a unit quaternion (x, y, z, w) with its columns scaled by `scale`.
Matrix4 rotation_matrix(const std::array<double, 4>& q, double scale);
Matrix4 projection_matrix(const Camera& camera);
// The look-at matrix, or none when no side vector exists: an up that is zero or parallel to
// the line of sight even after the nudge that rescues a unit up along z.
std::optional<Matrix4> view_matrix(const Camera& camera);

// Angles in radians; each one given or not.
struct CameraKeywords {
  std::optional<double> yaw, pitch, distance;
  bool any() const { return yaw || pitch || distance; }
};
void apply_camera_keywords(Camera& camera, const CameraKeywords& keywords);
double length(const Vector3& v);

// A color given at the boundary, held as one word with r in the lowest byte.
struct ColorWord {
  Color word = 0;
};

// View values a caller gave, each present or not; yaw, pitch and fov in degrees.
struct ViewChange {
  std::optional<ColorWord> background;
  std::optional<std::uint32_t> supersample;
  std::optional<bool> show_arrows, show_edges, show_pieces;
  std::optional<double> line_width, fov, distance, yaw, pitch;
  // Stored as they stand, after the camera rule, so they win over distance, yaw and pitch.
  std::optional<Vector3> camera_position, camera_target, camera_up;

  bool any() const;
  // In the order background, supersample (0 becomes 1), show arrows, show edges, show pieces,
  // line width, fov, the camera rule, then the three camera vectors.
  void apply(ViewSettings& view, Camera& camera) const;
};

// One step of the orbit camera; it moves the camera's position, up and target.
void orbit_update(OrbitState& orbit, Camera& camera);

// The arrow colors for a background: the normal one and the hovered one.
struct ArrowColors {
  Color normal = 0;
  Color hover = 0;
};
ArrowColors arrow_colors(Color background);

}  // namespace tv::render
