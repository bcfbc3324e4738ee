// Exact real-root counting for polynomials that are counted many times: signs at rational
// points by integer arithmetic, and Sturm chains built once and kept.
//
// A Sturm chain over the rationals grows fractions whose numerators and denominators both
// blow up with the degree. Here every member is a primitive integer polynomial: the chain
// p, p', -rem(p, p'), ... is scaled at each step by a positive rational, which leaves every
// sign, and so every count of sign changes, as it was. The next member is the pseudo-remainder
// lc^(delta + 1) a mod b with the sign of lc^(delta + 1) taken out, negated, and divided by its
// content. A sign at x = a/b (b > 0) is the sign of the homogenised sum c_k a^k b^(n - k),
// summed over the non-zero coefficients only, so a binomial of degree 1000 costs two powers.
#pragma once

#include <cstdint>
#include <vector>

#include "failure.hpp"
#include "num/factoring.hpp"
#include "num/fraction.hpp"
#include "num/polynomial.hpp"

namespace tv {

// The sign of p(x): -1, 0 or +1.
int sign_at(const ZPoly& p, const Fraction& x);

class SturmChain {
 public:
  // The chain of a square-free, non-zero p; "monic() of zero polynomial" (kind Range) for zero.
  static Result<SturmChain> of(const QPoly& p);

  // The number of distinct real roots of p in the closed interval [lo, hi] (lo <= hi): the same
  // count as `count_roots`.
  std::uint64_t count(const Fraction& lo, const Fraction& hi) const;
  // The sign of p(x).
  int sign_at(const Fraction& x) const { return tv::sign_at(chain_.front(), x); }
  // p as a primitive integer polynomial, a positive multiple of p.
  const ZPoly& integer_form() const { return chain_.front(); }

 private:
  explicit SturmChain(std::vector<ZPoly> chain) : chain_(std::move(chain)) {}
  std::uint64_t variations(const Fraction& x) const;

  std::vector<ZPoly> chain_;
};

}  // namespace tv
