// Many copies of one puzzle, for reinforcement learning and search.
//
// When every action of a puzzle is a fixed permutation of its sticker slots, a copy is just a
// row of slot numbers: row[s] is the solved slot of the sticker that now sits in slot s, and a
// move is the gather new[s] = old[moves[a][s]]. Slot numbers are stored at the narrowest width
// that holds the sticker count (8, 16 or 32 bits), and rows are kept as identities rather than
// colors, because two states with the same colors can differ.
//
// A puzzle whose moves are not fixed permutations (it jumbles, or locks layers) is kept as one
// Simulator per copy instead, all sharing one sticker table; the same operations then turn
// geometry, and a move onto a locked layer is refused rather than made. A loop over such
// copies runs every copy to its end and reports the lowest failing copy's failure, so what a
// failed call leaves behind does not depend on the schedule either.
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
#include "render/paint.hpp"
#include "histories.hpp"
#include "render/scene.hpp"
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
  // Builds the puzzle once and derives its table and action permutations, then makes `count`
  // solved copies: rows of slot numbers when the moves are fixed permutations, otherwise
  // simulators built in parallel from the query, each given the one table. Arrows are off.
  static Result<Batch> create(std::string query, std::uint64_t count);
  // Simulators for every copy whatever the puzzle's moves, so that the two ways can be
  // compared on a puzzle that allows both.
  static Result<Batch> create_geometric(std::string query, std::uint64_t count);
  // A batch over a table and permutations made elsewhere (tests use synthetic ones).
  static Result<Batch> from_permutations(std::string query, std::shared_ptr<const StickerTable> table,
                                         const std::vector<std::vector<std::uint32_t>>& permutations,
                                         std::uint64_t count, std::optional<Simulator> base);

  std::uint64_t count() const { return rng_.size(); }
  bool is_tabular() const { return sims_.empty(); }
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
  // Takes back the last move of each selected copy that has one; true where it did. A copy
  // whose last turned layer is locked now answers false and keeps its move.
  Result<ArrayBuffer> undo(const Selection& which);
  // Selected copies back to solved, histories and last moves cleared; rng kept. A simulator
  // that cannot be walked back is rebuilt, keeping its view and camera.
  Status solve(const Selection& which);
  // Walks copy i depths[i] moves further, continuing from its last move; kind Range when the
  // length is not count. A copy of simulators has a budget of eight draws a move: refused
  // moves spend draws, so its walk may end short.
  Status scramble(const std::vector<std::uint32_t>& depths);
  // solve(which) then a walk of `depth` for each selected copy.
  Status reset_where(const Selection& which, std::uint32_t depth);
  // The written moves, each for every copy (a copy that cannot make one stays behind); the
  // number of turns each copy was asked for.
  Result<std::uint64_t> apply(std::string_view text);

  // Copies' states from outside: colors in slot order, dealt out to the lowest free sticker of
  // each color, or (`ids`) identities, which must be permutations. A single row of n values is
  // put into every copy. Nothing changes unless every row passes; histories are emptied and
  // last moves cleared, generators kept. Only copies held as rows can take a state.
  Status set_states(std::vector<std::uint32_t> values, bool ids);

  // The queries fail, changing nothing, when a copy of simulators has left its solved lattice.
  Result<ArrayBuffer> observations();
  Result<ArrayBuffer> sticker_ids();
  Result<ArrayBuffer> one_hot();
  Result<ArrayBuffer> action_masks();
  Result<ArrayBuffer> solved();
  // Each action's row of slot numbers; only for a batch held as rows.
  ArrayBuffer permutations() const;

  // The view keywords, to the solved puzzle kept for drawing or to every copy, for good.
  void configure(const render::ViewChange& change);
  // The camera of that puzzle, or of the first copy.
  const render::Camera& camera() const;

  // Every copy's frame at width x height: (count, height, width, channels), or channels before
  // height with `channels_first`; bytes, or floats byte / 255. Fails on channels other than 3
  // and 4, or a block that cannot be allocated, before anything is drawn.
  Result<ArrayBuffer> render(std::uint32_t width, std::uint32_t height, std::uint32_t channels, bool channels_first,
                             bool floats);
  // Frames in bytes of rows of color ids given by the caller, one id per slot, the batch untouched;
  // an id past the palette paints opaque black.
  Result<ArrayBuffer> render_states(std::span<const std::uint32_t> states, std::uint32_t width, std::uint32_t height,
                                    std::uint32_t channels, bool channels_first);

 private:
  friend struct BatchTestAccess;
  Batch() = default;

  static Result<Batch> from_simulators(std::string query, std::shared_ptr<const StickerTable> table,
                                       std::uint64_t count);
  ArrayBuffer tabular_undo(const Selection& which);
  ArrayBuffer tabular_observations() const;
  ArrayBuffer tabular_sticker_ids() const;
  ArrayBuffer tabular_one_hot() const;
  ArrayBuffer tabular_solved() const;
  Status set_identities(std::vector<std::uint32_t>& ids);

  // The copies of simulators, stepped, walked, undone and solved one copy per task.
  Result<std::pair<ArrayBuffer, ArrayBuffer>> step_copies(const std::vector<std::uint32_t>& actions, bool test_solved);
  Status walk_copies(const std::vector<std::uint32_t>& depths);
  Result<ArrayBuffer> undo_copies(const Selection& which);
  Status solve_copies(const Selection& which);

  // The pixel-to-slot table of the solved puzzle's current view, made the most recent one.
  Result<const render::PaintTable*> paint_table(std::uint32_t width, std::uint32_t height);
  // Every copy of simulators drawn from its own geometry into its stretch of `out`.
  Status draw_copies(std::uint32_t width, std::uint32_t height, std::uint32_t channels, bool channels_first,
                     bool floats, ArrayBuffer& out) const;

  // Room in the histories for walks of depths[i] moves; fails only when memory runs out.
  Status room_for_walks(const std::vector<std::uint32_t>& depths);
  // Walks copy i depths[i] moves, continuing from its last move, within the room made before.
  Status walk(const std::vector<std::uint32_t>& depths);
  void tabular_walk(const std::vector<std::uint32_t>& depths);

  std::string query_;
  std::shared_ptr<const StickerTable> table_;
  std::optional<Simulator> base_;  // the solved puzzle the tables came from, kept for drawing
  std::vector<std::uint64_t> rng_;
  std::vector<std::uint32_t> last_moves_;
  Histories histories_;
  TabularEngine engine_;          // the rows, when moves are fixed permutations
  std::vector<Simulator> sims_;   // otherwise one simulator per copy, sharing table_
  render::PaintTables paint_tables_;  // the drawing tables of a batch of rows, most recent first
};

// A block of bytes as floats byte / 255, divided in 32-bit floats.
Result<ArrayBuffer> bytes_as_floats(const ArrayBuffer& bytes);

}  // namespace tv
