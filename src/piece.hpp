// Exact convex solids and the one operation that makes them: splitting a piece by a plane.
//
// Every coordinate is an AlgebraicNumber of the puzzle's field (or a rational, which mixes with
// it freely). The side of a vertex is the exact sign of a*x + b*y + c*z + d, so a vertex is on a
// plane or it is not; nothing here has a tolerance.
//
// Splitting walks each facet's edges once. An edge whose ends have opposite signs crosses the
// plane at Q - t (P - Q) with t = (n . Q + d) / (n . (P - Q)); the two facets that share the
// edge find the crossing in a memo keyed by the (negative end, positive end) pair, so they share
// one new vertex. Each facet contributes its non-negative part to the positive half and its
// non-positive part to the negative half. The hole that the cut leaves in each half is then
// closed by `close_piece` from topology alone: the edges walked by exactly one facet form the
// rim, and walking the rim against its direction gives the new face with the orientation that
// keeps every edge of the closed solid walked once each way.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "color.hpp"
#include "exact.hpp"
#include "failure.hpp"

namespace tv {

struct Vertex {
  AlgebraicNumber x, y, z;
  friend bool operator==(const Vertex&, const Vertex&) = default;
};

// a*x + b*y + c*z + d = 0, so d is minus the offset along the normal: x = 1/2 is (1, 0, 0, -1/2).
// The normal (a, b, c) is never normalised; (1, 0, 0, -1) and (2, 0, 0, -2) are different planes.
struct Plane {
  AlgebraicNumber a, b, c, d;
  friend bool operator==(const Plane&, const Plane&) = default;
};

// (-a, -b, -c, -d): the same plane facing the other way.
Plane negated(const Plane& plane);

// The sign of a*x + b*y + c*z + d at the vertex: +1 on the side the normal points to.
int side_of(const Plane& plane, const Vertex& vertex);

// One polygon of a piece.
struct Facet {
  std::vector<std::uint32_t> vertices;  // indices into the piece's vertices, in walking order
  Plane plane;                          // the normal points out of the piece
  LinearColor color;
  bool interior = true;  // made by a cut or left of the starting box; false carries a sticker
};

// A rotation up to a non-zero factor, w the scalar part; never normalised.
struct Quaternion {
  AlgebraicNumber x, y, z, w;
  static Quaternion identity();
  friend bool operator==(const Quaternion&, const Quaternion&) = default;
};

// A convex solid. Its vertices are its coordinates in the solved puzzle and never change;
// turning changes only the orientation.
struct Piece {
  std::vector<Vertex> vertices;
  std::vector<Facet> facets;
  Quaternion orientation = Quaternion::identity();

  // No vertices, no facets: the far half of a plane that misses a solid.
  bool is_empty() const { return vertices.empty() && facets.empty(); }
};

// A cut plane of a piece as the piece stands, in standard sign, with the ids of its plane and
// normal keys.
struct CutPlane {
  Plane plane;
  std::uint32_t plane_id;
  std::uint32_t normal_id;
};

// The geometry a simulator holds: the pieces, whose indices are their identities, and memos of
// pure facts about a piece in an orientation, which are never invalidated. The memos are keyed
// by small ids of exact text keys (a plane, a normal, a piece with its orientation), handed
// out in first-seen order; equal text means equal value, so equal ids do too.
struct PieceSet {
  std::vector<Piece> pieces;
  std::unordered_map<std::string, std::uint32_t> key_ids;
  // (normal id, state id) -> the lowest and highest of n . v over the piece's own vertices.
  std::unordered_map<std::uint64_t, std::pair<AlgebraicNumber, AlgebraicNumber>> extent_memo;
  // (plane id, state id) -> the piece's side of the plane: +1, -1, or 0 when it straddles.
  std::unordered_map<std::uint64_t, std::int8_t> side_memo;
  // state id -> the piece's cut planes as it stands.
  std::unordered_map<std::uint32_t, std::vector<CutPlane>> cut_memo;
  // x, y, z, w; composed in front of every piece's float orientation.
  std::array<double, 4> base_rotation{0.0, 0.0, 0.0, 1.0};

  // The id of a text key, new ones numbered in first-seen order.
  std::uint32_t key_id(std::string key) {
    return key_ids.emplace(std::move(key), static_cast<std::uint32_t>(key_ids.size())).first->second;
  }
  // Forgets every memo (for checking that they change nothing).
  void clear_memos() {
    key_ids.clear(), extent_memo.clear(), side_memo.clear(), cut_memo.clear();
  }
};

// The axis-aligned cube spanning -h to h on each axis. Corner k has x positive when bit 0 of k
// is set, y when bit 1 is, z when bit 2 is. Its faces come in the order -x, +x, -y, +y, -z, +z,
// each walked anticlockwise seen from outside, interior and of the interior color. A face's
// plane is the one through its corners with d = 1, so its normal points into the box; such a
// plane only matters when a face survives carving, and then it is offered to grip derivation,
// which brings every plane to one standard sign.
Piece box_piece(const Int& half_size);

// (positive half, negative half): the parts with a*x + b*y + c*z + d >= 0 and <= 0. The negative
// half's new face gets `color` and `interior`; the positive half's gets `color` and interior
// true, so a shell cut marks only the half that stays. A piece that the plane does not cross
// (even one touching it along a facet) comes back as an unchanged copy beside the empty piece,
// on the positive side when every vertex is on the plane. The only failure is one of exact
// arithmetic.
Result<std::pair<Piece, Piece>> split_piece(const Piece& piece, const Plane& plane, const LinearColor& color,
                                            bool interior);

// Appends to `half` the faces that close its open rim, each lying in `plane`. Uses the facets'
// topology only. A rim that is not a closed loop (which only a non-convex input can give) is
// reported by one line, "not all cut points visited", on standard error, and is not a failure.
void close_piece(Piece& half, const Plane& plane, const LinearColor& color, bool interior);

}  // namespace tv
