// How a Python call enters the native code. Every function, method, constructor and getter of
// the module goes through one of the entry templates below, which fix the order of a call:
//
//   1. match the arguments to the signature read from the docstring;
//   2. take access to the object (shared or exclusive, as the method table says);
//   3. run the method's body, which converts its arguments with Arguments::convert and, for
//      long work, lets go of the interpreter with `released`;
//   4. turn a broken invariant (InternalError) into the BaseException-derived error, with the
//      interpreter attached and the object's access given back.
//
// A class binding is a small struct naming its value type and Python name:
//
//   struct FractionClass { using Value = Fraction; static constexpr char name[] = "Fraction"; };
//
// and its instances are Instance<Value>: the Python header, the access state and the value.
#pragma once

#include <cxxabi.h>

#include <atomic>
#include <new>
#include <type_traits>
#include <utility>

#include "bindings/access.hpp"
#include "bindings/args.hpp"
#include "bindings/errors.hpp"
#include "interrupt.hpp"

namespace tv::py {

template <class T>
struct Instance {
  PyObject_HEAD
  AccessState access;
  T value;
};

// The process-wide type object of a class binding, set once when the class is registered.
template <class Class>
struct TypeSlot {
  static inline std::atomic<PyTypeObject*> type{nullptr};
};

template <class Class>
PyTypeObject* type_of() {
  return TypeSlot<Class>::type.load(std::memory_order_acquire);
}

template <class Class>
bool is_instance(PyObject* object) {
  PyTypeObject* type = type_of<Class>();
  return type != nullptr && PyObject_TypeCheck(object, type);
}

template <class Class>
Instance<typename Class::Value>& instance_of(PyObject* object) {
  return *reinterpret_cast<Instance<typename Class::Value>*>(object);
}

template <class Class>
void deallocate(PyObject* self) {
  PyTypeObject* type = Py_TYPE(self);
  using Value = typename Class::Value;
  auto& instance = instance_of<Class>(self);
  instance.value.~Value();
  instance.access.~AccessState();
  type->tp_free(self);
  Py_DECREF(type);
}

// A new instance of the class holding `value`; nullptr with an exception on failure.
template <class Class>
PyObject* wrap(typename Class::Value value, PyTypeObject* type = nullptr) {
  if (type == nullptr) type = type_of<Class>();
  PyObject* object = type->tp_alloc(type, 0);
  if (object == nullptr) return nullptr;
  auto& instance = instance_of<Class>(object);
  new (&instance.access) AccessState();
  new (&instance.value) typename Class::Value(std::move(value));
  return object;
}

// Creates the class's type from `type_spec` on first call and returns a new reference to it.
// Registration runs once under the import lock; a racing second creation is dropped.
template <class Class>
PyObject* create_type(PyType_Spec& type_spec) {
  PyTypeObject* existing = type_of<Class>();
  if (existing == nullptr) {
    type_spec.basicsize = static_cast<int>(sizeof(Instance<typename Class::Value>));
    PyObject* made = PyType_FromSpec(&type_spec);
    if (made == nullptr) return nullptr;
    PyTypeObject* expected = nullptr;
    if (TypeSlot<Class>::type.compare_exchange_strong(expected, reinterpret_cast<PyTypeObject*>(made)))
      return Py_NewRef(made);
    Py_DECREF(made);
    existing = expected;
  }
  return Py_NewRef(reinterpret_cast<PyObject*>(existing));
}

// Runs `body`, turning a broken invariant into the internal-failure exception.
template <class Body>
PyObject* guarded(Body&& body) {
  try {
    return body();
  } catch (const InternalError& error) {
    return raise_internal(error.what());
  }
}

// Runs the pending signal handlers for released work: the interpreter is retaken for the call
// and released again. True when a handler raised (Ctrl-C's KeyboardInterrupt), which stays set
// until the work has unwound and the interpreter is retaken for good.
inline bool run_signal_handlers(void* saved_state) {
  auto& state = *static_cast<PyThreadState**>(saved_state);
  PyEval_RestoreThread(state);
  const bool raised = PyErr_CheckSignals() != 0;
  state = PyEval_SaveThread();
  return raised;
}

// Runs long work with the interpreter released; it is retaken on every way out, also when an
// internal failure unwinds through here. The work must not touch any Python object. Between
// its rounds the work checks for interruption (interrupt.hpp), which runs the signal handlers.
//
// The retake is a plain call, never a destructor: an interpreter that is finalizing ends a
// daemon thread inside PyEval_RestoreThread by unwinding its stack (pthread_exit), and that
// unwind must reach CPython's frames through nothing declared noexcept. The normal retake
// stays outside the try, so that such an unwind never lands in the handler.
template <class Work>
auto released(Work&& work) {
  PyThreadState* state = PyEval_SaveThread();
  const auto run = [&] {
    InterruptScope interruptible(&run_signal_handlers, &state);
    try {
      return std::forward<Work>(work)();
    } catch (abi::__forced_unwind&) {
      throw;  // the thread is ending inside a retake for signal handlers: nothing to retake
    } catch (...) {
      PyEval_RestoreThread(state);
      throw;
    }
  };
  if constexpr (std::is_void_v<decltype(run())>) {
    run();
    PyEval_RestoreThread(state);
  } else {
    auto result = run();
    PyEval_RestoreThread(state);
    return result;
  }
}

template <class Class>
using MethodBody = PyObject* (*)(Instance<typename Class::Value>& self, Arguments& args);
template <class Class>
using GetterBody = PyObject* (*)(Instance<typename Class::Value>& self);
using FunctionBody = PyObject* (*)(Arguments& args);
using ConstructorBody = PyObject* (*)(PyTypeObject* type, Arguments& args);

template <class Class, const char* Doc, Access A, MethodBody<Class> Body>
PyObject* method_entry(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  return guarded([&]() -> PyObject* {
    static const Signature signature(Class::name, Doc);
    Arguments arguments(signature);
    if (!arguments.match(args, nargs, kwnames)) return nullptr;
    auto& instance = instance_of<Class>(self);
    Borrow borrow(instance.access, A);
    if (!borrow) return nullptr;
    return Body(instance, arguments);
  });
}

// Module functions (Owner = nullptr) and static methods (Owner = the class name).
template <const char* Owner, const char* Doc, FunctionBody Body>
PyObject* function_entry(PyObject*, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  return guarded([&]() -> PyObject* {
    static const Signature signature(Owner, Doc);
    Arguments arguments(signature);
    if (!arguments.match(args, nargs, kwnames)) return nullptr;
    return Body(arguments);
  });
}

template <class Class, const char* Doc, ConstructorBody Body>
PyObject* constructor_entry(PyTypeObject* type, PyObject* args, PyObject* kwargs) {
  return guarded([&]() -> PyObject* {
    static const Signature signature(Class::name, Doc);
    Arguments arguments(signature);
    if (!arguments.match(args, kwargs)) return nullptr;
    return Body(type, arguments);
  });
}

template <class Class, Access A, GetterBody<Class> Body>
PyObject* getter_entry(PyObject* self, void*) {
  return guarded([&]() -> PyObject* {
    auto& instance = instance_of<Class>(self);
    Borrow borrow(instance.access, A);
    if (!borrow) return nullptr;
    return Body(instance);
  });
}

template <class Class, class T>
using SetterBody = void (*)(Instance<typename Class::Value>& self, T value);

// A property write: the value is converted first, then the object taken exclusively.
template <class Class, class T, SetterBody<Class, T> Body>
int setter_entry(PyObject* self, PyObject* value, void*) {
  PyObject* result = guarded([&]() -> PyObject* {
    if (value == nullptr) return raise(PyExc_AttributeError, "cannot delete this attribute");
    T converted{};
    if (!Converter<T>::convert(value, converted)) return nullptr;
    auto& instance = instance_of<Class>(self);
    Borrow borrow(instance.access, Access::Exclusive);
    if (!borrow) return nullptr;
    Body(instance, std::move(converted));
    return Py_None;
  });
  return result == nullptr ? -1 : 0;
}

template <class F>
PyCFunction as_cfunction(F* function) {
  return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(function));
}

}  // namespace tv::py

