// Deriving a layout: recognising a cube from its sticker centres, numbering its facelets, its
// twelve face turns, and the translation of the puzzle's actions into moves of facelets.
#include "layout.hpp"

#include <algorithm>
#include <cmath>
#include <map>

#include "parse.hpp"
#include "simulator.hpp"
#include "symbolic.hpp"

namespace tv {
namespace {

using Vec = std::array<double, 3>;

struct FaceAxes {
  const char* name;
  Vec normal, row, col;  // row x col = normal
};

// Faces in their numbered order; a facelet's number is (face * size + row) * size + col.
constexpr std::array<FaceAxes, 6> kCubeFaces{{
    {"U", {0, 1, 0}, {1, 0, 0}, {0, 0, -1}},
    {"D", {0, -1, 0}, {1, 0, 0}, {0, 0, 1}},
    {"L", {-1, 0, 0}, {0, 0, 1}, {0, 1, 0}},
    {"R", {1, 0, 0}, {0, 0, -1}, {0, 1, 0}},
    {"B", {0, 0, -1}, {-1, 0, 0}, {0, 1, 0}},
    {"F", {0, 0, 1}, {1, 0, 0}, {0, 1, 0}},
}};

constexpr double kOnFace = 1e-9;    // how far a point may lie off a face plane
constexpr double kOnCentre = 1e-6;  // how far, in cells, off a cell centre

double dot(const Vec& a, const Vec& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Vec cross(const Vec& a, const Vec& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

// The cell index of coordinate x along an axis, when x lies at a cell centre.
std::optional<std::uint32_t> cell_of(double x, std::uint32_t size, double half, double step) {
  const double r = (x + half - 0.5 * step) / step;
  const double whole = std::round(r);  // halves away from zero
  if (std::abs(r - whole) > kOnCentre || whole < 0 || whole > size - 1) return std::nullopt;
  return static_cast<std::uint32_t>(whole);
}

Vec facelet_centre(std::uint32_t f, std::uint32_t size, double half) {
  const double step = (half + half) / size;
  const std::uint32_t per_face = size * size, i = f % per_face;
  const FaceAxes& face = kCubeFaces[f / per_face];
  const double a = (i / size + 0.5) * step - half, b = (i % size + 0.5) * step - half;
  Vec p;
  for (int k = 0; k < 3; ++k) p[k] = face.normal[k] * half + face.row[k] * a + face.col[k] * b;
  return p;
}

// The cube's size and half-edge when its slots are six square faces of one facelet each.
std::optional<CubeShape> cube_shape(const StickerTable& table) {
  const std::size_t n = table.positions.size();
  if (table.palette.size() != 6 || n == 0 || n % 6 != 0) return std::nullopt;
  const std::size_t per_face = n / 6;
  const auto size = static_cast<std::uint32_t>(std::llround(std::sqrt(static_cast<double>(per_face))));
  if (size == 0 || std::size_t{size} * size != per_face) return std::nullopt;
  double half = 0.0;
  for (const Vec& p : table.positions)
    for (double x : p) half = std::max(half, std::abs(x));
  if (!(half > kOnFace)) return std::nullopt;
  return CubeShape{size, half};
}

// facelet_of_slot, when every slot sits on its own facelet.
std::optional<std::vector<std::uint32_t>> facelets_of_slots(const StickerTable& table, const CubeShape& cube) {
  const std::size_t n = table.positions.size();
  std::vector<std::uint32_t> facelets(n);
  std::vector<std::uint8_t> taken(n, 0);
  for (std::size_t s = 0; s < n; ++s) {
    const auto f = locate_facelet(table.positions[s], cube.size, cube.half);
    if (!f || taken[*f]) return std::nullopt;
    taken[*f] = 1;
    facelets[s] = *f;
  }
  return facelets;
}

std::vector<std::uint32_t> inverse_of(const std::vector<std::uint32_t>& perm) {
  std::vector<std::uint32_t> inv(perm.size());
  for (std::size_t k = 0; k < perm.size(); ++k) inv[perm[k]] = static_cast<std::uint32_t>(k);
  return inv;
}

// The quarter turns of the outer layer of each face, counterclockwise then clockwise.
Status add_face_turns(Layout& layout, const CubeShape& cube) {
  const std::uint32_t count = 6 * cube.size * cube.size;
  const double step = (cube.half + cube.half) / cube.size, limit = cube.half - step;
  for (const FaceAxes& face : kCubeFaces) {
    for (double d : {-1.0, 1.0}) {
      std::vector<std::uint32_t> perm(count);
      for (std::uint32_t f = 0; f < count; ++f) {
        perm[f] = f;
        const Vec p = facelet_centre(f, cube.size, cube.half);
        const double along = dot(p, face.normal);
        if (!(along > limit)) continue;
        const Vec across = cross(face.normal, p);
        Vec turned;
        for (int k = 0; k < 3; ++k) turned[k] = d * across[k] + along * face.normal[k];
        const auto target = locate_facelet(turned, cube.size, cube.half);
        if (!target)
          return state_failure(std::string("turning face ") + face.name + " sent facelet " + std::to_string(f) +
                               " off the cube");
        perm[f] = *target;
      }
      layout.moves.push_back(std::move(perm));
      layout.move_names.push_back(std::string(face.name) + (d < 0 ? "-1" : "1"));
      layout.actions.push_back(std::nullopt);
    }
  }
  return {};
}

// Steps 6 to 9 and the actions of a cube: facelet tables, one face per color, twelve face
// turns, each action matched to a face turn or appended as a move of its own.
Status derive_cube(Layout& layout, const StickerTable& table, const CubeShape& cube,
                   std::vector<std::uint32_t> facelets, const std::optional<ActionPermutations>& derived) {
  const std::size_t n = facelets.size(), per_face = n / 6;
  layout.cube = cube;
  layout.facelet_of_slot = std::move(facelets);
  layout.slot_of_facelet = inverse_of(layout.facelet_of_slot);
  constexpr std::uint16_t kUnset = 0xFFFF;
  layout.face_of_color.assign(6, kUnset);
  layout.color_of_face.assign(6, kUnset);
  for (std::size_t s = 0; s < n; ++s) {
    const std::uint16_t c = table.solved_colors[s];
    const auto f = static_cast<std::uint16_t>(layout.facelet_of_slot[s] / per_face);
    if (layout.face_of_color[c] != kUnset && layout.face_of_color[c] != f)
      return state_failure("color " + std::to_string(c) + " is on more than one face, so a face cannot stand for a color");
    layout.face_of_color[c] = f;
    layout.color_of_face[f] = c;
  }
  for (const FaceAxes& face : kCubeFaces) layout.faces.emplace_back(face.name);
  layout.face_sizes.assign(6, static_cast<std::uint32_t>(per_face));
  layout.goal.resize(n);
  for (std::size_t i = 0; i < n; ++i) layout.goal[i] = static_cast<std::uint32_t>(i / per_face);
  layout.face_count = 6;
  TV_CHECK(add_face_turns(layout, cube));
  if (!derived) return {};

  const std::size_t face_turns = layout.moves.size();
  for (std::size_t a = 0; a < derived->permutations.size(); ++a) {
    const auto& perm = derived->permutations[a];
    std::vector<std::uint32_t> out(n);
    for (std::size_t f = 0; f < n; ++f) out[f] = layout.facelet_of_slot[perm[layout.slot_of_facelet[f]]];
    bool matched = false;
    for (std::size_t m = 0; m < face_turns; ++m) {
      if (layout.moves[m] != out) continue;
      layout.actions[m] = static_cast<std::uint32_t>(a);
      matched = true;
    }
    if (matched) continue;
    layout.moves.push_back(std::move(out));
    std::string name = ":";
    name += action_name(table.grip_names, a);
    layout.move_names.push_back(std::move(name));
    layout.actions.push_back(static_cast<std::uint32_t>(a));
  }
  return {};
}

// Steps 10 and 11: the puzzle's own order, colors as faces and actions as moves.
void derive_general(Layout& layout, const StickerTable& table, const ActionPermutations& derived) {
  const std::size_t n = table.solved_colors.size(), colors = table.palette.size();
  layout.facelet_of_slot.resize(n);
  for (std::size_t s = 0; s < n; ++s) layout.facelet_of_slot[s] = static_cast<std::uint32_t>(s);
  layout.slot_of_facelet = layout.facelet_of_slot;
  layout.face_of_color.resize(colors);
  for (std::size_t c = 0; c < colors; ++c) {
    layout.face_of_color[c] = static_cast<std::uint16_t>(c);
    layout.faces.push_back(std::to_string(c));
  }
  layout.color_of_face = layout.face_of_color;
  layout.face_sizes.assign(colors, 0);
  for (std::uint16_t c : table.solved_colors) ++layout.face_sizes[c];
  layout.goal.assign(table.solved_colors.begin(), table.solved_colors.end());
  layout.face_count = colors;
  for (std::size_t a = 0; a < derived.permutations.size(); ++a) {
    layout.moves.push_back(derived.permutations[a]);
    layout.move_names.push_back(action_name(table.grip_names, a));
    layout.actions.push_back(static_cast<std::uint32_t>(a));
  }
}

// The derived tables of the engine, made whenever the moves change.
void pack_moves(Layout& layout) {
  const std::size_t n = layout.facelet_count();
  layout.table.clear();
  layout.table.reserve(layout.move_count() * n);
  for (const auto& perm : layout.moves) layout.table.insert(layout.table.end(), perm.begin(), perm.end());
  layout.shuffles = {};
  if (n == 0 || n > kShuffleMaxSlots || layout.moves.empty() || !shuffles_available()) return;
  const std::vector<std::uint8_t> bytes(layout.table.begin(), layout.table.end());
  layout.shuffles = compile_shuffles(bytes.data(), layout.move_count(), n);
}

bool is_white_space(char32_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) ||
         c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

// The code point that starts at text[i] (valid UTF-8) and its length in bytes.
std::pair<char32_t, std::size_t> code_point_at(std::string_view text, std::size_t i) {
  const auto lead = static_cast<unsigned char>(text[i]);
  const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  char32_t c = length == 1 ? lead : lead & (0x7F >> length);
  for (std::size_t k = 1; k < length && i + k < text.size(); ++k) c = (c << 6) | (text[i + k] & 0x3F);
  return {c, length};
}

std::string_view trim_white_space(std::string_view text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    const auto [c, length] = code_point_at(text, begin);
    if (!is_white_space(c)) break;
    begin += length;
  }
  std::size_t end = begin, kept = begin;  // end of the last code point that is not white space
  while (end < text.size()) {
    const auto [c, length] = code_point_at(text, end);
    end = std::min(text.size(), end + length);
    if (!is_white_space(c)) kept = end;
  }
  return text.substr(begin, kept - begin);
}

}  // namespace

std::optional<std::uint32_t> locate_facelet(const std::array<double, 3>& p, std::uint32_t size, double half) {
  for (std::uint32_t k = 0; k < kCubeFaces.size(); ++k) {
    const FaceAxes& face = kCubeFaces[k];
    if (!(std::abs(dot(p, face.normal) - half) <= kOnFace)) continue;
    const double step = (half + half) / size;
    const auto row = cell_of(dot(p, face.row), size, half, step);
    const auto col = cell_of(dot(p, face.col), size, half, step);
    if (!row || !col) return std::nullopt;
    return (k * size + *row) * size + *col;
  }
  return std::nullopt;
}

std::vector<std::optional<std::uint32_t>> inverses_of(const std::vector<std::vector<std::uint32_t>>& moves) {
  std::map<std::vector<std::uint32_t>, std::uint32_t> first;
  for (std::size_t m = 0; m < moves.size(); ++m) first.emplace(moves[m], static_cast<std::uint32_t>(m));
  std::vector<std::optional<std::uint32_t>> inverses(moves.size());
  for (std::size_t m = 0; m < moves.size(); ++m) {
    const auto inv = inverse_of(moves[m]);
    if (inv == moves[m]) {
      inverses[m] = static_cast<std::uint32_t>(m);
    } else if (const auto it = first.find(inv); it != first.end()) {
      inverses[m] = it->second;
    }
  }
  return inverses;
}

Result<Layout> derive_layout(std::string_view query) {
  TV_TRY(Simulator sim, Simulator::from_recipe_text(query));
  Layout layout;
  TV_TRY(layout.query, query_text(Recipe{sim.shell_shapes(), sim.cut_shapes()}));
  TV_TRY(const std::optional<ActionPermutations> derived, derive_action_permutations(sim));
  TV_TRY(const std::shared_ptr<const StickerTable> table, sim.sticker_table());

  std::optional<std::vector<std::uint32_t>> facelets;
  const std::optional<CubeShape> cube = cube_shape(*table);
  if (cube) facelets = facelets_of_slots(*table, *cube);
  if (facelets) {
    TV_CHECK(derive_cube(layout, *table, *cube, std::move(*facelets), derived));
  } else if (derived) {
    derive_general(layout, *table, *derived);
  } else {
    return state_failure(
        "this puzzle's moves are not fixed permutations of its stickers (it jumbles, or a layer of it locks), so "
        "there is nothing to number face by face");
  }
  layout.inverses = inverses_of(layout.moves);
  pack_moves(layout);
  return layout;
}

Result<Layout> with_moves(const Layout& layout, const std::vector<std::vector<std::uint64_t>>& sequences) {
  if (sequences.empty()) return range_failure("a layout needs at least one move");
  const std::size_t n = layout.facelet_count();
  Layout out = layout;
  out.moves.clear();
  out.move_names.clear();
  std::vector<std::uint32_t> next(n);
  for (const auto& sequence : sequences) {
    std::vector<std::uint32_t> perm(n);
    for (std::size_t i = 0; i < n; ++i) perm[i] = static_cast<std::uint32_t>(i);
    std::string name;
    for (std::uint64_t m : sequence) {
      if (m >= layout.move_count())
        return range_failure("move " + std::to_string(m) + " out of range (have " +
                             std::to_string(layout.move_count()) + ")");
      const auto& move = layout.moves[m];
      for (std::size_t i = 0; i < n; ++i) next[i] = perm[move[i]];
      perm.swap(next);
      name += (name.empty() ? "" : " ") + layout.move_names[m];
    }
    out.moves.push_back(std::move(perm));
    out.move_names.push_back(sequence.empty() ? "." : std::move(name));
  }
  out.actions.assign(out.moves.size(), std::nullopt);
  out.inverses = inverses_of(out.moves);
  pack_moves(out);
  return out;
}

std::optional<std::uint32_t> move_index(const Layout& layout, std::string_view name) {
  const std::string_view trimmed = trim_white_space(name);
  const auto named = [&](std::string_view wanted) -> std::optional<std::uint32_t> {
    for (std::size_t m = 0; m < layout.move_names.size(); ++m)
      if (layout.move_names[m] == wanted) return static_cast<std::uint32_t>(m);
    return std::nullopt;
  };
  if (const auto exact = named(trimmed)) return exact;
  if (!layout.cube || trimmed.empty()) return std::nullopt;
  // A face letter with a turn stands for the face turn's own name, so on a layout of
  // macro-moves (which keeps the cube) it finds that turn only where one is still named so.
  const char* face = nullptr;
  for (const FaceAxes& axes : kCubeFaces)
    if (trimmed[0] == axes.name[0]) face = axes.name;
  if (face == nullptr) return std::nullopt;
  const std::string_view turn = trimmed.substr(1);
  if (turn.empty() || turn == "1" || turn == "+1") return named(std::string(face) + "1");
  if (turn == "-1" || turn == "'") return named(std::string(face) + "-1");
  return std::nullopt;
}

}  // namespace tv
