// Fraction: an exact rational over Int, kept in lowest terms with a positive denominator
// (zero is 0/1) after every public operation. Only add_assign without reduction leaves an
// unreduced accumulator, and equal() still compares such a value correctly.
#pragma once

#include <cstdint>
#include <string>

#include "failure.hpp"
#include "num/int.hpp"

namespace tv {

class Fraction {
 public:
  Fraction() : numerator_(0), denominator_(1) {}
  Fraction(Int integer) : numerator_(std::move(integer)), denominator_(1) {}
  Fraction(std::int64_t integer) : numerator_(integer), denominator_(1) {}
  Fraction(int integer) : numerator_(integer), denominator_(1) {}

  // n/d in lowest terms; "Division by zero" (kind Range) when d is zero.
  static Result<Fraction> make(Int n, Int d);
  // n/d for a d known to be non-zero; a zero d is a broken invariant.
  static Fraction of(Int n, Int d);

  const Int& numerator() const { return numerator_; }
  const Int& denominator() const { return denominator_; }

  int sign() const { return numerator_.sign(); }
  bool is_zero() const { return numerator_.is_zero(); }
  bool is_one() const { return numerator_.is_one() && denominator_.is_one(); }
  bool is_integer() const { return denominator_.is_one(); }

  void normalise();
  // this = this + other by the school formula; reduced only when `reduce` is set.
  void add_assign(const Fraction& other, bool reduce);

  friend Fraction operator+(const Fraction& a, const Fraction& b);
  friend Fraction operator-(const Fraction& a, const Fraction& b);
  friend Fraction operator*(const Fraction& a, const Fraction& b);
  Fraction operator-() const { return Fraction(-numerator_, denominator_); }
  Fraction abs() const { return Fraction(numerator_.abs(), denominator_); }
  Fraction& operator+=(const Fraction& b) { return *this = *this + b; }
  Fraction& operator-=(const Fraction& b) { return *this = *this - b; }
  Fraction& operator*=(const Fraction& b) { return *this = *this * b; }
  // "Division by zero" (kind Range) for a zero divisor.
  friend Result<Fraction> div(const Fraction& a, const Fraction& b);
  // 1/this; "Division by zero" for zero.
  Result<Fraction> inverse() const { return div(Fraction(1), *this); }
  // Square and multiply; a negative exponent fails with kind Range and an empty message.
  Result<Fraction> pow(const Int& exponent) const;
  Fraction pow(std::uint32_t exponent) const;

  friend int compare(const Fraction& a, const Fraction& b);
  // By value, also for unreduced accumulators.
  friend bool operator==(const Fraction& a, const Fraction& b);
  friend auto operator<=>(const Fraction& a, const Fraction& b) { return compare(a, b) <=> 0; }

  // The nearest double, ties to even.
  double to_f64() const;
  // "n" or "n/d".
  std::string to_string() const;
  // SipHash-1-3 with a zero key over numerator then denominator, capped at 2^64 - 2.
  std::uint64_t hash() const;

  // A short dyadic rational strictly between lo and hi (lo < hi), or lo when they are equal.
  friend Fraction midpoint(const Fraction& lo, const Fraction& hi);

 private:
  Fraction(Int n, Int d) : numerator_(std::move(n)), denominator_(std::move(d)) {}

  // Both parts in small form, the numerator not -2^63, so that it negates in a word.
  bool has_word_parts() const;
  // a/b + c/d and a/b * c/d in lowest terms, for b, d > 0 and every part above -2^63.
  static Fraction add_words(std::int64_t a, std::int64_t b, std::int64_t c, std::int64_t d);
  static Fraction mul_words(std::int64_t a, std::int64_t b, std::int64_t c, std::int64_t d);
  // x + y in lowest terms by the same steps on Ints of any size.
  static Fraction add_by_denominator_gcd(const Fraction& x, const Fraction& y);

  Int numerator_;
  Int denominator_;
};

}  // namespace tv
