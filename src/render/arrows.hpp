// The grip arrows: one curved arrow solid shared by all, two placements per grip, and the ray
// test that tells which arrow lies under the pointer.
//
// The arrow is a flat band with a head in the xy plane, triangulated by ear clipping and
// extruded 0.2 deep. Arrow 2k and 2k + 1 of grip k stand on one spot outside the puzzle, on
// the grip's normal, the second mirrored so the two point opposite ways about the axis; grips
// with the same normal stack outward by layer.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "movement.hpp"
#include "render/scene.hpp"

namespace tv::render {

struct Point2 {
  double x = 0, y = 0;
};

// The closed outline of the arrow: outer arc, head, inner arc; 29 points.
std::vector<Point2> arrow_outline();
// Ear clipping of a simple polygon into index triangles, all counterclockwise; a polygon given
// clockwise is walked reversed. A polygon without an ear is an internal failure.
std::vector<std::array<std::uint32_t, 3>> ear_clip(const std::vector<Point2>& outline);
// The 112 triangles of the arrow solid: bottom, top, then two per outline edge.
std::vector<Triangle3> arrow_mesh();

// The ball about the centre of the mesh's bounding box that holds all its vertices.
Ball bounding_ball(const std::vector<Triangle3>& mesh);

// Two arrows per grip, in grip order. `base_rotation` is the PieceSet's (x, y, z, w).
std::vector<ArrowInstance> place_arrows(const std::vector<GripLayer>& grips, const std::array<double, 4>& base_rotation);

// The arrow whose surface the pointer's ray meets first, at pointer (x, y) in [-1, 1] with y
// up. None when arrows are hidden, there are none, or the camera gives no invertible matrices.
std::optional<std::uint32_t> arrow_at(const Scene& scene, const Camera& camera, const ViewSettings& view, double x,
                                      double y);

// The inverse of a 4 x 4 matrix, or none when its determinant is zero or not finite.
std::optional<Matrix4> inverse(const Matrix4& m);

}  // namespace tv::render
