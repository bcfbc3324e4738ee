#include "batch.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

#include "interrupt.hpp"
#include "pool.hpp"

namespace tv {
namespace {

// Whether an engine and an output pointer are both bytes, so compiled programs may serve.
template <class Engine, class Target>
constexpr bool compiled_bytes =
    std::is_same_v<std::remove_cvref_t<Engine>, Tabular<std::uint8_t>> && std::is_same_v<Target, std::uint8_t*>;

template <class T>
bool row_is_solved(const T* row, const std::vector<std::uint16_t>& colors) {
  for (std::size_t s = 0; s < colors.size(); ++s)
    if (colors[row[s]] != colors[s]) return false;
  return true;
}

template <class T>
void gather(T* out, const T* in, const T* perm, std::size_t n) {
  for (std::size_t s = 0; s < n; ++s) out[s] = in[perm[s]];
}

template <class T>
void fill_identity(T* row, std::size_t n) {
  for (std::size_t s = 0; s < n; ++s) row[s] = static_cast<T>(s);
}

template <class T>
Tabular<T> make_tabular(const std::vector<std::vector<std::uint32_t>>& permutations,
                        const std::vector<std::uint16_t>& colors, std::uint64_t count) {
  const std::size_t n = colors.size();
  Tabular<T> engine;
  engine.moves.reserve(permutations.size() * n);
  for (const auto& perm : permutations)
    for (std::uint32_t s : perm) engine.moves.push_back(static_cast<T>(s));
  if constexpr (std::is_same_v<T, std::uint8_t>) {
    const bool small_colors = std::all_of(colors.begin(), colors.end(), [](std::uint16_t c) { return c < 256; });
    if (n > 0 && n <= kShuffleMaxSlots && small_colors && shuffles_available())
      engine.shuffles = compile_shuffles(engine.moves.data(), permutations.size(), n,
                                         std::vector<std::uint8_t>(colors.begin(), colors.end()));
  }
  engine.states.resize(count * n);
  engine.scratch.resize(count * n);
  for (std::uint64_t i = 0; i < count; ++i) fill_identity(engine.states.data() + i * n, n);
  return engine;
}

// Whether the buffers of `count` copies can be addressed: the one-hot block is the largest.
Failure out_of_memory(std::uint64_t count) {
  return range_failure("there is not enough memory for " + std::to_string(count) + " puzzles");
}

// Gives the histories room for what a loop will append; running out of memory fails the call.
template <class Reserve>
Status make_room(Histories& histories, Reserve reserve) {
  try {
    reserve(histories);
  } catch (const std::bad_alloc&) {
    return out_of_memory(histories.copies());
  }
  return {};
}

bool addressable(std::uint64_t count, std::size_t n, std::size_t colors, std::size_t slot_bytes) {
  std::uint64_t cells = 0, bytes = 0;
  const std::uint64_t limit = static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max());
  return !__builtin_mul_overflow(count, static_cast<std::uint64_t>(n) * std::max<std::size_t>(colors, 1), &cells) &&
         cells <= limit && !__builtin_mul_overflow(count, 2 * n * slot_bytes, &bytes) && bytes <= limit;
}

}  // namespace

Result<Batch> Batch::create(std::string query, std::uint64_t count) {
  if (count == 0) return range_failure("a batch needs at least one puzzle");
  TV_TRY(Simulator sim, Simulator::from_recipe_text(query));
  TV_TRY(auto table, sim.sticker_table());
  TV_TRY(auto derived, derive_action_permutations(sim));
  sim.view().show_arrows = false;
  if (!derived) return from_simulators(std::move(query), std::move(table), count);
  return from_permutations(std::move(query), std::move(table), derived->permutations, count, std::move(sim));
}

Result<Batch> Batch::create_geometric(std::string query, std::uint64_t count) {
  if (count == 0) return range_failure("a batch needs at least one puzzle");
  TV_TRY(Simulator sim, Simulator::from_recipe_text(query));
  TV_TRY(auto table, sim.sticker_table());
  return from_simulators(std::move(query), std::move(table), count);
}

