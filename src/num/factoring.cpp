#include "num/factoring.hpp"

#include "interrupt.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <span>

#include <gmpxx.h>

namespace tv {
namespace zassenhaus {
namespace {

// Each thread has its own xorshift state, never reseeded, so the modular factors (and with them
// the order of the result of factor) depend on the calls made before on the same thread.
thread_local std::uint64_t random_state = 0x2545F4914F6CDD1D;

unsigned random_bit() {
  std::uint64_t x = random_state;
  x ^= x << 13;
  x ^= x >> 7;
  x ^= x << 17;
  random_state = x;
  return static_cast<unsigned>((x >> 33) & 1);
}

ModPoly constant_mod(std::int64_t c, const Int& m) { return ModPoly::constant(ModInt(Int(c), m)); }

// a divided by its leading coefficient, through one inverse; the failure of monic() for zero.
Result<ModPoly> make_monic(const ModPoly& a) {
  if (a.is_zero()) return a.monic();
  TV_TRY(ModInt inverse, a.leading().inverse());
  return a.scale(inverse);
}

// Whether f keeps its degree and stays square-free modulo the prime p.
Result<bool> square_free_modulo(const ZPoly& f, const Int& p) {
  if (!gcd(p, f.leading()).is_one()) return false;
  if (WordPoly::fits(p, f.degree())) {
    const auto word = static_cast<std::uint64_t>(p.small());
    const WordPoly reduced = WordPoly::of(reduce(f, p));
    return WordPoly::gcd(reduced, WordPoly::of(reduce(f.derivative(), p)), word).degree() <= 0;
  }
  const ModPoly reduced = reduce(f, p);
  TV_TRY(ModPoly common, euclidean_gcd(reduced, reduced.derivative()));
  return common.degree() <= 0;
}

// The product of `factors`, all over one modulus, times `scale`.
ModPoly product(std::span<const ModPoly> factors, ModPoly scale) {
  for (const ModPoly& factor : factors) scale *= factor;
  return scale;
}

// A number in [0, p) from bit_length(p) random bits, most significant first.
Int random_below(const Int& p) {
  Int acc(0);
  for (Int t = p; t.sign() > 0; t = div(t, Int(2))) acc = acc * Int(2) + Int(static_cast<std::int64_t>(random_bit()));
  return rem(acc, p);
}

// A random polynomial of degree 2d - 1 with leading coefficient 1, lowest coefficient drawn first.
ModPoly random_probe(std::int64_t d, const Int& p) {
  std::vector<ModInt> coefficients;
  for (std::int64_t i = 0; i < 2 * d - 1; ++i) coefficients.emplace_back(random_below(p), p);
  coefficients.emplace_back(Int(1), p);
  return ModPoly(std::move(coefficients), p);
}

bool is_prime_by_trial_division(std::int64_t candidate, const std::vector<std::int64_t>& primes) {
  for (std::int64_t q : primes) {
    if (q * q > candidate) return true;
    if (candidate % q == 0) return false;
  }
  return true;
}

// The smallest x, reached by Newton's iteration from above, with x^2 >= n; n > 0.
Int ceil_sqrt(const Int& n) {
  Int x = n;
  for (;;) {
    Int next = div(x * x + n - Int(1), x * Int(2)) + Int(1);
    if (next == x) return x;
    x = std::move(next);
  }
}

// n! / (k! (n - k)!), where the factorial of any number below 2 is 1, so that the bound
// stays defined for the smallest degrees: binomial(0, -1) = 1.
Int bound_binomial(std::int64_t n, std::int64_t k) {
  const auto factorial = [](std::int64_t x) { return Int::factorial(x < 2 ? 1 : static_cast<std::uint32_t>(x)); };
  return div(factorial(n), factorial(k) * factorial(n - k));
}

// s and t with s g + t h = 1 mod p, by the extended Euclidean algorithm on the operand of
// higher degree first. g and h must be coprime.
Result<std::pair<ModPoly, ModPoly>> bezout(const ModPoly& g, const ModPoly& h) {
  const Int& p = g.context();
  const bool swapped = g.degree() < h.degree();
  ModPoly r0 = swapped ? h : g, r1 = swapped ? g : h;
  ModPoly u0 = constant_mod(1, p), u1(p), v0(p), v1 = constant_mod(1, p);
  while (!r1.is_zero()) {
    TV_TRY(auto qr, divrem(r0, r1));
    r0 = std::exchange(r1, std::move(qr.remainder));
    u0 = std::exchange(u1, u0 - qr.quotient * u1);
    v0 = std::exchange(v1, v0 - qr.quotient * v1);
  }
  TV_ENSURE(r0.degree() == 0, "Hensel lifting of factors that are not coprime");
  TV_TRY(ModInt unit, r0.leading().inverse());
  ModPoly u = u0.scale(unit), v = v0.scale(unit);
  if (swapped) return std::pair{std::move(v), std::move(u)};
  return std::pair{std::move(u), std::move(v)};
}

// a / b when b divides a over the integers. Long division from the top, given up at the first
// coefficient that the leading coefficient of b does not divide.
std::optional<ZPoly> exact_quotient(const ZPoly& a, const ZPoly& b) {
  if (a.is_zero()) return ZPoly();
  if (a.degree() < b.degree()) return std::nullopt;
  std::vector<Int> u = a.coefficients();
  const auto& bc = b.coefficients();
  const std::size_t n = u.size() - 1, m = bc.size() - 1;
  std::vector<Int> quotient(n - m + 1);
  for (std::size_t k = n + 1; k-- > m;) {
    Int q, r;
    divrem(u[k], bc[m], q, r);
    if (!r.is_zero()) return std::nullopt;
    if (!q.is_zero())
      for (std::size_t j = 0; j < m; ++j) u[k - m + j] -= q * bc[j];
    quotient[k - m] = std::move(q);
  }
  for (std::size_t j = 0; j < m; ++j)
    if (!u[j].is_zero()) return std::nullopt;
  return ZPoly(std::move(quotient));
}

Int content(const ZPoly& a) {
  Int c(0);
  for (const Int& x : a.coefficients()) c = gcd(c, x);
  return c;
}

// Lifts the factors in `factors` of f (given mod p) to mod p^k, appending them to `out`.
Status lift_tree(const ZPoly& f, std::span<const ModPoly> factors, const Int& p, std::uint32_t k,
                 const Int& target, std::vector<ModPoly>& out) {
  if (factors.size() == 1) {
    TV_TRY(ModPoly lifted, make_monic(reduce(f, target)));
    out.push_back(std::move(lifted));
    return {};
  }
  if (f.is_zero()) return other_failure("hensel_lift of zero polynomial");
  const std::size_t half = factors.size() / 2;
  const ModPoly a = product(factors.first(half), constant_mod(1, p));
  const ModPoly b = product(factors.subspan(half), ModPoly::constant(ModInt(f.leading(), p)));
  TV_TRY(auto pair, lift_pair(f, a, b, p, k));
  TV_CHECK(lift_tree(pair.first, factors.first(half), p, k, target, out));
  return lift_tree(pair.second, factors.subspan(half), p, k, target, out);
}

// A GMP integer that keeps its storage, for the hot loops of the subset search, which would
// otherwise allocate an Int for every product.
struct Scratch {
  mpz_t v;
  Scratch() { mpz_init(v); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { mpz_clear(v); }
};

// Integer polynomials as GMP integers, lowest degree first and not trimmed, for Hensel lifting:
// its products are formed with multiply-accumulate into integers that keep their storage.
using BigPoly = std::vector<mpz_class>;

BigPoly big_poly(const ZPoly& a) {
  BigPoly out(a.coefficients().size());
  for (std::size_t i = 0; i < out.size(); ++i) a.coefficients()[i].get_mpz(out[i].get_mpz_t());
  return out;
}

ZPoly z_poly(const BigPoly& a) {
  std::vector<Int> c;
  c.reserve(a.size());
  for (const mpz_class& x : a) c.push_back(Int::from_mpz(x.get_mpz_t()));
  return ZPoly(std::move(c));
}

// Drops zero coefficients at the top, so that sizes follow degrees.
void trim(BigPoly& a) {
  while (!a.empty() && sgn(a.back()) == 0) a.pop_back();
}

// out += a b, out growing as needed.
void multiply_add(const BigPoly& a, const BigPoly& b, BigPoly& out) {
  if (a.empty() || b.empty()) return;
  if (out.size() < a.size() + b.size() - 1) out.resize(a.size() + b.size() - 1);
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (sgn(a[i]) == 0) continue;
    for (std::size_t j = 0; j < b.size(); ++j) mpz_addmul(out[i + j].get_mpz_t(), a[i].get_mpz_t(), b[j].get_mpz_t());
  }
  trim(out);
}

void multiply(const BigPoly& a, const BigPoly& b, BigPoly& out) {
  out.resize(a.empty() || b.empty() ? 0 : a.size() + b.size() - 1);
  for (mpz_class& x : out) x = 0;
  multiply_add(a, b, out);
}

// out = (a - b) / m, exactly; a and b agree mod m.
void subtract_and_divide(const BigPoly& a, const BigPoly& b, const mpz_class& m, BigPoly& out) {
  out.resize(std::max(a.size(), b.size()));
  for (std::size_t i = 0; i < out.size(); ++i) {
    if (i < a.size() && i < b.size())
      mpz_sub(out[i].get_mpz_t(), a[i].get_mpz_t(), b[i].get_mpz_t());
    else if (i < a.size())
      out[i] = a[i];
    else
      mpz_neg(out[i].get_mpz_t(), b[i].get_mpz_t());
    mpz_divexact(out[i].get_mpz_t(), out[i].get_mpz_t(), m.get_mpz_t());
  }
  trim(out);
}

void reduce_mod(BigPoly& a, const mpz_class& m) {
  for (mpz_class& x : a) mpz_fdiv_r(x.get_mpz_t(), x.get_mpz_t(), m.get_mpz_t());
  trim(a);
}

// a += m b.
void add_scaled(BigPoly& a, const BigPoly& b, const mpz_class& m) {
  if (a.size() < b.size()) a.resize(b.size());
  for (std::size_t i = 0; i < b.size(); ++i) mpz_addmul(a[i].get_mpz_t(), b[i].get_mpz_t(), m.get_mpz_t());
  trim(a);
}

// q and r in [0, m) with a = q g + r mod m and deg r < deg g, for g monic mod m (its top
// coefficient is 1 read mod m, and is taken as 1). The working coefficients are reduced only
// where they are read.
void divide_monic_mod(BigPoly a, const BigPoly& g, const mpz_class& m, BigPoly& q, BigPoly& r) {
  std::size_t dg = g.size() - 1;
  while (dg > 0 && sgn(g[dg]) == 0) --dg;
  q.assign(a.size() > dg ? a.size() - dg : 0, mpz_class(0));
  for (std::size_t k = a.size(); k-- > dg;) {
    mpz_fdiv_r(a[k].get_mpz_t(), a[k].get_mpz_t(), m.get_mpz_t());
    if (sgn(a[k]) == 0) continue;
    for (std::size_t j = 0; j < dg; ++j) mpz_submul(a[k - dg + j].get_mpz_t(), a[k].get_mpz_t(), g[j].get_mpz_t());
    q[k - dg] = a[k];
  }
  trim(q);
  a.resize(std::min(a.size(), dg));
  reduce_mod(a, m);
  r = std::move(a);
}

// The two corrections of a quadratic Hensel step for an error x, mod gain: r with
// T x = q G + r, and rest = S x + q H.
void correction(const BigPoly& x, const BigPoly& G, const BigPoly& H, const BigPoly& S, const BigPoly& T,
                const mpz_class& gain, BigPoly& q, BigPoly& r, BigPoly& rest) {
  multiply(T, x, rest);
  divide_monic_mod(rest, G, gain, q, r);
  multiply(S, x, rest);
  multiply_add(q, H, rest);
  reduce_mod(rest, gain);
}

// distinct_degree and equal_degree on machine words, for a small prime p: the same steps, and
// the same random draws, as on ModPoly.
Result<std::vector<ModPoly>> distinct_degree_on_words(const ZPoly& f, const Int& prime) {
  const auto p = static_cast<std::uint64_t>(prime.small());
  WordPoly g = WordPoly::of(reduce(f, prime)).monic(p);
  const WordPoly x({0, 1});
  WordPoly h = x;
  std::vector<ModPoly> parts{constant_mod(1, prime)};
  for (std::int64_t i = 1; 2 * i <= g.degree(); ++i) {
    TV_CHECK(check_interrupt());
    h = WordPoly::pow_mod(std::move(h), prime, g, p);
    WordPoly c = WordPoly::gcd(h.minus_monomial(1, 1, p), g, p);
    g = WordPoly::quotient(std::move(g), c, p);
    parts.push_back(c.to_mod_poly(prime));
  }
  while (static_cast<std::int64_t>(parts.size()) < g.degree()) parts.push_back(constant_mod(1, prime));
  parts.push_back(g.to_mod_poly(prime));
  return parts;
}

Result<std::vector<WordPoly>> equal_degree_on_words(const WordPoly& f, std::int64_t d, const Int& prime,
                                                    const Int& exponent) {
  if (f.degree() == d) return std::vector<WordPoly>{f};
  const auto p = static_cast<std::uint64_t>(prime.small());
  for (int draw = 0; draw < 1000; ++draw) {
    TV_CHECK(check_interrupt());
    const WordPoly b = WordPoly::pow_mod(WordPoly::of(random_probe(d, prime)), exponent, f, p);
    WordPoly g = WordPoly::gcd(b.minus_monomial(1, 0, p), f, p);
    if (g.degree() > 0 && g.degree() < f.degree()) {
      WordPoly q = WordPoly::quotient(f, g, p);
      TV_TRY(std::vector<WordPoly> factors, equal_degree_on_words(g, d, prime, exponent));
      TV_TRY(std::vector<WordPoly> more, equal_degree_on_words(q, d, prime, exponent));
      for (WordPoly& factor : more) factors.push_back(std::move(factor));
      return factors;
    }
  }
  return other_failure("This (probably) shouldn't happen");
}

// The subset search of combine_factors.
//
// Subsets of the factors not yet used are visited by growing size s, while 2s is at most their
// count: a reducible rest has a factor made of at most half of them. A factor found leaves the
// search with its modular factors, and the pass at that size starts over on what is left.
//
// A true factor h of cur is, up to a constant, L times the product of its subset mod m, read
// with symmetric residues (L = lc(cur)). The tests a subset must pass, cheapest first:
//
//   1. Degree: deg h and deg(cur / h) are degrees of factors of f, which every prime tried
//      allows (`allowed`).
//   2. Traces: L^k times the k-th power sum of h's roots is an integer (it is a polynomial in the
//      coefficients of (L / lc(h)) h) of at most T = |L|^k d rho^k in size, where rho bounds
//      every root of f (Fujiwara). Power sums add up over the subset, and mod m they are L^k
//      times the sum of the subset's own power sums, so they are tested on 64-bit words, for
//      k = 1 and 2: each factor's value mod m is kept as floor(value 2^64 / m), and the words of
//      a true factor sum, mod 2^64, to within W = ceil(T 2^64 / m) above zero and W plus the
//      subset's size below (each word rounds down by less than one). The second power sum
//      catches subsets such as {a, -a} of a Swinnerton-Dyer polynomial, whose trace is 0.
//   3. Constant term: L times the subset's constant terms mod m divides L cur(0).
//   4. Value at 2: L times the product of the subset's values at 2 mod m is at most
//      |L| (2 + rho)^d in size, and divides L cur(2). Factors of x^n - 1 need this: modulo a
//      prime their traces and constant terms are often exact small integers (0 and 1), so the
//      tests above let many subsets through.
//   5. The candidate: its coefficients are at most |L| (1 + rho)^d in size, and its values at
//      1 and -1 divide L cur(1) and L cur(-1).
//   6. Trial division of L cur by the candidate over the integers.
class Recombination {
 public:
  Recombination(const ZPoly& f, const std::vector<ModPoly>& lifted, const Int& m, std::vector<bool> allowed)
      : lifted_(lifted.size()), power_sums_(lifted.size()), degree_(lifted.size()), current_(f), allowed_(std::move(allowed)),
        product_(static_cast<std::size_t>(f.degree()) + 1), next_(static_cast<std::size_t>(f.degree()) + 1) {
    m.get_mpz(modulus_.v);
    for (std::size_t i = 0; i < lifted.size(); ++i) {
      const auto& c = lifted[i].coefficients();
      lifted_[i] = std::vector<Scratch>(c.size());
      for (std::size_t k = 0; k < c.size(); ++k) c[k].value().get_mpz(lifted_[i][k].v);
      degree_[i] = lifted[i].degree();
      // For x^d + a x^(d-1) + b x^(d-2) + ...: p1 = -a and p2 = a^2 - 2b.
      const Int a = c[c.size() - 2].value(), b = c.size() > 2 ? c[c.size() - 3].value() : Int(0);
      power_sums_[i] = {-a, a * a - Int(2) * b};
      active_.push_back(i);
    }
    values_at_two_ = std::vector<Scratch>(lifted.size());
    for (std::size_t i = 0; i < lifted.size(); ++i) {
      for (std::size_t k = lifted_[i].size(); k-- > 0;) {
        mpz_mul_2exp(values_at_two_[i].v, values_at_two_[i].v, 1);
        mpz_add(values_at_two_[i].v, values_at_two_[i].v, lifted_[i][k].v);
        mpz_mod(values_at_two_[i].v, values_at_two_[i].v, modulus_.v);
      }
    }
    root_bound_ = root_bound(f);
    if (allowed_.size() != static_cast<std::size_t>(f.degree()) + 1)
      allowed_.assign(static_cast<std::size_t>(f.degree()) + 1, true);
    track_current();
  }

