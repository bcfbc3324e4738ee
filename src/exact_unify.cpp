// Growing number fields: adjoining k-th roots, and unifying numbers of different fields.
//
// root(a, k): the k-th roots of a and of all its conjugates are the roots of the norm
// N(x) = Res_y(m(y), x^k - a(y)), where m is the min_poly of a's field and a(y) is a's
// coefficient polynomial. Its square-free part, with an interval around the non-negative root
// that holds no other root of N (found by bisection on the sign of t^k - a), defines the new
// field. The field keeps N itself, not the factor of N that has the root, so it may be a ring
// until the next unify; factoring N only tells whether it is one.
//
// unify: for fields Q(alpha) and Q(beta), gamma = c alpha + beta generates both when the
// resultant R(x) = Res_y(m1(y), m2(x - c y)), whose roots are all c alpha_i + beta_j, is
// square-free; the factor of R that has gamma as a root is its min_poly. The old generators
// are then found as common roots: beta is the one root of gcd(m2(y), h(c alpha + y)) over
// Q(alpha), and so on. An existing field is kept when it already holds the other generator.
#include <algorithm>
#include <utility>

#include "exact.hpp"
#include "interrupt.hpp"
#include "num/factoring.hpp"
#include "num/residue_ring.hpp"
#include "num/sturm.hpp"