Result<Batch> Batch::from_permutations(std::string query, std::shared_ptr<const StickerTable> table,
                                       const std::vector<std::vector<std::uint32_t>>& permutations,
                                       std::uint64_t count, std::optional<Simulator> base) {
  if (count == 0) return range_failure("a batch needs at least one puzzle");
  const std::size_t n = table->solved_colors.size();
  TV_ENSURE(permutations.size() == 2 * table->grip_names.size(), "one permutation per action");
  for (const auto& perm : permutations) {
    TV_ENSURE(perm.size() == n, "a permutation covers every slot");
    for (std::uint32_t s : perm) TV_ENSURE(s < n, "a permutation stays within the slots");
  }
  const ElementType width = whole_type_for_bound(n);
  if (!addressable(count, n, table->palette.size(), itemsize_of(width)))
    return range_failure("a batch of " + std::to_string(count) + " puzzles of " + std::to_string(n) +
                         " stickers is too large to address");
  Batch batch;
  batch.query_ = std::move(query);
  batch.table_ = std::move(table);
  batch.base_ = std::move(base);
  try {
    switch (width) {
      case ElementType::U8: batch.engine_ = make_tabular<std::uint8_t>(permutations, batch.table_->solved_colors, count); break;
      case ElementType::U16: batch.engine_ = make_tabular<std::uint16_t>(permutations, batch.table_->solved_colors, count); break;
      default: batch.engine_ = make_tabular<std::uint32_t>(permutations, batch.table_->solved_colors, count); break;
    }
    batch.rng_.resize(count);
    batch.last_moves_.assign(count, kNoMove);
    batch.histories_ = Histories(count);
  } catch (const std::bad_alloc&) {
    return out_of_memory(count);
  }
  for (std::uint64_t i = 0; i < count; ++i) batch.rng_[i] = i ^ kInitialRandomState;
  return batch;
}

Result<Batch> Batch::from_simulators(std::string query, std::shared_ptr<const StickerTable> table,
                                     std::uint64_t count) {
  const std::size_t n = table->solved_colors.size();
  if (!addressable(count, n, table->palette.size(), sizeof(std::uint32_t)) ||
      count > std::vector<Simulator>().max_size())
    return range_failure("a batch of " + std::to_string(count) + " puzzles of " + std::to_string(n) +
                         " stickers is too large to address");
  Batch batch;
  std::vector<std::optional<Simulator>> built;
  std::vector<std::optional<Failure>> failures;
  try {
    built.resize(count);
    failures.resize(count);
    batch.sims_.reserve(count);
    batch.rng_.resize(count);
    batch.last_moves_.assign(count, kNoMove);
    batch.histories_ = Histories(count);
  } catch (const std::bad_alloc&) {
    return out_of_memory(count);
  }
  // Geometry is the expensive part, so every copy is built on its own task; the lowest
  // failing copy's failure is the batch's (all copies build alike, so there is one kind).
  pool::for_each_leaf(count, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      Result<Simulator> sim = Simulator::from_recipe_text(query);
      if (sim) built[i].emplace(std::move(sim).value());
      else failures[i] = std::move(sim).failure();
    }
  });
  for (auto& failure : failures)
    if (failure) return std::move(*failure);
  for (auto& sim : built) {
    sim->install_sticker_table(table);
    sim->view().show_arrows = false;
    batch.sims_.push_back(std::move(*sim));
  }
  batch.query_ = std::move(query);
  batch.table_ = std::move(table);
  for (std::uint64_t i = 0; i < count; ++i) batch.rng_[i] = i ^ kInitialRandomState;
  return batch;
}

std::vector<std::uint64_t> Batch::move_counts() const {
  std::vector<std::uint64_t> counts;
  counts.reserve(count());
  for (std::size_t i = 0; i < count(); ++i) counts.push_back(histories_.size(i));
  return counts;
}

void Batch::seed(std::uint64_t index, std::uint64_t state) {
  rng_[index] = state;
  last_moves_[index] = kNoMove;
}

