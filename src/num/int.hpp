// Int: an exact signed integer. A value in [-2^63, 2^63 - 1] is always held inline as a
// machine word (the small form); a larger one is an immutable, atomically reference-counted
// GMP integer (the big form), so copying it never copies digits. Every result is demoted to
// the small form when it fits, and equality, order and hashing go by value all the same.
//
// The small path of add, sub, mul, compare and gcd is inline and touches no heap.
#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <string>
#include <string_view>

#include <gmp.h>

#include "failure.hpp"

namespace tv {

class SipHasher13;

class Int {
 public:
  Int() = default;
  Int(std::int64_t value) : small_(value) {}
  Int(int value) : small_(value) {}
  static Int from_u64(std::uint64_t value);
  // The value of a 128-bit integer, small when it fits.
  static Int from_i128(__int128 value) {
    if (value >= INT64_MIN && value <= INT64_MAX) return Int(static_cast<std::int64_t>(value));
    return big_from_i128(value);
  }
  // The value of `value`, demoted when it fits.
  static Int from_mpz(const mpz_t value);
  // Decimal digits with an optional leading '-'; nothing else.
  static Result<Int> parse(std::string_view decimal);

  Int(const Int& other) : small_(other.small_), big_(other.big_) { retain(); }
  Int(Int&& other) noexcept : small_(other.small_), big_(other.big_) { other.big_ = nullptr; }
  Int& operator=(const Int& other) {
    if (this != &other) {
      other.retain();
      release();
      small_ = other.small_;
      big_ = other.big_;
    }
    return *this;
  }
  Int& operator=(Int&& other) noexcept {
    if (this != &other) {
      release();
      small_ = other.small_;
      big_ = other.big_;
      other.big_ = nullptr;
    }
    return *this;
  }
  ~Int() { release(); }

  bool is_small() const { return big_ == nullptr; }
  // The inline value; only meaningful when is_small().
  std::int64_t small() const { return small_; }
  // Copies the value into `out`, which must be initialised.
  void get_mpz(mpz_t out) const;

  int sign() const { return is_small() ? (small_ > 0) - (small_ < 0) : big_sign(); }
  bool is_zero() const { return is_small() && small_ == 0; }
  bool is_one() const { return is_small() && small_ == 1; }
  bool is_odd() const;
  // Number of bits of |value|; 0 for zero.
  std::uint64_t bit_length() const;

  friend Int operator+(const Int& a, const Int& b) {
    std::int64_t r;
    if (a.is_small() && b.is_small() && !__builtin_add_overflow(a.small_, b.small_, &r)) return Int(r);
    return big_add(a, b);
  }
  friend Int operator-(const Int& a, const Int& b) {
    std::int64_t r;
    if (a.is_small() && b.is_small() && !__builtin_sub_overflow(a.small_, b.small_, &r)) return Int(r);
    return big_sub(a, b);
  }
  friend Int operator*(const Int& a, const Int& b) {
    std::int64_t r;
    if (a.is_small() && b.is_small() && !__builtin_mul_overflow(a.small_, b.small_, &r)) return Int(r);
    return big_mul(a, b);
  }
  Int operator-() const {
    std::int64_t r;
    if (is_small() && !__builtin_sub_overflow(std::int64_t{0}, small_, &r)) return Int(r);
    return big_neg(*this);
  }
  Int abs() const { return sign() < 0 ? -*this : *this; }
  Int& operator+=(const Int& b) { return *this = *this + b; }
  Int& operator-=(const Int& b) { return *this = *this - b; }
  Int& operator*=(const Int& b) { return *this = *this * b; }

  // Truncating division; the divisor must be non-zero (callers check or hold a constant).
  friend Int div(const Int& a, const Int& b);
  // Remainder with the sign of the dividend: a = div(a, b) * b + rem(a, b).
  friend Int rem(const Int& a, const Int& b);
  friend void divrem(const Int& a, const Int& b, Int& quotient, Int& remainder);
  // Division that must leave no remainder: "Division by zero" or "Not divisible" otherwise.
  friend Result<Int> div_exact(const Int& a, const Int& b);
  // Non-negative; gcd(0, x) = |x|.
  friend Int gcd(const Int& a, const Int& b) {
    if (a.is_small() && b.is_small() && a.small_ != INT64_MIN && b.small_ != INT64_MIN)
      return Int(static_cast<std::int64_t>(binary_gcd(magnitude(a.small_), magnitude(b.small_))));
    return big_gcd(a, b);
  }
  Int pow(std::uint32_t exponent) const;
  Int shifted_left(std::uint64_t bits) const;
  static Int factorial(std::uint32_t n);
  static Int binomial(std::uint32_t n, std::uint32_t k);

