// Number fields Q(alpha) and the arithmetic of their numbers.
//
// The maths: alpha is pinned down by a square-free min_poly m of degree d and an interval
// [lo, hi] holding exactly one root of m (counted by Sturm sequences). A number is p(alpha)
// with deg p < d. Products reduce x^k for k >= d through the table x^k mod m; inverses come
// from a Bezout identity s m + t p = g, which for a constant g makes t/g the inverse of p.
//
// For signs the field keeps bounds L_k <= alpha^k <= U_k, built from [lo, hi] by interval
// multiplication, so the enclosure of sum c_k alpha^k is sum of c_k L_k or c_k U_k by the sign
// of c_k. Bisection of [lo, hi] narrows every enclosure; a number that is not zero has a
// positive distance from zero, so the loop that refines until zero leaves the enclosure ends.
//
// A min_poly made by `root` may factor. Then Q[x]/(m) is a ring and p(alpha) can vanish while
// p is not zero: exactly when gcd(p, m) has alpha as a root, which the interval tells, since
// it isolates alpha among all roots of m. sign() and inverse() check that in such a ring
// instead of refining forever or refusing a non-zero divisor.
#include "exact.hpp"

#include "interrupt.hpp"
#include "num/residue_ring.hpp"
#include "num/sturm.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <exception>
#include <mutex>
#include <utility>