void Batch::seed_all(std::uint64_t seed) {
  for (std::uint64_t i = 0; i < count(); ++i) rng_[i] = seed + i;
  std::fill(last_moves_.begin(), last_moves_.end(), kNoMove);
}

namespace {

// Rows [begin, end) of the state move into the second buffer, row r by actions[r] (or all by
// actions[0] when `same_action`); solved[r] is written when asked.
template <class T>
void move_leaf(const Tabular<T>& e, T* out, const std::uint32_t* actions, bool same_action, std::size_t begin,
               std::size_t end, std::size_t n, const std::vector<std::uint16_t>& colors, std::uint8_t* solved) {
  const T* in = e.states.data();
  if constexpr (std::is_same_v<T, std::uint8_t>) {
    if (e.shuffles.chunks > 0)
      return shuffle_rows(e.shuffles, actions + (same_action ? 0 : begin), same_action, in + begin * n,
                          e.states.size() - begin * n, out + begin * n, end - begin,
                          solved == nullptr ? nullptr : solved + begin);
  }
  for (std::size_t row = begin; row < end; ++row) {
    gather(out + row * n, in + row * n, e.moves.data() + std::size_t{actions[same_action ? 0 : row]} * n, n);
    if (solved != nullptr) solved[row] = row_is_solved(out + row * n, colors) ? 1 : 0;
  }
}

// Moves `row` through `count` actions, using `other` (a row of scratch) as the second buffer.
template <class T>
void move_row_through(const Tabular<T>& e, const std::uint32_t* actions, std::size_t count, T* row, T* other,
                      std::size_t n) {
  if constexpr (std::is_same_v<T, std::uint8_t>) {
    if (e.shuffles.chunks > 0) return shuffle_row_through(e.shuffles, actions, count, row);
  }
  T *from = row, *to = other;
  for (std::size_t k = 0; k < count; ++k) {
    gather(to, from, e.moves.data() + std::size_t{actions[k]} * n, n);
    std::swap(from, to);
  }
  if (from != row) std::copy(from, from + n, row);
}

// Every row moves by its action (actions[row], or actions[0] for all when `same_action`) into
// the second buffer, which then becomes the state; the move enters the row's last move and
// history, and solved[row] is written when asked.
template <class T>
Status move_rows(Tabular<T>& e, std::size_t n, std::vector<std::uint32_t>& last_moves, Histories& histories,
                 const std::vector<std::uint16_t>& colors, const std::uint32_t* actions, bool same_action,
                 std::uint8_t* solved) {
  TV_CHECK(make_room(histories, [](Histories& h) { h.reserve_each(1); }));
  pool::for_each_leaf(last_moves.size(), [&](std::size_t begin, std::size_t end) {
    move_leaf(e, e.scratch.data(), actions, same_action, begin, end, n, colors, solved);
    for (std::size_t row = begin; row < end; ++row) {
      const std::uint32_t a = actions[same_action ? 0 : row];
      last_moves[row] = a;
      histories.push(row, a);
    }
  });
  e.states.swap(e.scratch);
  return {};
}

}  // namespace

Result<std::pair<ArrayBuffer, ArrayBuffer>> Batch::step(const std::vector<std::uint32_t>& actions) {
  if (actions.size() != count())
    return range_failure("got " + std::to_string(actions.size()) + " actions for " + std::to_string(count()) +
                         " puzzles");
  for (std::uint32_t a : actions)
    if (a >= action_count())
      return range_failure("action " + std::to_string(a) + " out of range (have " + std::to_string(action_count()) +
                           ")");
  if (!is_tabular()) return step_copies(actions, true);
  ArrayBuffer solved(ElementType::Flag, {count()});
  ArrayBuffer applied(ElementType::Flag, {count()});
  std::memset(applied.bytes(), 1, applied.byte_size());
  TV_CHECK(std::visit(
      [&](auto& e) {
        return move_rows(e, sticker_count(), last_moves_, histories_, table_->solved_colors,
                         actions.data(), false, solved.bytes());
      },
      engine_));
  return std::pair{std::move(solved), std::move(applied)};
}

