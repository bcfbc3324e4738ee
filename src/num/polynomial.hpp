// Polynomial<T>: a dense univariate polynomial, lowest degree first, always trimmed so that
// the last coefficient is non-zero; the zero polynomial has no coefficients and degree -1.
//
// T is any coefficient type with a CoeffTraits specialisation: +, -, * and unary - as
// operators, == by value, and the traits' zero, one, is_zero and exact divide. A type whose
// zero needs outside knowledge (a modulus, a number field) carries it as the traits' Context,
// which every polynomial over it keeps, so that even its zero polynomial knows it.
//
// Division is pseudo-division with one division at the end, and gcds and resultants come
// from the subresultant remainder sequence, so the same code serves coefficient fields and
// the coefficient ring Q[x] of bivariate polynomials.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "failure.hpp"
#include "num/fraction.hpp"

namespace tv {

struct NoContext {
  friend bool operator==(NoContext, NoContext) { return true; }
};

template <class T>
struct CoeffTraits;

template <>
struct CoeffTraits<Fraction> {
  using Context = NoContext;
  static Context context_of(const Fraction&) { return {}; }
  static Fraction zero(Context) { return Fraction(); }
  static Fraction one(Context) { return Fraction(1); }
  static Fraction from_integer(Context, std::int64_t k) { return Fraction(k); }
  static bool is_zero(const Fraction& x) { return x.is_zero(); }
  static Result<Fraction> divide(const Fraction& a, const Fraction& b) { return div(a, b); }
  static std::string text(const Fraction& x) { return x.to_string(); }
};

template <>
struct CoeffTraits<Int> {
  using Context = NoContext;
  static Context context_of(const Int&) { return {}; }
  static Int zero(Context) { return Int(0); }
  static Int one(Context) { return Int(1); }
  static Int from_integer(Context, std::int64_t k) { return Int(k); }
  static bool is_zero(const Int& x) { return x.is_zero(); }
  static Result<Int> divide(const Int& a, const Int& b) { return div_exact(a, b); }
  static std::string text(const Int& x) { return x.to_string(); }
};

template <class T>
class Polynomial {
 public:
  using Traits = CoeffTraits<T>;
  using Context = typename Traits::Context;

  Polynomial() = default;
  explicit Polynomial(Context context) : context_(std::move(context)) {}
  Polynomial(std::vector<T> coefficients, Context context = {})
      : coefficients_(std::move(coefficients)), context_(std::move(context)) {
    trim();
  }
  static Polynomial constant(T c) {
    Context context = Traits::context_of(c);
    return Polynomial(std::vector<T>{std::move(c)}, std::move(context));
  }
  // c * x^k.
  static Polynomial monomial(T c, std::size_t k) {
    Context context = Traits::context_of(c);
    std::vector<T> coefficients(k + 1, Traits::zero(context));
    coefficients[k] = std::move(c);
    return Polynomial(std::move(coefficients), std::move(context));
  }

  const std::vector<T>& coefficients() const { return coefficients_; }
  std::int64_t degree() const { return static_cast<std::int64_t>(coefficients_.size()) - 1; }
  bool is_zero() const { return coefficients_.empty(); }
  const Context& context() const { return context_; }
  T zero_coefficient() const { return Traits::zero(context_); }
  T one_coefficient() const { return Traits::one(context_); }
  // The coefficient of x^k, zero beyond the degree.
  T coefficient(std::size_t k) const { return k < coefficients_.size() ? coefficients_[k] : zero_coefficient(); }
  const T& leading() const {
    TV_ENSURE(!is_zero(), "leading coefficient of the zero polynomial");
    return coefficients_.back();
  }

  void trim() {
    while (!coefficients_.empty() && Traits::is_zero(coefficients_.back())) coefficients_.pop_back();
  }

  friend bool operator==(const Polynomial& a, const Polynomial& b) { return a.coefficients_ == b.coefficients_; }

  friend Polynomial operator+(const Polynomial& a, const Polynomial& b) { return a.combine(b, false); }
  friend Polynomial operator-(const Polynomial& a, const Polynomial& b) { return a.combine(b, true); }
  Polynomial operator-() const {
    std::vector<T> out;
    out.reserve(coefficients_.size());
    for (const T& c : coefficients_) out.push_back(-c);
    return Polynomial(std::move(out), context_);
  }
  Polynomial scale(const T& c) const {
    std::vector<T> out;
    out.reserve(coefficients_.size());
    for (const T& x : coefficients_) out.push_back(x * c);
    return Polynomial(std::move(out), context_);
  }
  friend Polynomial operator*(const Polynomial& a, const Polynomial& b) {
    if (a.is_zero() || b.is_zero()) return Polynomial(a.context_);
    const std::size_t n = a.coefficients_.size(), m = b.coefficients_.size();
    std::vector<T> out;
    out.reserve(n + m - 1);
    for (std::size_t k = 0; k < n + m - 1; ++k) {
      const std::size_t first = k >= m ? k - m + 1 : 0;
      const std::size_t last = k < n ? k : n - 1;
      T sum = a.coefficients_[first] * b.coefficients_[k - first];
      for (std::size_t i = first + 1; i <= last; ++i) sum = sum + a.coefficients_[i] * b.coefficients_[k - i];
      out.push_back(std::move(sum));
    }
    return Polynomial(std::move(out), a.context_);
  }
  Polynomial& operator+=(const Polynomial& b) { return *this = *this + b; }
  Polynomial& operator-=(const Polynomial& b) { return *this = *this - b; }
  Polynomial& operator*=(const Polynomial& b) { return *this = *this * b; }

