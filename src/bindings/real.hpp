// Python's Real: one immutable AlgebraicNumber. Other bindings that produce or accept real
// numbers (expression evaluation, coordinates of puzzles) use these helpers:
//
//   PyObject* result = real_result(eval_expr(tree));   // a new Real, or the failure raised
//   if (is_instance<RealClass>(object)) use(real_value(object));
#pragma once

#include "bindings/entry.hpp"
#include "exact.hpp"

namespace tv::py {

struct RealClass {
  using Value = AlgebraicNumber;
  static constexpr char name[] = "Real";
};

inline const AlgebraicNumber& real_value(PyObject* object) { return instance_of<RealClass>(object).value; }

// A new Real holding the result, or nullptr with the failure raised.
PyObject* real_result(Result<AlgebraicNumber>&& result);

}  // namespace tv::py