  Result<std::vector<ZPoly>> run() {
    std::size_t s = 1;
    while (current_.degree() >= 2 && 2 * s <= active_.size()) {
      TV_TRY(bool found, search(s));
      if (!found) ++s;
    }
    if (current_.degree() >= 1) found_.push_back(std::move(current_));
    return std::move(found_);
  }

 private:
  // Visits the subsets of size s of the active factors; true when one was a factor, which
  // has then been taken out.
  Result<bool> search(std::size_t s) {
    chosen_.clear();
    const Outcome outcome = visit(0, s, Traces{0, 0}, 0);
    if (outcome == Outcome::Failed) return std::move(*failure_);
    return outcome == Outcome::Found;
  }

  // The recursion returns a plain outcome, and keeps a failure aside, so that its many calls
  // build no Result.
  enum class Outcome { None, Found, Failed };

  using Traces = std::array<std::uint64_t, 2>;

  Outcome visit(std::size_t from, std::size_t need, const Traces& trace, std::int64_t degree) {
    const std::size_t n = active_.size();
    if (need == 1) {
      // The leaves, without a call each: only a subset that passes the word tests is formed.
      for (std::size_t a = from; a < n; ++a) {
        const Slot& slot = slots_[a];
        const Traces sums{trace[0] + slot.words[0], trace[1] + slot.words[1]};
        if (!passes_word_tests(sums, degree + slot.degree)) continue;
        chosen_.push_back(active_[a]);
        const Outcome outcome = test(degree + slot.degree);
        chosen_.pop_back();
        if (outcome != Outcome::None) return outcome;
      }
      return Outcome::None;
    }
    for (std::size_t a = from; a + need <= n; ++a) {
      const Slot& slot = slots_[a];
      chosen_.push_back(active_[a]);
      const Outcome outcome =
          visit(a + 1, need - 1, Traces{trace[0] + slot.words[0], trace[1] + slot.words[1]}, degree + slot.degree);
      chosen_.pop_back();
      if (outcome != Outcome::None) return outcome;
    }
    return Outcome::None;
  }

