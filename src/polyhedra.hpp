// The polyhedron table: 38 polyhedra, each nothing but the list of its face planes, and
// `expand_shapes`, which turns the shapes of a recipe into the planes the builder cuts with.
//
// A row gives its planes as text in a prefix language where every number is exact and the
// size is a variable. Each plane is four expressions a, b, c, d of a*x + b*y + c*z + d = 0
// with the normal pointing out of the solid. One byte says what comes next:
//   n<p>/<q>;  a rational literal ("num"); the literal runs to the next `;` or the row's end
//   A x y      x + y ("+")          M x y   x * y ("*")
//   P x y      x ^ y ("^")          S       the size ("$scale", no children)
// There are no separators. The size occurs only in d, and d is the size times a constant of
// the row, so two shapes with one code have identical normals at any sizes: a cut `C$1/3`
// lines up with a shell `C$1`.
//
// A row's text is read at most once per process, on first use, into trees that keep their
// "$scale" nodes; expanding a shape copies the trees with the shape's size put in place of
// each "$scale". Numbers are made anew by every expansion, so no field is ever shared
// between two puzzles through the table.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "failure.hpp"
#include "parse.hpp"
#include "piece.hpp"

namespace tv {

struct PolyhedronRow {
  std::string_view code;
  std::string_view name;
  std::string_view text;  // the planes in the prefix language
};

// The 38 rows in their fixed order, from ("T", "Tetrahedron") to ("dA6", "Hexagonal
// Trapezohedron").
std::span<const PolyhedronRow> polyhedron_rows();

// The index of the row with this code.
std::optional<std::size_t> polyhedron_index(std::string_view code);

// The planes of a row's text, at least one. The failures (kind Other) guard the table
// itself: "polyhedron table truncated", "unexpected byte <b> in polyhedron table",
// "polyhedron table is not valid UTF-8", "malformed rational in table".
Result<std::vector<PlaneShape>> read_polyhedron_row(std::string_view text);

// The parsed planes of row `index`, read on first use. The trees live for the process and
// are shared by every thread: when two threads read a row at once the first store wins.
Result<std::span<const PlaneShape>> polyhedron_planes(std::size_t index);

// The planes of `shapes` as trees, shape by shape and within a polyhedron in row order, each
// "$scale" replaced by the shape's size. A plane shape is copied as it is: its d is the d of
// the equation. An unknown code fails with "unknown polyhedron: '<code>'" (kind Other).
Result<std::vector<PlaneShape>> expand_shape_trees(std::span<const Shape> shapes);

// The exact planes of `shapes`: `expand_shape_trees`, and only then `eval_expr` on a, b, c, d
// of each plane in order, so an unknown code late in the list is reported before an
// expression that fails early in it. Each number sits in a small field of its own; the
// caller unifies them.
Result<std::vector<Plane>> expand_shapes(std::span<const Shape> shapes);

// `eval_expr` on a, b, c, d of each plane tree in order; the first failure ends it.
Result<std::vector<Plane>> evaluate_planes(std::span<const PlaneShape> trees);

}  // namespace tv
