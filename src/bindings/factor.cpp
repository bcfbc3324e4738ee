// The module function factor_polynomial: factoring over the rationals from Python.
#include "bindings/classes.hpp"
#include "bindings/entry.hpp"
#include "bindings/results.hpp"
#include "num/factoring.hpp"

namespace tv::py {
namespace {

constexpr char kFactorDoc[] =
    "factor_polynomial(coefficients)\n--\n\n"
    "Factor a rational polynomial given by its coefficients, lowest degree first. "
    "Returns each irreducible factor's coefficients.";

// Each factor's coefficients, lowest degree first, as Fraction text.
std::vector<std::vector<std::string>> coefficient_texts(const std::vector<QPoly>& factors) {
  std::vector<std::vector<std::string>> texts;
  texts.reserve(factors.size());
  for (const QPoly& factor : factors) {
    auto& row = texts.emplace_back();
    for (const Fraction& c : factor.coefficients()) row.push_back(c.to_string());
  }
  return texts;
}

PyObject* factor_polynomial(Arguments& args) {
  std::vector<std::int64_t> coefficients;
  if (!args.convert(coefficients)) return nullptr;
  auto texts = released([&]() -> Result<std::vector<std::vector<std::string>>> {
    TV_TRY(auto factors, factor(QPoly(std::vector<Fraction>(coefficients.begin(), coefficients.end()))));
    return coefficient_texts(factors);
  });
  return to_python(std::move(texts));
}

PyMethodDef def = TV_FUNCTION("factor_polynomial", kFactorDoc, factor_polynomial);

}  // namespace

PyObject* factor_polynomial_function(PyObject* module) { return PyCFunction_NewEx(&def, nullptr, module); }

}  // namespace tv::py
