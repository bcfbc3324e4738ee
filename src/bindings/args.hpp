// Arguments from Python: matching a call against a signature, then converting each value.
//
// A signature is read from the first line of the function's docstring, which is CPython's
// text signature ("blit($self, src, x=0, *, mode='copy')"), so the documented signature and
// the accepted one cannot drift apart. A parameter with a default is optional, parameters
// after "*" are keyword-only, and "$self", "$type" and "$module" are skipped.
//
// Matching raises CPython's own TypeErrors for a wrong count or a wrong keyword. Conversion
// is a separate step, done in declaration order by Arguments::convert, so the first bad
// argument decides the error; that error keeps its type and message and gets the note
// "while processing '<name>'". Every target type has one Converter; they give one mismatch
// form: "'<type>' object is not an instance of '<target>'".
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "bindings/errors.hpp"

namespace tv::py {

struct Parameter {
  std::string name;
  bool required = true;
  bool keyword_only = false;
};

class Signature {
 public:
  static constexpr std::size_t kMaxParameters = 16;

  // `owner` is the class name for methods (null for module functions); `doc` begins with the
  // text signature. The name used in messages is "Owner.name", or "Owner" for a constructor.
  Signature(const char* owner, const char* doc);

  const std::string& name() const { return name_; }
  const std::vector<Parameter>& parameters() const { return parameters_; }

  // Fills values[i] with a borrowed reference for each parameter given, nullptr for each
  // omitted one; raises TypeError and returns false on a mismatch.
  bool match(PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames, PyObject** values) const;
  bool match(PyObject* args, PyObject* kwargs, PyObject** values) const;

 private:
  bool place_keyword(PyObject* keyword, PyObject* value, std::size_t nargs, PyObject** values) const;
  bool check_positional_count(std::size_t nargs) const;
  bool check_missing(PyObject* const* values) const;

  std::string name_;
  std::vector<Parameter> parameters_;
  std::size_t positional_ = 0;  // parameters that may be given by position
};

// Converts one Python value to T, raising on failure. Specialised per target type.
template <class T>
struct Converter;

template <class T>
concept Convertible = requires(PyObject* o, T& out) {
  { Converter<T>::convert(o, out) } -> std::same_as<bool>;
};

// Reads a whole number through the index protocol. A 64-bit target keeps CPython's own
// OverflowError for a value outside it; a narrower one gives one message for every value
// outside its range, whether negative, too large or beyond 64 bits.
template <class T>
  requires std::is_integral_v<T> && (!std::is_same_v<T, bool>)
struct Converter<T> {
  static bool convert(PyObject* object, T& out) {
    PyObject* index = PyNumber_Index(object);
    if (index == nullptr) return false;
    const bool ok = read(index, out);
    Py_DECREF(index);
    return ok;
  }

 private:
  static bool read(PyObject* index, T& out) {
    if constexpr (sizeof(T) == sizeof(long long) && std::is_signed_v<T>) {
      const long long value = PyLong_AsLongLong(index);
      if (value == -1 && PyErr_Occurred()) return false;
      out = static_cast<T>(value);
    } else if constexpr (sizeof(T) == sizeof(long long)) {
      const unsigned long long value = PyLong_AsUnsignedLongLong(index);
      if (value == static_cast<unsigned long long>(-1) && PyErr_Occurred()) return false;
      out = static_cast<T>(value);
    } else {
      int overflow = 0;
      const long long value = PyLong_AsLongLongAndOverflow(index, &overflow);
      if (value == -1 && PyErr_Occurred()) return false;
      if (overflow != 0 || value < static_cast<long long>(std::numeric_limits<T>::min()) ||
          value > static_cast<long long>(std::numeric_limits<T>::max())) {
        PyErr_SetString(PyExc_OverflowError, "out of range integral type conversion attempted");
        return false;
      }
      out = static_cast<T>(value);
    }
    return true;
  }
};

template <>
struct Converter<double> {
  static bool convert(PyObject* object, double& out);
};

template <>
struct Converter<float> {
  static bool convert(PyObject* object, float& out);
};

// A flag: bool or NumPy's boolean; an int is not a flag.
template <>
struct Converter<bool> {
  static bool convert(PyObject* object, bool& out);
};

// Text as UTF-8.
template <>
struct Converter<std::string> {
  static bool convert(PyObject* object, std::string& out);
};

// None or an omitted argument mean the default.
template <class T>
struct Converter<std::optional<T>> {
  static bool convert(PyObject* object, std::optional<T>& out) {
    if (object == Py_None) {
      out.reset();
      return true;
    }
    T value{};
    if (!Converter<T>::convert(object, value)) return false;
    out = std::move(value);
    return true;
  }
};

// Any sequence but str, read through its iterator. Its length is only a hint: a list argument
// reserves at most kReserveLimit elements up front and grows as the items arrive, so a length
// that lies (or a range of 10**12 items) fails on its first bad item, not in the allocator.
inline constexpr std::size_t kReserveLimit = 4096;
bool begin_sequence(PyObject* object, PyObject** iterator, Py_ssize_t* size_hint);

template <class T>
struct Converter<std::vector<T>> {
  static bool convert(PyObject* object, std::vector<T>& out) {
    PyObject* iterator;
    Py_ssize_t size_hint;
    if (!begin_sequence(object, &iterator, &size_hint)) return false;
    out.clear();
    if (size_hint > 0) out.reserve(std::min(static_cast<std::size_t>(size_hint), kReserveLimit));
    PyObject* item;
    int status;
    while ((status = PyIter_NextItem(iterator, &item)) == 1) {
      T value{};
      const bool ok = Converter<T>::convert(item, value);
      Py_DECREF(item);
      if (!ok) {
        Py_DECREF(iterator);
        return false;
      }
      out.push_back(std::move(value));
    }
    Py_DECREF(iterator);
    return status == 0;
  }
};

// The Python object itself, borrowed, for arguments with rules of their own.
template <>
struct Converter<PyObject*> {
  static bool convert(PyObject* object, PyObject*& out) {
    out = object;
    return true;
  }
};

// The matched arguments of one call, as borrowed references.
class Arguments {
 public:
  explicit Arguments(const Signature& signature) : signature_(&signature) {}

  bool match(PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
    return signature_->match(args, nargs, kwnames, values_);
  }
  bool match(PyObject* args, PyObject* kwargs) { return signature_->match(args, kwargs, values_); }

  // The value given for parameter i, or nullptr when it was omitted.
  PyObject* operator[](std::size_t i) const { return values_[i]; }
  const char* name(std::size_t i) const { return signature_->parameters()[i].name.c_str(); }

  // Converts the arguments in declaration order into `outputs`, one per parameter. An omitted
  // argument leaves its output untouched, so outputs start at their defaults.
  template <Convertible... Outputs>
  bool convert(Outputs&... outputs) {
    std::size_t i = 0;
    return (convert_one(i++, outputs) && ...);
  }

  // Converts parameter i alone, with the note on failure.
  template <Convertible T>
  bool convert_one(std::size_t i, T& output) {
    if (values_[i] == nullptr) return true;
    if (Converter<T>::convert(values_[i], output)) return true;
    note_argument(name(i));
    return false;
  }

 private:
  const Signature* signature_;
  PyObject* values_[Signature::kMaxParameters] = {};
};

}  // namespace tv::py
