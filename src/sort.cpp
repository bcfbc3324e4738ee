// The merge branch of the exact sort: a stable bottom-up merge over index tables, and the
// in-place application of the resulting order by cycles of swaps.
#include "sort.hpp"

#include <limits>
#include <numeric>

namespace tv {

namespace {

// Merges the sorted runs source[begin, middle) and source[middle, end) into target, taking
// from the left run on ties so that equal keys keep their input order.
Status merge_runs(const std::vector<std::uint32_t>& source, std::vector<std::uint32_t>& target, std::size_t begin,
                  std::size_t middle, std::size_t end, const IndexCompare& compare) {
  std::size_t left = begin;
  std::size_t right = middle;
  std::size_t out = begin;
  while (left < middle && right < end) {
    TV_TRY(const int sign, compare(source[left], source[right]));
    target[out++] = sign <= 0 ? source[left++] : source[right++];
  }
  while (left < middle) target[out++] = source[left++];
  while (right < end) target[out++] = source[right++];
  return {};
}

}  // namespace

Result<std::vector<std::uint32_t>> merge_order(std::size_t n, const IndexCompare& compare) {
  TV_ENSURE(n <= std::numeric_limits<std::uint32_t>::max(), "list too long for 32-bit sort indices");
  std::vector<std::uint32_t> source(n);
  std::iota(source.begin(), source.end(), std::uint32_t{0});
  std::vector<std::uint32_t> target(n);
  for (std::size_t width = 1; width < n; width *= 2) {
    for (std::size_t begin = 0; begin < n; begin += 2 * width) {
      const std::size_t middle = std::min(begin + width, n);
      const std::size_t end = std::min(begin + 2 * width, n);
      TV_CHECK(merge_runs(source, target, begin, middle, end, compare));
    }
    source.swap(target);
  }
  return source;
}

void apply_order(const std::vector<std::uint32_t>& order, const std::function<void(std::size_t, std::size_t)>& swap) {
  // destination[i] is the place the element now at i must go to.
  std::vector<std::size_t> destination(order.size());
  for (std::size_t place = 0; place < order.size(); ++place) destination[order[place]] = place;
  for (std::size_t i = 0; i < destination.size(); ++i) {
    while (destination[i] != i) {
      const std::size_t j = destination[i];
      swap(i, j);
      std::swap(destination[i], destination[j]);
    }
  }
}

}  // namespace tv
