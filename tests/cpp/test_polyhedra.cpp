#include <gtest/gtest.h>

#include <array>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "exact.hpp"
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
  const char* group;  // the symmetries the row is closed under
};

const std::vector<Expected>& expected_rows() {
  static const std::vector<Expected> rows = {
      {"T", 4, {"0.204124"}, "T"},                 {"C", 6, {"0.500000"}, "C"},
      {"O", 8, {"0.408248"}, "C"},                 {"D", 12, {"1.113516"}, "D"},
      {"I", 20, {"0.755761"}, "D"},                {"kT", 12, {"0.959403"}, "T"},
      {"jC", 12, {"0.750000"}, "C"},               {"kC", 24, {"1.423025"}, "C"},
      {"kO", 24, {"1.638281"}, "C"},               {"oC", 24, {"1.220263"}, "C"},
      {"gC", 24, {"1.157662"}, "rotations of C"},  {"jD", 30, {"1.463525"}, "D"},
      {"mC", 48, {"2.209741"}, "C"},               {"kD", 60, {"2.377132"}, "D"},
      {"kI", 60, {"2.885258"}, "D"},               {"oD", 60, {"2.120991"}, "D"},
      {"mD", 120, {"3.736646"}, "D"},              {"UD16", 48, {"1.133893"}, "C"},
      {"UD20", 48, {"0.827076"}, "C"},             {"UD37", 60, {"1.743641"}, "D"},
      {"UD38", 60, {"1.133893"}, "D"},             {"UD45", 120, {"1.875000"}, "D"},
      {"UD55", 60, {"0.815941"}, "D"},             {"UD59", 120, {"1.507557"}, "D"},
      {"UD66", 60, {"0.277351"}, "D"},             {"UD68", 120, {"0.775750"}, "D"},
      {"P3", 5, {"0.288675", "0.500000"}, "P3"},   {"P5", 7, {"0.500000", "0.688191"}, "P5"},
      {"P6", 8, {"0.500000", "0.866025"}, "P6"},   {"A4", 10, {"0.420448", "0.586040"}, "A4"},
      {"A5", 12, {"0.425325", "0.755761"}, "A5"},  {"A6", 14, {"0.427800", "0.921781"}, "A6"},
      {"dP3", 6, {"0.436436"}, "P3"},              {"dP5", 10, {"0.733349"}, "P5"},
      {"dP6", 12, {"0.894427"}, "P6"},             {"dA4", 8, {"0.518774"}, "A4"},
      {"dA5", 10, {"0.688191"}, "A5"},             {"dA6", 12, {"0.857813"}, "A6"},
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

// Whether every node above a "$scale" is a product, which makes d the size times a constant.
bool scale_only_in_products(const Expr& e) {
  for (const Expr& arg : e.args)
    if (count_op(arg, "$scale") > 0 && (e.op != "*" || !scale_only_in_products(arg))) return false;
  return true;
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
  for (std::string_view missing : {"X", "", "c", "C ", "UD1", "dA7"})
    EXPECT_FALSE(polyhedron_index(missing)) << missing;
}

TEST(PolyhedronTable, EveryRowReadsWithTheSizeOnlyInD) {
  for (const Expected& row : expected_rows()) {
    const std::vector<PlaneShape> planes = planes_of(row.code);
    ASSERT_FALSE(planes.empty()) << row.code;
    EXPECT_EQ(planes.size(), row.planes) << row.code;
    for (const PlaneShape& plane : planes) {
      EXPECT_EQ(count_op(plane.a, "$scale") + count_op(plane.b, "$scale") + count_op(plane.c, "$scale"), 0u)
          << row.code;
      EXPECT_EQ(count_op(plane.d, "$scale"), 1u) << row.code;
      EXPECT_TRUE(scale_only_in_products(plane.d)) << row.code;
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
  const std::vector<Shape> shapes = {shape("C$1/3"), shape("1,0,0$-1/2"), shape("T$0")};
  auto trees = expand_shape_trees(shapes);
  ASSERT_TRUE(trees.ok()) << trees.failure().message;
  ASSERT_EQ(trees->size(), 6u + 1 + 4);
  const std::vector<PlaneShape> cube = planes_of("C");
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_EQ((*trees)[i].a, cube[i].a);
    EXPECT_EQ((*trees)[i].d, node("*", num(-1, 2), *parse_expr("1/3")));
  }
  EXPECT_EQ((*trees)[6], std::get<PlaneShape>(shapes[1]));
  for (std::size_t i = 7; i < 11; ++i) EXPECT_EQ(count_op((*trees)[i].d, "$scale"), 0u);
}

// ---- Exact proofs: each row evaluated at size 1 ----

using Vec3 = std::array<AlgebraicNumber, 3>;
using Matrix = std::array<Vec3, 3>;
using MatrixText = std::array<std::string, 9>;

AlgebraicNumber value_of(const std::string& text) {
  auto expr = parse_expr(text);
  auto value = expr ? eval_expr(*expr) : Result<AlgebraicNumber>(expr.failure());
  EXPECT_TRUE(value.ok()) << text;
  return value ? *value : AlgebraicNumber::zero(rational_field());
}

// Rotation about z by the angle with this cosine and sine, then z -> -z when `flip`.
MatrixText about_z(const std::string& cosine, const std::string& sine, bool flip = false) {
  return {cosine, "-(" + sine + ")", "0", sine, cosine, "0", "0", "0", flip ? "-1" : "1"};
}
MatrixText diagonal(const char* x, const char* y, const char* z) { return {x, "0", "0", "0", y, "0", "0", "0", z}; }

const MatrixText kCyclic = {"0", "1", "0", "0", "0", "1", "1", "0", "0"};  // (x, y, z) -> (y, z, x)
const MatrixText kSwapXY = {"0", "1", "0", "1", "0", "0", "0", "0", "1"};
// A fifth of a turn about the icosahedron's vertex (0, phi, 1).
const MatrixText kFifthTurn = {"(sqrt(5)-1)/4", "1/2",           "-(1+sqrt(5))/4", "-1/2", "(1+sqrt(5))/4",
                               "(sqrt(5)-1)/4", "(1+sqrt(5))/4", "(sqrt(5)-1)/4",  "1/2"};

struct Group {
  std::size_t order;
  std::vector<MatrixText> generators;
};

// The symmetries each row is closed under, by generators: those of the cube, its rotations,
// the tetrahedron and the icosahedron (vertices (0, +-phi, +-1) and their cyclic shifts), and
// for prisms and antiprisms their own axis, with a vertex above +y (z the axis, except A5,
// which is cut from the icosahedron along the axis (0, phi, 1)).
const Group& group_named(std::string_view name) {
  static const std::map<std::string_view, Group> groups = {
      {"C", {48, {kCyclic, kSwapXY, diagonal("-1", "1", "1")}}},
      {"rotations of C", {24, {kCyclic, about_z("0", "1")}}},
      {"T", {24, {kCyclic, kSwapXY, diagonal("-1", "-1", "1")}}},
      {"D", {120, {kCyclic, diagonal("-1", "1", "1"), kFifthTurn}}},
      {"P3", {12, {about_z("-1/2", "sqrt(3)/2"), diagonal("1", "1", "-1"), diagonal("-1", "1", "1")}}},
      {"P5",
       {20, {about_z("(sqrt(5)-1)/4", "sqrt(10+2*sqrt(5))/4"), diagonal("1", "1", "-1"), diagonal("-1", "1", "1")}}},
      {"P6", {24, {about_z("1/2", "sqrt(3)/2"), diagonal("1", "1", "-1"), diagonal("-1", "1", "1")}}},
      {"A4", {16, {about_z("0", "1"), about_z("sqrt(2)/2", "sqrt(2)/2", true), diagonal("-1", "1", "1")}}},
      {"A5", {20, {kFifthTurn, diagonal("-1", "-1", "-1"), diagonal("-1", "1", "1")}}},
      {"A6", {24, {about_z("1/2", "sqrt(3)/2"), about_z("sqrt(3)/2", "1/2", true), diagonal("-1", "1", "1")}}},
  };
  return groups.at(name);
}

std::string key(const AlgebraicNumber& x) {
  std::string k;
  for (const Fraction& c : x.coefficients()) k += c.to_string() + ",";
  return k;
}
std::string key(const Plane& p) { return key(p.a) + "|" + key(p.b) + "|" + key(p.c) + "|" + key(p.d); }
std::string key(const Matrix& m) {
  std::string k;
  for (const Vec3& row : m)
    for (const AlgebraicNumber& x : row) k += key(x) + ";";
  return k;
}

AlgebraicNumber dot(const Vec3& u, const Vec3& v) { return u[0] * v[0] + u[1] * v[1] + u[2] * v[2]; }

Plane moved(const Matrix& g, const Plane& p) {
  const Vec3 n = {p.a, p.b, p.c};
  return {dot(g[0], n), dot(g[1], n), dot(g[2], n), p.d};
}

Matrix product(const Matrix& a, const Matrix& b) {
  Matrix m = a;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) m[r][c] = a[r][0] * b[0][c] + a[r][1] * b[1][c] + a[r][2] * b[2][c];
  return m;
}

// Every number moved into one field, merging each distinct field once: numbers of equal
// fields are renamed into one of them, and only the fields' generators are unified. (A
// plain `unify` over the gC row merges anew at every change of field between neighbours,
// which takes minutes for its degree-12 field.)
Status unify_by_field(std::vector<AlgebraicNumber>& numbers) {
  std::vector<FieldRef> fields;
  std::vector<std::size_t> field_of(numbers.size());
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    std::size_t f = 0;
    for (; f < fields.size(); ++f) {
      TV_TRY(bool same, equals(fields[f], numbers[i].field()));
      if (same) break;
    }
    if (f == fields.size()) fields.push_back(numbers[i].field());
    field_of[i] = f;
  }
  std::vector<AlgebraicNumber> generators;
  for (const FieldRef& field : fields) generators.push_back(AlgebraicNumber::generator(field));
  TV_CHECK(unify(generators));
  for (std::size_t i = 0; i < numbers.size(); ++i)
    numbers[i] = AlgebraicNumber::from_polynomial(fields[field_of[i]], numbers[i].polynomial())
                     .substitute(generators[field_of[i]]);
  return {};
}

// A row's planes at size 1 and its group's generators, every number moved into one field so
// that equal values have equal coefficients.
struct ExactRow {
  std::vector<Plane> planes;
  std::vector<Matrix> generators;
};

ExactRow exact_row(std::string_view code, const Group& group) {
  const std::vector<Shape> shapes = {PolyhedronShape{std::string(code), num(1)}};
  auto planes = expand_shapes(shapes);
  EXPECT_TRUE(planes.ok()) << code << ": " << planes.failure().message;
  std::vector<AlgebraicNumber> numbers;
  if (planes)
    for (const Plane& p : *planes) numbers.insert(numbers.end(), {p.a, p.b, p.c, p.d});
  for (const MatrixText& g : group.generators)
    for (const std::string& entry : g) numbers.push_back(value_of(entry));
  EXPECT_TRUE(unify_by_field(numbers).ok()) << code;
  ExactRow row;
  auto next = numbers.begin();
  for (std::size_t i = 0; planes && i < planes->size(); ++i, next += 4)
    row.planes.push_back({next[0], next[1], next[2], next[3]});
  for (std::size_t i = 0; i < group.generators.size(); ++i, next += 9)
    row.generators.push_back(
        {Vec3{next[0], next[1], next[2]}, Vec3{next[3], next[4], next[5]}, Vec3{next[6], next[7], next[8]}});
  return row;
}

// |d| / |(a, b, c)| rounds to the six-decimal `distance`: d^2 lies between (r -+ 1/2e-6)^2 |n|^2.
bool has_distance(const Plane& p, std::string_view distance) {
  const Fraction r = *parse_expr(distance)->value;
  const Fraction half = Fraction::of(1, 2'000'000);
  const AlgebraicNumber norm2 = p.a * p.a + p.b * p.b + p.c * p.c;
  const AlgebraicNumber d2 = p.d * p.d;
  const auto scaled = [&](const Fraction& f) { return AlgebraicNumber::constant(norm2.field(), f * f) * norm2; };
  return (d2 - scaled(r - half)).sign() >= 0 && (scaled(r + half) - d2).sign() >= 0;
}

bool is_orthogonal(const Matrix& g) {
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) {
      const AlgebraicNumber gram = g[0][r] * g[0][c] + g[1][r] * g[1][c] + g[2][r] * g[2][c];
      if (!(gram == AlgebraicNumber::constant(gram.field(), r == c ? 1 : 0))) return false;
    }
  return true;
}

