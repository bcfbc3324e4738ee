#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "piece.hpp"

namespace tv {
namespace {

const FieldRef& q_field() { return rational_field(); }
AlgebraicNumber num(std::int64_t n, std::int64_t d = 1) { return AlgebraicNumber::constant(q_field(), Fraction::of(Int(n), Int(d))); }
Plane plane(std::int64_t a, std::int64_t b, std::int64_t c, std::int64_t d) { return {num(a), num(b), num(c), num(d)}; }

// A cube from -1 to 1 whose faces are all cut planes (outward normals), made by carving the box.
Piece unit_cube() {
  Piece solid = box_piece(Int(1000));
  for (const Plane& face : {plane(1, 0, 0, -1), plane(-1, 0, 0, -1), plane(0, 1, 0, -1), plane(0, -1, 0, -1),
                            plane(0, 0, 1, -1), plane(0, 0, -1, -1)}) {
    solid = split_piece(solid, face, kInteriorColor, false)->second;
  }
  return solid;
}

AlgebraicNumber cross_dot(const Vertex& o, const Vertex& u, const Vertex& v) {
  // o . (u x v)
  return o.x * (u.y * v.z - u.z * v.y) + o.y * (u.z * v.x - u.x * v.z) + o.z * (u.x * v.y - u.y * v.x);
}

// Six times the volume, by fans of each facet from its first vertex; positive when every facet
// is walked anticlockwise seen from outside.
AlgebraicNumber six_volume(const Piece& piece) {
  AlgebraicNumber total = num(0);
  for (const Facet& f : piece.facets) {
    for (std::size_t i = 1; i + 1 < f.vertices.size(); ++i) {
      total = total + cross_dot(piece.vertices[f.vertices[0]], piece.vertices[f.vertices[i]], piece.vertices[f.vertices[i + 1]]);
    }
  }
  return total;
}

// Closed (each edge walked once each way), Euler characteristic 2, convex with every facet in
// its outward plane, and every vertex used.
void expect_closed_convex(const Piece& piece) {
  std::map<std::pair<std::uint32_t, std::uint32_t>, int> directed;
  std::set<std::uint32_t> used;
  for (const Facet& f : piece.facets) {
    ASSERT_GE(f.vertices.size(), 3u);
    std::uint32_t prev = f.vertices.back();
    for (const std::uint32_t cur : f.vertices) {
      ++directed[{prev, cur}];
      used.insert(cur);
      prev = cur;
    }
    for (std::uint32_t v = 0; v < piece.vertices.size(); ++v) {
      const int side = side_of(f.plane, piece.vertices[v]);
      const bool on_facet = std::find(f.vertices.begin(), f.vertices.end(), v) != f.vertices.end();
      EXPECT_EQ(side == 0, on_facet) << "vertex " << v;
      EXPECT_LE(side, 0) << "vertex " << v << " outside a facet plane";
    }
  }
  for (const auto& [edge, count] : directed) {
    EXPECT_EQ(count, 1);
    EXPECT_EQ(directed.count({edge.second, edge.first}), 1u) << "edge walked one way only";
  }
  EXPECT_EQ(used.size(), piece.vertices.size());
  const std::size_t edges = directed.size() / 2;
  EXPECT_EQ(piece.vertices.size() + piece.facets.size(), edges + 2);
  EXPECT_GT(six_volume(piece).sign(), 0);
}

TEST(SplitPiece, PlaneThroughThreeCornersCutsOffACornerWithoutNewVertices) {
  const Piece cube = unit_cube();
  const auto halves = *split_piece(cube, plane(1, 1, 1, -1), kInteriorColor, true);
  EXPECT_EQ(halves.first.vertices.size(), 4u);
  EXPECT_EQ(halves.first.facets.size(), 4u);
  EXPECT_EQ(halves.second.vertices.size(), 7u);
  EXPECT_EQ(halves.second.facets.size(), 7u);
  expect_closed_convex(halves.first);
  expect_closed_convex(halves.second);
  EXPECT_EQ(six_volume(halves.first), num(8));  // the corner tetrahedron, 4/3
  EXPECT_EQ(six_volume(halves.second), num(40));
}

TEST(SplitPiece, DiagonalPlaneUsesTwoVerticesOfAFacetOnBothSides) {
  const auto halves = *split_piece(unit_cube(), plane(1, -1, 0, 0), kInteriorColor, true);
  for (const Piece* half : {&halves.first, &halves.second}) {
    EXPECT_EQ(half->vertices.size(), 6u);
    EXPECT_EQ(half->facets.size(), 5u);
    expect_closed_convex(*half);
    EXPECT_EQ(six_volume(*half), num(24));
  }
}

TEST(SplitPiece, MidPlaneSharesEachCrossingBetweenTheFacetsOfItsEdge) {
  const auto halves = *split_piece(unit_cube(), plane(2, 0, 0, -1), kInteriorColor, true);
  for (const Piece* half : {&halves.first, &halves.second}) {
    EXPECT_EQ(half->vertices.size(), 8u);
    EXPECT_EQ(half->facets.size(), 6u);
    expect_closed_convex(*half);
  }
  EXPECT_EQ(six_volume(halves.first), num(12));
  EXPECT_EQ(six_volume(halves.second), num(36));
  // The crossings lie exactly at x = 1/2.
  for (const Vertex& v : halves.first.vertices) EXPECT_TRUE(v.x == num(1) || v.x == num(1, 2));
}

TEST(SplitPiece, PlanesThatDoNotCrossLeaveTheSamePiece) {
  const Piece cube = unit_cube();
  struct Case {
    Plane plane;
    bool positive;
  };
  const Case cases[] = {
      {plane(1, 1, 0, -2), false},   // along an edge
      {plane(-1, -1, 0, 2), true},   // the same, facing the other way
      {plane(1, 0, 0, -1), false},   // containing a facet
      {plane(-1, 0, 0, 1), true},
      {plane(1, 0, 0, -5), false},  // missing it
  };
  for (const Case& c : cases) {
    const auto halves = *split_piece(cube, c.plane, kInteriorColor, true);
    const Piece& kept = c.positive ? halves.first : halves.second;
    const Piece& other = c.positive ? halves.second : halves.first;
    EXPECT_TRUE(other.is_empty());
    EXPECT_EQ(kept.vertices, cube.vertices);
    ASSERT_EQ(kept.facets.size(), cube.facets.size());
    for (std::size_t i = 0; i < cube.facets.size(); ++i) EXPECT_EQ(kept.facets[i].vertices, cube.facets[i].vertices);
  }
}

TEST(SplitPiece, AFlatPieceOnThePlaneCountsAsPositive) {
  Piece square;
  for (const auto& [x, y] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 1}}) square.vertices.push_back({num(x), num(y), num(0)});
  square.facets.push_back({{0, 1, 2, 3}, plane(0, 0, 1, 0), kInteriorColor, true});
  const auto halves = *split_piece(square, plane(0, 0, 1, 0), kInteriorColor, true);
  EXPECT_EQ(halves.first.vertices.size(), 4u);
  EXPECT_TRUE(halves.second.is_empty());
}

