#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "parse.hpp"
#include "polyhedra.hpp"
#include "pool.hpp"

namespace tv {
namespace {

// The table as a user of the polyhedra relies on it: code, plane count, and the distances of
// the planes from the centre at size 1 (two for the rows with two orbits).
struct Expected {
  const char* code;
  std::size_t planes;
  std::vector<const char*> distances;
};

const std::vector<Expected>& expected_rows() {
  static const std::vector<Expected> rows = {
      {"T", 4, {"0.204124"}},           {"C", 6, {"0.500000"}},
      {"O", 8, {"0.408248"}},           {"D", 12, {"1.113516"}},
      {"I", 20, {"0.755761"}},          {"kT", 12, {"0.959403"}},
      {"jC", 12, {"0.750000"}},         {"kC", 24, {"1.423025"}},
      {"kO", 24, {"1.638281"}},         {"oC", 24, {"1.220263"}},
      {"gC", 24, {"1.157662"}},         {"jD", 30, {"1.463525"}},
      {"mC", 48, {"2.209741"}},         {"kD", 60, {"2.377132"}},
      {"kI", 60, {"2.885258"}},         {"oD", 60, {"2.120991"}},
      {"mD", 120, {"3.736646"}},        {"UD16", 48, {"1.133893"}},
      {"UD20", 48, {"0.827076"}},       {"UD37", 60, {"1.743641"}},
      {"UD38", 60, {"1.133893"}},       {"UD45", 120, {"1.875000"}},
      {"UD55", 60, {"0.815941"}},       {"UD59", 120, {"1.507557"}},
      {"UD66", 60, {"0.277351"}},       {"UD68", 120, {"0.775750"}},
      {"P3", 5, {"0.288675", "0.500000"}}, {"P5", 7, {"0.500000", "0.688191"}},
      {"P6", 8, {"0.500000", "0.866025"}}, {"A4", 10, {"0.420448", "0.586040"}},
      {"A5", 12, {"0.425325", "0.755761"}}, {"A6", 14, {"0.427800", "0.921781"}},
      {"dP3", 6, {"0.436436"}},         {"dP5", 10, {"0.733349"}},
      {"dP6", 12, {"0.894427"}},        {"dA4", 8, {"0.518774"}},
      {"dA5", 10, {"0.688191"}},        {"dA6", 12, {"0.857813"}},
  };
  return rows;
}

Expr num(std::int64_t p, std::int64_t q = 1) { return Expr{Fraction::of(p, q), "num", {}}; }
Expr node(const char* op, Expr left, Expr right) { return Expr{std::nullopt, op, {std::move(left), std::move(right)}}; }
Expr scale() { return Expr{std::nullopt, "$scale", {}}; }

std::size_t count_op(const Expr& e, std::string_view op) {
  std::size_t n = e.op == op;
  for (const Expr& arg : e.args) n += count_op(arg, op);
  return n;
}

// Whether a "$scale" sits below a "^": d must stay linear in the size.
bool scale_under_power(const Expr& e, bool below = false) {
  if (e.op == "$scale") return below;
  for (const Expr& arg : e.args)
    if (scale_under_power(arg, below || e.op == "^")) return true;
  return false;
}

std::vector<PlaneShape> planes_of(std::string_view code) {
  const auto index = polyhedron_index(code);
  EXPECT_TRUE(index.has_value()) << code;
  if (!index) return {};
  auto planes = polyhedron_planes(*index);
  EXPECT_TRUE(planes.ok()) << code;
  return planes ? std::vector<PlaneShape>(planes->begin(), planes->end()) : std::vector<PlaneShape>{};
}

Shape shape(std::string_view text) {
  auto parsed = parse_shape(text);
  EXPECT_TRUE(parsed.ok()) << text;
  return parsed ? *parsed : Shape{};
}

TEST(PolyhedronTable, RowsComeInTheirFixedOrder) {
  const auto rows = polyhedron_rows();
  ASSERT_EQ(rows.size(), expected_rows().size());
  std::set<std::string_view> codes;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i].code, expected_rows()[i].code);
    EXPECT_EQ(polyhedron_index(rows[i].code), i);
    codes.insert(rows[i].code);
  }
  EXPECT_EQ(codes.size(), rows.size());
  EXPECT_EQ(rows.front().name, "Tetrahedron");
  EXPECT_EQ(rows.back().name, "Hexagonal Trapezohedron");
  EXPECT_EQ(rows[10].name, "Pentagonal Icositetrahedron (dextro)");
  for (std::string_view missing : {"X", "", "c", "C ", "UD1", "dA7"}) EXPECT_FALSE(polyhedron_index(missing)) << missing;
}

TEST(PolyhedronTable, EveryRowReadsWithTheSizeOnlyInD) {
  for (const Expected& row : expected_rows()) {
    const std::vector<PlaneShape> planes = planes_of(row.code);
    EXPECT_EQ(planes.size(), row.planes) << row.code;
    for (const PlaneShape& plane : planes) {
      EXPECT_EQ(count_op(plane.a, "$scale") + count_op(plane.b, "$scale") + count_op(plane.c, "$scale"), 0u)
          << row.code;
      EXPECT_EQ(count_op(plane.d, "$scale"), 1u) << row.code;
      EXPECT_FALSE(scale_under_power(plane.d)) << row.code;
    }
  }
}

