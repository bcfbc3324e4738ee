// Exact expressions and recipes as text.
//
// An expression such as `(1+sqrt(5))/2` is parsed into an `Expr` tree, kept as a tree (never
// as a double), compared structurally and printed back in a canonical form that drops every
// parenthesis the grammar does not need. A `Shape` is a polyhedron code with a size or a bare
// plane of four expressions; a `Recipe` is a shell and a list of cuts, written as a query
// string like `?shell=C$1&cut=C$1/3`. Parsing a printed value gives back an equal value.
//
// A person's nesting (parentheses, calls, signs and exponents) is limited to `kMaxExprDepth`
// levels; a chain of one operator (`1+1+...+1`) is not, however long. Such a chain is a tree
// that leans on its first children, so every walk over a tree (parsing, printing, comparing,
// copying, freeing and evaluating) loops down first children and recurses only into the
// others, whose depth the nesting limit bounds. A hostile text cannot exhaust the stack.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "exact.hpp"
#include "failure.hpp"
#include "num/fraction.hpp"

namespace tv {

struct Expr;

// The children of a node. Copying and freeing walk the first children in a loop, so a chain
// of 100,000 terms costs no stack.
class ExprArgs : public std::vector<Expr> {
 public:
  ExprArgs() = default;
  ExprArgs(std::initializer_list<Expr> items);
  ExprArgs(const ExprArgs& other);
  ExprArgs(ExprArgs&& other) noexcept = default;
  ExprArgs& operator=(const ExprArgs& other);
  ExprArgs& operator=(ExprArgs&& other) noexcept;
  ~ExprArgs();
};

// One node: a number ("num" with a value), an operator ("+", "-", "*", "/", "^", "neg") over
// its operands, a call `name(x)` with one child, or a bare word `name` with none.
struct Expr {
  std::optional<Fraction> value;
  std::string op;
  ExprArgs args;

  // Structural: `1/2` and `2/4` are different trees with one value.
  friend bool operator==(const Expr& a, const Expr& b);
};

// The deepest nesting of parentheses, calls, negations and exponents that parsing accepts.
// Far beyond any recipe (the polyhedron table's trees are 13 deep), and small enough that the
// recursion stays within a few hundred kilobytes of stack, also on worker threads and in
// sanitizer builds.
inline constexpr int kMaxExprDepth = 256;

// How deep the walks over a tree may recurse. Each level of a person's nesting can add two
// (into the right operand of a sum, then into that of a product), so every parsed tree fits;
// printing and evaluation refuse deeper trees made by other means in the same words.
inline constexpr int kMaxExprRecursion = 2 * kMaxExprDepth + 2;

// The failure for a nesting deeper than kMaxExprDepth (or a tree deeper than kMaxExprRecursion).
Failure nested_too_deeply();

// The text's tree, or a Parse failure naming the first fault found.
Result<Expr> parse_expr(std::string_view text);

// The exact value of a tree. Children are evaluated first, in order, so a child's failure
// wins over its parent's; the two operands of an arithmetic operator are unified into one
// field. `sqrt` and `cbrt` are real roots (of non-negative numbers), and `b^(p/q)` is the q-th
// root of b^p for an exponent p/q that is a non-zero rational; a negative p is refused by the
// power itself (kind Range, no message), as is a p above kMaxExponent.
// A power whose result would need more than kMaxPowerBits bits in a coefficient (estimated as
// p times the bits of the base's largest coefficient part) is refused before it is computed,
// with kind Range and a message naming the size.
Result<AlgebraicNumber> eval_expr(const Expr& expr);
inline constexpr std::int64_t kMaxExponent = std::int64_t{1} << 20;
inline constexpr std::uint64_t kMaxPowerBits = std::uint64_t{1} << 24;

// The canonical text of a tree in a context that binds as tightly as `precedence` (10 is the
// top level). Fails on a node that has no text, such as "cbrt" or an unknown name.
Result<std::string> generateExpr(const Expr& expr, int precedence = 10);

// Whether the bytes are well-formed UTF-8.
bool is_valid_utf8(std::string_view text);

// The text between double quotes, with a backslash before each inner quote and backslash and
// the usual escapes for control characters: how messages and reprs show a text.
std::string quoted_text(std::string_view text);
// The text between double quotes with only its quotes and backslashes escaped, as option names
// are shown.
std::string quoted_plain(std::string_view text);

struct PolyhedronShape {
  std::string name;  // the code of a row of the polyhedron table
  Expr size;
  friend bool operator==(const PolyhedronShape&, const PolyhedronShape&) = default;
};

// The plane a*x + b*y + c*z + d = 0.
struct PlaneShape {
  Expr a, b, c, d;
  friend bool operator==(const PlaneShape&, const PlaneShape&) = default;
};

using Shape = std::variant<PolyhedronShape, PlaneShape>;

struct Recipe {
  std::vector<Shape> shell;
  std::vector<Shape> cuts;
  friend bool operator==(const Recipe&, const Recipe&) = default;
};

// `C$1/3` is a polyhedron, `1,0,0$-1/2` a plane; any other comma count is a polyhedron whose
// code holds commas (which no table row has).
Result<Shape> parse_shape(std::string_view text);
Result<std::string> shape_text(const Shape& shape);

// Percent escapes are decoded first, so `%24`, `%26` and `%3D` act as `$`, `&` and `=`. An
// unknown key is reported on standard error and skipped.
Result<Recipe> parse_recipe(std::string_view text);
// Shells first, then cuts, each shape canonical; nothing is percent-encoded.
Result<std::string> query_text(const Recipe& recipe);

// The Python hash of a shape or recipe from its canonical text: SipHash-1-3 with a zero key
// over the text and a final 0xFF byte, as a signed number, with -1 (no valid hash) made -2.
std::int64_t canonical_text_hash(std::string_view text);

}  // namespace tv
