#include <gtest/gtest.h>

#include "num/polynomial.hpp"

namespace tv {
namespace {

QPoly poly(std::initializer_list<std::int64_t> coefficients) {
  std::vector<Fraction> c;
  for (std::int64_t x : coefficients) c.emplace_back(x);
  return QPoly(std::move(c));
}

Fraction q(std::int64_t n, std::int64_t d = 1) { return *Fraction::make(Int(n), Int(d)); }

TEST(Polynomial, ArithmeticTrimsAndKeepsDegrees) {
  const QPoly a = poly({-1, 0, 1}), b = poly({1, 0, -1});
  EXPECT_TRUE((a + b).is_zero());
  EXPECT_EQ((a + b).degree(), -1);
  EXPECT_EQ((a * b).degree(), 4);
  EXPECT_EQ(a * QPoly(), QPoly());
  EXPECT_EQ(poly({0, 0, 0}).degree(), -1);
  EXPECT_EQ(poly({1, 2, 3}).derivative(), poly({2, 6}));
  EXPECT_TRUE(poly({7}).derivative().is_zero());
  EXPECT_EQ(poly({1, 1}).pow(3), poly({1, 3, 3, 1}));
}

TEST(Polynomial, DivisionByPseudoRemainders) {
  auto qr = *divrem(poly({-1, 0, 1}), poly({-1, 1}));
  EXPECT_EQ(qr.quotient, poly({1, 1}));
  EXPECT_TRUE(qr.remainder.is_zero());
  qr = *divrem(poly({1}), poly({0, 1}));
  EXPECT_TRUE(qr.quotient.is_zero());
  EXPECT_EQ(qr.remainder, poly({1}));
  // x^2 = (2x + 1)(x/2 - 1/4) + 1/4.
  qr = *divrem(poly({0, 0, 1}), poly({1, 2}));
  EXPECT_EQ(qr.quotient, QPoly({q(-1, 4), q(1, 2)}));
  EXPECT_EQ(qr.remainder, QPoly({q(1, 4)}));
  const auto by_zero = divrem(poly({1}), QPoly());
  EXPECT_EQ(by_zero.failure().message, "Division by zero");
  EXPECT_EQ(by_zero.failure().kind, FailureKind::Division);
  EXPECT_EQ(div_exact(poly({1, 0, 1}), poly({1, 1})).failure().message, "not divisible");
  EXPECT_EQ(*div_exact(poly({2, 4}), poly({2})), poly({1, 2}));
}

TEST(Polynomial, MonicAndSquareFreePart) {
  EXPECT_EQ(QPoly().monic().failure().message, "monic() of zero polynomial");
  EXPECT_EQ(*poly({2, 4}).monic(), QPoly({q(1, 2), q(1)}));
  // (x - 1)^2 (x + 2)^3 -> (x - 1)(x + 2).
  const QPoly p = poly({-1, 1}).pow(2) * poly({2, 1}).pow(3);
  EXPECT_EQ(*square_free_part(p), poly({-2, 1, 1}));
}

TEST(Polynomial, GcdIsTheLastSubresultant) {
  EXPECT_EQ(gcd(poly({-2, 0, 1}), poly({0, 2}))->degree(), 0);
  const QPoly g = *gcd(poly({-1, 0, 1}), poly({-1, 1}));
  EXPECT_EQ(g.degree(), 1);
  EXPECT_TRUE(divrem(poly({-1, 1}), g)->remainder.is_zero());
  EXPECT_EQ(*gcd(poly({3, 1}), QPoly()), poly({3, 1}));
  // A common factor hidden in higher degrees: (x^2 + 1)(x^3 - 2) and (x^2 + 1)(x^4 + x + 5).
  const QPoly common = poly({1, 0, 1});
  const QPoly h = *gcd(common * poly({-2, 0, 0, 1}), common * poly({5, 1, 0, 0, 1}));
  EXPECT_EQ(*h.monic(), common);
}

// Bivariate polynomials in y with coefficients in x.
QXYPoly in_y(std::initializer_list<QPoly> coefficients) { return QXYPoly(std::vector<QPoly>(coefficients)); }

TEST(Polynomial, ResultantsOfKnownPairs) {
  // res_y(y^2 - 2, y - x) = x^2 - 2.
  EXPECT_EQ(*resultant(in_y({poly({-2}), poly({}), poly({1})}), in_y({poly({0, -1}), poly({1})})), poly({-2, 0, 1}));
  // res_y(y^2 - 2, (x - y)^2 - 3) = x^4 - 10x^2 + 1, the minimal polynomial of sqrt(2) + sqrt(3).
  EXPECT_EQ(*resultant(in_y({poly({-2}), poly({}), poly({1})}), in_y({poly({-3, 0, 1}), poly({0, -2}), poly({1})})),
            poly({1, 0, -10, 0, 1}));
  // A common root in y for every x gives zero: res_y(y - x, (y - x)(y + 1)).
  const QXYPoly f = in_y({poly({0, -1}), poly({1})});
  EXPECT_TRUE(resultant(f, f * in_y({poly({1}), poly({1})}))->is_zero());
  // Order of arguments: res(b, a) = (-1)^(deg a deg b) res(a, b), here with odd degrees.
  const QXYPoly a = in_y({poly({0, 1}), poly({1})});
  const QXYPoly b = in_y({poly({-3}), poly({}), poly({}), poly({1})});
  EXPECT_EQ(*resultant(a, b), -*resultant(b, a));
  // The univariate case: res(x^2 - 2, x - 3) = 7.
  EXPECT_EQ(*resultant(poly({-2, 0, 1}), poly({-3, 1})), q(7));
}

TEST(Polynomial, SturmCountsRootsInClosedIntervals) {
  const QPoly x2m2 = poly({-2, 0, 1});
  EXPECT_EQ(*count_roots(x2m2, q(1), q(2)), 1u);
  EXPECT_EQ(*count_roots(x2m2, q(-2), q(2)), 2u);
  EXPECT_EQ(*count_roots(x2m2, q(3, 2), q(2)), 0u);
  EXPECT_EQ(*count_roots(poly({-1, 1}), q(1), q(1)), 1u);
  EXPECT_EQ(*count_roots(poly({-1, 1}), q(0), q(1)), 1u);
  EXPECT_EQ(*count_roots(poly({-1, 1}), q(1), q(2)), 1u);
  // (x-1)(x-2)(x-3)(x-4)(x-5): roots at both closed ends.
  QPoly p = poly({1});
  for (int r = 1; r <= 5; ++r) p *= poly({-r, 1});
  EXPECT_EQ(*count_roots(p, q(2), q(4)), 3u);
  EXPECT_EQ(*count_roots(p, q(5, 2), q(7, 2)), 1u);
  EXPECT_EQ(*count_roots(p, q(-100), q(100)), 5u);
  EXPECT_EQ(*count_roots(poly({1, 0, 1}), q(-100), q(100)), 0u);
  EXPECT_EQ(*count_roots(poly({7}), q(-1), q(1)), 0u);
}

TEST(Polynomial, TextWithSuperscripts) {
  EXPECT_EQ(polynomial_text(poly({-2, 0, 1})), "x\u00b2 + -2");
  EXPECT_EQ(polynomial_text(QPoly({q(0), q(1), q(0), q(0), q(0), q(0), q(0), q(0), q(0), q(0), q(1, 2)})),
            "1/2x\u00b9\u2070 + x");
  EXPECT_EQ(polynomial_text(poly({1, 1})), "x + 1");
  EXPECT_EQ(polynomial_text(poly({3})), "3");
  EXPECT_EQ(polynomial_text(poly({1})), "1");
  EXPECT_EQ(polynomial_text(poly({0, -1})), "-1x");
  EXPECT_EQ(polynomial_text(QPoly()), "0");
}

}  // namespace
}  // namespace tv
