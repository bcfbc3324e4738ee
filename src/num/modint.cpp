#include "num/modint.hpp"

#include <algorithm>
#include <utility>

namespace tv {

ModInt::ModInt(const Int& value, Int modulus) : modulus_(std::move(modulus)) {
  TV_ENSURE(modulus_.sign() > 0, "ModInt modulus must be positive");
  value_ = rem(value, modulus_);
  if (value_.sign() < 0) value_ += modulus_;
}

Result<ModInt> ModInt::inverse() const {
  // Extended Euclid on (value, modulus), tracking only the coefficient of value.
  Int r0 = modulus_, r1 = value_;
  Int u0(0), u1(1);
  while (!r1.is_zero()) {
    Int q, r;
    divrem(r0, r1, q, r);
    r0 = std::move(r1);
    r1 = std::move(r);
    Int u = u0 - q * u1;
    u0 = std::move(u1);
    u1 = std::move(u);
  }
  if (!r0.is_one()) return division_failure("Not divisible");
  return ModInt(u0, modulus_);
}

Result<ModInt> div(const ModInt& a, const ModInt& b) {
  TV_CHECK(check_same_modulus(a, b));
  TV_TRY(ModInt inverse, b.inverse());
  return a * inverse;
}

Status check_same_modulus(const ModInt& a, const ModInt& b) {
  if (!(a.modulus() == b.modulus())) return Failure{FailureKind::Type, "Numbers have different moduli"};
  return {};
}

}  // namespace tv

namespace tv {
namespace {

std::uint64_t inverse_mod(std::uint64_t a, std::uint64_t p) {
  // Extended Euclid on (p, a), tracking the coefficient of a; p is prime and a non-zero.
  std::int64_t r0 = static_cast<std::int64_t>(p), r1 = static_cast<std::int64_t>(a), u0 = 0, u1 = 1;
  while (r1 != 0) {
    const std::int64_t q = r0 / r1;
    r0 = std::exchange(r1, r0 - q * r1);
    u0 = std::exchange(u1, u0 - q * u1);
  }
  return static_cast<std::uint64_t>(u0 < 0 ? u0 + static_cast<std::int64_t>(p) : u0);
}

}  // namespace

WordPoly WordPoly::of(const ModPoly& a) {
  std::vector<std::uint64_t> c;
  c.reserve(a.coefficients().size());
  for (const ModInt& x : a.coefficients()) c.push_back(static_cast<std::uint64_t>(x.value().small()));
  return WordPoly(std::move(c));
}

ModPoly WordPoly::to_mod_poly(const Int& p) const {
  std::vector<ModInt> c;
  c.reserve(c_.size());
  for (std::uint64_t x : c_) c.emplace_back(Int(static_cast<std::int64_t>(x)), p);
  return ModPoly(std::move(c), p);
}

WordPoly WordPoly::mul(const WordPoly& a, const WordPoly& b, std::uint64_t p) {
  if (a.is_zero() || b.is_zero()) return {};
  std::vector<std::uint64_t> out(a.c_.size() + b.c_.size() - 1, 0);
  for (std::size_t i = 0; i < a.c_.size(); ++i) {
    const std::uint64_t x = a.c_[i];
    if (x == 0) continue;
    std::uint64_t* row = out.data() + i;
    for (std::size_t j = 0; j < b.c_.size(); ++j) row[j] += x * b.c_[j];
  }
  for (std::uint64_t& x : out) x %= p;
  return WordPoly(std::move(out));
}

void WordPoly::divide_in_place(std::vector<std::uint64_t>& a, const WordPoly& g, std::uint64_t p) {
  const std::size_t m = g.c_.size() - 1;
  for (std::size_t k = a.size(); k-- > m;) {
    const std::uint64_t q = a[k] % p;
    a[k] = q;
    if (q == 0) continue;
    const std::uint64_t minus_q = p - q;
    std::uint64_t* row = a.data() + (k - m);
    for (std::size_t j = 0; j < m; ++j) row[j] += minus_q * g.c_[j];
  }
  for (std::size_t j = 0; j < std::min(m, a.size()); ++j) a[j] %= p;
}

WordPoly WordPoly::rem(WordPoly a, const WordPoly& g, std::uint64_t p) {
  if (a.degree() < g.degree()) return a;
  divide_in_place(a.c_, g, p);
  a.c_.resize(g.c_.size() - 1);
  a.trim();
  return a;
}

WordPoly WordPoly::quotient(WordPoly a, const WordPoly& g, std::uint64_t p) {
  if (a.degree() < g.degree()) return {};
  divide_in_place(a.c_, g, p);
  a.c_.erase(a.c_.begin(), a.c_.begin() + static_cast<std::ptrdiff_t>(g.c_.size() - 1));
  return WordPoly(std::move(a.c_));
}

WordPoly WordPoly::pow_mod(WordPoly b, const Int& e, const WordPoly& g, std::uint64_t p) {
  mpz_t exponent;
  mpz_init(exponent);
  e.get_mpz(exponent);
  WordPoly result({1});
  b = rem(std::move(b), g, p);
  for (std::size_t bit = mpz_sizeinbase(exponent, 2); bit-- > 0;) {
    result = rem(mul(result, result, p), g, p);
    if (mpz_tstbit(exponent, bit)) result = rem(mul(result, b, p), g, p);
  }
  mpz_clear(exponent);
  return result;
}

WordPoly WordPoly::monic(std::uint64_t p) const {
  if (is_zero() || leading() == 1) return *this;
  const std::uint64_t inverse = inverse_mod(leading(), p);
  std::vector<std::uint64_t> c = c_;
  for (std::uint64_t& x : c) x = x * inverse % p;
  return WordPoly(std::move(c));
}

WordPoly WordPoly::gcd(WordPoly a, WordPoly b, std::uint64_t p) {
  if (a.degree() < b.degree()) std::swap(a, b);
  b = b.monic(p);
  while (!b.is_zero()) {
    WordPoly r = rem(std::move(a), b, p).monic(p);
    a = std::move(b);
    b = std::move(r);
  }
  return a.monic(p);
}

WordPoly WordPoly::minus_monomial(std::uint64_t c, std::size_t k, std::uint64_t p) const {
  std::vector<std::uint64_t> out = c_;
  if (out.size() <= k) out.resize(k + 1, 0);
  out[k] = (out[k] + p - c % p) % p;
  return WordPoly(std::move(out));
}

}  // namespace tv