TEST(PolyhedronGroups, GeneratorsMakeTheStatedGroupOfIsometries) {
  for (const char* name : {"C", "rotations of C", "T", "D", "P3", "P5", "P6", "A4", "A5", "A6"}) {
    const Group& group = group_named(name);
    const ExactRow row = exact_row("C", group);  // the cube's rationals come along harmlessly
    std::vector<Matrix> elements;
    std::set<std::string> seen;
    for (const Matrix& g : row.generators) {
      EXPECT_TRUE(is_orthogonal(g)) << name;
      if (seen.insert(key(g)).second) elements.push_back(g);
    }
    // Close the set under multiplication by the generators; a finite group is then complete.
    for (std::size_t i = 0; i < elements.size() && elements.size() <= 2 * group.order; ++i)
      for (const Matrix& g : row.generators) {
        Matrix next = product(g, elements[i]);
        if (seen.insert(key(next)).second) elements.push_back(std::move(next));
      }
    EXPECT_EQ(elements.size(), group.order) << name;
  }
}

TEST(PolyhedronRows, EachRowHasItsCountDistancesAndSymmetry) {
  for (const Expected& expected : expected_rows()) {
    const ExactRow row = exact_row(expected.code, group_named(expected.group));
    ASSERT_EQ(row.planes.size(), expected.planes) << expected.code;
    std::set<std::string> keys;
    std::set<std::string_view> distances_met;
    for (const Plane& p : row.planes) {
      keys.insert(key(p));
      EXPECT_LT(p.d.sign(), 0) << expected.code << ": the centre must lie inside";
      bool matched = false;
      for (const char* distance : expected.distances)
        if (has_distance(p, distance)) {
          matched = true;
          distances_met.insert(distance);
        }
      EXPECT_TRUE(matched) << expected.code << ": a plane at none of the stated distances";
    }
    EXPECT_EQ(keys.size(), row.planes.size()) << expected.code << ": repeated plane";
    EXPECT_EQ(distances_met.size(), expected.distances.size()) << expected.code;
    for (const Matrix& g : row.generators)
      for (const Plane& p : row.planes) EXPECT_TRUE(keys.count(key(moved(g, p)))) << expected.code << ": not closed";
  }
}