Result<std::uint64_t> Batch::apply(std::string_view text) {
  TV_TRY(const auto moves, parse_moves(table_->grip_names, text));
  std::uint64_t turns = 0;
  for (const Move& move : moves) {
    const auto a = static_cast<std::uint32_t>(move.action);
    for (std::uint32_t r = 0; r < move.repeat; ++r) {
      TV_CHECK(check_interrupt());  // a repeat may ask for billions of turns
      if (!is_tabular()) {
        TV_CHECK(step_copies(std::vector<std::uint32_t>(count(), a), false));
        continue;
      }
      TV_CHECK(std::visit(
          [&](auto& e) {
            return move_rows(e, sticker_count(), last_moves_, histories_, table_->solved_colors,
                             &a, true, nullptr);
          },
          engine_));
    }
    turns += move.repeat;
  }
  return turns;
}

Result<ArrayBuffer> Batch::undo(const Selection& which) {
  if (!is_tabular()) return undo_copies(which);
  return tabular_undo(which);
}

ArrayBuffer Batch::tabular_undo(const Selection& which) {
  ArrayBuffer undone(ElementType::Flag, {count()});
  std::uint8_t* out = undone.bytes();
  const std::size_t n = sticker_count();
  std::visit(
      [&](auto& e) {
        using T = typename std::remove_reference_t<decltype(e.states)>::value_type;
        pool::for_each_leaf(count(), [&](std::size_t begin, std::size_t end) {
          std::vector<T> saved(n);
          for (std::size_t row = begin; row < end; ++row) {
            if (!which[row] || histories_.empty(row)) continue;
            const std::uint32_t a = histories_.back(row);
            histories_.pop(row);
            T* state = e.states.data() + row * n;
            const T* perm = e.moves.data() + std::size_t{a} * n;
            std::copy(state, state + n, saved.begin());
            for (std::size_t s = 0; s < n; ++s) state[perm[s]] = saved[s];
            last_moves_[row] = histories_.empty(row) ? kNoMove : histories_.back(row);
            out[row] = 1;
          }
        });
      },
      engine_);
  return undone;
}

Status Batch::solve(const Selection& which) {
  if (!is_tabular()) return solve_copies(which);
  const std::size_t n = sticker_count();
  std::visit(
      [&](auto& e) {
        pool::for_each_leaf(count(), [&](std::size_t begin, std::size_t end) {
          for (std::size_t row = begin; row < end; ++row) {
            if (!which[row]) continue;
            fill_identity(e.states.data() + row * n, n);
            histories_.clear(row);
            last_moves_[row] = kNoMove;
          }
        });
      },
      engine_);
  return {};
}

Status Batch::room_for_walks(const std::vector<std::uint32_t>& depths) {
  if (action_count() == 0) return {};
  return make_room(histories_, [&](Histories& h) { h.reserve(depths); });
}

Status Batch::walk(const std::vector<std::uint32_t>& depths) {
  if (action_count() == 0) return {};
  if (!is_tabular()) return walk_copies(depths);
  tabular_walk(depths);
  return {};
}

void Batch::tabular_walk(const std::vector<std::uint32_t>& depths) {
  const std::uint64_t actions = action_count();
  const std::size_t n = sticker_count();
  std::visit(
      [&](auto& e) {
        using T = typename std::remove_reference_t<decltype(e.states)>::value_type;
        pool::for_each_leaf(count(), [&](std::size_t begin, std::size_t end) {
          std::vector<T> other(n);
          for (std::size_t row = begin; row < end; ++row) {
            const std::uint32_t depth = depths[row];
            if (depth == 0) continue;
            std::uint32_t* moves = histories_.append(row, depth);
            std::uint32_t last = last_moves_[row];
            for (std::uint32_t k = 0; k < depth; ++k) moves[k] = last = walk_move(next_random(rng_[row]), last, actions);
            move_row_through(e, moves, depth, e.states.data() + row * n, other.data(), n);
            last_moves_[row] = last;
          }
        });
      },
      engine_);
}

