// The batch of simulators: one Simulator per copy, for puzzles whose moves are not fixed
// permutations of their slots, and what both kinds of batch share for queries and the view.
//
// A copy is touched by one task at a time and shares nothing writable with the others: the
// sticker table is read-only, and each simulator found the table's action planes in its own
// field when the table was installed, so a turn never compares numbers across fields. Every
// loop runs all selected copies to their end, each recording its own failure; the lowest
// failing copy's failure is returned. A failure inside one copy's sequence (a walk, a solve)
// stops that copy where it was.
#include <algorithm>
#include <cstring>
#include <limits>

#include "batch.hpp"
#include "pool.hpp"

namespace tv {
namespace {

// One failure slot per copy; the loop's outcome is the lowest copy's failure.
class CopyFailures {
 public:
  explicit CopyFailures(std::size_t count) : failures_(count) {}
  void record(std::size_t copy, Failure failure) { failures_[copy] = std::move(failure); }
  Status lowest() {
    for (auto& failure : failures_)
      if (failure) return std::move(*failure);
    return {};
  }

 private:
  std::vector<std::optional<Failure>> failures_;
};

// Calls body(copy) -> Status for every copy, all of them, and returns the lowest failure.
template <class Body>
Status for_each_copy(std::size_t count, Body&& body) {
  CopyFailures failures(count);
  pool::for_each_leaf(count, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      Status status = body(i);
      if (!status) failures.record(i, std::move(status).failure());
    }
  });
  return failures.lowest();
}

// Writes `values` as row `row` of a whole-number block.
template <class V>
void write_row(ArrayBuffer& out, std::size_t row, const std::vector<V>& values) {
  const auto fill = [&](auto* target) {
    target += row * values.size();
    for (std::size_t s = 0; s < values.size(); ++s)
      target[s] = static_cast<std::remove_pointer_t<decltype(target)>>(values[s]);
  };
  switch (out.type()) {
    case ElementType::U8: fill(out.as<std::uint8_t>()); break;
    case ElementType::U16: fill(out.as<std::uint16_t>()); break;
    default: fill(out.as<std::uint32_t>()); break;
  }
}

}  // namespace

Result<std::pair<ArrayBuffer, ArrayBuffer>> Batch::step_copies(const std::vector<std::uint32_t>& actions,
                                                               bool test_solved) {
  TV_CHECK(room_for_walks(std::vector<std::uint32_t>(count(), 1)));
  ArrayBuffer solved(ElementType::Flag, {count()});
  ArrayBuffer applied(ElementType::Flag, {count()});
  // Every copy moves before any is tested, so a failing test leaves every copy moved.
  TV_CHECK(for_each_copy(count(), [&](std::size_t i) -> Status {
    TV_TRY(const bool made, sims_[i].apply_action(actions[i]));
    if (made) {
      last_moves_[i] = actions[i];
      histories_.push(i, actions[i]);
      applied.bytes()[i] = 1;
    }
    return {};
  }));
  if (test_solved) {
    TV_CHECK(for_each_copy(count(), [&](std::size_t i) -> Status {
      TV_TRY(const bool is_solved, sims_[i].is_solved());
      solved.bytes()[i] = is_solved ? 1 : 0;
      return {};
    }));
  }
  return std::pair{std::move(solved), std::move(applied)};
}

// Within the room reserved before: a copy appends at most its depth.
Status Batch::walk_copies(const std::vector<std::uint32_t>& depths) {
  const std::uint64_t actions = action_count();
  return for_each_copy(count(), [&](std::size_t i) -> Status {
    const std::uint32_t depth = depths[i];
    if (depth == 0) return {};
    std::uint64_t budget = 0;
    if (__builtin_mul_overflow(std::uint64_t{8}, std::uint64_t{depth}, &budget))
      budget = std::numeric_limits<std::uint64_t>::max();
    std::uint32_t last = last_moves_[i], made = 0;
    for (; made < depth && budget > 0; --budget) {
      const std::uint32_t a = walk_move(next_random(rng_[i]), last, actions);
      TV_TRY(const bool applied, sims_[i].apply_action(a));
      if (!applied) continue;
      last = a;
      last_moves_[i] = a;
      histories_.push(i, a);
      ++made;
    }
    return {};
  });
}

