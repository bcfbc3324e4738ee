// Splitting a convex piece by a plane and closing the cut, exactly.
#include "piece.hpp"

#include <algorithm>
#include <cstdio>

#include "sort.hpp"

namespace tv {

namespace {

// n . v, summed in the order x, y, z.
AlgebraicNumber dot(const Plane& plane, const AlgebraicNumber& x, const AlgebraicNumber& y, const AlgebraicNumber& z) {
  return plane.a * x + plane.b * y + plane.c * z;
}

AlgebraicNumber plane_value(const Plane& plane, const Vertex& v) { return dot(plane, v.x, v.y, v.z) + plane.d; }

// A half under construction: its vertices are copies of working vertices, numbered in the
// order the facets first use them.
class HalfBuilder {
 public:
  explicit HalfBuilder(std::size_t working_size) : remap_(working_size, kUnmapped) {}

  // A facet over the given working indices, which need not have been seen before.
  void add_facet(const std::vector<std::uint32_t>& working, const std::vector<Vertex>& working_vertices,
                 const Facet& source) {
    if (remap_.size() < working_vertices.size()) remap_.resize(working_vertices.size(), kUnmapped);
    Facet facet{{}, source.plane, source.color, source.interior};
    facet.vertices.reserve(working.size());
    for (const std::uint32_t w : working) {
      if (remap_[w] == kUnmapped) {
        remap_[w] = static_cast<std::uint32_t>(piece_.vertices.size());
        piece_.vertices.push_back(working_vertices[w]);
      }
      facet.vertices.push_back(remap_[w]);
    }
    piece_.facets.push_back(std::move(facet));
  }

  Piece& piece() { return piece_; }

