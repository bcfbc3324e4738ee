#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "pool.hpp"

namespace tv {
namespace {

TEST(Pool, SizeComesFromTheFirstVariableThatParses) {
  struct Case {
    const char* num_threads;
    const char* num_cpus;
    std::size_t expected;
  };
  const Case cases[] = {
      {"3", "5", 3},      {nullptr, "5", 5},   {"x", "5", 5},        {"0", "5", 8},  {"", "5", 5},
      {"-2", "5", 5},     {"3 ", "5", 5},      {nullptr, nullptr, 8}, {"0", nullptr, 8},
      {nullptr, "0", 8},  {"12", nullptr, 12},
  };
  for (const Case& c : cases)
    EXPECT_EQ(pool::size_from_environment(c.num_threads, c.num_cpus, 8), c.expected)
        << (c.num_threads ? c.num_threads : "unset") << " / " << (c.num_cpus ? c.num_cpus : "unset");
  EXPECT_EQ(pool::size_from_environment(nullptr, nullptr, 0), 1u);
}

TEST(Pool, EveryIndexRunsOnceAndLoopsNest) {
  std::vector<std::atomic<int>> seen(1000);
  pool::for_each_task(10, [&](std::size_t outer) {
    pool::for_each(100, [&](std::size_t inner) { seen[outer * 100 + inner].fetch_add(1); });
  });
  for (const auto& count : seen) EXPECT_EQ(count.load(), 1);
  EXPECT_GE(pool::thread_count(), 1u);
}

TEST(Pool, BrokenInvariantInAWorkerReachesTheCaller) {
  std::atomic<int> finished{0};
  EXPECT_THROW(pool::for_each_task(64,
                                   [&](std::size_t i) {
                                     TV_ENSURE(i != 17, "worker invariant");
                                     finished.fetch_add(1);
                                   }),
               InternalError);
  // The pool stays usable afterwards.
  std::atomic<int> after{0};
  pool::for_each(50, [&](std::size_t) { after.fetch_add(1); });
  EXPECT_EQ(after.load(), 50);
}

TEST(Pool, FirstFailureStopsTheLoop) {
  std::atomic<int> ran{0};
  const Status status = pool::try_for_each(100000, [&](std::size_t i) -> Status {
    ran.fetch_add(1);
    if (i % 1000 == 999) return range_failure("row " + std::to_string(i));
    return {};
  });
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.failure().kind, FailureKind::Range);
  EXPECT_EQ(status.failure().message.rfind("row ", 0), 0u);
  EXPECT_LT(ran.load(), 100000);
  EXPECT_TRUE(pool::try_for_each(10, [](std::size_t) -> Status { return {}; }).ok());
}

}  // namespace
}  // namespace tv
