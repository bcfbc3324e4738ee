// Python's Recipe: the shell and cuts a puzzle is built from, immutable, compared by its
// shapes in order and shown as its canonical query string.
#include "bindings/classes.hpp"
#include "bindings/recipes.hpp"
#include "bindings/results.hpp"
#include "catalog.hpp"

namespace tv::py {
namespace {

constexpr char kDoc[] =
    "Recipe(shell=None, cuts=None)\n--\n\n"
    "A puzzle's recipe: the shapes its shell is carved from and the shapes that cut it, each a "
    "list of Shape objects in order. Read one from a query string with `Recipe.parse`, or take "
    "a cataloged one with `Recipe.named`.";

const Recipe& value_of(PyObject* object) { return instance_of<RecipeClass>(object).value; }

PyObject* construct(PyTypeObject* type, Arguments& args) {
  std::optional<std::vector<Shape>> shell, cuts;
  if (!args.convert(shell, cuts)) return nullptr;
  Recipe recipe{shell ? std::move(*shell) : std::vector<Shape>{}, cuts ? std::move(*cuts) : std::vector<Shape>{}};
  return wrap<RecipeClass>(std::move(recipe), type);
}

constexpr char kParseDoc[] =
    "parse(query)\n--\n\n"
    "Read a recipe from its query string, such as \"?shell=C$1&cut=C$1/3\".";

PyObject* parse(Arguments& args) {
  std::string query;
  if (!args.convert(query)) return nullptr;
  return wrap_result<RecipeClass>(parse_recipe(query));
}

constexpr char kNamedDoc[] =
    "named(name)\n--\n\n"
    "The recipe of a cataloged puzzle, by its name as `catalog()` lists it; a text starting "
    "with \"?\" is read as a query string instead.";

PyObject* named(Arguments& args) {
  std::string name;
  if (!args.convert(name)) return nullptr;
  Result<std::string> query = resolve_recipe(name);
  if (!query) return raise_failure(query.failure());
  return wrap_result<RecipeClass>(parse_recipe(*query));
}

PyObject* shapes_list(const std::vector<Shape>& shapes) {
  PyObject* list = PyList_New(static_cast<Py_ssize_t>(shapes.size()));
  if (list == nullptr) return nullptr;
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    PyObject* shape = shape_object(shapes[i]);
    if (shape == nullptr) {
      Py_DECREF(list);
      return nullptr;
    }
    PyList_SET_ITEM(list, static_cast<Py_ssize_t>(i), shape);
  }
  return list;
}

PyObject* shell(Instance<Recipe>& self) { return shapes_list(self.value.shell); }
PyObject* cuts(Instance<Recipe>& self) { return shapes_list(self.value.cuts); }
PyObject* query(Instance<Recipe>& self) { return to_python(query_text(self.value)); }

// A copy of the recipe with one of its lists replaced or extended by the argument.
template <auto Member, bool Append>
PyObject* changed(Instance<Recipe>& self, Arguments& args) {
  std::vector<Shape> shapes;
  if (!args.convert(shapes)) return nullptr;
  Recipe recipe = self.value;
  std::vector<Shape>& target = recipe.*Member;
  if (!Append) target.clear();
  target.insert(target.end(), std::make_move_iterator(shapes.begin()), std::make_move_iterator(shapes.end()));
  return recipe_object(std::move(recipe));
}

constexpr char kWithShellDoc[] =
    "with_shell($self, shell)\n--\n\n"
    "A new recipe with `shell`, a list of Shapes, in place of this one's shell.";
constexpr char kWithCutsDoc[] =
    "with_cuts($self, cuts)\n--\n\n"
    "A new recipe with `cuts`, a list of Shapes, in place of this one's cuts.";
constexpr char kAddingCutsDoc[] =
    "adding_cuts($self, cuts)\n--\n\n"
    "A new recipe whose cuts are this one's followed by `cuts`, a list of Shapes.";

PyObject* str(PyObject* self) {
  return guarded([&] { return to_python(query_text(value_of(self))); });
}

PyObject* repr(PyObject* self) {
  return guarded([&]() -> PyObject* {
    Result<std::string> query = query_text(value_of(self));
    if (!query) return raise_failure(query.failure());
    return to_python("Recipe.parse(" + quoted_text(*query) + ")");
  });
}

constexpr char kBuildDoc[] =
    "build($self)\n--\n\n"
    "The Puzzle of this recipe, as Puzzle.from_recipe builds it.";

PyObject* build(Instance<Recipe>& self, Arguments&) { return puzzle_from_recipe(self.value); }

constexpr char kUnordered[] = "recipes are not ordered";

PyMethodDef methods[] = {
    TV_STATIC_METHOD(RecipeClass, "parse", kParseDoc, parse),
    TV_STATIC_METHOD(RecipeClass, "named", kNamedDoc, named),
    TV_METHOD(RecipeClass, "with_shell", kWithShellDoc, Access::Shared, (changed<&Recipe::shell, false>)),
    TV_METHOD(RecipeClass, "with_cuts", kWithCutsDoc, Access::Shared, (changed<&Recipe::cuts, false>)),
    TV_METHOD(RecipeClass, "adding_cuts", kAddingCutsDoc, Access::Shared, (changed<&Recipe::cuts, true>)),
    TV_METHOD(RecipeClass, "build", kBuildDoc, Access::Shared, build),
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef getset[] = {
    TV_GETTER(RecipeClass, "shell", "The shapes of the shell, as a new list.", shell),
    TV_GETTER(RecipeClass, "cuts", "The shapes of the cuts, as a new list.", cuts),
    TV_GETTER(RecipeClass, "query", "The canonical query string.", query),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char*>(kDoc)},
    {Py_tp_new, reinterpret_cast<void*>(&constructor_entry<RecipeClass, kDoc, construct>)},
    {Py_tp_dealloc, reinterpret_cast<void*>(&deallocate<RecipeClass>)},
    {Py_tp_repr, reinterpret_cast<void*>(&repr)},
    {Py_tp_str, reinterpret_cast<void*>(&str)},
    {Py_tp_hash, reinterpret_cast<void*>(&hash_of_text<RecipeClass, query_text>)},
    {Py_tp_richcompare, reinterpret_cast<void*>(&compare_structurally<RecipeClass, kUnordered>)},
    {Py_tp_methods, methods},
    {Py_tp_getset, getset},
    {0, nullptr},
};

PyType_Spec type_spec = {"torvane._native.Recipe", 0, 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE, slots};

}  // namespace

PyObject* recipe_class() { return create_type<RecipeClass>(type_spec); }

PyObject* recipe_object(Recipe recipe) { return wrap<RecipeClass>(std::move(recipe)); }

bool query_from(PyObject* object, std::string& out) {
  if (is_instance<RecipeClass>(object)) return take_result(query_text(value_of(object)), out);
  if (!PyUnicode_Check(object))
    return raise_type_naming("expected a recipe query string, a catalog name or a Recipe, not ", object);
  std::string text;
  return Converter<std::string>::convert(object, text) && take_result(resolve_recipe(text), out);
}

}  // namespace tv::py
