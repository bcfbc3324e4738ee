// Sticker slots, sticker ids and colors, action permutations and the jumbling test.
#include "symbolic.hpp"

#include <algorithm>
#include <limits>
#include <tuple>

#include "color.hpp"
#include "simulator.hpp"

namespace tv {

namespace {

constexpr std::uint32_t kEmptySlot = 0xFFFFFFFF;

// "{numerator}/{denominator}," per rational coefficient, then ";".
void append_coefficients(std::string& text, const AlgebraicNumber& x) {
  for (const Fraction& c : x.coefficients()) {
    text += c.numerator().to_string();
    text += '/';
    text += c.denominator().to_string();
    text += ',';
  }
  text += ';';
}

bool at_home(const Quaternion& q) { return q.x.is_zero() && q.y.is_zero() && q.z.is_zero() && !q.w.is_zero(); }

// The piece's vertices where it now stands.
Result<std::vector<Vector3>> world_vertices(const Piece& piece) {
  std::vector<Vector3> world;
  world.reserve(piece.vertices.size());
  const bool home = at_home(piece.orientation);
  for (const Vertex& v : piece.vertices) {
    if (home) {
      world.push_back({v.x, v.y, v.z});
    } else {
      TV_TRY(Vector3 turned, rotate(piece.orientation, {v.x, v.y, v.z}));
      world.push_back(std::move(turned));
    }
  }
  return world;
}

// The exact, unscaled sum of a facet's world vertices, and its count, as text.
std::string position_key(const Facet& facet, const std::vector<Vector3>& world, Vector3* sum_out = nullptr) {
  Vector3 sum = world[facet.vertices[0]];
  for (std::size_t k = 1; k < facet.vertices.size(); ++k) {
    for (int axis = 0; axis < 3; ++axis) sum[axis] = sum[axis] + world[facet.vertices[k]][axis];
  }
  std::string key = std::to_string(facet.vertices.size()) + ':';
  for (const AlgebraicNumber& x : sum) append_coefficients(key, x);
  if (sum_out != nullptr) *sum_out = std::move(sum);
  return key;
}

std::string slot_memo_key(std::uint32_t piece, const Quaternion& q) {
  std::string key = std::to_string(piece) + ',';
  for (const AlgebraicNumber* x : {&q.x, &q.y, &q.z, &q.w}) append_coefficients(key, *x);
  return key;
}

struct Record {
  std::string key;
  std::uint32_t piece;
  std::uint32_t facet;
  std::uint16_t color;
  std::array<double, 3> position;
};

Result<std::vector<Record>> sticker_records(const std::vector<Piece>& pieces, std::vector<std::uint32_t>& palette) {
  std::vector<Record> records;
  for (std::uint32_t p = 0; p < pieces.size(); ++p) {
    TV_TRY(const auto world, world_vertices(pieces[p]));
    for (std::uint32_t f = 0; f < pieces[p].facets.size(); ++f) {
      const Facet& facet = pieces[p].facets[f];
      if (facet.interior) continue;
      const std::uint32_t packed = pack_rgb(facet.color);
      auto color = std::find(palette.begin(), palette.end(), packed);
      if (color == palette.end()) color = palette.insert(palette.end(), packed);
      const auto id = static_cast<std::size_t>(color - palette.begin());
      if (id > 0xFFFF) return other_failure("puzzle has too many colors");
      TV_ENSURE(!facet.vertices.empty(), "a sticker has at least one vertex");
      Vector3 sum = world[facet.vertices[0]];
      std::string key = position_key(facet, world, &sum);
      const double n = static_cast<double>(facet.vertices.size());
      records.push_back({std::move(key), p, f, static_cast<std::uint16_t>(id),
                         {sum[0].to_f64() / n, sum[1].to_f64() / n, sum[2].to_f64() / n}});
    }
  }
  return records;
}

// The slots that a piece in its present orientation covers, parallel to its solved slots.
Result<std::shared_ptr<const std::vector<std::uint32_t>>> slots_now(const StickerTable& table, const Piece& piece,
                                                                   std::uint32_t i, SlotMemo& memo) {
  const std::string key = slot_memo_key(i, piece.orientation);
  if (const auto hit = memo.find(key); hit != memo.end()) return hit->second;
  TV_TRY(const auto world, world_vertices(piece));
  auto slots = std::make_shared<std::vector<std::uint32_t>>();
  for (const std::uint32_t f : table.facets_of_piece[i]) {
    const auto found = table.position_index.find(position_key(piece.facets[f], world));
    if (found == table.position_index.end()) {
      return state_failure("face " + std::to_string(f) + " of piece " + std::to_string(i) +
                           " is not at any solved sticker position. This puzzle does not return to its own lattice");
    }
    slots->push_back(found->second);
  }
  memo.emplace(key, slots);
  return std::shared_ptr<const std::vector<std::uint32_t>>(std::move(slots));
}

}  // namespace

Result<StickerTable> build_sticker_slots(const std::vector<Piece>& pieces) {
  StickerTable table;
  TV_TRY(auto records, sticker_records(pieces, table.palette));
  if (records.size() > std::numeric_limits<std::uint32_t>::max()) return other_failure("puzzle has too many stickers");
  std::sort(records.begin(), records.end(), [](const Record& a, const Record& b) {
    return std::tie(a.color, a.piece, a.facet) < std::tie(b.color, b.piece, b.facet);
  });
  table.slots_of_piece.resize(pieces.size());
  table.facets_of_piece.resize(pieces.size());
  table.solved_colors.reserve(records.size());
  table.positions.reserve(records.size());
  for (std::uint32_t s = 0; s < records.size(); ++s) {
    Record& r = records[s];
    if (!table.position_index.emplace(std::move(r.key), s).second) {
      return state_failure("two stickers of the solved puzzle share a position, so slots cannot be numbered");
    }
    table.solved_colors.push_back(r.color);
    table.positions.push_back(r.position);
    table.slots_of_piece[r.piece].push_back(s);
    table.facets_of_piece[r.piece].push_back(r.facet);
  }
  return table;
}

Result<std::vector<std::uint32_t>> sticker_ids(const StickerTable& table, const std::vector<Piece>& pieces,
                                               SlotMemo& memo) {
  std::vector<std::uint32_t> ids(table.solved_colors.size(), kEmptySlot);
  for (std::uint32_t i = 0; i < pieces.size(); ++i) {
    const auto& solved = table.slots_of_piece[i];
    if (solved.empty()) continue;
    if (at_home(pieces[i].orientation)) {
      for (const std::uint32_t s : solved) ids[s] = s;
      continue;
    }
    TV_TRY(const auto now, slots_now(table, pieces[i], i, memo));
    for (std::size_t j = 0; j < now->size(); ++j) ids[(*now)[j]] = solved[j];
  }
  const auto empty = std::find(ids.begin(), ids.end(), kEmptySlot);
  if (empty != ids.end()) {
    return state_failure("slot " + std::to_string(empty - ids.begin()) +
                         " is empty: the puzzle's stickers no longer sit on the solved lattice");
  }
  return ids;
}

Result<std::vector<std::uint16_t>> sticker_colors(const StickerTable& table, const std::vector<Piece>& pieces,
                                                  SlotMemo& memo) {
  TV_TRY(const auto ids, sticker_ids(table, pieces, memo));
  std::vector<std::uint16_t> colors(ids.size());
  for (std::size_t s = 0; s < ids.size(); ++s) colors[s] = table.solved_colors[ids[s]];
  return colors;
}

Result<std::optional<ActionPermutations>> derive_action_permutations(Simulator& sim) {
  const std::optional<ActionPermutations> nothing;
  auto table = sim.sticker_table();
  if (!table.ok()) return nothing;
  auto baseline = sim.sticker_colors();
  if (!baseline.ok()) return nothing;
  ActionPermutations result{{}, std::move(*baseline)};
  const std::uint64_t actions = 2 * (*table)->grip_names.size();
  for (std::uint64_t a = 0; a < actions; ++a) {
    TV_TRY(const bool made, sim.apply_action(a));
    if (!made) return nothing;
    auto ids = sim.sticker_ids();
    TV_TRY(const auto mask, sim.action_mask());
    const bool locked = std::find(mask.begin(), mask.end(), false) != mask.end();
    if (!ids.ok() || locked) {
      TV_TRY(const bool undone, sim.undo());
      static_cast<void>(undone);
      return nothing;
    }
    result.permutations.push_back(std::move(*ids));
    TV_TRY(const bool undone, sim.undo());
    if (!undone) return nothing;
    auto colors = sim.sticker_colors();
    if (!colors.ok() || *colors != result.baseline) return nothing;
  }
  return std::optional<ActionPermutations>(std::move(result));
}

Result<bool> jumbles(std::string_view query) {
  TV_TRY(Simulator sim, Simulator::from_recipe_text(query));
  TV_TRY(const auto table, sim.sticker_table());
  const std::uint64_t actions = 2 * table->grip_names.size();
  if (actions == 0) return false;
  for (std::uint64_t a = 0; a < actions; ++a) {
    TV_TRY(const bool made, sim.apply_action(a));
    if (!made) continue;
    if (!sim.sticker_colors().ok()) return true;
    TV_TRY(const bool back, sim.apply_action(a ^ 1));
    if (!back || !sim.sticker_colors().ok()) return true;
  }
  std::uint64_t z = 0xFC2648205118BC1Aull;
  for (int step = 0; step < 40; ++step) {
    TV_TRY(const bool made, sim.apply_action(mix(z) % actions));
    if (made && !sim.sticker_colors().ok()) return true;
    z += kGoldenGamma;
  }
  return false;
}

}  // namespace tv
