// Python's Real: an exact real algebraic number. Numbers of different fields are unified
// (on copies) before any arithmetic or comparison, so Python code never sees fields at all
// except through the `field` text. Work that may refine a field or unify runs with the
// interpreter released; the value itself never changes, so every method takes shared access.
#include "bindings/real.hpp"

#include <charconv>
#include <cmath>
#include <string>
#include <string_view>

#include "bindings/classes.hpp"
#include "bindings/results.hpp"

namespace tv::py {

PyObject* real_result(Result<AlgebraicNumber>&& result) {
  if (!result.ok()) return raise_failure(result.failure());
  return wrap<RealClass>(std::move(result).value());
}

namespace {

constexpr char kDoc[] =
    "An exact real algebraic number. Reals come from `Real.from_int`, `Real.parse` and\n"
    "`evaluate`; arithmetic and comparisons between them are exact.";

// Runs an operation on copies of two Reals after moving them into one field.
template <class Op>
auto unified(const AlgebraicNumber& a, const AlgebraicNumber& b, Op op) -> decltype(op(a, b)) {
  AlgebraicNumber pair[2] = {a, b};
  TV_CHECK(unify(pair));
  return op(pair[0], pair[1]);
}

template <class Op>
PyObject* binary(PyObject* a, PyObject* b, Op op) {
  if (!is_instance<RealClass>(a) || !is_instance<RealClass>(b)) Py_RETURN_NOTIMPLEMENTED;
  return guarded([&] {
    const AlgebraicNumber& x = real_value(a);
    const AlgebraicNumber& y = real_value(b);
    return real_result(released([&] { return unified(x, y, op); }));
  });
}

PyObject* add(PyObject* a, PyObject* b) {
  return binary(a, b, [](const AlgebraicNumber& x, const AlgebraicNumber& y) { return tv::add(x, y); });
}
PyObject* subtract(PyObject* a, PyObject* b) {
  return binary(a, b, [](const AlgebraicNumber& x, const AlgebraicNumber& y) { return tv::sub(x, y); });
}
PyObject* multiply(PyObject* a, PyObject* b) {
  return binary(a, b, [](const AlgebraicNumber& x, const AlgebraicNumber& y) { return tv::mul(x, y); });
}
PyObject* divide(PyObject* a, PyObject* b) {
  return binary(a, b, [](const AlgebraicNumber& x, const AlgebraicNumber& y) { return tv::div(x, y); });
}

PyObject* negative(PyObject* a) {
  return guarded([&] { return wrap<RealClass>(real_value(a).neg()); });
}
PyObject* absolute(PyObject* a) {
  return guarded([&] { return wrap<RealClass>(released([&] { return real_value(a).abs(); })); });
}
PyObject* as_float(PyObject* a) {
  return guarded([&] { return to_python(released([&] { return real_value(a).to_f64(); })); });
}

PyObject* richcompare(PyObject* a, PyObject* b, int op) {
  if (!is_instance<RealClass>(a) || !is_instance<RealClass>(b)) Py_RETURN_NOTIMPLEMENTED;
  return guarded([&]() -> PyObject* {
    const AlgebraicNumber& x = real_value(a);
    const AlgebraicNumber& y = real_value(b);
    Result<int> sign = released([&] {
      return unified(x, y, [](const AlgebraicNumber& u, const AlgebraicNumber& v) -> Result<int> {
        TV_TRY(AlgebraicNumber difference, tv::sub(u, v));
        return difference.sign();
      });
    });
    if (!sign) return raise_failure(sign.failure());
    return to_python(order_satisfies(sign.value(), op));
  });
}

PyObject* str(PyObject* a) {
  return guarded([&] { return to_python(real_value(a).text()); });
}

// The shortest decimal that reads back as the same double, laid out without an exponent:
// the shortest significant digits, then zeros up to the decimal point or after "0.".
std::string plain_decimal(double value) {
  if (!std::isfinite(value)) return std::isnan(value) ? "NaN" : (value < 0 ? "-inf" : "inf");
  char buffer[32];
  const auto written = std::to_chars(std::begin(buffer), std::end(buffer), value, std::chars_format::scientific);
  TV_ENSURE(written.ec == std::errc(), "a double's shortest scientific form fits 32 characters");
  const std::string_view text(buffer, static_cast<std::size_t>(written.ptr - buffer));
  const std::size_t e = text.find('e');
  const bool negative = text.front() == '-';
  std::string digits;
  for (char c : text.substr(negative ? 1 : 0, e - (negative ? 1 : 0)))
    if (c != '.') digits += c;
  const int exponent = std::stoi(std::string(text.substr(e + 1)));
  // The digits stand for d.ddd * 10^exponent; the point goes after `point` digits.
  const int point = exponent + 1;
  std::string out = negative ? "-" : "";
  if (point <= 0) {
    out += "0." + std::string(static_cast<std::size_t>(-point), '0') + digits;
  } else if (static_cast<std::size_t>(point) >= digits.size()) {
    out += digits + std::string(static_cast<std::size_t>(point) - digits.size(), '0');
  } else {
    out += digits.substr(0, static_cast<std::size_t>(point)) + "." + digits.substr(static_cast<std::size_t>(point));
  }
  return out;
}

PyObject* repr(PyObject* a) {
  return guarded([&] {
    const double value = released([&] { return real_value(a).to_f64(); });
    return to_python("Real(" + plain_decimal(value) + ")");
  });
}

constexpr char kFromIntDoc[] =
    "from_int(n)\n--\n\n"
    "The integer n (within signed 64 bits) as a Real.";
PyObject* from_int(Arguments& args) {
  std::int64_t n = 0;
  if (!args.convert(n)) return nullptr;
  return wrap<RealClass>(AlgebraicNumber::from_int(rational_field(), Int(n)));
}

constexpr char kParseDoc[] =
    "parse(expr)\n--\n\n"
    "Parse an arithmetic expression and evaluate it exactly, as `evaluate` does, with its limits.";

constexpr char kRootDoc[] =
    "root($self, k)\n--\n\n"
    "The non-negative real k-th root, for k from 1 to 1024 (ValueError otherwise). The root of a\n"
    "negative number raises RuntimeError.";
PyObject* root(Instance<AlgebraicNumber>& self, Arguments& args) {
  std::int64_t k = 0;
  if (!args.convert(k)) return nullptr;
  return real_result(released([&] { return tv::root(self.value, Int(k)); }));
}

constexpr char kSignDoc[] =
    "sign($self)\n--\n\n"
    "-1, 0 or 1: the exact sign of the number, however close it is to zero.";
PyObject* sign(Instance<AlgebraicNumber>& self, Arguments&) {
  return to_python(static_cast<std::int64_t>(released([&] { return self.value.sign(); })));
}

constexpr char kIntervalDoc[] =
    "interval($self)\n--\n\n"
    "Two Fractions lo <= value <= hi: the present enclosure of the number, without narrowing it.";
PyObject* interval(Instance<AlgebraicNumber>& self, Arguments&) {
  const Interval bounds = self.value.enclosure();
  PyObject* lo = fraction_object(bounds.lo);
  PyObject* hi = lo == nullptr ? nullptr : fraction_object(bounds.hi);
  if (hi == nullptr) {
    Py_XDECREF(lo);
    return nullptr;
  }
  PyObject* pair = PyTuple_Pack(2, lo, hi);
  Py_DECREF(lo);
  Py_DECREF(hi);
  return pair;
}

PyObject* field(Instance<AlgebraicNumber>& self) { return to_python(self.value.field()->text()); }

PyMethodDef methods[] = {
    TV_STATIC_METHOD(RealClass, "from_int", kFromIntDoc, from_int),
    TV_STATIC_METHOD(RealClass, "parse", kParseDoc, evaluate_expression),
    TV_METHOD(RealClass, "root", kRootDoc, Access::Shared, root),
    TV_METHOD(RealClass, "sign", kSignDoc, Access::Shared, sign),
    TV_METHOD(RealClass, "interval", kIntervalDoc, Access::Shared, interval),
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef getset[] = {
    TV_GETTER(RealClass, "field", "The text of the number field the number is written in.", field),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char*>(kDoc)},
    {Py_tp_dealloc, reinterpret_cast<void*>(&deallocate<RealClass>)},
    {Py_tp_repr, reinterpret_cast<void*>(&repr)},
    {Py_tp_str, reinterpret_cast<void*>(&str)},
    {Py_tp_richcompare, reinterpret_cast<void*>(&richcompare)},
    {Py_tp_methods, methods},
    {Py_tp_getset, getset},
    {Py_nb_add, reinterpret_cast<void*>(&add)},
    {Py_nb_subtract, reinterpret_cast<void*>(&subtract)},
    {Py_nb_multiply, reinterpret_cast<void*>(&multiply)},
    {Py_nb_true_divide, reinterpret_cast<void*>(&divide)},
    {Py_nb_negative, reinterpret_cast<void*>(&negative)},
    {Py_nb_absolute, reinterpret_cast<void*>(&absolute)},
    {Py_nb_float, reinterpret_cast<void*>(&as_float)},
    {0, nullptr},
};

// No constructor: calling the class is refused by the interpreter.
PyType_Spec type_spec = {"torvane._native.Real", 0, 0,
                    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};

}  // namespace

PyObject* real_class() { return create_type<RealClass>(type_spec); }

}  // namespace tv::py