  // The degree and trace tests.
  bool passes_word_tests(const Traces& trace, std::int64_t degree) const {
    const std::int64_t rest = current_.degree() - degree;
    return rest >= 1 && allowed_[static_cast<std::size_t>(degree)] && allowed_[static_cast<std::size_t>(rest)] &&
           trace_fits(trace[0], windows_[0], degree) && trace_fits(trace[1], windows_[1], degree);
  }

  Outcome fail(Failure failure) {
    failure_ = std::move(failure);
    return Outcome::Failed;
  }

  Outcome test(std::int64_t degree) {
    if ((++tested_ & kTestsPerCheck) == 0) {
      Status status = check_interrupt();
      if (!status.ok()) return fail(std::move(status).failure());
    }
    if (current_.is_zero()) return fail(other_failure("combine_factors: zero polynomial"));
    if (!constant_term_divides() || !value_at_two_fits(degree)) return Outcome::None;
    ZPoly g = candidate();
    if (!coefficients_fit(g) || !divides(eval(g, 1), wanted_at_one_) || !divides(eval(g, -1), wanted_at_minus_one_))
      return Outcome::None;
    // L cur = q g and g = c h with h primitive, so cur = (q c / L) h.
    auto quotient = exact_quotient(current_.scale(current_.leading()), g);
    if (!quotient) return Outcome::None;
    const Int c = content(g);
    auto primitive = g.divide_coefficients(c);
    if (!primitive) return fail(std::move(primitive).failure());
    auto rest = quotient->scale(c).divide_coefficients(current_.leading());
    if (!rest) return fail(std::move(rest).failure());
    current_ = std::move(rest).value();
    found_.push_back(std::move(primitive).value());
    std::erase_if(active_, [&](std::size_t i) { return std::find(chosen_.begin(), chosen_.end(), i) != chosen_.end(); });
    track_current();
    return Outcome::Found;
  }