 private:
  static constexpr std::uint32_t kUnmapped = UINT32_MAX;
  Piece piece_;
  std::vector<std::uint32_t> remap_;
};

std::uint64_t pair_key(std::uint32_t first, std::uint32_t second) { return (std::uint64_t{first} << 32) | second; }

}  // namespace

Plane negated(const Plane& plane) { return {-plane.a, -plane.b, -plane.c, -plane.d}; }

int side_of(const Plane& plane, const Vertex& vertex) { return plane_value(plane, vertex).sign(); }

Quaternion Quaternion::identity() {
  const FieldRef& q = rational_field();
  return {AlgebraicNumber::zero(q), AlgebraicNumber::zero(q), AlgebraicNumber::zero(q), AlgebraicNumber::one(q)};
}

Piece box_piece(const Int& half_size) {
  TV_ENSURE(half_size > Int(0), "a box needs a positive half size");
  const FieldRef& q = rational_field();
  const AlgebraicNumber high = AlgebraicNumber::from_int(q, half_size);
  const AlgebraicNumber low = high.neg();
  Piece box;
  for (unsigned k = 0; k < 8; ++k) box.vertices.push_back({k & 1 ? high : low, k & 2 ? high : low, k & 4 ? high : low});
  const AlgebraicNumber zero = AlgebraicNumber::zero(q);
  const AlgebraicNumber one = AlgebraicNumber::one(q);
  // The plane through the face at `offset` on the axis of bit `a`, with d = 1: -x/offset + 1 = 0.
  const auto face_plane = [&](unsigned a, const Int& offset) {
    const AlgebraicNumber coefficient = AlgebraicNumber::constant(q, Fraction::of(Int(-1), offset));
    return Plane{a == 1 ? coefficient : zero, a == 2 ? coefficient : zero, a == 4 ? coefficient : zero, one};
  };
  for (unsigned a = 1; a <= 4; a *= 2) {
    const unsigned b = a == 4 ? 1 : a * 2;
    const unsigned c = b == 4 ? 1 : b * 2;
    box.facets.push_back({{0, c, b + c, b}, face_plane(a, -half_size), kInteriorColor, true});
    box.facets.push_back({{a, a + b, a + b + c, a + c}, face_plane(a, half_size), kInteriorColor, true});
  }
  return box;
}

Result<std::pair<Piece, Piece>> split_piece(const Piece& piece, const Plane& plane, const LinearColor& color,
                                            bool interior) {
  std::vector<Vertex> working = piece.vertices;
  std::vector<int> signs;
  signs.reserve(working.size());
  bool any_negative = false;
  bool any_positive = false;
  for (const Vertex& v : working) {
    signs.push_back(side_of(plane, v));
    any_negative |= signs.back() < 0;
    any_positive |= signs.back() > 0;
  }
  if (!any_negative) return std::pair{piece, Piece{}};
  if (!any_positive) return std::pair{Piece{}, piece};

  HalfBuilder positive(working.size());
  HalfBuilder negative(working.size());
  std::unordered_map<std::uint64_t, std::uint32_t> crossings;  // (negative end, positive end) -> working index
  std::vector<std::uint32_t> above, below;
  for (const Facet& facet : piece.facets) {
    if (facet.vertices.empty()) continue;
    above.clear();
    below.clear();
    std::uint32_t prev = facet.vertices.back();
    for (const std::uint32_t cur : facet.vertices) {
      if (signs[prev] * signs[cur] < 0) {
        const std::uint64_t key = signs[prev] < 0 ? pair_key(prev, cur) : pair_key(cur, prev);
        auto [place, inserted] = crossings.try_emplace(key, static_cast<std::uint32_t>(working.size()));
        if (inserted) {
          const Vertex& q = working[prev];
          const Vertex& p = working[cur];
          const AlgebraicNumber dx = p.x - q.x, dy = p.y - q.y, dz = p.z - q.z;
          const AlgebraicNumber e = plane_value(plane, q);
          const AlgebraicNumber f = dot(plane, dx, dy, dz);
          TV_TRY(const AlgebraicNumber inverse_f, f.inverse());
          const AlgebraicNumber t = e * inverse_f;
          working.push_back({q.x - t * dx, q.y - t * dy, q.z - t * dz});
          signs.push_back(0);
        }
        above.push_back(place->second);
        below.push_back(place->second);
      }
      if (signs[cur] >= 0) above.push_back(cur);
      if (signs[cur] <= 0) below.push_back(cur);
      prev = cur;
    }
    if (above.size() > 2) positive.add_facet(above, working, facet);
    if (below.size() > 2) negative.add_facet(below, working, facet);
  }
  close_piece(negative.piece(), plane, color, interior);
  close_piece(positive.piece(), negated(plane), color, true);
  return std::pair{std::move(positive.piece()), std::move(negative.piece())};
}

void close_piece(Piece& half, const Plane& plane, const LinearColor& color, bool interior) {
  // Directed uses of each edge, keyed by its unordered pair of ends, in first-seen order.
  InsertionOrderedMap<std::uint64_t, std::vector<std::pair<std::uint32_t, std::uint32_t>>> edges;
  for (const Facet& facet : half.facets) {
    if (facet.vertices.empty()) continue;
    std::uint32_t prev = facet.vertices.back();
    for (const std::uint32_t cur : facet.vertices) {
      edges[pair_key(std::min(prev, cur), std::max(prev, cur))].emplace_back(prev, cur);
      prev = cur;
    }
  }
  // Rim edges entered backwards, so the new face runs against the rim.
  const std::size_t n = half.vertices.size();
  std::vector<std::vector<std::uint32_t>> adjacency(n);
  std::vector<bool> on_rim(n, false);
  for (const auto& [key, uses] : edges) {
    if (uses.size() != 1) continue;
    const auto [from, to] = uses.front();
    adjacency[to].push_back(from);
    on_rim[to] = true;
  }
  std::vector<std::uint32_t> rim;  // vertices with an adjacency list, ascending
  for (std::uint32_t v = 0; v < n; ++v) {
    if (on_rim[v]) rim.push_back(v);
  }

  std::vector<bool> visited(n, false);
  std::size_t counter = 0;
  std::size_t next_start = 0;
  while (counter != rim.size()) {
    while (next_start < rim.size() && visited[rim[next_start]]) ++next_start;
    if (next_start == rim.size()) {
      std::fputs("not all cut points visited\n", stderr);
      return;
    }
    Facet face{{}, plane, color, interior};
    std::uint32_t current = rim[next_start];
    while (true) {
      face.vertices.push_back(current);
      visited[current] = true;
      ++counter;
      const auto& neighbours = adjacency[current];
      const auto next = std::find_if(neighbours.begin(), neighbours.end(), [&](std::uint32_t v) { return !visited[v]; });
      if (next == neighbours.end()) break;
      current = *next;
    }
    half.facets.push_back(std::move(face));
  }
}

}  // namespace tv
