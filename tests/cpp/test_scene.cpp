#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "builder.hpp"
#include "catalog.hpp"
#include "parse.hpp"
#include "render/scene.hpp"

namespace tv::render {
namespace {

// A convex piece's outline is its facet edges: the fan diagonals lie in a facet's plane and
// give no segment, and two facets never meet at less than a degree.
TEST(Scene, EveryCatalogPieceOutlinesExactlyItsFacetEdges) {
  for (const CatalogRow& row : catalog_rows()) {
    SCOPED_TRACE(std::string(row.name));
    auto recipe = parse_recipe(row.recipe);
    ASSERT_TRUE(recipe.ok());
    auto built = build_puzzle(*recipe);
    ASSERT_TRUE(built.ok()) << built.failure().message;
    const auto meshes = build_scene(built->pieces.pieces);
    ASSERT_EQ(meshes.size(), built->pieces.pieces.size());
    for (std::size_t i = 0; i < meshes.size(); ++i) {
      std::size_t corners = 0, fan = 0;
      for (const Facet& f : built->pieces.pieces[i].facets) {
        if (f.vertices.size() < 3) continue;
        corners += f.vertices.size();
        fan += f.vertices.size() - 2;
      }
      EXPECT_EQ(meshes[i].outline.size(), corners / 2) << "piece " << i;
      EXPECT_EQ(meshes[i].triangles.size(), fan);
      EXPECT_EQ(meshes[i].colors.size(), fan);
      EXPECT_EQ(meshes[i].facets.size(), fan);
    }
  }
}

TEST(Scene, OutlineSkipsSeamsAndCollapsedTrianglesAndKeepsCreasesAndBorders) {
  const Point3 a{0, 0, 0}, b{1, 0, 0}, c{1, 1, 0}, d{0, 1, 0};
  // Two coplanar triangles of a square: four border segments, no diagonal.
  EXPECT_EQ(outline_of({{a, b, c}, {a, c, d}}).size(), 4u);
  // Folded along the diagonal by 90 degrees: the crease is drawn too.
  EXPECT_EQ(outline_of({{a, b, c}, {a, c, Point3{0, 0, -1}}}).size(), 5u);
  // Folded by half a degree: still a seam.
  const double t = std::tan(0.5 * 0.017453292519943295) / std::sqrt(2.0);
  EXPECT_EQ(outline_of({{a, b, c}, {a, c, Point3{0, 1, t}}}).size(), 4u);
  // A triangle whose corners round to one key adds nothing.
  EXPECT_TRUE(outline_of({{a, Point3{0.00001, 0, 0}, c}}).empty());
  // Non-finite coordinates key as saturated or zero, never undefined.
  EXPECT_EQ(outline_of({{Point3{NAN, 0, 0}, Point3{INFINITY, 0, 0}, Point3{-INFINITY, 1, 0}}}).size(), 3u);
}

TEST(Scene, ViewMatrixNudgesAUnitUpAlongTheSightLineAndGivesUpOnAZeroSide) {
  Camera camera;
  camera.position = {0, 0, 5};
  camera.up = {0, 0, 1};
  const auto nudged = view_matrix(camera);
  ASSERT_TRUE(nudged.has_value());
  EXPECT_TRUE(std::isfinite((*nudged)[0]));
  camera.up = {0, 0, 2};
  EXPECT_FALSE(view_matrix(camera).has_value());
  camera.up = {0, 0, 0};
  EXPECT_FALSE(view_matrix(camera).has_value());
}

}  // namespace
}  // namespace tv::render
