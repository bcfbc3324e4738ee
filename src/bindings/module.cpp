// The module torvane._native: its definition, and the registration of its attributes in their
// fixed order, each also appended to __all__.
#include "bindings/classes.hpp"
#include "bindings/entry.hpp"
#include "bindings/results.hpp"
#include "pool.hpp"

namespace tv::py {
namespace {

constexpr char kModuleDoc[] =
    "Exact simulation of twisty puzzles.\n\n"
    "`gil_used = false` tells CPython this module does not need the global interpreter lock.";

constexpr char kThreadCountDoc[] =
    "thread_count()\n--\n\n"
    "The number of threads of the worker pool. "
    "Set `RAYON_NUM_THREADS` before the first call into the extension to change it.";

PyObject* thread_count(Arguments&) { return to_python(static_cast<std::uint64_t>(released(pool::thread_count))); }

PyMethodDef functions[] = {
    TV_FUNCTION("thread_count", kThreadCountDoc, thread_count),
    {nullptr, nullptr, 0, nullptr},
};

// A function attribute, looked up in the table above by name.
PyObject* function_named(PyObject* module, const char* name) {
  for (PyMethodDef* def = functions; def->ml_name != nullptr; ++def)
    if (std::string_view(def->ml_name) == name) return PyCFunction_NewEx(def, nullptr, module);
  fail_invariant(std::string("no module function ") + name);
}

// Adds `value` (a new reference, or nullptr on failure) as `name` and appends it to __all__.
bool register_attribute(PyObject* module, const char* name, PyObject* value) {
  if (value == nullptr) return false;
  if (PyModule_AddObjectRef(module, name, value) < 0) {
    Py_DECREF(value);
    return false;
  }
  Py_DECREF(value);
  PyObject* all = PyObject_GetAttrString(module, "__all__");
  if (all == nullptr) {
    PyErr_Clear();
    all = PyList_New(0);
    if (all == nullptr || PyModule_AddObjectRef(module, "__all__", all) < 0) {
      Py_XDECREF(all);
      return false;
    }
  }
  PyObject* text = PyUnicode_FromString(name);
  const bool ok = text != nullptr && PyList_Append(all, text) == 0;
  Py_XDECREF(text);
  Py_DECREF(all);
  return ok;
}

int exec_module(PyObject* module) {
  PyObject* result = guarded([&]() -> PyObject* {
    const bool ok = register_attribute(module, "__version__", PyUnicode_FromString("0.1.1")) &&
                    register_attribute(module, "PuzzleError", Py_NewRef(puzzle_error_type())) &&
                    register_attribute(module, "Fraction", fraction_class()) &&
                    register_attribute(module, "Real", real_class()) &&
                    register_attribute(module, "Image", image_class()) &&
                    register_attribute(module, "Puzzle", puzzle_class()) &&
                    register_attribute(module, "Shape", shape_class()) &&
                    register_attribute(module, "Recipe", recipe_class()) &&
                    register_attribute(module, "Grip", grip_class()) &&
                    register_attribute(module, "PuzzleBatch", batch_class()) &&
                    register_attribute(module, "Array", array_class()) &&
                    register_attribute(module, "Layout", layout_class()) &&
                    register_attribute(module, "catalog", catalog_function(module)) &&
                    register_attribute(module, "polyhedra", polyhedra_function(module)) &&
                    register_attribute(module, "evaluate", evaluate_function(module)) &&
                    register_attribute(module, "factor_polynomial", factor_polynomial_function(module)) &&
                    register_attribute(module, "build_many", build_many_function(module)) &&
                    register_attribute(module, "render_many", render_many_function(module)) &&
                    register_attribute(module, "thread_count", function_named(module, "thread_count")) &&
                    register_attribute(module, "jumbles", jumbles_function(module)) &&
                    register_attribute(module, "non_jumbling", non_jumbling_function(module)) &&
                    register_attribute(module, "free_threaded", Py_NewRef(Py_True));
    return ok ? Py_None : nullptr;
  });
  return result == nullptr ? -1 : 0;
}

PyModuleDef_Slot module_slots[] = {
    {Py_mod_exec, reinterpret_cast<void*>(&exec_module)},
#ifdef Py_mod_gil
    {Py_mod_gil, Py_MOD_GIL_NOT_USED},
#endif
    {0, nullptr},
};

PyModuleDef module_def = {
    PyModuleDef_HEAD_INIT, "_native", kModuleDoc, 0, nullptr, module_slots, nullptr, nullptr, nullptr,
};

}  // namespace
}  // namespace tv::py

PyMODINIT_FUNC PyInit__native() { return PyModuleDef_Init(&tv::py::module_def); }
