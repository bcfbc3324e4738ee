// Number fields modulo word primes, and the way back to rationals.
//
// A computation over Q(alpha) = Q[x]/(m) whose answer is unique (an inverse, a monic gcd) can
// be run in F_p[x]/(m mod p) for many primes p near 2^62 instead, where every coefficient is a
// machine word and nothing grows. The images are joined by Chinese remaindering and each
// rational coefficient is read back by rational reconstruction; the caller then checks the
// candidate by one exact computation over Q(alpha), so a wrong reading is never returned,
// only retried with more primes.
//
// A prime is usable for a field when it divides no denominator of m, not m's leading
// coefficient, and not its discriminant (m mod p is square-free). Then the numbers of the field
// whose coefficients have no p in their denominators form the ring Z_(p)[alpha], which is the
// whole integral closure of Z_(p) there, and reduction mod p is a ring map onto F_p[x]/(m mod p).
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "num/polynomial.hpp"

namespace tv {

using QPoly = Polynomial<Fraction>;

namespace residue {

using Word = std::uint64_t;
// Dense, lowest degree first: a polynomial over F_p, or an element of F_p[x]/(m) with
// exactly deg m entries.
using Words = std::vector<Word>;

// The i-th prime below 2^62, counting down from the largest (i = 0, 1, ...).
Word word_prime(std::size_t index);

inline Word mul_mod(Word a, Word b, Word p) { return static_cast<Word>(static_cast<unsigned __int128>(a) * b % p); }
inline Word add_mod(Word a, Word b, Word p) { return a + b >= p ? a + b - p : a + b; }
inline Word sub_mod(Word a, Word b, Word p) { return a >= b ? a - b : a + p - b; }
// The inverse of a non-zero a modulo the prime p.
Word inverse_mod(Word a, Word p);
// The rational r modulo p; nothing when p divides its denominator.
std::optional<Word> reduce(const Fraction& r, Word p);

// F_p[x]/(m mod p) for a usable prime (see above).
class ResidueRing {
 public:
  using Element = Words;

  // Nothing when p is not usable for m.
  static std::optional<ResidueRing> of(const QPoly& m, Word p);

  Word prime() const { return p_; }
  std::size_t degree() const { return modulus_.size() - 1; }
  // The number p(alpha) of the field, reduced; nothing when p divides a denominator.
  std::optional<Element> reduce(const QPoly& number) const;
  Element zero() const { return Element(degree(), 0); }
  Element constant(Word c) const;
  static bool is_zero(const Element& a);
  Element add(const Element& a, const Element& b) const;
  Element sub(const Element& a, const Element& b) const;
  Element mul(const Element& a, const Element& b) const;
  Element scale(const Element& a, Word c) const;
  // Nothing when a is not a unit (a zero divisor, or zero).
  std::optional<Element> inverse(const Element& a) const;

 private:
  ResidueRing(Word p, Words monic_modulus) : p_(p), modulus_(std::move(monic_modulus)) {}
  Word p_;
  Words modulus_;  // m mod p, made monic
};

// Vectors of rationals known modulo a growing product of primes.
class RationalLift {
 public:
  explicit RationalLift(std::size_t count);
  // One more prime's residues, one per entry, joined by Chinese remaindering.
  void add(const Words& residues, Word p);
  std::size_t primes() const { return primes_; }
  // Each entry as the rational n/d with |n|, d <= sqrt(M/2), M the product of the primes, that
  // is congruent to it; nothing when some entry has no such rational.
  std::optional<std::vector<Fraction>> rationals() const;

 private:
  std::vector<Int> values_;  // in [0, modulus_)
  Int modulus_ = Int(1);
  std::size_t primes_ = 0;
};

}  // namespace residue
}  // namespace tv
