// Factoring rational polynomials into irreducibles over Q, by the Zassenhaus method.
//
// The polynomial is made square-free and primitive with integer coefficients (f, of degree n
// and leading coefficient lc). An odd prime p is chosen that divides neither lc nor the
// discriminant of f, so f stays square-free modulo p. Modulo p, f splits by distinct-degree
// factoring (gcd(x^(p^i) - x, f) collects the irreducible factors of degree i) and then
// Cantor-Zassenhaus equal-degree splitting (for a random r, gcd(r^((p^d - 1)/2) - 1, f)
// catches about half of the degree-d factors). Quadratic Hensel lifting, pair by pair down a
// balanced tree, turns the factorisation mod p into one mod p^k, where p^k exceeds twice lc
// times a Mignotte-style bound on the coefficients of any factor of degree at most n/2. Every
// true factor of f is then lc times a product of lifted factors, read with symmetric residues,
// so trial division over the integers by the products of subsets of growing size finds them.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "failure.hpp"
#include "num/int.hpp"
#include "num/modint.hpp"
#include "num/polynomial.hpp"

namespace tv {

using ZPoly = Polynomial<Int>;

// The distinct irreducible factors of p over the rationals.
//
// Takes any rational polynomial. Returns one entry per distinct irreducible factor of positive
// degree: primitive, with integer coefficients (every denominator is 1). Constant content and
// multiplicities are dropped: x^2 - 2x + 1 gives [x - 1], 2x + 2 gives [x + 1], and a
// non-zero constant gives an empty vector. The factors multiply out to exactly p's square-free
// part made primitive, with the sign of p's leading coefficient; when that sign is positive,
// every factor's leading coefficient is positive too.
//
// Order: the modular factors are split with the calling thread's random bits, which carry on
// from call to call, so the order of the factors can differ between two calls on the same
// polynomial; the set of factors cannot.
//
// Fails with "monic() of zero polynomial" (kind Range) for the zero polynomial. The other
// failures ("This (probably) shouldn't happen", "exponent too large" and the internal guards,
// kind Other) are not expected from any input.
Result<std::vector<QPoly>> factor(const QPoly& p);

// The steps of `factor`, for tests and for callers that already hold a primitive integer
// polynomial.
namespace zassenhaus {

// s times the least common multiple of its denominators, divided by the gcd of its numerators:
// a primitive integer polynomial whose leading coefficient has the sign of s's.
Result<ZPoly> primitive_integer_part(const QPoly& s);

// The square-free part of p, p / gcd(p, p'), as a primitive integer polynomial whose leading
// coefficient has the sign of p's. "monic() of zero polynomial" (kind Range) for zero.
Result<ZPoly> square_free_integer_part(const QPoly& p);

// a mod m, coefficientwise; and back, each coefficient read in [0, m).
ModPoly reduce(const ZPoly& a, const Int& m);
ZPoly residues(const ModPoly& a);
// Symmetric residues: a coefficient c with 2c >= m becomes c - m.
ZPoly symmetric_residues(const ModPoly& a);

// b^e mod m by square and multiply.
Result<ModPoly> pow_mod(ModPoly b, Int e, const ModPoly& m);
// The Euclidean remainder sequence, the operand of higher degree first. Every divisor is made
// monic first, so the result is a gcd up to a unit, and monic unless b is zero.
Result<ModPoly> euclidean_gcd(ModPoly a, ModPoly b);

// The first odd prime, in increasing order, that does not divide lc(f) and modulo which f
// stays square-free. Candidates are tested by trial division by the primes found so far.
Result<Int> choose_prime(const ZPoly& f);
// The first `count` primes that choose_prime would accept, in increasing order.
Result<std::vector<Int>> good_primes(const ZPoly& f, std::size_t count);

// Entry i is the monic product of the irreducible factors of degree i of f mod p; entry 0 is 1.
Result<std::vector<ModPoly>> distinct_degree(const ZPoly& f, const Int& p);

// The monic irreducible factors of f, a monic product of distinct irreducibles of degree d
// modulo an odd prime p, split by random draws (at most 1000 per split). The bits come from
// the calling thread's xorshift generator (state 0x2545F4914F6CDD1D at the start of every
// thread, never reseeded): x ^= x << 13, x ^= x >> 7, x ^= x << 17, then bit 33.
Result<std::vector<ModPoly>> equal_degree(const ModPoly& f, std::int64_t d);

// The monic irreducible factors of f mod p: the equal-degree splits of the distinct-degree
// parts, in order of degree.
Result<std::vector<ModPoly>> modular_factors(const ZPoly& f, const Int& p);
Result<std::vector<ModPoly>> split_parts(const std::vector<ModPoly>& parts);

// Entry d says whether some product of the modular factors described by the distinct-degree
// parts has degree d; a factor of f over the integers has such a degree.
std::vector<bool> factor_degrees(const std::vector<ModPoly>& parts);

struct PrimeChoice {
  Int prime;
  std::vector<ModPoly> parts;  // its distinct-degree parts
  std::vector<bool> allowed;   // the degrees that every prime tried allows for a factor of f
  std::size_t factor_count;    // its number of modular factors
};

// Of the first `count` primes that choose_prime accepts, the one with the fewest modular
// factors (the smaller prime on a tie), with the degrees that all of them allow.
Result<PrimeChoice> choose_among_primes(const ZPoly& f, std::size_t count);

// The smallest k >= 1 with p^k > 2 |lc| B, where B bounds the coefficients of any factor of
// f of degree at most n/2.
std::uint64_t lift_exponent(const ZPoly& f, const Int& p);

// The factors lifted to monic factors mod p^k, in the same order. `factors` are monic mod p,
// and f = lc(f) times their product mod p. Fails with "exponent too large" when k does not fit
// 32 bits.
Result<std::vector<ModPoly>> hensel_lift(const ZPoly& f, const std::vector<ModPoly>& factors, const Int& p,
                                         std::uint64_t k);

// For f = g h mod p with g monic and g, h coprime mod p: G = g and H = h mod p with
// f = G H mod p^k and G monic, as integer polynomials with coefficients in [0, p^k).
Result<std::pair<ZPoly, ZPoly>> lift_pair(const ZPoly& f, const ModPoly& g, const ModPoly& h, const Int& p,
                                          std::uint32_t k);

// The irreducible factors of f over the integers from its lifted factors mod m, by trial
// division over subsets of growing size; the last one is what remains of f. `allowed`, when
// given, has an entry for each degree 0..deg f: whether a factor of f can have that degree
// (by the modular factors for other primes); subsets of other degrees are not tried.
Result<std::vector<ZPoly>> combine_factors(const ZPoly& f, const std::vector<ModPoly>& lifted, const Int& m,
                                           std::vector<bool> allowed = {});

}  // namespace zassenhaus
}  // namespace tv
