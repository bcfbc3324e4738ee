#include <gtest/gtest.h>

#include <random>

#include "num/sturm.hpp"

namespace tv {
namespace {

Fraction q(std::int64_t n, std::int64_t d = 1) { return *Fraction::make(Int(n), Int(d)); }

// Square-free parts of random products of small factors, some with rational roots and
// some with roots at the interval ends, counted against the chain over the rationals.
TEST(SturmChain, CountsAsTheRationalChainDoes) {
  std::mt19937_64 random(7);
  std::uniform_int_distribution<int> small(-6, 6);
  for (int trial = 0; trial < 300; ++trial) {
    QPoly p = QPoly::constant(Fraction(small(random) == 0 ? 3 : 2));
    const int factors = 1 + trial % 4;
    for (int f = 0; f < factors; ++f) {
      std::vector<Fraction> c;
      for (int k = 0, degree = 1 + (trial + f) % 3; k <= degree; ++k) c.push_back(q(small(random), 1 + trial % 3));
      if (c.back().is_zero()) c.back() = Fraction(1);
      p = p * QPoly(std::move(c));
    }
    auto square_free = square_free_part(p);
    ASSERT_TRUE(square_free.ok());
    auto chain = SturmChain::of(*square_free);
    ASSERT_TRUE(chain.ok());
    for (int k = 0; k < 5; ++k) {
      Fraction lo = q(small(random), 1 + k), hi = q(small(random), 2);
      if (hi < lo) std::swap(lo, hi);
      EXPECT_EQ(chain->count(lo, hi), *count_roots(*square_free, lo, hi)) << polynomial_text(p);
      EXPECT_EQ(chain->sign_at(lo), eval(*square_free, lo).sign());
    }
  }
}

TEST(SturmChain, SignsOfSparsePolynomialsAtDyadicAndOtherPoints) {
  // x^1000 - 2 changes sign at 2^(1/1000) = 1.000693387...
  const QPoly binomial = QPoly::monomial(Fraction(1), 1000) - QPoly::constant(Fraction(2));
  auto chain = SturmChain::of(binomial);
  ASSERT_TRUE(chain.ok());
  EXPECT_EQ(chain->sign_at(q(1000693, 1000000)), -1);
  EXPECT_EQ(chain->sign_at(q(1000694, 1000000)), 1);
  EXPECT_EQ(chain->sign_at(q(-1000694, 1000000)), 1);
  EXPECT_EQ(chain->sign_at(q(0)), -1);
  EXPECT_EQ(chain->count(q(0), q(3)), 1u);
  EXPECT_EQ(chain->count(q(-3), q(3)), 2u);
  EXPECT_EQ(sign_at(ZPoly(), q(1)), 0);
}

// Binomials c x^n + r x^j at points near and far from their roots: the sign by term sizes must
// agree with the sign of the exact value.
TEST(SturmChain, BinomialSignsBySizeAgreeWithExactValues) {
  std::mt19937_64 random(11);
  std::uniform_int_distribution<std::int64_t> coefficient(-1000000, 1000000), point(-5000, 5000);
  for (int trial = 0; trial < 2000; ++trial) {
    const std::size_t low = trial % 3, top = low + 1 + trial % 40;
    std::vector<Fraction> c(top + 1);
    c[low] = Fraction(coefficient(random) | 1);
    c[top] = Fraction(coefficient(random) | 1);
    const QPoly p(std::move(c));
    const Fraction x = q(point(random), 1 + trial % 64);
    EXPECT_EQ(sign_at(*zassenhaus::primitive_integer_part(p), x), eval(p, x).sign()) << polynomial_text(p);
  }
}

}  // namespace
}  // namespace tv