namespace tv {
namespace {

QPoly x_times(const Fraction& c) { return QPoly::monomial(c, 1); }
QPoly rational(const Fraction& c) { return QPoly::constant(c); }

// p(S(y)) by Horner's rule, top coefficient first, each coefficient of p made a constant of
// S's coefficient type by `lift`.
template <class Poly, class Lift>
Poly compose(const QPoly& p, const Poly& s, Lift lift) {
  Poly acc(s.context());
  const auto& c = p.coefficients();
  for (std::size_t k = c.size(); k-- > 0;) acc = acc * s + Poly::constant(lift(c[k]));
  return acc;
}

// p(S(y)) over a field, the substitution's coefficients read there.
APoly compose_over(const FieldRef& field, const QPoly& p, const Substitution& s) {
  std::vector<AlgebraicNumber> terms;
  for (const QPoly& c : s) terms.push_back(AlgebraicNumber::from_polynomial(field, c));
  return compose(p, APoly(std::move(terms), field),
                 [&](const Fraction& x) { return AlgebraicNumber::constant(field, x); });
}

APoly constants_over(const FieldRef& field, const QPoly& p) {
  std::vector<AlgebraicNumber> c;
  for (const Fraction& x : p.coefficients()) c.push_back(AlgebraicNumber::constant(field, x));
  return APoly(std::move(c), field);
}

// q(S(y)) mod a(y) over a field, for a of degree at least 1 with a rational leading
// coefficient: Horner's rule reduced at every step, so the degree stays below deg a however
// large deg q is. The remainder is the one of the full composition.
Result<APoly> compose_over_modulo(const FieldRef& field, const QPoly& q, const Substitution& s, const APoly& a) {
  std::vector<AlgebraicNumber> terms;
  for (const QPoly& c : s) terms.push_back(AlgebraicNumber::from_polynomial(field, c));
  const APoly substitution(std::move(terms), field);
  TV_TRY(const APoly monic, a.divide_coefficients(a.leading()));  // a rational, not zero; may be interrupted
  const std::size_t n = static_cast<std::size_t>(a.degree());
  APoly acc(field);
  const auto& c = q.coefficients();
  for (std::size_t k = c.size(); k-- > 0;) {
    TV_CHECK(check_interrupt());
    acc = acc * substitution + APoly::constant(AlgebraicNumber::constant(field, c[k]));
    if (acc.degree() == static_cast<std::int64_t>(n)) {
      const AlgebraicNumber lead = acc.leading();
      acc = acc - (monic * APoly::monomial(lead, 0));
    }
  }
  return acc;
}

// The Euclidean remainder sequence with every remainder made monic (one inverse each); the
// last one is the gcd.
Result<APoly> monic_gcd(APoly a, APoly b) {
  if (a.degree() < b.degree()) std::swap(a, b);
  while (!b.is_zero()) {
    TV_CHECK(check_interrupt());
    TV_TRY(APoly r, rem(a, b));
    if (!r.is_zero()) {
      TV_TRY(AlgebraicNumber inverse_lead, r.leading().inverse());
      r = r.scale(inverse_lead);
    }
    a = std::exchange(b, std::move(r));
  }
  return a;
}

// ---------------------------------------------------------------------------------------------
// unify

// Where the two generators go in the common field. No image means the numbers' polynomials
// are read as they stand: their field equals the common one, or holds only rationals.
struct Embedding {
  FieldRef field;
  std::optional<AlgebraicNumber> alpha;
  std::optional<AlgebraicNumber> beta;
};

// Sums of the k-th powers of the roots of p, for k = 0 .. n, by Newton's identities.
std::vector<Fraction> power_sums(const QPoly& p, std::size_t n) {
  const std::vector<Fraction> a = p.monic().value().coefficients();  // p is not zero
  const std::size_t d = a.size() - 1;
  std::vector<Fraction> sums{Fraction(static_cast<std::int64_t>(d))};
  for (std::size_t k = 1; k <= n; ++k) {
    Fraction s = k <= d ? Fraction(static_cast<std::int64_t>(k)) * a[d - k] : Fraction();
    for (std::size_t i = 1; i <= std::min(k - 1, d); ++i) s.add_assign(a[d - i] * sums[k - i], false);
    s.normalise();
    sums.push_back(-s);
  }
  return sums;
}

// The monic polynomial of degree n whose roots have the power sums `sums` (entries 1 .. n).
QPoly from_power_sums(const std::vector<Fraction>& sums, std::size_t n) {
  std::vector<Fraction> r(n + 1);
  r[n] = Fraction(1);
  for (std::size_t k = 1; k <= n; ++k) {
    Fraction s = sums[k];
    for (std::size_t i = 1; i < k; ++i) s.add_assign(r[n - i] * sums[k - i], false);
    s.normalise();
    r[n - k] = -s * Fraction::of(Int(1), Int(static_cast<std::int64_t>(k)));
  }
  return QPoly(std::move(r));
}

// The monic polynomial whose roots are c alpha_i + beta_j over all roots of m1 and m2: the
// resultant Res_y(m1(y), m2(x - c y)) up to a constant factor, which neither the square-free
// test nor the factors see. Its power sums are sums of binomial terms in those of m1 and m2.
QPoly composed_sum(const QPoly& m1, const QPoly& m2, const Fraction& c) {
  const std::size_t n = static_cast<std::size_t>(m1.degree() * m2.degree());
  const std::vector<Fraction> p = power_sums(m1, n), q = power_sums(m2, n);
  std::vector<Fraction> c_powers{Fraction(1)};
  for (std::size_t l = 1; l <= n; ++l) c_powers.push_back(c_powers.back() * c);
  std::vector<Fraction> scaled(n + 1);  // c^l p_l
  for (std::size_t l = 0; l <= n; ++l) scaled[l] = c_powers[l] * p[l];
  std::vector<Fraction> sums(n + 1);
  std::vector<Int> binomials{Int(1)};  // row k of Pascal's triangle
  for (std::size_t k = 1; k <= n; ++k) {
    std::vector<Int> row{Int(1)};
    for (std::size_t l = 1; l < k; ++l) row.push_back(binomials[l - 1] + binomials[l]);
    row.push_back(Int(1));
    binomials = std::move(row);
    Fraction s;
    for (std::size_t l = 0; l <= k; ++l) s.add_assign(Fraction(binomials[l]) * scaled[l] * q[k - l], false);
    s.normalise();
    sums[k] = std::move(s);
  }
  return from_power_sums(sums, n);
}

// The smallest c = 1, 2, ... for which R, with roots c alpha_i + beta_j, is square-free, with R.
struct PrimitiveElement {
  Fraction c;
  QPoly resultant;
};

Result<PrimitiveElement> primitive_element(const QPoly& m1, const QPoly& m2) {
  for (std::int64_t c = 1;; ++c) {
    TV_CHECK(check_interrupt());
    QPoly r = composed_sum(m1, m2, Fraction(c));
    TV_TRY(ZPoly square_free, zassenhaus::square_free_integer_part(r));
    if (square_free.degree() == r.degree()) return PrimitiveElement{Fraction(c), std::move(r)};
  }
}

// The field of gamma = c alpha + beta: the factor of R with gamma as its one root in an
// interval from the two fields' intervals, refined until exactly one root of R is left.
Result<FieldRef> field_of_sum(const NumberField& f1, const NumberField& f2, const PrimitiveElement& element) {
  TV_TRY(std::vector<QPoly> factors, factor(element.resultant));
  std::vector<SturmChain> chains;
  for (const QPoly& f : factors) {
    TV_TRY(SturmChain chain, SturmChain::of(f));
    chains.push_back(std::move(chain));
  }
  while (true) {
    const Interval a = f1.interval(), b = f2.interval();
    const Fraction lo = element.c * a.lo + b.lo, hi = element.c * a.hi + b.hi;
    std::uint64_t total = 0;
    const QPoly* candidate = nullptr;
    for (std::size_t i = 0; i < factors.size(); ++i) {
      const std::uint64_t roots = chains[i].count(lo, hi);
      total += roots;
      if (roots > 0) candidate = &factors[i];
    }
    if (total == 1) return NumberField::make(*candidate, lo, hi, true);
    TV_CHECK(check_interrupt());
    f1.refine();
    f2.refine();
  }
}

// The images of both generators in one field, preferring a field that exists already.
Result<FieldMerge> merge_fields(const FieldRef& f1, const FieldRef& f2) {
  using Into = FieldMerge::Into;
  const QPoly& m1 = f1->min_poly();
  const QPoly& m2 = f2->min_poly();
  TV_TRY(PrimitiveElement element, primitive_element(m1, m2));
  TV_TRY(FieldRef g, field_of_sum(*f1, *f2, element));
  const QPoly& h = g->min_poly();
  const Fraction& c = element.c;

  // beta is looked for in F1 = Q(alpha) as the common root of m2(y) and h(c alpha + y). The roots
  // of that gcd are the conjugates beta_j with c alpha + beta_j a conjugate of gamma, one for
  // each embedding of Q(gamma) that fixes alpha (the sums c alpha_i + beta_j are distinct), so
  // when m1 is irreducible the gcd has degree deg h / deg m1 and is linear exactly when the
  // degrees agree. The same holds for alpha in F2.
  if (!f1->irreducible() || h.degree() == m1.degree()) {
    TV_TRY(auto beta_in_f1, common_root(f1, m2, h, {x_times(c), rational(1)}));
    if (beta_in_f1) return FieldMerge{f2, Into::first, nullptr, std::nullopt, beta_in_f1->polynomial()};
  }
  if (!f2->irreducible() || h.degree() == m2.degree()) {
    TV_TRY(auto alpha_in_f2, common_root(f2, m1, h, {x_times(1), rational(c)}));
    if (alpha_in_f2) return FieldMerge{f2, Into::second, nullptr, alpha_in_f2->polynomial(), std::nullopt};
  }
  // Both in G: alpha is the common root of m1(y) and m2(gamma - c y), beta the common root of
  // m2(y) and m1((gamma - y)/c), and gamma = c alpha + beta ties the two. Only the one whose
  // min_poly has the lower degree is looked for (the gcd work and its check grow with that
  // degree); the other follows from gamma.
  const AlgebraicNumber gamma = AlgebraicNumber::generator(g);
  const AlgebraicNumber c_in_g = AlgebraicNumber::constant(g, c);
  if (m2.degree() < m1.degree()) {
    const Fraction inverse_c = Fraction::of(c.denominator(), c.numerator());
    TV_TRY(auto beta_in_g, common_root(g, m2, m1, {x_times(inverse_c), rational(-inverse_c)}));
    if (!beta_in_g) return other_failure("Could not represent alpha and beta (this shouldn't happen)");
    const AlgebraicNumber alpha_in_g = (gamma - *beta_in_g) * AlgebraicNumber::constant(g, inverse_c);
    return FieldMerge{f2, Into::made, g, alpha_in_g.polynomial(), beta_in_g->polynomial()};
  }
  TV_TRY(auto alpha_in_g, common_root(g, m1, m2, {x_times(1), rational(-c)}));
  if (!alpha_in_g) return other_failure("Could not represent alpha and beta (this shouldn't happen)");
  const AlgebraicNumber beta_in_g = gamma - c_in_g * *alpha_in_g;
  return FieldMerge{f2, Into::made, g, alpha_in_g->polynomial(), beta_in_g.polynomial()};
}

// The merge of f1 with f2 that f1 remembers: one made with f2 itself, or with a field equal to
// f2 (the same generator, so the same images); nothing when there is none yet.
Result<std::shared_ptr<const FieldMerge>> remembered_merge(const FieldRef& f1, const FieldRef& f2) {
  const auto merges = f1->merges();
  const auto same_object = [&](const auto& m) { return !m->other.owner_before(f2) && !f2.owner_before(m->other); };
  for (const auto& m : merges)
    if (same_object(m)) return m;
  for (const auto& m : merges) {
    const FieldRef other = m->other.lock();
    if (!other || other->degree() != f2->degree()) continue;
    TV_TRY(bool same, equals(other, f2));
    if (same) return m;
  }
  return std::shared_ptr<const FieldMerge>();
}

// The common field of f1 and f2 with the images of both generators there.
Result<Embedding> embed(const FieldRef& f1, const FieldRef& f2) {
  TV_TRY(bool same, equals(f1, f2));
  if (same) return Embedding{f1, std::nullopt, std::nullopt};
  // A rational joins the other field as it is, unless that field is a ring to be repaired.
  if (f2->degree() == 1 && f1->irreducible()) return Embedding{f1, std::nullopt, std::nullopt};
  if (f1->degree() == 1 && f2->irreducible()) return Embedding{f2, std::nullopt, std::nullopt};

  TV_TRY(std::shared_ptr<const FieldMerge> merge, remembered_merge(f1, f2));
  if (!merge) {
    TV_TRY(FieldMerge made, merge_fields(f1, f2));
    merge = std::make_shared<const FieldMerge>(std::move(made));
    f1->remember_merge(merge);
  }
  using Into = FieldMerge::Into;
  const FieldRef& field = merge->into == Into::first ? f1 : merge->into == Into::second ? f2 : merge->made;
  const auto image = [&](const std::optional<QPoly>& p) {
    return p ? std::optional<AlgebraicNumber>(AlgebraicNumber::from_polynomial(field, *p)) : std::nullopt;
  };
  return Embedding{field, image(merge->alpha_image), image(merge->beta_image)};
}

// The number renamed into the common field: its polynomial at the generator's image, or, for
// a field equal to the common one, the same polynomial over the common field object.
AlgebraicNumber rename(const AlgebraicNumber& x, const Embedding& embedding,
                       const std::optional<AlgebraicNumber>& image) {
  if (x.field() == embedding.field) return x;
  if (!image) return AlgebraicNumber::from_polynomial(embedding.field, x.polynomial());
  return x.substitute(*image);
}

// ---------------------------------------------------------------------------------------------
// The gcd over a field, modulo primes
//
// Over an irreducible field the monic gcd of p(y) and q(S(y)) is found at word primes and read
// back (see residue_ring.hpp). At a usable prime where p keeps its degree, the monic gcd G over
// the field has coefficients without p in their denominators (they are symmetric functions of
// roots of p, so integral over Z_(p)), and G mod p divides both images. So the Euclidean
// sequence modulo p, when every leading coefficient on the way is a unit, ends in a monic gcd
// of degree at least deg G, and of exactly deg G but at finitely many primes, where it is G mod
// p. Degree 0 there proves that there is no common root. A candidate read back is checked over
// the field: when it divides both polynomials, its degree is deg G.

using residue::ResidueRing;
using RingPoly = std::vector<ResidueRing::Element>;  // over a residue ring, lowest degree first, trimmed

void trim(RingPoly& a) {
  while (!a.empty() && ResidueRing::is_zero(a.back())) a.pop_back();
}

// a mod b over the ring, for a monic b.
void reduce_modulo(const ResidueRing& ring, RingPoly& a, const RingPoly& b) {
  const std::size_t n = b.size() - 1;
  for (std::size_t k = a.size(); k-- > n;) {
    if (ResidueRing::is_zero(a[k])) continue;
    const ResidueRing::Element c = a[k];
    for (std::size_t j = 0; j <= n; ++j) a[k - n + j] = ring.sub(a[k - n + j], ring.mul(c, b[j]));
  }
  trim(a);
}

// Divided by its leading coefficient; nothing when that is not a unit.
std::optional<RingPoly> made_monic(const ResidueRing& ring, RingPoly a) {
  const auto inverse = ring.inverse(a.back());
  if (!inverse) return std::nullopt;
  for (auto& c : a) c = ring.mul(c, *inverse);
  return a;
}

// The monic gcd of p(y) and q(S(y)) over the residue ring; nothing when a denominator vanishes
// there, p loses its degree, or the Euclidean sequence meets a leading coefficient that is not
// a unit.
std::optional<RingPoly> gcd_modulo(const ResidueRing& ring, const QPoly& p, const QPoly& q, const Substitution& s) {
  RingPoly a;
  for (const Fraction& c : p.coefficients()) {
    const auto r = residue::reduce(c, ring.prime());
    if (!r) return std::nullopt;
    a.push_back(ring.constant(*r));
  }
  trim(a);
  if (a.size() != p.coefficients().size()) return std::nullopt;
  RingPoly substitution;
  for (const QPoly& c : s) {
    auto r = ring.reduce(c);
    if (!r) return std::nullopt;
    substitution.push_back(std::move(*r));
  }
  trim(substitution);
  auto monic_a = made_monic(ring, std::move(a));  // a's leading coefficient is a non-zero constant
  RingPoly b;
  for (std::size_t k = q.coefficients().size(); k-- > 0;) {
    const auto r = residue::reduce(q.coefficients()[k], ring.prime());
    if (!r) return std::nullopt;
    RingPoly next(b.size() + substitution.size() - (b.empty() ? 0 : 1), ring.zero());
    if (next.empty()) next.push_back(ring.zero());
    for (std::size_t i = 0; i < b.size(); ++i)
      for (std::size_t j = 0; j < substitution.size(); ++j)
        next[i + j] = ring.add(next[i + j], ring.mul(b[i], substitution[j]));
    next[0] = ring.add(next[0], ring.constant(*r));
    trim(next);
    reduce_modulo(ring, next, *monic_a);
    b = std::move(next);
  }
  RingPoly g = std::move(*monic_a);
  while (!b.empty()) {
    auto monic_b = made_monic(ring, std::move(b));
    if (!monic_b) return std::nullopt;
    reduce_modulo(ring, g, *monic_b);
    b = std::exchange(g, std::move(*monic_b));
  }
  return g;
}

// Whether the monic g divides p(y) and q(S(y)) over the field. q(S(y)) is taken modulo p
// first, whose coefficients stay as small as those of p, q and S; only the remainders by g meet
// the large coefficients of g.
Result<bool> divides_both(const FieldRef& field, const APoly& g, const QPoly& p, const QPoly& q, const Substitution& s) {
  const APoly a = constants_over(field, p);
  TV_TRY(APoly remainder, rem(a, g));
  if (!remainder.is_zero()) return false;
  TV_TRY(APoly composed, compose_over_modulo(field, q, s, a));
  TV_TRY(remainder, rem(composed, g));
  return remainder.is_zero();
}

// The monic gcd over an irreducible field, read back from primes and checked (see above).
Result<APoly> gcd_by_primes(const FieldRef& field, const QPoly& p, const QPoly& q, const Substitution& s) {
  const std::size_t d = static_cast<std::size_t>(field->degree());
  std::size_t least_degree = SIZE_MAX;
  std::optional<residue::RationalLift> lift;
  std::optional<std::vector<Fraction>> reading;
  Substitution reduced;  // read in the field, so that every coefficient has degree below d
  for (const QPoly& c : s) reduced.push_back(AlgebraicNumber::from_polynomial(field, c).polynomial());
  for (std::size_t i = 0;; ++i) {
    TV_CHECK(check_interrupt());
    const auto ring = ResidueRing::of(field->min_poly(), residue::word_prime(i));
    if (!ring) continue;
    const auto g = gcd_modulo(*ring, p, q, reduced);
    if (!g) continue;
    const std::size_t k = g->size() - 1;
    if (k == 0) return APoly::constant(AlgebraicNumber::one(field));
    if (k > least_degree) continue;  // a prime where the images share more than the field does
    if (k < least_degree) least_degree = k, lift.emplace(k * d), reading.reset();
    residue::Words residues;
    for (std::size_t j = 0; j < k; ++j) residues.insert(residues.end(), (*g)[j].begin(), (*g)[j].end());
    lift->add(residues, ring->prime());
    auto next = lift->rationals();
    // A reading is checked once two primes in a row agree on it, which wrong readings hardly do.
    const bool settled = next && reading && *next == *reading;
    reading = std::move(next);
    if (!settled) continue;
    std::vector<AlgebraicNumber> coefficients;
    for (std::size_t j = 0; j < k; ++j) {
      const std::vector<Fraction> part(reading->begin() + static_cast<std::ptrdiff_t>(j * d),
                                       reading->begin() + static_cast<std::ptrdiff_t>((j + 1) * d));
      coefficients.push_back(AlgebraicNumber::from_polynomial(field, QPoly(part)));
    }
    coefficients.push_back(AlgebraicNumber::one(field));
    APoly candidate(std::move(coefficients), field);
    TV_TRY(bool divides, divides_both(field, candidate, p, q, s));
    if (divides) return candidate;
    reading.reset();
  }
}

// ---------------------------------------------------------------------------------------------
// root

// The remainder sequence of p(y) and q(S(y)) made monic, as monic_gcd gives it. When q(S(y))
// has the higher degree its first remainder by p is all that the sequence uses of it, and that
// remainder comes straight from Horner's rule modulo p.
Result<APoly> first_remainder_then_gcd(const FieldRef& field, const QPoly& p, const QPoly& q, const Substitution& s) {
  const APoly a = constants_over(field, p);
  if (q.degree() <= p.degree() || p.degree() < 1) return monic_gcd(a, compose_over(field, q, s));
  TV_TRY(APoly r, compose_over_modulo(field, q, s, a));
  if (r.is_zero()) return a;
  TV_TRY(AlgebraicNumber inverse_lead, r.leading().inverse());
  return monic_gcd(a, r.scale(inverse_lead));
}

// ---------------------------------------------------------------------------------------------
// root

// The characteristic polynomial of multiplication by a, monic: its roots are a(alpha_i) over
// all roots alpha_i of min_poly. Its power sums are the traces of a^j, and the trace of x^i is
// the i-th power sum of min_poly's roots.
QPoly characteristic_polynomial(const AlgebraicNumber& a) {
  const QPoly& m = a.field()->min_poly();
  const std::size_t d = static_cast<std::size_t>(m.degree());
  if (a.degree() <= 0) {
    const Fraction r = a.is_zero() ? Fraction() : a.coefficients()[0];
    return (QPoly::monomial(Fraction(1), 1) - QPoly::constant(r)).pow(d);
  }
  const std::vector<Fraction> basis_traces = power_sums(m, d - 1);
  std::vector<Fraction> traces{Fraction(static_cast<std::int64_t>(d))};
  AlgebraicNumber power = a;
  for (std::size_t j = 1; j <= d; ++j) {
    Fraction trace;
    const auto& c = power.coefficients();
    for (std::size_t i = 0; i < c.size(); ++i) trace.add_assign(c[i] * basis_traces[i], false);
    trace.normalise();
    traces.push_back(std::move(trace));
    if (j < d) power = power * a;
  }
  return from_power_sums(traces, d);
}

// The square-free part, made monic, of the norm Res_y(m(y), x^k - a(y)), whose roots are the
// k-th roots of a and of its conjugates. The norm is C(x^k) up to a constant, C the
// characteristic polynomial of a; with S the square-free part of C, S(x^k) is already
// square-free when S(0) is not 0, and otherwise x S(x^k)/x^k is.
Result<QPoly> norm_of_power_minus(const AlgebraicNumber& a, std::uint32_t k) {
  TV_TRY(QPoly s, square_free_part(characteristic_polynomial(a)));
  const bool zero_root = s.coefficients()[0].is_zero();
  const auto& c = s.coefficients();
  std::vector<Fraction> spread((c.size() - 1) * k + 1);
  for (std::size_t j = zero_root ? 1 : 0; j < c.size(); ++j) spread[j * k] = c[j];
  QPoly n(std::move(spread));
  if (zero_root) n = QPoly(std::vector<Fraction>(n.coefficients().begin() + (k - 1), n.coefficients().end()));
  return n;
}

// Whether r, not zero, is the p-th power of a rational.
bool is_rational_power(const Fraction& r, unsigned long p) {
  if (p % 2 == 0 && r.sign() < 0) return false;
  mpz_t part, root_of_part;
  mpz_init(part);
  mpz_init(root_of_part);
  bool exact = true;
  for (const Int* x : {&r.numerator(), &r.denominator()}) {
    x->get_mpz(part);
    exact = exact && mpz_root(root_of_part, part, p) != 0;
  }
  mpz_clear(part);
  mpz_clear(root_of_part);
  return exact;
}

// Whether the monic n is known to be irreducible without factoring: a linear n, or x^d - r,
// which by Capelli's theorem is irreducible exactly when r is no p-th power for a prime p
// dividing d and, when 4 divides d, r is not -4 t^4. Any other n counts as possibly reducible.
bool binomial_is_irreducible(const QPoly& n) {
  const auto& c = n.coefficients();
  const std::size_t d = c.size() - 1;
  if (d == 1) return true;
  if (c[0].is_zero()) return false;
  for (std::size_t j = 1; j < d; ++j)
    if (!c[j].is_zero()) return false;
  const Fraction r = -c[0];
  std::size_t rest = d;
  for (std::size_t p = 2; p <= rest; ++p) {
    if (rest % p != 0) continue;
    while (rest % p == 0) rest /= p;
    if (is_rational_power(r, p)) return false;
  }
  return d % 4 != 0 || !is_rational_power(-r * Fraction::of(Int(1), Int(4)), 4);
}

}  // namespace

Result<std::optional<AlgebraicNumber>> common_root(const FieldRef& field, const QPoly& p, const QPoly& q,
                                                   const Substitution& s) {
  // Every remainder is made monic. In a ring (a field from `root` whose min_poly factors) a
  // leading coefficient can be zero by value without being zero by its coefficients; its
  // inverse then fails, and the sequence proves nothing. When every inverse exists, the
  // sequence maps onto the real gcd degree for degree.
  auto gcd_over_field =
      field->irreducible() && p.degree() >= 1 ? gcd_by_primes(field, p, q, s) : first_remainder_then_gcd(field, p, q, s);
  if (!gcd_over_field.ok()) {
    const Failure& failure = gcd_over_field.failure();
    const bool zero_divisor = failure.kind == FailureKind::Range && failure.message.starts_with("Division by zero");
    if (zero_divisor && !field->irreducible()) return std::optional<AlgebraicNumber>();
    return failure;
  }
  const APoly& g = gcd_over_field.value();
  if (g.degree() != 1) return std::optional<AlgebraicNumber>();
  TV_TRY(AlgebraicNumber inverse_lead, g.coefficient(1).inverse());
  return std::optional<AlgebraicNumber>((g.coefficient(0) * inverse_lead).neg());
}

// A rational value written in `field`, which must be irreducible: a ring from `root` is left
// to the merge, which repairs it.
bool joins_as_rational(const AlgebraicNumber& x, const FieldRef& field) {
  return x.degree() <= 0 && field->irreducible();
}

AlgebraicNumber as_rational_in(const AlgebraicNumber& x, const FieldRef& field) {
  return x.is_zero() ? AlgebraicNumber::zero(field) : AlgebraicNumber::constant(field, x.coefficients()[0]);
}

Status unify(std::span<AlgebraicNumber> numbers) {
  // Whether every number before i is a rational by its coefficients, however large its field.
  bool rationals_so_far = true;
  for (std::size_t i = 1; i < numbers.size(); ++i) {
    TV_CHECK(check_interrupt());
    rationals_so_far = rationals_so_far && numbers[i - 1].degree() <= 0;
    const FieldRef common = numbers[i - 1].field();
    if (numbers[i].field() == common) continue;
    // A rational joins any field as a constant, and rationals join the next field the same way:
    // no merge, so the result stays in the smaller field.
    if (joins_as_rational(numbers[i], common)) {
      numbers[i] = as_rational_in(numbers[i], common);
      continue;
    }
    if (rationals_so_far && numbers[i].field()->irreducible()) {
      for (std::size_t j = 0; j < i; ++j) numbers[j] = as_rational_in(numbers[j], numbers[i].field());
      continue;
    }
    TV_TRY(Embedding embedding, embed(common, numbers[i].field()));
    for (std::size_t j = 0; j < i; ++j) numbers[j] = rename(numbers[j], embedding, embedding.alpha);
    numbers[i] = rename(numbers[i], embedding, embedding.beta);
  }
  return {};
}

Result<AlgebraicNumber> root(const AlgebraicNumber& a, const Int& k) {
  if (k.sign() <= 0 || compare(k, Int(kMaxRootIndex)) > 0)
    return range_failure("root index " + k.to_string() + " out of range (1 to " + std::to_string(kMaxRootIndex) + ")");
  // A negative number has no non-negative root; a conjugate of it might, so this is decided
  // before any interval is searched.
  if (a.sign() < 0) return other_failure("Interval must contain exactly one root");
  const std::uint32_t index = static_cast<std::uint32_t>(k.small());
  TV_TRY(QPoly n, norm_of_power_minus(a, index));
  TV_TRY(SturmChain chain, SturmChain::of(n));
  const bool irreducible = binomial_is_irreducible(n);
  Fraction lo, hi = a.enclosure().hi + Fraction(1);
  while (true) {
    if (chain.count(lo, hi) < 2) {
      TV_TRY(FieldRef field, NumberField::make(std::move(n), std::move(lo), std::move(hi), irreducible));
      return AlgebraicNumber::generator(std::move(field));
    }
    TV_CHECK(check_interrupt());
    Fraction m = midpoint(lo, hi);
    TV_TRY(AlgebraicNumber difference, sub(AlgebraicNumber::constant(rational_field(), m.pow(index)), a));
    (difference.sign() < 0 ? lo : hi) = std::move(m);
  }
}

}  // namespace tv