namespace tv {

// ---------------------------------------------------------------------------------------------
// The lock.

FieldLock::Reader::Reader(const FieldLock& lock) : guard_(lock.mutex_) {
  if (lock.poisoned_) fail_invariant("field lock poisoned");
}

FieldLock::Writer::Writer(const FieldLock& lock)
    : lock_(&lock), guard_(lock.mutex_), exceptions_at_entry_(std::uncaught_exceptions()) {
  if (lock.poisoned_) fail_invariant("field lock poisoned");
}

FieldLock::Writer::~Writer() {
  // Unwinding through a writer may have left the interval half written.
  if (std::uncaught_exceptions() > exceptions_at_entry_) lock_->poisoned_ = true;
}

// ---------------------------------------------------------------------------------------------
// Fields.

namespace {

// The number of roots of a square-free p in [lo, hi].
Result<std::uint64_t> roots_between(const QPoly& p, const Fraction& lo, const Fraction& hi) {
  TV_TRY(SturmChain chain, SturmChain::of(p));
  return chain.count(lo, hi);
}

std::vector<QPoly> reduction_table(const QPoly& min_poly) {
  const std::int64_t d = min_poly.degree();
  std::vector<QPoly> table;
  table.reserve(static_cast<std::size_t>(2 * d + 1));
  for (std::int64_t k = 0; k < d; ++k) table.push_back(QPoly::monomial(Fraction(1), static_cast<std::size_t>(k)));
  const QPoly x = QPoly::monomial(Fraction(1), 1);
  for (std::int64_t k = d; k <= 2 * d; ++k) {
    auto reduced = rem(table.back() * x, min_poly);
    TV_ENSURE(reduced.ok(), "min_poly is not zero");
    table.push_back(std::move(reduced).value());
  }
  return table;
}

// The integers n_k and the least common denominator l with c_k = n_k / l.
Int over_common_denominator(const std::vector<Fraction>& c, std::vector<Int>& numerators) {
  Int l(1);
  for (const Fraction& x : c)
    if (!x.is_integer() && !rem(l, x.denominator()).is_zero()) l = div(l, gcd(l, x.denominator())) * x.denominator();
  numerators.clear();
  for (const Fraction& x : c)
    numerators.push_back(l.is_one() ? x.numerator() : x.numerator() * div(l, x.denominator()));
  return l;
}

}  // namespace

NumberField::NumberField(QPoly min_poly, ZPoly integer_form, Fraction lo, Fraction hi, bool irreducible)
    : min_poly_(std::move(min_poly)),
      integer_form_(std::move(integer_form)),
      reduction_(reduction_table(min_poly_)),
      irreducible_(irreducible),
      lo_(std::move(lo)),
      hi_(std::move(hi)) {
  const std::size_t d = static_cast<std::size_t>(degree());
  std::vector<Fraction> entries;
  for (std::size_t k = d; k < reduction_.size(); ++k) {
    std::vector<Fraction> row = reduction_[k].coefficients();
    row.resize(d);
    entries.insert(entries.end(), row.begin(), row.end());
  }
  std::vector<Int> numerators;
  reduction_denominator_ = over_common_denominator(entries, numerators);
  for (std::size_t k = 0; k < numerators.size(); k += d)
    reduction_numerators_.emplace_back(numerators.begin() + static_cast<std::ptrdiff_t>(k),
                                       numerators.begin() + static_cast<std::ptrdiff_t>(k + d));
}

Result<FieldRef> NumberField::make(QPoly min_poly, Fraction lo, Fraction hi, bool irreducible) {
  const Failure no_single_root = other_failure("Interval must contain exactly one root");
  if (min_poly.degree() < 1 || lo > hi) return no_single_root;
  TV_TRY(SturmChain chain, SturmChain::of(min_poly));
  if (chain.count(lo, hi) != 1) return no_single_root;
  const bool linear = min_poly.degree() == 1;
  // The constructor is private, so make_shared cannot reach it.
  FieldRef field(new NumberField(std::move(min_poly), chain.integer_form(), std::move(lo), std::move(hi),
                                 irreducible || linear));
  field->rebuild_power_bounds(2);
  return field;
}

const FieldRef& rational_field() {
  static const FieldRef field = [] {
    auto made = NumberField::make(QPoly({Fraction(-1), Fraction(1)}), Fraction(1), Fraction(1), true);
    TV_ENSURE(made.ok(), "QQ_nothing is well-formed");
    return std::move(made).value();
  }();
  return field;
}

Interval NumberField::interval() const {
  FieldLock::Reader reader(lock_);
  return {lo_, hi_};
}

// Bounds on alpha^k for k up to `count` - 1, from the present interval; entry k comes from
// entry k - 1 times [lo, hi], so a prefix is the same whatever length is asked for.
void NumberField::rebuild_power_bounds(std::size_t count) const {
  FieldLock::Writer writer(lock_);
  count = std::max(count, lower_powers_.size());
  std::vector<Fraction> lower{Fraction(1)}, upper{Fraction(1)};
  lower.reserve(count);
  upper.reserve(count);
  for (std::size_t k = 1; k < count; ++k) {
    const Fraction products[4] = {lower[k - 1] * lo_, lower[k - 1] * hi_, upper[k - 1] * lo_, upper[k - 1] * hi_};
    lower.push_back(*std::min_element(std::begin(products), std::end(products)));
    upper.push_back(*std::max_element(std::begin(products), std::end(products)));
  }
  lower_powers_ = std::move(lower);
  upper_powers_ = std::move(upper);
}

namespace {

// f(X / 2^bits) 2^(bits d) for an integer polynomial f of degree d: Horner's rule over the
// non-zero terms only (a gap of g zeros is one power X^g), every coefficient scaled by the
// power of 2^bits that its term lacks, so all of it is integers.
Int scaled_value(const std::vector<Int>& f, const Int& x, std::uint64_t bits) {
  const std::size_t d = f.size() - 1;
  Int acc = f[d];
  std::size_t last = d;  // the degree of the last term added
  for (std::size_t k = d; k-- > 0;) {
    if (f[k].is_zero()) continue;
    acc = acc * x.pow(static_cast<std::uint32_t>(last - k)) + f[k].shifted_left(bits * (d - k));
    last = k;
  }
  return last == 0 ? acc : acc * x.pow(static_cast<std::uint32_t>(last));
}

Fraction fixed_point(const Int& x, std::uint64_t bits) { return Fraction::of(x, Int(1).shifted_left(bits)); }

// A bracket of width at most 2^(2 - bits) around the one root of the square-free f in
// `isolating`, by Newton's method on x = X / 2^bits; its ends are checked by exact signs, so it
// is a bracket whatever the iteration did. Nothing when Newton leaves the interval, stalls or
// does not settle, which happens when the interval is still wide compared with the distance to
// the nearest other root.
std::optional<Interval> newton_bracket(const ZPoly& f, const Interval& isolating, std::uint64_t bits) {
  const std::vector<Int>& a = f.coefficients();
  const std::vector<Int> slope = f.derivative().coefficients();
  const Int scale = Int(1).shifted_left(bits);
  const auto floor_of = [&](const Fraction& x) { return div(x.numerator() * scale, x.denominator()); };
  const Int low = floor_of(isolating.lo) - Int(1), high = floor_of(isolating.hi) + Int(1);
  Int x = floor_of(midpoint(isolating.lo, isolating.hi));
  // Newton doubles the correct bits each step once it is close; a step of at most one unit
  // means X is within a few units of the root. Steps that stop shrinking fast mean it is not
  // close (or the root has a near neighbour): give up early, the caller bisects.
  Int previous_step;
  for (std::uint64_t step = 0; step < 2 * std::uint64_t{std::bit_width(bits)} + 8; ++step) {
    const Int value = scaled_value(a, x, bits);
    if (value.is_zero()) {
      // A rational root; it is alpha only inside the isolating interval.
      const Fraction root = fixed_point(x, bits);
      if (root < isolating.lo || root > isolating.hi) return std::nullopt;
      return Interval{root, root};
    }
    // f'(X / 2^bits) 2^(bits (d - 1)), so the quotient is f / f' in units of 2^-bits.
    const Int derivative = scaled_value(slope, x, bits);
    if (derivative.is_zero()) return std::nullopt;
    const Int delta = div(value, derivative);
    if (step >= 2 && compare(delta.abs().shifted_left(1), previous_step) > 0) return std::nullopt;
    previous_step = delta.abs();
    x = x - delta;
    if (x < low || x > high) return std::nullopt;
    if (compare(delta.abs(), Int(1)) <= 0) {
      const Fraction lo = std::max(fixed_point(x - Int(2), bits), isolating.lo);
      const Fraction hi = std::min(fixed_point(x + Int(2), bits), isolating.hi);
      const int sign_lo = sign_at(f, lo), sign_hi = sign_at(f, hi);
      if (sign_lo == 0) return Interval{lo, lo};
      if (sign_hi == 0) return Interval{hi, hi};
      if (sign_lo == sign_hi) return std::nullopt;
      return Interval{lo, hi};
    }
  }
  return std::nullopt;
}

}  // namespace

std::uint64_t NumberField::precision() const {
  const Interval i = interval();
  if (i.lo == i.hi) return 0;
  const Fraction width = i.hi - i.lo;
  const std::uint64_t num = width.numerator().bit_length(), den = width.denominator().bit_length();
  return den > num ? den - num : 0;
}

bool NumberField::narrow(std::uint64_t bits) const {
  const Interval snapshot = interval();
  if (snapshot.lo == snapshot.hi) return true;
  // Newton from the middle of an interval that is wide next to its ends ([0, 10^301] around
  // 10^0.301) would crawl; bisection is cheaper there.
  const Fraction reach = std::max({Fraction(1), snapshot.lo.abs(), snapshot.hi.abs()});
  if ((snapshot.hi - snapshot.lo) * Fraction(16) > reach) return false;
  const auto bracket = newton_bracket(integer_form_, snapshot, bits);
  if (!bracket) return false;
  {
    // Both intervals hold alpha, so their intersection does, whatever other writers did since.
    FieldLock::Writer writer(lock_);
    if (bracket->lo > lo_) lo_ = bracket->lo;
    if (bracket->hi < hi_) hi_ = bracket->hi;
  }
  rebuild_power_bounds(0);
  return true;
}

void NumberField::refine() const {
  const Interval snapshot = interval();
  if (snapshot.lo == snapshot.hi) return;
  // Evaluations run without the lock; the result is valid for the snapshot whatever other
  // writers do meanwhile, since each assignment below only ever names a bound of alpha.
  const Fraction m = midpoint(snapshot.lo, snapshot.hi);
  const int sign_lo = sign_at(integer_form_, snapshot.lo);
  const bool root_at_hi = sign_at(integer_form_, snapshot.hi) == 0;
  const int sign_m = sign_at(integer_form_, m);
  {
    FieldLock::Writer writer(lock_);
    if (sign_lo == 0) {
      lo_ = hi_ = snapshot.lo;
    } else if (root_at_hi) {
      lo_ = hi_ = snapshot.hi;
    } else if (sign_m == 0) {
      lo_ = hi_ = m;
    } else if (sign_m != sign_lo) {
      hi_ = m;
    } else {
      lo_ = m;
    }
  }
  rebuild_power_bounds(0);
}

Interval NumberField::enclose(const QPoly& p) const {
  // Bounds are built up to the highest power that a number has asked for, not to the degree:
  // a field of degree 1000 whose generator alone is looked at keeps two entries.
  const auto& c = p.coefficients();
  while (true) {
    {
      FieldLock::Reader reader(lock_);
      if (c.size() <= lower_powers_.size()) return enclose_with_bounds(c);
    }
    rebuild_power_bounds(c.size());
  }
}

// Under the read lock, with bounds for every power of c.
Interval NumberField::enclose_with_bounds(const std::vector<Fraction>& c) const {
  Fraction low, high;
  for (std::size_t k = 0; k < c.size(); ++k) {
    const int s = c[k].sign();
    if (s == 0) continue;
    low.add_assign(c[k] * (s > 0 ? lower_powers_[k] : upper_powers_[k]), false);
    high.add_assign(c[k] * (s > 0 ? upper_powers_[k] : lower_powers_[k]), false);
  }
  low.normalise();
  high.normalise();
  return {std::move(low), std::move(high)};
}

std::string NumberField::text() const {
  const Interval bounds = interval();
  return "Q(root of " + polynomial_text(min_poly_) + " in [" + bounds.lo.to_string() + "," + bounds.hi.to_string() + "])";
}

std::vector<std::shared_ptr<const FieldMerge>> NumberField::merges() const {
  FieldLock::Reader reader(lock_);
  return merges_;
}

void NumberField::remember_merge(std::shared_ptr<const FieldMerge> merge) const {
  FieldLock::Writer writer(lock_);
  std::erase_if(merges_, [](const auto& m) { return m->other.expired(); });
  merges_.push_back(std::move(merge));
}

Result<bool> equals(const FieldRef& f, const FieldRef& g) {
  if (f == g) return true;
  if (!(f->min_poly() == g->min_poly())) return false;
  const Interval a = f->interval(), b = g->interval();
  const Fraction& lo = std::max(a.lo, b.lo);
  const Fraction& hi = std::min(a.hi, b.hi);
  if (lo > hi) return false;
  TV_TRY(std::uint64_t roots, roots_between(f->min_poly(), lo, hi));
  return roots == 1;
}

// ---------------------------------------------------------------------------------------------
// Numbers.

namespace {

// Whether p(alpha) = 0 for a non-zero p: gcd(p, m) must have a root in the isolating interval.
// Over an irreducible m the gcd is constant for every non-zero p.
Result<bool> vanishes_at_generator(const NumberField& field, const QPoly& p) {
  TV_TRY(QPoly g, gcd(field.min_poly(), p));
  if (g.degree() < 1) return false;
  const Interval bounds = field.interval();
  TV_TRY(std::uint64_t roots, roots_between(g, bounds.lo, bounds.hi));
  return roots > 0;
}

struct Bezout {
  QPoly gcd;
  QPoly coefficient_of_b;  // t in s a + t b = gcd
};

// The extended Euclidean algorithm over the rationals.
Result<Bezout> extended_euclid(const QPoly& a, const QPoly& b) {
  QPoly r0 = a, r1 = b;
  QPoly t0, t1 = QPoly::constant(Fraction(1));
  while (!r1.is_zero()) {
    TV_CHECK(check_interrupt());
    TV_TRY(auto qr, divrem(r0, r1));
    r0 = std::exchange(r1, std::move(qr.remainder));
    t0 = std::exchange(t1, t0 - qr.quotient * t1);
  }
  return Bezout{std::move(r0), std::move(t0)};
}

AlgebraicNumber checked(Result<AlgebraicNumber> result) {
  if (!result.ok()) fail_invariant("numbers without a common field: " + result.failure().message);
  return std::move(result).value();
}

}  // namespace

AlgebraicNumber AlgebraicNumber::from_polynomial(FieldRef field, const QPoly& p) {
  if (p.degree() >= field->degree()) {
    auto reduced = rem(p, field->min_poly());
    TV_ENSURE(reduced.ok(), "min_poly is not zero");
    return AlgebraicNumber(std::move(reduced).value(), std::move(field));
  }
  std::vector<Fraction> c = p.coefficients();
  for (Fraction& x : c) x.normalise();
  return AlgebraicNumber(QPoly(std::move(c)), std::move(field));
}

AlgebraicNumber AlgebraicNumber::constant(FieldRef field, Fraction c) {
  c.normalise();
  return AlgebraicNumber(QPoly::constant(std::move(c)), std::move(field));
}

AlgebraicNumber AlgebraicNumber::generator(FieldRef field) {
  return from_polynomial(field, QPoly::monomial(Fraction(1), 1));
}

AlgebraicNumber AlgebraicNumber::substitute(const AlgebraicNumber& image) const {
  const auto& c = coefficients();
  AlgebraicNumber acc = zero(image.field());
  for (std::size_t k = c.size(); k-- > 0;) acc = acc * image + constant(image.field(), c[k]);
  return acc;
}

Result<FieldRef> common_field(const AlgebraicNumber& a, const AlgebraicNumber& b) {
  TV_TRY(bool same, equals(a.field(), b.field()));
  if (same) return a.field();
  if (a.field()->degree() == 1) return b.field();
  if (b.field()->degree() == 1) return a.field();
  return range_failure("AlgebraicNumbers must have same field (" + a.field()->text() + " != " + b.field()->text() + ")");
}

Result<AlgebraicNumber> add(const AlgebraicNumber& a, const AlgebraicNumber& b) {
  TV_TRY(FieldRef field, common_field(a, b));
  return AlgebraicNumber::from_polynomial(std::move(field), a.polynomial() + b.polynomial());
}

Result<AlgebraicNumber> sub(const AlgebraicNumber& a, const AlgebraicNumber& b) {
  TV_TRY(FieldRef field, common_field(a, b));
  return AlgebraicNumber::from_polynomial(std::move(field), a.polynomial() - b.polynomial());
}

namespace {

bool has_word_parts(const std::vector<Fraction>& c) {
  return std::all_of(c.begin(), c.end(), [](const Fraction& x) { return x.numerator().is_small() && x.denominator().is_small(); });
}

// The product over integers: both operands over their least common denominators, the
// convolution and the reduction summed without a gcd, and one gcd per coefficient at the end,
// where the rational path takes one per product and per sum.
AlgebraicNumber mul_over_integers(const FieldRef& field, const std::vector<Fraction>& x, const std::vector<Fraction>& y) {
  const std::size_t d = static_cast<std::size_t>(field->degree());
  std::vector<Int> xn, yn;
  const Int denominator = over_common_denominator(x, xn) * over_common_denominator(y, yn) * field->reduction_denominator();
  IntAccumulator sum;
  std::vector<Int> convolution(x.size() + y.size() - 1);
  for (std::size_t k = 0; k < convolution.size(); ++k) {
    const std::size_t first = k >= y.size() ? k - y.size() + 1 : 0;
    for (std::size_t i = first; i <= std::min(k, x.size() - 1); ++i) sum.add_product(xn[i], yn[k - i]);
    convolution[k] = sum.take();
  }
  const auto& table = field->reduction_numerators();
  const Int& scale = field->reduction_denominator();
  std::vector<Fraction> out;
  out.reserve(d);
  for (std::size_t j = 0; j < d; ++j) {
    if (j < convolution.size()) sum.add_product(convolution[j], scale);
    for (std::size_t k = d; k < convolution.size(); ++k) sum.add_product(convolution[k], table[k - d][j]);
    out.push_back(Fraction::of(sum.take(), denominator));
  }
  return AlgebraicNumber::from_polynomial(field, QPoly(std::move(out)));
}

// x times a rational: no reduction, and each product reduced crosswise.
AlgebraicNumber scaled(const FieldRef& field, const AlgebraicNumber& x, const Fraction& r) {
  if (r.is_one()) return AlgebraicNumber::from_polynomial(field, x.polynomial());
  std::vector<Fraction> out;
  out.reserve(x.coefficients().size());
  for (const Fraction& c : x.coefficients()) out.push_back(c * r);
  return AlgebraicNumber::from_polynomial(field, QPoly(std::move(out)));
}

}  // namespace

Result<AlgebraicNumber> mul(const AlgebraicNumber& a, const AlgebraicNumber& b) {
  TV_TRY(FieldRef field, common_field(a, b));
  if (a.is_zero() || b.is_zero()) return AlgebraicNumber::zero(std::move(field));
  if (a.degree() == 0 || b.degree() == 0) return scaled(field, a.degree() == 0 ? b : a, (a.degree() == 0 ? a : b).coefficients()[0]);
  if (!has_word_parts(a.coefficients()) || !has_word_parts(b.coefficients()))
    return mul_over_integers(field, a.coefficients(), b.coefficients());
  const auto& x = a.coefficients();
  const auto& y = b.coefficients();
  const std::size_t d = static_cast<std::size_t>(field->degree());
  const std::vector<QPoly>& table = field->reduction();
  std::vector<Fraction> acc(d);
  for (std::size_t k = 0; k < x.size() + y.size() - 1; ++k) {
    const std::size_t first = k >= y.size() ? k - y.size() + 1 : 0;
    const std::size_t last = std::min(k, x.size() - 1);
    Fraction s = x[first] * y[k - first];
    for (std::size_t i = first + 1; i <= last; ++i) s += x[i] * y[k - i];
    if (k < d) {
      acc[k] = std::move(s);
    } else if (!s.is_zero()) {
      const auto& power = table[k].coefficients();
      for (std::size_t j = 0; j < power.size(); ++j) acc[j].add_assign(s * power[j], false);
    }
  }
  for (Fraction& c : acc) c.normalise();
  return AlgebraicNumber::from_polynomial(std::move(field), QPoly(std::move(acc)));
}

namespace {

// The inverse of a non-zero number of an irreducible field, read back from word primes. At a
// usable prime (residue_ring.hpp) where the image of a is a unit, a is a unit of Z_(p)[alpha]
// (a finite algebra over Z_(p), so a unit modulo p is a unit), and the image of its inverse is
// the inverse of its image. A reading that two primes in a row agree on is checked by one
// product.
Result<AlgebraicNumber> inverse_by_primes(const AlgebraicNumber& a) {
  const FieldRef& field = a.field();
  residue::RationalLift lift(static_cast<std::size_t>(field->degree()));
  std::optional<std::vector<Fraction>> reading;
  for (std::size_t i = 0;; ++i) {
    TV_CHECK(check_interrupt());
    const auto ring = residue::ResidueRing::of(field->min_poly(), residue::word_prime(i));
    if (!ring) continue;
    const auto image = ring->reduce(a.polynomial());
    if (!image) continue;
    const auto inverse = ring->inverse(*image);
    if (!inverse) continue;
    lift.add(*inverse, ring->prime());
    auto next = lift.rationals();
    const bool settled = next && reading && *next == *reading;
    reading = std::move(next);
    if (!settled) continue;
    AlgebraicNumber candidate = AlgebraicNumber::from_polynomial(field, QPoly(*reading));
    if ((a * candidate).polynomial() == QPoly::constant(Fraction(1))) return candidate;
    reading.reset();
  }
}

// Whether primes beat the Euclidean algorithm over the rationals, whose cost grows with the
// square of the sizes: measured, primes win from about 100 bits times the degree up (each
// prime costs a fixed amount, a few microseconds, however small the number).
bool worth_primes(const AlgebraicNumber& a) {
  std::uint64_t bits = 0;
  for (const Fraction& c : a.coefficients())
    bits = std::max({bits, c.numerator().bit_length(), c.denominator().bit_length()});
  return bits * static_cast<std::uint64_t>(a.field()->degree()) >= 100;
}

}  // namespace

Result<AlgebraicNumber> AlgebraicNumber::inverse() const {
  if (field_->irreducible() && degree() >= 1 && worth_primes(*this)) return inverse_by_primes(*this);
  // Over an irreducible m the gcd of m and a non-zero p is constant. In a ring it may be a
  // factor of m without alpha among its roots; then p(alpha) is not zero, and p is inverted
  // modulo the part of m that keeps alpha.
  QPoly modulus = field_->min_poly();
  while (true) {
    TV_TRY(Bezout bezout, extended_euclid(modulus, polynomial_));
    if (bezout.gcd.degree() == 0) {
      TV_TRY(QPoly t, div_exact(bezout.coefficient_of_b, bezout.gcd));
      return from_polynomial(field_, t);
    }
    if (field_->irreducible() || is_zero()) return range_failure("Division by zero: " + text());
    const Interval bounds = field_->interval();
    TV_TRY(std::uint64_t roots, roots_between(bezout.gcd, bounds.lo, bounds.hi));
    if (roots > 0) return range_failure("Division by zero: " + text());
    TV_TRY(modulus, div_exact(modulus, bezout.gcd));
  }
}

Result<AlgebraicNumber> div(const AlgebraicNumber& a, const AlgebraicNumber& b) {
  TV_TRY(AlgebraicNumber inverse, b.inverse());
  return mul(a, inverse);
}

AlgebraicNumber AlgebraicNumber::neg() const { return AlgebraicNumber(-polynomial_, field_); }

Result<AlgebraicNumber> AlgebraicNumber::pow(const Int& exponent) const {
  if (exponent.sign() < 0) return range_failure("");
  AlgebraicNumber result = one(field_);
  AlgebraicNumber base = *this;
  Int e = exponent;
  const Int two(2);
  while (!e.is_zero()) {
    if (e.is_odd()) result = result * base;
    e = div(e, two);
    if (!e.is_zero()) base = base * base;
  }
  return result;
}

bool equal(const AlgebraicNumber& a, const AlgebraicNumber& b) {
  if (a.field() != b.field() && !common_field(a, b).ok()) return false;
  return a.polynomial() == b.polynomial();
}

AlgebraicNumber operator+(const AlgebraicNumber& a, const AlgebraicNumber& b) { return checked(add(a, b)); }
AlgebraicNumber operator-(const AlgebraicNumber& a, const AlgebraicNumber& b) { return checked(sub(a, b)); }
AlgebraicNumber operator*(const AlgebraicNumber& a, const AlgebraicNumber& b) { return checked(mul(a, b)); }
bool operator==(const AlgebraicNumber& a, const AlgebraicNumber& b) { return equal(a, b); }

Interval AlgebraicNumber::enclosure() const {
  if (is_zero()) return {Fraction(), Fraction()};
  return field_->enclose(polynomial_);
}

namespace {

// Narrows a field round by round for a loop that waits for an enclosure to settle: each round
// asks Newton's method for twice the bits the interval has (at least 16 more), so that a number
// within 2^-n of zero is decided after about log2(n) rounds rather than n bisections. Where
// Newton does not settle (the interval is still wide next to another root), the next few
// rounds bisect.
class Narrowing {
 public:
  explicit Narrowing(const NumberField& field) : field_(field) {}
  void round() {
    if (bisections_left_ > 0) {
      --bisections_left_;
      return field_.refine();
    }
    const std::uint64_t bits = field_.precision();
    if (!field_.narrow(std::max(2 * bits, bits + 16))) {
      field_.refine();
      // Each failure waits twice as long before Newton is tried again, so failing attempts
      // cost at most a constant factor over plain bisection.
      bisections_left_ = std::min(8 << failures_, 1024) - 1;
      failures_ = std::min(failures_ + 1, 8);
    }
  }

