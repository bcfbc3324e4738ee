// Real algebraic numbers, exactly.
//
// A NumberField is a simple extension Q(alpha) of the rationals by one real generator alpha,
// given by a square-free polynomial `min_poly` and a closed rational interval [lo, hi] that
// holds exactly one of its roots. An AlgebraicNumber is a polynomial in alpha of degree below
// the field's degree d, with a shared reference to its field.
//
// Arithmetic stays inside the field: sums are sums of coefficient vectors, and products are
// reduced by the table x^k mod min_poly (k up to 2d), so no polynomial division happens on the
// common path. Inverses come from the extended Euclidean algorithm against min_poly.
//
// Signs are decided by interval arithmetic: the field keeps rational bounds on alpha^k for
// every k <= d, so the enclosure of a number is one pass over its coefficients. When an
// enclosure still holds zero the shared interval of alpha is bisected and the enclosure taken
// again; over an irreducible min_poly a non-zero number must eventually leave zero, so the
// sign is exact and has no iteration limit. Zero is recognised structurally (no coefficients).
//
// The interval and the power bounds are the only mutable state of the exact layer. They sit
// behind the field's reader-writer lock; a refinement computes outside the lock and writes a
// result valid for the snapshot it read, so concurrent refinements only ever keep alpha
// inside the interval. No lock is held across another field's lock or any outside call.
//
// Fields grow by `root` (adjoin a k-th root) and `unify` (move numbers of several fields into
// one by the primitive element construction); see the second half of this header.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <span>
#include <string>
#include <vector>

#include "failure.hpp"
#include "num/factoring.hpp"
#include "num/fraction.hpp"
#include "num/polynomial.hpp"

namespace tv {

class NumberField;
// Fields are shared by every number in them and die with the last one.
using FieldRef = std::shared_ptr<const NumberField>;

// How unify joined this field (generator alpha) with another field (generator beta): the
// common field is this one, the other one, or a field made for the pair, and each image is
// the polynomial in the common field's generator that names the old generator there (none:
// the generator itself, or only rationals are renamed). Which field and which images come out
// depends only on the two fields' polynomials and generators, so it is kept for the pair.
struct FieldMerge {
  enum class Into { first, second, made };
  std::weak_ptr<const NumberField> other;  // beta's field; weak, so that no cycle of fields forms
  Into into = Into::first;
  FieldRef made;  // the field made for the pair, when `into` is `made`
  std::optional<QPoly> alpha_image, beta_image;
};

// A closed rational interval.
struct Interval {
  Fraction lo;
  Fraction hi;
};

// A reader-writer lock that remembers a writer that died holding it: every later locking
// then fails with the internal error "field lock poisoned".
class FieldLock {
 public:
  class Reader {
   public:
    explicit Reader(const FieldLock& lock);

   private:
    std::shared_lock<std::shared_mutex> guard_;
  };
  class Writer {
   public:
    explicit Writer(const FieldLock& lock);
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

   private:
    const FieldLock* lock_;
    std::unique_lock<std::shared_mutex> guard_;
    int exceptions_at_entry_;
  };

 private:
  mutable std::shared_mutex mutex_;
  mutable bool poisoned_ = false;  // written and read only with the mutex held
};

class NumberField {
 public:
  // Q(alpha) with alpha the one root of `min_poly` in [lo, hi]; min_poly must be square-free
  // of degree >= 1. Fails with "Interval must contain exactly one root" (kind Other)
  // otherwise. `irreducible` says the caller knows min_poly to be irreducible; a field whose
  // min_poly may factor (see `root`) is a ring in which a number can be zero by value without
  // being zero by its coefficients, and sign() and inverse() take the extra care that needs.
  static Result<FieldRef> make(QPoly min_poly, Fraction lo, Fraction hi, bool irreducible);

  const QPoly& min_poly() const { return min_poly_; }
  std::int64_t degree() const { return min_poly_.degree(); }
  // Entry k is x^k mod min_poly, for k = 0 .. 2d.
  const std::vector<QPoly>& reduction() const { return reduction_; }
  // Entries d .. 2d of the reduction table as integer rows of d entries over one common
  // denominator, for products of numbers with large coefficients.
  const std::vector<std::vector<Int>>& reduction_numerators() const { return reduction_numerators_; }
  const Int& reduction_denominator() const { return reduction_denominator_; }
  bool irreducible() const { return irreducible_; }

