#include "bindings/errors.hpp"

#include <atomic>

namespace tv::py {
namespace {

// Creates an exception type once per process. Creation happens with the interpreter attached;
// the first store wins and a type made by a racing thread is dropped.
PyObject* exception_type_once(std::atomic<PyObject*>& slot, const char* name, const char* doc, PyObject* base) {
  PyObject* type = slot.load(std::memory_order_acquire);
  if (type != nullptr) return type;
  PyObject* made = PyErr_NewExceptionWithDoc(name, doc, base, nullptr);
  if (made == nullptr) Py_FatalError("Failed to initialize new exception type.");
  PyObject* expected = nullptr;
  if (!slot.compare_exchange_strong(expected, made, std::memory_order_acq_rel)) {
    Py_DECREF(made);
    return expected;
  }
  return made;
}

std::atomic<PyObject*> puzzle_error_slot{nullptr};
std::atomic<PyObject*> internal_error_slot{nullptr};

}  // namespace

PyObject* puzzle_error_type() {
  return exception_type_once(puzzle_error_slot, "torvane._native.PuzzleError",
                             "Base class for errors raised by the torvane extension.", PyExc_Exception);
}

PyObject* internal_error_type() {
  return exception_type_once(internal_error_slot, "torvane._native.InternalError",
                             "A broken internal invariant of the torvane extension: a bug, not bad input.",
                             PyExc_BaseException);
}

PyObject* raise(PyObject* type, const std::string& message) {
  PyObject* text = PyUnicode_FromStringAndSize(message.data(), static_cast<Py_ssize_t>(message.size()));
  if (text == nullptr) return nullptr;
  PyErr_SetObject(type, text);
  Py_DECREF(text);
  return nullptr;
}

PyObject* raise_failure(const Failure& failure) {
  // A signal handler that raised while the work ran (interrupt.hpp) has the last word.
  if (PyErr_Occurred() != nullptr) return nullptr;
  const bool division_by_zero = failure.message.find("Division by zero") != std::string::npos;
  PyObject* type = PyExc_RuntimeError;
  switch (failure.kind) {
    case FailureKind::Range: type = division_by_zero ? PyExc_ZeroDivisionError : PyExc_ValueError; break;
    case FailureKind::Division: type = division_by_zero ? PyExc_ZeroDivisionError : PyExc_ArithmeticError; break;
    case FailureKind::Type: type = PyExc_TypeError; break;
    case FailureKind::Parse:
    case FailureKind::State: type = puzzle_error_type(); break;
    case FailureKind::Other: type = PyExc_RuntimeError; break;
  }
  return raise(type, failure.message);
}

PyObject* raise_internal(const char* message) { return raise(internal_error_type(), message); }

PyObject* raise_mismatch(PyObject* object, const char* target) {
  if (object == Py_None) {
    PyErr_Format(PyExc_TypeError, "'None' is not an instance of '%s'", target);
    return nullptr;
  }
  PyObject* name = PyType_GetName(Py_TYPE(object));
  if (name == nullptr) return nullptr;
  PyErr_Format(PyExc_TypeError, "'%U' object is not an instance of '%s'", name, target);
  Py_DECREF(name);
  return nullptr;
}

void note_argument(const char* name) {
  PyObject* exception = PyErr_GetRaisedException();
  if (exception == nullptr) return;
  PyObject* result = PyObject_CallMethod(exception, "add_note", "s", (std::string("while processing '") + name + "'").c_str());
  if (result == nullptr) {
    // The original error matters more than a failed note.
    PyErr_Clear();
  } else {
    Py_DECREF(result);
  }
  PyErr_SetRaisedException(exception);
}

}  // namespace tv::py
