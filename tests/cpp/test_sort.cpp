#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <random>
#include <string>
#include <vector>

#include "sort.hpp"

namespace tv {
namespace {

struct Item {
  int key;
  int origin;  // input place, to see stability
  friend bool operator==(const Item&, const Item&) = default;
};

std::vector<Item> random_items(std::size_t n, int distinct_keys, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<Item> items;
  for (std::size_t i = 0; i < n; ++i) items.push_back({static_cast<int>(random() % distinct_keys), static_cast<int>(i)});
  return items;
}

// Counts its calls and fails at call number `fail_at` (0: never).
struct CountingCompare {
  std::size_t calls = 0;
  std::size_t fail_at = 0;
  Result<int> operator()(const Item& a, const Item& b) {
    if (++calls == fail_at) return other_failure("failed at " + std::to_string(calls));
    return (a.key > b.key) - (a.key < b.key);
  }
};

// Lengths on both sides of the insertion limit, with all keys tied, few distinct and all distinct.
TEST(ExactSort, MatchesStableSortWithinNLogNPlusNComparisons) {
  std::vector<std::size_t> lengths = {1000, 4097};
  for (std::size_t n = 0; n <= 100; ++n) lengths.push_back(n);
  for (const std::size_t n : lengths) {
    for (const int distinct : {1, 3, 1000}) {
      auto items = random_items(n, distinct, static_cast<unsigned>(n * 7 + distinct));
      auto expected = items;
      std::stable_sort(expected.begin(), expected.end(), [](const Item& a, const Item& b) { return a.key < b.key; });
      CountingCompare compare;
      ASSERT_TRUE(exact_sort(items, compare).ok());
      EXPECT_EQ(items, expected) << "n = " << n << ", keys " << distinct;
      const std::size_t budget = n < 2 ? 0 : n * std::bit_width(n - 1) + n;
      EXPECT_LE(compare.calls, budget) << "n = " << n << ", keys " << distinct;
      if (distinct == 1 && n >= 2 && n <= kInsertionSortLimit) {
        EXPECT_EQ(compare.calls, n - 1);
      }
    }
  }
}

TEST(ExactSort, AFailingCompareStopsAtOnceAndLosesNothing) {
  for (const std::size_t n : {2u, 10u, 32u, 33u, 100u}) {
    for (const std::size_t fail_at : {1u, 5u, 40u, 200u}) {
      auto items = random_items(n, 5, static_cast<unsigned>(n + fail_at));
      const auto input = items;
      CountingCompare compare{0, fail_at};
      const Status status = exact_sort(items, compare);
      if (status.ok()) {
        EXPECT_LT(compare.calls, fail_at);  // this length never got that far
        continue;
      }
      EXPECT_EQ(status.failure().message, "failed at " + std::to_string(fail_at));
      EXPECT_EQ(compare.calls, fail_at) << "compared after the failure";
      if (n > kInsertionSortLimit) {
        EXPECT_EQ(items, input) << "the merge moved elements before it finished";
      } else {
        EXPECT_TRUE(std::is_permutation(items.begin(), items.end(), input.begin()));
      }
    }
  }
}

}  // namespace
}  // namespace tv