  bool trace_fits(std::uint64_t trace, const std::vector<std::uint64_t>& windows, std::int64_t degree) const {
    const std::uint64_t window = windows[static_cast<std::size_t>(degree)];
    if (window == kNoWindow) return true;
    const auto signed_trace = static_cast<std::int64_t>(trace);
    return signed_trace <= static_cast<std::int64_t>(window) &&
           signed_trace >= -static_cast<std::int64_t>(window + chosen_.size());
  }

  // |L| (a + rho)^d, the bound on the values at a and on the coefficients (a = 1) of a true
  // factor of degree d, into `bound`; false when it is no use, reaching m / 2.
  bool factor_bound(std::uint64_t a, std::int64_t degree, mpz_t bound) {
    (root_bound_ + Int(static_cast<std::int64_t>(a))).get_mpz(bound);
    mpz_pow_ui(bound, bound, static_cast<unsigned long>(degree));
    mpz_mul(bound, bound, absolute_lead_.v);
    mpz_mul_2exp(twice_.v, bound, 1);
    return mpz_cmp(twice_.v, modulus_.v) < 0;
  }

  // The value at 2 of a true factor (L / lc(h)) h is |L| times the product of |2 - root|, at
  // most |L| (2 + rho)^d, and it divides L cur(2). It is L times the product of the subset's
  // values at 2, mod m.
  bool value_at_two_fits(std::int64_t degree) {
    mpz_t& v = constant_.v;
    mpz_set(v, lead_.v);
    for (std::size_t j : chosen_) {
      mpz_mul(v, v, values_at_two_[j].v);
      mpz_mod(v, v, modulus_.v);
    }
    to_symmetric(v);
    if (!factor_bound(2, degree, bound_.v)) return true;
    if (mpz_cmpabs(v, bound_.v) > 0) return false;
    return mpz_sgn(v) == 0 ? mpz_sgn(wanted_at_two_.v) == 0 : mpz_divisible_p(wanted_at_two_.v, v) != 0;
  }

