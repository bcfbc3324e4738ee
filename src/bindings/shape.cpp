// Python's Shape: one shell or cut of a recipe, a polyhedron code with a size or a bare plane,
// immutable, compared by its expression trees and hashed by its canonical text.
#include "bindings/classes.hpp"
#include "bindings/real.hpp"
#include "bindings/recipes.hpp"
#include "bindings/results.hpp"

namespace tv::py {
namespace {

constexpr char kDoc[] =
    "A shell or a cut of a recipe: a polyhedron by its code and size, or the plane "
    "a*x + b*y + c*z + d = 0. Made by the class methods `parse`, `polyhedron` and `plane`.";

const Shape& value_of(PyObject* object) { return instance_of<ShapeClass>(object).value; }

constexpr char kParseDoc[] =
    "parse(text)\n--\n\n"
    "Read a shape back from its text, as it appears in a recipe.";

PyObject* parse(Arguments& args) {
  std::string text;
  if (!args.convert(text)) return nullptr;
  return wrap_result<ShapeClass>(parse_shape(text));
}

constexpr char kPolyhedronDoc[] =
    "polyhedron(name, size=None)\n--\n\n"
    "A polyhedron by its code (\"C\" for a cube, \"D\" for a dodecahedron) scaled by `size`, an "
    "expression as text, an integer or a Fraction; 1 when omitted. The code is looked up only "
    "when a puzzle is built.";

PyObject* polyhedron(Arguments& args) {
  std::string name;
  std::optional<Expr> size;
  if (!args.convert(name, size)) return nullptr;
  if (name.find_first_of("$,&=") != std::string::npos)
    return raise(PyExc_ValueError, quoted_text(name) + " is not a polyhedron code");
  return shape_object(PolyhedronShape{std::move(name), size ? std::move(*size) : Expr{Fraction(1), "num", {}}});
}

constexpr char kPlaneDoc[] =
    "plane(a, b, c, d)\n--\n\n"
    "The plane a*x + b*y + c*z + d = 0, each coefficient an expression as text, an integer or "
    "a Fraction: `plane(1, 0, 0, \"-1/2\")` is the plane x = 1/2.";

PyObject* plane(Arguments& args) {
  PlaneShape shape;
  if (!args.convert(shape.a, shape.b, shape.c, shape.d)) return nullptr;
  return shape_object(std::move(shape));
}

// The tree that `size` shows: a polyhedron's size or a plane's d.
const Expr& offset_tree(const Shape& shape) {
  if (const auto* polyhedron = std::get_if<PolyhedronShape>(&shape)) return polyhedron->size;
  return std::get<PlaneShape>(shape).d;
}

constexpr char kOffsetDoc[] =
    "offset($self)\n--\n\n"
    "The polyhedron's size, or the plane's d, evaluated exactly: a Real.";

PyObject* offset(Instance<Shape>& self, Arguments&) {
  const Expr& tree = offset_tree(self.value);
  return real_result(released([&] { return eval_expr(tree); }));
}

PyObject* kind(Instance<Shape>& self) {
  return to_python(std::string_view(std::holds_alternative<PolyhedronShape>(self.value) ? "polyhedron" : "plane"));
}

PyObject* name(Instance<Shape>& self) {
  if (const auto* polyhedron = std::get_if<PolyhedronShape>(&self.value)) return to_python(polyhedron->name);
  Py_RETURN_NONE;
}

PyObject* size(Instance<Shape>& self) { return to_python(generateExpr(offset_tree(self.value))); }

PyObject* coefficients(Instance<Shape>& self) {
  const auto* shape = std::get_if<PlaneShape>(&self.value);
  if (shape == nullptr) Py_RETURN_NONE;
  Result<std::string> a = generateExpr(shape->a), b = generateExpr(shape->b), c = generateExpr(shape->c);
  for (const auto* text : {&a, &b, &c})
    if (!*text) return raise_failure(text->failure());
  return to_python(std::tuple(*a, *b, *c));
}

PyObject* str(PyObject* self) {
  return guarded([&] { return to_python(shape_text(value_of(self))); });
}

// Shape.polyhedron("C", "1/3") or Shape.plane("1", "0", "0", "1/2").
Result<std::string> repr_text(const Shape& shape) {
  if (const auto* polyhedron = std::get_if<PolyhedronShape>(&shape)) {
    TV_TRY(std::string size, generateExpr(polyhedron->size));
    return "Shape.polyhedron(" + quoted_text(polyhedron->name) + ", " + quoted_text(size) + ")";
  }
  const auto& plane = std::get<PlaneShape>(shape);
  std::string text = "Shape.plane(";
  for (const Expr* coefficient : {&plane.a, &plane.b, &plane.c, &plane.d}) {
    TV_TRY(std::string part, generateExpr(*coefficient));
    text += (coefficient == &plane.a ? "" : ", ") + quoted_text(part);
  }
  return text + ")";
}

PyObject* repr(PyObject* self) {
  return guarded([&] { return to_python(repr_text(value_of(self))); });
}

constexpr char kUnordered[] = "shapes are not ordered";

PyMethodDef methods[] = {
    TV_STATIC_METHOD(ShapeClass, "parse", kParseDoc, parse),
    TV_STATIC_METHOD(ShapeClass, "polyhedron", kPolyhedronDoc, polyhedron),
    TV_STATIC_METHOD(ShapeClass, "plane", kPlaneDoc, plane),
    TV_METHOD(ShapeClass, "offset", kOffsetDoc, Access::Shared, offset),
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef getset[] = {
    TV_GETTER(ShapeClass, "kind", "\"polyhedron\" or \"plane\".", kind),
    TV_GETTER(ShapeClass, "name", "The polyhedron's code, or None for a plane.", name),
    TV_GETTER(ShapeClass, "size", "The text of the polyhedron's size, or of the plane's d.", size),
    TV_GETTER(ShapeClass, "coefficients", "The texts of a plane's a, b and c, or None for a polyhedron.",
              coefficients),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char*>(kDoc)},
    {Py_tp_dealloc, reinterpret_cast<void*>(&deallocate<ShapeClass>)},
    {Py_tp_repr, reinterpret_cast<void*>(&repr)},
    {Py_tp_str, reinterpret_cast<void*>(&str)},
    {Py_tp_hash, reinterpret_cast<void*>(&hash_of_text<ShapeClass, shape_text>)},
    {Py_tp_richcompare, reinterpret_cast<void*>(&compare_structurally<ShapeClass, kUnordered>)},
    {Py_tp_methods, methods},
    {Py_tp_getset, getset},
    {0, nullptr},
};

PyType_Spec type_spec = {"torvane._native.Shape", 0, 0,
                     Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};

}  // namespace

PyObject* shape_class() { return create_type<ShapeClass>(type_spec); }

PyObject* shape_object(Shape shape) { return wrap<ShapeClass>(std::move(shape)); }

bool Converter<Shape>::convert(PyObject* object, Shape& out) {
  if (!is_instance<ShapeClass>(object)) {
    raise_mismatch(object, "Shape");
    return false;
  }
  out = value_of(object);
  return true;
}

bool raise_type_naming(const char* prefix, PyObject* object) {
  PyObject* name = PyType_GetName(Py_TYPE(object));
  if (name != nullptr) {
    PyErr_Format(PyExc_TypeError, "%s%U", prefix, name);
    Py_DECREF(name);
  }
  return false;
}

bool not_an_expression(PyObject* object) {
  return raise_type_naming("expected an expression as text, an integer or a Fraction, not ", object);
}

bool expression_from(PyObject* object, Expr& out) {
  std::string text;
  PyObject* fraction_type = fraction_class();
  if (fraction_type == nullptr) return false;
  const bool is_fraction = PyObject_TypeCheck(object, reinterpret_cast<PyTypeObject*>(fraction_type));
  Py_DECREF(fraction_type);
  if (is_fraction) {
    // The denominator is always written: Fraction(3, 1) is the expression 3/1.
    PyObject* numerator = PyObject_GetAttrString(object, "numerator");
    PyObject* denominator = numerator == nullptr ? nullptr : PyObject_GetAttrString(object, "denominator");
    PyObject* written = denominator == nullptr ? nullptr : PyUnicode_FromFormat("%S/%S", numerator, denominator);
    Py_XDECREF(numerator);
    Py_XDECREF(denominator);
    const bool ok = written != nullptr && Converter<std::string>::convert(written, text);
    Py_XDECREF(written);
    if (!ok) return false;
  } else if (PyUnicode_Check(object)) {
    if (!Converter<std::string>::convert(object, text)) return false;
  } else if (PyLong_Check(object)) {
    // An int beyond signed 64 bits is refused like any other type. -2**63 fits and becomes
    // its text, which the expression language, whose literals stop at 2**63 - 1, refuses.
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(object, &overflow);
    if (value == -1 && PyErr_Occurred()) return false;
    if (overflow != 0) return not_an_expression(object);
    text = std::to_string(value);
  } else {
    return not_an_expression(object);
  }
  return take_result(parse_expr(text), out);
}

bool shapes_from(PyObject* object, const char* label, std::vector<Shape>& out) {
  out.clear();
  if (object == nullptr || object == Py_None) return true;
  // One item: a Shape, or text parsed as one. Anything else is `on_other`'s to report.
  const auto add = [&out](PyObject* item, auto on_other) {
    if (is_instance<ShapeClass>(item)) {
      out.push_back(value_of(item));
      return true;
    }
    if (!PyUnicode_Check(item)) return on_other(item);
    std::string text;
    Shape shape;
    if (!Converter<std::string>::convert(item, text) || !take_result(parse_shape(text), shape)) return false;
    out.push_back(std::move(shape));
    return true;
  };
  const auto bad_item = [label](PyObject* item) {
    return raise_type_naming((std::string(label) + " must hold Shapes or their text, not ").c_str(), item);
  };
  const auto iterate = [&](PyObject* items) {
    PyObject* iterator = PyObject_GetIter(items);
    if (iterator == nullptr) {
      PyErr_Clear();
      PyErr_Format(PyExc_TypeError, "%s must be a Shape, its text, or a sequence of either", label);
      return false;
    }
    PyObject* item;
    int status = 0;
    bool ok = true;
    while (ok && (status = PyIter_NextItem(iterator, &item)) == 1) {
      ok = add(item, bad_item);
      Py_DECREF(item);
    }
    Py_DECREF(iterator);
    return ok && status == 0;
  };
  return add(object, iterate);
}

}  // namespace tv::py
