// The Array class, and read_array: how an argument that stands for whole numbers comes in.
#pragma once

#include <cstdint>
#include <vector>

#include "array.hpp"
#include "bindings/entry.hpp"

namespace tv::py {

struct ArrayClass {
  using Value = ArrayBuffer;
  static constexpr char name[] = "Array";
};

PyObject* array_class();

// A new Array owning `buffer`.
PyObject* array_object(ArrayBuffer buffer);

// Reads an Array, a contiguous NumPy-style array, a sequence of whole numbers or a sequence of
// such sequences into one flat vector of T (uint8_t, uint16_t or uint32_t). False with a
// Python exception set when the object is none of these or a value does not fit T.
template <class T>
bool read_array(PyObject* object, std::vector<T>& out);

}  // namespace tv::py