  // The present isolating interval (a copy; it may narrow right after).
  Interval interval() const;
  // One bisection step of the isolating interval; a point interval stays as it is.
  void refine() const;
  // Narrows the interval to a width of about 2^-bits around alpha in one step, by Newton's
  // method in fixed point with the ends checked by exact signs. False, changing nothing, where
  // Newton does not settle (bisect then). A point interval stays as it is.
  bool narrow(std::uint64_t bits) const;
  // About -log2 of the interval's width; 0 for a width of 1 or more or a point.
  std::uint64_t precision() const;
  // lo <= the value of sum c_k alpha^k <= hi, from the present power bounds.
  Interval enclose(const QPoly& coefficients) const;
  // "Q(root of x² + -2 in [1,3/2])"; the interval part changes as it narrows.
  std::string text() const;

  // Merges of this field (as the first of the pair) that unify has made, with fields that may
  // have died since. A pure fact about two fields, so never invalidated; read and written
  // under the field's lock, which is held across nothing else.
  std::vector<std::shared_ptr<const FieldMerge>> merges() const;
  void remember_merge(std::shared_ptr<const FieldMerge> merge) const;

  NumberField(const NumberField&) = delete;
  NumberField& operator=(const NumberField&) = delete;

 private:
  NumberField(QPoly min_poly, ZPoly integer_form, Fraction lo, Fraction hi, bool irreducible);
  // At least `count` entries (and never fewer than there are), from the present interval.
  void rebuild_power_bounds(std::size_t count) const;
  Interval enclose_with_bounds(const std::vector<Fraction>& coefficients) const;

  const QPoly min_poly_;
  const ZPoly integer_form_;  // a positive multiple of min_poly, for signs at points
  const std::vector<QPoly> reduction_;
  std::vector<std::vector<Int>> reduction_numerators_;
  Int reduction_denominator_;
  const bool irreducible_;

  FieldLock lock_;
  mutable Fraction lo_, hi_;
  mutable std::vector<Fraction> lower_powers_, upper_powers_;
  mutable std::vector<std::shared_ptr<const FieldMerge>> merges_;
};

// The process-wide field of the rationals: min_poly x - 1, interval [1, 1].
const FieldRef& rational_field();

// Whether two fields are the same extension with the same generator: the same object, or the
// same min_poly with intervals that overlap in exactly one of its roots.
Result<bool> equals(const FieldRef& f, const FieldRef& g);

class AlgebraicNumber {
 public:
  // p(alpha), reduced mod min_poly when deg p >= d. The one way numbers are built.
  static AlgebraicNumber from_polynomial(FieldRef field, const QPoly& p);
  static AlgebraicNumber constant(FieldRef field, Fraction c);
  static AlgebraicNumber from_int(FieldRef field, Int n) { return constant(std::move(field), Fraction(std::move(n))); }
  static AlgebraicNumber zero(FieldRef field) { return constant(std::move(field), Fraction()); }
  static AlgebraicNumber one(FieldRef field) { return constant(std::move(field), Fraction(1)); }
  // alpha itself; in a field of degree 1 this is the rational root of min_poly.
  static AlgebraicNumber generator(FieldRef field);

  // Lowest degree first; empty for zero.
  const std::vector<Fraction>& coefficients() const { return polynomial_.coefficients(); }
  const QPoly& polynomial() const { return polynomial_; }
  // -1 for zero, 0 for a rational, always below the field's degree.
  std::int64_t degree() const { return polynomial_.degree(); }
  const FieldRef& field() const { return field_; }
  // Structural: no coefficients. Over an irreducible min_poly this is the zero test.
  bool is_zero() const { return polynomial_.is_zero(); }
  // The same value named in another field: `image` is where this number's generator goes.
  // Horner's rule in the image's field.
  AlgebraicNumber substitute(const AlgebraicNumber& image) const;

  AlgebraicNumber neg() const;
  // "Division by zero: <text>" (kind Range) for a number that is zero by value.
  Result<AlgebraicNumber> inverse() const;
  // A negative exponent fails with kind Range and an empty message.
  Result<AlgebraicNumber> pow(const Int& exponent) const;
  AlgebraicNumber abs() const { return sign() < 0 ? neg() : *this; }
  // Operators for code that holds numbers of one field (polynomials over a field, geometry):
  // the operands must have a common field, and a missing one is a broken invariant.
  friend AlgebraicNumber operator+(const AlgebraicNumber& a, const AlgebraicNumber& b);
  friend AlgebraicNumber operator-(const AlgebraicNumber& a, const AlgebraicNumber& b);
  friend AlgebraicNumber operator*(const AlgebraicNumber& a, const AlgebraicNumber& b);
  AlgebraicNumber operator-() const { return neg(); }
  friend bool operator==(const AlgebraicNumber& a, const AlgebraicNumber& b);

