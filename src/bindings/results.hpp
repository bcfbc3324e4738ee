// Native results as Python objects: whole numbers become int, flags bool, text str, fixed
// groups tuple, variable groups list; a Failure becomes its exception. Each returns a new
// reference, or nullptr with an exception set.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "bindings/errors.hpp"
#include "failure.hpp"

namespace tv::py {

// Whether a three-way order (negative, zero or positive) satisfies the rich comparison `op`.
inline bool order_satisfies(int order, int op) {
  switch (op) {
    case Py_LT: return order < 0;
    case Py_LE: return order <= 0;
    case Py_EQ: return order == 0;
    case Py_NE: return order != 0;
    case Py_GT: return order > 0;
    default: return order >= 0;
  }
}

inline PyObject* to_python(PyObject* object) { return object; }
inline PyObject* to_python(bool flag) { return Py_NewRef(flag ? Py_True : Py_False); }
inline PyObject* to_python(std::int64_t value) { return PyLong_FromLongLong(value); }
inline PyObject* to_python(std::int32_t value) { return PyLong_FromLong(value); }
inline PyObject* to_python(std::uint64_t value) { return PyLong_FromUnsignedLongLong(value); }
inline PyObject* to_python(std::uint32_t value) { return PyLong_FromUnsignedLong(value); }
inline PyObject* to_python(std::uint16_t value) { return PyLong_FromUnsignedLong(value); }
inline PyObject* to_python(std::uint8_t value) { return PyLong_FromUnsignedLong(value); }
inline PyObject* to_python(double value) { return PyFloat_FromDouble(value); }
inline PyObject* to_python(std::string_view text) {
  return PyUnicode_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size()));
}
inline PyObject* to_python(const std::string& text) { return to_python(std::string_view(text)); }

// Declared ahead so that lists of tuples and tuples of lists find each other.
template <class... T>
PyObject* to_python(const std::tuple<T...>& values);

template <class T>
PyObject* to_python(const std::vector<T>& values) {
  PyObject* list = PyList_New(static_cast<Py_ssize_t>(values.size()));
  if (list == nullptr) return nullptr;
  for (std::size_t i = 0; i < values.size(); ++i) {
    PyObject* item = to_python(values[i]);
    if (item == nullptr) {
      Py_DECREF(list);
      return nullptr;
    }
    PyList_SET_ITEM(list, static_cast<Py_ssize_t>(i), item);
  }
  return list;
}

template <class... T>
PyObject* to_python(const std::tuple<T...>& values) {
  PyObject* tuple = PyTuple_New(sizeof...(T));
  if (tuple == nullptr) return nullptr;
  bool ok = true;
  std::size_t i = 0;
  std::apply(
      [&](const auto&... value) {
        ((ok = ok && [&] {
            PyObject* item = to_python(value);
            if (item != nullptr) PyTuple_SET_ITEM(tuple, static_cast<Py_ssize_t>(i++), item);
            return item != nullptr;
          }()),
         ...);
      },
      values);
  if (!ok) {
    Py_DECREF(tuple);
    return nullptr;
  }
  return tuple;
}

template <class T>
PyObject* to_python(Result<T>&& result) {
  if (!result.ok()) return raise_failure(result.failure());
  if constexpr (std::is_void_v<T>)
    return Py_NewRef(Py_None);
  else
    return to_python(std::move(result).value());
}

}  // namespace tv::py
