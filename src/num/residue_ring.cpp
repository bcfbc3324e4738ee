// Residue rings of number fields at word primes, Chinese remaindering and rational
// reconstruction. See residue_ring.hpp for when a prime may be used.
#include "num/residue_ring.hpp"

#include <algorithm>
#include <array>

namespace tv::residue {
namespace {

Word pow_mod(Word base, Word exponent, Word p) {
  Word result = 1 % p;
  while (exponent != 0) {
    if (exponent & 1) result = mul_mod(result, base, p);
    base = mul_mod(base, base, p);
    exponent >>= 1;
  }
  return result;
}

// Miller-Rabin with a base set that decides every n below 2^64.
bool is_prime(Word n) {
  if (n < 2) return false;
  for (Word q : {2, 3, 5, 7, 11, 13, 17, 19, 23, 29, 31, 37})
    if (n % q == 0) return n == q;
  Word odd = n - 1;
  int twos = 0;
  while ((odd & 1) == 0) odd >>= 1, ++twos;
  for (Word base : {2ULL, 325ULL, 9375ULL, 28178ULL, 450775ULL, 9780504ULL, 1795265022ULL}) {
    Word x = pow_mod(base % n, odd, n);
    if (x == 0 || x == 1 || x == n - 1) continue;
    bool composite = true;
    for (int i = 1; i < twos && composite; ++i) {
      x = mul_mod(x, x, n);
      composite = x != n - 1;
    }
    if (composite) return false;
  }
  return true;
}

Word prime_below(Word n) {
  do --n;
  while (!is_prime(n));
  return n;
}

void trim(Words& a) {
  while (!a.empty() && a.back() == 0) a.pop_back();
}

std::int64_t degree_of(const Words& a) { return static_cast<std::int64_t>(a.size()) - 1; }

// a = q b + r over F_p for a non-zero trimmed b; a becomes r and the quotient is returned.
Words divide(Words& a, const Words& b, Word p) {
  const std::size_t n = b.size() - 1;
  const Word lead_inverse = inverse_mod(b.back(), p);
  Words quotient(a.size() >= b.size() ? a.size() - n : 0, 0);
  for (std::size_t k = a.size(); k-- > n;) {
    const Word c = mul_mod(a[k], lead_inverse, p);
    if (c == 0) continue;
    quotient[k - n] = c;
    for (std::size_t j = 0; j <= n; ++j) a[k - n + j] = sub_mod(a[k - n + j], mul_mod(c, b[j], p), p);
  }
  a.resize(std::min(a.size(), n));
  trim(a);
  return quotient;
}

Words gcd_of(Words a, Words b, Word p) {
  while (!b.empty()) {
    divide(a, b, p);
    std::swap(a, b);
  }
  return a;
}

}  // namespace

Word word_prime(std::size_t index) {
  // The first primes are what nearly every call uses; later ones are found when asked for.
  static const std::array<Word, 64> table = [] {
    std::array<Word, 64> primes{};
    Word n = Word{1} << 62;
    for (Word& q : primes) n = q = prime_below(n);
    return primes;
  }();
  if (index < table.size()) return table[index];
  Word n = table.back();
  for (std::size_t i = table.size() - 1; i < index; ++i) n = prime_below(n);
  return n;
}

Word inverse_mod(Word a, Word p) {
  std::int64_t r0 = static_cast<std::int64_t>(p), r1 = static_cast<std::int64_t>(a % p);
  std::int64_t t0 = 0, t1 = 1;
  while (r1 != 0) {
    const std::int64_t q = r0 / r1;
    r0 = std::exchange(r1, r0 - q * r1);
    t0 = std::exchange(t1, t0 - q * t1);
  }
  return static_cast<Word>(t0 < 0 ? t0 + static_cast<std::int64_t>(p) : t0);
}

std::optional<Word> reduce(const Fraction& r, Word p) {
  const Int modulus(static_cast<std::int64_t>(p));
  const auto residue = [&](const Int& x) {
    const std::int64_t v = rem(x, modulus).small();
    return static_cast<Word>(v < 0 ? v + static_cast<std::int64_t>(p) : v);
  };
  const Word denominator = residue(r.denominator());
  if (denominator == 0) return std::nullopt;
  return mul_mod(residue(r.numerator()), inverse_mod(denominator, p), p);
}

std::optional<ResidueRing> ResidueRing::of(const QPoly& m, Word p) {
  Words modulus;
  for (const Fraction& c : m.coefficients()) {
    const auto r = residue::reduce(c, p);
    if (!r) return std::nullopt;
    modulus.push_back(*r);
  }
  if (modulus.empty() || modulus.back() == 0) return std::nullopt;
  const Word lead_inverse = inverse_mod(modulus.back(), p);
  for (Word& c : modulus) c = mul_mod(c, lead_inverse, p);
  Words derivative;
  for (std::size_t k = 1; k < modulus.size(); ++k) derivative.push_back(mul_mod(modulus[k], k % p, p));
  trim(derivative);
  if (derivative.empty() || degree_of(gcd_of(modulus, derivative, p)) != 0) return std::nullopt;
  return ResidueRing(p, std::move(modulus));
}

std::optional<ResidueRing::Element> ResidueRing::reduce(const QPoly& number) const {
  TV_ENSURE(number.degree() < static_cast<std::int64_t>(degree()), "a reduced number of the field");
  Element out = zero();
  const auto& c = number.coefficients();
  for (std::size_t k = 0; k < c.size(); ++k) {
    const auto r = residue::reduce(c[k], p_);
    if (!r) return std::nullopt;
    out[k] = *r;
  }
  return out;
}

ResidueRing::Element ResidueRing::constant(Word c) const {
  Element out = zero();
  out[0] = c % p_;
  return out;
}

bool ResidueRing::is_zero(const Element& a) {
  return std::all_of(a.begin(), a.end(), [](Word c) { return c == 0; });
}

ResidueRing::Element ResidueRing::add(const Element& a, const Element& b) const {
  Element out(a.size());
  for (std::size_t k = 0; k < a.size(); ++k) out[k] = add_mod(a[k], b[k], p_);
  return out;
}

ResidueRing::Element ResidueRing::sub(const Element& a, const Element& b) const {
  Element out(a.size());
  for (std::size_t k = 0; k < a.size(); ++k) out[k] = sub_mod(a[k], b[k], p_);
  return out;
}

ResidueRing::Element ResidueRing::scale(const Element& a, Word c) const {
  Element out(a.size());
  for (std::size_t k = 0; k < a.size(); ++k) out[k] = mul_mod(a[k], c, p_);
  return out;
}

ResidueRing::Element ResidueRing::mul(const Element& a, const Element& b) const {
  const std::size_t d = degree();
  // Products are below 2^124, so sixteen of them add up in 128 bits before a reduction.
  std::vector<unsigned __int128> wide(2 * d - 1, 0);
  for (std::size_t i = 0; i < d; ++i) {
    if (a[i] == 0) continue;
    for (std::size_t j = 0; j < d; ++j) {
      unsigned __int128& w = wide[i + j];
      w += static_cast<unsigned __int128>(a[i]) * b[j];
      if (w >> 126) w %= p_;
    }
  }
  Words product(2 * d - 1);
  for (std::size_t k = 0; k < product.size(); ++k) product[k] = static_cast<Word>(wide[k] % p_);
  for (std::size_t k = product.size(); k-- > d;) {
    const Word c = product[k];
    if (c == 0) continue;
    for (std::size_t j = 0; j < d; ++j) product[k - d + j] = sub_mod(product[k - d + j], mul_mod(c, modulus_[j], p_), p_);
  }
  product.resize(d);
  return product;
}

std::optional<ResidueRing::Element> ResidueRing::inverse(const Element& a) const {
  // t a = r (mod the modulus) along the Euclidean remainder sequence of the modulus and a.
  Words r0 = modulus_, r1 = a;
  trim(r1);
  Words t0, t1{1};
  while (!r1.empty()) {
    const Words q = divide(r0, r1, p_);
    std::swap(r0, r1);
    // t0 - q t1
    Words next(std::max(t0.size(), q.size() + t1.size()), 0);
    for (std::size_t k = 0; k < t0.size(); ++k) next[k] = t0[k];
    for (std::size_t i = 0; i < q.size(); ++i)
      for (std::size_t j = 0; j < t1.size(); ++j) next[i + j] = sub_mod(next[i + j], mul_mod(q[i], t1[j], p_), p_);
    trim(next);
    t0 = std::exchange(t1, std::move(next));
  }
  if (degree_of(r0) != 0) return std::nullopt;
  Element out = scale(t0, inverse_mod(r0[0], p_));
  out.resize(degree(), 0);
  return out;
}

RationalLift::RationalLift(std::size_t count) : values_(count) {}

void RationalLift::add(const Words& residues, Word p) {
  TV_ENSURE(residues.size() == values_.size(), "one residue per entry");
  const Int prime(static_cast<std::int64_t>(p));
  const auto residue = [&](const Int& x) { return static_cast<Word>(rem(x, prime).small()); };  // x >= 0
  // x' = x + M ((r - x) / M mod p): x' = x mod M and x' = r mod p.
  const Word modulus_inverse = inverse_mod(residue(modulus_), p);
  for (std::size_t k = 0; k < values_.size(); ++k) {
    const Word step = mul_mod(sub_mod(residues[k] % p, residue(values_[k]), p), modulus_inverse, p);
    if (step != 0) values_[k] += modulus_ * Int(static_cast<std::int64_t>(step));
  }
  modulus_ *= prime;
  ++primes_;
}

namespace {

// Scoped GMP integers for the reconstruction loop.
struct Mpz {
  mpz_t v;
  Mpz() { mpz_init(v); }
  ~Mpz() { mpz_clear(v); }
  Mpz(const Mpz&) = delete;
  Mpz& operator=(const Mpz&) = delete;
};

// The n/d with |n|, d <= bound and n = d x (mod m), by the half-extended Euclidean algorithm.
std::optional<Fraction> reconstruct(const Int& x, const mpz_t m, const mpz_t bound) {
  Mpz r0, r1, t0, t1, q, scratch;
  mpz_set(r0.v, m);
  x.get_mpz(r1.v);
  mpz_set_ui(t0.v, 0);
  mpz_set_ui(t1.v, 1);
  while (mpz_cmp(r1.v, bound) > 0) {
    mpz_fdiv_qr(q.v, scratch.v, r0.v, r1.v);
    mpz_swap(r0.v, r1.v);
    mpz_swap(r1.v, scratch.v);
    mpz_submul(t0.v, q.v, t1.v);
    mpz_swap(t0.v, t1.v);
  }
  if (mpz_sgn(t1.v) == 0 || mpz_cmpabs(t1.v, bound) > 0) return std::nullopt;
  mpz_gcd(scratch.v, r1.v, t1.v);
  if (mpz_cmp_ui(scratch.v, 1) != 0) return std::nullopt;
  if (mpz_sgn(t1.v) < 0) {
    mpz_neg(t1.v, t1.v);
    mpz_neg(r1.v, r1.v);
  }
  return Fraction::of(Int::from_mpz(r1.v), Int::from_mpz(t1.v));
}

}  // namespace

std::optional<std::vector<Fraction>> RationalLift::rationals() const {
  Mpz m, bound;
  modulus_.get_mpz(m.v);
  mpz_fdiv_q_2exp(bound.v, m.v, 1);
  mpz_sqrt(bound.v, bound.v);
  std::vector<Fraction> out;
  out.reserve(values_.size());
  for (const Int& x : values_) {
    auto r = reconstruct(x, m.v, bound.v);
    if (!r) return std::nullopt;
    out.push_back(std::move(*r));
  }
  return out;
}

}  // namespace tv::residue