  // Every coefficient of a true factor of degree d is |L| times an elementary symmetric function
  // of d roots, at most |L| (1 + rho)^d.
  bool coefficients_fit(const ZPoly& g) {
    if (!factor_bound(1, g.degree(), bound_.v)) return true;
    Scratch c;
    for (const Int& x : g.coefficients()) {
      x.get_mpz(c.v);
      if (mpz_cmpabs(c.v, bound_.v) > 0) return false;
    }
    return true;
  }

  // Whether the symmetric residue of L times the subset's constant terms divides L cur(0).
  bool constant_term_divides() {
    mpz_t& c = constant_.v;
    mpz_set(c, lead_.v);
    for (std::size_t j : chosen_) {
      mpz_mul(c, c, lifted_[j][0].v);
      mpz_mod(c, c, modulus_.v);
    }
    to_symmetric(c);
    return mpz_divisible_p(wanted_.v, c) != 0;
  }

  // L times the product of the subset mod m, in symmetric residues.
  ZPoly candidate() {
    mpz_set(product_[0].v, lead_.v);
    std::size_t length = 1;
    for (std::size_t j : chosen_) {
      const std::vector<Scratch>& factor = lifted_[j];
      const std::size_t next_length = length + factor.size() - 1;
      for (std::size_t k = 0; k < next_length; ++k) mpz_set_ui(next_[k].v, 0);
      for (std::size_t i = 0; i < length; ++i)
        for (std::size_t k = 0; k < factor.size(); ++k) mpz_addmul(next_[i + k].v, product_[i].v, factor[k].v);
      for (std::size_t k = 0; k < next_length; ++k) mpz_mod(product_[k].v, next_[k].v, modulus_.v);
      length = next_length;
    }
    std::vector<Int> coefficients;
    coefficients.reserve(length);
    for (std::size_t k = 0; k < length; ++k) {
      to_symmetric(product_[k].v);
      coefficients.push_back(Int::from_mpz(product_[k].v));
    }
    return ZPoly(std::move(coefficients));
  }

  // c in [0, m) to c - m when 2c >= m.
  void to_symmetric(mpz_t c) {
    mpz_mul_2exp(twice_.v, c, 1);
    if (mpz_cmp(twice_.v, modulus_.v) >= 0) mpz_sub(c, c, modulus_.v);
  }

  // The values that depend on cur and its leading coefficient L.
  void track_current() {
    if (current_.is_zero()) return;
    const Int& lead = current_.leading();
    lead.get_mpz(lead_.v);
    mpz_mod(lead_.v, lead_.v, modulus_.v);
    (lead * current_.coefficient(0)).get_mpz(wanted_.v);
    (lead * eval(current_, 2)).get_mpz(wanted_at_two_.v);
    lead.abs().get_mpz(absolute_lead_.v);
    wanted_at_one_ = lead * eval(current_, 1);
    wanted_at_minus_one_ = lead * eval(current_, -1);
    // The words of L^k p_k mod m, and the windows W for every degree, for k = 1 and 2.
    Scratch scaled;
    const Int lead_powers[2] = {lead, lead * lead};
    const Int root_powers[2] = {root_bound_, root_bound_ * root_bound_};
    for (std::size_t k = 0; k < 2; ++k) {
      words_[k].resize(lifted_.size());
      for (std::size_t i : active_) {
        (lead_powers[k] * power_sums_[i][k]).get_mpz(scaled.v);
        mpz_mod(scaled.v, scaled.v, modulus_.v);
        mpz_mul_2exp(scaled.v, scaled.v, 64);
        mpz_fdiv_q(scaled.v, scaled.v, modulus_.v);
        words_[k][i] = mpz_get_ui(scaled.v);
      }
      slots_.resize(active_.size());
      for (std::size_t a = 0; a < active_.size(); ++a) {
        slots_[a].words[k] = words_[k][active_[a]];
        slots_[a].degree = degree_[active_[a]];
      }
      windows_[k].assign(static_cast<std::size_t>(current_.degree()) + 1, kNoWindow);
      for (std::size_t d = 1; d < windows_[k].size(); ++d) {
        (lead_powers[k].abs() * Int(static_cast<std::int64_t>(d)) * root_powers[k]).shifted_left(64).get_mpz(scaled.v);
        mpz_cdiv_q(scaled.v, scaled.v, modulus_.v);
        if (mpz_cmp_ui(scaled.v, std::uint64_t{1} << 62) < 0) windows_[k][d] = mpz_get_ui(scaled.v);
      }
    }
  }

  // Fujiwara's bound, 2 max |f_(n-i) / f_n|^(1/i) over i = 1..n, rounded up at each step:
  // every complex root of f is at most this in size.
  static Int root_bound(const ZPoly& f) {
    const auto& c = f.coefficients();
    const std::size_t n = c.size() - 1;
    Scratch lc, ratio, root, largest;
    f.leading().abs().get_mpz(lc.v);
    for (std::size_t i = 1; i <= n; ++i) {
      c[n - i].abs().get_mpz(ratio.v);
      mpz_cdiv_q(ratio.v, ratio.v, lc.v);
      if (mpz_root(root.v, ratio.v, i) == 0) mpz_add_ui(root.v, root.v, 1);
      if (mpz_cmp(root.v, largest.v) > 0) mpz_set(largest.v, root.v);
    }
    mpz_mul_2exp(largest.v, largest.v, 1);
    return Int::from_mpz(largest.v);
  }