TEST(PolyhedronTable, ReaderBuildsTreesOfTheSystemsExpressions) {
  // 0, 1 + 2^(1/2), 2/4 reduced, -1/2 * size; a literal may run to the end of the text.
  auto planes = read_polyhedron_row("n0/1;An1/1;Pn2/1;n1/2;n2/4;MSn-1/2;n1/1;n0/1;n0/1;Mn-3/1;S");
  ASSERT_TRUE(planes.ok()) << planes.failure().message;
  ASSERT_EQ(planes->size(), 2u);
  const PlaneShape& first = (*planes)[0];
  EXPECT_EQ(first.a, num(0));
  EXPECT_EQ(first.b, node("+", num(1), node("^", num(2), num(1, 2))));
  EXPECT_EQ(first.c, num(1, 2));
  EXPECT_EQ(first.d, node("*", scale(), num(-1, 2)));
  EXPECT_EQ((*planes)[1].d, node("*", num(-3), scale()));
  EXPECT_EQ(read_polyhedron_row("n0/1;n0/1;n0/1;n7/2")->front().d, num(7, 2));
}

TEST(PolyhedronTable, ReaderFailuresGuardTheTable) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"", "polyhedron table truncated"},
      {"n0/1;n0/1;n0/1;", "polyhedron table truncated"},
      {"n0/1;n0/1;n0/1;S n0/1;", "unexpected byte 0x20 in polyhedron table"},
      {"n0/1;n0/1;n0/1;Sn0/1;", "polyhedron table truncated"},
      {"AMn1/1;", "polyhedron table truncated"},
      {"n0/1;x", "unexpected byte 'x' in polyhedron table"},
      {"a", "unexpected byte 'a' in polyhedron table"},
      {"\x01", "unexpected byte 0x01 in polyhedron table"},
      {"n12;n0/1;n0/1;S", "malformed rational in table"},
      {"n0/1;n0/1;n0/1;n", "malformed rational in table"},
      {"n\xFF/1;n0/1;n0/1;S", "polyhedron table is not valid UTF-8"},
  };
  for (const auto& [text, message] : cases) {
    auto planes = read_polyhedron_row(text);
    ASSERT_FALSE(planes.ok()) << text;
    EXPECT_EQ(planes.failure().message, message) << text;
    EXPECT_EQ(planes.failure().kind, FailureKind::Other) << text;
  }
}

TEST(PolyhedronTable, RowsAreReadOnceAndSharedByAllThreads) {
  constexpr std::size_t kReads = 8 * 38;
  std::vector<const PlaneShape*> seen(kReads);
  pool::for_each_task(kReads, [&](std::size_t i) {
    auto planes = polyhedron_planes(i % 38);
    seen[i] = planes ? planes->data() : nullptr;
  });
  for (std::size_t i = 0; i < kReads; ++i) {
    ASSERT_NE(seen[i], nullptr);
    EXPECT_EQ(seen[i], seen[i % 38]) << i;
  }
}

TEST(PolyhedronTable, ExpansionPutsTheSizeInPlaceKeepingShapeOrder) {
  const std::vector<Shape> shapes = {shape("C$1/3"), shape("1,0,0$-1/2"), shape("T$0"), shape("C$sqrt(2)")};
  auto trees = expand_shape_trees(shapes);
  ASSERT_TRUE(trees.ok()) << trees.failure().message;
  ASSERT_EQ(trees->size(), 6u + 1 + 4 + 6);
  const std::vector<PlaneShape> cube = planes_of("C");
  const Expr third = *parse_expr("1/3");
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_EQ((*trees)[i].a, cube[i].a);
    EXPECT_EQ((*trees)[i].d, node("*", num(-1, 2), third));
    EXPECT_EQ((*trees)[11 + i].d, node("*", num(-1, 2), *parse_expr("sqrt(2)")));
  }
  EXPECT_EQ((*trees)[6], std::get<PlaneShape>(shapes[1]));
  for (std::size_t i = 7; i < 11; ++i) EXPECT_EQ(count_op((*trees)[i].d, "$scale"), 0u);
}

TEST(PolyhedronTable, UnknownCodeFailsBeforeAnythingElse) {
  const std::pair<std::vector<std::string_view>, std::string_view> cases[] = {
      {{"C$1", "X$1"}, "unknown polyhedron: 'X'"},
      {{"Y$1/0", "X$1"}, "unknown polyhedron: 'Y'"},
      {{"1,0,0$1", "C,D$1", "X$1"}, "unknown polyhedron: 'C,D'"},
  };
  for (const auto& [texts, message] : cases) {
    std::vector<Shape> shapes;
    for (std::string_view text : texts) shapes.push_back(shape(text));
    auto trees = expand_shape_trees(shapes);
    ASSERT_FALSE(trees.ok());
    EXPECT_EQ(trees.failure().message, message);
    EXPECT_EQ(trees.failure().kind, FailureKind::Other);
  }
}

}  // namespace
}  // namespace tv
