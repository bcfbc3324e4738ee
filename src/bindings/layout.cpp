// Python's Layout: a puzzle's facelet numbering and the permutation engine over it. A layout is
// immutable, so every method takes shared access and many threads may use one at once. Array
// arguments are read while the interpreter is held; the work on rows runs released.
#include <algorithm>

#include "bindings/arrays.hpp"
#include "bindings/classes.hpp"
#include "bindings/layouts.hpp"
#include "bindings/recipes.hpp"
#include "bindings/results.hpp"

namespace tv::py {
namespace {

using Self = Instance<Layout>;

constexpr char kDefaultRecipe[] = "?shell=C$1&cut=C$1/3";

PyObject* array_result(Result<ArrayBuffer>&& result) {
  if (!result) return raise_failure(result.failure());
  return array_object(std::move(result).value());
}

PyObject* optional_list(const std::vector<std::optional<std::uint32_t>>& values) {
  PyObject* list = PyList_New(static_cast<Py_ssize_t>(values.size()));
  if (list == nullptr) return nullptr;
  for (std::size_t i = 0; i < values.size(); ++i) {
    PyObject* item = values[i] ? to_python(*values[i]) : Py_NewRef(Py_None);
    if (item == nullptr) {
      Py_DECREF(list);
      return nullptr;
    }
    PyList_SET_ITEM(list, static_cast<Py_ssize_t>(i), item);
  }
  return list;
}

// Reads parameter i at the width that `bound` gives and hands the values to body as a span.
template <class T, class Body>
PyObject* read_then(Arguments& args, std::size_t i, Body& body) {
  std::vector<T> values;
  if (!read_array(args[i], values)) {
    note_argument(args.name(i));
    return nullptr;
  }
  return body(std::span<const T>(values));
}

template <class Body>
PyObject* with_values(Arguments& args, std::size_t i, std::uint64_t bound, Body&& body) {
  switch (whole_type_for_bound(bound)) {
    case ElementType::U8: return read_then<std::uint8_t>(args, i, body);
    case ElementType::U16: return read_then<std::uint16_t>(args, i, body);
    default: return read_then<std::uint32_t>(args, i, body);
  }
}

// Moves given as whole numbers by the list rule, or as an Array (which is no sequence), read
// row after row.
bool move_list(PyObject* object, std::vector<std::uint64_t>& out) {
  if (!is_instance<ArrayClass>(object)) return Converter<std::vector<std::uint64_t>>::convert(object, out);
  std::vector<std::uint32_t> values;
  if (!read_array(object, values)) return false;
  out.assign(values.begin(), values.end());
  return true;
}

struct MoveList {
  std::vector<std::uint64_t> moves;
};

}  // namespace

template <>
struct Converter<MoveList> {
  static bool convert(PyObject* object, MoveList& out) { return move_list(object, out.moves); }
};

namespace {

// Sequences of moves: a sequence of move lists, or an Array whose rows are the sequences.
bool move_lists(PyObject* object, std::vector<std::vector<std::uint64_t>>& out) {
  out.clear();
  if (is_instance<ArrayClass>(object)) {
    std::vector<std::uint64_t> values;
    if (!move_list(object, values)) return false;
    const std::uint64_t rows = instance_of<ArrayClass>(object).value.shape()[0];
    const std::size_t width = rows == 0 ? 0 : values.size() / rows;
    for (std::uint64_t r = 0; r < rows; ++r)
      out.emplace_back(values.begin() + r * width, values.begin() + (r + 1) * width);
    return true;
  }
  std::vector<MoveList> lists;
  if (!Converter<std::vector<MoveList>>::convert(object, lists)) return false;
  for (MoveList& list : lists) out.push_back(std::move(list.moves));
  return true;
}

// ---- construction ----

constexpr char kDoc[] =
    "Layout(recipe=None)\n--\n\n"
    "The facelet numbering of a puzzle and a permutation engine over it. A cube is numbered face by face "
    "in the order U, D, L, R, B, F, each face row by row, with the twelve face turns as its first moves; "
    "any other puzzle keeps its own sticker order, with its colors as faces and its actions as moves. "
    "`recipe` is a Recipe, a query string or a catalog name; None is the 3x3x3.";

PyObject* construct(PyTypeObject* type, Arguments& args) {
  std::string query = kDefaultRecipe;
  if (args[0] != nullptr && args[0] != Py_None && !query_from(args[0], query)) {
    note_argument("recipe");
    return nullptr;
  }
  Result<Layout> layout = released([&] { return derive_layout(query); });
  if (!layout) return raise_failure(layout.failure());
  return wrap<LayoutClass>(std::move(layout).value(), type);
}

// ---- properties ----

PyObject* size(Self& self) {
  if (!self.value.cube) Py_RETURN_NONE;
  return to_python(self.value.cube->size);
}
PyObject* is_cube(Self& self) { return to_python(self.value.cube.has_value()); }
PyObject* query(Self& self) { return to_python(self.value.query); }
PyObject* facelet_count(Self& self) { return to_python(static_cast<std::uint64_t>(self.value.facelet_count())); }
PyObject* face_count(Self& self) { return to_python(self.value.face_count); }
PyObject* move_count(Self& self) { return to_python(static_cast<std::uint64_t>(self.value.move_count())); }
PyObject* faces(Self& self) { return to_python(self.value.faces); }
PyObject* move_names(Self& self) { return to_python(self.value.move_names); }
PyObject* actions(Self& self) { return optional_list(self.value.actions); }
PyObject* inverses(Self& self) { return optional_list(self.value.inverses); }

PyObject* face_sizes(Self& self) {
  const Layout& l = self.value;
  return array_object(whole_array(std::span<const std::uint32_t>(l.face_sizes), l.facelet_count() + 1, {l.face_count}));
}
PyObject* moves(Self& self) {
  const Layout& l = self.value;
  return array_object(
      whole_array(std::span<const std::uint32_t>(l.table), l.facelet_count(), {l.move_count(), l.facelet_count()}));
}
PyObject* facelet_of_slot(Self& self) {
  const Layout& l = self.value;
  return array_object(whole_array(std::span<const std::uint32_t>(l.facelet_of_slot), l.facelet_count(), {l.facelet_count()}));
}
PyObject* slot_of_facelet(Self& self) {
  const Layout& l = self.value;
  return array_object(whole_array(std::span<const std::uint32_t>(l.slot_of_facelet), l.facelet_count(), {l.facelet_count()}));
}
PyObject* goal_colors(Self& self) {
  const Layout& l = self.value;
  return array_object(whole_array(std::span<const std::uint32_t>(l.goal), l.value_bound(), {l.facelet_count()}));
}
PyObject* goal_ids(Self& self) {
  const Layout& l = self.value;
  std::vector<std::uint32_t> ids(l.facelet_count());
  for (std::size_t i = 0; i < ids.size(); ++i) ids[i] = static_cast<std::uint32_t>(i);
  return array_object(whole_array(std::span<const std::uint32_t>(ids), l.facelet_count(), {l.facelet_count()}));
}

PyObject* repr(PyObject* object) {
  return guarded([&]() -> PyObject* {
    Self& self = instance_of<LayoutClass>(object);
    Borrow borrow(self.access, Access::Shared);
    if (!borrow) return nullptr;
    const Layout& l = self.value;
    const std::string counts =
        "facelets=" + std::to_string(l.facelet_count()) + " moves=" + std::to_string(l.move_count()) + ">";
    if (l.cube) {
      const std::string side = std::to_string(l.cube->size);
      return to_python("<Layout cube " + side + "x" + side + "x" + side + " " + counts);
    }
    return to_python("<Layout faces=" + std::to_string(l.face_count) + " " + counts);
  });
}

// ---- moves ----

constexpr char kWithMovesDoc[] =
    "with_moves($self, sequences)\n--\n\n"
    "A layout whose moves are the given sequences of this layout's moves, each applied first to last; "
    "an empty sequence is the identity, named \".\".";
PyObject* with_moves(Self& self, Arguments& args) {
  std::vector<std::vector<std::uint64_t>> sequences;
  if (!move_lists(args[0], sequences)) {
    note_argument("sequences");
    return nullptr;
  }
  Result<Layout> made = released([&] { return tv::with_moves(self.value, sequences); });
  if (!made) return raise_failure(made.failure());
  return wrap<LayoutClass>(std::move(made).value());
}

constexpr char kMoveIndexDoc[] =
    "move_index($self, name)\n--\n\n"
    "The move of this name, or None. On a cube a face letter alone or with \"1\", \"+1\" is the clockwise "
    "turn, with \"-1\" or \"'\" the counterclockwise one.";
PyObject* move_index(Self& self, Arguments& args) {
  std::string name;
  if (!args.convert(name)) return nullptr;
  const auto index = tv::move_index(self.value, name);
  if (!index) Py_RETURN_NONE;
  return to_python(*index);
}

constexpr char kMovesToActionsDoc[] =
    "moves_to_actions($self, moves)\n--\n\nThe puzzle's action for each move, as PuzzleBatch.step takes them.";
PyObject* moves_to_actions(Self& self, Arguments& args) {
  std::vector<std::uint64_t> moves;
  if (!move_list(args[0], moves)) {
    note_argument("moves");
    return nullptr;
  }
  return to_python(tv::moves_to_actions(self.value, moves));
}

constexpr char kInverseMovesDoc[] = "inverse_moves($self, moves)\n--\n\nThe move that undoes each move.";
PyObject* inverse_moves(Self& self, Arguments& args) {
  const auto body = [&](std::span<const std::uint32_t> moves) {
    return array_result(released([&] { return tv::inverse_moves(self.value, moves); }));
  };
  return read_then<std::uint32_t>(args, 0, body);
}

// ---- states ----

constexpr char kToFaceletsDoc[] =
    "to_facelets($self, states)\n--\n\n"
    "Sticker colors in slot order, one state or a block of them, as faces in facelet order.";
PyObject* to_facelets(Self& self, Arguments& args) {
  return with_values(args, 0, self.value.value_bound(), [&](auto states) {
    return array_result(released([&] { return tv::to_facelets(self.value, states); }));
  });
}

constexpr char kToFaceletIdsDoc[] =
    "to_facelet_ids($self, ids)\n--\n\n"
    "Sticker identities in slot order, as PuzzleBatch.sticker_ids gives them, as facelet numbers in facelet "
    "order.";
PyObject* to_facelet_ids(Self& self, Arguments& args) {
  return with_values(args, 0, self.value.facelet_count(), [&](auto ids) {
    return array_result(released([&] { return tv::to_facelet_ids(self.value, ids); }));
  });
}

constexpr char kFromFaceletsDoc[] =
    "from_facelets($self, facelets)\n--\n\nFaces in facelet order as sticker colors in slot order.";
PyObject* from_facelets(Self& self, Arguments& args) {
  return with_values(args, 0, self.value.value_bound(), [&](auto facelets) {
    return array_result(released([&] { return tv::from_facelets(self.value, facelets); }));
  });
}

constexpr char kNotMoves[] = "expected a move, or one per state";

// The moves argument of next_states: one whole number for every row, or one per row.
bool move_choice(PyObject* object, std::size_t move_count, MoveChoice& out) {
  PyObject* index = PyIndex_Check(object) ? PyNumber_Index(object) : nullptr;
  if (index == nullptr) PyErr_Clear();  // not a number (a NumPy array has the slot too): one per row
  if (index != nullptr) {
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(index, &overflow);
    if (overflow == 0 && value >= 0 && value <= 0xFFFFFFFFll) {
      Py_DECREF(index);
      out.every = static_cast<std::uint32_t>(value);
      return true;
    }
    PyErr_Clear();
    PyObject* text = PyObject_Str(index);
    Py_DECREF(index);
    if (text == nullptr) return false;
    PyErr_Format(PyExc_ValueError, "move %U out of range (have %zu)", text, move_count);
    Py_DECREF(text);
    return false;
  }
  if (read_array(object, out.per_row)) return true;
  if (PyErr_ExceptionMatches(PyExc_TypeError)) {
    PyErr_Clear();
    raise(PyExc_TypeError, kNotMoves);
  }
  return false;
}

// The width of next_states' answer: an Array keeps its own, anything else the narrowest that
// holds its largest value.
ElementType result_width(PyObject* states, const std::vector<std::uint32_t>& values) {
  if (is_instance<ArrayClass>(states)) return instance_of<ArrayClass>(states).value.type();
  const std::uint32_t largest = values.empty() ? 0 : *std::max_element(values.begin(), values.end());
  return whole_type_for_bound(std::uint64_t{largest} + 1);
}

constexpr char kNextStatesDoc[] =
    "next_states($self, states, moves)\n--\n\n"
    "Each state moved once: by `moves` when it is one move, or by one move per state. An Array keeps its "
    "width; anything else comes back in the narrowest width that holds it.";
PyObject* next_states(Self& self, Arguments& args) {
  std::vector<std::uint32_t> states;
  if (!read_array(args[0], states)) {
    note_argument("states");
    return nullptr;
  }
  const ElementType width = result_width(args[0], states);
  MoveChoice moves;
  if (!move_choice(args[1], self.value.move_count(), moves)) {
    note_argument("moves");
    return nullptr;
  }
  return array_result(released([&] { return tv::next_states(self.value, states, width, moves); }));
}

// ---- walks ----

constexpr char kNotDepths[] = "expected a number of moves, a (low, high) range, or one per state";

// The depth argument of the walks: a number for every row, a (low, high) range, or one per row.
// Read errors of an array pass through; an argument of no form is a TypeError.
bool depth_choice(PyObject* object, DepthChoice& out) {
  std::uint32_t depth = 0;
  if (PyIndex_Check(object)) {
    if (Converter<std::uint32_t>::convert(object, depth)) {
      out.every = depth;
      return true;
    }
    PyErr_Clear();
  }
  if (PyTuple_Check(object) && PyTuple_GET_SIZE(object) == 2) {
    std::uint32_t low = 0, high = 0;
    if (Converter<std::uint32_t>::convert(PyTuple_GET_ITEM(object, 0), low) &&
        Converter<std::uint32_t>::convert(PyTuple_GET_ITEM(object, 1), high)) {
      if (low > high) {
        PyErr_Format(PyExc_ValueError, "a scramble range runs from low to high, and %u to %u does not", low, high);
        return false;
      }
      out.range = std::pair{low, high};
      return true;
    }
    PyErr_Clear();
  }
  if (read_array(object, out.per_row)) return true;
  if (PyErr_ExceptionMatches(PyExc_TypeError)) {
    PyErr_Clear();
    raise(PyExc_TypeError, kNotDepths);
  }
  return false;
}

constexpr char kTrajectoriesDoc[] =
    "trajectories($self, steps, count=None, *, seed=0)\n--\n\n"
    "`count` random walks from solved (one when None), each `steps` long: a number, a (low, high) range "
    "drawn per walk, or one length per walk. Returns (states, moves): every position of every walk, short "
    "walks repeating their last state, and the moves taken, move_count where a walk had ended.";
PyObject* trajectories(Self& self, Arguments& args) {
  DepthChoice choice;
  if (!depth_choice(args[0], choice)) {
    note_argument("steps");
    return nullptr;
  }
  std::optional<std::uint64_t> count;
  std::uint64_t seed = 0;
  if (!args.convert_one(1, count) || !args.convert_one(2, seed)) return nullptr;
  auto result = released([&]() -> Result<std::pair<ArrayBuffer, ArrayBuffer>> {
    TV_TRY(const auto depths, walk_depths(choice, count.value_or(1), seed));
    return tv::trajectories(self.value, depths, seed);
  });
  if (!result) return raise_failure(result.failure());
  PyObject* states = array_object(std::move(result->first));
  if (states == nullptr) return nullptr;
  PyObject* moves = array_object(std::move(result->second));
  if (moves == nullptr) {
    Py_DECREF(states);
    return nullptr;
  }
  return Py_BuildValue("(NN)", states, moves);
}

constexpr char kScrambledDoc[] =
    "scrambled($self, count, depth, *, seed=0)\n--\n\n"
    "The end states of `count` random walks from solved, each `depth` moves long: a number, a (low, high) "
    "range drawn per walk, or one depth per walk. A draw of inverses[previous] is sent on to the next move, "
    "so a walk never takes that move right after its previous one (a twin with the same permutation may).";
PyObject* scrambled(Self& self, Arguments& args) {
  std::uint64_t count = 0, seed = 0;
  DepthChoice choice;
  if (!args.convert_one(0, count)) return nullptr;
  if (!depth_choice(args[1], choice)) {
    note_argument("depth");
    return nullptr;
  }
  if (!args.convert_one(2, seed)) return nullptr;
  return array_result(released([&]() -> Result<ArrayBuffer> {
    TV_TRY(const auto depths, walk_depths(choice, count, seed));
    return tv::scrambled(self.value, depths, seed);
  }));
}

// ---- reading states ----

constexpr char kOneHotDoc[] =
    "one_hot($self, facelets)\n--\n\n"
    "Faces as indicators: byte f * face_count + v of a row is 1 where facelet f shows face v.";
PyObject* one_hot(Self& self, Arguments& args) {
  return with_values(args, 0, self.value.value_bound(), [&](auto facelets) {
    return array_result(released([&] { return tv::one_hot(self.value, facelets); }));
  });
}

constexpr char kSolvedDoc[] =
    "solved($self, facelets)\n--\n\nWhether each state equals the goal, one flag per state (also for one state).";
PyObject* solved(Self& self, Arguments& args) {
  return with_values(args, 0, self.value.value_bound(), [&](auto facelets) {
    return array_result(released([&] { return tv::solved(self.value, facelets); }));
  });
}

constexpr char kTextDoc[] =
    "text($self, facelets)\n--\n\n"
    "One line per face: its name, a blank and its facelets, as face letters on a cube, with \"/\" between "
    "rows.";
PyObject* text(Self& self, Arguments& args) {
  return with_values(args, 0, self.value.value_bound(),
                     [&](auto facelets) { return to_python(facelet_text(self.value, facelets)); });
}

PyMethodDef methods[] = {
    TV_METHOD(LayoutClass, "with_moves", kWithMovesDoc, Access::Shared, with_moves),
    TV_METHOD(LayoutClass, "move_index", kMoveIndexDoc, Access::Shared, move_index),
    TV_METHOD(LayoutClass, "moves_to_actions", kMovesToActionsDoc, Access::Shared, moves_to_actions),
    TV_METHOD(LayoutClass, "inverse_moves", kInverseMovesDoc, Access::Shared, inverse_moves),
    TV_METHOD(LayoutClass, "to_facelets", kToFaceletsDoc, Access::Shared, to_facelets),
    TV_METHOD(LayoutClass, "to_facelet_ids", kToFaceletIdsDoc, Access::Shared, to_facelet_ids),
    TV_METHOD(LayoutClass, "from_facelets", kFromFaceletsDoc, Access::Shared, from_facelets),
    TV_METHOD(LayoutClass, "next_states", kNextStatesDoc, Access::Shared, next_states),
    TV_METHOD(LayoutClass, "trajectories", kTrajectoriesDoc, Access::Shared, trajectories),
    TV_METHOD(LayoutClass, "scrambled", kScrambledDoc, Access::Shared, scrambled),
    TV_METHOD(LayoutClass, "one_hot", kOneHotDoc, Access::Shared, one_hot),
    TV_METHOD(LayoutClass, "solved", kSolvedDoc, Access::Shared, solved),
    TV_METHOD(LayoutClass, "text", kTextDoc, Access::Shared, text),
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef getset[] = {
    TV_GETTER(LayoutClass, "size", "Facelets along one side of a cube; None for any other puzzle.", size),
    TV_GETTER(LayoutClass, "is_cube", "Whether the puzzle was recognised as a cube.", is_cube),
    TV_GETTER(LayoutClass, "query", "The canonical recipe of the puzzle.", query),
    TV_GETTER(LayoutClass, "facelet_count", "Values in one state.", facelet_count),
    TV_GETTER(LayoutClass, "face_count", "Faces: six on a cube, else the puzzle's colors.", face_count),
    TV_GETTER(LayoutClass, "face_sizes", "Facelets on each face.", face_sizes),
    TV_GETTER(LayoutClass, "move_count", "How many moves.", move_count),
    TV_GETTER(LayoutClass, "faces", "The faces' names, in the order they are numbered.", faces),
    TV_GETTER(LayoutClass, "move_names", "One name per move.", move_names),
    TV_GETTER(LayoutClass, "moves", "Each move as a permutation of the facelets: new[i] = old[moves[m][i]].",
              moves),
    TV_GETTER(LayoutClass, "actions", "The puzzle's own action of each move, or None.", actions),
    TV_GETTER(LayoutClass, "inverses", "The move that undoes each move, or None.", inverses),
    TV_GETTER(LayoutClass, "facelet_of_slot", "For each sticker slot of the puzzle, its facelet.", facelet_of_slot),
    TV_GETTER(LayoutClass, "slot_of_facelet", "For each facelet, its sticker slot.", slot_of_facelet),
    TV_GETTER(LayoutClass, "goal_colors", "The face of each facelet when solved.", goal_colors),
    TV_GETTER(LayoutClass, "goal_ids", "The solved identities: 0, 1, 2, ...", goal_ids),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char*>(kDoc)},
    {Py_tp_new, reinterpret_cast<void*>(&constructor_entry<LayoutClass, kDoc, construct>)},
    {Py_tp_dealloc, reinterpret_cast<void*>(&deallocate<LayoutClass>)},
    {Py_tp_repr, reinterpret_cast<void*>(&repr)},
    {Py_tp_methods, methods},
    {Py_tp_getset, getset},
    {0, nullptr},
};

PyType_Spec type_spec = {"torvane._native.Layout", 0, 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE, slots};

}  // namespace

PyObject* layout_class() { return create_type<LayoutClass>(type_spec); }

}  // namespace tv::py
