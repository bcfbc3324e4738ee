#include "bindings/args.hpp"

#include <cstring>

namespace tv::py {
namespace {

// Splits the text between the outer parentheses at top-level commas; defaults may hold
// brackets, quotes and commas of their own.
std::vector<std::string_view> split_parameters(std::string_view list) {
  std::vector<std::string_view> parts;
  int depth = 0;
  char quote = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const char c = list[i];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '\'' || c == '"') {
      quote = c;
    } else if (c == '(' || c == '[' || c == '{') {
      ++depth;
    } else if (c == ')' || c == ']' || c == '}') {
      --depth;
    } else if (c == ',' && depth == 0) {
      parts.push_back(list.substr(start, i - start));
      start = i + 1;
    }
  }
  parts.push_back(list.substr(start));
  return parts;
}

std::string_view strip(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

// "'a'", "'a' and 'b'", "'a', 'b', and 'c'": CPython's list of missing names.
std::string quoted_list(const std::vector<std::string>& names) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += names.size() == 2 ? " and " : (i + 1 == names.size() ? ", and " : ", ");
    text += "'" + names[i] + "'";
  }
  return text;
}

}  // namespace

Signature::Signature(const char* owner, const char* doc) {
  const std::string_view line(doc, std::strcspn(doc, "\n"));
  const std::size_t open = line.find('(');
  const std::size_t close = line.rfind(')');
  TV_ENSURE(open != std::string_view::npos && close != std::string_view::npos && close > open,
            "docstring without a text signature");
  const std::string_view function(line.substr(0, open));
  if (owner == nullptr || function == owner)
    name_ = std::string(function);
  else
    name_ = std::string(owner) + "." + std::string(function);
  bool keyword_only = false;
  const std::string_view list = line.substr(open + 1, close - open - 1);
  if (strip(list).empty()) return;
  for (std::string_view part : split_parameters(list)) {
    part = strip(part);
    if (part.starts_with("$")) continue;
    if (part == "*") {
      keyword_only = true;
      continue;
    }
    const std::size_t equals = part.find('=');
    Parameter parameter{std::string(strip(part.substr(0, equals))), equals == std::string_view::npos, keyword_only};
    if (!keyword_only) ++positional_;
    parameters_.push_back(std::move(parameter));
  }
  TV_ENSURE(parameters_.size() <= kMaxParameters, "too many parameters in a signature");
}

bool Signature::check_positional_count(std::size_t nargs) const {
  if (nargs <= positional_) return true;
  std::size_t required = 0;
  for (std::size_t i = 0; i < positional_; ++i) required += parameters_[i].required ? 1 : 0;
  const std::string takes = required == positional_
                                ? std::to_string(positional_)
                                : "from " + std::to_string(required) + " to " + std::to_string(positional_);
  PyErr_Format(PyExc_TypeError, "%s() takes %s positional argument%s but %zu %s given", name_.c_str(), takes.c_str(),
               positional_ == 1 && required == positional_ ? "" : "s", nargs, nargs == 1 ? "was" : "were");
  return false;
}

bool Signature::place_keyword(PyObject* keyword, PyObject* value, std::size_t nargs, PyObject** values) const {
  if (!PyUnicode_Check(keyword)) {
    PyErr_SetString(PyExc_TypeError, "keywords must be strings");
    return false;
  }
  Py_ssize_t size;
  const char* text = PyUnicode_AsUTF8AndSize(keyword, &size);
  if (text == nullptr) return false;
  const std::string_view key(text, static_cast<std::size_t>(size));
  for (std::size_t i = 0; i < parameters_.size(); ++i) {
    if (parameters_[i].name != key) continue;
    if (i < nargs || values[i] != nullptr) {
      PyErr_Format(PyExc_TypeError, "%s() got multiple values for argument '%s'", name_.c_str(), text);
      return false;
    }
    values[i] = value;
    return true;
  }
  PyErr_Format(PyExc_TypeError, "%s() got an unexpected keyword argument '%s'", name_.c_str(), text);
  return false;
}

