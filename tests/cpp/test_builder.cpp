#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "builder.hpp"
#include "polyhedra.hpp"
#include "solid_checks.hpp"

namespace tv {
namespace {

using testing_solids::expect_closed_convex;
using testing_solids::six_volume;

BuiltPuzzle build(std::string_view query) {
  auto built = build_puzzle(*parse_recipe(query));
  if (!built.ok()) ADD_FAILURE() << query << ": " << built.failure().message;
  return built.ok() ? std::move(built).value() : BuiltPuzzle{};
}

std::size_t sticker_count(const BuiltPuzzle& built) {
  std::size_t count = 0;
  for (const Piece& piece : built.pieces.pieces) count += std::count_if(piece.facets.begin(), piece.facets.end(), [](const Facet& f) { return !f.interior; });
  return count;
}

// Numbers renamed into the puzzle's field, by unifying them behind its generator (the field of
// a shell plane already holds every number of the recipe).
std::vector<AlgebraicNumber> in_puzzle_field(const BuiltPuzzle& built, std::vector<AlgebraicNumber> numbers) {
  const auto shell_face = std::find_if(built.shell_solid.facets.begin(), built.shell_solid.facets.end(), [](const Facet& f) { return !f.interior; });
  numbers.insert(numbers.begin(), AlgebraicNumber::generator(shell_face->plane.a.field()));
  EXPECT_TRUE(unify(numbers).ok());
  return {numbers.begin() + 1, numbers.end()};
}

std::vector<Plane> cut_planes(const BuiltPuzzle& built, std::string_view query) {
  const Recipe recipe = *parse_recipe(query);
  const std::vector<Plane> expanded = *expand_shapes(recipe.cuts);
  std::vector<AlgebraicNumber> numbers;
  for (const Plane& p : expanded) numbers.insert(numbers.end(), {p.a, p.b, p.c, p.d});
  numbers = in_puzzle_field(built, numbers);
  std::vector<Plane> planes;
  for (std::size_t i = 0; i < numbers.size(); i += 4) planes.push_back({numbers[i], numbers[i + 1], numbers[i + 2], numbers[i + 3]});
  return planes;
}

// Closed convex pieces on one side of every cut, whose stickers lie in a shell plane and carry
// its color and whose other facets have the interior color; their volumes add up to the shell's
// (textbook volumes at edge 1) less the core.
TEST(BuildPuzzle, CatalogPuzzlesHaveTheirPiecesAndStickers) {
  struct Case {
    const char* query;
    std::size_t pieces, stickers;
    const char* six_volume;
  };
  const Case cases[] = {
      {"?shell=C$1&cut=C$0", 8, 24, "6"},                                      // 2x2x2
      {"?shell=C$1&cut=C$1/3", 26, 54, "6*(1-(1/3)^3)"},                       // 3x3x3
      {"?shell=C$1&cut=C$0&cut=C$1/2", 56, 96, "6*(1-(2/4)^3)"},               // n^3 - (n - 2)^3, 6n^2
      {"?shell=C$1&cut=C$1/5&cut=C$3/5", 98, 150, "6*(1-(3/5)^3)"},
      {"?shell=C$1&cut=C$0&cut=C$1/3&cut=C$2/3", 152, 216, "6*(1-(4/6)^3)"},
      {"?shell=C$1&cut=C$1/7&cut=C$3/7&cut=C$5/7", 218, 294, "6*(1-(5/7)^3)"},
      {"?shell=T$1&cut=T$-1/3&cut=T$-5/3", 14, 36, nullptr},                  // Pyraminx
      {"?shell=T$1&cut=T$0", 14, 28, "6*sqrt(2)/12"},                         // Halpern-Meier Pyramid
      {"?shell=C$sqrt(2)/3&cut=O$0", 14, 30, "6*(sqrt(2)/3)^3"},              // Skewb
      {"?shell=O$1&cut=O$1/3", 42, 72, nullptr},                              // FTO
      {"?shell=O$1&cut=O$0", 14, 32, "6*sqrt(2)/3"},                          // Skewb Diamond
      {"?shell=D$1&cut=D$2/(sqrt(5)+1)", 62, 132, nullptr},                   // Megaminx
      {"?shell=D$1&cut=D$0", 32, 72, "6*(15+7*sqrt(5))/4"},                   // Pentultimate
      {"?shell=C$sqrt(2)/3&cut=O$1/3", 12, 24, nullptr},                      // Dino Cube
      {"?shell=C$3*sqrt(2)/4&cut=jC$1/2", 32, 48, nullptr},                   // Helicopter Cube
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    const BuiltPuzzle built = build(c.query);
    EXPECT_EQ(built.pieces.pieces.size(), c.pieces);
    EXPECT_EQ(sticker_count(built), c.stickers);
    const std::vector<Plane> cuts = cut_planes(built, c.query);
    AlgebraicNumber volume = AlgebraicNumber::zero(rational_field());
    for (const Piece& piece : built.pieces.pieces) {
      expect_closed_convex(piece);
      volume = volume + six_volume(piece);
      for (const Plane& cut : cuts) {
        std::set<int> sides;
        for (const Vertex& v : piece.vertices) sides.insert(side_of(cut, v));
        EXPECT_FALSE(sides.count(-1) && sides.count(1)) << "a piece straddles a cut";
      }
      for (const Facet& f : piece.facets) {
        const auto& shell = built.shell_solid.facets;
        const auto face = std::find_if(shell.begin(), shell.end(), [&](const Facet& s) { return !s.interior && s.plane == f.plane; });
        EXPECT_EQ(face == shell.end(), f.interior);
        EXPECT_EQ(f.color, f.interior ? kInteriorColor : face->color);
      }
    }
    if (c.six_volume) {
      EXPECT_EQ(volume, in_puzzle_field(built, {*eval_expr(*parse_expr(c.six_volume))})[0]);
    }
  }
}

// Pieces ascend by their ranks in the cut groups, read from the last group: rank 0 beyond every
// plane of the group, else 1 + the place (by d, largest first) of the first plane it lies behind.
TEST(BuildPuzzle, PiecesComeInTheOrderOfTheirLayers) {
  for (const char* query : {"?shell=C$1&cut=C$1/3", "?shell=C$1&cut=C$1/5&cut=C$3/5", "?shell=T$1&cut=T$-1/3&cut=T$-5/3",
                            "?shell=C$sqrt(2)/3&cut=O$0", "?shell=C$2&cut=1,0,0$-1/4&cut=2,0,0$-1&cut=C$0"}) {
    SCOPED_TRACE(query);
    const BuiltPuzzle built = build(query);
    std::vector<std::vector<Plane>> groups;
    for (const Plane& p : cut_planes(built, query)) {
      const auto same_normal = [&](const std::vector<Plane>& g) { return g[0].a == p.a && g[0].b == p.b && g[0].c == p.c; };
      const auto group = std::find_if(groups.begin(), groups.end(), same_normal);
      group == groups.end() ? groups.push_back({p}) : group->push_back(p);
    }
    std::vector<std::vector<std::size_t>> ranks;
    for (const Piece& piece : built.pieces.pieces) {
      std::vector<std::size_t>& rank = ranks.emplace_back();
      for (auto group = groups.rbegin(); group != groups.rend(); ++group) {
        std::stable_sort(group->begin(), group->end(), [](const Plane& p, const Plane& q) { return (p.d - q.d).sign() > 0; });
        const auto behind = std::find_if(group->begin(), group->end(), [&](const Plane& p) {
          return std::any_of(piece.vertices.begin(), piece.vertices.end(), [&](const Vertex& v) { return side_of(p, v) < 0; });
        });
        rank.push_back(behind == group->end() ? 0 : behind - group->begin() + 1);
      }
    }
    EXPECT_TRUE(std::is_sorted(ranks.begin(), ranks.end()));
  }
}

TEST(BuildPuzzle, DegenerateRecipesAreNoError) {
  const BuiltPuzzle box = build("");
  EXPECT_EQ(box.field_text, "(no planes)");
  ASSERT_EQ(box.pieces.pieces.size(), 1u);
  EXPECT_EQ(box.pieces.pieces[0].vertices.size(), 8u);
  EXPECT_EQ(box.pieces.pieces[0].facets.size(), 6u);
  EXPECT_EQ(sticker_count(box), 0u);
  EXPECT_EQ(box.scale, 1.0 / (1000.0 * std::sqrt(3.0)));

  const BuiltPuzzle cube = build("?shell=C$1");
  EXPECT_EQ(cube.pieces.pieces.size(), 1u);
  EXPECT_EQ(cube.pieces.pieces[0].facets.size(), sticker_count(cube));
  EXPECT_EQ(cube.scale, 1.1547005383792517);

  const BuiltPuzzle hollow = build("?shell=1,0,0$1&shell=-1,0,0$1");
  ASSERT_EQ(hollow.pieces.pieces.size(), 1u);
  EXPECT_TRUE(hollow.pieces.pieces[0].is_empty());
  EXPECT_EQ(hollow.scale, std::numeric_limits<double>::infinity());

  // Cuts without a shell: no half carries a sticker, so the first cut drops the box as well.
  EXPECT_TRUE(build("?cut=C$1/3").pieces.pieces.empty());

  // An open shell keeps the box faces it does not cut away; their planes have d = 1.
  for (const Piece& piece : build("?shell=1,0,0$0&cut=0,1,0$0").pieces.pieces) {
    expect_closed_convex(piece, false);
    EXPECT_EQ(std::count_if(piece.facets.begin(), piece.facets.end(), [](const Facet& f) { return f.plane.d == AlgebraicNumber::one(rational_field()); }), 4);
  }

  // Cuts that miss, repeat, or meet their line again through the centre change nothing.
  for (const auto& [query, pieces] : {std::pair{"?shell=C$1&cut=C$5", 1u}, {"?shell=C$1&cut=C$1/3&cut=C$1/3", 26u},
                                      {"?shell=C$1&cut=C$0", 8u}, {"?shell=C$2&cut=1,0,0$-1/4&cut=2,0,0$-1", 3u}}) {
    EXPECT_EQ(build(query).pieces.pieces.size(), pieces) << query;
  }

  // A shell plane that misses the solid still uses up its color.
  std::vector<LinearColor> colors;
  for (const Facet& f : build("?shell=1,0,0$-5&shell=C$1").shell_solid.facets) colors.push_back(f.color);
  EXPECT_EQ(colors, (std::vector<LinearColor>{shell_face_color(1), shell_face_color(2), shell_face_color(3),
                                               shell_face_color(4), shell_face_color(5), shell_face_color(6)}));
}

TEST(BuildPuzzle, FailuresPassUpUnchanged) {
  EXPECT_EQ(build_puzzle(*parse_recipe("?shell=C$1&cut=X$1")).failure().message, "unknown polyhedron: 'X'");
  EXPECT_EQ(build_puzzle(*parse_recipe("?shell=C$1/0")).failure().message, eval_expr(*parse_expr("1/0")).failure().message);
  // Every shape is expanded before any is evaluated.
  EXPECT_EQ(build_puzzle(*parse_recipe("?shell=C$1/0&cut=X$1")).failure().message, "unknown polyhedron: 'X'");
}

// Everything a build hands on as text: coefficients, facets, flags, color and scale bits, field.
std::string dump(const BuiltPuzzle& built) {
  std::string out = built.field_text + "\n" + std::to_string(std::bit_cast<std::uint64_t>(built.scale));
  const auto number = [&](const AlgebraicNumber& n) {
    out += ";";
    for (const Fraction& c : n.coefficients()) out += c.to_string() + ",";
  };
  for (const Piece& piece : built.pieces.pieces) {
    out += "\npiece";
    for (const Vertex& v : piece.vertices) number(v.x), number(v.y), number(v.z);
    for (const Facet& f : piece.facets) {
      out += f.interior ? "\ninterior" : "\nsticker";
      for (const std::uint32_t v : f.vertices) (out += ' ') += std::to_string(v);
      number(f.plane.a), number(f.plane.b), number(f.plane.c), number(f.plane.d);
      for (const double channel : {f.color.r, f.color.g, f.color.b}) (out += ' ') += std::to_string(std::bit_cast<std::uint64_t>(channel));
    }
  }
  return out;
}

TEST(BuildPuzzle, BuildsAreTheSameOnAnyThreadAndRun) {
  const auto fnv1a = [](std::string_view text) {
    std::uint64_t hash = 1469598103934665603ull;
    for (const unsigned char c : text) hash = (hash ^ c) * 1099511628211ull;
    return hash;
  };
  for (const auto& [query, digest] : {std::pair{"?shell=C$1&cut=C$1/3", 2953691645746237991ull}, {"?shell=C$sqrt(2)/3&cut=O$1/3", 5312586998799354715ull},
                                      {"?shell=D$1&cut=D$2/(sqrt(5)+1)", 4540297075589990684ull}}) {
    const std::string sequential = dump(build(query));
    std::vector<std::string> concurrent(8);
    {  // as eight interpreter threads calling in at once
      std::vector<std::jthread> callers;
      for (std::string& d : concurrent) callers.emplace_back([&d, query] { d = dump(*build_puzzle(*parse_recipe(query))); });
    }
    for (const std::string& d : concurrent) EXPECT_EQ(d, sequential) << query;
    EXPECT_EQ(fnv1a(sequential), digest) << query;
  }
}

}  // namespace
}  // namespace tv