  Polynomial pow(std::uint64_t exponent) const {
    Polynomial result = constant(one_coefficient());
    Polynomial base = *this;
    while (exponent != 0) {
      if (exponent & 1) result *= base;
      exponent >>= 1;
      if (exponent != 0) base *= base;
    }
    return result;
  }

  Polynomial derivative() const {
    std::vector<T> out;
    for (std::size_t k = 1; k < coefficients_.size(); ++k)
      out.push_back(coefficients_[k] * Traits::from_integer(context_, static_cast<std::int64_t>(k)));
    return Polynomial(std::move(out), context_);
  }

  // Every coefficient divided by c, exactly.
  Result<Polynomial> divide_coefficients(const T& c) const {
    std::vector<T> out;
    out.reserve(coefficients_.size());
    for (const T& x : coefficients_) {
      TV_TRY(T q, Traits::divide(x, c));
      out.push_back(std::move(q));
    }
    return Polynomial(std::move(out), context_);
  }

  // Divided by the leading coefficient; "monic() of zero polynomial" (kind Range) for zero.
  Result<Polynomial> monic() const {
    if (is_zero()) return range_failure("monic() of zero polynomial");
    return divide_coefficients(leading());
  }

 private:
  Polynomial combine(const Polynomial& b, bool subtract) const {
    const std::size_t n = std::max(coefficients_.size(), b.coefficients_.size());
    std::vector<T> out;
    out.reserve(n);
    for (std::size_t k = 0; k < n; ++k) {
      if (k < coefficients_.size() && k < b.coefficients_.size())
        out.push_back(subtract ? coefficients_[k] - b.coefficients_[k] : coefficients_[k] + b.coefficients_[k]);
      else if (k < coefficients_.size())
        out.push_back(coefficients_[k]);
      else
        out.push_back(subtract ? -b.coefficients_[k] : b.coefficients_[k]);
    }
    return Polynomial(std::move(out), context_);
  }

