// Shapes and recipes at the Python boundary: the Shape and Recipe classes, and the conversions
// by which any call accepts an expression, a list of shapes or a recipe as an argument.
//
// Each conversion raises a Python exception and returns false when the object does not fit.
#pragma once

#include <string>
#include <vector>

#include "bindings/entry.hpp"
#include "parse.hpp"

namespace tv::py {

struct ShapeClass {
  using Value = Shape;
  static constexpr char name[] = "Shape";
};

struct RecipeClass {
  using Value = Recipe;
  static constexpr char name[] = "Recipe";
};

// An expression from a Fraction (written "n/d", the denominator always present), a str taken
// as it is, or an int of 64 bits in decimal; the text then goes through `parse_expr`.
bool expression_from(PyObject* object, Expr& out);

// The shapes of a shell or cuts argument named `label`: nothing for None or an omitted
// argument, one Shape or its text, or any iterable of Shapes and texts.
bool shapes_from(PyObject* object, const char* label, std::vector<Shape>& out);

// The query text of a recipe argument: a Recipe, or a str that is a query string or a
// catalog name.
bool query_from(PyObject* object, std::string& out);

// Moves a result's value into `out`, or raises its failure and returns false.
template <class T>
bool take_result(Result<T> result, T& out) {
  if (!result) {
    raise_failure(result.failure());
    return false;
  }
  out = std::move(result).value();
  return true;
}

// A new object of the class holding the result's value, or nullptr with its failure raised.
template <class Class>
PyObject* wrap_result(Result<typename Class::Value> result) {
  if (!result) return raise_failure(result.failure());
  return wrap<Class>(std::move(result).value());
}

// Raises TypeError with `prefix` followed by the name of the object's type; returns false.
bool raise_type_naming(const char* prefix, PyObject* object);

// New Python objects wrapping a value.
PyObject* shape_object(Shape shape);
PyObject* recipe_object(Recipe recipe);

// A Shape argument: only a Shape object is accepted.
template <>
struct Converter<Shape> {
  static bool convert(PyObject* object, Shape& out);
};

template <>
struct Converter<Expr> {
  static bool convert(PyObject* object, Expr& out) { return expression_from(object, out); }
};

// The comparison slot of an immutable value class that is compared structurally and refuses
// to be ordered: `==` and `!=` against its own class, `Refusal` as a TypeError for an order
// against its own class, NotImplemented against anything else.
template <class Class, const char* Refusal>
PyObject* compare_structurally(PyObject* a, PyObject* b, int op) {
  if (!is_instance<Class>(a) || !is_instance<Class>(b)) Py_RETURN_NOTIMPLEMENTED;
  if (op != Py_EQ && op != Py_NE) {
    PyErr_SetString(PyExc_TypeError, Refusal);
    return nullptr;
  }
  const bool equal = instance_of<Class>(a).value == instance_of<Class>(b).value;
  return Py_NewRef(equal == (op == Py_EQ) ? Py_True : Py_False);
}

// The hash slot of a value whose canonical text `TextOf` gives; raises when it has none.
template <class Class, auto TextOf>
Py_hash_t hash_of_text(PyObject* self) {
  const Result<std::string> text = TextOf(instance_of<Class>(self).value);
  if (!text) {
    raise_failure(text.failure());
    return -1;
  }
  return static_cast<Py_hash_t>(canonical_text_hash(*text));
}

}  // namespace tv::py
