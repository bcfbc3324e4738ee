// States from outside: colors or identities in slot order, checked row by row before any copy
// changes. Colors carry less than identities, so each color's stickers are dealt out in slot
// order: the first slot of a color showing it gets the lowest solved slot of that color, and so
// on. A bad row is named by its index, the lowest one when several are bad.
#include <algorithm>
#include <atomic>
#include <limits>
#include <type_traits>

#include "batch.hpp"
#include "pool.hpp"

namespace tv {
namespace {

// The lowest row a loop found bad, or none.
class LowestRow {
 public:
  void offer(std::uint64_t row) {
    std::uint64_t seen = lowest_.load(std::memory_order_relaxed);
    while (row < seen && !lowest_.compare_exchange_weak(seen, row, std::memory_order_relaxed)) {
    }
  }
  std::optional<std::uint64_t> get() const {
    const std::uint64_t row = lowest_.load(std::memory_order_relaxed);
    if (row == kNone) return std::nullopt;
    return row;
  }

 private:
  static constexpr std::uint64_t kNone = std::numeric_limits<std::uint64_t>::max();
  std::atomic<std::uint64_t> lowest_{kNone};
};

// The slots of each solved color in slot order, as one list with a start per color.
struct ColorBuckets {
  std::vector<std::uint32_t> slots;
  std::vector<std::uint32_t> start;  // color_count + 1 entries

  ColorBuckets(const std::vector<std::uint16_t>& solved, std::size_t colors) : slots(solved.size()), start(colors + 1) {
    for (std::uint16_t c : solved) ++start[c + 1];
    for (std::size_t c = 0; c < colors; ++c) start[c + 1] += start[c];
    std::vector<std::uint32_t> next(start.begin(), start.end() - 1);
    for (std::size_t s = 0; s < solved.size(); ++s) slots[next[solved[s]]++] = static_cast<std::uint32_t>(s);
  }
};

std::string state_length_message(std::size_t n, const char* unit, std::uint64_t count, std::size_t length) {
  return "a state of this puzzle is " + std::to_string(n) + " " + unit + " and this batch holds " +
         std::to_string(count) + " of them, so " + std::to_string(length) + " values is not a state each";
}

}  // namespace

Status Batch::set_states(std::vector<std::uint32_t> values, bool ids) {
  const std::size_t n = sticker_count();
  const std::uint64_t rows = count();
  if (rows >= 2 && n > 0 && values.size() == n) {
    values.resize(rows * n);
    for (std::uint64_t r = 1; r < rows; ++r) std::copy_n(values.begin(), n, values.begin() + r * n);
  }
  if (!ids) {
    if (n == 0 || values.size() != rows * n) return range_failure(state_length_message(n, "colors", rows, values.size()));
    const std::size_t colors = color_count();
    const ColorBuckets buckets(table_->solved_colors, colors);
    LowestRow bad;
    pool::for_each_leaf(rows, [&](std::size_t begin, std::size_t end) {
      std::vector<std::uint32_t> dealt(colors);
      for (std::size_t r = begin; r < end; ++r) {
        std::fill(dealt.begin(), dealt.end(), 0);
        std::uint32_t* row = values.data() + r * n;
        for (std::size_t s = 0; s < n; ++s) {
          const std::uint32_t c = row[s];
          if (c >= colors || buckets.start[c] + dealt[c] >= buckets.start[c + 1]) {
            bad.offer(r);
            break;
          }
          row[s] = buckets.slots[buckets.start[c] + dealt[c]++];
        }
      }
    });
    if (const auto r = bad.get())
      return range_failure("row " + std::to_string(*r) +
                           " does not have the colors of this puzzle: every state of it has as many stickers of "
                           "each color as the solved one");
  }
  return set_identities(values);
}

Status Batch::set_identities(std::vector<std::uint32_t>& ids) {
  const std::size_t n = sticker_count();
  const std::uint64_t rows = count();
  if (ids.size() != rows * n) return range_failure(state_length_message(n, "slots", rows, ids.size()));
  if (!is_tabular())
    return state_failure("this batch turns geometry instead of arrays, because its puzzle's moves are not fixed "
                         "permutations, so there is no arrangement to put it into");
  LowestRow bad;
  pool::for_each_leaf(rows, [&](std::size_t begin, std::size_t end) {
    std::vector<std::uint8_t> seen(n);
    for (std::size_t r = begin; r < end; ++r) {
      std::fill(seen.begin(), seen.end(), 0);
      const std::uint32_t* row = ids.data() + r * n;
      for (std::size_t s = 0; s < n; ++s) {
        if (row[s] >= n || seen[row[s]]) {
          bad.offer(r);
          break;
        }
        seen[row[s]] = 1;
      }
    }
  });
  if (const auto r = bad.get())
    return range_failure("row " + std::to_string(*r) + " is not an arrangement of this puzzle's " + std::to_string(n) +
                         " stickers");
  std::visit(
      [&](auto& e) {
        using T = typename std::remove_reference_t<decltype(e.states)>::value_type;
        std::transform(ids.begin(), ids.end(), e.states.begin(), [](std::uint32_t s) { return static_cast<T>(s); });
      },
      engine_);
  for (std::size_t i = 0; i < rows; ++i) histories_.clear(i);
  std::fill(last_moves_.begin(), last_moves_.end(), kNoMove);
  return {};
}

}  // namespace tv