  // Rationals around the value, from the present state of the field; never refines.
  Interval enclosure() const;
  // -1, 0 or +1, exactly; refines the field as long as the enclosure holds zero.
  int sign() const;
  // The double nearest to the value, ties to even, as Fraction::to_f64 rounds a rational:
  // the same double however narrow the interval was before. 0.0 for a number whose sign is 0.
  // Refines until both ends of the enclosure round alike, or the value is placed exactly on
  // one side of the boundary between two neighbouring doubles.
  double to_f64() const;
  // "x in Q(root of x² + -2 in [1,3/2])".
  std::string text() const;

 private:
  AlgebraicNumber(QPoly polynomial, FieldRef field) : polynomial_(std::move(polynomial)), field_(std::move(field)) {}

  QPoly polynomial_;
  FieldRef field_;
};

// The field two operands are computed in: a's when the fields are equal, else the other
// one when a field has degree 1 (its numbers are rationals). Otherwise the failure
// "AlgebraicNumbers must have same field (<a's field> != <b's field>)" (kind Range).
Result<FieldRef> common_field(const AlgebraicNumber& a, const AlgebraicNumber& b);
Result<AlgebraicNumber> add(const AlgebraicNumber& a, const AlgebraicNumber& b);
Result<AlgebraicNumber> sub(const AlgebraicNumber& a, const AlgebraicNumber& b);
Result<AlgebraicNumber> mul(const AlgebraicNumber& a, const AlgebraicNumber& b);
// a * inverse(b); "Division by zero: <b's text>" (kind Range) for a zero b.
Result<AlgebraicNumber> div(const AlgebraicNumber& a, const AlgebraicNumber& b);
// Structural equality in the common field; false when there is none.
bool equal(const AlgebraicNumber& a, const AlgebraicNumber& b);

// Polynomials over one number field; the context is the field, so even zero knows it.
template <>
struct CoeffTraits<AlgebraicNumber> {
  using Context = FieldRef;
  static Context context_of(const AlgebraicNumber& x) { return x.field(); }
  static AlgebraicNumber zero(const Context& field) { return AlgebraicNumber::zero(field); }
  static AlgebraicNumber one(const Context& field) { return AlgebraicNumber::one(field); }
  static AlgebraicNumber from_integer(const Context& field, std::int64_t k) { return AlgebraicNumber::from_int(field, k); }
  static bool is_zero(const AlgebraicNumber& x) { return x.is_zero(); }
  static Result<AlgebraicNumber> divide(const AlgebraicNumber& a, const AlgebraicNumber& b) { return div(a, b); }
  static std::string text(const AlgebraicNumber& x) { return "(" + polynomial_text(x.polynomial()) + ")"; }
};

using APoly = Polynomial<AlgebraicNumber>;

// ---------------------------------------------------------------------------------------------
// Growing fields.
//
// Numbers enter one at a time, each in a small field of its own (a rational, or the field of
// one root). Before two numbers of different fields can be combined they are unified:
//
//   std::vector<AlgebraicNumber> xs = {a, b};
//   TV_CHECK(unify(xs));              // xs[0], xs[1] now share one field object
//   TV_TRY(auto sum, add(xs[0], xs[1]));
//
// unify keeps every value and only renames numbers into a larger field. It prefers a field
// that already exists: unifying sqrt(2) with sqrt(8) stays in Q(sqrt 2). Fields are compared
// by `equals`, so two numbers built apart from the same text unify at no cost beyond that.
// ---------------------------------------------------------------------------------------------

// Moves every number of the slice into one shared NumberField object, keeping each value.
// A slice of fewer than two numbers is left alone. On failure the numbers rewritten so far
// stay valid (each keeps its value) but the slice is not in one field.
Status unify(std::span<AlgebraicNumber> numbers);

// The non-negative real k-th root of a (k >= 1), as the generator of a new field whose
// min_poly is the square-free norm of x^k - a. That min_poly is not factored, so the field may
// be a ring (sqrt(4) lives in Q[x]/(x^2 - 4) as the root 2) until its first unify with a
// number of another field, which factors it away. A negative a fails with "Interval must
// contain exactly one root" (kind Other); k < 1 and k above `kMaxRootIndex` fail with kind Range.
Result<AlgebraicNumber> root(const AlgebraicNumber& a, const Int& k);
inline constexpr std::int64_t kMaxRootIndex = 1024;

// A substitution y -> S(y) whose coefficients are polynomials in the field's generator x:
// c x + y is {c x, 1}.
using Substitution = std::vector<QPoly>;

// The common root in `field` of p(y) and q(S(y)) when their gcd over the field is linear;
// nothing when it is not. In a ring from `root` it is also nothing when the remainder
// sequence meets a leading coefficient that is zero by value, since the gcd proves nothing then.
Result<std::optional<AlgebraicNumber>> common_root(const FieldRef& field, const QPoly& p, const QPoly& q,
                                                   const Substitution& s);

}  // namespace tv
