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
#include "num/factoring.hpp"

namespace tv {
namespace {

QPoly x_times(const Fraction& c) { return QPoly::monomial(c, 1); }
QPoly rational(const Fraction& c) { return QPoly::constant(c); }

// p(y) read with constant coefficients in Q[x].
QXYPoly in_y(const QPoly& p) {
  std::vector<QPoly> c;
  for (const Fraction& x : p.coefficients()) c.push_back(rational(x));
  return QXYPoly(std::move(c));
}

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

// The Euclidean remainder sequence with every remainder made monic (one inverse each); the
// last one is the gcd.
Result<APoly> monic_gcd(APoly a, APoly b) {
  if (a.degree() < b.degree()) std::swap(a, b);
  while (!b.is_zero()) {
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

// The smallest c = 1, 2, ... for which R = Res_y(m1(y), m2(x - c y)) is square-free, with R.
struct PrimitiveElement {
  Fraction c;
  QPoly resultant;
};

Result<PrimitiveElement> primitive_element(const QPoly& m1, const QPoly& m2) {
  const QXYPoly first = in_y(m1);
  for (std::int64_t c = 1;; ++c) {
    const QXYPoly shifted({QPoly::monomial(Fraction(1), 1), rational(Fraction(-c))});  // x - c y
    TV_TRY(QPoly r, resultant(first, compose(m2, shifted, rational)));
    TV_TRY(QPoly g, gcd(r, r.derivative()));
    if (g.degree() == 0) return PrimitiveElement{Fraction(c), std::move(r)};
  }
}

// The field of gamma = c alpha + beta: the factor of R with gamma as its one root in an
// interval from the two fields' intervals, refined until exactly one root of R is left.
Result<FieldRef> field_of_sum(const NumberField& f1, const NumberField& f2, const PrimitiveElement& element) {
  TV_TRY(std::vector<QPoly> factors, factor(element.resultant));
  while (true) {
    const Interval a = f1.interval(), b = f2.interval();
    const Fraction lo = element.c * a.lo + b.lo, hi = element.c * a.hi + b.hi;
    std::uint64_t total = 0;
    const QPoly* candidate = nullptr;
    for (const QPoly& f : factors) {
      TV_TRY(std::uint64_t roots, count_roots(f, lo, hi));
      total += roots;
      if (roots > 0) candidate = &f;
    }
    if (total == 1) return NumberField::make(*candidate, lo, hi, true);
    f1.refine();
    f2.refine();
  }
}

// The images of both generators in one field, preferring a field that exists already.
Result<Embedding> embed(const FieldRef& f1, const FieldRef& f2) {
  TV_TRY(bool same, equals(f1, f2));
  if (same) return Embedding{f1, std::nullopt, std::nullopt};
  // A rational joins the other field as it is, unless that field is a ring to be repaired.
  if (f2->degree() == 1 && f1->irreducible()) return Embedding{f1, std::nullopt, std::nullopt};
  if (f1->degree() == 1 && f2->irreducible()) return Embedding{f2, std::nullopt, std::nullopt};

  const QPoly& m1 = f1->min_poly();
  const QPoly& m2 = f2->min_poly();
  TV_TRY(PrimitiveElement element, primitive_element(m1, m2));
  TV_TRY(FieldRef g, field_of_sum(*f1, *f2, element));
  const QPoly& h = g->min_poly();
  const Fraction& c = element.c;

  TV_TRY(auto beta_in_f1, common_root(f1, m2, h, {x_times(c), rational(1)}));
  if (beta_in_f1) return Embedding{f1, std::nullopt, std::move(*beta_in_f1)};
  TV_TRY(auto alpha_in_f2, common_root(f2, m1, h, {x_times(1), rational(c)}));
  if (alpha_in_f2) return Embedding{f2, std::move(*alpha_in_f2), std::nullopt};
  // Both in G: alpha is the common root of m1(y) and m2(gamma - c y), and then beta is
  // gamma - c alpha, the one element of G that the common root of m2(y) and m1((gamma - y)/c)
  // would also give.
  TV_TRY(auto alpha_in_g, common_root(g, m1, m2, {x_times(1), rational(-c)}));
  if (!alpha_in_g) return other_failure("Could not represent alpha and beta (this shouldn't happen)");
  AlgebraicNumber beta_in_g = AlgebraicNumber::generator(g) - AlgebraicNumber::constant(g, c) * *alpha_in_g;
  return Embedding{g, std::move(*alpha_in_g), std::move(beta_in_g)};
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
// root

// x^k - a(y) as a polynomial in y whose coefficients are polynomials in x.
QXYPoly power_minus(const AlgebraicNumber& a, std::size_t k) {
  const auto& c = a.coefficients();
  std::vector<QPoly> by_y;
  for (std::size_t j = 0; j < c.size(); ++j) by_y.push_back(rational(-c[j]));
  const QPoly x_to_k = QPoly::monomial(Fraction(1), k);
  if (by_y.empty()) by_y.push_back(QPoly());
  by_y[0] = by_y[0] + x_to_k;
  return QXYPoly(std::move(by_y));
}

}  // namespace

Result<std::optional<AlgebraicNumber>> common_root(const FieldRef& field, const QPoly& p, const QPoly& q,
                                                   const Substitution& s) {
  // Every remainder is made monic. In a ring (a field from `root` whose min_poly factors) a
  // leading coefficient can be zero by value without being zero by its coefficients; its
  // inverse then fails, and the sequence proves nothing. When every inverse exists, the
  // sequence maps onto the real gcd degree for degree.
  auto gcd_over_field = monic_gcd(constants_over(field, p), compose_over(field, q, s));
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

Status unify(std::span<AlgebraicNumber> numbers) {
  for (std::size_t i = 1; i < numbers.size(); ++i) {
    if (numbers[i].field() == numbers[i - 1].field()) continue;
    TV_TRY(Embedding embedding, embed(numbers[i - 1].field(), numbers[i].field()));
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
  TV_TRY(QPoly norm, resultant(in_y(a.field()->min_poly()), power_minus(a, index)));
  TV_TRY(QPoly n, square_free_part(norm));
  // The field keeps n, factored or not; knowing that n is irreducible only spares later
  // unifications the work of repairing a ring that is none.
  TV_TRY(std::vector<QPoly> factors, factor(n));
  const bool irreducible = factors.size() == 1;
  Fraction lo, hi = a.enclosure().hi + Fraction(1);
  while (true) {
    TV_TRY(std::uint64_t roots, count_roots(n, lo, hi));
    if (roots < 2) {
      TV_TRY(FieldRef field, NumberField::make(std::move(n), std::move(lo), std::move(hi), irreducible));
      return AlgebraicNumber::generator(std::move(field));
    }
    Fraction m = midpoint(lo, hi);
    TV_TRY(AlgebraicNumber difference, sub(AlgebraicNumber::constant(rational_field(), m.pow(index)), a));
    (difference.sign() < 0 ? lo : hi) = std::move(m);
  }
}

}  // namespace tv
