#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "num/fraction.hpp"

// Counts heap allocations made by this thread, to check that small arithmetic makes none.
namespace {
thread_local std::size_t allocations = 0;
}  // namespace

// Every form that operator delete may receive is replaced, so that each allocation is paired
// with its own release (the sanitizers check that pairing).
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++allocations;
  return std::malloc(size ? size : 1);
}
void* operator new(std::size_t size) {
  if (void* p = operator new(size, std::nothrow)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace tv {
namespace {

Fraction q(std::int64_t n, std::int64_t d = 1) { return *Fraction::make(Int(n), Int(d)); }
Fraction q(const Int& n, const Int& d) { return *Fraction::make(n, d); }
Int power_of_two(std::uint64_t k) { return Int(1).shifted_left(k); }

TEST(Fraction, LowestTermsWithPositiveDenominator) {
  EXPECT_EQ(q(0, 5).denominator(), Int(1));
  EXPECT_EQ(q(2, -4).numerator(), Int(-1));
  EXPECT_EQ(q(2, -4).denominator(), Int(2));
  EXPECT_EQ(q(INT64_MIN, INT64_MIN).to_string(), "1");
  EXPECT_EQ(q(1, INT64_MIN).to_string(), "-1/9223372036854775808");
  const auto zero = Fraction::make(Int(1), Int(0));
  EXPECT_EQ(zero.failure().message, "Division by zero");
  EXPECT_EQ(zero.failure().kind, FailureKind::Range);
}

TEST(Fraction, UnreducedAccumulatorsCompareByValue) {
  Fraction a = q(1, 6);
  a.add_assign(q(1, 6), false);
  EXPECT_EQ(a.denominator(), Int(36));
  EXPECT_EQ(a, q(1, 3));
  Fraction z = q(1, 2);
  z.add_assign(q(-1, 2), false);
  EXPECT_EQ(z, Fraction());
}

TEST(Fraction, DivisionAndPowers) {
  EXPECT_EQ(*div(q(3, 4), q(-3, 2)), q(-1, 2));
  EXPECT_EQ(div(q(3, 4), Fraction()).failure().message, "Division by zero");
  EXPECT_EQ(*q(-2, 3).pow(Int(3)), q(-8, 27));
  EXPECT_EQ(*q(5, 7).pow(Int(0)), q(1));
  const auto negative = q(2).pow(Int(-1));
  EXPECT_EQ(negative.failure().kind, FailureKind::Range);
  EXPECT_EQ(negative.failure().message, "");
}

TEST(Fraction, ToF64RoundsToNearestEven) {
  EXPECT_EQ(q(1, 3).to_f64(), 1.0 / 3.0);
  EXPECT_EQ(q(-1, 3).to_f64(), -1.0 / 3.0);
  EXPECT_EQ(Fraction(power_of_two(1024)).to_f64(), std::numeric_limits<double>::infinity());
  EXPECT_EQ(Fraction(-power_of_two(1024)).to_f64(), -std::numeric_limits<double>::infinity());
  // 2^53 + 1 is a tie between 2^53 and 2^53 + 2: even wins; 2^53 + 3 rounds up.
  EXPECT_EQ(Fraction(power_of_two(53) + Int(1)).to_f64(), 9007199254740992.0);
  EXPECT_EQ(Fraction(power_of_two(53) + Int(3)).to_f64(), 9007199254740996.0);
  // The smallest subnormal, half of it (a tie that goes to zero) and a little more than half.
  EXPECT_EQ(q(Int(1), power_of_two(1074)).to_f64(), std::ldexp(1.0, -1074));
  EXPECT_EQ(q(Int(1), power_of_two(1075)).to_f64(), 0.0);
  EXPECT_EQ(q(Int(3), power_of_two(1076)).to_f64(), std::ldexp(1.0, -1074));
  EXPECT_EQ(q(Int(1), power_of_two(1022)).to_f64(), std::ldexp(1.0, -1022));
  EXPECT_EQ(q(Int(3), power_of_two(1024)).to_f64(), std::ldexp(3.0, -1024));
}

TEST(Fraction, MidpointIsAShortDyadicStrictlyInside) {
  EXPECT_EQ(midpoint(q(0), q(1)), q(1, 2));
  EXPECT_EQ(midpoint(q(0), q(5)), q(3));
  EXPECT_EQ(midpoint(q(-5), q(0)), q(-3));
  EXPECT_EQ(midpoint(q(7, 3), q(7, 3)), q(7, 3));
  EXPECT_EQ(midpoint(q(1, 3), q(1, 2)), q(3, 8));
  // Repeated bisection keeps denominators powers of two.
  Fraction lo = q(1, 3), hi = q(2, 5);
  for (int i = 0; i < 200; ++i) {
    const Fraction m = midpoint(lo, hi);
    ASSERT_LT(lo, m);
    ASSERT_LT(m, hi);
    EXPECT_EQ(m.denominator(), power_of_two(m.denominator().bit_length() - 1)) << m.to_string();
    (i % 2 == 0 ? lo : hi) = m;
  }
  EXPECT_LT((hi - lo).to_f64(), 1e-50);
}

TEST(Fraction, SmallArithmeticDoesNotAllocate) {
  const Fraction a = q(-1234, 9876), b = q(55, 89);
  Fraction acc = q(1);
  const std::size_t before = allocations;
  int order = 0;
  for (int i = 0; i < 1000; ++i) {
    acc = (a + b) * b - a;
    order += compare(acc, a) + (acc == b ? 1 : 0);
    acc = midpoint(acc, b);
  }
  EXPECT_EQ(allocations - before, 0u);
  EXPECT_NE(order, 12345);
}

TEST(Fraction, HashIgnoresTheFormOfEqualParts) {
  const Int big = power_of_two(100);
  const Fraction via_big = q(big * Int(3), big);
  EXPECT_TRUE(via_big.numerator().is_small());
  EXPECT_EQ(via_big.hash(), q(3).hash());
  EXPECT_NE(q(1, 2).hash(), q(2, 1).hash());
}

// The word paths of +, - and * against the school formula with normalise (add_assign), on
// parts at the edges of 64 bits and with shared factors, where 128-bit products and the gcd of
// the denominators first matter. Equal results must also agree in form (their hashes).
TEST(Fraction, WordPathsAgreeWithTheSchoolFormula) {
  constexpr std::int64_t max = std::numeric_limits<std::int64_t>::max();
  const std::int64_t numerators[] = {0, 1, -1, 3, -6, 1LL << 62, -(1LL << 62), max, -max, 3LL * 1000000007};
  const std::int64_t denominators[] = {1, 2, 3, 6, 10, 1LL << 62, max, max - 1, 1000000007LL * 6};
  std::vector<Fraction> values;
  for (std::int64_t n : numerators)
    for (std::int64_t d : denominators) values.push_back(q(n, d));
  for (const Fraction& a : values)
    for (const Fraction& b : values) {
      Fraction sum = a, difference = a;
      sum.add_assign(b, true);
      difference.add_assign(-b, true);
      const Fraction product = q(a.numerator() * b.numerator(), a.denominator() * b.denominator());
      for (const auto& [ours, school] : {std::pair{a + b, sum}, {a - b, difference}, {a * b, product}}) {
        ASSERT_EQ(ours.to_string(), school.to_string()) << a.to_string() << " , " << b.to_string();
        ASSERT_EQ(ours.hash(), school.hash());
        ASSERT_EQ(ours.denominator().is_small(), school.denominator().is_small());
      }
      const Int left = a.numerator() * b.denominator(), right = b.numerator() * a.denominator();
      ASSERT_EQ(compare(a, b), compare(left, right)) << a.to_string() << " , " << b.to_string();
    }
}

}  // namespace
}  // namespace tv
