#include "num/polynomial.hpp"

namespace tv {

Fraction eval(const QPoly& p, const Fraction& x) {
  Fraction acc;
  const auto& c = p.coefficients();
  for (std::size_t k = c.size(); k-- > 0;) acc = acc * x + c[k];
  return acc;
}

Result<QPoly> square_free_part(const QPoly& p) {
  TV_TRY(QPoly g, gcd(p, p.derivative()));
  TV_TRY(QPoly q, div_exact(p, g));
  return q.monic();
}

Result<std::uint64_t> sturm_variations(const QPoly& p, const Fraction& x) {
  QPoly a = p;
  QPoly b = p.derivative();
  int s = eval(p, x).sign();
  std::uint64_t variations = 0;
  while (!b.is_zero()) {
    const int t = eval(b, x).sign();
    if (t != 0) {
      if (s != 0 && t != s) ++variations;
      s = t;
    }
    TV_TRY(QPoly r, rem(a, b));
    a = std::move(b);
    b = -r;
  }
  return variations;
}

Result<std::uint64_t> count_roots(const QPoly& p, const Fraction& lo, const Fraction& hi) {
  TV_TRY(std::uint64_t at_lo, sturm_variations(p, lo));
  TV_TRY(std::uint64_t at_hi, sturm_variations(p, hi));
  return at_lo + (eval(p, lo).is_zero() ? 1 : 0) - at_hi;
}

std::string power_of_x_text(std::size_t degree) {
  static constexpr const char* superscripts[10] = {"\u2070", "\u00b9", "\u00b2", "\u00b3", "\u2074",
                                                   "\u2075", "\u2076", "\u2077", "\u2078", "\u2079"};
  if (degree == 0) return "";
  if (degree == 1) return "x";
  std::string text = "x";
  for (char digit : std::to_string(degree)) text += superscripts[digit - '0'];
  return text;
}

}  // namespace tv
