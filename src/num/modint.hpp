// ModInt: an integer modulo m, held as its value and its modulus, with 0 <= value < modulus
// after every operation. Polynomial<ModInt> is the polynomial ring over Z/m: its Context is the
// modulus, so that even its zero polynomial knows it.
//
// +, - and * are operators for the generic polynomial code; both operands must share one
// modulus, which within a computation is an invariant. Division multiplies by the inverse
// found by the extended Euclidean algorithm and is the one operation that can fail on values:
// "Not divisible" when the divisor has no inverse, "Numbers have different moduli" when the
// moduli differ. While the modulus fits in 62 bits every operation stays in machine words.
#pragma once

#include <cstdint>
#include <string>

#include "failure.hpp"
#include "num/int.hpp"
#include "num/polynomial.hpp"

namespace tv {

class ModInt {
 public:
  // Zero modulo 0; a placeholder only, never an operand.
  ModInt() = default;
  // value mod modulus, for any integer value; the modulus must be positive.
  ModInt(const Int& value, Int modulus);

  const Int& value() const { return value_; }
  const Int& modulus() const { return modulus_; }
  bool is_zero() const { return value_.is_zero(); }

  friend ModInt operator+(const ModInt& a, const ModInt& b) {
    same_modulus(a, b);
    if (a.is_word_sized()) {
      std::int64_t v = a.value_.small() + b.value_.small();
      if (v >= a.modulus_.small()) v -= a.modulus_.small();
      return ModInt(Reduced{}, Int(v), a.modulus_);
    }
    return ModInt(a.value_ + b.value_, a.modulus_);
  }
  friend ModInt operator-(const ModInt& a, const ModInt& b) {
    same_modulus(a, b);
    if (a.is_word_sized()) {
      std::int64_t v = a.value_.small() - b.value_.small();
      if (v < 0) v += a.modulus_.small();
      return ModInt(Reduced{}, Int(v), a.modulus_);
    }
    return ModInt(a.value_ - b.value_, a.modulus_);
  }
  friend ModInt operator*(const ModInt& a, const ModInt& b) {
    same_modulus(a, b);
    if (a.is_word_sized()) {
      const auto x = static_cast<std::uint64_t>(a.value_.small()), y = static_cast<std::uint64_t>(b.value_.small());
      const auto m = static_cast<std::uint64_t>(a.modulus_.small());
      // Below 2^32 the product fits one word, and a word division is much cheaper.
      const std::uint64_t r = m <= (std::uint64_t{1} << 32)
                                  ? x * y % m
                                  : static_cast<std::uint64_t>(static_cast<unsigned __int128>(x) * y % m);
      return ModInt(Reduced{}, Int(static_cast<std::int64_t>(r)), a.modulus_);
    }
    return ModInt(a.value_ * b.value_, a.modulus_);
  }
  ModInt operator-() const { return value_.is_zero() ? *this : ModInt(Reduced{}, modulus_ - value_, modulus_); }

  // The inverse of b times a; "Not divisible" (kind Division) when b has no inverse.
  friend Result<ModInt> div(const ModInt& a, const ModInt& b);
  // The u with u * this = 1; "Not divisible" (kind Division) when gcd(value, modulus) != 1.
  Result<ModInt> inverse() const;

  friend bool operator==(const ModInt& a, const ModInt& b) {
    return a.value_ == b.value_ && a.modulus_ == b.modulus_;
  }

 private:
  struct Reduced {};
  // A value already in [0, modulus).
  ModInt(Reduced, Int value, Int modulus) : value_(std::move(value)), modulus_(std::move(modulus)) {}

  // Both parts fit 62 bits, so sums stay below 2^63 and products fit 128 bits.
  bool is_word_sized() const { return modulus_.is_small() && modulus_.small() < (std::int64_t{1} << 62); }
  static void same_modulus(const ModInt& a, const ModInt& b) {
    TV_ENSURE(a.modulus_ == b.modulus_, "Numbers have different moduli");
  }

  Int value_;
  Int modulus_;
};

// "Numbers have different moduli" (kind Type) unless a and b share their modulus.
Status check_same_modulus(const ModInt& a, const ModInt& b);

template <>
struct CoeffTraits<ModInt> {
  // The modulus.
  using Context = Int;
  static Context context_of(const ModInt& x) { return x.modulus(); }
  static ModInt zero(const Context& modulus) { return ModInt(Int(0), modulus); }
  static ModInt one(const Context& modulus) { return ModInt(Int(1), modulus); }
  static ModInt from_integer(const Context& modulus, std::int64_t k) { return ModInt(Int(k), modulus); }
  static bool is_zero(const ModInt& x) { return x.is_zero(); }
  static Result<ModInt> divide(const ModInt& a, const ModInt& b) { return div(a, b); }
  static std::string text(const ModInt& x) { return x.value().to_string(); }
};

using ModPoly = Polynomial<ModInt>;

}  // namespace tv

namespace tv {

// Polynomials modulo a small prime on machine words: the fast path of modular factoring, whose
// primes are nearly always tiny. Coefficients are in [0, p), lowest degree first, trimmed.
// With p below 2^21 a product of two coefficients stays below 2^42, so sums of up to 2^22 of
// them fit one unsigned word and are reduced once, at the end of a convolution or division step.
class WordPoly {
 public:
  // The largest modulus, and one above the largest length, for which the above holds.
  static constexpr std::uint64_t kModulusLimit = std::uint64_t{1} << 21;
  static constexpr std::size_t kLengthLimit = std::size_t{1} << 21;
  static bool fits(const Int& p, std::int64_t degree) {
    return p.is_small() && p.small() > 1 && static_cast<std::uint64_t>(p.small()) < kModulusLimit &&
           degree + 1 < static_cast<std::int64_t>(kLengthLimit);
  }

  WordPoly() = default;
  explicit WordPoly(std::vector<std::uint64_t> coefficients) : c_(std::move(coefficients)) { trim(); }
  static WordPoly of(const ModPoly& a);
  ModPoly to_mod_poly(const Int& p) const;

  std::int64_t degree() const { return static_cast<std::int64_t>(c_.size()) - 1; }
  bool is_zero() const { return c_.empty(); }
  const std::vector<std::uint64_t>& coefficients() const { return c_; }
  std::uint64_t leading() const { return c_.back(); }

  // a * b, a mod g and the quotient of a by g, mod p; g must be monic and non-zero.
  static WordPoly mul(const WordPoly& a, const WordPoly& b, std::uint64_t p);
  static WordPoly rem(WordPoly a, const WordPoly& g, std::uint64_t p);
  static WordPoly quotient(WordPoly a, const WordPoly& g, std::uint64_t p);
  // b^e mod g, for a monic g of positive degree.
  static WordPoly pow_mod(WordPoly b, const Int& e, const WordPoly& g, std::uint64_t p);
  // The monic gcd, or zero when both are zero.
  static WordPoly gcd(WordPoly a, WordPoly b, std::uint64_t p);
  // Divided by the leading coefficient; zero stays zero.
  WordPoly monic(std::uint64_t p) const;
  // this - c x^k.
  WordPoly minus_monomial(std::uint64_t c, std::size_t k, std::uint64_t p) const;

 private:
  void trim() {
    while (!c_.empty() && c_.back() == 0) c_.pop_back();
  }
  // Reduces a mod monic g in place, leaving the quotient's coefficients at index deg g and up.
  static void divide_in_place(std::vector<std::uint64_t>& a, const WordPoly& g, std::uint64_t p);

  std::vector<std::uint64_t> c_;
};

}  // namespace tv