bool Signature::check_missing(PyObject* const* values) const {
  for (bool keyword_only : {false, true}) {
    std::vector<std::string> missing;
    for (std::size_t i = 0; i < parameters_.size(); ++i)
      if (parameters_[i].keyword_only == keyword_only && parameters_[i].required && values[i] == nullptr)
        missing.push_back(parameters_[i].name);
    if (missing.empty()) continue;
    PyErr_Format(PyExc_TypeError, "%s() missing %zu required %s argument%s: %s", name_.c_str(), missing.size(),
                 keyword_only ? "keyword-only" : "positional", missing.size() == 1 ? "" : "s",
                 quoted_list(missing).c_str());
    return false;
  }
  return true;
}

bool Signature::match(PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames, PyObject** values) const {
  const auto given = static_cast<std::size_t>(nargs);
  if (!check_positional_count(given)) return false;
  for (std::size_t i = 0; i < parameters_.size(); ++i) values[i] = i < given ? args[i] : nullptr;
  const Py_ssize_t keywords = kwnames == nullptr ? 0 : PyTuple_GET_SIZE(kwnames);
  for (Py_ssize_t k = 0; k < keywords; ++k)
    if (!place_keyword(PyTuple_GET_ITEM(kwnames, k), args[nargs + k], given, values)) return false;
  return check_missing(values);
}

bool Signature::match(PyObject* args, PyObject* kwargs, PyObject** values) const {
  const Py_ssize_t nargs = PyTuple_GET_SIZE(args);
  const auto given = static_cast<std::size_t>(nargs);
  if (!check_positional_count(given)) return false;
  for (std::size_t i = 0; i < parameters_.size(); ++i) values[i] = i < given ? PyTuple_GET_ITEM(args, i) : nullptr;
  if (kwargs != nullptr) {
    // The keyword dict belongs to this call, but it is read under its lock all the same.
    bool ok = true;
    Py_BEGIN_CRITICAL_SECTION(kwargs);
    Py_ssize_t position = 0;
    PyObject *key, *value;
    while (ok && PyDict_Next(kwargs, &position, &key, &value)) ok = place_keyword(key, value, given, values);
    Py_END_CRITICAL_SECTION();
    if (!ok) return false;
  }
  return check_missing(values);
}

bool Converter<double>::convert(PyObject* object, double& out) {
  if (PyFloat_CheckExact(object)) {
    out = PyFloat_AS_DOUBLE(object);
    return true;
  }
  const double value = PyFloat_AsDouble(object);
  if (value == -1.0 && PyErr_Occurred()) return false;
  out = value;
  return true;
}

bool Converter<float>::convert(PyObject* object, float& out) {
  double value;
  if (!Converter<double>::convert(object, value)) return false;
  out = static_cast<float>(value);
  return true;
}

bool Converter<bool>::convert(PyObject* object, bool& out) {
  const char* type_name = Py_TYPE(object)->tp_name;
  const bool numpy_bool = std::strcmp(type_name, "numpy.bool") == 0 || std::strcmp(type_name, "numpy.bool_") == 0;
  if (!PyBool_Check(object) && !numpy_bool) {
    raise_mismatch(object, "bool");
    return false;
  }
  const int truth = PyObject_IsTrue(object);
  if (truth < 0) return false;
  out = truth != 0;
  return true;
}

bool Converter<std::string>::convert(PyObject* object, std::string& out) {
  if (!PyUnicode_Check(object)) {
    raise_mismatch(object, "str");
    return false;
  }
  Py_ssize_t size;
  const char* text = PyUnicode_AsUTF8AndSize(object, &size);
  if (text == nullptr) return false;
  out.assign(text, static_cast<std::size_t>(size));
  return true;
}

bool begin_sequence(PyObject* object, PyObject** iterator, Py_ssize_t* size_hint) {
  if (PyUnicode_Check(object)) {
    PyErr_SetString(PyExc_TypeError, "Can't extract `str` to `Vec`");
    return false;
  }
  if (!PySequence_Check(object)) {
    raise_mismatch(object, "Sequence");
    return false;
  }
  *size_hint = PyObject_LengthHint(object, 0);
  if (*size_hint < 0) {
    PyErr_Clear();
    *size_hint = 0;
  }
  *iterator = PyObject_GetIter(object);
  return *iterator != nullptr;
}

}  // namespace tv::py