  std::vector<T> coefficients_;
  [[no_unique_address]] Context context_{};
};

// Polynomials over a ring are coefficients of bivariate polynomials.
template <class T>
struct CoeffTraits<Polynomial<T>> {
  using Context = NoContext;
  static Context context_of(const Polynomial<T>&) { return {}; }
  static Polynomial<T> zero(Context) { return Polynomial<T>(); }
  static Polynomial<T> one(Context) { return Polynomial<T>::constant(CoeffTraits<T>::one({})); }
  static Polynomial<T> from_integer(Context, std::int64_t k) {
    return Polynomial<T>::constant(CoeffTraits<T>::from_integer({}, k));
  }
  static bool is_zero(const Polynomial<T>& x) { return x.is_zero(); }
  static Result<Polynomial<T>> divide(const Polynomial<T>& a, const Polynomial<T>& b);
};

// x^exponent in the coefficient type, by repeated squaring.
template <class T>
T coefficient_pow(const T& base, std::uint64_t exponent, const T& one) {
  T result = one;
  T square = base;
  while (exponent != 0) {
    if (exponent & 1) result = result * square;
    exponent >>= 1;
    if (exponent != 0) square = square * square;
  }
  return result;
}

template <class T>
struct QuotientRemainder {
  Polynomial<T> quotient;
  Polynomial<T> remainder;
};

// Pseudo-division followed by one exact division by the accumulated factor.
// "Division by zero" (kind Division) when b is zero. A monic b makes that factor 1, so the
// scaling and the final division are skipped.
template <class T>
Result<QuotientRemainder<T>> divrem(const Polynomial<T>& a, const Polynomial<T>& b) {
  using Traits = CoeffTraits<T>;
  if (b.is_zero()) return division_failure("Division by zero");
  if (a.degree() < b.degree()) return QuotientRemainder<T>{Polynomial<T>(a.context()), a};
  std::vector<T> u = a.coefficients();
  const std::size_t n = static_cast<std::size_t>(a.degree()), m = static_cast<std::size_t>(b.degree());
  const T& l = b.leading();
  const bool monic = l == a.one_coefficient();
  const std::vector<T>& bc = b.coefficients();
  T s = a.one_coefficient();
  for (std::size_t k = n + 1; k-- > m;) {
    if (!monic) {
      for (std::size_t i = 0; i <= n; ++i)
        if (i != k) u[i] = u[i] * l;
      s = s * l;
    }
    for (std::size_t j = 0; j < m; ++j) u[k - m + j] = u[k - m + j] - u[k] * bc[j];
  }
  std::vector<T> remainder, quotient;
  for (std::size_t i = 0; i <= n; ++i) {
    if (monic) {
      (i < m ? remainder : quotient).push_back(std::move(u[i]));
      continue;
    }
    TV_TRY(T c, Traits::divide(u[i], s));
    (i < m ? remainder : quotient).push_back(std::move(c));
  }
  return QuotientRemainder<T>{Polynomial<T>(std::move(quotient), a.context()),
                              Polynomial<T>(std::move(remainder), a.context())};
}

template <class T>
Result<Polynomial<T>> rem(const Polynomial<T>& a, const Polynomial<T>& b) {
  TV_TRY(auto qr, divrem(a, b));
  return std::move(qr.remainder);
}

// a / b when b divides a; "not divisible" (kind Division) otherwise.
template <class T>
Result<Polynomial<T>> div_exact(const Polynomial<T>& a, const Polynomial<T>& b) {
  if (b.degree() == 0) return a.divide_coefficients(b.leading());
  TV_TRY(auto qr, divrem(a, b));
  if (!qr.remainder.is_zero()) return division_failure("not divisible");
  return std::move(qr.quotient);
}

template <class T>
Result<Polynomial<T>> CoeffTraits<Polynomial<T>>::divide(const Polynomial<T>& a, const Polynomial<T>& b) {
  return div_exact(a, b);
}

// The last non-zero member of the subresultant remainder sequence of a and b. It is a gcd
// (not made monic); over the ring Q[x] its constant term is the resultant.
template <class T>
Result<Polynomial<T>> subresultant_last(const Polynomial<T>& a, const Polynomial<T>& b) {
  using Traits = CoeffTraits<T>;
  const bool swap = a.degree() < b.degree();
  Polynomial<T> r0 = swap ? b : a;
  Polynomial<T> r1 = swap ? a : b;
  const T one = r0.one_coefficient();
  std::int64_t d = r0.degree() - r1.degree();
  T psi = -one;
  T beta = d % 2 != 0 ? one : -one;
  while (!r1.is_zero()) {
    const T l = r1.leading();
    TV_TRY(auto remainder, rem(r0.scale(coefficient_pow(l, static_cast<std::uint64_t>(d + 1), one)), r1));
    TV_TRY(auto next, remainder.divide_coefficients(beta));
    r0 = std::move(r1);
    r1 = std::move(next);
    const T t = coefficient_pow(-l, static_cast<std::uint64_t>(d), one);
    if (d == 1) {
      psi = t;
    } else if (d == 0) {
      psi = t * psi;
    } else {
      TV_TRY(psi, Traits::divide(t, coefficient_pow(psi, static_cast<std::uint64_t>(d - 1), one)));
    }
    d = r0.degree() - r1.degree();
    beta = -l * coefficient_pow(psi, static_cast<std::uint64_t>(d), one);
  }
  return r0;
}

template <class T>
Result<Polynomial<T>> gcd(const Polynomial<T>& a, const Polynomial<T>& b) {
  return subresultant_last(a, b);
}

// The resultant of a and b with respect to their variable, as a coefficient.
template <class T>
Result<T> resultant(const Polynomial<T>& a, const Polynomial<T>& b) {
  const bool negate = a.degree() < b.degree() && (a.degree() * b.degree()) % 2 != 0;
  TV_TRY(auto last, subresultant_last(a, b));
  if (last.degree() > 0) return a.zero_coefficient();
  const T value = last.coefficient(0);
  return negate ? -value : value;
}

// Rational polynomials.
using QPoly = Polynomial<Fraction>;
using QXYPoly = Polynomial<QPoly>;

// Horner from the top; the zero polynomial gives 0.
Fraction eval(const QPoly& p, const Fraction& x);
// p / gcd(p, p'), made monic.
Result<QPoly> square_free_part(const QPoly& p);
// Sign changes of the Sturm chain of a square-free p at x.
Result<std::uint64_t> sturm_variations(const QPoly& p, const Fraction& x);
// The number of distinct real roots of a square-free p in the closed interval [lo, hi].
Result<std::uint64_t> count_roots(const QPoly& p, const Fraction& lo, const Fraction& hi);

// The power of x written after a coefficient: nothing, "x", or "x" with superscript digits.
std::string power_of_x_text(std::size_t degree);

// Highest degree first in x, terms joined by " + ", zero terms skipped, a coefficient of 1
// left out before a power of x: "x² + -2", "1/2x¹⁰ + x", "-1x", "0".
template <class T>
std::string polynomial_text(const Polynomial<T>& p) {
  if (p.is_zero()) return "0";
  std::string text;
  for (std::size_t k = p.coefficients().size(); k-- > 0;) {
    const T& c = p.coefficients()[k];
    if (CoeffTraits<T>::is_zero(c)) continue;
    if (!text.empty()) text += " + ";
    if (k == 0 || !(c == p.one_coefficient())) text += CoeffTraits<T>::text(c);
    text += power_of_x_text(k);
  }
  return text;
}

}  // namespace tv
