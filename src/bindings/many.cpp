// build_many and render_many: a list of recipes turned into puzzles or pictures across the
// worker pool. Entries are resolved to query texts first, with the interpreter held, so a wrong
// type or an unknown catalog name stops the call before any work; failures of the work itself
// come back labelled with their entry, the lowest failing entry winning.
#include <optional>
#include <string>
#include <vector>

#include "bindings/args.hpp"
#include "bindings/classes.hpp"
#include "bindings/colors.hpp"
#include "bindings/entry.hpp"
#include "bindings/recipes.hpp"
#include "many.hpp"

namespace tv::py {

namespace {

constexpr double kRadiansPerDegree = 0.017453292519943295;

struct Entry {
  std::string query;
  std::string label;
};

// str(entry), or "?" when str() fails with an ordinary exception.
std::string label_of(PyObject* entry) {
  PyObject* text = PyObject_Str(entry);
  if (text != nullptr) {
    Py_ssize_t size;
    const char* utf8 = PyUnicode_AsUTF8AndSize(text, &size);
    std::string label = utf8 != nullptr ? std::string(utf8, static_cast<std::size_t>(size)) : "?";
    Py_DECREF(text);
    if (utf8 != nullptr) return label;
  }
  if (PyErr_ExceptionMatches(PyExc_Exception)) PyErr_Clear();
  return "?";
}

// The sequence of recipes as a list the call owns, so that entries stay alive.
PyObject* recipes_list(Arguments& args) {
  PyObject* recipes = args[0];
  PyObject* iterator = nullptr;
  Py_ssize_t hint = 0;
  if (!begin_sequence(recipes, &iterator, &hint)) {
    note_argument(args.name(0));
    return nullptr;
  }
  Py_DECREF(iterator);
  PyObject* list = PySequence_List(recipes);
  if (list == nullptr) note_argument(args.name(0));
  return list;
}

bool resolve_entries(PyObject* list, std::vector<Entry>& out) {
  const Py_ssize_t count = PyList_GET_SIZE(list);
  out.reserve(static_cast<std::size_t>(count));
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
    PyObject* entry = PyList_GET_ITEM(list, i);
    Py_INCREF(entry);
    Entry resolved;
    const bool ok = query_from(entry, resolved.query);
    if (ok) resolved.label = label_of(entry);
    Py_DECREF(entry);
    if (!ok || PyErr_Occurred() != nullptr) return false;
    out.push_back(std::move(resolved));
  }
  return true;
}

// Raises the failure as its exception, then replaces it by one of the same type whose text is
// "<label>: <message>".
PyObject* raise_labelled(const Failure& failure, const std::string& label) {
  raise_failure(failure);
  PyObject *type, *value, *traceback;
  PyErr_Fetch(&type, &value, &traceback);
  PyErr_NormalizeException(&type, &value, &traceback);
  PyObject* message = value != nullptr ? PyObject_Str(value) : nullptr;
  PyObject* labelled = message != nullptr ? PyUnicode_FromFormat("%s: %U", label.c_str(), message) : nullptr;
  PyObject* replacement = labelled != nullptr ? PyObject_CallOneArg(type, labelled) : nullptr;
  if (replacement != nullptr) PyErr_SetObject(type, replacement);
  Py_XDECREF(replacement);
  Py_XDECREF(labelled);
  Py_XDECREF(message);
  Py_XDECREF(type);
  Py_XDECREF(value);
  Py_XDECREF(traceback);
  return nullptr;
}

// The results as a new list of objects, or the first failure in entry order, labelled.
template <class T, class Wrap>
PyObject* results_list(std::vector<Result<T>>& results, const std::vector<Entry>& entries, Wrap wrap_value) {
  for (std::size_t i = 0; i < results.size(); ++i) {
    if (!results[i]) return raise_labelled(results[i].failure(), entries[i].label);
  }
  PyObject* list = PyList_New(static_cast<Py_ssize_t>(results.size()));
  if (list == nullptr) return nullptr;
  for (std::size_t i = 0; i < results.size(); ++i) {
    PyObject* object = wrap_value(std::move(results[i]).value());
    if (object == nullptr) {
      Py_DECREF(list);
      return nullptr;
    }
    PyList_SET_ITEM(list, static_cast<Py_ssize_t>(i), object);
  }
  return list;
}

std::vector<std::string> queries_of(const std::vector<Entry>& entries) {
  std::vector<std::string> queries;
  queries.reserve(entries.size());
  for (const Entry& entry : entries) queries.push_back(entry.query);
  return queries;
}

constexpr char kBuildManyDoc[] =
    "build_many(recipes)\n--\n\n"
    "A list of new Puzzles, one per recipe (a Recipe, a query string or a catalog name), built across "
    "all threads. Every entry is resolved before any is built; the first entry whose build fails raises "
    "its error, prefixed with the entry and a colon.";

PyObject* build_many(Arguments& args) {
  PyObject* list = recipes_list(args);
  if (list == nullptr) return nullptr;
  std::vector<Entry> entries;
  const bool ok = resolve_entries(list, entries);
  Py_DECREF(list);
  if (!ok) return nullptr;
  auto results = released([&] { return build_list(queries_of(entries)); });
  return results_list(results, entries, [](Simulator&& sim) { return puzzle_object(std::move(sim)); });
}

constexpr char kRenderManyDoc[] =
    "render_many(recipes, width=512, height=512, *, background=(255, 255, 255, 255), supersample=2, "
    "show_arrows=False, show_edges=True, scramble=0, seed=None, distance=None, yaw=0.0, pitch=0.0)\n--\n\n"
    "A list of new Images, one per recipe, each of a freshly built puzzle drawn across all threads. With "
    "`scramble`, entry i plays that many random moves from seed + i (seed None is 0). A non-zero yaw or "
    "pitch (degrees) places the camera at `distance` (or 12) on that bearing; else `distance` moves it "
    "along its line. Failures are raised as build_many raises them.";

PyObject* render_many(Arguments& args) {
  ListRendering rendering;
  ColorArgument background{rendering.background};
  std::optional<std::uint64_t> seed;
  PyObject* list = recipes_list(args);
  if (list == nullptr) return nullptr;
  PyObject* recipes = nullptr;
  const bool converted = args.convert(recipes, rendering.width, rendering.height, background, rendering.supersample,
                                      rendering.show_arrows, rendering.show_edges, rendering.scramble, seed,
                                      rendering.distance, rendering.yaw, rendering.pitch);
  std::vector<Entry> entries;
  const bool ok = converted && resolve_entries(list, entries);
  Py_DECREF(list);
  if (!ok) return nullptr;
  rendering.background = background.word;
  rendering.seed = seed.value_or(0);
  rendering.yaw *= kRadiansPerDegree;
  rendering.pitch *= kRadiansPerDegree;
  auto results = released([&] { return render_list(queries_of(entries), rendering); });
  return results_list(results, entries, [](render::Framebuffer&& image) { return image_object(std::move(image)); });
}

PyMethodDef functions[] = {
    TV_FUNCTION("build_many", kBuildManyDoc, build_many),
    TV_FUNCTION("render_many", kRenderManyDoc, render_many),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace

PyObject* build_many_function(PyObject* module) { return PyCFunction_NewEx(&functions[0], nullptr, module); }
PyObject* render_many_function(PyObject* module) { return PyCFunction_NewEx(&functions[1], nullptr, module); }

}  // namespace tv::py
