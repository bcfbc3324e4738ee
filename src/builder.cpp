// Building a solved puzzle from its recipe: unify, carve the shell, cut it apart.
#include "builder.hpp"

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>
#include <vector>

#include "color.hpp"
#include "movement.hpp"
#include "polyhedra.hpp"
#include "sort.hpp"

namespace tv {

namespace {

// Moves every coefficient, shell planes first and four per plane, into one field. Returns the
// field's text as it stands right after, before any sign narrows its interval.
Result<std::string> unify_planes(std::vector<Plane>& shell, std::vector<Plane>& cuts) {
  std::vector<AlgebraicNumber> numbers;
  numbers.reserve(4 * (shell.size() + cuts.size()));
  for (const auto* planes : {&shell, &cuts}) {
    for (const Plane& p : *planes) numbers.insert(numbers.end(), {p.a, p.b, p.c, p.d});
  }
  if (numbers.empty()) return std::string("(no planes)");
  TV_CHECK(unify(numbers));
  std::string text = numbers.front().field()->text();
  auto number = numbers.begin();
  for (auto* planes : {&shell, &cuts}) {
    for (Plane& p : *planes) {
      for (AlgebraicNumber* coefficient : {&p.a, &p.b, &p.c, &p.d}) *coefficient = std::move(*number++);
    }
  }
  return text;
}

// The shell planes cut the box one after the other; each keeps the side its normal points
// away from, and its cap takes the color of its place among the shell planes.
Result<Piece> carve_shell(const std::vector<Plane>& shell) {
  Piece solid = box_piece(Int(kBoxHalfSize));
  for (std::size_t i = 0; i < shell.size(); ++i) {
    TV_TRY(auto halves, split_piece(solid, shell[i], shell_face_color(i), false));
    solid = std::move(halves.second);
  }
  return solid;
}

// Cut planes grouped by identical normals, groups in the order their first plane appears and
// each group sorted by d, largest first (the plane furthest back along the normal), stably.
Result<std::vector<std::vector<Plane>>> plane_groups(const std::vector<Plane>& cuts) {
  InsertionOrderedMap<std::string, std::vector<Plane>> by_normal;
  for (const Plane& p : cuts) by_normal[normal_key(p)].push_back(p);
  std::vector<std::vector<Plane>> groups;
  groups.reserve(by_normal.size());
  for (auto& [key, planes] : by_normal) {
    TV_CHECK(exact_sort(planes, [](const Plane& p, const Plane& q) -> Result<int> { return (q.d - p.d).sign(); }));
    groups.push_back(std::move(planes));
  }
  return groups;
}

bool has_shell_facet(const Piece& piece) {
  return std::any_of(piece.facets.begin(), piece.facets.end(), [](const Facet& f) { return !f.interior; });
}

// Applies one group of planes sorted furthest back first. A half behind a plane is finished:
// every later plane of the group lies further along the normal.
Result<std::vector<Piece>> cut_group(std::vector<Piece> current, const std::vector<Plane>& group) {
  std::vector<Piece> done;
  for (const Plane& plane : group) {
    std::vector<Piece> next;
    for (const Piece& piece : current) {
      TV_TRY(auto halves, split_piece(piece, plane, kInteriorColor, true));
      if (has_shell_facet(halves.first)) next.push_back(std::move(halves.first));
      if (has_shell_facet(halves.second)) done.push_back(std::move(halves.second));
    }
    current = std::move(next);
  }
  current.insert(current.end(), std::make_move_iterator(done.begin()), std::make_move_iterator(done.end()));
  return current;
}

// 1 / the largest distance of a shell vertex from the centre: infinite for an empty shell.
double fitting_scale(const Piece& shell) {
  double largest = 0.0;
  for (const Vertex& v : shell.vertices) {
    const double x = v.x.to_f64(), y = v.y.to_f64(), z = v.z.to_f64();
    largest = std::max(largest, std::sqrt(z * z + (y * y + x * x)));
  }
  return 1.0 / largest;
}

}  // namespace

Result<BuiltPuzzle> build_puzzle(const Recipe& recipe) {
  // Every shape is expanded before any is evaluated, so an unknown code among the cuts is
  // reported before an expression of the shell that fails.
  TV_TRY(const auto shell_trees, expand_shape_trees(recipe.shell));
  TV_TRY(const auto cut_trees, expand_shape_trees(recipe.cuts));
  TV_TRY(auto shell, evaluate_planes(shell_trees));
  TV_TRY(auto cuts, evaluate_planes(cut_trees));
  BuiltPuzzle built;
  TV_TRY(built.field_text, unify_planes(shell, cuts));
  TV_TRY(built.shell_solid, carve_shell(shell));
  std::vector<Piece> pieces{built.shell_solid};
  TV_TRY(const auto groups, plane_groups(cuts));
  for (const auto& group : groups) {
    TV_TRY(pieces, cut_group(std::move(pieces), group));
  }
  built.pieces.pieces = std::move(pieces);
  built.scale = fitting_scale(built.shell_solid);
  return built;
}

}  // namespace tv