Status Batch::scramble(const std::vector<std::uint32_t>& depths) {
  if (depths.size() != count())
    return range_failure("got " + std::to_string(depths.size()) + " depths for " + std::to_string(count()) +
                         " puzzles");
  TV_CHECK(room_for_walks(depths));
  return walk(depths);
}

Status Batch::reset_where(const Selection& which, std::uint32_t depth) {
  std::vector<std::uint32_t> depths(count());
  for (std::size_t i = 0; i < depths.size(); ++i) depths[i] = which[i] ? depth : 0;
  TV_CHECK(room_for_walks(depths));
  TV_CHECK(solve(which));
  return walk(depths);
}

ArrayBuffer Batch::tabular_observations() const {
  const std::size_t n = sticker_count();
  ArrayBuffer out(whole_type_for_bound(color_count()), {count(), n});
  const auto& colors = table_->solved_colors;
  std::visit(
      [&](const auto& e) {
        const auto write = [&](auto* target) {
          pool::for_each_leaf(count(), [&](std::size_t begin, std::size_t end) {
            if constexpr (compiled_bytes<decltype(e), decltype(target)>) {
              if (e.shuffles.chunks > 0)
                return colors_of(e.shuffles, e.states.data() + begin * n, (end - begin) * n, target + begin * n);
            }
            for (std::size_t i = begin * n; i < end * n; ++i)
              target[i] = static_cast<std::remove_pointer_t<decltype(target)>>(colors[e.states[i]]);
          });
        };
        switch (out.type()) {
          case ElementType::U8: write(out.as<std::uint8_t>()); break;
          case ElementType::U16: write(out.as<std::uint16_t>()); break;
          default: write(out.as<std::uint32_t>()); break;
        }
      },
      engine_);
  return out;
}

ArrayBuffer Batch::tabular_sticker_ids() const {
  return std::visit(
      [&](const auto& e) {
        using T = typename std::remove_reference_t<decltype(e.states)>::value_type;
        return whole_array(std::span<const T>(e.states), sticker_count(), {count(), sticker_count()});
      },
      engine_);
}

ArrayBuffer Batch::tabular_one_hot() const {
  const std::size_t n = sticker_count(), colors = color_count();
  ArrayBuffer out(ElementType::U8, {count(), n * colors});
  std::uint8_t* target = out.bytes();
  const auto& solved_colors = table_->solved_colors;
  std::visit(
      [&](const auto& e) {
        pool::for_each_leaf(count(), [&](std::size_t begin, std::size_t end) {
          if constexpr (compiled_bytes<decltype(e), std::uint8_t*>) {
            if (e.shuffles.chunks > 0 && colors <= kShuffleMaxSlots)
              return one_hot_of(e.shuffles, colors, e.states.data() + begin * n, (end - begin) * n,
                                target + begin * n * colors);
          }
          for (std::size_t i = begin * n; i < end * n; ++i) target[i * colors + solved_colors[e.states[i]]] = 1;
        });
      },
      engine_);
  return out;
}


ArrayBuffer Batch::tabular_solved() const {
  ArrayBuffer out(ElementType::Flag, {count()});
  std::uint8_t* target = out.bytes();
  const std::size_t n = sticker_count();
  std::visit(
      [&](const auto& e) {
        pool::for_each_leaf(count(), [&](std::size_t begin, std::size_t end) {
          if constexpr (compiled_bytes<decltype(e), std::uint8_t*>) {
            if (e.shuffles.chunks > 0)
              return solved_rows(e.shuffles, e.states.data() + begin * n, end - begin, target + begin);
          }
          for (std::size_t row = begin; row < end; ++row)
            target[row] = row_is_solved(e.states.data() + row * n, table_->solved_colors) ? 1 : 0;
        });
      },
      engine_);
  return out;
}

ArrayBuffer Batch::permutations() const {
  return std::visit(
      [&](const auto& e) {
        using T = typename std::remove_reference_t<decltype(e.states)>::value_type;
        return whole_array(std::span<const T>(e.moves), sticker_count(), {action_count(), sticker_count()});
      },
      engine_);
}

}  // namespace tv