TEST(SplitPiece, ACutMarksOnlyTheNegativeCapWithTheGivenFlag) {
  const LinearColor red{1.0, 0.0, 0.0};
  const auto halves = *split_piece(unit_cube(), plane(0, 0, 1, 0), red, false);
  const Facet& negative_cap = halves.second.facets.back();
  const Facet& positive_cap = halves.first.facets.back();
  EXPECT_FALSE(negative_cap.interior);
  EXPECT_TRUE(positive_cap.interior);
  EXPECT_EQ(negative_cap.color, red);
  EXPECT_EQ(positive_cap.color, red);
  EXPECT_EQ(negative_cap.plane, plane(0, 0, 1, 0));
  EXPECT_EQ(positive_cap.plane, negated(plane(0, 0, 1, 0)));
}

// A random plane of one of the kinds that stress the exact cases: through a vertex, along an
// edge, in a facet's plane, or anywhere.
Plane random_plane(const Piece& piece, std::mt19937& random) {
  std::uniform_int_distribution<int> small(-3, 3);
  const auto any_normal = [&] {
    while (true) {
      const int a = small(random), b = small(random), c = small(random);
      if (a != 0 || b != 0 || c != 0) return Vertex{num(a), num(b), num(c)};
    }
  };
  const auto through = [](const Vertex& n, const Vertex& p) {
    return Plane{n.x, n.y, n.z, -(n.x * p.x + n.y * p.y + n.z * p.z)};
  };
  const Facet& facet = piece.facets[random() % piece.facets.size()];
  switch (random() % 4) {
    case 0:
      return through(any_normal(), piece.vertices[random() % piece.vertices.size()]);
    case 1: {
      const Vertex& u = piece.vertices[facet.vertices[0]];
      const Vertex& v = piece.vertices[facet.vertices[1]];
      const Vertex e{v.x - u.x, v.y - u.y, v.z - u.z};
      const Vertex n = any_normal();
      const Vertex normal{n.y * e.z - n.z * e.y, n.z * e.x - n.x * e.z, n.x * e.y - n.y * e.x};
      if (normal.x.is_zero() && normal.y.is_zero() && normal.z.is_zero()) return facet.plane;
      return through(normal, u);
    }
    case 2:
      return random() % 2 ? facet.plane : negated(facet.plane);
    default: {
      const Vertex n = any_normal();
      return {n.x, n.y, n.z, num(small(random), 4)};
    }
  }
}

