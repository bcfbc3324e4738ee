#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "sort.hpp"

namespace tv {
namespace {

// A record whose key may tie; `origin` tells input order apart.
struct Item {
  int key;
  int origin;
  friend bool operator==(const Item&, const Item&) = default;
};

std::vector<Item> random_items(std::size_t n, int distinct_keys, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> key(0, distinct_keys - 1);
  std::vector<Item> items;
  for (std::size_t i = 0; i < n; ++i) items.push_back({key(random), static_cast<int>(i)});
  return items;
}

// Counts its calls and fails at call `fail_at` (counting from 1; 0 never fails).
struct CountingCompare {
  std::size_t calls = 0;
  std::size_t fail_at = 0;
  Result<int> operator()(const Item& a, const Item& b) {
    if (++calls == fail_at) return other_failure("compare failed at " + std::to_string(calls));
    return (a.key > b.key) - (a.key < b.key);
  }
};

std::size_t comparison_budget(std::size_t n) {
  if (n < 2) return 0;
  return n * static_cast<std::size_t>(std::bit_width(n - 1)) + n;
}

TEST(ExactSort, MatchesStableSortWithinTheComparisonBudget) {
  std::vector<std::size_t> lengths;
  for (std::size_t n = 0; n <= 100; ++n) lengths.push_back(n);
  lengths.push_back(1000);
  lengths.push_back(4097);
  for (const std::size_t n : lengths) {
    for (const int distinct : {1, 3, 1000}) {
      auto items = random_items(n, distinct, static_cast<unsigned>(n * 7 + distinct));
      auto expected = items;
      std::stable_sort(expected.begin(), expected.end(), [](const Item& a, const Item& b) { return a.key < b.key; });
      CountingCompare compare;
      ASSERT_TRUE(exact_sort(items, compare).ok());
      EXPECT_EQ(items, expected) << "n = " << n << ", keys " << distinct;
      EXPECT_LE(compare.calls, comparison_budget(n)) << "n = " << n << ", keys " << distinct;
    }
  }
}

TEST(ExactSort, BothBranchesKeepEqualKeysInInputOrder) {
  for (const std::size_t n : {32u, 33u}) {
    auto items = random_items(n, 1, 1);
    const auto input = items;
    CountingCompare compare;
    ASSERT_TRUE(exact_sort(items, compare).ok());
    EXPECT_EQ(items, input);
    if (n == 32) EXPECT_EQ(compare.calls, 31u);  // ordered input: one comparison with each predecessor
  }
}

TEST(ExactSort, AFailingCompareStopsAtOnceAndLosesNothing) {
  for (const std::size_t n : {2u, 10u, 32u, 33u, 100u}) {
    for (const std::size_t fail_at : {1u, 2u, 5u, 40u, 200u}) {
      auto items = random_items(n, 5, static_cast<unsigned>(n + fail_at));
      const auto input = items;
      CountingCompare probe;
      auto copy = items;
      ASSERT_TRUE(exact_sort(copy, probe).ok());
      if (fail_at > probe.calls) continue;  // this length never reaches that call

      CountingCompare compare{0, fail_at};
      const Status status = exact_sort(items, compare);
      ASSERT_FALSE(status.ok());
      EXPECT_EQ(status.failure().message, "compare failed at " + std::to_string(fail_at));
      EXPECT_EQ(compare.calls, fail_at) << "the sort went on comparing after the failure";
      if (n > kInsertionSortLimit) {
        EXPECT_EQ(items, input) << "the merge moved elements before it finished";
      } else {
        auto present = items;
        auto original = input;
        const auto by_origin = [](const Item& a, const Item& b) { return a.origin < b.origin; };
        std::sort(present.begin(), present.end(), by_origin);
        std::sort(original.begin(), original.end(), by_origin);
        EXPECT_EQ(present, original);
      }
    }
  }
}

TEST(ExactSort, MovesOnlyTypesSortByTheIndexTable) {
  std::vector<std::unique_ptr<int>> values;
  for (int i = 0; i < 50; ++i) values.push_back(std::make_unique<int>((i * 37) % 50));
  const auto compare = [](const std::unique_ptr<int>& a, const std::unique_ptr<int>& b) -> Result<int> {
    return (*a > *b) - (*a < *b);
  };
  ASSERT_TRUE(exact_sort(values, compare).ok());
  for (int i = 0; i < 50; ++i) EXPECT_EQ(*values[i], i);
}

TEST(InsertionOrderedMap, IteratesInFirstSeenOrder) {
  InsertionOrderedMap<std::string, std::vector<int>> map;
  const std::vector<std::string> keys = {"zeta", "alpha", "mid", "alpha", "zeta", "omega"};
  for (std::size_t i = 0; i < keys.size(); ++i) map[keys[i]].push_back(static_cast<int>(i));
  std::vector<std::string> order;
  for (const auto& [key, uses] : map) order.push_back(key);
  EXPECT_EQ(order, (std::vector<std::string>{"zeta", "alpha", "mid", "omega"}));
  ASSERT_NE(map.find("alpha"), nullptr);
  EXPECT_EQ(*map.find("alpha"), (std::vector<int>{1, 3}));
  EXPECT_EQ(map.find("beta"), nullptr);
}

}  // namespace
}  // namespace tv