// Rows of a PyMethodDef table. The doc's first line is the text signature the call matches.
#define TV_METHOD(Class, name, doc, access, body)                                                    \
  PyMethodDef {                                                                                      \
    name, ::tv::py::as_cfunction(&::tv::py::method_entry<Class, doc, access, body>),                 \
        METH_FASTCALL | METH_KEYWORDS, doc                                                           \
  }
#define TV_STATIC_METHOD(Class, method_name, doc, body)                                              \
  PyMethodDef {                                                                                      \
    method_name, ::tv::py::as_cfunction(&::tv::py::function_entry<Class::name, doc, body>),          \
        METH_FASTCALL | METH_KEYWORDS | METH_STATIC, doc                                             \
  }
#define TV_FUNCTION(name, doc, body)                                                                 \
  PyMethodDef {                                                                                      \
    name, ::tv::py::as_cfunction(&::tv::py::function_entry<nullptr, doc, body>),                     \
        METH_FASTCALL | METH_KEYWORDS, doc                                                           \
  }
// A read-only property taking exclusive access: it may fill a memo or refine the shared field.
#define TV_EXCLUSIVE_GETTER(Class, name, doc, body)                                                  \
  PyGetSetDef {                                                                                      \
    name, &::tv::py::getter_entry<Class, ::tv::py::Access::Exclusive, body>, nullptr, doc, nullptr   \
  }
// A property read shared and written exclusively, the written value converted to `type`.
#define TV_PROPERTY(Class, name, doc, getter, type, setter)                                           \
  PyGetSetDef {                                                                                      \
    name, &::tv::py::getter_entry<Class, ::tv::py::Access::Shared, getter>,                          \
        &::tv::py::setter_entry<Class, type, setter>, doc, nullptr                                   \
  }
// A read-only property taking shared access.
#define TV_GETTER(Class, name, doc, body)                                                            \
  PyGetSetDef {                                                                                      \
    name, &::tv::py::getter_entry<Class, ::tv::py::Access::Shared, body>, nullptr, doc, nullptr      \
  }
