#include "num/sturm.hpp"

#include <gmp.h>

#include <utility>

#include "interrupt.hpp"

namespace tv {
namespace {

// An mpz_t that clears itself.
class Mpz {
 public:
  Mpz() { mpz_init(value_); }
  explicit Mpz(const Int& x) {
    mpz_init(value_);
    x.get_mpz(value_);
  }
  ~Mpz() { mpz_clear(value_); }
  Mpz(const Mpz&) = delete;
  Mpz& operator=(const Mpz&) = delete;
  mpz_ptr get() { return value_; }

 private:
  mpz_t value_;
};

Int content_of(const ZPoly& p) {
  Int g(0);
  for (const Int& c : p.coefficients()) g = gcd(g, c);
  return g;
}

// lc(b)^(deg a - deg b + 1) a mod b over the integers; deg a >= deg b >= 0.
ZPoly pseudo_remainder(const ZPoly& a, const ZPoly& b) {
  std::vector<Int> u = a.coefficients();
  const std::size_t n = static_cast<std::size_t>(a.degree()), m = static_cast<std::size_t>(b.degree());
  const Int& l = b.leading();
  const std::vector<Int>& bc = b.coefficients();
  for (std::size_t k = n + 1; k-- > m;) {
    const Int q = u[k];
    for (std::size_t i = 0; i < k; ++i) u[i] = u[i] * l;
    for (std::size_t j = 0; j < m; ++j) u[k - m + j] = u[k - m + j] - q * bc[j];
    u[k] = Int(0);
  }
  u.resize(m);
  return ZPoly(std::move(u));
}

// -rem(a, b) scaled by a positive rational into a primitive integer polynomial.
Result<ZPoly> next_member(const ZPoly& a, const ZPoly& b) {
  ZPoly r = pseudo_remainder(a, b);
  if (r.is_zero()) return r;
  const bool odd_power = (a.degree() - b.degree() + 1) % 2 != 0;
  const int scale_sign = odd_power ? b.leading().sign() : 1;
  return r.divide_coefficients(content_of(r) * Int(-scale_sign));
}

// The sign of u a^e + v b^e (u, v, a not zero, b > 0) when the bit lengths alone decide it:
// X < 2^bits and X >= 2^(bits - 1) for X > 0 bound each term, so a term whose lower bound
// passes the other's upper bound has the sign. 0 when the lengths do not decide.
int sign_by_lengths(const Int& u, const Int& v, const Int& a, const Int& b, std::uint64_t e) {
  const int sign_x = u.sign() * ((e % 2 == 0) ? 1 : a.sign());
  if (sign_x == v.sign()) return sign_x;
  const std::uint64_t la = a.bit_length(), lb = b.bit_length();
  if (la > (std::uint64_t{1} << 40) / (e + 1) || lb > (std::uint64_t{1} << 40) / (e + 1)) return 0;
  const std::uint64_t x_low = u.bit_length() - 1 + e * (la - 1), x_high = u.bit_length() + e * la;
  const std::uint64_t y_low = v.bit_length() - 1 + e * (lb - 1), y_high = v.bit_length() + e * lb;
  if (x_low >= y_high) return sign_x;
  if (y_low >= x_high) return v.sign();
  return 0;
}

}  // namespace

int sign_at(const ZPoly& p, const Fraction& x) {
  if (p.is_zero()) return 0;
  const auto& terms = p.coefficients();
  const std::size_t top = terms.size() - 1;
  std::size_t low = 0;
  while (terms[low].is_zero()) ++low;
  std::size_t others = 0;
  for (std::size_t j = low + 1; j < top; ++j) others += terms[j].is_zero() ? 0 : 1;
  // A binomial far from its roots, as bisection from a wide interval sees it, is decided by
  // the sizes of its two terms: p(x) b^n = a^low (c_top a^e + c_low b^e), e = top - low.
  if (others == 0 && low < top && !x.is_zero()) {
    const int sum_sign = sign_by_lengths(terms[top], terms[low], x.numerator(), x.denominator(), top - low);
    if (sum_sign != 0) return sum_sign * ((low % 2 == 0) ? 1 : x.sign());
  }
  const auto& c = p.coefficients();
  const std::size_t n = c.size() - 1;
  Mpz a(x.numerator()), b(x.denominator()), acc(c[n]), term, power;
  // b^(n - k) is kept for the current k; a power of two only shifts.
  const bool dyadic = mpz_popcount(b.get()) == 1;
  const mp_bitcnt_t b_bits = mpz_sizeinbase(b.get(), 2) - 1;
  Mpz b_power;
  mpz_set_ui(b_power.get(), 1);
  std::size_t k = n;
  for (std::size_t j = n; j-- > 0;) {
    if (c[j].is_zero()) continue;
    const std::size_t gap = k - j;
    mpz_pow_ui(power.get(), a.get(), gap);
    mpz_mul(acc.get(), acc.get(), power.get());
    if (dyadic) {
      mpz_mul_2exp(b_power.get(), b_power.get(), b_bits * gap);
    } else {
      mpz_pow_ui(power.get(), b.get(), gap);
      mpz_mul(b_power.get(), b_power.get(), power.get());
    }
    c[j].get_mpz(term.get());
    mpz_addmul(acc.get(), term.get(), b_power.get());
    k = j;
  }
  // The sum so far lacks the factor a^k of the lowest non-zero term.
  int sign = mpz_sgn(acc.get());
  if (k > 0) {
    const int a_sign = mpz_sgn(a.get());
    sign *= (k % 2 == 0) ? a_sign * a_sign : a_sign;
  }
  return sign;
}

Result<SturmChain> SturmChain::of(const QPoly& p) {
  TV_TRY(ZPoly first, zassenhaus::primitive_integer_part(p));
  std::vector<ZPoly> chain;
  chain.push_back(first);
  if (first.degree() < 1) return SturmChain(std::move(chain));
  TV_TRY(ZPoly second, zassenhaus::primitive_integer_part(p.derivative()));
  chain.push_back(std::move(second));
  while (true) {
    TV_CHECK(check_interrupt());
    TV_TRY(ZPoly next, next_member(chain[chain.size() - 2], chain.back()));
    if (next.is_zero()) break;
    chain.push_back(std::move(next));
  }
  return SturmChain(std::move(chain));
}

std::uint64_t SturmChain::variations(const Fraction& x) const {
  std::uint64_t changes = 0;
  int previous = 0;
  for (const ZPoly& member : chain_) {
    const int s = tv::sign_at(member, x);
    if (s == 0) continue;
    if (previous != 0 && s != previous) ++changes;
    previous = s;
  }
  return changes;
}

std::uint64_t SturmChain::count(const Fraction& lo, const Fraction& hi) const {
  return variations(lo) + (sign_at(lo) == 0 ? 1 : 0) - variations(hi);
}

}  // namespace tv