 private:
  const NumberField& field_;
  int bisections_left_ = 0;
  int failures_ = 0;
};

}  // namespace

int AlgebraicNumber::sign() const {
  if (is_zero()) return 0;
  bool checked_for_zero = field_->irreducible();
  Narrowing narrowing(*field_);
  while (true) {
    const Interval bounds = enclosure();
    const int low = bounds.lo.sign(), high = bounds.hi.sign();
    if (low == high) return low;
    if (!checked_for_zero) {
      checked_for_zero = true;
      auto vanishes = vanishes_at_generator(*field_, polynomial_);
      TV_ENSURE(vanishes.ok(), "gcd with a non-zero min_poly");
      if (vanishes.value()) return 0;
    }
    narrowing.round();
  }
}

namespace {

Fraction midpoint_of(const Fraction& a, const Fraction& b) { return (a + b) * Fraction::of(Int(1), Int(2)); }

// A finite double, or 2^1024 for an infinity (where rounding to infinity starts to count), as
// an exact fraction.
Fraction exact_value(double x) {
  if (std::isinf(x)) return Fraction(Int(x > 0 ? 1 : -1).shifted_left(1024));
  int exponent = 0;
  const double mantissa = std::frexp(x, &exponent);  // x = mantissa * 2^exponent, |mantissa| in [1/2, 1)
  const Int scaled(static_cast<std::int64_t>(std::ldexp(mantissa, 53)));  // exact: 53 bits
  const int shift = exponent - 53;
  if (shift >= 0) return Fraction(scaled.shifted_left(static_cast<std::uint64_t>(shift)));
  return Fraction::of(scaled, Int(1).shifted_left(static_cast<std::uint64_t>(-shift)));
}

}  // namespace

double AlgebraicNumber::to_f64() const {
  if (degree() <= 0) return is_zero() ? 0.0 : coefficients()[0].to_f64();
  // A number that is zero by value (in a ring from `root`) has no interval that leaves zero.
  Interval bounds = enclosure();
  if (bounds.lo.sign() != bounds.hi.sign()) {
    if (sign() == 0) return 0.0;
    bounds = enclosure();
  }
  Narrowing narrowing(*field_);
  while (true) {
    const double low = bounds.lo.to_f64(), high = bounds.hi.to_f64();
    if (low == high) return low;
    // Two neighbouring normal doubles: the value rounds to the one on its side of the boundary
    // between them, and to the boundary's own rounding when it is exactly the boundary (ties
    // to even). Refining alone would never decide a value that sits on the boundary.
    if (std::nextafter(low, high) == high && std::fabs(low) >= DBL_MIN && std::fabs(high) >= DBL_MIN) {
      const Fraction boundary = midpoint_of(exact_value(low), exact_value(high));
      auto side = sub(*this, AlgebraicNumber::constant(rational_field(), boundary));
      TV_ENSURE(side.ok(), "a rational has a common field with every number");
      const int s = side.value().sign();
      return s == 0 ? boundary.to_f64() : s > 0 ? high : low;
    }
    narrowing.round();
    bounds = enclosure();
  }
}

std::string AlgebraicNumber::text() const { return polynomial_text(polynomial_) + " in " + field_->text(); }

}  // namespace tv
