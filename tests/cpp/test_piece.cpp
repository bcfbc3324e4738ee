#include <gtest/gtest.h>

#include <random>
#include <utility>
#include <vector>

#include "piece.hpp"
#include "solid_checks.hpp"

namespace tv {
namespace {

using testing_solids::expect_closed_convex;
using testing_solids::six_volume;

AlgebraicNumber num(std::int64_t n, std::int64_t d = 1) { return AlgebraicNumber::constant(rational_field(), Fraction::of(Int(n), Int(d))); }
Plane plane(std::int64_t a, std::int64_t b, std::int64_t c, std::int64_t d) { return {num(a), num(b), num(c), num(d)}; }

// The cube from -1 to 1, carved from the box so that its faces face outwards.
Piece unit_cube() {
  Piece solid = box_piece(Int(1000));
  for (const Plane& face : {plane(1, 0, 0, -1), plane(-1, 0, 0, -1), plane(0, 1, 0, -1), plane(0, -1, 0, -1),
                            plane(0, 0, 1, -1), plane(0, 0, -1, -1)}) {
    solid = split_piece(solid, face, kInteriorColor, false)->second;
  }
  return solid;
}

TEST(SplitPiece, ExactCasesOfTheCube) {
  struct Case {
    const char* what;
    Plane plane;
    std::size_t positive_vertices, positive_facets, negative_vertices, negative_facets;  // 0: an empty half
    std::int64_t positive_six_volume;
  };
  const Case cases[] = {
      {"through three corners", plane(1, 1, 1, -1), 4, 4, 7, 7, 8},
      {"through a facet's diagonal", plane(1, -1, 0, 0), 6, 5, 6, 5, 24},
      {"crossing four edges", plane(2, 0, 0, -1), 8, 6, 8, 6, 12},
      {"along an edge", plane(1, 1, 0, -2), 0, 0, 8, 6, 0},
      {"along an edge, reversed", plane(-1, -1, 0, 2), 8, 6, 0, 0, 48},
      {"containing a facet", plane(1, 0, 0, -1), 0, 0, 8, 6, 0},
      {"containing a facet, reversed", plane(-1, 0, 0, 1), 8, 6, 0, 0, 48},
      {"missing", plane(1, 0, 0, -5), 0, 0, 8, 6, 0},
  };
  const Piece cube = unit_cube();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const auto [positive, negative] = *split_piece(cube, c.plane, kInteriorColor, true);
    EXPECT_EQ(positive.vertices.size(), c.positive_vertices);
    EXPECT_EQ(positive.facets.size(), c.positive_facets);
    EXPECT_EQ(negative.vertices.size(), c.negative_vertices);
    EXPECT_EQ(negative.facets.size(), c.negative_facets);
    if (positive.is_empty() || negative.is_empty()) {  // an unchanged copy, numbering and all
      const Piece& kept = positive.is_empty() ? negative : positive;
      EXPECT_EQ(kept.vertices, cube.vertices);
      for (std::size_t i = 0; i < cube.facets.size(); ++i) EXPECT_EQ(kept.facets[i].vertices, cube.facets[i].vertices);
      continue;
    }
    expect_closed_convex(positive);
    expect_closed_convex(negative);
    EXPECT_EQ(six_volume(positive), num(c.positive_six_volume));
    EXPECT_EQ(six_volume(positive) + six_volume(negative), num(48));
  }
}

TEST(SplitPiece, BothCapsTakeTheColorAndOnlyTheNegativeOneTheFlag) {
  const LinearColor red{1.0, 0.0, 0.0};
  const auto [positive, negative] = *split_piece(unit_cube(), plane(0, 0, 1, 0), red, false);
  EXPECT_FALSE(negative.facets.back().interior);
  EXPECT_TRUE(positive.facets.back().interior);
  EXPECT_EQ(negative.facets.back().color, red);
  EXPECT_EQ(positive.facets.back().color, red);
  EXPECT_EQ(positive.facets.back().plane, negated(plane(0, 0, 1, 0)));
}

// Planes through a vertex, along an edge, in a facet's plane, or anywhere.
Plane random_plane(const Piece& piece, std::mt19937& random) {
  const auto normal = [&] {
    while (true) {
      const Vertex n{num(int(random() % 7) - 3), num(int(random() % 7) - 3), num(int(random() % 7) - 3)};
      if (!n.x.is_zero() || !n.y.is_zero() || !n.z.is_zero()) return n;
    }
  };
  const auto through = [](const Vertex& n, const Vertex& p) { return Plane{n.x, n.y, n.z, -(n.x * p.x + n.y * p.y + n.z * p.z)}; };
  const Facet& facet = piece.facets[random() % piece.facets.size()];
  const Vertex& u = piece.vertices[facet.vertices[0]];
  const Vertex& v = piece.vertices[facet.vertices[1]];
  const Vertex n = normal();
  switch (random() % 4) {
    case 0: return through(n, piece.vertices[random() % piece.vertices.size()]);
    case 1: {
      const Vertex e{v.x - u.x, v.y - u.y, v.z - u.z};
      const Vertex m{n.y * e.z - n.z * e.y, n.z * e.x - n.x * e.z, n.x * e.y - n.y * e.x};
      return m.x.is_zero() && m.y.is_zero() && m.z.is_zero() ? facet.plane : through(m, u);
    }
    case 2: return random() % 2 ? facet.plane : negated(facet.plane);
    default: return {n.x, n.y, n.z, num(int(random() % 7) - 3, 4)};
  }
}

TEST(SplitPiece, RandomCutsGiveClosedConvexHalvesOnTheirSidesWhoseVolumesAdd) {
  std::mt19937 random(2024);
  for (int trial = 0; trial < 40; ++trial) {
    Piece piece = unit_cube();
    for (int cut = 0; cut < 6; ++cut) {
      const Plane p = random_plane(piece, random);
      const auto [positive, negative] = *split_piece(piece, p, kInteriorColor, true);
      AlgebraicNumber sum = num(0);
      for (const auto& [half, side] : {std::pair{&positive, 1}, std::pair{&negative, -1}}) {
        if (half->is_empty()) continue;
        expect_closed_convex(*half);
        for (const Vertex& v : half->vertices) EXPECT_NE(side_of(p, v), -side);
        sum = sum + six_volume(*half);
      }
      EXPECT_EQ(sum, six_volume(piece));
      piece = negative.is_empty() || (!positive.is_empty() && (six_volume(positive) - six_volume(negative)).sign() > 0)
                  ? positive
                  : negative;
    }
  }
}

TEST(SplitPiece, AnOpenRimIsReportedOnceAndTheHalfIsStillReturned) {
  Piece broken = unit_cube();  // one facet walked backwards: the rim of a cut is a chain
  std::reverse(broken.facets[4].vertices.begin(), broken.facets[4].vertices.end());
  testing::internal::CaptureStderr();
  const auto halves = split_piece(broken, plane(1, 0, 0, 0), kInteriorColor, true);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "not all cut points visited\n");
  ASSERT_TRUE(halves.ok());
  EXPECT_FALSE(halves->second.facets.empty());
}

}  // namespace
}  // namespace tv
