// Checks of exact solids shared by the piece and builder tests.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <utility>

#include "piece.hpp"

namespace tv::testing_solids {

// Six times the volume, summing o . (u x v) over fans of the facets: positive when every
// facet is walked anticlockwise seen from outside.
inline AlgebraicNumber six_volume(const Piece& piece) {
  AlgebraicNumber total = AlgebraicNumber::zero(rational_field());
  for (const Facet& f : piece.facets) {
    const Vertex& o = piece.vertices[f.vertices[0]];
    for (std::size_t i = 1; i + 1 < f.vertices.size(); ++i) {
      const Vertex& u = piece.vertices[f.vertices[i]];
      const Vertex& v = piece.vertices[f.vertices[i + 1]];
      total = total + o.x * (u.y * v.z - u.z * v.y) + o.y * (u.z * v.x - u.x * v.z) + o.z * (u.x * v.y - u.y * v.x);
    }
  }
  return total;
}

// Closed (each edge walked once each way), V - E + F = 2, positive volume, and (unless faces
// of the box remain, whose planes face inwards) convex: every vertex inside each facet's plane,
// on it exactly when the facet holds it.
inline void expect_closed_convex(const Piece& piece, bool outward_planes = true) {
  std::map<std::pair<std::uint32_t, std::uint32_t>, int> directed;
  for (const Facet& f : piece.facets) {
    std::uint32_t prev = f.vertices.back();
    for (const std::uint32_t cur : f.vertices) ++directed[{std::exchange(prev, cur), cur}];
    for (std::uint32_t v = 0; outward_planes && v < piece.vertices.size(); ++v) {
      const bool on_facet = std::find(f.vertices.begin(), f.vertices.end(), v) != f.vertices.end();
      EXPECT_EQ(side_of(f.plane, piece.vertices[v]), on_facet ? 0 : -1) << "vertex " << v;
    }
  }
  for (const auto& [edge, count] : directed) EXPECT_TRUE(count == 1 && directed.count({edge.second, edge.first}));
  EXPECT_EQ(piece.vertices.size() + piece.facets.size(), directed.size() / 2 + 2);
  EXPECT_GT(six_volume(piece).sign(), 0);
}

}  // namespace tv::testing_solids
