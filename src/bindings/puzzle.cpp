// Python's Puzzle: one Simulator behind the argument layer, and Grip, a read-only snapshot of
// one turnable layer. Anything that may read an exact coordinate as a float, or fill a memo,
// takes the puzzle exclusively: such a read can narrow the isolating interval that every
// number of the puzzle shares. Long work runs with the interpreter released.
#include <array>
#include <cmath>
#include <cstdio>

#include "bindings/classes.hpp"
#include "bindings/entry.hpp"
#include "bindings/colors.hpp"
#include "bindings/recipes.hpp"
#include "bindings/results.hpp"
#include "catalog.hpp"
#include "color.hpp"
#include "render/draw.hpp"
#include "simulator.hpp"

namespace tv::py {

namespace {

struct PuzzleClass {
  using Value = Simulator;
  static constexpr char name[] = "Puzzle";
};

struct GripSnapshot {
  std::string plane;
  std::uint64_t index = 0;
  std::array<double, 3> axis{};
  double offset = 0.0;
  std::uint64_t piece_count = 0;
  std::uint64_t other_count = 0;
};

struct GripClass {
  using Value = GripSnapshot;
  static constexpr char name[] = "Grip";
};

using Self = Instance<Simulator>;

constexpr double kRadiansPerDegree = 0.017453292519943295;

// The view keywords of the constructor and of render; they never carry camera vectors.
using ViewKeywords = render::ViewChange;

Result<std::string> query_of(const Simulator& sim) { return query_text(Recipe{sim.shell_shapes(), sim.cut_shapes()}); }

// "[[a,b,c],d]" with each number in its exact text.
std::string plane_text(const Plane& p) {
  std::string text = "[[";
  for (const AlgebraicNumber* x : {&p.a, &p.b, &p.c}) text += x->text() + (x == &p.c ? "]," : ",");
  return text + p.d.text() + "]";
}

// A new Puzzle of `type` built from the query text with the interpreter released.
PyObject* build(PyTypeObject* type, const std::string& query) {
  Result<Simulator> sim = released([&] { return Simulator::from_recipe_text(query); });
  if (!sim) return raise_failure(sim.failure());
  return wrap<PuzzleClass>(std::move(sim).value(), type);
}

constexpr char kDoc[] =
    "Puzzle(recipe=None, *, shell=None, cuts=None, background=None, supersample=None, show_arrows=None, "
    "show_edges=None, show_pieces=None, line_width=None, fov=None, distance=None, yaw=None, pitch=None, seed=None, "
    "scramble=None)\n--\n\n"
    "One puzzle, built exactly from a recipe: a Recipe, a query string such as \"?shell=C$1&cut=C$1/3\", "
    "or a catalog name; or from `shell` and `cuts`, each a Shape, its text or a list of them. `seed` sets "
    "the random generator and `scramble` plays that many random moves before the puzzle is returned. The "
    "view keywords are checked now and shape the picture when the puzzle is drawn.";

PyObject* construct(PyTypeObject* type, Arguments& args) {
  PyObject *recipe_argument = nullptr, *shell_argument = nullptr, *cuts_argument = nullptr;
  ViewKeywords view;
  std::optional<std::uint64_t> seed;
  std::optional<std::uint32_t> scramble;
  if (!args.convert(recipe_argument, shell_argument, cuts_argument, view.background, view.supersample,
                    view.show_arrows, view.show_edges, view.show_pieces, view.line_width, view.fov, view.distance,
                    view.yaw, view.pitch, seed, scramble)) {
    return nullptr;
  }
  const auto given = [&](std::size_t i) { return args[i] != nullptr && args[i] != Py_None; };
  std::string query;
  if (given(0)) {
    if (given(1) || given(2)) {
      PyErr_SetString(PyExc_TypeError, "give either a recipe or a shell and cuts, not both");
      return nullptr;
    }
    if (!query_from(args[0], query)) return nullptr;
  } else {
    Recipe recipe;
    if (!shapes_from(args[1], "shell", recipe.shell) || !shapes_from(args[2], "cuts", recipe.cuts)) return nullptr;
    if (recipe.shell.empty()) {
      PyErr_SetString(PyExc_TypeError, "give a recipe, or a shell and its cuts");
      return nullptr;
    }
    if (!take_result(query_text(recipe), query)) return nullptr;
  }
  Result<Simulator> sim = released([&]() -> Result<Simulator> {
    TV_TRY(Simulator made, Simulator::from_recipe_text(query));
    view.apply(made.view(), made.camera());
    if (seed) made.seed(*seed);
    if (scramble) {
      made.scramble(*scramble);
      TV_CHECK(made.settle());
    }
    return made;
  });
  if (!sim) return raise_failure(sim.failure());
  return wrap<PuzzleClass>(std::move(sim).value(), type);
}

constexpr char kNamedDoc[] =
    "named(name)\n--\n\n"
    "The cataloged puzzle of this name, as `catalog()` lists it.";

PyObject* named(Arguments& args) {
  std::string name, query;
  if (!args.convert(name) || !take_result(resolve_recipe(name), query)) return nullptr;
  return build(type_of<PuzzleClass>(), query);
}

constexpr char kFromRecipeDoc[] =
    "from_recipe(recipe)\n--\n\n"
    "The puzzle of a Recipe.";

PyObject* from_recipe(Arguments& args) {
  PyObject* recipe = nullptr;
  if (!args.convert(recipe)) return nullptr;
  if (!is_instance<RecipeClass>(recipe)) {
    raise_mismatch(recipe, "Recipe");
    note_argument("recipe");
    return nullptr;
  }
  return puzzle_from_recipe(instance_of<RecipeClass>(recipe).value);
}

// ---- plain state, shared ----

PyObject* piece_count(Self& self) { return to_python(static_cast<std::uint64_t>(self.value.pieces().pieces.size())); }
PyObject* grip_count(Self& self) { return to_python(static_cast<std::uint64_t>(self.value.grips().size())); }
PyObject* field(Self& self) { return to_python(self.value.field_text()); }
PyObject* scale(Self& self) { return to_python(self.value.scale()); }
PyObject* recipe(Self& self) { return recipe_object(Recipe{self.value.shell_shapes(), self.value.cut_shapes()}); }
PyObject* query(Self& self) { return to_python(query_of(self.value)); }
PyObject* history_length(Self& self) { return to_python(static_cast<std::uint64_t>(self.value.history().size())); }
PyObject* move_count(Self& self) { return to_python(self.value.move_count()); }
PyObject* animating(Self& self) { return to_python(self.value.animation().has_value()); }

PyObject* repr(PyObject* object) {
  return guarded([&]() -> PyObject* {
    auto& self = instance_of<PuzzleClass>(object);
    Borrow borrow(self.access, Access::Shared);
    if (!borrow) return nullptr;
    return PyUnicode_FromFormat("<Puzzle %zu pieces, %zu grips>", self.value.pieces().pieces.size(),
                                self.value.grips().size());
  });
}

// ---- the sticker table and what it knows, exclusive ----

// The table, built with the interpreter released (a rebuild of the solved puzzle once moved).
Result<std::shared_ptr<const StickerTable>> table_of(Self& self) {
  return released([&] { return self.value.sticker_table(); });
}

template <class Read>
PyObject* from_table(Self& self, Read read) {
  auto table = table_of(self);
  if (!table) return raise_failure(table.failure());
  return read(**table);
}

PyObject* solved_stickers(Self& self) {
  return from_table(self, [](const StickerTable& t) { return to_python(t.solved_colors); });
}
PyObject* sticker_count(Self& self) {
  return from_table(self, [](const StickerTable& t) { return to_python(static_cast<std::uint64_t>(t.solved_colors.size())); });
}
PyObject* color_count(Self& self) {
  return from_table(self, [](const StickerTable& t) { return to_python(static_cast<std::uint64_t>(t.palette.size())); });
}
PyObject* palette(Self& self) {
  return from_table(self, [](const StickerTable& t) { return to_python(t.palette); });
}
PyObject* grip_names(Self& self) {
  return from_table(self, [](const StickerTable& t) { return to_python(t.grip_names); });
}
PyObject* action_count(Self& self) {
  return from_table(self, [](const StickerTable& t) { return to_python(static_cast<std::uint64_t>(2 * t.grip_names.size())); });
}
PyObject* actions(Self& self) {
  return from_table(self, [](const StickerTable& t) {
    std::vector<std::string> names;
    for (std::uint64_t a = 0; a < 2 * t.grip_names.size(); ++a) names.push_back(action_name(t.grip_names, a));
    return to_python(names);
  });
}

PyObject* is_solved(Self& self) { return to_python(released([&] { return self.value.is_solved(); })); }

PyObject* stickers(Self& self, Arguments&) { return to_python(released([&] { return self.value.sticker_colors(); })); }
PyObject* sticker_ids(Self& self, Arguments&) { return to_python(released([&] { return self.value.sticker_ids(); })); }

PyObject* sticker_positions(Self& self, Arguments&) {
  return from_table(self, [](const StickerTable& t) {
    std::vector<std::tuple<double, double, double>> positions;
    positions.reserve(t.positions.size());
    for (const auto& p : t.positions) positions.emplace_back(p[0], p[1], p[2]);
    return to_python(positions);
  });
}

PyObject* ground_atoms(Self& self, Arguments&) {
  auto colors = released([&] { return self.value.sticker_colors(); });
  if (!colors) return raise_failure(colors.failure());
  std::vector<std::tuple<std::string, std::string, std::string>> atoms;
  atoms.reserve(colors->size());
  for (std::size_t s = 0; s < colors->size(); ++s) {
    std::string slot = "s", color = "c";
    slot += std::to_string(s);
    color += std::to_string((*colors)[s]);
    atoms.emplace_back("color", std::move(slot), std::move(color));
  }
  return to_python(atoms);
}

PyObject* action_permutations(Self& self, Arguments&) {
  auto derived = released([&] { return derive_action_permutations(self.value); });
  if (!derived) return raise_failure(derived.failure());
  if (!*derived) Py_RETURN_NONE;
  return to_python((*derived)->permutations);
}

PyObject* action_index(Self& self, Arguments& args) {
  std::string name;
  if (!args.convert(name)) return nullptr;
  auto table = table_of(self);
  if (!table) return raise_failure(table.failure());
  const auto action = tv::action_index((*table)->grip_names, name);
  if (!action) Py_RETURN_NONE;
  return to_python(*action);
}

PyObject* action_grip(Self& self, Arguments& args) {
  std::uint64_t action = 0;
  if (!args.convert(action)) return nullptr;
  auto table = table_of(self);
  if (!table) return raise_failure(table.failure());
  const auto grip = current_grip(self.value.action_planes(), self.value.grips(), action);
  if (!grip) Py_RETURN_NONE;
  return to_python(static_cast<std::uint64_t>(*grip));
}

PyObject* apply_action(Self& self, Arguments& args) {
  std::uint64_t action = 0;
  if (!args.convert(action)) return nullptr;
  return to_python(released([&] { return self.value.apply_action(action); }));
}

PyObject* action_mask(Self& self, Arguments&) {
  return to_python(released([&] { return self.value.action_mask(); }));
}

// Makes written moves; a locked layer ends the sequence with the moves before it kept.
Result<std::uint64_t> apply_moves(Simulator& sim, std::string_view text) {
  TV_TRY(const auto table, sim.sticker_table());
  TV_TRY(const auto moves, parse_moves(table->grip_names, text));
  std::uint64_t made = 0;
  for (const Move& move : moves) {
    for (std::uint32_t r = 0; r < move.repeat; ++r) {
      TV_TRY(const bool turned, sim.apply_action(move.action));
      if (!turned) {
        return parse_failure("move '" + action_name(table->grip_names, move.action) +
                             "' cannot be made: that layer is locked");
      }
      ++made;
    }
  }
  return made;
}

PyObject* apply(Self& self, Arguments& args) {
  std::string text;
  if (!args.convert(text)) return nullptr;
  return to_python(released([&] { return apply_moves(self.value, text); }));
}

// ---- geometry and turning, exclusive ----

PyObject* piece(Self& self, Arguments& args) {
  std::uint64_t index = 0;
  if (!args.convert(index)) return nullptr;
  const auto& pieces = self.value.pieces().pieces;
  if (index >= pieces.size()) {
    PyErr_SetString(PyExc_IndexError, "piece index out of range");
    return nullptr;
  }
  const Piece& p = pieces[index];
  std::vector<std::tuple<double, double, double>> vertices;
  for (const Vertex& v : p.vertices) vertices.emplace_back(v.x.to_f64(), v.y.to_f64(), v.z.to_f64());
  PyObject* faces = PyList_New(0);
  if (faces == nullptr) return nullptr;
  for (const Facet& f : p.facets) {
    PyObject* face = Py_BuildValue("{s:N,s:k,s:O}", "vertices", to_python(f.vertices), "color",
                                   static_cast<unsigned long>(pack_rgb(f.color)), "interior", f.interior ? Py_True : Py_False);
    if (face == nullptr || PyList_Append(faces, face) < 0) {
      Py_XDECREF(face);
      Py_DECREF(faces);
      return nullptr;
    }
    Py_DECREF(face);
  }
  const Quaternion& q = p.orientation;
  std::string rotation = "[";
  for (const AlgebraicNumber* x : {&q.x, &q.y, &q.z, &q.w}) rotation += x->text() + (x == &q.w ? "]" : ",");
  return Py_BuildValue("{s:N,s:N,s:N}", "vertices", to_python(vertices), "faces", faces, "rotation", to_python(rotation));
}

PyObject* grip(Self& self, Arguments& args) {
  std::uint64_t index = 0;
  if (!args.convert(index)) return nullptr;
  if (index >= self.value.grips().size()) {
    PyErr_SetString(PyExc_IndexError, "grip index out of range");
    return nullptr;
  }
  return to_python(plane_text(self.value.grips()[index].plane));
}

PyObject* grips(Self& self, Arguments&) {
  const auto& layers = self.value.grips();
  PyObject* list = PyList_New(static_cast<Py_ssize_t>(layers.size()));
  if (list == nullptr) return nullptr;
  for (std::size_t i = 0; i < layers.size(); ++i) {
    const GripLayer& g = layers[i];
    const double a = g.plane.a.to_f64(), b = g.plane.b.to_f64(), c = g.plane.c.to_f64();
    const double factor = 1.0 / std::sqrt(a * a + b * b + c * c);
    GripSnapshot snapshot{plane_text(g.plane), i, {a * factor, b * factor, c * factor}, -g.plane.d.to_f64() * factor,
                          g.moving.size(), g.fixed.size()};
    PyObject* item = wrap<GripClass>(std::move(snapshot));
    if (item == nullptr) {
      Py_DECREF(list);
      return nullptr;
    }
    PyList_SET_ITEM(list, static_cast<Py_ssize_t>(i), item);
  }
  return list;
}

PyObject* stops(Self& self, Arguments& args) {
  std::uint64_t index = 0;
  if (!args.convert(index)) return nullptr;
  return to_python(released([&]() -> Result<std::vector<double>> {
    TV_TRY(const auto found, self.value.stops(index));
    std::vector<double> degrees;
    for (const Quaternion& q : found) degrees.push_back(stop_angle(q) / 3.141592653589793 * 180.0);
    return degrees;
  }));
}

PyObject* turn(Self& self, Arguments& args) {
  std::uint64_t index = 0;
  std::int32_t direction = 1;
  std::uint32_t repeat = 1;
  if (!args.convert(index, direction, repeat)) return nullptr;
  return to_python(released([&]() -> Status {
    for (std::uint32_t r = 0; r < repeat; ++r) {
      if (r > 0) self.value.cancel_animation();
      TV_CHECK(self.value.turn(index, TurnChoice::direction(direction)));
    }
    return {};
  }));
}

PyObject* turn_to(Self& self, Arguments& args) {
  std::uint64_t index = 0, stop = 0;
  if (!args.convert(index, stop)) return nullptr;
  const auto choice = TurnChoice::stop(static_cast<std::int64_t>(std::min<std::uint64_t>(stop, INT64_MAX)));
  return to_python(released([&] { return self.value.turn(index, choice); }));
}

PyObject* undo(Self& self, Arguments&) { return to_python(released([&] { return self.value.undo(); })); }
PyObject* settle(Self& self, Arguments&) { return to_python(released([&] { return self.value.settle(); })); }
PyObject* move_random(Self& self, Arguments&) { return to_python(released([&] { return self.value.move_random(); })); }
PyObject* restore(Self& self, Arguments&) { return to_python(released([&] { return self.value.restore(); })); }

PyObject* scramble(Self& self, Arguments& args) {
  std::uint32_t count = 10;
  if (!args.convert(count)) return nullptr;
  self.value.scramble(count);
  Py_RETURN_NONE;
}

PyObject* seed(Self& self, Arguments& args) {
  std::uint64_t state = 0;
  if (!args.convert(state)) return nullptr;
  self.value.seed(state);
  Py_RETURN_NONE;
}

PyObject* reset(Self& self, Arguments&) {
  Result<std::string> query = query_of(self.value);
  if (!query) return raise_failure(query.failure());
  Result<Simulator> fresh = released([&] { return Simulator::from_recipe_text(*query); });
  if (!fresh) return raise_failure(fresh.failure());
  fresh->view() = self.value.view();
  fresh->camera() = self.value.camera();
  self.value = std::move(fresh).value();
  Py_RETURN_NONE;
}

PyObject* advance(Self& self, Arguments& args) {
  double dt_ms = 16.0;
  if (!args.convert(dt_ms)) return nullptr;
  return to_python(released([&] { return self.value.advance(dt_ms); }));
}

// ---- the picture ----

// One frame with the given keywords in force for it alone.
Result<render::Framebuffer> draw_with(Simulator& sim, const ViewKeywords& keywords, std::uint32_t width,
                                      std::uint32_t height) {
  if (!keywords.any()) return render::draw_scene(sim, width, height);
  const render::ViewSettings saved_view = sim.view();
  const render::Camera saved_camera = sim.camera();
  keywords.apply(sim.view(), sim.camera());
  Result<render::Framebuffer> image = render::draw_scene(sim, width, height);
  sim.view() = saved_view;
  sim.camera() = saved_camera;
  return image;
}

PyObject* image_result(Result<render::Framebuffer>&& image) {
  if (!image) return raise_failure(image.failure());
  return image_object(std::move(image).value());
}

PyObject* render_frame(Self& self, Arguments& args) {
  std::uint32_t width = 512, height = 512;
  ViewKeywords view;
  if (!args.convert(width, height, view.background, view.supersample, view.show_arrows, view.show_edges,
                    view.show_pieces, view.line_width, view.fov, view.distance, view.yaw, view.pitch)) {
    return nullptr;
  }
  return image_result(released([&] { return draw_with(self.value, view, width, height); }));
}

PyObject* frame(Self& self, Arguments& args) {
  double dt_ms = 16.0;
  std::uint32_t width = 512, height = 512;
  if (!args.convert(dt_ms, width, height)) return nullptr;
  return image_result(released([&]() -> Result<render::Framebuffer> {
    TV_CHECK(self.value.advance(dt_ms));
    return render::draw_scene(self.value, width, height);
  }));
}

PyObject* look_from(Self& self, Arguments& args) {
  double yaw = 0.0, pitch = 0.0;
  std::optional<double> distance;
  if (!args.convert(yaw, pitch, distance)) return nullptr;
  render::apply_camera_keywords(self.value.camera(), {yaw * kRadiansPerDegree, pitch * kRadiansPerDegree, distance});
  Py_RETURN_NONE;
}

PyObject* orbit(Self& self, Arguments& args) {
  double dx = 0.0, dy = 0.0;
  if (!args.convert(dx, dy)) return nullptr;
  self.value.orbit(dx, dy);
  Py_RETURN_NONE;
}

// ---- the pointer and the arrows ----

PyObject* arrow_or_none(std::optional<std::uint32_t> arrow) {
  if (!arrow) Py_RETURN_NONE;
  return to_python(*arrow);
}

PyObject* arrow_count(Self& self) { return to_python(static_cast<std::uint64_t>(self.value.scene().arrows.size())); }
PyObject* hovered_arrow(Self& self) { return arrow_or_none(self.value.hovered_arrow()); }

// Converts a pointer position (x, y) and hands it to `body`.
template <class Body>
PyObject* at_point(Arguments& args, Body body) {
  double x = 0.0, y = 0.0;
  if (!args.convert(x, y)) return nullptr;
  return body(x, y);
}

PyObject* arrow_at(Self& self, Arguments& args) {
  return at_point(args, [&](double x, double y) { return arrow_or_none(self.value.arrow_at(x, y)); });
}

PyObject* pointer_move(Self& self, Arguments& args) {
  return at_point(args, [&](double x, double y) {
    self.value.pointer_move(x, y);
    Py_RETURN_NONE;
  });
}

PyObject* pointer_down(Self& self, Arguments& args) {
  return at_point(args, [&](double x, double y) { return to_python(self.value.pointer_down(x, y)); });
}

PyObject* pointer_up(Self& self, Arguments& args) {
  return at_point(args, [&](double x, double y) -> PyObject* {
    auto turned = released([&] { return self.value.pointer_up(x, y); });
    if (!turned) return raise_failure(turned.failure());
    if (!*turned) Py_RETURN_NONE;
    return to_python(std::make_tuple((*turned)->first, (*turned)->second));
  });
}

PyObject* clear_hover(Self& self, Arguments&) {
  self.value.clear_hover();
  Py_RETURN_NONE;
}

PyObject* vector_tuple(const render::Vector3& v) { return to_python(std::make_tuple(v[0], v[1], v[2])); }

PyObject* get_background(Self& self) {
  const render::Color c = self.value.view().background;
  return to_python(std::make_tuple(static_cast<std::uint8_t>(render::channel(c, 0)),
                                   static_cast<std::uint8_t>(render::channel(c, 1)),
                                   static_cast<std::uint8_t>(render::channel(c, 2)),
                                   static_cast<std::uint8_t>(render::alpha(c))));
}
void set_background(Self& self, ColorArgument c) { self.value.view().background = c.word; }
PyObject* get_supersample(Self& self) { return to_python(self.value.view().supersample); }
void set_supersample(Self& self, std::uint32_t s) { self.value.view().supersample = std::max<std::uint32_t>(s, 1); }
PyObject* get_show_arrows(Self& self) { return to_python(self.value.view().show_arrows); }
void set_show_arrows(Self& self, bool on) { self.value.view().show_arrows = on; }
PyObject* get_show_edges(Self& self) { return to_python(self.value.view().show_edges); }
void set_show_edges(Self& self, bool on) { self.value.view().show_edges = on; }
PyObject* get_show_pieces(Self& self) { return to_python(self.value.view().show_pieces); }
void set_show_pieces(Self& self, bool on) { self.value.view().show_pieces = on; }
PyObject* get_line_width(Self& self) { return to_python(self.value.view().line_width); }
void set_line_width(Self& self, double w) { self.value.view().line_width = w; }
PyObject* get_fov(Self& self) { return to_python(self.value.camera().fov); }
void set_fov(Self& self, double fov) { self.value.camera().fov = fov; }
PyObject* get_distance(Self& self) { return to_python(render::length(self.value.camera().position)); }
void set_distance(Self& self, double d) { render::apply_camera_keywords(self.value.camera(), {std::nullopt, std::nullopt, d}); }
PyObject* get_camera_position(Self& self) { return vector_tuple(self.value.camera().position); }
void set_camera_position(Self& self, VectorArgument v) { self.value.camera().position = v.value; }
PyObject* get_camera_up(Self& self) { return vector_tuple(self.value.camera().up); }
void set_camera_up(Self& self, VectorArgument v) { self.value.camera().up = v.value; }
PyObject* get_camera_target(Self& self) { return vector_tuple(self.value.camera().target); }
void set_camera_target(Self& self, VectorArgument v) { self.value.camera().target = v.value; }

// ---- docstrings and tables ----

#define TV_DOC(name, signature, text) constexpr char name[] = signature "\n--\n\n" text;
TV_DOC(kPieceDoc, "piece($self, index)",
       "One piece as built: \"vertices\" (float tuples, unscaled, unrotated), \"faces\" (each with \"vertices\", "
       "\"color\" as 0xRRGGBB and \"interior\") and \"rotation\", its exact orientation quaternion [x,y,z,w].")
TV_DOC(kGripsDoc, "grips($self)", "The turnable layers as they stand now, as Grip snapshots in grip order.")
TV_DOC(kGripDoc, "grip($self, index)", "The exact plane of grip `index` as text, [[a,b,c],d] for a*x + b*y + c*z + d = 0.")
TV_DOC(kStopsDoc, "stops($self, index)", "The angles in degrees that grip `index` can turn to, in increasing order.")
TV_DOC(kTurnDoc, "turn($self, index, direction=1, *, repeat=1)",
       "Turns grip `index` to its nearest stop the way the sign of `direction` says (+1 the way its normal points), "
       "`repeat` times; only the last turn animates.")
TV_DOC(kTurnToDoc, "turn_to($self, index, stop)", "Turns grip `index` to stop number `stop` of `stops(index)`.")
TV_DOC(kUndoDoc, "undo($self)", "Turns the last turn back; False if there is none or its layer is locked.")
TV_DOC(kSettleDoc, "settle($self)", "Finishes the move in flight and plays every queued scramble move, to rest.")
TV_DOC(kScrambleDoc, "scramble($self, count=10)", "Queues `count` random moves; they play in `advance` or `settle`.")
TV_DOC(kMoveRandomDoc, "move_random($self)", "Makes one random move now, never the exact inverse of the last one.")
TV_DOC(kSeedDoc, "seed($self, seed)", "Sets the random generator to `seed` (any 64-bit value, 0 included).")
TV_DOC(kRestoreDoc, "restore($self)", "Turns back every applied turn; False if a locked layer stops it partway.")
TV_DOC(kResetDoc, "reset($self)", "Rebuilds the puzzle solved, keeping how it is viewed.")
TV_DOC(kStickersDoc, "stickers($self)",
       "The color in each sticker slot: discrete numerical state representation. Raises PuzzleError off the "
       "solved lattice.")
TV_DOC(kStickerIdsDoc, "sticker_ids($self)",
       "The state as a permutation: the solved slot of the sticker now in each slot; range(sticker_count) solved.")
TV_DOC(kStickerPositionsDoc, "sticker_positions($self)",
       "Slots do not move, so this describes the puzzle and not its state: each slot's centre, before the scale.")
TV_DOC(kGroundAtomsDoc, "ground_atoms($self)", "One (\"color\", \"s<slot>\", \"c<color>\") tuple of text per slot.")
TV_DOC(kActionPermutationsDoc, "action_permutations($self)",
       "Each action's permutation of the stickers (new[i] = old[perm[i]]), measured from the present state, or "
       "None when the actions are not fixed permutations. Deriving it leaves the puzzle as it found it.")
TV_DOC(kActionIndexDoc, "action_index($self, name)", "The action named like \"A\" or \"B2'\", or None.")
TV_DOC(kActionGripDoc, "action_grip($self, action)", "The grip that `action` turns right now, or None if its layer is locked.")
TV_DOC(kApplyActionDoc, "apply_action($self, action)",
       "Makes move `action` without animating; False, having changed nothing, if that layer cannot turn.")
TV_DOC(kActionMaskDoc, "action_mask($self)", "Whether each action's layer can turn now.")
TV_DOC(kApplyDoc, "apply($self, moves)",
       "Makes written moves such as \"A B2' A'\" (tokens split on Unicode white space; a count before \"'\"); "
       "returns the number of turns. The whole text is read before anything moves.")
TV_DOC(kAdvanceDoc, "advance($self, dt_ms=16.0)",
       "Advances the animation, or starts one queued move, by `dt_ms`; then the orbit camera glides one step.")
TV_DOC(kOrbitDoc, "orbit($self, dx, dy)",
       "Swings the camera about its target as a drag by (dx, dy) would, in pointer units of [-1, 1]; the following "
       "advances and frames glide on, each step 0.8 times the last, whatever their dt_ms.")
TV_DOC(kRenderDoc,
       "render($self, width=512, height=512, *, background=None, supersample=None, show_arrows=None, "
       "show_edges=None, show_pieces=None, line_width=None, fov=None, distance=None, yaw=None, pitch=None)",
       "The puzzle as it stands, as an Image of width x height. Keywords given here (yaw and pitch in degrees) "
       "apply to this one frame; the view and camera read the same afterwards. Never advances the animation.")
TV_DOC(kFrameDoc, "frame($self, dt_ms=16.0, width=512, height=512)",
       "advance(dt_ms), then render(width, height); a failed advance raises and draws nothing.")
TV_DOC(kLookFromDoc, "look_from($self, yaw, pitch, distance=None)",
       "Places the camera at yaw and pitch degrees about the origin, at `distance` or the present one, up along y.")
TV_DOC(kArrowAtDoc, "arrow_at($self, x, y)",
       "The arrow under the pointer at (x, y), each in [-1, 1] over the frame with y up, or None. Reads the stored "
       "camera at aspect 1; arrows behind the puzzle are hit through it.")
TV_DOC(kPointerMoveDoc, "pointer_move($self, x, y)", "The pointer moved: feeds a drag in progress and updates the hover.")
TV_DOC(kPointerDownDoc, "pointer_down($self, x, y)",
       "The pointer pressed: True on an arrow, which is then pressed; elsewhere a camera drag starts.")
TV_DOC(kPointerUpDoc, "pointer_up($self, x, y)",
       "The pointer released: ends a drag, and over the arrow it was pressed on turns that arrow's grip, returning "
       "(grip, direction); else None. Arrow i turns grip i // 2, an even arrow by -1 and an odd one by +1, so on a "
       "solved puzzle arrow 2k + 1 makes action 2k. Hover and press are updated before the turn, even if it fails.")
TV_DOC(kClearHoverDoc, "clear_hover($self)", "Forgets the hovered arrow; a press and a drag stay as they are.")
#undef TV_DOC

PyMethodDef methods[] = {
    TV_STATIC_METHOD(PuzzleClass, "named", kNamedDoc, named),
    TV_STATIC_METHOD(PuzzleClass, "from_recipe", kFromRecipeDoc, from_recipe),
    TV_METHOD(PuzzleClass, "piece", kPieceDoc, Access::Exclusive, piece),
    TV_METHOD(PuzzleClass, "grips", kGripsDoc, Access::Exclusive, grips),
    TV_METHOD(PuzzleClass, "grip", kGripDoc, Access::Shared, grip),
    TV_METHOD(PuzzleClass, "stops", kStopsDoc, Access::Exclusive, stops),
    TV_METHOD(PuzzleClass, "turn", kTurnDoc, Access::Exclusive, turn),
    TV_METHOD(PuzzleClass, "turn_to", kTurnToDoc, Access::Exclusive, turn_to),
    TV_METHOD(PuzzleClass, "undo", kUndoDoc, Access::Exclusive, undo),
    TV_METHOD(PuzzleClass, "settle", kSettleDoc, Access::Exclusive, settle),
    TV_METHOD(PuzzleClass, "scramble", kScrambleDoc, Access::Exclusive, scramble),
    TV_METHOD(PuzzleClass, "move_random", kMoveRandomDoc, Access::Exclusive, move_random),
    TV_METHOD(PuzzleClass, "seed", kSeedDoc, Access::Exclusive, seed),
    TV_METHOD(PuzzleClass, "restore", kRestoreDoc, Access::Exclusive, restore),
    TV_METHOD(PuzzleClass, "reset", kResetDoc, Access::Exclusive, reset),
    TV_METHOD(PuzzleClass, "stickers", kStickersDoc, Access::Exclusive, stickers),
    TV_METHOD(PuzzleClass, "sticker_ids", kStickerIdsDoc, Access::Exclusive, sticker_ids),
    TV_METHOD(PuzzleClass, "sticker_positions", kStickerPositionsDoc, Access::Exclusive, sticker_positions),
    TV_METHOD(PuzzleClass, "ground_atoms", kGroundAtomsDoc, Access::Exclusive, ground_atoms),
    TV_METHOD(PuzzleClass, "action_permutations", kActionPermutationsDoc, Access::Exclusive, action_permutations),
    TV_METHOD(PuzzleClass, "action_index", kActionIndexDoc, Access::Exclusive, action_index),
    TV_METHOD(PuzzleClass, "action_grip", kActionGripDoc, Access::Exclusive, action_grip),
    TV_METHOD(PuzzleClass, "apply_action", kApplyActionDoc, Access::Exclusive, apply_action),
    TV_METHOD(PuzzleClass, "action_mask", kActionMaskDoc, Access::Exclusive, action_mask),
    TV_METHOD(PuzzleClass, "apply", kApplyDoc, Access::Exclusive, apply),
    TV_METHOD(PuzzleClass, "advance", kAdvanceDoc, Access::Exclusive, advance),
    TV_METHOD(PuzzleClass, "render", kRenderDoc, Access::Exclusive, render_frame),
    TV_METHOD(PuzzleClass, "frame", kFrameDoc, Access::Exclusive, frame),
    TV_METHOD(PuzzleClass, "look_from", kLookFromDoc, Access::Exclusive, look_from),
    TV_METHOD(PuzzleClass, "orbit", kOrbitDoc, Access::Exclusive, orbit),
    TV_METHOD(PuzzleClass, "arrow_at", kArrowAtDoc, Access::Shared, arrow_at),
    TV_METHOD(PuzzleClass, "pointer_move", kPointerMoveDoc, Access::Exclusive, pointer_move),
    TV_METHOD(PuzzleClass, "pointer_down", kPointerDownDoc, Access::Exclusive, pointer_down),
    TV_METHOD(PuzzleClass, "pointer_up", kPointerUpDoc, Access::Exclusive, pointer_up),
    TV_METHOD(PuzzleClass, "clear_hover", kClearHoverDoc, Access::Exclusive, clear_hover),
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef getset[] = {
    TV_GETTER(PuzzleClass, "piece_count", "The number of pieces.", piece_count),
    TV_GETTER(PuzzleClass, "grip_count", "The number of grips as they stand now.", grip_count),
    TV_GETTER(PuzzleClass, "field", "The number field every coordinate lives in, as text.", field),
    TV_GETTER(PuzzleClass, "scale", "The factor that scales the puzzle to fit a unit sphere.", scale),
    TV_GETTER(PuzzleClass, "recipe", "A new Recipe equal to the one the puzzle was built from.", recipe),
    TV_GETTER(PuzzleClass, "query", "The recipe as a query string.", query),
    TV_GETTER(PuzzleClass, "history_length", "Applied turns in the current history.", history_length),
    TV_GETTER(PuzzleClass, "move_count", "How many moves have been made, undos included.", move_count),
    TV_GETTER(PuzzleClass, "animating", "True while a move is animating.", animating),
    TV_EXCLUSIVE_GETTER(PuzzleClass, "solved_stickers", "The goal color of each slot.", solved_stickers),
    TV_EXCLUSIVE_GETTER(PuzzleClass, "sticker_count", "The number of sticker slots.", sticker_count),
    TV_EXCLUSIVE_GETTER(PuzzleClass, "color_count", "The number of sticker colors.", color_count),
    TV_EXCLUSIVE_GETTER(PuzzleClass, "palette", "The sticker colors as 0xRRGGBB, by color id.", palette),
    TV_EXCLUSIVE_GETTER(PuzzleClass, "is_solved", "Whether every slot shows its goal color.", is_solved),
    TV_EXCLUSIVE_GETTER(PuzzleClass, "actions",
                        "Action names: 2k turns grip k of the solved puzzle the way its normal points, 2k + 1 back.",
                        actions),
    TV_EXCLUSIVE_GETTER(PuzzleClass, "action_count", "Two per grip of the solved puzzle.", action_count),
    TV_EXCLUSIVE_GETTER(PuzzleClass, "grip_names", "The solved grips' names, without a direction.", grip_names),
    TV_GETTER(PuzzleClass, "arrow_count", "Two arrows per grip as the grips stand now.", arrow_count),
    TV_GETTER(PuzzleClass, "hovered_arrow", "The arrow under the pointer, or None.", hovered_arrow),
    TV_PROPERTY(PuzzleClass, "background", "The frame's background color (r, g, b, a).", get_background,
                ColorArgument, set_background),
    TV_PROPERTY(PuzzleClass, "supersample", "Frames are drawn this many times larger and averaged down; 0 reads 1.",
                get_supersample, std::uint32_t, set_supersample),
    TV_PROPERTY(PuzzleClass, "show_arrows", "Whether the grip arrows are drawn and can be pointed at.", get_show_arrows,
                bool, set_show_arrows),
    TV_PROPERTY(PuzzleClass, "show_edges", "Whether the pieces' outlines are drawn.", get_show_edges, bool,
                set_show_edges),
    TV_PROPERTY(PuzzleClass, "show_pieces", "Whether the pieces' faces are drawn.", get_show_pieces, bool,
                set_show_pieces),
    TV_PROPERTY(PuzzleClass, "line_width", "The outline width in pixels of the finished frame.", get_line_width,
                double, set_line_width),
    TV_PROPERTY(PuzzleClass, "fov", "The vertical field of view in degrees.", get_fov, double, set_fov),
    TV_PROPERTY(PuzzleClass, "distance",
                "The camera's distance from the origin; a write moves it along its line through the origin.",
                get_distance, double, set_distance),
    TV_PROPERTY(PuzzleClass, "camera_position", "Where the camera stands, (x, y, z).", get_camera_position,
                VectorArgument, set_camera_position),
    TV_PROPERTY(PuzzleClass, "camera_up", "The camera's up direction, (x, y, z).", get_camera_up, VectorArgument,
                set_camera_up),
    TV_PROPERTY(PuzzleClass, "camera_target", "The point the camera looks at, (x, y, z).", get_camera_target,
                VectorArgument, set_camera_target),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char*>(kDoc)},
    {Py_tp_new, reinterpret_cast<void*>(&constructor_entry<PuzzleClass, kDoc, construct>)},
    {Py_tp_dealloc, reinterpret_cast<void*>(&deallocate<PuzzleClass>)},
    {Py_tp_repr, reinterpret_cast<void*>(&repr)},
    {Py_tp_methods, methods},
    {Py_tp_getset, getset},
    {0, nullptr},
};

PyType_Spec type_spec = {"torvane._native.Puzzle", 0, 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE, slots};

// ---- Grip ----

using GripSelf = Instance<GripSnapshot>;
PyObject* grip_index(GripSelf& self) { return to_python(self.value.index); }
PyObject* grip_axis(GripSelf& self) { return to_python(std::make_tuple(self.value.axis[0], self.value.axis[1], self.value.axis[2])); }
PyObject* grip_offset(GripSelf& self) { return to_python(self.value.offset); }
PyObject* grip_plane(GripSelf& self) { return to_python(self.value.plane); }
PyObject* grip_piece_count(GripSelf& self) { return to_python(self.value.piece_count); }
PyObject* grip_other_count(GripSelf& self) { return to_python(self.value.other_count); }

PyObject* grip_repr(PyObject* object) {
  const GripSnapshot& g = instance_of<GripClass>(object).value;
  char text[256];
  std::snprintf(text, sizeof text, "<Grip %llu axis=(%.3f, %.3f, %.3f) offset=%.3f pieces=%llu>",
                static_cast<unsigned long long>(g.index), g.axis[0], g.axis[1], g.axis[2], g.offset,
                static_cast<unsigned long long>(g.piece_count));
  return PyUnicode_FromString(text);
}

constexpr char kGripClassDoc[] =
    "A snapshot of one turnable layer, made by Puzzle.grips(): a turn derives the grips anew, so a grip taken "
    "before a move may be gone after it.";

PyGetSetDef grip_getset[] = {
    TV_GETTER(GripClass, "index", "The grip's place in grips().", grip_index),
    TV_GETTER(GripClass, "axis", "The unit normal, pointing to the pieces that turn.", grip_axis),
    TV_GETTER(GripClass, "offset", "The plane's distance from the centre along the axis.", grip_offset),
    TV_GETTER(GripClass, "plane", "The exact plane as text, [[a,b,c],d].", grip_plane),
    TV_GETTER(GripClass, "piece_count", "The number of pieces that turn.", grip_piece_count),
    TV_GETTER(GripClass, "other_count", "The number of pieces that stay.", grip_other_count),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot grip_slots[] = {
    {Py_tp_doc, const_cast<char*>(kGripClassDoc)},
    {Py_tp_dealloc, reinterpret_cast<void*>(&deallocate<GripClass>)},
    {Py_tp_repr, reinterpret_cast<void*>(&grip_repr)},
    {Py_tp_getset, grip_getset},
    {0, nullptr},
};

PyType_Spec grip_type_spec = {"torvane._native.Grip", 0, 0,
                              Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION,
                              grip_slots};

constexpr char kJumblesDoc[] =
    "jumbles(recipe)\n--\n\n"
    "Whether the puzzle ever leaves its own solved lattice, found by trying every action and its inverse "
    "and a fixed walk of forty actions. `recipe` is a Recipe, a query string or a catalog name.";

PyObject* jumbles_function_body(Arguments& args) {
  std::string query;
  if (!query_from(args[0], query)) return nullptr;
  return to_python(released([&] { return jumbles(query); }));
}

PyMethodDef module_functions[] = {
    TV_FUNCTION("jumbles", kJumblesDoc, jumbles_function_body),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace

PyObject* puzzle_class() { return create_type<PuzzleClass>(type_spec); }
PyObject* grip_class() { return create_type<GripClass>(grip_type_spec); }
PyObject* jumbles_function(PyObject* module) { return PyCFunction_NewEx(&module_functions[0], nullptr, module); }

PyObject* puzzle_object(Simulator&& sim) { return wrap<PuzzleClass>(std::move(sim)); }

PyObject* puzzle_from_recipe(const Recipe& recipe) {
  std::string query;
  if (!take_result(query_text(recipe), query)) return nullptr;
  PyTypeObject* type = type_of<PuzzleClass>();
  if (type == nullptr) fail_invariant("the Puzzle class is registered before a recipe is built");
  return build(type, query);
}

}  // namespace tv::py
