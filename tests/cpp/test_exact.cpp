#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <vector>

#include "exact.hpp"
#include "num/sturm.hpp"
#include "pool.hpp"

namespace tv {
namespace {

Fraction q(std::int64_t n, std::int64_t d = 1) { return *Fraction::make(Int(n), Int(d)); }
QPoly poly(std::initializer_list<std::int64_t> coefficients) {
  std::vector<Fraction> c;
  for (std::int64_t x : coefficients) c.emplace_back(x);
  return QPoly(std::move(c));
}
AlgebraicNumber rational(std::int64_t n, std::int64_t d = 1) { return AlgebraicNumber::constant(rational_field(), q(n, d)); }
AlgebraicNumber kth_root(std::int64_t n, std::int64_t k) { return *root(rational(n), Int(k)); }
FieldRef field(QPoly m, Fraction lo, Fraction hi) { return *NumberField::make(std::move(m), lo, hi, true); }

// A deterministic stream of small numbers in a field.
struct Numbers {
  FieldRef field;
  std::uint64_t state = 0x9E3779B97F4A7C15u;
  std::int64_t next_small() {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return static_cast<std::int64_t>((state >> 33) % 19) - 9;
  }
  AlgebraicNumber next() {
    std::vector<Fraction> c;
    for (std::int64_t k = 0; k < field->degree(); ++k) c.push_back(q(next_small(), 1 + (next_small() + 9) % 4));
    return AlgebraicNumber::from_polynomial(field, QPoly(std::move(c)));
  }
};

// Field on x^3 - 2 (the real cube root of 2), and on x^4 - 10x^2 + 1 (sqrt 2 + sqrt 3).
std::vector<FieldRef> sample_fields() {
  return {field(poly({-2, 0, 1}), q(1), q(2)), field(poly({-2, 0, 0, 1}), q(1), q(2)),
          field(poly({1, 0, -10, 0, 1}), q(3), q(4)), rational_field()};
}

TEST(NumberField, ArithmeticIdentities) {
  for (const FieldRef& f : sample_fields()) {
    Numbers numbers{f};
    for (int round = 0; round < 40; ++round) {
      const AlgebraicNumber a = numbers.next(), b = numbers.next(), c = numbers.next();
      EXPECT_EQ((a * b) * c, a * (b * c));
      EXPECT_EQ(a * (b + c), a * b + a * c);
      EXPECT_EQ(a - b + b, a);
      EXPECT_EQ(*a.pow(Int(5)), a * a * a * a * a);
      EXPECT_EQ(*a.pow(Int(0)), AlgebraicNumber::one(f));
      if (a.is_zero()) continue;
      EXPECT_EQ(a * *a.inverse(), AlgebraicNumber::one(f));
      EXPECT_EQ(*div(b, a) * a, b);
      EXPECT_EQ(a.degree() < f->degree(), true);
    }
  }
}

TEST(NumberField, GeneratorSatisfiesMinPolyAndReductionTable) {
  for (const FieldRef& f : sample_fields()) {
    const AlgebraicNumber alpha = AlgebraicNumber::generator(f);
    AlgebraicNumber value = AlgebraicNumber::zero(f);
    const auto& m = f->min_poly().coefficients();
    for (std::size_t k = 0; k < m.size(); ++k)
      value = value + AlgebraicNumber::constant(f, m[k]) * *alpha.pow(Int(static_cast<std::int64_t>(k)));
    EXPECT_TRUE(value.is_zero()) << f->text();
    ASSERT_EQ(f->reduction().size(), static_cast<std::size_t>(2 * f->degree() + 1));
    for (std::size_t k = 0; k < f->reduction().size(); ++k)
      EXPECT_EQ(AlgebraicNumber::from_polynomial(f, f->reduction()[k]), *alpha.pow(Int(static_cast<std::int64_t>(k))));
  }
}

TEST(NumberField, RefusesIntervalsWithoutExactlyOneRoot) {
  for (auto [lo, hi] : {std::pair{q(-2), q(2)}, std::pair{q(2), q(3)}, std::pair{q(2), q(1)}}) {
    const auto made = NumberField::make(poly({-2, 0, 1}), lo, hi, true);
    ASSERT_FALSE(made.ok());
    EXPECT_EQ(made.failure().message, "Interval must contain exactly one root");
    EXPECT_EQ(made.failure().kind, FailureKind::Other);
  }
  EXPECT_FALSE(NumberField::make(poly({3}), q(0), q(1), true).ok());
  EXPECT_FALSE(NumberField::make(QPoly(), q(0), q(1), true).ok());
}

TEST(NumberField, TextsAndFailures) {
  const FieldRef f = field(poly({-2, 0, 1}), q(1), q(3, 2));
  EXPECT_EQ(f->text(), "Q(root of x² + -2 in [1,3/2])");
  EXPECT_EQ(AlgebraicNumber::generator(f).text(), "x in Q(root of x² + -2 in [1,3/2])");
  EXPECT_EQ(rational(1).inverse().ok(), true);
  const auto by_zero = rational(0).inverse();
  EXPECT_EQ(by_zero.failure().message, "Division by zero: 0 in Q(root of x + -1 in [1,1])");
  EXPECT_EQ(by_zero.failure().kind, FailureKind::Range);
  EXPECT_EQ(div(AlgebraicNumber::one(f), AlgebraicNumber::zero(f)).failure().message,
            "Division by zero: 0 in Q(root of x² + -2 in [1,3/2])");
  const FieldRef g = field(poly({-3, 0, 1}), q(1), q(2));
  const auto mixed = add(AlgebraicNumber::generator(f), AlgebraicNumber::generator(g));
  EXPECT_EQ(mixed.failure().message,
            "AlgebraicNumbers must have same field (Q(root of x² + -2 in [1,3/2]) != Q(root of x² + -3 in [1,2]))");
  EXPECT_FALSE(equal(AlgebraicNumber::one(f), AlgebraicNumber::one(g)));
  EXPECT_TRUE(equal(AlgebraicNumber::one(f), rational(1)));
  const auto negative = AlgebraicNumber::generator(f).pow(Int(-1));
  EXPECT_EQ(negative.failure().kind, FailureKind::Range);
  EXPECT_EQ(negative.failure().message, "");
  // The same extension built twice is one field; the conjugate generator is another.
  EXPECT_TRUE(*equals(f, field(poly({-2, 0, 1}), q(0), q(5))));
  EXPECT_FALSE(*equals(f, field(poly({-2, 0, 1}), q(-2), q(0))));
}

TEST(NumberField, SignsOfTinyDifferences) {
  // p/q from the continued fraction of sqrt(2) alternate around it; 2 q^2 - p^2 says which side.
  const AlgebraicNumber sqrt2 = AlgebraicNumber::generator(field(poly({-2, 0, 1}), q(0), q(2)));
  Int p(1), d(1);
  for (int i = 0; i < 60; ++i) {
    const Fraction approx = Fraction::of(p, d);
    const int expected = (Int(2) * d * d - p * p).sign();
    EXPECT_EQ(sub(sqrt2, AlgebraicNumber::constant(rational_field(), approx))->sign(), expected) << i;
    const Int next_p = p + Int(2) * d;
    d = p + d;
    p = next_p;
  }
  EXPECT_EQ(sub(sqrt2, rational(1414213562373095, 1000000000000000))->sign(), 1);
  EXPECT_EQ(sub(sqrt2, rational(1414213562373096, 1000000000000000))->sign(), -1);
  EXPECT_EQ(sub(sqrt2 * sqrt2, rational(2))->sign(), 0);
}

// x^7 - 2 (1000 x - 1)^2 (irreducible by Eisenstein at 2) has two roots 1/1000 +- 2.2e-14,
// where Newton's method from a wide interval stalls or jumps away: signs near the upper one,
// against root counts of the min_poly, which place a rational on either side of alpha.
TEST(NumberField, SignsNextToACloseRootPair) {
  const QPoly m = poly({-2, 4000, -2000000, 0, 0, 0, 0, 1});
  const Fraction lo = q(1, 1000), hi = q(1, 1000) + q(1, 1000000);
  const auto sturm = SturmChain::of(m);
  ASSERT_TRUE(sturm.ok());
  for (std::int64_t k : {-30, 1, 10, 21, 22, 23, 30, 1000, 999999}) {
    for (std::int64_t scale : {1000000000000000, 10000000000000000}) {
      const Fraction r = lo + Fraction::of(Int(k), Int(scale));
      if (r < lo || r > hi) continue;
      const int expected = sturm->count(r, hi) == 0 ? -1 : sturm->count(r, r) == 1 ? 0 : 1;  // sign of alpha - r
      const FieldRef f = field(m, lo, hi);  // a fresh interval for every sign
      EXPECT_EQ(sub(AlgebraicNumber::generator(f), AlgebraicNumber::constant(rational_field(), r))->sign(), expected)
          << k << "/" << scale;
      const Interval after = f->interval();
      EXPECT_EQ(sturm->count(after.lo, after.hi), 1u);
    }
  }
}

TEST(NumberField, RefinementNarrowsAndKeepsTheRoot) {
  const FieldRef f = field(poly({1, 0, -10, 0, 1}), q(3), q(4));
  Interval before = f->interval();
  const AlgebraicNumber x = *add(AlgebraicNumber::generator(f), rational(1, 3));
  for (int step = 0; step < 80; ++step) {
    f->refine();
    const Interval now = f->interval();
    EXPECT_LE(before.lo, now.lo);
    EXPECT_GE(before.hi, now.hi);
    EXPECT_EQ(*count_roots(f->min_poly(), now.lo, now.hi), 1u);
    const Interval e = x.enclosure();
    // x = alpha + 1/3, so its enclosure is the interval moved by 1/3 (powers of degree 1 only).
    EXPECT_EQ(e.lo, now.lo + q(1, 3));
    EXPECT_EQ(e.hi, now.hi + q(1, 3));
    before = now;
  }
  EXPECT_LT(before.hi - before.lo, Fraction::of(Int(1), Int(1).shifted_left(70)));
}

TEST(NumberField, RationalGeneratorCollapsesToAPoint) {
  const FieldRef f = field(poly({-3, 2}), q(0), q(4));  // 2x - 3: the root 3/2
  for (int step = 0; step < 4; ++step) f->refine();
  EXPECT_EQ(f->interval().lo, q(3, 2));
  EXPECT_EQ(f->interval().hi, q(3, 2));
  const AlgebraicNumber x = AlgebraicNumber::generator(f);
  EXPECT_EQ(x.degree(), 0);
  EXPECT_EQ(x.enclosure().lo, x.enclosure().hi);
  EXPECT_EQ(x.to_f64(), 1.5);
}

TEST(NumberField, FloatsRoundLikeFractions) {
  const std::pair<std::int64_t, std::int64_t> cases[] = {{1, 3}, {-2, 7}, {123456789, 1000}, {1, 1 << 30}, {0, 1}};
  for (auto [n, d] : cases) EXPECT_EQ(rational(n, d).to_f64(), q(n, d).to_f64());
  EXPECT_EQ(kth_root(2, 2).to_f64(), std::sqrt(2.0));
  EXPECT_EQ(kth_root(5, 3).to_f64(), std::cbrt(5.0));
  EXPECT_EQ(AlgebraicNumber::zero(rational_field()).sign(), 0);
}

// -------------------------------------------------------------------------------------------
// unify and root

// Numbers whose squares are known rationals, with the square.
struct Square {
  AlgebraicNumber number;
  Fraction square;
};

TEST(Unify, KeepsEveryValue) {
  const AlgebraicNumber half_sqrt2 = *div(kth_root(2, 2), rational(2));
  std::vector<Square> squares = {{kth_root(2, 2), q(2)},    {kth_root(3, 2), q(3)}, {half_sqrt2, q(1, 2)},
                                 {kth_root(8, 2), q(8)},    {kth_root(4, 2), q(4)}, {rational(-5, 3), q(25, 9)},
                                 {kth_root(12, 2), q(12)}, {kth_root(6, 2), q(6)}};
  std::vector<AlgebraicNumber> numbers;
  std::vector<double> floats;
  for (const Square& s : squares) {
    numbers.push_back(s.number);
    floats.push_back(s.number.to_f64());
  }
  ASSERT_TRUE(unify(numbers).ok());
  const FieldRef& common = numbers[0].field();
  EXPECT_EQ(common->degree(), 4);
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    EXPECT_EQ(numbers[i].field(), common);
    EXPECT_LT(numbers[i].degree(), 4);
    EXPECT_EQ(numbers[i] * numbers[i], AlgebraicNumber::constant(common, squares[i].square)) << i;
    EXPECT_EQ(numbers[i].sign(), squares[i].number.sign()) << i;
    EXPECT_EQ(numbers[i].to_f64(), floats[i]) << i;
  }
}

TEST(Unify, FieldDegrees) {
  struct Case {
    std::vector<AlgebraicNumber> numbers;
    std::int64_t degree;
    int kept;  // index of the number whose field object is kept, or -1 for a new field
  };
  const AlgebraicNumber sqrt2 = kth_root(2, 2);
  const AlgebraicNumber sqrt5 = kth_root(5, 2);
  std::vector<Case> cases = {
      {{sqrt2, kth_root(3, 2)}, 4, -1},
      {{sqrt2, *div(sqrt2, rational(2))}, 2, 0},
      {{rational(3), sqrt5}, 2, 1},
      {{sqrt5, rational(3)}, 2, 0},
      {{sqrt2, kth_root(8, 2)}, 2, 0},
      {{kth_root(4, 2), rational(1)}, 1, -1},
      {{sqrt2, kth_root(2, 2)}, 2, 0},
      {{kth_root(2, 3), sqrt2}, 6, -1},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    Case& c = cases[i];
    const std::vector<AlgebraicNumber> original = c.numbers;
    ASSERT_TRUE(unify(c.numbers).ok()) << i;
    EXPECT_EQ(c.numbers[0].field(), c.numbers[1].field()) << i;
    EXPECT_EQ(c.numbers[0].field()->degree(), c.degree) << i;
    if (c.kept >= 0) {
      EXPECT_EQ(c.numbers[0].field(), original[static_cast<std::size_t>(c.kept)].field()) << i;
    }
  }
}

TEST(Unify, RepairsTheRingOfARationalRoot) {
  const AlgebraicNumber two = kth_root(4, 2);
  EXPECT_EQ(two.field()->min_poly(), poly({-4, 0, 1}));
  EXPECT_EQ(two.degree(), 1);
  std::vector<AlgebraicNumber> pair = {two, rational(1)};
  ASSERT_TRUE(unify(pair).ok());
  const AlgebraicNumber sum = *add(pair[0], pair[1]);
  EXPECT_EQ(sum.field()->degree(), 1);
  EXPECT_EQ(sum, rational(3));
}

TEST(Unify, RingElementsThatVanishByValue) {
  // sqrt(3 + 2 sqrt 2) = 1 + sqrt 2 lives in the ring on (x^2 - 2x - 1)(x^2 + 2x - 1).
  std::vector<AlgebraicNumber> pair = {rational(3), *mul(rational(2), kth_root(2, 2))};
  ASSERT_TRUE(unify(pair).ok());
  const AlgebraicNumber x = *root(*add(pair[0], pair[1]), Int(2));
  ASSERT_EQ(x.field()->degree(), 4);
  const AlgebraicNumber vanishing = x * x * x - x * x - x * x - x;  // x (x^2 - 2x - 1)
  EXPECT_FALSE(vanishing.is_zero());
  EXPECT_EQ(vanishing.sign(), 0);
  EXPECT_EQ(vanishing.inverse().failure().kind, FailureKind::Range);
  const AlgebraicNumber other_factor = x * x * x + x * x + x * x - x;  // x (x^2 + 2x - 1), not zero
  EXPECT_EQ((other_factor * *other_factor.inverse() - AlgebraicNumber::one(x.field())).sign(), 0);
  EXPECT_NEAR(other_factor.inverse()->to_f64(), 1 / other_factor.to_f64(), 1e-15);
}

TEST(Root, EdgeCases) {
  const AlgebraicNumber zero = kth_root(0, 2);
  EXPECT_TRUE(zero.is_zero());
  EXPECT_EQ(zero.field()->text(), "Q(root of x in [0,1])");
  for (auto [n, k] : {std::pair{-1, 2}, std::pair{-8, 3}}) {
    const auto r = root(rational(n), Int(k));
    EXPECT_EQ(r.failure().message, "Interval must contain exactly one root");
    EXPECT_EQ(r.failure().kind, FailureKind::Other);
  }
  EXPECT_EQ(root(rational(2), Int(0)).failure().kind, FailureKind::Range);
  EXPECT_EQ(root(rational(2), Int(kMaxRootIndex + 1)).failure().kind, FailureKind::Range);
  EXPECT_EQ(kth_root(7, 1), rational(7));
  // Nested roots: sqrt(sqrt(2))^4 = 2, and the fourth root of 16 is 2.
  const AlgebraicNumber r = *root(kth_root(2, 2), Int(2));
  EXPECT_EQ(r.to_f64(), std::pow(2.0, 0.25));
  std::vector<AlgebraicNumber> pair = {*r.pow(Int(4)), rational(2)};
  ASSERT_TRUE(unify(pair).ok());
  EXPECT_EQ(pair[0], pair[1]);
  EXPECT_EQ(kth_root(16, 4).to_f64(), 2.0);
}

TEST(CommonRoot, FindsTheSecondGenerator) {
  // sqrt 8 in Q(sqrt 2): y^2 - 8 against q(S(y)) with q(t) = t and S = y - 2x, so the gcd is
  // y - 2 sqrt 2.
  const FieldRef f = field(poly({-2, 0, 1}), q(1), q(2));
  const auto found = common_root(f, poly({-8, 0, 1}), poly({0, 1}), {QPoly::monomial(q(-2), 1), poly({1})});
  ASSERT_TRUE(found.ok());
  ASSERT_TRUE(found->has_value());
  EXPECT_EQ(**found, AlgebraicNumber::from_polynomial(f, poly({0, 2})));
  // y^2 - 3 has no root in Q(sqrt 2) in common with y^2 - 3 itself: the gcd is quadratic.
  const auto none = common_root(f, poly({-3, 0, 1}), poly({-3, 0, 1}), {QPoly(), poly({1})});
  ASSERT_TRUE(none.ok());
  EXPECT_FALSE(none->has_value());
}

// Many workers take signs and floats of numbers that share one field; every answer must be the
// one a single thread gets on a field of its own.
TEST(NumberField, ConcurrentSignsAndFloatsAgree) {
  auto numbers_in = [](const FieldRef& f) {
    Numbers source{f};
    std::vector<AlgebraicNumber> xs;
    for (int i = 0; i < 400; ++i) xs.push_back(source.next());
    return xs;
  };
  const QPoly m = poly({1, 0, -10, 0, 1});
  const std::vector<AlgebraicNumber> alone = numbers_in(field(m, q(3), q(4)));
  std::vector<int> expected_signs;
  std::vector<double> expected_floats;
  for (const AlgebraicNumber& x : alone) {
    expected_signs.push_back(sub(x, rational(1, 7))->sign());
    expected_floats.push_back(x.to_f64());
  }
  const std::vector<AlgebraicNumber> shared = numbers_in(field(m, q(3), q(4)));
  std::vector<int> signs(shared.size() * 4);
  std::vector<double> floats(shared.size() * 4);
  // The two atomics also show the start and the join of the loop to a race detector, which
  // cannot see into the pool's own synchronisation.
  std::atomic<bool> published{false};
  std::atomic<std::size_t> finished{0};
  published.store(true, std::memory_order_release);
  pool::for_each_task(signs.size(), [&](std::size_t i) {
    ASSERT_TRUE(published.load(std::memory_order_acquire));
    const AlgebraicNumber& x = shared[i % shared.size()];
    signs[i] = sub(x, rational(1, 7))->sign();
    floats[i] = x.to_f64();
    finished.fetch_add(1, std::memory_order_release);
  });
  ASSERT_EQ(finished.load(std::memory_order_acquire), signs.size());
  for (std::size_t i = 0; i < signs.size(); ++i) {
    EXPECT_EQ(signs[i], expected_signs[i % shared.size()]) << i;
    EXPECT_EQ(floats[i], expected_floats[i % shared.size()]) << i;
  }
  // Unifications of disjoint pairs whose fields are shared refine those fields concurrently.
  const AlgebraicNumber cube_root = kth_root(3, 3);
  std::vector<double> sums(shared.size() / 8);
  published.store(true, std::memory_order_release);
  finished.store(0);
  pool::for_each_task(sums.size(), [&](std::size_t i) {
    ASSERT_TRUE(published.load(std::memory_order_acquire));
    std::vector<AlgebraicNumber> pair = {shared[i], cube_root};
    ASSERT_TRUE(unify(pair).ok());
    sums[i] = (pair[0] + pair[1]).to_f64();
    finished.fetch_add(1, std::memory_order_release);
  });
  ASSERT_EQ(finished.load(std::memory_order_acquire), sums.size());
  for (std::size_t i = 0; i < sums.size(); i += 7) {
    std::vector<AlgebraicNumber> pair = {alone[i], kth_root(3, 3)};
    ASSERT_TRUE(unify(pair).ok());
    EXPECT_EQ(sums[i], (pair[0] + pair[1]).to_f64()) << i;
  }
}

}  // namespace
}  // namespace tv