  static Int eval(const ZPoly& p, std::int64_t a) {
    Int value(0);
    for (std::size_t k = p.coefficients().size(); k-- > 0;) value = value * Int(a) + p.coefficients()[k];
    return value;
  }

  // Whether d divides n; only zero divides zero.
  static bool divides(const Int& d, const Int& n) { return d.is_zero() ? n.is_zero() : rem(n, d).is_zero(); }

  static constexpr std::uint64_t kNoWindow = ~std::uint64_t{0};
  // A mask: interruption is checked once per 2^10 subsets that pass the word tests.
  static constexpr std::uint64_t kTestsPerCheck = (std::uint64_t{1} << 10) - 1;
  std::uint64_t tested_ = 0;
  std::optional<Failure> failure_;

  std::vector<std::vector<Scratch>> lifted_;  // the lifted factors' coefficients in [0, m)
  std::vector<std::array<Int, 2>> power_sums_;  // each lifted factor's p1 and p2 of its roots, mod m
  std::vector<std::int64_t> degree_;
  std::vector<std::uint64_t> words_[2];    // floor((L^k p_k mod m) 2^64 / m) for each factor
  // The words and degree of each active factor, in the order of active_, for the search.
  struct Slot {
    std::uint64_t words[2];
    std::int64_t degree;
  };
  std::vector<Slot> slots_;
  std::vector<std::uint64_t> windows_[2];  // W for each degree, or kNoWindow where the test says nothing
  std::vector<std::size_t> active_, chosen_;
  ZPoly current_;
  std::vector<ZPoly> found_;
  std::vector<bool> allowed_;
  Int root_bound_;
  Scratch modulus_;
  Scratch lead_, wanted_;  // L mod m and L cur(0)
  Int wanted_at_one_, wanted_at_minus_one_;  // L cur(1) and L cur(-1)
  std::vector<Scratch> product_, next_;  // a candidate's coefficients, as it is multiplied out
  Scratch constant_, twice_, bound_;
  Scratch wanted_at_two_, absolute_lead_;  // L cur(2) and |L|
  std::vector<Scratch> values_at_two_;      // each lifted factor's value at 2, mod m
};
}  // namespace

Result<ZPoly> primitive_integer_part(const QPoly& s) {
  Int numerator_gcd(0), denominator_lcm(1);
  for (const Fraction& c : s.coefficients()) {
    numerator_gcd = gcd(numerator_gcd, c.numerator());
    denominator_lcm = denominator_lcm * div(c.denominator(), gcd(denominator_lcm, c.denominator()));
  }
  std::vector<Int> coefficients;
  coefficients.reserve(s.coefficients().size());
  for (const Fraction& c : s.coefficients()) {
    TV_TRY(Int scaled, div_exact(c.numerator() * denominator_lcm, c.denominator()));
    TV_TRY(Int reduced, div_exact(scaled, numerator_gcd));
    coefficients.push_back(std::move(reduced));
  }
  return ZPoly(std::move(coefficients));
}

Result<ZPoly> square_free_integer_part(const QPoly& p) {
  if (p.is_zero()) return range_failure("monic() of zero polynomial");
  TV_TRY(ZPoly f, primitive_integer_part(p));
  // A repeated factor of f stays one modulo every prime that keeps f's degree, so most
  // polynomials are shown square-free by a cheap gcd modulo a small prime.
  for (std::int64_t q : {3, 5, 7, 11, 13, 17, 19, 23, 29, 31, 37, 41, 43, 47, 53, 59, 61, 67, 71, 73}) {
    TV_TRY(bool square_free, square_free_modulo(f, Int(q)));
    if (square_free) return f;
  }
  // Over the integers the subresultant sequence needs exact divisions only, no rational gcds.
  TV_TRY(ZPoly common, gcd(f, f.derivative()));
  if (common.degree() == 0) return f;
  TV_TRY(common, common.divide_coefficients(content(common) * Int(common.leading().sign())));
  auto quotient = exact_quotient(f, common);
  TV_ENSURE(quotient.has_value(), "a polynomial is not divisible by its gcd with its derivative");
  return std::move(*quotient);
}

ModPoly reduce(const ZPoly& a, const Int& m) {
  std::vector<ModInt> coefficients;
  coefficients.reserve(a.coefficients().size());
  for (const Int& c : a.coefficients()) coefficients.emplace_back(c, m);
  return ModPoly(std::move(coefficients), m);
}

ZPoly residues(const ModPoly& a) {
  std::vector<Int> coefficients;
  coefficients.reserve(a.coefficients().size());
  for (const ModInt& c : a.coefficients()) coefficients.push_back(c.value());
  return ZPoly(std::move(coefficients));
}

ZPoly symmetric_residues(const ModPoly& a) {
  std::vector<Int> coefficients;
  coefficients.reserve(a.coefficients().size());
  for (const ModInt& c : a.coefficients())
    coefficients.push_back(compare(c.value() * Int(2), c.modulus()) >= 0 ? c.value() - c.modulus() : c.value());
  return ZPoly(std::move(coefficients));
}

Result<ModPoly> euclidean_gcd(ModPoly a, ModPoly b) {
  if (a.degree() < b.degree()) std::swap(a, b);
  if (!b.is_zero()) {
    TV_TRY(b, make_monic(b));
  }
  while (!b.is_zero()) {
    TV_TRY(ModPoly r, rem(a, b));
    if (!r.is_zero()) {
      TV_TRY(r, make_monic(r));
    }
    a = std::move(b);
    b = std::move(r);
  }
  return a;
}

Result<ModPoly> pow_mod(ModPoly b, Int e, const ModPoly& m) {
  ModPoly result = constant_mod(1, m.context());
  while (e.sign() > 0) {
    if (e.is_odd()) {
      TV_TRY(result, rem(result * b, m));
      e -= Int(1);
    } else {
      TV_TRY(b, rem(b * b, m));
      e = div(e, Int(2));
    }
  }
  return result;
}

Result<std::vector<Int>> good_primes(const ZPoly& f, std::size_t count) {
  if (f.is_zero()) return other_failure("choose_prime of zero polynomial");
  std::vector<std::int64_t> primes;
  std::vector<Int> good;
  for (std::int64_t candidate = 2; good.size() < count; ++candidate) {
    if (!is_prime_by_trial_division(candidate, primes)) continue;
    primes.push_back(candidate);
    const Int p(candidate);
    // The equal-degree split needs an odd prime.
    if (candidate == 2) continue;
    TV_TRY(bool square_free, square_free_modulo(f, p));
    if (square_free) good.push_back(p);
  }
  return good;
}

Result<Int> choose_prime(const ZPoly& f) {
  TV_TRY(std::vector<Int> primes, good_primes(f, 1));
  return std::move(primes.front());
}

std::vector<bool> factor_degrees(const std::vector<ModPoly>& parts) {
  std::size_t n = 0;
  for (const ModPoly& part : parts) n += static_cast<std::size_t>(std::max<std::int64_t>(part.degree(), 0));
  std::vector<bool> reachable(n + 1, false);
  reachable[0] = true;
  for (std::size_t d = 1; d < parts.size(); ++d)
    for (std::int64_t k = 0; k < parts[d].degree() / static_cast<std::int64_t>(d); ++k)
      for (std::size_t total = n + 1; total-- > d;)
        if (reachable[total - d]) reachable[total] = true;
  return reachable;
}

Result<PrimeChoice> choose_among_primes(const ZPoly& f, std::size_t count) {
  TV_TRY(std::vector<Int> primes, good_primes(f, count));
  std::optional<PrimeChoice> best;
  std::vector<bool> allowed(static_cast<std::size_t>(f.degree()) + 1, true);
  for (const Int& p : primes) {
    TV_TRY(std::vector<ModPoly> parts, distinct_degree(f, p));
    const std::vector<bool> degrees = factor_degrees(parts);
    for (std::size_t d = 0; d < allowed.size(); ++d) allowed[d] = allowed[d] && degrees[d];
    std::size_t factors = 0;
    for (std::size_t d = 1; d < parts.size(); ++d)
      factors += static_cast<std::size_t>(std::max<std::int64_t>(parts[d].degree(), 0)) / d;
    if (!best || factors < best->factor_count) best = PrimeChoice{p, std::move(parts), {}, factors};
    // One modular factor, or no degree left between 0 and n: f is irreducible.
    if (factors == 1) break;
  }
  best->allowed = std::move(allowed);
  return std::move(*best);
}

Result<std::vector<ModPoly>> distinct_degree(const ZPoly& f, const Int& p) {
  if (WordPoly::fits(p, f.degree())) return distinct_degree_on_words(f, p);
  TV_TRY(ModPoly g, make_monic(reduce(f, p)));
  const ModPoly one = constant_mod(1, p);
  const ModPoly x = ModPoly::monomial(ModInt(Int(1), p), 1);
  ModPoly h = x;
  std::vector<ModPoly> parts{one};
  // Once 2i exceeds the degree of what is left, that rest is 1 or irreducible.
  for (std::int64_t i = 1; 2 * i <= g.degree(); ++i) {
    TV_CHECK(check_interrupt());
    TV_TRY(h, pow_mod(std::move(h), p, g));
    TV_TRY(ModPoly c, euclidean_gcd(h - x, g));
    TV_TRY(c, make_monic(c));
    TV_TRY(g, div_exact(g, c));
    parts.push_back(std::move(c));
  }
  while (static_cast<std::int64_t>(parts.size()) < g.degree()) parts.push_back(one);
  parts.push_back(std::move(g));
  return parts;
}

Result<std::vector<ModPoly>> equal_degree(const ModPoly& f, std::int64_t d) {
  const Int& p = f.context();
  if (p == Int(2)) return range_failure("p=2 not implemented");
  if (f.degree() == d) return std::vector<ModPoly>{f};
  const Int exponent = div(p.pow(static_cast<std::uint32_t>(d)) - Int(1), Int(2));
  if (WordPoly::fits(p, f.degree())) {
    TV_TRY(std::vector<WordPoly> split, equal_degree_on_words(WordPoly::of(f), d, p, exponent));
    std::vector<ModPoly> factors;
    for (const WordPoly& factor : split) factors.push_back(factor.to_mod_poly(p));
    return factors;
  }
  const ModPoly one = constant_mod(1, p);
  for (int draw = 0; draw < 1000; ++draw) {
    TV_CHECK(check_interrupt());
    TV_TRY(ModPoly b, pow_mod(random_probe(d, p), exponent, f));
    TV_TRY(ModPoly g, euclidean_gcd(b - one, f));
    TV_TRY(g, make_monic(g));
    if (g.degree() > 0 && g.degree() < f.degree()) {
      TV_TRY(ModPoly q, div_exact(f, g));
      TV_TRY(std::vector<ModPoly> factors, equal_degree(g, d));
      TV_TRY(std::vector<ModPoly> more, equal_degree(q, d));
      for (ModPoly& factor : more) factors.push_back(std::move(factor));
      return factors;
    }
  }
  return other_failure("This (probably) shouldn't happen");
}

Result<std::vector<ModPoly>> split_parts(const std::vector<ModPoly>& parts) {
  std::vector<ModPoly> factors;
  for (std::size_t d = 1; d < parts.size(); ++d) {
    if (parts[d].degree() <= 0) continue;
    TV_TRY(std::vector<ModPoly> split, equal_degree(parts[d], static_cast<std::int64_t>(d)));
    for (ModPoly& factor : split) factors.push_back(std::move(factor));
  }
  return factors;
}

Result<std::vector<ModPoly>> modular_factors(const ZPoly& f, const Int& p) {
  TV_TRY(std::vector<ModPoly> parts, distinct_degree(f, p));
  return split_parts(parts);
}

std::uint64_t lift_exponent(const ZPoly& f, const Int& p) {
  const std::int64_t h = f.degree() / 2;
  Int sum_of_squares(0);
  for (const Int& c : f.coefficients()) sum_of_squares += c * c;
  const Int norm = ceil_sqrt(sum_of_squares);
  const Int lc = f.leading().abs();
  const Int bound = bound_binomial(h - 1, h / 2 - 1) * lc + bound_binomial(h - 1, h / 2) * norm;
  const Int limit = Int(2) * lc * bound;
  std::uint64_t k = 1;
  for (Int power = p; compare(power, limit) <= 0; power *= p) ++k;
  return k;
}

Result<std::vector<ModPoly>> hensel_lift(const ZPoly& f, const std::vector<ModPoly>& factors, const Int& p,
                                         std::uint64_t k) {
  if (k > std::numeric_limits<std::uint32_t>::max()) return other_failure("exponent too large");
  const auto exponent = static_cast<std::uint32_t>(k);
  std::vector<ModPoly> lifted;
  lifted.reserve(factors.size());
  TV_CHECK(lift_tree(f, factors, p, exponent, p.pow(exponent), lifted));
  return lifted;
}

Result<std::pair<ZPoly, ZPoly>> lift_pair(const ZPoly& f, const ModPoly& g, const ModPoly& h, const Int& p,
                                          std::uint32_t k) {
  TV_TRY(auto st, bezout(g, h));
  const BigPoly F = big_poly(f);
  BigPoly G = big_poly(residues(g)), H = big_poly(residues(h)), S = big_poly(residues(st.first)),
          T = big_poly(residues(st.second));
  mpz_class big_p;
  p.get_mpz(big_p.get_mpz_t());
  // The exponents run up to k by doubling, each the ceiling of half the next, so that the last
  // step ends at p^k and not beyond it.
  std::vector<std::uint32_t> exponents{k};
  while (exponents.back() > 1) exponents.push_back((exponents.back() + 1) / 2);
  BigPoly product, e, w, q, r, next;  // reused from step to step
  mpz_class m = big_p;  // f = G H and S G + T H = 1 hold mod m
  for (std::size_t step = exponents.size() - 1; step-- > 0;) {
    TV_CHECK(check_interrupt());
    // The next modulus is m times `gain`, which divides m.
    mpz_class gain;
    mpz_pow_ui(gain.get_mpz_t(), big_p.get_mpz_t(), exponents[step] - exponents[step + 1]);
    // e = (f - G H) / m; then G + m r and H + m (S e + q H) with T e = q G + r, all mod gain.
    multiply(G, H, product);
    subtract_and_divide(F, product, m, e);
    correction(e, G, H, S, T, gain, q, r, next);
    add_scaled(G, r, m);
    add_scaled(H, next, m);
    if (step == 0) break;  // the last step needs no new S and T
    // w = (1 - S G - T H) / m; then S + m (S w + q2 H) and T + m r2 with T w = q2 G + r2.
    multiply(S, G, product);
    multiply_add(T, H, product);
    subtract_and_divide(BigPoly{mpz_class(1)}, product, m, w);
    correction(w, G, H, S, T, gain, q, r, next);
    add_scaled(S, next, m);
    add_scaled(T, r, m);
    m *= gain;
  }
  return std::pair{z_poly(G), z_poly(H)};
}

Result<std::vector<ZPoly>> combine_factors(const ZPoly& f, const std::vector<ModPoly>& lifted, const Int& m,
                                           std::vector<bool> allowed) {
  return Recombination(f, lifted, m, std::move(allowed)).run();
}

}  // namespace zassenhaus

namespace {

// Distinct-degree factoring costs little next to the rest, and the prime with the fewest
// modular factors shrinks the recombination, which is exponential in their count.
constexpr std::size_t kPrimesTried = 3;

// One modular factor, or no degree between 0 and n that every prime allows.
bool is_irreducible_by_degrees(const zassenhaus::PrimeChoice& choice) {
  if (choice.factor_count <= 1) return true;
  return std::find(choice.allowed.begin() + 1, choice.allowed.end() - 1, true) == choice.allowed.end() - 1;
}

}  // namespace

Result<std::vector<QPoly>> factor(const QPoly& p) {
  using namespace zassenhaus;
  TV_TRY(ZPoly f, square_free_integer_part(p));
  if (f.degree() <= 0) return std::vector<QPoly>{};
  TV_TRY(PrimeChoice choice, choose_among_primes(f, kPrimesTried));
  std::vector<ZPoly> factors;
  if (is_irreducible_by_degrees(choice)) {
    factors.push_back(std::move(f));
  } else {
    TV_TRY(std::vector<ModPoly> modular, split_parts(choice.parts));
    const std::uint64_t k = lift_exponent(f, choice.prime);
    TV_TRY(std::vector<ModPoly> lifted, hensel_lift(f, modular, choice.prime, k));
    TV_TRY(factors, combine_factors(f, lifted, lifted.front().context(), std::move(choice.allowed)));
  }
  std::vector<QPoly> result;
  result.reserve(factors.size());
  for (const ZPoly& g : factors) {
    std::vector<Fraction> coefficients(g.coefficients().begin(), g.coefficients().end());
    result.emplace_back(std::move(coefficients));
  }
  return result;
}

}  // namespace tv