Result<ArrayBuffer> Batch::undo_copies(const Selection& which) {
  ArrayBuffer undone(ElementType::Flag, {count()});
  TV_CHECK(for_each_copy(count(), [&](std::size_t i) -> Status {
    if (!which[i] || histories_.empty(i)) return {};
    TV_TRY(const bool back, sims_[i].undo());
    if (!back) return {};
    histories_.pop(i);
    last_moves_[i] = histories_.empty(i) ? kNoMove : histories_.back(i);
    undone.bytes()[i] = 1;
    return {};
  }));
  return undone;
}

Status Batch::solve_copies(const Selection& which) {
  for (std::size_t i = 0; i < count(); ++i) {
    if (!which[i]) continue;
    histories_.clear(i);
    last_moves_[i] = kNoMove;
  }
  return for_each_copy(count(), [&](std::size_t i) -> Status {
    if (!which[i]) return {};
    Simulator& sim = sims_[i];
    while (!sim.history().empty()) {
      TV_TRY(const bool back, sim.undo());
      if (back) continue;
      // A layer the history turned is locked now: start this copy again from the recipe,
      // looking as it did.
      TV_TRY(Simulator fresh, Simulator::from_recipe_text(query_));
      fresh.install_sticker_table(table_);
      fresh.view() = sim.view();
      fresh.camera() = sim.camera();
      sim = std::move(fresh);
    }
    return {};
  });
}

Result<ArrayBuffer> Batch::observations() {
  if (is_tabular()) return tabular_observations();
  ArrayBuffer out(whole_type_for_bound(color_count()), {count(), sticker_count()});
  TV_CHECK(for_each_copy(count(), [&](std::size_t i) -> Status {
    TV_TRY(const auto colors, sims_[i].sticker_colors());
    write_row(out, i, colors);
    return {};
  }));
  return out;
}

Result<ArrayBuffer> Batch::sticker_ids() {
  if (is_tabular()) return tabular_sticker_ids();
  ArrayBuffer out(whole_type_for_bound(sticker_count()), {count(), sticker_count()});
  TV_CHECK(for_each_copy(count(), [&](std::size_t i) -> Status {
    TV_TRY(const auto ids, sims_[i].sticker_ids());
    write_row(out, i, ids);
    return {};
  }));
  return out;
}

Result<ArrayBuffer> Batch::one_hot() {
  if (is_tabular()) return tabular_one_hot();
  const std::size_t n = sticker_count(), colors = color_count();
  ArrayBuffer out(ElementType::U8, {count(), n * colors});
  TV_CHECK(for_each_copy(count(), [&](std::size_t i) -> Status {
    TV_TRY(const auto row, sims_[i].sticker_colors());
    std::uint8_t* target = out.bytes() + i * n * colors;
    for (std::size_t s = 0; s < n; ++s) target[s * colors + row[s]] = 1;
    return {};
  }));
  return out;
}

Result<ArrayBuffer> Batch::action_masks() {
  ArrayBuffer out(ElementType::Flag, {count(), action_count()});
  if (is_tabular()) {
    std::memset(out.bytes(), 1, out.byte_size());
    return out;
  }
  TV_CHECK(for_each_copy(count(), [&](std::size_t i) -> Status {
    TV_TRY(const auto mask, sims_[i].action_mask());
    std::copy(mask.begin(), mask.end(), out.bytes() + i * action_count());
    return {};
  }));
  return out;
}

Result<ArrayBuffer> Batch::solved() {
  if (is_tabular()) return tabular_solved();
  ArrayBuffer out(ElementType::Flag, {count()});
  TV_CHECK(for_each_copy(count(), [&](std::size_t i) -> Status {
    TV_TRY(const bool is_solved, sims_[i].is_solved());
    out.bytes()[i] = is_solved ? 1 : 0;
    return {};
  }));
  return out;
}

void Batch::configure(const render::ViewChange& change) {
  if (!change.any()) return;
  if (base_) change.apply(base_->view(), base_->camera());
  for (Simulator& sim : sims_) change.apply(sim.view(), sim.camera());
}

const render::Camera& Batch::camera() const {
  static const render::Camera kUnseen;  // a batch over synthetic tables has nothing to draw
  if (base_) return base_->camera();
  if (!sims_.empty()) return sims_.front().camera();
  return kUnseen;
}

}  // namespace tv
