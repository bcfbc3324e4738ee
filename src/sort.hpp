// Canonical order: the one sort for exact keys, and the map that remembers insertion order.
//
// Piece, grip, action, slot and color numbers are visible to callers and stored by them, so
// every list behind them comes out in one order on every run. Lists keyed by exact numbers are
// sorted by `exact_sort`; lists built through a map use `InsertionOrderedMap`, which iterates
// in first-seen order so that hash order never leaks.
//
// `exact_sort` is stable and sorts in place with a comparison that can fail (comparing exact
// numbers is a subtraction and an exact sign, which is costly and fallible):
//   - up to 32 elements, binary insertion: element i is first compared with element i - 1,
//     which settles already ordered input in one comparison each; otherwise a binary search
//     finds the first element that it must precede, and the run between is rotated by one;
//   - from 33 elements, a bottom-up merge over a table of 32-bit indices (ties from the left
//     run), so that records, which may hold several exact numbers, are not moved while
//     comparing; the final table is applied at the end by following its cycles with swaps.
// A failing comparison ends the sort at once with its failure. The merge has then moved
// nothing; the insertion has left a permutation of the input.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "failure.hpp"

namespace tv {

// Lists longer than this are merged over index tables instead of sorted by insertion.
inline constexpr std::size_t kInsertionSortLimit = 32;

// The sign of (element i) - (element j) of the list being sorted, or a failure.
using IndexCompare = std::function<Result<int>(std::uint32_t, std::uint32_t)>;

// order[k] is the index of the element that belongs at place k: a stable bottom-up merge of
// 0 .. n - 1 under `compare`, which is called with indices only.
Result<std::vector<std::uint32_t>> merge_order(std::size_t n, const IndexCompare& compare);

// Moves the element at order[k] to place k for every k, by swaps along the permutation's
// cycles; `swap(i, j)` exchanges places i and j.
void apply_order(const std::vector<std::uint32_t>& order, const std::function<void(std::size_t, std::size_t)>& swap);

// Sorts `list` stably and in place. `compare(a, b)` returns the sign of a - b (negative when a
// sorts first) as a Result<int>; its first failure is returned unchanged.
template <class T, class Compare>
Status exact_sort(std::vector<T>& list, Compare&& compare) {
  const std::size_t n = list.size();
  if (n < 2) return {};
  if (n <= kInsertionSortLimit) {
    for (std::size_t i = 1; i < n; ++i) {
      TV_TRY(const int against_previous, compare(list[i - 1], list[i]));
      if (against_previous <= 0) continue;
      std::size_t lo = 0;
      std::size_t hi = i - 1;
      while (lo < hi) {
        const std::size_t mid = lo + (hi - lo) / 2;
        TV_TRY(const int against_mid, compare(list[i], list[mid]));
        if (against_mid < 0) {
          hi = mid;
        } else {
          lo = mid + 1;
        }
      }
      std::rotate(list.begin() + lo, list.begin() + i, list.begin() + i + 1);
    }
    return {};
  }
  TV_TRY(const auto order, merge_order(n, [&](std::uint32_t i, std::uint32_t j) { return compare(list[i], list[j]); }));
  apply_order(order, [&](std::size_t i, std::size_t j) { std::swap(list[i], list[j]); });
  return {};
}

// A hash map whose iteration follows first insertion. Entries are never removed.
template <class Key, class Value, class Hash = std::hash<Key>>
class InsertionOrderedMap {
 public:
  using Entry = std::pair<Key, Value>;

  // The value under `key`; on first sight a default value is entered at the end.
  Value& operator[](const Key& key) {
    const auto [place, inserted] = index_.try_emplace(key, entries_.size());
    if (inserted) entries_.emplace_back(key, Value{});
    return entries_[place->second].second;
  }

  const Value* find(const Key& key) const {
    const auto place = index_.find(key);
    return place == index_.end() ? nullptr : &entries_[place->second].second;
  }

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  auto begin() { return entries_.begin(); }
  auto end() { return entries_.end(); }
  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }

 private:
  std::vector<Entry> entries_;
  std::unordered_map<Key, std::size_t, Hash> index_;
};

}  // namespace tv
