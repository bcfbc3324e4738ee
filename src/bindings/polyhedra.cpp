// The module function over the polyhedron table.
#include "bindings/classes.hpp"
#include "bindings/entry.hpp"
#include "bindings/results.hpp"
#include "polyhedra.hpp"

namespace tv::py {
namespace {

constexpr char kPolyhedraDoc[] =
    "polyhedra()\n--\n\n"
    "Every supported polyhedron, as `(code, name)` pairs.";

PyObject* polyhedra(Arguments&) {
  std::vector<std::tuple<std::string_view, std::string_view>> rows;
  for (const PolyhedronRow& row : polyhedron_rows()) rows.emplace_back(row.code, row.name);
  return to_python(rows);
}

PyMethodDef polyhedra_def = TV_FUNCTION("polyhedra", kPolyhedraDoc, polyhedra);

}  // namespace

PyObject* polyhedra_function(PyObject* module) { return PyCFunction_NewEx(&polyhedra_def, nullptr, module); }

}  // namespace tv::py
