// The module function `evaluate`, and the body it shares with `Real.parse`: exact expression
// text in, a Real out.
#include "bindings/classes.hpp"
#include "bindings/real.hpp"
#include "parse.hpp"

namespace tv::py {
namespace {

constexpr char kEvaluateDoc[] =
    "evaluate(expr)\n--\n\n"
    "Parse an arithmetic expression and evaluate it exactly.\n\n"
    "Limits: integers within signed 64 bits; nesting at most 256 levels; in b^(p/q), p at most\n"
    "2^20 and a result of at most 2^24 bits in any coefficient (estimated as p times the bits of\n"
    "b's), q at most 1024; sqrt and cbrt of non-negative numbers only. Beyond a limit, ValueError\n"
    "names the size.";

Result<AlgebraicNumber> parse_and_evaluate(std::string_view text) {
  TV_TRY(Expr expr, parse_expr(text));
  return eval_expr(expr);
}

PyMethodDef evaluate_def = TV_FUNCTION("evaluate", kEvaluateDoc, evaluate_expression);

}  // namespace

PyObject* evaluate_expression(Arguments& args) {
  std::string text;
  if (!args.convert(text)) return nullptr;
  return real_result(released([&] { return parse_and_evaluate(text); }));
}

PyObject* evaluate_function(PyObject* module) { return PyCFunction_NewEx(&evaluate_def, nullptr, module); }

}  // namespace tv::py
