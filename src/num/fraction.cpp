#include "num/fraction.hpp"

#include <cmath>

#include "num/siphash.hpp"

namespace tv {

Result<Fraction> Fraction::make(Int n, Int d) {
  if (d.is_zero()) return range_failure("Division by zero");
  return of(std::move(n), std::move(d));
}

Fraction Fraction::of(Int n, Int d) {
  TV_ENSURE(!d.is_zero(), "fraction(): zero denominator");
  if (d.sign() < 0) {
    n = -n;
    d = -d;
  }
  Fraction f(std::move(n), std::move(d));
  f.normalise();
  return f;
}

void Fraction::normalise() {
  if (denominator_.is_one()) return;
  if (numerator_.is_zero()) {
    denominator_ = Int(1);
    return;
  }
  const Int g = gcd(numerator_, denominator_);
  if (!g.is_one()) {
    numerator_ = div(numerator_, g);
    denominator_ = div(denominator_, g);
  }
}

// Sums and products of fractions whose parts fit 64 bits, in 128-bit integers. The gcd of the
// denominators comes first, as in GMP: with g = gcd(b, d), a/b + c/d has the numerator
// t = a (d/g) + c (b/g), which shares with b d / g only factors of g, so the one gcd left is
// gcd(t, g) on small numbers, and when g = 1 the sum is in lowest terms already. A product
// a/b * c/d is reduced by gcd(a, d) and gcd(c, b) before multiplying. Lowest terms are unique,
// so the results are those of the school formulas followed by normalise.
bool Fraction::has_word_parts() const {
  return numerator_.is_small() && denominator_.is_small() && numerator_.small() != INT64_MIN;
}

Fraction Fraction::add_words(std::int64_t a, std::int64_t b, std::int64_t c, std::int64_t d) {
  using Wide = __int128;
  const auto ub = static_cast<std::uint64_t>(b), ud = static_cast<std::uint64_t>(d);
  const std::uint64_t g = Int::binary_gcd(ub, ud);
  if (g == 1) return Fraction(Int::from_i128(Wide{a} * d + Wide{c} * b), Int::from_i128(Wide{b} * d));
  const auto b_g = static_cast<std::int64_t>(ub / g), d_g = static_cast<std::int64_t>(ud / g);
  const Wide t = Wide{a} * d_g + Wide{c} * b_g;
  if (t == 0) return Fraction();
  const Wide t_mod_g = t % static_cast<Wide>(g);
  const std::uint64_t h = Int::binary_gcd(static_cast<std::uint64_t>(t_mod_g < 0 ? -t_mod_g : t_mod_g), g);
  if (h == 1) return Fraction(Int::from_i128(t), Int::from_i128(Wide{b_g} * d));
  return Fraction(Int::from_i128(t / static_cast<Wide>(h)),
                  Int::from_i128(Wide{b_g} * static_cast<std::int64_t>(ud / h)));
}

Fraction Fraction::mul_words(std::int64_t a, std::int64_t b, std::int64_t c, std::int64_t d) {
  using Wide = __int128;
  if (a == 0 || c == 0) return Fraction();
  const std::uint64_t g1 = Int::binary_gcd(Int::magnitude(a), static_cast<std::uint64_t>(d));
  const std::uint64_t g2 = Int::binary_gcd(Int::magnitude(c), static_cast<std::uint64_t>(b));
  const auto s1 = static_cast<std::int64_t>(g1), s2 = static_cast<std::int64_t>(g2);
  return Fraction(Int::from_i128(Wide{a / s1} * (c / s2)), Int::from_i128(Wide{b / s2} * (d / s1)));
}

Fraction Fraction::add_by_denominator_gcd(const Fraction& x, const Fraction& y) {
  const Int g = gcd(x.denominator_, y.denominator_);
  if (g.is_one())
    return Fraction(x.numerator_ * y.denominator_ + y.numerator_ * x.denominator_, x.denominator_ * y.denominator_);
  const Int x_g = div(x.denominator_, g);
  const Int t = x.numerator_ * div(y.denominator_, g) + y.numerator_ * x_g;
  if (t.is_zero()) return Fraction();
  const Int h = gcd(t, g);
  if (h.is_one()) return Fraction(t, x_g * y.denominator_);
  return Fraction(div(t, h), x_g * div(y.denominator_, h));
}

void Fraction::add_assign(const Fraction& other, bool reduce) {
  numerator_ = numerator_ * other.denominator_ + denominator_ * other.numerator_;
  denominator_ = denominator_ * other.denominator_;
  if (reduce) normalise();
}

Fraction operator+(const Fraction& a, const Fraction& b) {
  if (a.has_word_parts() && b.has_word_parts())
    return Fraction::add_words(a.numerator_.small(), a.denominator_.small(), b.numerator_.small(),
                               b.denominator_.small());
  return Fraction::add_by_denominator_gcd(a, b);
}

Fraction operator-(const Fraction& a, const Fraction& b) {
  if (a.has_word_parts() && b.has_word_parts())
    return Fraction::add_words(a.numerator_.small(), a.denominator_.small(), -b.numerator_.small(),
                               b.denominator_.small());
  return a + (-b);
}

Fraction operator*(const Fraction& a, const Fraction& b) {
  if (a.has_word_parts() && b.has_word_parts())
    return Fraction::mul_words(a.numerator_.small(), a.denominator_.small(), b.numerator_.small(),
                               b.denominator_.small());
  Fraction r(a.numerator_ * b.numerator_, a.denominator_ * b.denominator_);
  r.normalise();
  return r;
}

Result<Fraction> div(const Fraction& a, const Fraction& b) {
  if (b.is_zero()) return range_failure("Division by zero");
  if (b.is_one()) {
    Fraction r = a;
    r.normalise();
    return r;
  }
  Int n = a.numerator_ * b.denominator_;
  Int d = a.denominator_ * b.numerator_;
  if (d.sign() < 0) {
    n = -n;
    d = -d;
  }
  Fraction r(std::move(n), std::move(d));
  r.normalise();
  return r;
}

Result<Fraction> Fraction::pow(const Int& exponent) const {
  if (exponent.sign() < 0) return range_failure("");
  Fraction result(1);
  Fraction base = *this;
  Int e = exponent;
  const Int two(2);
  while (!e.is_zero()) {
    if (e.is_odd()) result *= base;
    e = div(e, two);
    if (!e.is_zero()) base *= base;
  }
  return result;
}

Fraction Fraction::pow(std::uint32_t exponent) const {
  return Fraction(numerator_.pow(exponent), denominator_.pow(exponent));
}

int compare(const Fraction& a, const Fraction& b) {
  // Different signs decide at once; the denominators are positive.
  const int sa = a.sign(), sb = b.sign();
  if (sa != sb) return sa < sb ? -1 : 1;
  if (sa == 0) return 0;
  if (a.denominator_ == b.denominator_) return compare(a.numerator_, b.numerator_);
  if (a.numerator_.is_small() && a.denominator_.is_small() && b.numerator_.is_small() && b.denominator_.is_small()) {
    const __int128 left = __int128{a.numerator_.small()} * b.denominator_.small();
    const __int128 right = __int128{b.numerator_.small()} * a.denominator_.small();
    return (left > right) - (left < right);
  }
  return compare(a.numerator_ * b.denominator_, b.numerator_ * a.denominator_);
}

bool operator==(const Fraction& a, const Fraction& b) {
  if (a.is_zero() || b.is_zero()) return a.is_zero() && b.is_zero();
  if (a.denominator_ == b.denominator_) return a.numerator_ == b.numerator_;
  return a.numerator_ * b.denominator_ == b.numerator_ * a.denominator_;
}

double Fraction::to_f64() const {
  if (is_zero()) return 0.0;
  constexpr std::int64_t exact_limit = std::int64_t{1} << 53;
  if (numerator_.is_small() && denominator_.is_small() && numerator_.small() >= -exact_limit &&
      numerator_.small() <= exact_limit && denominator_.small() <= exact_limit) {
    // Both parts are exact doubles, and IEEE division rounds correctly.
    return static_cast<double>(numerator_.small()) / static_cast<double>(denominator_.small());
  }
  // |n/d| lies in [2^(e-1), 2^e). Keep 53 significant bits, or fewer where the result is
  // subnormal, so that q * 2^k is the one rounding: k = max(e - 53, -1074).
  const Int n = numerator_.abs();
  const Int& d = denominator_;
  std::int64_t e = static_cast<std::int64_t>(n.bit_length()) - static_cast<std::int64_t>(d.bit_length());
  const bool at_least_two_to_e = e >= 0 ? compare(n, d.shifted_left(e)) >= 0 : compare(n.shifted_left(-e), d) >= 0;
  if (at_least_two_to_e) e += 1;
  const std::int64_t k = std::max<std::int64_t>(e - 53, -1074);
  const Int scaled_n = k < 0 ? n.shifted_left(-k) : n;
  const Int scaled_d = k > 0 ? d.shifted_left(k) : d;
  Int q, r;
  divrem(scaled_n, scaled_d, q, r);
  const int half = compare(r + r, scaled_d);
  if (half > 0 || (half == 0 && q.is_odd())) q += Int(1);
  // q <= 2^53 is exact as a double, and ldexp overflows to infinity where it must.
  const double magnitude = std::ldexp(static_cast<double>(q.small()), static_cast<int>(std::min<std::int64_t>(k, 4096)));
  return sign() < 0 ? -magnitude : magnitude;
}

std::string Fraction::to_string() const {
  if (denominator_.is_one()) return numerator_.to_string();
  return numerator_.to_string() + "/" + denominator_.to_string();
}

std::uint64_t Fraction::hash() const {
  SipHasher13 hasher;
  numerator_.hash_into(hasher);
  denominator_.hash_into(hasher);
  return std::min<std::uint64_t>(hasher.finish(), UINT64_MAX - 1);
}

Fraction midpoint(const Fraction& lo, const Fraction& hi) {
  if (lo == hi) return lo;
  // The smallest p = 2^j with |hi - lo| > 1/p, that is, width numerator * p > width denominator.
  const Fraction width = (hi - lo).abs();
  const Int& wn = width.numerator();
  const Int& wd = width.denominator();
  std::uint64_t j = wd.bit_length() > wn.bit_length() ? wd.bit_length() - wn.bit_length() : 0;
  if (compare(wn.shifted_left(j), wd) <= 0) ++j;
  const Int p = Int(1).shifted_left(j);
  // The mean in units of 1/p, rounded to the nearest integer, halves away from zero.
  Fraction s = (lo + hi) * Fraction::of(p, Int(2));
  s = s + Fraction::of(Int(s.sign()), Int(2));
  const Int k = div(s.numerator(), s.denominator());
  return Fraction::of(k, p);
}

}  // namespace tv
