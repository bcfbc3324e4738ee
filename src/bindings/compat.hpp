// The few C-API functions this module takes from newer interpreters, supplied here where the
// interpreter being built for lacks them. On an interpreter that has them this header adds
// nothing. Include it instead of Python.h.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#if PY_VERSION_HEX < 0x030C0000
// Fetch and restore the raised exception as one normalised object.
static inline PyObject* PyErr_GetRaisedException(void) {
  PyObject *type, *value, *traceback;
  PyErr_Fetch(&type, &value, &traceback);
  if (type == nullptr) return nullptr;
  PyErr_NormalizeException(&type, &value, &traceback);
  if (traceback != nullptr) PyException_SetTraceback(value, traceback);
  Py_DECREF(type);
  Py_XDECREF(traceback);
  return value;
}
static inline void PyErr_SetRaisedException(PyObject* exception) {
  PyErr_Restore(Py_NewRef(reinterpret_cast<PyObject*>(Py_TYPE(exception))), exception,
                PyException_GetTraceback(exception));
}
#endif

#if PY_VERSION_HEX < 0x030D0000
// Without free threading there is nothing for a critical section to exclude.
#define Py_BEGIN_CRITICAL_SECTION(op) {
#define Py_END_CRITICAL_SECTION() }

static inline int PyDict_GetItemRef(PyObject* dict, PyObject* key, PyObject** result) {
  PyObject* item = PyDict_GetItemWithError(dict, key);
  *result = Py_XNewRef(item);
  if (item != nullptr) return 1;
  return PyErr_Occurred() ? -1 : 0;
}
#endif

#if PY_VERSION_HEX < 0x030E0000
// 1 with a new reference in *item, 0 when exhausted, -1 with an exception set.
static inline int PyIter_NextItem(PyObject* iterator, PyObject** item) {
  if (!PyIter_Check(iterator)) {
    PyErr_Format(PyExc_TypeError, "expected an iterator, got '%s'", Py_TYPE(iterator)->tp_name);
    *item = nullptr;
    return -1;
  }
  *item = PyIter_Next(iterator);
  if (*item != nullptr) return 1;
  return PyErr_Occurred() ? -1 : 0;
}
#endif