// Each value of `actual` equals the evaluated text at the same place; the pair is unified first.
void expect_values(const std::vector<AlgebraicNumber>& actual, const std::vector<std::string>& texts,
                   const std::string& context) {
  ASSERT_EQ(actual.size(), texts.size()) << context;
  for (std::size_t i = 0; i < actual.size(); ++i) {
    std::vector<AlgebraicNumber> pair = {actual[i], value_of(texts[i])};
    ASSERT_TRUE(unify(pair).ok()) << context;
    EXPECT_EQ(pair[0], pair[1]) << context << ", value " << i << ": expected " << texts[i];
  }
}

std::vector<Plane> expanded(std::vector<std::string_view> texts) {
  std::vector<Shape> shapes;
  for (std::string_view text : texts) shapes.push_back(shape(text));
  auto planes = expand_shapes(shapes);
  EXPECT_TRUE(planes.ok()) << planes.failure().message;
  return planes ? *planes : std::vector<Plane>{};
}

std::vector<AlgebraicNumber> numbers_of(const Plane& p) { return {p.a, p.b, p.c, p.d}; }

TEST(PolyhedronRows, GivenFirstPlanesComeFirst) {
  // The plane that fixes each orbit row's orientation, at size 1.
  const std::pair<std::string_view, std::vector<std::string>> cases[] = {
      {"kC", {"0", "9/8", "9/4", "-81/32*sqrt(2)"}},
      {"kO", {"1+sqrt(2)", "1", "1+sqrt(2)", "-3-2*sqrt(2)"}},
      {"mC", {"6/7+3/7*sqrt(2)", "3/7*sqrt(2)", "12/7+3/7*sqrt(2)", "18/7*(-1-sqrt(2))"}},
      {"UD16", {"3+3*sqrt(2)", "3", "-3+3*sqrt(2)", "-9"}},
      {"UD20", {"6/7-3/7*sqrt(2)", "-3/7*sqrt(2)", "12/7-3/7*sqrt(2)", "18/7*(1-sqrt(2))"}},
      {"kD", {"99/76-27/76*sqrt(5)", "0", "-27/38+27/19*sqrt(5)", "81/152*(-9-sqrt(5))"}},
      {"kI", {"-5/44+15/44*sqrt(5)", "15/22+5/11*sqrt(5)", "15/11+10/11*sqrt(5)", "25/88*(-19-9*sqrt(5))"}},
      {"oD", {"-5/11+10/33*sqrt(5)", "5/11-10/33*sqrt(5)", "20/33+5/33*sqrt(5)", "5/33*(-5-4*sqrt(5))"}},
      {"mD", {"-9/11+6/11*sqrt(5)", "9/11-6/11*sqrt(5)", "3", "9/11*(-5-4*sqrt(5))"}},
      {"UD37", {"5/2", "5/4-5/4*sqrt(5)", "5", "25/8*(-1-sqrt(5))"}},
      {"UD38", {"9/11", "9/55*sqrt(5)", "9/55*sqrt(5)", "-27/55*sqrt(5)"}},
      {"UD45", {"15/32+45/32*sqrt(5)", "15/16", "45/32-15/32*sqrt(5)", "-225/32"}},
      {"UD55", {"0", "-99/76-27/76*sqrt(5)", "27/38+27/19*sqrt(5)", "81/152*(-9+sqrt(5))"}},
      {"UD59", {"5", "5/3", "-5/3", "-25/3"}},
      {"UD66", {"-15/22+5/11*sqrt(5)", "5/44+15/44*sqrt(5)", "-15/11+10/11*sqrt(5)", "25/88*(19-9*sqrt(5))"}},
      {"UD68", {"-9/11-6/11*sqrt(5)", "9/11+6/11*sqrt(5)", "-3", "9/11*(5-4*sqrt(5))"}},
  };
  for (const auto& [code, first] : cases) {
    const std::string text = std::string(code) + "$1";
    const std::vector<Plane> planes = expanded({text});
    ASSERT_FALSE(planes.empty()) << code;
    expect_values(numbers_of(planes[0]), first, text);
  }
}

