// A layout's operations on states: the rewrites between slot and facelet order, moving rows of
// states, indicators and text, and the random walks that make training data.
#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

#include "batch.hpp"
#include "layout.hpp"
#include "pool.hpp"

namespace tv {
namespace {

std::string move_out_of_range(std::uint64_t m, std::size_t count) {
  return "move " + std::to_string(m) + " out of range (have " + std::to_string(count) + ")";
}

// The first value not below `bound`, if any.
template <class T>
std::optional<std::uint64_t> first_at_or_above(std::span<const T> values, std::uint64_t bound) {
  const auto it = std::find_if(values.begin(), values.end(), [&](T v) { return v >= bound; });
  if (it == values.end()) return std::nullopt;
  return static_cast<std::uint64_t>(*it);
}

// `rows` rows of `width` elements, one axis less for a single state.
Result<ArrayBuffer> block(ElementType type, StateRows rows, std::uint64_t width) {
  if (rows.single) return allocate_array(type, {width});
  return allocate_array(type, {rows.count, width});
}

// Calls body(out) with the buffer's elements as their own type.
template <class Body>
void as_whole(ArrayBuffer& buffer, Body&& body) {
  switch (buffer.type()) {
    case ElementType::U8: body(buffer.as<std::uint8_t>()); break;
    case ElementType::U16: body(buffer.as<std::uint16_t>()); break;
    default: body(buffer.as<std::uint32_t>()); break;
  }
}

// For every row in parallel: out[f] = value(row, f) over the n facelets.
template <class Out, class Value>
void fill_rows(Out* out, std::size_t rows, std::size_t n, Value value) {
  pool::for_each_leaf(rows, [&](std::size_t begin, std::size_t end) {
    for (std::size_t row = begin; row < end; ++row)
      for (std::size_t f = 0; f < n; ++f) out[row * n + f] = static_cast<Out>(value(row, f));
  });
}

// Moves `row` (n values of T) through `count` moves in place, `other` being a second row.
template <class T>
void move_through(const Layout& layout, const std::uint32_t* moves, std::size_t count, T* row, T* other) {
  if constexpr (std::is_same_v<T, std::uint8_t>) {
    if (layout.shuffles.chunks > 0) return shuffle_row_through(layout.shuffles, moves, count, row);
  }
  const std::size_t n = layout.facelet_count();
  T *from = row, *to = other;
  for (std::size_t k = 0; k < count; ++k) {
    const std::uint32_t* perm = layout.table.data() + std::size_t{moves[k]} * n;
    for (std::size_t i = 0; i < n; ++i) to[i] = from[perm[i]];
    std::swap(from, to);
  }
  if (from != row) std::copy(from, from + n, row);
}

// out = in moved by `move`; `readable` bytes may be read from `in`.
template <class T>
void move_once(const Layout& layout, std::uint32_t move, const T* in, std::size_t readable, T* out) {
  if constexpr (std::is_same_v<T, std::uint8_t>) {
    if (layout.shuffles.chunks > 0) return shuffle_row(layout.shuffles, move, in, readable, out);
  }
  const std::size_t n = layout.facelet_count();
  const std::uint32_t* perm = layout.table.data() + std::size_t{move} * n;
  for (std::size_t i = 0; i < n; ++i) out[i] = in[perm[i]];
}

// The walk's next move: a draw that would undo the previous move goes on to the next move.
std::uint32_t walk_step(std::uint64_t& state, std::optional<std::uint32_t> previous, const Layout& layout) {
  const std::size_t count = layout.move_count();
  auto a = static_cast<std::uint32_t>(next_random(state) % count);
  if (count >= 3 && previous && layout.inverses[*previous] == a) a = static_cast<std::uint32_t>((a + 1) % count);
  return a;
}

Status check_walkable(const Layout& layout, std::span<const std::uint32_t> depths) {
  if (layout.move_count() == 0 && std::any_of(depths.begin(), depths.end(), [](std::uint32_t d) { return d > 0; }))
    return range_failure("this puzzle has no moves, so there is nowhere to walk to");
  return {};
}

}  // namespace

Result<StateRows> state_rows(const Layout& layout, std::size_t length) {
  const std::size_t n = layout.facelet_count();
  if (n == 0 || length % n != 0)
    return range_failure("a state of this puzzle is " + std::to_string(n) + " values, and " + std::to_string(length) +
                         " is not a whole number of them");
  return StateRows{length / n, length == n};
}

Result<std::vector<std::uint32_t>> moves_to_actions(const Layout& layout, const std::vector<std::uint64_t>& moves) {
  std::vector<std::uint32_t> actions;
  actions.reserve(moves.size());
  for (std::uint64_t m : moves) {
    if (m >= layout.move_count() || !layout.actions[m])
      return range_failure("move " + std::to_string(m) + " has no action of this puzzle");
    actions.push_back(*layout.actions[m]);
  }
  return actions;
}

Result<ArrayBuffer> inverse_moves(const Layout& layout, std::span<const std::uint32_t> moves) {
  std::vector<std::uint32_t> inverses;
  inverses.reserve(moves.size());
  for (std::uint32_t m : moves) {
    if (m >= layout.move_count()) return range_failure(move_out_of_range(m, layout.move_count()));
    if (!layout.inverses[m]) return range_failure("nothing in this layout undoes " + layout.move_names[m]);
    inverses.push_back(*layout.inverses[m]);
  }
  return whole_array(std::span<const std::uint32_t>(inverses), layout.move_count(), {moves.size()});
}

template <class T>
Result<ArrayBuffer> to_facelets(const Layout& layout, std::span<const T> states) {
  TV_TRY(const StateRows rows, state_rows(layout, states.size()));
  if (const auto bad = first_at_or_above(states, layout.color_count()))
    return range_failure(std::to_string(*bad) + " is not one of this puzzle's " + std::to_string(layout.color_count()) +
                         " colors");
  const std::size_t n = layout.facelet_count();
  TV_TRY(ArrayBuffer out, block(whole_type_for_bound(layout.value_bound()), rows, n));
  as_whole(out, [&](auto* target) {
    fill_rows(target, rows.count, n, [&](std::size_t row, std::size_t f) {
      return layout.face_of_color[states[row * n + layout.slot_of_facelet[f]]];
    });
  });
  return out;
}

template <class T>
Result<ArrayBuffer> to_facelet_ids(const Layout& layout, std::span<const T> ids) {
  TV_TRY(const StateRows rows, state_rows(layout, ids.size()));
  const std::size_t n = layout.facelet_count();
  if (const auto bad = first_at_or_above(ids, n))
    return range_failure(std::to_string(*bad) + " is not one of this puzzle's " + std::to_string(n) + " slots");
  TV_TRY(ArrayBuffer out, block(whole_type_for_bound(n), rows, n));
  as_whole(out, [&](auto* target) {
    fill_rows(target, rows.count, n, [&](std::size_t row, std::size_t f) {
      return layout.facelet_of_slot[ids[row * n + layout.slot_of_facelet[f]]];
    });
  });
  return out;
}

template <class T>
Result<ArrayBuffer> from_facelets(const Layout& layout, std::span<const T> facelets) {
  TV_TRY(const StateRows rows, state_rows(layout, facelets.size()));
  if (const auto bad = first_at_or_above(facelets, layout.face_count))
    return range_failure(std::to_string(*bad) + " is not one of this puzzle's " + std::to_string(layout.face_count) +
                         " faces");
  const std::size_t n = layout.facelet_count();
  TV_TRY(ArrayBuffer out, block(whole_type_for_bound(layout.value_bound()), rows, n));
  as_whole(out, [&](auto* target) {
    // Slot s shows what its facelet shows: a gather through facelet_of_slot.
    fill_rows(target, rows.count, n, [&](std::size_t row, std::size_t s) {
      return layout.color_of_face[facelets[row * n + layout.facelet_of_slot[s]]];
    });
  });
  return out;
}

Result<ArrayBuffer> next_states(const Layout& layout, std::span<const std::uint32_t> states, ElementType width,
                                const MoveChoice& moves) {
  TV_TRY(const StateRows rows, state_rows(layout, states.size()));
  const std::size_t given = moves.every ? 1 : moves.per_row.size();
  if (!moves.every && given != rows.count)
    return range_failure("got " + std::to_string(given) + " moves for " + std::to_string(rows.count) + " states");
  const std::span<const std::uint32_t> chosen =
      moves.every ? std::span<const std::uint32_t>(&*moves.every, 1) : std::span<const std::uint32_t>(moves.per_row);
  for (std::uint32_t m : chosen)
    if (m >= layout.move_count()) return range_failure(move_out_of_range(m, layout.move_count()));
  const std::size_t n = layout.facelet_count();
  TV_TRY(ArrayBuffer out, block(width, rows, n));
  as_whole(out, [&](auto* target) {
    using Out = std::remove_pointer_t<decltype(target)>;
    pool::for_each_leaf(rows.count, [&](std::size_t begin, std::size_t end) {
      for (std::size_t row = begin; row < end; ++row) {
        const std::uint32_t m = moves.every ? *moves.every : moves.per_row[row];
        const std::uint32_t* perm = layout.table.data() + std::size_t{m} * n;
        const std::uint32_t* in = states.data() + row * n;
        Out* o = target + row * n;
        for (std::size_t i = 0; i < n; ++i) o[i] = static_cast<Out>(in[perm[i]]);
      }
    });
  });
  return out;
}

template <class T>
Result<ArrayBuffer> one_hot(const Layout& layout, std::span<const T> facelets) {
  TV_TRY(const StateRows rows, state_rows(layout, facelets.size()));
  const std::size_t n = layout.facelet_count(), faces = layout.face_count;
  std::uint64_t width = 0;
  if (__builtin_mul_overflow(std::uint64_t{n}, std::uint64_t{faces}, &width))
    return range_failure("the indicators of one state are too many to address");
  TV_TRY(ArrayBuffer out, block(ElementType::U8, rows, width));
  std::uint8_t* target = out.bytes();
  pool::for_each_leaf(rows.count, [&](std::size_t begin, std::size_t end) {
    for (std::size_t row = begin; row < end; ++row)
      for (std::size_t f = 0; f < n; ++f) {
        const T v = facelets[row * n + f];
        if (v < faces) target[row * width + f * faces + v] = 1;
      }
  });
  return out;
}

template <class T>
Result<ArrayBuffer> solved(const Layout& layout, std::span<const T> facelets) {
  TV_TRY(const StateRows rows, state_rows(layout, facelets.size()));
  const std::size_t n = layout.facelet_count();
  ArrayBuffer out(ElementType::Flag, {rows.count});
  std::uint8_t* target = out.bytes();
  pool::for_each_leaf(rows.count, [&](std::size_t begin, std::size_t end) {
    for (std::size_t row = begin; row < end; ++row)
      target[row] = std::equal(layout.goal.begin(), layout.goal.end(), facelets.begin() + row * n) ? 1 : 0;
  });
  return out;
}

template <class T>
std::string facelet_text(const Layout& layout, std::span<const T> facelets) {
  static constexpr std::string_view kAlphabet = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  const auto character = [&](std::size_t place) -> char {
    if (place >= facelets.size()) return '?';
    const T v = facelets[place];
    if (layout.cube && v < layout.faces.size()) return layout.faces[v][0];
    return v < kAlphabet.size() ? kAlphabet[v] : '?';
  };
  std::string text;
  std::size_t place = 0;
  for (std::size_t face = 0; face < layout.faces.size(); ++face) {
    if (face > 0) text += '\n';
    text += layout.faces[face];
    text += ' ';
    for (std::size_t k = 0; k < layout.face_sizes[face]; ++k, ++place) {
      if (layout.cube && k > 0 && k % layout.cube->size == 0) text += '/';
      text += character(place);
    }
  }
  return text;
}

Result<std::vector<std::uint32_t>> walk_depths(const DepthChoice& choice, std::uint64_t rows, std::uint64_t seed) {
  if (!choice.every && !choice.range && choice.per_row.size() != rows)
    return range_failure("got " + std::to_string(choice.per_row.size()) + " depths for " + std::to_string(rows) +
                         " states");
  if (!choice.every && !choice.range) return choice.per_row;
  std::vector<std::uint32_t> depths;
  try {
    depths.resize(rows);
  } catch (const std::length_error&) {
    return range_failure("there is not enough memory for " + std::to_string(rows) + " walks");
  } catch (const std::bad_alloc&) {
    return range_failure("there is not enough memory for " + std::to_string(rows) + " walks");
  }
  if (choice.every) {
    std::fill(depths.begin(), depths.end(), *choice.every);
    return depths;
  }
  const auto [low, high] = *choice.range;
  std::uint64_t state = seed ^ 0x51ED2701A5C61B3Dull;
  const std::uint64_t span = std::uint64_t{high} - low + 1;  // up to 2^32
  for (auto& depth : depths) depth = static_cast<std::uint32_t>(low + next_random(state) % span);
  return depths;
}

Result<ArrayBuffer> scrambled(const Layout& layout, std::span<const std::uint32_t> depths, std::uint64_t seed) {
  TV_CHECK(check_walkable(layout, depths));
  const std::size_t n = layout.facelet_count();
  TV_TRY(ArrayBuffer out, block(whole_type_for_bound(layout.value_bound()), {depths.size(), false}, n));
  as_whole(out, [&](auto* target) {
    using T = std::remove_pointer_t<decltype(target)>;
    pool::for_each_leaf(depths.size(), [&](std::size_t begin, std::size_t end) {
      // Moves are drawn a bounded run at a time, so memory does not grow with the depth.
      constexpr std::size_t kRun = 64;
      std::uint32_t run[kRun];
      std::vector<T> other(n);
      for (std::size_t row = begin; row < end; ++row) {
        T* state = target + row * n;
        std::copy(layout.goal.begin(), layout.goal.end(), state);
        std::uint64_t random = walk_seed(seed, row);
        std::optional<std::uint32_t> previous;
        for (std::uint32_t done = 0; done < depths[row];) {
          const std::size_t length = std::min<std::size_t>(kRun, depths[row] - done);
          for (std::size_t k = 0; k < length; ++k) previous = run[k] = walk_step(random, previous, layout);
          move_through(layout, run, length, state, other.data());
          done += static_cast<std::uint32_t>(length);
        }
      }
    });
  });
  return out;
}

Result<std::pair<ArrayBuffer, ArrayBuffer>> trajectories(const Layout& layout, std::span<const std::uint32_t> depths,
                                                         std::uint64_t seed) {
  TV_CHECK(check_walkable(layout, depths));
  const std::size_t n = layout.facelet_count(), rows = depths.size();
  const std::uint64_t longest = depths.empty() ? 0 : *std::max_element(depths.begin(), depths.end());
  const std::uint64_t positions = longest + 1;
  TV_TRY(ArrayBuffer moves_out, allocate_array(whole_type_for_bound(layout.move_count() + 1),
                                         {rows, std::max<std::uint64_t>(longest, 1)}));
  TV_TRY(ArrayBuffer states_out, allocate_array(whole_type_for_bound(layout.value_bound()), {rows, positions, n}));
  const std::uint64_t move_width = moves_out.shape()[1];
  as_whole(moves_out, [&](auto* recorded) {
    std::fill(recorded, recorded + rows * move_width, static_cast<std::remove_pointer_t<decltype(recorded)>>(layout.move_count()));
    as_whole(states_out, [&](auto* target) {
      using T = std::remove_pointer_t<decltype(target)>;
      const T* last_byte = target + rows * positions * n;
      pool::for_each_leaf(rows, [&](std::size_t begin, std::size_t end) {
        for (std::size_t row = begin; row < end; ++row) {
          T* position = target + row * positions * n;
          auto* moves = recorded + row * move_width;
          std::copy(layout.goal.begin(), layout.goal.end(), position);
          std::uint64_t random = walk_seed(seed, row);
          std::optional<std::uint32_t> previous;
          for (std::uint64_t t = 0; t < longest; ++t, position += n) {
            if (t >= depths[row]) {
              std::copy(position, position + n, position + n);
              continue;
            }
            const std::uint32_t a = walk_step(random, previous, layout);
            previous = a;
            moves[t] = static_cast<std::remove_pointer_t<decltype(moves)>>(a);
            const auto readable = static_cast<std::size_t>(last_byte - position) * sizeof(T);
            move_once(layout, a, position, readable, position + n);
          }
        }
      });
    });
  });
  return std::pair{std::move(states_out), std::move(moves_out)};
}

#define TV_LAYOUT_WIDTH(T)                                                                          \
  template Result<ArrayBuffer> to_facelets<T>(const Layout&, std::span<const T>);                  \
  template Result<ArrayBuffer> to_facelet_ids<T>(const Layout&, std::span<const T>);               \
  template Result<ArrayBuffer> from_facelets<T>(const Layout&, std::span<const T>);                \
  template Result<ArrayBuffer> one_hot<T>(const Layout&, std::span<const T>);                      \
  template Result<ArrayBuffer> solved<T>(const Layout&, std::span<const T>);                       \
  template std::string facelet_text<T>(const Layout&, std::span<const T>);
TV_LAYOUT_WIDTH(std::uint8_t)
TV_LAYOUT_WIDTH(std::uint16_t)
TV_LAYOUT_WIDTH(std::uint32_t)
#undef TV_LAYOUT_WIDTH

}  // namespace tv
