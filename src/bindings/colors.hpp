// Fixed tuples at the Python boundary. A color is a tuple of exactly four integers from 0 to
// 255, (r, g, b, a), held inside as one word with r in the lowest byte; a camera vector is a
// tuple of exactly three floats.
#pragma once

#include "bindings/args.hpp"
#include "render/scene.hpp"

namespace tv::py {

// Whether `object` is a tuple of exactly `size` items; raises the mismatch TypeError or a
// ValueError naming both lengths when it is not.
inline bool is_tuple_of_size(PyObject* object, Py_ssize_t size) {
  if (!PyTuple_Check(object)) {
    raise_mismatch(object, "tuple");
    return false;
  }
  if (PyTuple_GET_SIZE(object) != size) {
    PyErr_Format(PyExc_ValueError, "expected tuple of length %zd, but got tuple of length %zd", size,
                 PyTuple_GET_SIZE(object));
    return false;
  }
  return true;
}

using ColorArgument = render::ColorWord;

template <>
struct Converter<ColorArgument> {
  static bool convert(PyObject* object, ColorArgument& out) {
    if (!is_tuple_of_size(object, 4)) return false;
    render::Color word = 0;
    for (Py_ssize_t i = 0; i < 4; ++i) {
      std::uint8_t byte;
      if (!Converter<std::uint8_t>::convert(PyTuple_GET_ITEM(object, i), byte)) return false;
      word |= render::Color{byte} << (8 * i);
    }
    out.word = word;
    return true;
  }
};

// A camera vector at the boundary: a tuple of three floats.
struct VectorArgument {
  render::Vector3 value{};
};

template <>
struct Converter<VectorArgument> {
  static bool convert(PyObject* object, VectorArgument& out) {
    if (!is_tuple_of_size(object, 3)) return false;
    for (Py_ssize_t i = 0; i < 3; ++i) {
      if (!Converter<double>::convert(PyTuple_GET_ITEM(object, i), out.value[i])) return false;
    }
    return true;
  }
};

}  // namespace tv::py
