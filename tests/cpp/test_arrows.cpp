#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <tuple>

#include "builder.hpp"
#include "movement.hpp"
#include "parse.hpp"
#include "render/arrows.hpp"

namespace tv::render {
namespace {

double shoelace_area(const std::vector<Point2>& p) {
  double sum = 0.0;
  for (std::size_t i = 0; i < p.size(); ++i) sum += p[i].x * p[(i + 1) % p.size()].y - p[(i + 1) % p.size()].x * p[i].y;
  return std::abs(sum) / 2.0;
}

TEST(Arrows, EarsAreCounterclockwiseAndCoverTheOutline) {
  const auto outline = arrow_outline();
  ASSERT_EQ(outline.size(), 29u);
  const auto ears = ear_clip(outline);
  ASSERT_EQ(ears.size(), 27u);
  double area = 0.0;
  for (const auto& [a, b, c] : ears) {
    const Point2 &p = outline[a], &q = outline[b], &r = outline[c];
    const double twice = (q.x - p.x) * (r.y - p.y) - (r.x - p.x) * (q.y - p.y);
    EXPECT_GT(twice, 0.0);
    area += twice / 2.0;
  }
  EXPECT_NEAR(area, shoelace_area(outline), 1e-12);
}

TEST(Arrows, TheSolidIsClosedConsistentlyOrientedAndAsDeepAsItsThickness) {
  const auto mesh = arrow_mesh();
  ASSERT_EQ(mesh.size(), 112u);
  using Key = std::tuple<double, double, double>;
  std::map<std::pair<Key, Key>, int> directed;
  double volume = 0.0;
  for (const Triangle3& t : mesh) {
    for (int e = 0; e < 3; ++e) {
      const Point3 &a = t[e], &b = t[(e + 1) % 3];
      ++directed[{{a.x, a.y, a.z}, {b.x, b.y, b.z}}];
    }
    const Point3 &a = t[0], &b = t[1], &c = t[2];
    volume += (a.x * (b.y * c.z - b.z * c.y) - a.y * (b.x * c.z - b.z * c.x) + a.z * (b.x * c.y - b.y * c.x)) / 6.0;
  }
  for (const auto& [edge, count] : directed) {
    EXPECT_EQ(count, 1);
    EXPECT_EQ(directed.count({edge.second, edge.first}), 1u);
  }
  EXPECT_NEAR(std::abs(volume), 0.2 * shoelace_area(arrow_outline()), 1e-12);
}

double determinant3(const Matrix4& m) {
  return m[0] * (m[5] * m[10] - m[9] * m[6]) - m[4] * (m[1] * m[10] - m[9] * m[2]) + m[8] * (m[1] * m[6] - m[5] * m[2]);
}

TEST(Arrows, ArrowsStandOnTheGripNormalLayerByLayerAndMirrorInPairs) {
  auto recipe = parse_recipe("?shell=C$1&cut=C$0&cut=C$1/2");  // 4x4x4
  ASSERT_TRUE(recipe.ok());
  auto built = build_puzzle(*recipe);
  ASSERT_TRUE(built.ok());
  auto grips = derive_grips(built->pieces);
  ASSERT_TRUE(grips.ok());
  const auto arrows = place_arrows(*grips, built->pieces.base_rotation);
  ASSERT_EQ(arrows.size(), 2 * grips->size());
  std::map<std::string, int> seen;
  std::map<double, int> distances;
  for (std::size_t k = 0; k < grips->size(); ++k) {
    const Plane& plane = (*grips)[k].plane;
    const int layer = seen[normal_key(plane)]++;
    const double a = plane.a.to_f64(), b = plane.b.to_f64(), c = plane.c.to_f64();
    const double l = std::sqrt(a * a + b * b + c * c);
    for (int mirrored = 0; mirrored < 2; ++mirrored) {
      const Matrix4& m = arrows[2 * k + mirrored].model;
      const double d = 1.25 + 0.25 * layer;
      EXPECT_NEAR(m[12], a / l * d, 1e-12);
      EXPECT_NEAR(m[13], b / l * d, 1e-12);
      EXPECT_NEAR(m[14], c / l * d, 1e-12);
      ++distances[std::round(std::sqrt(m[12] * m[12] + m[13] * m[13] + m[14] * m[14]) * 1e9) / 1e9];
      for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
          const double product = m[4 * i] * m[4 * j] + m[4 * i + 1] * m[4 * j + 1] + m[4 * i + 2] * m[4 * j + 2];
          EXPECT_NEAR(product, i == j ? 0.04 : 0.0, 1e-12);
        }
      }
      EXPECT_EQ(determinant3(m) > 0.0, mirrored == 0);
    }
  }
  EXPECT_EQ(distances.size(), 2u);
  EXPECT_EQ(distances.begin()->first, 1.25);
  EXPECT_EQ(distances.rbegin()->first, 1.5);
}

}  // namespace
}  // namespace tv::render
