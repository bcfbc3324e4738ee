// The polyhedron table and its reader. The rows themselves are generated source
// (polyhedra_rows.inc, written by tools/polyhedra.py, which derives each row from its solid
// and checks that the planes bound it exactly).
#include "polyhedra.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>

#include "num/fraction.hpp"
#include "num/int.hpp"

namespace tv {
namespace {

constexpr PolyhedronRow kRows[] = {
#include "polyhedra_rows.inc"
};
constexpr std::size_t kRowCount = std::size(kRows);
static_assert(kRowCount == 38);

using RowPlanes = std::vector<PlaneShape>;

// One cell per row, empty until the row is first read; a filled cell is never changed or
// freed, so its trees can be handed out for the life of the process.
std::array<std::atomic<const RowPlanes*>, kRowCount> row_cells{};

// How a byte that starts no expression appears in the failure.
std::string byte_text(char byte) {
  const auto value = static_cast<unsigned char>(byte);
  if (value > 0x20 && value < 0x7F) return std::string{'\'', byte, '\''};
  char hex[8];
  std::snprintf(hex, sizeof hex, "0x%02X", value);
  return hex;
}

Failure truncated() { return other_failure("polyhedron table truncated"); }

// A cursor in a row's bytes that reads one prefix expression at a time.
class RowReader {
 public:
  explicit RowReader(std::string_view text) : text_(text) {}

  bool at_end() const { return at_ == text_.size(); }

  Result<Expr> expression() {
    if (at_end()) return truncated();
    const char byte = text_[at_++];
    switch (byte) {
      case 'n':
        return literal();
      case 'S':
        return Expr{std::nullopt, "$scale", {}};
      case 'A':
        return binary("+");
      case 'M':
        return binary("*");
      case 'P':
        return binary("^");
      default:
        return other_failure("unexpected byte " + byte_text(byte) + " in polyhedron table");
    }
  }

 private:
  Result<Expr> binary(const char* op) {
    TV_TRY(Expr left, expression());
    TV_TRY(Expr right, expression());
    return Expr{std::nullopt, op, {std::move(left), std::move(right)}};
  }

  // p/q up to the next `;` (or the end of the row), reduced.
  Result<Expr> literal() {
    const std::size_t end = std::min(text_.find(';', at_), text_.size());
    const std::string_view digits = text_.substr(at_, end - at_);
    at_ = std::min(end + 1, text_.size());
    if (!is_valid_utf8(digits)) return other_failure("polyhedron table is not valid UTF-8");
    const std::size_t slash = digits.find('/');
    if (slash == std::string_view::npos) return other_failure("malformed rational in table");
    TV_TRY(Int numerator, Int::parse(digits.substr(0, slash)));
    TV_TRY(Int denominator, Int::parse(digits.substr(slash + 1)));
    TV_TRY(Fraction value, Fraction::make(std::move(numerator), std::move(denominator)));
    return Expr{std::move(value), "num", {}};
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

// A copy of `tree` with a copy of `size` in place of every "$scale" node.
Expr with_size(const Expr& tree, const Expr& size) {
  if (tree.op == "$scale") return size;
  Expr copy{tree.value, tree.op, {}};
  copy.args.reserve(tree.args.size());
  for (const Expr& arg : tree.args) copy.args.push_back(with_size(arg, size));
  return copy;
}

}  // namespace

std::span<const PolyhedronRow> polyhedron_rows() { return kRows; }

std::optional<std::size_t> polyhedron_index(std::string_view code) {
  static const std::unordered_map<std::string_view, std::size_t> index_of_code = [] {
    std::unordered_map<std::string_view, std::size_t> map;
    for (std::size_t i = 0; i < kRowCount; ++i) map.emplace(kRows[i].code, i);
    return map;
  }();
  const auto found = index_of_code.find(code);
  if (found == index_of_code.end()) return std::nullopt;
  return found->second;
}

Result<std::vector<PlaneShape>> read_polyhedron_row(std::string_view text) {
  RowReader reader(text);
  std::vector<PlaneShape> planes;
  do {
    TV_TRY(Expr a, reader.expression());
    TV_TRY(Expr b, reader.expression());
    TV_TRY(Expr c, reader.expression());
    TV_TRY(Expr d, reader.expression());
    planes.push_back({std::move(a), std::move(b), std::move(c), std::move(d)});
  } while (!reader.at_end());
  return planes;
}

Result<std::span<const PlaneShape>> polyhedron_planes(std::size_t index) {
  TV_ENSURE(index < kRowCount, "polyhedron row index out of range");
  std::atomic<const RowPlanes*>& cell = row_cells[index];
  if (const RowPlanes* planes = cell.load(std::memory_order_acquire)) return std::span<const PlaneShape>(*planes);

  TV_TRY(RowPlanes read, read_polyhedron_row(kRows[index].text));
  auto owned = std::make_unique<const RowPlanes>(std::move(read));
  const RowPlanes* empty = nullptr;
  // The first store wins and the cell keeps it for good; a later reader's copy is dropped.
  if (cell.compare_exchange_strong(empty, owned.get(), std::memory_order_acq_rel)) static_cast<void>(owned.release());
  const RowPlanes* planes = cell.load(std::memory_order_acquire);
  TV_ENSURE(planes != nullptr, "just populated");
  return std::span<const PlaneShape>(*planes);
}

Result<std::vector<PlaneShape>> expand_shape_trees(std::span<const Shape> shapes) {
  std::vector<PlaneShape> planes;
  for (const Shape& shape : shapes) {
    if (const auto* plane = std::get_if<PlaneShape>(&shape)) {
      planes.push_back(*plane);
      continue;
    }
    const auto& polyhedron = std::get<PolyhedronShape>(shape);
    const std::optional<std::size_t> index = polyhedron_index(polyhedron.name);
    if (!index) return other_failure("unknown polyhedron: '" + polyhedron.name + "'");
    TV_TRY(std::span<const PlaneShape> row, polyhedron_planes(*index));
    for (const PlaneShape& plane : row)
      planes.push_back({with_size(plane.a, polyhedron.size), with_size(plane.b, polyhedron.size),
                        with_size(plane.c, polyhedron.size), with_size(plane.d, polyhedron.size)});
  }
  return planes;
}

Result<std::vector<Plane>> expand_shapes(std::span<const Shape> shapes) {
  TV_TRY(std::vector<PlaneShape> trees, expand_shape_trees(shapes));
  return evaluate_planes(trees);
}

Result<std::vector<Plane>> evaluate_planes(std::span<const PlaneShape> trees) {
  std::vector<Plane> planes;
  planes.reserve(trees.size());
  for (const PlaneShape& tree : trees) {
    TV_TRY(AlgebraicNumber a, eval_expr(tree.a));
    TV_TRY(AlgebraicNumber b, eval_expr(tree.b));
    TV_TRY(AlgebraicNumber c, eval_expr(tree.c));
    TV_TRY(AlgebraicNumber d, eval_expr(tree.d));
    planes.push_back({std::move(a), std::move(b), std::move(c), std::move(d)});
  }
  return planes;
}

}  // namespace tv