  friend int compare(const Int& a, const Int& b) {
    if (a.is_small() && b.is_small()) return (a.small_ > b.small_) - (a.small_ < b.small_);
    return big_compare(a, b);
  }
  friend bool operator==(const Int& a, const Int& b) {
    if (a.is_small() && b.is_small()) return a.small_ == b.small_;
    return big_compare(a, b) == 0;
  }
  friend auto operator<=>(const Int& a, const Int& b) { return compare(a, b) <=> 0; }

  std::string to_string() const;
  // Feeds the hash: 8 little-endian bytes of a value that fits 64 bits; otherwise a word for
  // the sign (0 negative, 2 positive), a word for the count of 64-bit limbs, then the limbs,
  // least significant first.
  void hash_into(SipHasher13& hasher) const;

 private:
  friend struct IntOperand;
  friend class Fraction;
  friend class IntAccumulator;
  static Int big_from_i128(__int128 value);
  struct Big {
    std::atomic<std::uint32_t> references{1};
    mpz_t value;
  };

  static std::uint64_t magnitude(std::int64_t v) {
    return v < 0 ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
  }
  // The binary gcd of two numbers below 2^63: the common power of two stripped, then trailing
  // zeros shifted out and the smaller subtracted from the larger. The difference's trailing
  // zeros are counted before the minimum is taken, which shortens each step's chain of
  // dependent instructions.
  static std::uint64_t binary_gcd(std::uint64_t u, std::uint64_t v) {
    if (u == 0) return v;
    if (v == 0) return u;
    int u_zeros = __builtin_ctzll(u);
    const int shift = std::min(u_zeros, __builtin_ctzll(v));
    v >>= __builtin_ctzll(v);
    while (u != 0) {
      u >>= u_zeros;
      const std::int64_t difference = static_cast<std::int64_t>(v) - static_cast<std::int64_t>(u);
      u_zeros = std::countr_zero(static_cast<std::uint64_t>(difference));  // 64 for 0, which ends the loop
      v = std::min(u, v);
      u = static_cast<std::uint64_t>(difference < 0 ? -difference : difference);
    }
    return v << shift;
  }

  void retain() const {
    if (big_) big_->references.fetch_add(1, std::memory_order_relaxed);
  }
  void release() {
    if (big_ && big_->references.fetch_sub(1, std::memory_order_acq_rel) == 1) free_big(big_);
    big_ = nullptr;
  }
  static void free_big(Big* big);
  // Takes ownership of an initialised mpz (clearing it), demoting when it fits.
  static Int adopt(mpz_t value);

  int big_sign() const;
  // a operation b on the GMP path, demoted.
  static Int big_binary(const Int& a, const Int& b, void (*operation)(mpz_ptr, mpz_srcptr, mpz_srcptr));
  static Int big_add(const Int& a, const Int& b);
  static Int big_sub(const Int& a, const Int& b);
  static Int big_mul(const Int& a, const Int& b);
  static Int big_neg(const Int& a);
  static Int big_gcd(const Int& a, const Int& b);
  static int big_compare(const Int& a, const Int& b);

  std::int64_t small_ = 0;
  Big* big_ = nullptr;
};

// A sum of products of Ints, accumulated in one GMP integer without an Int per step: the inner
// loop of products of polynomials with large coefficients.
class IntAccumulator {
 public:
  IntAccumulator();
  ~IntAccumulator();
  IntAccumulator(const IntAccumulator&) = delete;
  IntAccumulator& operator=(const IntAccumulator&) = delete;

  // this += a * b.
  void add_product(const Int& a, const Int& b);
  // The sum so far; the accumulator starts again from zero.
  Int take();

 private:
  // this += a * s.
  void add_scaled(const Int& a, std::int64_t s);
  mpz_t sum_;
  mpz_t scratch_;
};

}  // namespace tv