TEST(SplitPiece, RandomCutsGiveClosedConvexHalvesWhoseVolumesAdd) {
  std::mt19937 random(2024);
  for (int trial = 0; trial < 40; ++trial) {
    Piece piece = unit_cube();
    for (int cut = 0; cut < 6; ++cut) {
      const Plane p = random_plane(piece, random);
      const auto halves = *split_piece(piece, p, kInteriorColor, true);
      const AlgebraicNumber whole = six_volume(piece);
      AlgebraicNumber sum = num(0);
      for (const auto& [half, side] : {std::pair{&halves.first, 1}, std::pair{&halves.second, -1}}) {
        if (half->is_empty()) continue;
        expect_closed_convex(*half);
        for (const Vertex& v : half->vertices) EXPECT_NE(side_of(p, v), -side);
        sum = sum + six_volume(*half);
      }
      EXPECT_EQ(sum, whole);
      // Carry on with the larger half so that the pieces stay interesting.
      const bool keep_positive = halves.second.is_empty() ||
                                 (!halves.first.is_empty() && (six_volume(halves.first) - six_volume(halves.second)).sign() >= 0);
      piece = keep_positive ? halves.first : halves.second;
    }
  }
}

TEST(SplitPiece, IrrationalPlanesSplitExactly) {
  const auto field = NumberField::make(QPoly({Fraction(-5), Fraction(0), Fraction(1)}), Fraction(2), Fraction(3), true);
  const AlgebraicNumber s5 = AlgebraicNumber::generator(*field);
  // Planes with normals (1, phi, 0) and friends through points at irrational offsets.
  const AlgebraicNumber phi = (num(1) + s5) * num(1, 2);
  Piece piece = unit_cube();
  for (const Plane& p : {Plane{num(1), phi, num(0), -phi * num(1, 2)}, Plane{num(0), num(1), phi, -num(1, 3)},
                         Plane{phi, num(0), num(1), num(0)}, Plane{-num(1), phi, num(0), -s5 * num(1, 5)}}) {
    const auto halves = *split_piece(piece, p, kInteriorColor, true);
    ASSERT_FALSE(halves.first.is_empty());
    ASSERT_FALSE(halves.second.is_empty());
    expect_closed_convex(halves.first);
    expect_closed_convex(halves.second);
    EXPECT_EQ(six_volume(halves.first) + six_volume(halves.second), six_volume(piece));
    piece = halves.second;
  }
}

TEST(SplitPiece, AnOpenRimIsReportedOnceAndTheHalfIsStillReturned) {
  // A cube with one facet walked backwards is not a closed solid: the rim of a cut through it
  // is a chain, not a loop.
  Piece broken = unit_cube();
  std::reverse(broken.facets[4].vertices.begin(), broken.facets[4].vertices.end());
  testing::internal::CaptureStderr();
  const auto halves = split_piece(broken, plane(1, 0, 0, 0), kInteriorColor, true);
  const std::string written = testing::internal::GetCapturedStderr();
  ASSERT_TRUE(halves.ok());
  EXPECT_EQ(written, "not all cut points visited\n");
  EXPECT_FALSE(halves->first.facets.empty());
  EXPECT_FALSE(halves->second.facets.empty());
}

TEST(Piece, TheBoxHasItsCornerBitsAndAnticlockwiseFaces) {
  const Piece box = box_piece(Int(1000));
  ASSERT_EQ(box.vertices.size(), 8u);
  for (unsigned k = 0; k < 8; ++k) {
    EXPECT_EQ(box.vertices[k].x, num(k & 1 ? 1000 : -1000));
    EXPECT_EQ(box.vertices[k].y, num(k & 2 ? 1000 : -1000));
    EXPECT_EQ(box.vertices[k].z, num(k & 4 ? 1000 : -1000));
  }
  EXPECT_EQ(box.facets[0].vertices, (std::vector<std::uint32_t>{0, 4, 6, 2}));
  EXPECT_EQ(box.facets[1].vertices, (std::vector<std::uint32_t>{1, 3, 7, 5}));
  for (const Facet& f : box.facets) {
    EXPECT_TRUE(f.interior);
    EXPECT_EQ(f.plane.d, num(1));
    for (const std::uint32_t v : f.vertices) EXPECT_EQ(side_of(f.plane, box.vertices[v]), 0);
  }
  EXPECT_EQ(six_volume(box), num(8'000'000'000 * 6));
  EXPECT_EQ(box.orientation, Quaternion::identity());
}

}  // namespace
}  // namespace tv
