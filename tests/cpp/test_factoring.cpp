#include <gtest/gtest.h>

#include <algorithm>

#include "num/factoring.hpp"

namespace tv {
namespace {

using namespace zassenhaus;

ZPoly zpoly(std::initializer_list<std::int64_t> coefficients) {
  return ZPoly(std::vector<Int>(coefficients.begin(), coefficients.end()));
}

QPoly qpoly(const ZPoly& p) { return QPoly(std::vector<Fraction>(p.coefficients().begin(), p.coefficients().end())); }

ZPoly zpoly_of(const QPoly& p) {
  std::vector<Int> c;
  for (const Fraction& x : p.coefficients()) {
    EXPECT_TRUE(x.is_integer());
    c.push_back(x.numerator());
  }
  return ZPoly(std::move(c));
}

ZPoly positive(ZPoly p) { return p.leading().sign() < 0 ? -p : p; }

// The factors of p with positive leading coefficients, sorted by their text.
std::vector<std::string> factor_texts(const ZPoly& p) {
  auto factors = factor(qpoly(p));
  EXPECT_TRUE(factors.ok());
  std::vector<std::string> texts;
  if (!factors) return texts;
  for (const QPoly& f : *factors) texts.push_back(polynomial_text(positive(zpoly_of(f))));
  std::sort(texts.begin(), texts.end());
  return texts;
}

std::vector<std::string> sorted_texts(std::initializer_list<ZPoly> polys) {
  std::vector<std::string> texts;
  for (const ZPoly& p : polys) texts.push_back(polynomial_text(p));
  std::sort(texts.begin(), texts.end());
  return texts;
}

// Roots shift + sum of +-sqrt(a): irreducible over Q, split into pieces of degree <= 2 modulo
// every prime. p(x + sqrt(a)) = E + sqrt(a) O, and the product of the conjugates is E^2 - a O^2.
ZPoly sum_of_roots(std::initializer_list<std::int64_t> radicands, std::int64_t shift = 0) {
  const ZPoly x = zpoly({0, 1});
  ZPoly p = zpoly({-shift, 1});
  for (std::int64_t a : radicands) {
    ZPoly even, odd;
    for (std::size_t k = p.coefficients().size(); k-- > 0;) {
      ZPoly next_even = x * even + odd.scale(Int(a)) + ZPoly::constant(p.coefficients()[k]);
      odd = even + x * odd;
      even = std::move(next_even);
    }
    p = even * even - (odd * odd).scale(Int(a));
  }
  return p;
}

TEST(ModInt, ArithmeticAgreesWithIntegerRemainders) {
  const Int big_prime = Int(2).pow(89) - Int(1);
  const Int word_limit = Int(2).pow(62);
  struct Case {
    Int a, b, m;
  };
  const Case cases[] = {
      {Int(3), Int(5), Int(7)},           {Int(-3), Int(12), Int(7)},
      {Int(INT64_MIN), Int(INT64_MAX), Int(1000003)},
      {word_limit - Int(5), word_limit - Int(7), word_limit - Int(3)},
      {word_limit + Int(5), Int(-7), word_limit + Int(9)},
      {Int(2).pow(100), -Int(3).pow(70), big_prime},
      {Int(5), Int(0), Int(1)},
  };
  const auto reference = [](const Int& v, const Int& m) {
    Int r = rem(v, m);
    return r.sign() < 0 ? r + m : r;
  };
  for (const Case& c : cases) {
    const ModInt a(c.a, c.m), b(c.b, c.m);
    EXPECT_EQ(a.value(), reference(c.a, c.m));
    EXPECT_EQ((a + b).value(), reference(c.a + c.b, c.m));
    EXPECT_EQ((a - b).value(), reference(c.a - c.b, c.m));
    EXPECT_EQ((a * b).value(), reference(c.a * c.b, c.m));
    EXPECT_EQ((-a).value(), reference(-c.a, c.m));
    if (gcd(b.value(), c.m).is_one()) {
      const ModInt q = *div(a, b);
      EXPECT_EQ(q * b, a);
    }
  }
}

TEST(ModInt, DivisionFailures) {
  const auto no_inverse = div(ModInt(Int(1), Int(9)), ModInt(Int(6), Int(9)));
  EXPECT_EQ(no_inverse.failure().kind, FailureKind::Division);
  EXPECT_EQ(no_inverse.failure().message, "Not divisible");
  EXPECT_EQ(div(ModInt(Int(1), Int(7)), ModInt(Int(0), Int(7))).failure().message, "Not divisible");
  const auto mixed = div(ModInt(Int(1), Int(7)), ModInt(Int(2), Int(11)));
  EXPECT_EQ(mixed.failure().kind, FailureKind::Type);
  EXPECT_EQ(mixed.failure().message, "Numbers have different moduli");
  EXPECT_THROW(ModInt(Int(1), Int(7)) + ModInt(Int(1), Int(11)), InternalError);
}

TEST(ModInt, PolynomialsKeepTheirModulus) {
  const ModPoly p = reduce(zpoly({-1, 0, 1}), Int(5));
  const ModPoly zero = p - p;
  EXPECT_TRUE(zero.is_zero());
  EXPECT_EQ(zero.context(), Int(5));
  EXPECT_EQ(polynomial_text(reduce(zpoly({-1, 7, 3}), Int(5))), "3x² + 2x + 4");
  const auto qr = *divrem(p, reduce(zpoly({1, 2}), Int(5)));
  EXPECT_TRUE((qr.quotient * reduce(zpoly({1, 2}), Int(5)) + qr.remainder - p).is_zero());
}

TEST(Factoring, ChoosePrimeSkipsBadPrimes) {
  struct Case {
    ZPoly f;
    std::int64_t prime;
  };
  const Case cases[] = {
      {zpoly({-1, 0, 1}), 3},      // the first odd prime
      {zpoly({-3, 0, 1}), 5},      // x^2 - 3 = x^2 mod 3
      {zpoly({1, 1, 15}), 7},      // 3 and 5 divide the leading coefficient
      {zpoly({1, 0, -10, 0, 1}), 5},  // (x^2 + 1)^2 mod 3
  };
  for (const Case& c : cases) EXPECT_EQ(*choose_prime(c.f), Int(c.prime)) << polynomial_text(c.f);
  EXPECT_EQ(choose_prime(ZPoly()).failure().message, "choose_prime of zero polynomial");
}

TEST(Factoring, LiftExponentOfTheSmallestCase) {
  // x^2 - 1 with p = 3: the bound M is 6, so k = 2.
  EXPECT_EQ(lift_exponent(zpoly({-1, 0, 1}), Int(3)), 2u);
  EXPECT_EQ(lift_exponent(zpoly({-1, 1}), Int(3)), 2u);
}

TEST(Factoring, ModularFactorsMultiplyBack) {
  const ZPoly polys[] = {sum_of_roots({2, 3, 5}), sum_of_roots({2, 3, 5, 7}, 1),
                         zpoly({-1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), zpoly({7, -3, 0, 5, 2, 0, 0, 11})};
  for (const ZPoly& f : polys) {
    const Int p = *choose_prime(f);
    const auto parts = *distinct_degree(f, p);
    for (std::size_t d = 1; d < parts.size(); ++d) EXPECT_EQ(parts[d].degree() % static_cast<std::int64_t>(d), 0);
    const auto factors = *modular_factors(f, p);
    ModPoly product = ModPoly::constant(ModInt(f.leading(), p));
    for (const ModPoly& g : factors) {
      EXPECT_EQ(g.leading(), ModInt(Int(1), p));
      product *= g;
    }
    EXPECT_EQ(product, reduce(f, p)) << polynomial_text(f);
    if (f == sum_of_roots({2, 3, 5})) {
      for (const ModPoly& g : factors) EXPECT_LE(g.degree(), 2);
    }
  }
}

TEST(Factoring, HenselLiftingInvariants) {
  const ZPoly polys[] = {sum_of_roots({2, 3, 5}) * zpoly({3, -1, 2}), sum_of_roots({2, 3, 5, 7}),
                         zpoly({-6, 11, -6, 1}) * zpoly({1, 1, 0, 5})};
  for (const ZPoly& f : polys) {
    const Int p = *choose_prime(f);
    const auto factors = *modular_factors(f, p);
    const std::uint64_t k = lift_exponent(f, p);
    const Int m = p.pow(static_cast<std::uint32_t>(k));
    const auto lifted = *hensel_lift(f, factors, p, k);
    ASSERT_EQ(lifted.size(), factors.size());
    ModPoly product = ModPoly::constant(ModInt(f.leading(), m));
    for (std::size_t i = 0; i < lifted.size(); ++i) {
      EXPECT_EQ(lifted[i].context(), m);
      EXPECT_EQ(lifted[i].leading(), ModInt(Int(1), m));
      EXPECT_EQ(reduce(residues(lifted[i]), p), factors[i]);
      product *= lifted[i];
    }
    EXPECT_EQ(product, reduce(f, m)) << polynomial_text(f);
  }
}

TEST(Factoring, LiftPairReachesTheTargetModulus) {
  // f = (x^2 + 1)(3x - 2) with p = 5: g = x^2 + 1, h = 3x - 2 mod 5.
  const ZPoly f = zpoly({1, 0, 1}) * zpoly({-2, 3});
  const Int p(5);
  for (std::uint32_t k : {1u, 2u, 3u, 7u, 20u}) {
    const auto [g, h] = *lift_pair(f, reduce(zpoly({1, 0, 1}), p), reduce(zpoly({-2, 3}), p), p, k);
    const Int m = p.pow(k);
    EXPECT_EQ(reduce(g * h, m), reduce(f, m)) << k;
    EXPECT_TRUE(g.leading().is_one());
    for (const Int& c : h.coefficients()) EXPECT_TRUE(c.sign() >= 0 && compare(c, m) < 0);
  }
}

TEST(Factoring, KnownFactorizations) {
  struct Case {
    ZPoly input;
    std::vector<std::string> factors;
  };
  const ZPoly sd3 = sum_of_roots({2, 3, 5}), sd3_shifted = sum_of_roots({2, 3, 7}, 1);
  // Content, multiplicities and several factors that split modulo every prime; the rest is
  // compared with FLINT from Python.
  const Case cases[] = {
      {sd3 * sd3_shifted * zpoly({-1, 0, 1}).pow(2) * zpoly({6}),
       sorted_texts({sd3, sd3_shifted, zpoly({1, 1}), zpoly({-1, 1})})},
      {sum_of_roots({2, 3, 5, 7}), sorted_texts({sum_of_roots({2, 3, 5, 7})})},
      {zpoly({-6, 0, 2}) * zpoly({3, 0, 0, 9}), sorted_texts({zpoly({-3, 0, 1}), zpoly({1, 0, 0, 3})})},
  };
  for (const Case& c : cases) EXPECT_EQ(factor_texts(c.input), c.factors) << polynomial_text(c.input);
}

TEST(Factoring, RationalInputIsClearedToPrimitive) {
  // (x/2 - 1/3)(x^2 + 3/4) = (3x - 2)(4x^2 + 3) / 24.
  const QPoly p = QPoly({Fraction::of(Int(-1), Int(3)), Fraction::of(Int(1), Int(2))}) *
                  QPoly({Fraction::of(Int(3), Int(4)), Fraction(0), Fraction(1)});
  const auto factors = *factor(p);
  std::vector<std::string> texts;
  for (const QPoly& f : factors) texts.push_back(polynomial_text(f));
  std::sort(texts.begin(), texts.end());
  EXPECT_EQ(texts, (std::vector<std::string>{"3x + -2", "4x² + 3"}));
  EXPECT_EQ(*primitive_integer_part(p), zpoly({-6, 9, -8, 12}));
}

TEST(Factoring, GuardsOfTheSteps) {
  EXPECT_EQ(factor(QPoly()).failure().kind, FailureKind::Range);
  EXPECT_EQ(equal_degree(reduce(zpoly({1, 1, 1}), Int(2)), 1).failure().message, "p=2 not implemented");
  EXPECT_EQ(hensel_lift(zpoly({-1, 0, 1}), {}, Int(3), std::uint64_t{1} << 33).failure().message,
            "exponent too large");
  const auto lifted = *hensel_lift(zpoly({-1, 0, 1}), {reduce(zpoly({1, 1}), Int(3)), reduce(zpoly({-1, 1}), Int(3))},
                                   Int(3), 2);
  EXPECT_EQ(combine_factors(zpoly({-1, 0, 1}), lifted, Int(9))->size(), 2u);
}

// Word arithmetic against the generic ModPoly arithmetic, on the smallest prime, a middling one
// and the largest one below the word limit.
TEST(WordPoly, AgreesWithModPoly) {
  std::uint64_t state = 12345;
  const auto next = [&state](std::uint64_t p) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return (state >> 11) % p;
  };
  for (std::uint64_t p : {3ULL, 101ULL, 2097143ULL}) {
    const Int prime(static_cast<std::int64_t>(p));
    const auto random_poly = [&](std::size_t length, bool monic) {
      std::vector<ModInt> c;
      for (std::size_t i = 0; i < length; ++i) c.emplace_back(Int(static_cast<std::int64_t>(next(p))), prime);
      if (monic) c.back() = ModInt(Int(1), prime);
      return ModPoly(std::move(c), prime);
    };
    for (int round = 0; round < 20; ++round) {
      const ModPoly a = random_poly(1 + round * 3, false), b = random_poly(2 + round, false);
      const ModPoly g = random_poly(2 + round % 7, true);
      const WordPoly wa = WordPoly::of(a), wb = WordPoly::of(b), wg = WordPoly::of(g);
      EXPECT_EQ(WordPoly::mul(wa, wb, p).to_mod_poly(prime), a * b);
      const auto qr = *divrem(a, g);
      EXPECT_EQ(WordPoly::rem(wa, wg, p).to_mod_poly(prime), qr.remainder);
      EXPECT_EQ(WordPoly::quotient(wa, wg, p).to_mod_poly(prime), qr.quotient);
      EXPECT_EQ(WordPoly::gcd(wa, wb, p).to_mod_poly(prime), *euclidean_gcd(a, b));
      const Int e(static_cast<std::int64_t>(round * 977 + 3));
      EXPECT_EQ(WordPoly::pow_mod(wa, e, wg, p).to_mod_poly(prime), *pow_mod(a, e, g));
    }
  }
}

// A prime beyond the word limit takes the generic path and gives the same factors.
TEST(Factoring, ModularFactorsOverALargePrime) {
  const Int p((std::int64_t{1} << 61) - 1);
  const ZPoly f = zpoly({-6, 11, -6, 1}) * zpoly({1, 0, 1});  // (x - 1)(x - 2)(x - 3)(x^2 + 1)
  const auto factors = *modular_factors(f, p);
  EXPECT_EQ(factors.size(), 4u);  // x^2 + 1 stays whole, since p = 3 mod 4
  ModPoly product = ModPoly::constant(ModInt(Int(1), p));
  for (const ModPoly& g : factors) product *= g;
  EXPECT_EQ(product, reduce(f, p));
}

TEST(Factoring, DegreesAllowedAcrossPrimes) {
  // x^4 - 10x^2 + 1 splits into quadratics or linear pieces modulo every prime, but no factor of
  // odd degree survives the intersection of three primes' degree sets.
  const ZPoly sd2 = sum_of_roots({2, 3});
  const auto choice = *choose_among_primes(sd2, 3);
  EXPECT_EQ(choice.allowed, (std::vector<bool>{true, false, true, false, true}));
  // A cubic that is irreducible mod 5 (x^3 + x + 1 has no root mod 5) stops the search there.
  const auto cubic = *choose_among_primes(zpoly({1, 1, 0, 1}), 3);
  EXPECT_EQ(cubic.factor_count, 1u);
  EXPECT_EQ(factor_degrees(*distinct_degree(zpoly({-6, 11, -6, 1}), Int(5))),
            (std::vector<bool>{true, true, true, true}));
}

}  // namespace
}  // namespace tv