TEST(PolyhedronRows, CubeFacesComeInTheirColourOrder) {
  const std::vector<Plane> planes = expanded({"C$1"});
  const std::vector<std::vector<std::string>> faces = {{"0", "1", "0", "-1/2"},  {"0", "0", "1", "-1/2"},
                                                       {"1", "0", "0", "-1/2"},  {"0", "-1", "0", "-1/2"},
                                                       {"-1", "0", "0", "-1/2"}, {"0", "0", "-1", "-1/2"}};
  ASSERT_EQ(planes.size(), faces.size());
  for (std::size_t i = 0; i < faces.size(); ++i) expect_values(numbers_of(planes[i]), faces[i], "C$1");
}

TEST(PolyhedronRows, SizeOnlyScalesTheOffset) {
  // Zero and negative sizes are legal: the size is only a factor of d.
  const std::vector<Plane> planes = expanded({"T$1/3", "T$0", "T$-1/3", "C$1", "C$sqrt(2)"});
  ASSERT_EQ(planes.size(), 4u * 3 + 6 * 2);
  for (std::size_t i = 0; i < 4; ++i) {
    const Plane &third = planes[i], &zero = planes[4 + i], &minus = planes[8 + i];
    EXPECT_TRUE(zero.d.is_zero());
    std::vector<AlgebraicNumber> numbers = {third.a, third.b, third.c, third.d, minus.a, minus.b, minus.c, minus.d};
    ASSERT_TRUE(unify(numbers).ok());
    for (int k = 0; k < 3; ++k) EXPECT_EQ(numbers[k], numbers[4 + k]);
    EXPECT_EQ(numbers[3], numbers[7].neg());
  }
  for (std::size_t i = 0; i < 6; ++i) {
    const Plane &unit = planes[12 + i], &root2 = planes[18 + i];
    for (auto [x, y] : {std::pair{unit.a, root2.a}, {unit.b, root2.b}, {unit.c, root2.c}}) EXPECT_TRUE(equal(x, y));
    expect_values({root2.d}, {"-sqrt(2)/2"}, "C$sqrt(2)");
  }
}

