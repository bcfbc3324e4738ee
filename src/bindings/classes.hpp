// The module's classes. Each function creates its class's type on first call and returns a
// new reference to it; the module registers them in its fixed attribute order.
#pragma once

#include "bindings/compat.hpp"

namespace tv {
class Fraction;
class Simulator;
struct Recipe;
}
namespace tv::render {
class Framebuffer;
}

namespace tv::py {

class Arguments;

PyObject* fraction_class();
PyObject* real_class();
PyObject* image_class();
PyObject* shape_class();
PyObject* recipe_class();
PyObject* puzzle_class();
PyObject* grip_class();
PyObject* batch_class();
PyObject* array_class();
PyObject* layout_class();

// Module functions defined in their own files, as new references bound to `module`.
PyObject* factor_polynomial_function(PyObject* module);
PyObject* catalog_function(PyObject* module);
PyObject* polyhedra_function(PyObject* module);
PyObject* evaluate_function(PyObject* module);
PyObject* non_jumbling_function(PyObject* module);
PyObject* jumbles_function(PyObject* module);
PyObject* build_many_function(PyObject* module);
PyObject* render_many_function(PyObject* module);

// The body of `evaluate(expr)` and `Real.parse(expr)`: the text parsed and evaluated exactly.
PyObject* evaluate_expression(Arguments& args);

// A new Puzzle built from the recipe with the interpreter released.
PyObject* puzzle_from_recipe(const Recipe& recipe);

// A new Puzzle holding `sim`.
PyObject* puzzle_object(Simulator&& sim);

// A new Image holding `image`.
PyObject* image_object(render::Framebuffer&& image);

// A new Fraction object holding `value`.
PyObject* fraction_object(const Fraction& value);

}  // namespace tv::py
