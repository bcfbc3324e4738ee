#include <gtest/gtest.h>

#include <thread>

#include "interrupt.hpp"
#include "num/factoring.hpp"

namespace tv {
namespace {

bool count_and_stop(void* context) {
  auto& calls = *static_cast<int*>(context);
  return ++calls >= 2;
}

TEST(Interrupt, ChecksAtMostOncePerIntervalAndStaysStopped) {
  EXPECT_TRUE(check_interrupt().ok());  // no scope: never stopped
  int calls = 0;
  InterruptScope scope(&count_and_stop, &calls);
  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(check_interrupt().ok());
  EXPECT_EQ(calls, 0);  // the first interval has not passed
  std::this_thread::sleep_for(InterruptScope::kInterval * 2);
  EXPECT_TRUE(check_interrupt().ok());
  EXPECT_EQ(calls, 1);
  std::this_thread::sleep_for(InterruptScope::kInterval * 2);
  EXPECT_EQ(check_interrupt().failure().message, "interrupted");
  EXPECT_EQ(check_interrupt().failure().message, "interrupted");
  EXPECT_EQ(calls, 2);
  {
    bool never = false;
    InterruptScope inner([](void*) { return false; }, &never);
    EXPECT_TRUE(check_interrupt().ok());  // the innermost scope decides
  }
  EXPECT_FALSE(check_interrupt().ok());
}

TEST(Interrupt, FactoringStopsBetweenRounds) {
  // (x^1000 - 1) / (x + 1) takes seconds; a scope that always says stop ends it in the first
  // interval.
  std::vector<Int> c;
  for (int i = 0; i < 500; ++i) {
    c.emplace_back(-1);
    c.emplace_back(1);
  }
  int calls = 0;
  InterruptScope scope([](void* context) { return ++*static_cast<int*>(context) > 0; }, &calls);
  const auto start = std::chrono::steady_clock::now();
  const auto factors = factor(QPoly(std::vector<Fraction>(c.begin(), c.end())));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  ASSERT_FALSE(factors.ok());
  EXPECT_EQ(factors.failure().message, "interrupted");
}

}  // namespace
}  // namespace tv
