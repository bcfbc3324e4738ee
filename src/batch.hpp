// Many copies of one puzzle, for reinforcement learning and search.
//
// When every action of a puzzle is a fixed permutation of its sticker slots, a copy is just a
// row of slot numbers: row[s] is the solved slot of the sticker that now sits in slot s, and a
// move is the gather new[s] = old[moves[a][s]]. Slot numbers are stored at the narrowest width
// that holds the sticker count (8, 16 or 32 bits), and rows are kept as identities rather than
// colors, because two states with the same colors can differ.
//
// Random walks draw from one SplitMix64 generator per copy and never immediately invert their
// last move: a draw that would is sent on to the next grip, keeping its direction bit, so a
// walk move costs exactly one draw. Every loop over copies runs on the worker pool with whole
// rows as the unit, each copy touching only its own row, generator, last move and history, so
// no result depends on how rows are scheduled.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "array.hpp"
#include "failure.hpp"
#include "histories.hpp"
#include "shuffle.hpp"
#include "simulator.hpp"
#include "symbolic.hpp"

namespace tv {

inline constexpr std::uint32_t kNoMove = 0xFFFFFFFFu;

// One SplitMix64 draw: the state advances by the golden gamma and is mixed.
inline std::uint64_t next_random(std::uint64_t& state) {
  state += kGoldenGamma;
  return mix(state);
}

// The walk's move from draw `z`: z mod action_count, sent on by 2 when it would undo `last`.
inline std::uint32_t walk_move(std::uint64_t z, std::uint32_t last, std::uint64_t action_count) {
  auto a = static_cast<std::uint32_t>(z % action_count);
  if (action_count >= 3 && last != kNoMove && (a ^ last) == 1) a = static_cast<std::uint32_t>((a + 2) % action_count);
  return a;
}

// The rows of the tabular engine at slot width T.
template <class T>
struct Tabular {
  std::vector<T> states;   // count rows of n
  std::vector<T> scratch;  // the second buffer of a step
  std::vector<T> moves;    // action_count rows of n
  ShuffleProgram shuffles; // the moves compiled, for byte rows of up to 64 slots; else empty
};

using TabularEngine = std::variant<Tabular<std::uint8_t>, Tabular<std::uint16_t>, Tabular<std::uint32_t>>;

// One flag per copy: 1 selected, 0 not.
using Selection = std::vector<std::uint8_t>;

class Batch {
 public:
  // Builds the puzzle once, derives its action permutations and makes `count` solved copies.
  static Result<Batch> create(std::string query, std::uint64_t count);
  // A batch over a table and permutations made elsewhere (tests use synthetic ones).
  static Result<Batch> from_permutations(std::string query, std::shared_ptr<const StickerTable> table,
                                         const std::vector<std::vector<std::uint32_t>>& permutations,
                                         std::uint64_t count, std::optional<Simulator> base);

  std::uint64_t count() const { return rng_.size(); }
  std::size_t sticker_count() const { return table_->solved_colors.size(); }
  std::size_t color_count() const { return table_->palette.size(); }
  std::uint64_t action_count() const { return 2 * table_->grip_names.size(); }
  const std::string& query() const { return query_; }
  const StickerTable& table() const { return *table_; }
  const std::vector<std::uint64_t>& rng() const { return rng_; }
  const std::vector<std::uint32_t>& last_moves() const { return last_moves_; }
  std::span<const std::uint32_t> history(std::uint64_t index) const { return histories_.of(index); }
  std::vector<std::uint64_t> move_counts() const;

  // Seeding clears the last move of the copies concerned and nothing else.
  void seed(std::uint64_t index, std::uint64_t state);
  void seed_all(std::uint64_t seed);

  // One move per copy; fails with kind Range on a wrong length or an action out of range,
  // before anything changes. The answer is (solved, applied).
  Result<std::pair<ArrayBuffer, ArrayBuffer>> step(const std::vector<std::uint32_t>& actions);
  // Takes back the last move of each selected copy that has one; true where it did.
  ArrayBuffer undo(const Selection& which);
  // Selected copies back to the identity, histories and last moves cleared; rng kept.
  void solve(const Selection& which);
  // One depth per copy: kind Range when the length is not count.
  Status scramble(const std::vector<std::uint32_t>& depths);
  // solve(which) then a walk of `depth` for each selected copy.
  Status reset_where(const Selection& which, std::uint32_t depth);
  // The written moves, each for every copy; the number of turns each copy was asked for.
  Result<std::uint64_t> apply(std::string_view text);

  ArrayBuffer observations() const;
  ArrayBuffer sticker_ids() const;
  ArrayBuffer one_hot() const;
  ArrayBuffer action_masks() const;
  ArrayBuffer solved() const;
  ArrayBuffer permutations() const;

 private:
  Batch() = default;

  // Room in the histories for walks of depths[i] moves; fails only when memory runs out.
  Status room_for_walks(const std::vector<std::uint32_t>& depths);
  // Walks copy i depths[i] moves, continuing from its last move, within the room made before.
  void walk(const std::vector<std::uint32_t>& depths);

  std::string query_;
  std::shared_ptr<const StickerTable> table_;
  std::optional<Simulator> base_;  // the solved puzzle the tables came from, kept for drawing
  std::vector<std::uint64_t> rng_;
  std::vector<std::uint32_t> last_moves_;
  Histories histories_;
  TabularEngine engine_;
};

}  // namespace tv
