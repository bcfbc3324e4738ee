// Python's Fraction: an immutable exact rational.
#include "bindings/classes.hpp"
#include "bindings/entry.hpp"
#include "bindings/results.hpp"
#include "num/fraction.hpp"

namespace tv::py {
namespace {

struct FractionClass {
  using Value = Fraction;
  static constexpr char name[] = "Fraction";
};

constexpr char kDoc[] =
    "Fraction(numerator, denominator=1)\n--\n\n"
    "An exact rational number, always in lowest terms with a positive denominator.";

PyObject* construct(PyTypeObject* type, Arguments& args) {
  std::int64_t numerator = 0, denominator = 1;
  if (!args.convert(numerator, denominator)) return nullptr;
  auto value = Fraction::make(Int(numerator), Int(denominator));
  if (!value) return raise_failure(value.failure());
  return wrap<FractionClass>(std::move(value).value(), type);
}

const Fraction& value_of(PyObject* object) { return instance_of<FractionClass>(object).value; }

// Binary operators take two Fractions; anything else is left to Python.
template <class Op>
PyObject* binary(PyObject* a, PyObject* b, Op op) {
  if (!is_instance<FractionClass>(a) || !is_instance<FractionClass>(b)) Py_RETURN_NOTIMPLEMENTED;
  return guarded([&]() -> PyObject* {
    Result<Fraction> result = op(value_of(a), value_of(b));
    if (!result) return raise_failure(result.failure());
    return wrap<FractionClass>(std::move(result).value());
  });
}

PyObject* add(PyObject* a, PyObject* b) {
  return binary(a, b, [](const Fraction& x, const Fraction& y) -> Result<Fraction> { return x + y; });
}
PyObject* subtract(PyObject* a, PyObject* b) {
  return binary(a, b, [](const Fraction& x, const Fraction& y) -> Result<Fraction> { return x - y; });
}
PyObject* multiply(PyObject* a, PyObject* b) {
  return binary(a, b, [](const Fraction& x, const Fraction& y) -> Result<Fraction> { return x * y; });
}
PyObject* divide(PyObject* a, PyObject* b) {
  return binary(a, b, [](const Fraction& x, const Fraction& y) { return div(x, y); });
}
PyObject* negative(PyObject* a) {
  return guarded([&] { return wrap<FractionClass>(-value_of(a)); });
}
PyObject* absolute(PyObject* a) {
  return guarded([&] { return wrap<FractionClass>(value_of(a).abs()); });
}
PyObject* as_float(PyObject* a) {
  return guarded([&] { return to_python(value_of(a).to_f64()); });
}

PyObject* richcompare(PyObject* a, PyObject* b, int op) {
  if (!is_instance<FractionClass>(a) || !is_instance<FractionClass>(b)) Py_RETURN_NOTIMPLEMENTED;
  return guarded([&] { return to_python(order_satisfies(compare(value_of(a), value_of(b)), op)); });
}

Py_hash_t hash(PyObject* a) { return static_cast<Py_hash_t>(value_of(a).hash()); }

PyObject* str(PyObject* a) {
  return guarded([&] { return to_python(value_of(a).to_string()); });
}

PyObject* repr(PyObject* a) {
  return guarded([&] {
    const Fraction& f = value_of(a);
    return to_python("Fraction(" + f.numerator().to_string() + ", " + f.denominator().to_string() + ")");
  });
}

PyObject* numerator(Instance<Fraction>& self) { return to_python(self.value.numerator().to_string()); }
PyObject* denominator(Instance<Fraction>& self) { return to_python(self.value.denominator().to_string()); }

PyGetSetDef getset[] = {
    TV_GETTER(FractionClass, "numerator", "The numerator in lowest terms, as decimal text.", numerator),
    TV_GETTER(FractionClass, "denominator", "The positive denominator in lowest terms, as decimal text.", denominator),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char*>(kDoc)},
    {Py_tp_new, reinterpret_cast<void*>(&constructor_entry<FractionClass, kDoc, construct>)},
    {Py_tp_dealloc, reinterpret_cast<void*>(&deallocate<FractionClass>)},
    {Py_tp_repr, reinterpret_cast<void*>(&repr)},
    {Py_tp_str, reinterpret_cast<void*>(&str)},
    {Py_tp_hash, reinterpret_cast<void*>(&hash)},
    {Py_tp_richcompare, reinterpret_cast<void*>(&richcompare)},
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

PyType_Spec type_spec = {"torvane._native.Fraction", 0, 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE, slots};

}  // namespace

PyObject* fraction_class() { return create_type<FractionClass>(type_spec); }

PyObject* fraction_object(const Fraction& value) { return wrap<FractionClass>(value); }

}  // namespace tv::py