TEST(PolyhedronRows, EveryExpansionMakesItsOwnNumbers) {
  const std::vector<Plane> planes = expanded({"D$1", "D$1"});
  ASSERT_EQ(planes.size(), 24u);
  for (std::size_t i = 0; i < 12; ++i) {
    EXPECT_EQ(key(planes[i].d), key(planes[12 + i].d));
    EXPECT_NE(planes[i].d.field(), planes[12 + i].d.field()) << "a field shared through the table";
  }
}

TEST(PolyhedronRows, EvaluationFailsOnlyAfterEveryCodeIsKnown) {
  const std::pair<std::vector<std::string_view>, std::pair<FailureKind, std::string_view>> cases[] = {
      {{"C$1/0", "X$1"}, {FailureKind::Other, "unknown polyhedron: 'X'"}},
      {{"Y$1/0", "X$1"}, {FailureKind::Other, "unknown polyhedron: 'Y'"}},
      {{"1,0,0$1", "C,D$1"}, {FailureKind::Other, "unknown polyhedron: 'C,D'"}},
      {{"C$1/0"}, {FailureKind::Range, "Division by zero"}},
      {{"C$pi", "1,0,0$1"}, {FailureKind::Parse, "unknown operation 'pi'"}},
      {{"1,0,0$1", "C$sqrt(-1)"}, {FailureKind::Other, "Interval must contain exactly one root"}},
  };
  for (const auto& [texts, failure] : cases) {
    std::vector<Shape> shapes;
    for (std::string_view text : texts) shapes.push_back(shape(text));
    auto planes = expand_shapes(shapes);
    ASSERT_FALSE(planes.ok()) << texts[0];
    EXPECT_EQ(planes.failure().kind, failure.first) << texts[0];
    EXPECT_TRUE(planes.failure().message.starts_with(failure.second)) << planes.failure().message;
    if (failure.first == FailureKind::Other) {
      EXPECT_EQ(planes.failure().message, failure.second);
    }
  }
}

}  // namespace
}  // namespace tv
