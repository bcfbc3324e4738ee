// The module functions over the puzzle catalog.
#include "bindings/classes.hpp"
#include "bindings/entry.hpp"
#include "bindings/results.hpp"
#include "catalog.hpp"

namespace tv::py {
namespace {

constexpr char kCatalogDoc[] =
    "catalog()\n--\n\n"
    "Every cataloged puzzle, as `(name, family, kind, recipe)` tuples.";

PyObject* catalog(Arguments&) {
  std::vector<std::tuple<std::string_view, std::string_view, std::string_view, std::string_view>> rows;
  for (const CatalogRow& row : catalog_rows()) rows.emplace_back(row.name, row.family, row.kind, row.recipe);
  return to_python(rows);
}

constexpr char kNonJumblingDoc[] =
    "non_jumbling()\n--\n\n"
    "The cataloged recipes that do not jumble, and so have a sticker array.";

PyObject* non_jumbling(Arguments&) {
  const auto recipes = non_jumbling_recipes();
  return to_python(std::vector<std::string_view>(recipes.begin(), recipes.end()));
}

PyMethodDef catalog_def = TV_FUNCTION("catalog", kCatalogDoc, catalog);
PyMethodDef non_jumbling_def = TV_FUNCTION("non_jumbling", kNonJumblingDoc, non_jumbling);

}  // namespace

PyObject* catalog_function(PyObject* module) { return PyCFunction_NewEx(&catalog_def, nullptr, module); }
PyObject* non_jumbling_function(PyObject* module) { return PyCFunction_NewEx(&non_jumbling_def, nullptr, module); }

}  // namespace tv::py
