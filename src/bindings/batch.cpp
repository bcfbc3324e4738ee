// Python's PuzzleBatch: many copies of one puzzle, stepped together, as rows of slot numbers
// or as simulators. Arguments are converted and array arguments read while the interpreter is
// held, so a method that raises on its arguments has changed nothing; the loops over copies
// run released.
#include <cstring>
#include <optional>
#include <string>

#include "batch.hpp"
#include "bindings/arrays.hpp"
#include "bindings/classes.hpp"
#include "bindings/colors.hpp"
#include "bindings/layouts.hpp"
#include "bindings/recipes.hpp"
#include "bindings/results.hpp"
#include "parse.hpp"

namespace tv::py {
namespace {

struct BatchClass {
  using Value = Batch;
  static constexpr char name[] = "PuzzleBatch";
};

using Self = Instance<Batch>;

PyObject* array_result(ArrayBuffer buffer) { return array_object(std::move(buffer)); }

PyObject* array_result(Result<ArrayBuffer>&& result) {
  if (!result) return raise_failure(result.failure());
  return array_object(std::move(result).value());
}

bool raise_index(std::uint64_t index, std::uint64_t count) {
  PyErr_Format(PyExc_IndexError, "puzzle %llu out of range (have %llu)", static_cast<unsigned long long>(index),
               static_cast<unsigned long long>(count));
  return false;
}

// Converts parameter i as an index below the batch's count.
bool index_argument(Arguments& args, std::size_t i, std::uint64_t count, std::uint64_t& index) {
  if (!args.convert_one(i, index)) return false;
  return index < count || raise_index(index, count);
}

constexpr char kNotSelection[] = "expected a list of flags, a list of indices, or None";

bool is_flag(PyObject* item) {
  if (PyBool_Check(item)) return true;
  const char* type_name = Py_TYPE(item)->tp_name;
  return std::strcmp(type_name, "numpy.bool") == 0 || std::strcmp(type_name, "numpy.bool_") == 0;
}

// The `which` selector: None selects all; flags select where true and must number `count`;
// otherwise every element is an index below `count`.
bool selection_items(PyObject* list, std::uint64_t count, Selection& out) {
  const Py_ssize_t size = PyList_GET_SIZE(list);
  bool all_flags = true;
  for (Py_ssize_t k = 0; k < size && all_flags; ++k) all_flags = is_flag(PyList_GET_ITEM(list, k));
  if (all_flags) {
    if (static_cast<std::uint64_t>(size) != count) {
      PyErr_Format(PyExc_ValueError, "got %zd flags for %llu puzzles", size, static_cast<unsigned long long>(count));
      return false;
    }
    for (Py_ssize_t k = 0; k < size; ++k) out[k] = PyObject_IsTrue(PyList_GET_ITEM(list, k)) == 1 ? 1 : 0;
    return true;
  }
  std::fill(out.begin(), out.end(), 0);
  for (Py_ssize_t k = 0; k < size; ++k) {
    std::uint64_t index = 0;
    if (!Converter<std::uint64_t>::convert(PyList_GET_ITEM(list, k), index)) {
      PyErr_Clear();
      raise(PyExc_TypeError, kNotSelection);
      return false;
    }
    if (index >= count) return raise_index(index, count);
    out[index] = 1;
  }
  return true;
}

bool selection_from(PyObject* object, std::uint64_t count, Selection& out) {
  out.assign(count, 1);
  if (object == nullptr || object == Py_None) return true;
  if (PyUnicode_Check(object)) {
    PyErr_SetString(PyExc_TypeError, "Can't extract `str` to `Vec`");
    return false;
  }
  if (!PySequence_Check(object)) {
    raise(PyExc_TypeError, kNotSelection);
    return false;
  }
  PyObject* list = PySequence_List(object);
  if (list == nullptr) return false;
  const bool ok = selection_items(list, count, out);
  Py_DECREF(list);
  return ok;
}

bool which_argument(Arguments& args, std::size_t i, std::uint64_t count, Selection& out) {
  if (selection_from(args[i], count, out)) return true;
  note_argument(args.name(i));
  return false;
}

// ---- construction ----

constexpr char kDoc[] =
    "PuzzleBatch(recipe, count, *, seed=None, scramble=None, background=None, supersample=None, show_edges=None, "
    "show_pieces=None, line_width=None, fov=None, distance=None, yaw=None, pitch=None)\n--\n\n"
    "`count` copies of one puzzle, stepped together. `recipe` is a Recipe, a query string or a catalog name; "
    "`seed` seeds copy i's generator with seed + i, and `scramble` walks every copy that many random moves. "
    "The view keywords are those of Puzzle (angles in degrees) and shape every picture of the batch.";

PyObject* construct(PyTypeObject* type, Arguments& args) {
  std::uint64_t count = 0;
  std::optional<std::uint64_t> seed;
  std::optional<std::uint32_t> scramble;
  render::ViewChange view;
  std::string query;
  if (!args.convert_one(1, count) || !args.convert_one(2, seed) || !args.convert_one(3, scramble) ||
      !args.convert_one(4, view.background) || !args.convert_one(5, view.supersample) ||
      !args.convert_one(6, view.show_edges) || !args.convert_one(7, view.show_pieces) ||
      !args.convert_one(8, view.line_width) || !args.convert_one(9, view.fov) ||
      !args.convert_one(10, view.distance) || !args.convert_one(11, view.yaw) || !args.convert_one(12, view.pitch))
    return nullptr;
  if (!query_from(args[0], query)) {
    note_argument("recipe");
    return nullptr;
  }
  Result<Batch> batch = released([&]() -> Result<Batch> {
    TV_TRY(Batch made, Batch::create(query, count));
    made.configure(view);
    if (seed) made.seed_all(*seed);
    if (scramble) TV_CHECK(made.reset_where(Selection(count, 1), *scramble));
    return made;
  });
  if (!batch) return raise_failure(batch.failure());
  return wrap<BatchClass>(std::move(batch).value(), type);
}

// ---- what the puzzle is, shared ----

PyObject* query(Self& self) { return to_python(self.value.query()); }
PyObject* is_tabular(Self& self) { return to_python(self.value.is_tabular()); }
PyObject* sticker_count(Self& self) { return to_python(static_cast<std::uint64_t>(self.value.sticker_count())); }
PyObject* action_count(Self& self) { return to_python(self.value.action_count()); }
PyObject* color_count(Self& self) { return to_python(static_cast<std::uint64_t>(self.value.color_count())); }
PyObject* grip_names(Self& self) { return to_python(self.value.table().grip_names); }
PyObject* solved_stickers(Self& self) { return to_python(self.value.table().solved_colors); }
PyObject* palette(Self& self) { return to_python(self.value.table().palette); }
PyObject* move_counts(Self& self) { return to_python(self.value.move_counts()); }
PyObject* permutations(Self& self) {
  if (!self.value.is_tabular()) Py_RETURN_NONE;
  return array_result(self.value.permutations());
}

PyObject* actions(Self& self) {
  std::vector<std::string> names;
  for (std::uint64_t a = 0; a < self.value.action_count(); ++a)
    names.push_back(action_name(self.value.table().grip_names, a));
  return to_python(names);
}

constexpr char kActionIndexDoc[] =
    "action_index($self, name)\n--\n\nThe action a move name stands for, such as \"A'\", or None.";
PyObject* action_index(Self& self, Arguments& args) {
  std::string name;
  if (!args.convert(name)) return nullptr;
  const auto action = tv::action_index(self.value.table().grip_names, name);
  if (!action) Py_RETURN_NONE;
  return to_python(*action);
}

constexpr char kHistoryDoc[] = "history($self, index)\n--\n\nThe actions of copy `index` since it was last solved.";
PyObject* history(Self& self, Arguments& args) {
  std::uint64_t index = 0;
  if (!index_argument(args, 0, self.value.count(), index)) return nullptr;
  const auto history = self.value.history(index);
  return to_python(std::vector<std::uint32_t>(history.begin(), history.end()));
}

Py_ssize_t length(PyObject* object) {
  Self& self = instance_of<BatchClass>(object);
  Borrow borrow(self.access, Access::Shared);
  if (!borrow) return -1;
  return static_cast<Py_ssize_t>(self.value.count());
}

PyObject* repr(PyObject* object) {
  return guarded([&]() -> PyObject* {
    Self& self = instance_of<BatchClass>(object);
    Borrow borrow(self.access, Access::Shared);
    if (!borrow) return nullptr;
    const Batch& b = self.value;
    const std::string text = "<PuzzleBatch " + std::to_string(b.count()) + " of " + b.query() +
                             " stickers=" + std::to_string(b.sticker_count()) +
                             " actions=" + std::to_string(b.action_count()) +
                             (b.is_tabular() ? " tabular>" : " geometric>");
    return to_python(text);
  });
}

// ---- seeding and moving, exclusive ----

constexpr char kSeedDoc[] = "seed($self, index, seed)\n--\n\nSets copy `index`'s generator state to `seed`.";
PyObject* seed(Self& self, Arguments& args) {
  std::uint64_t index = 0, state = 0;
  if (!index_argument(args, 0, self.value.count(), index) || !args.convert_one(1, state)) return nullptr;
  self.value.seed(index, state);
  Py_RETURN_NONE;
}

constexpr char kSeedAllDoc[] = "seed_all($self, seed)\n--\n\nSets copy i's generator state to seed + i.";
PyObject* seed_all(Self& self, Arguments& args) {
  std::uint64_t state = 0;
  if (!args.convert(state)) return nullptr;
  self.value.seed_all(state);
  Py_RETURN_NONE;
}

constexpr char kResetDoc[] = "reset($self, *, scramble=0)\n--\n\nSolves every copy, then walks each `scramble` moves.";
PyObject* reset(Self& self, Arguments& args) {
  std::uint32_t depth = 0;
  if (!args.convert(depth)) return nullptr;
  return to_python(released([&] { return self.value.reset_where(Selection(self.value.count(), 1), depth); }));
}

constexpr char kResetOneDoc[] =
    "reset_one($self, index, *, scramble=0)\n--\n\nSolves copy `index`, then walks it `scramble` moves.";
PyObject* reset_one(Self& self, Arguments& args) {
  std::uint64_t index = 0;
  std::uint32_t depth = 0;
  if (!index_argument(args, 0, self.value.count(), index) || !args.convert_one(1, depth)) return nullptr;
  Selection which(self.value.count(), 0);
  which[index] = 1;
  return to_python(released([&] { return self.value.reset_where(which, depth); }));
}

constexpr char kResetWhereDoc[] =
    "reset_where($self, which=None, *, scramble=0)\n--\n\n"
    "Solves the selected copies, then walks each `scramble` moves. `which` is None for all, one flag per "
    "copy, or a list of indices.";
PyObject* reset_where(Self& self, Arguments& args) {
  Selection which;
  std::uint32_t depth = 0;
  if (!which_argument(args, 0, self.value.count(), which) || !args.convert_one(1, depth)) return nullptr;
  return to_python(released([&] { return self.value.reset_where(which, depth); }));
}

constexpr char kSolveDoc[] =
    "solve($self, which=None)\n--\n\nPuts the selected copies back to solved and forgets their histories.";
PyObject* solve(Self& self, Arguments& args) {
  Selection which;
  if (!which_argument(args, 0, self.value.count(), which)) return nullptr;
  return to_python(released([&] { return self.value.solve(which); }));
}

constexpr char kScrambleDoc[] =
    "scramble($self, depth)\n--\n\n"
    "Walks every copy `depth` random moves further, or copy i depth[i] moves for a sequence.";
PyObject* scramble(Self& self, Arguments& args) {
  std::vector<std::uint32_t> depths;
  std::uint32_t depth = 0;
  if (Converter<std::uint32_t>::convert(args[0], depth)) {
    depths.assign(self.value.count(), depth);
  } else {
    PyErr_Clear();
    if (!Converter<std::vector<std::uint32_t>>::convert(args[0], depths)) {
      PyErr_Clear();
      raise(PyExc_TypeError, "expected a number of moves, or one per puzzle");
      note_argument("depth");
      return nullptr;
    }
  }
  return to_python(released([&] { return self.value.scramble(depths); }));
}

constexpr char kStepDoc[] =
    "step($self, actions)\n--\n\n"
    "One action per copy, all at once. Returns (solved, applied), two flag arrays of one entry per copy.";
PyObject* step(Self& self, Arguments& args) {
  std::vector<std::uint32_t> actions;
  if (!read_array(args[0], actions)) {
    note_argument("actions");
    return nullptr;
  }
  auto result = released([&] { return self.value.step(actions); });
  if (!result) return raise_failure(result.failure());
  PyObject* solved = array_result(std::move(result->first));
  if (solved == nullptr) return nullptr;
  PyObject* applied = array_result(std::move(result->second));
  if (applied == nullptr) {
    Py_DECREF(solved);
    return nullptr;
  }
  return Py_BuildValue("(NN)", solved, applied);
}

constexpr char kUndoDoc[] =
    "undo($self, which=None)\n--\n\n"
    "Takes back the last move of each selected copy; a flag array, true where there was one.";
PyObject* undo(Self& self, Arguments& args) {
  Selection which;
  if (!which_argument(args, 0, self.value.count(), which)) return nullptr;
  return array_result(released([&] { return self.value.undo(which); }));
}

constexpr char kApplyDoc[] =
    "apply($self, moves)\n--\n\n"
    "Makes written moves such as \"A B2' A'\" on every copy; returns how many turns each copy made.";
PyObject* apply(Self& self, Arguments& args) {
  std::string text;
  if (!args.convert(text)) return nullptr;
  return to_python(released([&] { return self.value.apply(text); }));
}

constexpr char kSetStatesDoc[] =
    "set_states($self, states, *, ids=False)\n--\n\n"
    "Puts states into the copies: one row of slot colors per copy (dealt out to the stickers of each color "
    "in slot order), or with `ids` one arrangement of the stickers per copy. A single row goes into every "
    "copy. Histories are emptied; nothing changes if any row is refused.";

template <class T>
bool read_states(PyObject* object, std::vector<std::uint32_t>& values) {
  std::vector<T> read;
  if (!read_array(object, read)) return false;
  values.assign(read.begin(), read.end());
  return true;
}

// Reads argument i at the width that `bound` gives, widened to 32 bits.
bool read_at_bound(Arguments& args, std::size_t i, std::uint64_t bound, std::vector<std::uint32_t>& values) {
  bool read = false;
  switch (whole_type_for_bound(bound)) {
    case ElementType::U8: read = read_states<std::uint8_t>(args[i], values); break;
    case ElementType::U16: read = read_states<std::uint16_t>(args[i], values); break;
    default: read = read_states<std::uint32_t>(args[i], values); break;
  }
  if (!read) note_argument(args.name(i));
  return read;
}

PyObject* set_states(Self& self, Arguments& args) {
  bool ids = false;
  if (!args.convert_one(1, ids)) return nullptr;
  const std::uint64_t bound = ids ? self.value.sticker_count() : self.value.color_count();
  std::vector<std::uint32_t> values;
  if (!read_at_bound(args, 0, bound, values)) return nullptr;
  return to_python(released([&] { return self.value.set_states(std::move(values), ids); }));
}

// ---- states in a layout's numbering ----

// The layout argument i, when it describes this batch's puzzle: the same canonical query.
const Layout* layout_argument(Self& self, Arguments& args, std::size_t i) {
  PyObject* object = args[i];
  if (!is_instance<LayoutClass>(object)) {
    raise_mismatch(object, "Layout");
    note_argument(args.name(i));
    return nullptr;
  }
  const Layout& layout = instance_of<LayoutClass>(object).value;
  if (layout.query != self.value.query()) {
    raise(PyExc_ValueError, "this layout describes " + layout.query + ", and this batch holds " + self.value.query());
    return nullptr;
  }
  return &layout;
}

// A layout conversion of every copy's row of `block`, as a block of count rows also for one copy.
template <class Convert>
Result<ArrayBuffer> convert_rows(const ArrayBuffer& block, Convert convert) {
  const auto values = [&](auto* type) {
    using T = std::remove_pointer_t<decltype(type)>;
    return std::span<const T>(reinterpret_cast<const T*>(block.bytes()), block.size());
  };
  Result<ArrayBuffer> out = block.type() == ElementType::U8    ? convert(values(static_cast<std::uint8_t*>(nullptr)))
                            : block.type() == ElementType::U16 ? convert(values(static_cast<std::uint16_t*>(nullptr)))
                                                               : convert(values(static_cast<std::uint32_t*>(nullptr)));
  if (!out || out->shape().size() == 2) return out;
  TV_TRY(ArrayBuffer rows, allocate_array(out->type(), {1, out->size()}));
  std::memcpy(rows.bytes(), out->bytes(), out->byte_size());
  return rows;
}

constexpr char kSetFaceletsDoc[] =
    "set_facelets($self, layout, facelets)\n--\n\n"
    "Puts states given in the layout's facelet order into the copies, as set_states puts colors; a single "
    "state goes into every copy.";
PyObject* set_facelets(Self& self, Arguments& args) {
  const Layout* layout = layout_argument(self, args, 0);
  std::vector<std::uint32_t> facelets;
  if (layout == nullptr || !read_at_bound(args, 1, layout->value_bound(), facelets)) return nullptr;
  return to_python(released([&]() -> Status {
    TV_TRY(const ArrayBuffer colors, tv::from_facelets(*layout, std::span<const std::uint32_t>(facelets)));
    std::vector<std::uint32_t> values(colors.size());
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<std::uint32_t>(colors.whole(i));
    return self.value.set_states(std::move(values), false);
  }));
}

constexpr char kSamePuzzleDoc[] =
    "same_puzzle($self, layout)\n--\n\n"
    "Checks that the layout was made for this batch's puzzle: ValueError naming both recipes if not.";
PyObject* same_puzzle(Self& self, Arguments& args) {
  if (layout_argument(self, args, 0) == nullptr) return nullptr;
  Py_RETURN_NONE;
}

constexpr char kFaceletsDoc[] =
    "facelets($self, layout)\n--\n\nEvery copy's colors in the layout's facelet order, shape (count, facelet_count).";
PyObject* facelets(Self& self, Arguments& args) {
  const Layout* layout = layout_argument(self, args, 0);
  if (layout == nullptr) return nullptr;
  return array_result(released([&]() -> Result<ArrayBuffer> {
    TV_TRY(const ArrayBuffer colors, self.value.observations());
    return convert_rows(colors, [&](auto values) { return tv::to_facelets(*layout, values); });
  }));
}

constexpr char kFaceletIdsDoc[] =
    "facelet_ids($self, layout)\n--\n\n"
    "Every copy's sticker identities in the layout's facelet order, shape (count, facelet_count).";
PyObject* facelet_ids(Self& self, Arguments& args) {
  const Layout* layout = layout_argument(self, args, 0);
  if (layout == nullptr) return nullptr;
  return array_result(released([&]() -> Result<ArrayBuffer> {
    TV_TRY(const ArrayBuffer ids, self.value.sticker_ids());
    return convert_rows(ids, [&](auto values) { return tv::to_facelet_ids(*layout, values); });
  }));
}

// ---- arrays of the states, exclusive ----

template <Result<ArrayBuffer> (Batch::*Query)()>
PyObject* state_array(Self& self, Arguments&) {
  return array_result(released([&] { return (self.value.*Query)(); }));
}

constexpr char kObservationsDoc[] =
    "observations($self)\n--\n\nThe color of every slot of every copy, shape (count, sticker_count).";
constexpr char kStickerIdsDoc[] =
    "sticker_ids($self)\n--\n\nFor every slot of every copy, the solved slot of the sticker there.";
constexpr char kOneHotDoc[] =
    "one_hot($self)\n--\n\nThe colors as indicators, shape (count, sticker_count * color_count).";
constexpr char kActionMasksDoc[] =
    "action_masks($self)\n--\n\nWhich actions each copy can make, shape (count, action_count).";
constexpr char kSolvedDoc[] = "solved($self)\n--\n\nWhether each copy shows its solved colors.";

// ---- the view ----

constexpr char kConfigureDoc[] =
    "configure($self, *, background=None, supersample=None, show_edges=None, show_pieces=None, line_width=None, "
    "fov=None, distance=None, yaw=None, pitch=None, camera_position=None, camera_target=None, camera_up=None)"
    "\n--\n\n"
    "Changes how the batch is drawn, for good. Angles are degrees; a camera vector given here wins over "
    "distance, yaw and pitch of the same call.";
PyObject* configure(Self& self, Arguments& args) {
  render::ViewChange change;
  std::optional<VectorArgument> position, target, up;
  if (!args.convert(change.background, change.supersample, change.show_edges, change.show_pieces,
                    change.line_width, change.fov, change.distance, change.yaw, change.pitch, position, target, up))
    return nullptr;
  if (position) change.camera_position = position->value;
  if (target) change.camera_target = target->value;
  if (up) change.camera_up = up->value;
  self.value.configure(change);
  Py_RETURN_NONE;
}

PyObject* camera(Self& self) {
  const render::Camera& c = self.value.camera();
  const auto triple = [](const render::Vector3& v) { return std::make_tuple(v[0], v[1], v[2]); };
  return to_python(std::make_tuple(triple(c.position), triple(c.target), triple(c.up), c.fov));
}

// ---- pictures ----

struct FrameArguments {
  std::uint32_t width = 256, height = 256, channels = 4;
  bool channels_first = false;
  std::string dtype = "u1";
};

// True for "f4" and "float32", false for "u1" and "uint8"; anything else raises.
std::optional<bool> dtype_is_float(const std::string& dtype) {
  if (dtype == "u1" || dtype == "uint8") return false;
  if (dtype == "f4" || dtype == "float32") return true;
  PyErr_SetString(PyExc_ValueError, ("dtype must be \"u1\" or \"f4\", not " + quoted_plain(dtype)).c_str());
  return std::nullopt;
}

constexpr char kRenderDoc[] =
    "render($self, width=256, height=256, *, channels=4, channels_first=False, dtype=\"u1\")\n--\n\n"
    "Every copy's frame as one Array of shape (count, height, width, channels), or (count, channels, height, "
    "width) with `channels_first`: bytes for dtype \"u1\", floats from 0.0 to 1.0 for \"f4\". Channels are "
    "r, g, b and, with 4, a. A copy's picture is painted by lookup from the solved puzzle's.";
PyObject* render(Self& self, Arguments& args) {
  FrameArguments a;
  if (!args.convert(a.width, a.height, a.channels, a.channels_first, a.dtype)) return nullptr;
  const auto floats = dtype_is_float(a.dtype);
  if (!floats) return nullptr;
  auto block = released([&] { return self.value.render(a.width, a.height, a.channels, a.channels_first, *floats); });
  if (!block) return raise_failure(block.failure());
  return array_result(std::move(block).value());
}

constexpr char kRenderStatesDoc[] =
    "render_states($self, states, width=256, height=256, *, channels=4, channels_first=False, dtype=\"u1\")\n--\n\n"
    "Frames of states given as colors, one row of sticker_count colors per frame, laid out as render lays out "
    "the batch's own; the batch is not touched. A color past the palette paints opaque black.";
PyObject* render_states(Self& self, Arguments& args) {
  FrameArguments a;
  PyObject* states_argument = nullptr;
  if (!args.convert(states_argument, a.width, a.height, a.channels, a.channels_first, a.dtype)) return nullptr;
  std::vector<std::uint32_t> states;
  if (!read_array(states_argument, states)) {
    note_argument("states");
    return nullptr;
  }
  auto block = released([&] { return self.value.render_states(states, a.width, a.height, a.channels, a.channels_first); });
  if (!block) return raise_failure(block.failure());
  const auto floats = dtype_is_float(a.dtype);
  if (!floats) return nullptr;
  if (!*floats) return array_result(std::move(block).value());
  auto converted = released([&] { return bytes_as_floats(*block); });
  if (!converted) return raise_failure(converted.failure());
  return array_result(std::move(converted).value());
}

constexpr char kFramesDoc[] =
    "frames($self, width=256, height=256)\n--\n\n"
    "Every copy's frame as its own Image, in copy order.";
PyObject* frames(Self& self, Arguments& args) {
  std::uint32_t width = 256, height = 256;
  if (!args.convert(width, height)) return nullptr;
  auto block = released([&] { return self.value.render(width, height, 4, false, false); });
  if (!block) return raise_failure(block.failure());
  const std::size_t stretch = std::size_t{width} * height * 4;
  const std::uint64_t count = block->shape()[0];
  PyObject* list = PyList_New(static_cast<Py_ssize_t>(count));
  if (list == nullptr) return nullptr;
  for (std::uint64_t i = 0; i < count; ++i) {
    auto image = render::Framebuffer::from_bytes(width, height, {block->bytes() + i * stretch, stretch});
    PyObject* object = image ? image_object(std::move(image).value()) : raise_failure(image.failure());
    if (object == nullptr) {
      Py_DECREF(list);
      return nullptr;
    }
    PyList_SET_ITEM(list, static_cast<Py_ssize_t>(i), object);
  }
  return list;
}

PyMethodDef methods[] = {
    TV_METHOD(BatchClass, "action_index", kActionIndexDoc, Access::Shared, action_index),
    TV_METHOD(BatchClass, "seed", kSeedDoc, Access::Exclusive, seed),
    TV_METHOD(BatchClass, "seed_all", kSeedAllDoc, Access::Exclusive, seed_all),
    TV_METHOD(BatchClass, "reset", kResetDoc, Access::Exclusive, reset),
    TV_METHOD(BatchClass, "reset_one", kResetOneDoc, Access::Exclusive, reset_one),
    TV_METHOD(BatchClass, "reset_where", kResetWhereDoc, Access::Exclusive, reset_where),
    TV_METHOD(BatchClass, "solve", kSolveDoc, Access::Exclusive, solve),
    TV_METHOD(BatchClass, "scramble", kScrambleDoc, Access::Exclusive, scramble),
    TV_METHOD(BatchClass, "step", kStepDoc, Access::Exclusive, step),
    TV_METHOD(BatchClass, "history", kHistoryDoc, Access::Shared, history),
    TV_METHOD(BatchClass, "undo", kUndoDoc, Access::Exclusive, undo),
    TV_METHOD(BatchClass, "apply", kApplyDoc, Access::Exclusive, apply),
    TV_METHOD(BatchClass, "set_states", kSetStatesDoc, Access::Exclusive, set_states),
    TV_METHOD(BatchClass, "set_facelets", kSetFaceletsDoc, Access::Exclusive, set_facelets),
    TV_METHOD(BatchClass, "observations", kObservationsDoc, Access::Exclusive, state_array<&Batch::observations>),
    TV_METHOD(BatchClass, "sticker_ids", kStickerIdsDoc, Access::Exclusive, state_array<&Batch::sticker_ids>),
    TV_METHOD(BatchClass, "one_hot", kOneHotDoc, Access::Exclusive, state_array<&Batch::one_hot>),
    TV_METHOD(BatchClass, "action_masks", kActionMasksDoc, Access::Exclusive, state_array<&Batch::action_masks>),
    TV_METHOD(BatchClass, "solved", kSolvedDoc, Access::Exclusive, state_array<&Batch::solved>),
    TV_METHOD(BatchClass, "render", kRenderDoc, Access::Exclusive, render),
    TV_METHOD(BatchClass, "same_puzzle", kSamePuzzleDoc, Access::Shared, same_puzzle),
    TV_METHOD(BatchClass, "facelets", kFaceletsDoc, Access::Exclusive, facelets),
    TV_METHOD(BatchClass, "facelet_ids", kFaceletIdsDoc, Access::Exclusive, facelet_ids),
    TV_METHOD(BatchClass, "render_states", kRenderStatesDoc, Access::Exclusive, render_states),
    TV_METHOD(BatchClass, "frames", kFramesDoc, Access::Exclusive, frames),
    TV_METHOD(BatchClass, "configure", kConfigureDoc, Access::Exclusive, configure),
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef getset[] = {
    TV_GETTER(BatchClass, "query", "The recipe as a query string.", query),
    TV_GETTER(BatchClass, "is_tabular", "Whether moves are fixed permutations, stepped as array gathers.", is_tabular),
    TV_GETTER(BatchClass, "sticker_count", "The puzzle's sticker slots.", sticker_count),
    TV_GETTER(BatchClass, "action_count", "Twice the puzzle's grips: each turns either way.", action_count),
    TV_GETTER(BatchClass, "color_count", "The puzzle's colors.", color_count),
    TV_GETTER(BatchClass, "actions", "Every move name, in action order.", actions),
    TV_GETTER(BatchClass, "grip_names", "One name per grip.", grip_names),
    TV_GETTER(BatchClass, "solved_stickers", "The solved color of each slot.", solved_stickers),
    TV_GETTER(BatchClass, "palette", "One 0xRRGGBB word per color.", palette),
    TV_GETTER(BatchClass, "permutations", "Each action's permutation of the slots, one row per action.",
              permutations),
    TV_GETTER(BatchClass, "move_counts", "How many moves each copy made since it was last solved.", move_counts),
    TV_GETTER(BatchClass, "camera", "(position, target, up, fov) of the view, fov in degrees.", camera),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char*>(kDoc)},
    {Py_tp_new, reinterpret_cast<void*>(&constructor_entry<BatchClass, kDoc, construct>)},
    {Py_tp_dealloc, reinterpret_cast<void*>(&deallocate<BatchClass>)},
    {Py_tp_repr, reinterpret_cast<void*>(&repr)},
    {Py_mp_length, reinterpret_cast<void*>(&length)},
    {Py_tp_methods, methods},
    {Py_tp_getset, getset},
    {0, nullptr},
};

PyType_Spec type_spec = {"torvane._native.PuzzleBatch", 0, 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE, slots};

}  // namespace

PyObject* batch_class() { return create_type<BatchClass>(type_spec); }

}  // namespace tv::py
