#include <gtest/gtest.h>

#include <gmp.h>

#include "exact.hpp"
#include "num/residue_ring.hpp"

namespace tv {
namespace {

using residue::RationalLift;
using residue::ResidueRing;
using residue::word_prime;

QPoly poly(std::initializer_list<Int> coefficients) {
  std::vector<Fraction> c;
  for (const Int& x : coefficients) c.emplace_back(x);
  return QPoly(std::move(c));
}
Int big_prime() { return Int(static_cast<std::int64_t>(word_prime(0))); }

TEST(WordPrimes, AreDistinctPrimesBelowTwoToThe62) {
  mpz_t z;
  mpz_init(z);
  std::uint64_t previous = std::uint64_t{1} << 62;
  for (std::size_t i : {0, 1, 2, 62, 63, 64, 65, 80}) {
    const std::uint64_t p = word_prime(i);
    if (i == 0 || i == 63 || i == 80) {
      EXPECT_LT(p, previous);
    }
    mpz_set_ui(z, p);
    EXPECT_NE(mpz_probab_prime_p(z, 30), 0) << p;
    previous = p;
  }
  EXPECT_GT(word_prime(64), word_prime(65));
  EXPECT_EQ(word_prime(64), word_prime(64));
  mpz_clear(z);
}

// Rationals with parts of the given size come back once the primes' product passes 2 |n| d.
TEST(RationalLift, RecoversRationalsOnceThePrimesSuffice) {
  const Int p = big_prime();
  const std::vector<Fraction> values = {Fraction(), Fraction(-1), Fraction::of(p * p + Int(1), Int(3)),
                                        Fraction::of(Int(-7), p * Int(5) + Int(2)),
                                        Fraction::of(Int(1).shifted_left(300) + Int(1), Int(1).shifted_left(200) + Int(3))};
  RationalLift lift(values.size());
  std::optional<std::vector<Fraction>> read;
  for (std::size_t i = 1; i <= 12; ++i) {
    residue::Words residues;
    const std::uint64_t prime = word_prime(i);
    for (const Fraction& v : values) residues.push_back(*residue::reduce(v, prime));
    lift.add(residues, prime);
    read = lift.rationals();
  }
  ASSERT_TRUE(read);  // 12 primes: 744 bits, against the 501 that the last value needs
  EXPECT_EQ(*read, values);
}

TEST(ResidueRing, RefusesPrimesThatBreakTheField) {
  const Int p = big_prime();
  const std::uint64_t prime = word_prime(0);
  EXPECT_FALSE(ResidueRing::of(poly({-p, 0, 1}), prime));                                   // x^2: repeated root
  EXPECT_FALSE(ResidueRing::of(poly({-2, 0, p}), prime));                                   // loses its degree
  EXPECT_FALSE(ResidueRing::of(QPoly({Fraction::of(Int(1), p), Fraction(0), Fraction(1)}), prime));  // denominator
  EXPECT_TRUE(ResidueRing::of(poly({-2, 0, 1}), prime));
  // x^2 - (9 + p) is x^2 - 9 modulo p: x - 3 is a zero divisor there and has no inverse.
  const auto ring = ResidueRing::of(poly({-(p + Int(9)), 0, 1}), prime);
  ASSERT_TRUE(ring);
  EXPECT_FALSE(ring->inverse({prime - 3, 1}));
  const auto inverse = ring->inverse({prime - 4, 1});  // 1/(x - 4) = (x + 4)/(9 - 16) there
  ASSERT_TRUE(inverse);
  EXPECT_EQ(ring->mul(*inverse, {prime - 4, 1}), ring->constant(1));
}

// Fields and numbers chosen so that the first prime is unusable or unlucky: the answer must
// still be the one over the rationals.
class UnluckyPrimes : public ::testing::Test {
 protected:
  Int p = big_prime();
  // Q(alpha), alpha^2 = 9 + p, whose residue ring at the first prime has zero divisors.
  FieldRef field = *NumberField::make(poly({-(p + Int(9)), 0, 1}), Fraction(0), Fraction(p), true);
  AlgebraicNumber alpha = AlgebraicNumber::generator(field);
};

TEST_F(UnluckyPrimes, InverseOfANumberThatIsAZeroDivisorModuloTheFirstPrime) {
  // (alpha - 3) 2^60 has large enough coefficients to be inverted by primes; its inverse
  // (alpha + 3) / (p 2^60) has p in its denominator.
  const Int scale = Int(1).shifted_left(60);
  const AlgebraicNumber a = (alpha - AlgebraicNumber::from_int(field, 3)) * AlgebraicNumber::from_int(field, scale);
  const auto inverse = a.inverse();
  ASSERT_TRUE(inverse.ok());
  const AlgebraicNumber expected = (alpha + AlgebraicNumber::from_int(field, 3)) *
                                   AlgebraicNumber::constant(field, Fraction::of(Int(1), p * scale));
  EXPECT_EQ(inverse->polynomial(), expected.polynomial());
  EXPECT_FALSE(AlgebraicNumber::zero(field).inverse().ok());
}

// common_root of p(y) and q(y) over Q(alpha), for p and q with rational roots.
std::optional<AlgebraicNumber> rational_common_root(const FieldRef& f, const QPoly& p, const QPoly& q) {
  auto found = common_root(f, p, q, {QPoly(), poly({1})});
  EXPECT_TRUE(found.ok());
  return found.ok() ? *found : std::nullopt;
}

TEST_F(UnluckyPrimes, CommonRootWhenTheFirstPrimeSeesMoreOrFewerCommonRoots) {
  const auto linear = [](const Int& root) { return poly({-root, 1}); };
  const QPoly p12 = linear(1) * linear(2);
  // (y - 1)(y - 2) and (y - 1)(y - 2 - p): modulo p they share both roots.
  const auto one = rational_common_root(field, p12, linear(1) * linear(p + Int(2)));
  ASSERT_TRUE(one);
  EXPECT_EQ(one->polynomial(), poly({1}));
  // (y - 1)(y - 2) and (y - 1 - p)(y - 5): no common root, although modulo p they share one.
  EXPECT_FALSE(rational_common_root(field, p12, linear(p + Int(1)) * linear(5)));
  // (y - 1)(y - 2) and (y - 2)(y - 2 - p): twice the root 2 modulo p, once over Q.
  const auto two = rational_common_root(field, p12 * linear(p + Int(1)), linear(2) * linear(p + Int(2)));
  ASSERT_TRUE(two);
  EXPECT_EQ(two->polynomial(), poly({2}));
  // A root with p in its denominator, and the generator itself as a common root.
  const QPoly by_p({-Fraction::of(Int(1), p), Fraction(1)});
  const auto small = rational_common_root(field, by_p * linear(7), by_p * linear(8));
  ASSERT_TRUE(small);
  EXPECT_EQ(small->polynomial(), QPoly({Fraction::of(Int(1), p)}));
  const QPoly m = field->min_poly();
  EXPECT_FALSE(rational_common_root(field, m, m));  // both roots common: the gcd is quadratic
  // m(y) and m(y - 2 alpha)(y - 2 alpha - 3) share y = alpha only.
  const auto generator = common_root(field, m, m * linear(3), {QPoly::monomial(Fraction(-2), 1), poly({1})});
  ASSERT_TRUE(generator.ok() && *generator);
  EXPECT_EQ((*generator)->polynomial(), QPoly::monomial(Fraction(1), 1));
}

}  // namespace
}  // namespace tv
