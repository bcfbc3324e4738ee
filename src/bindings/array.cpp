// Python's Array: a read-only block of numbers that NumPy can view in place through the array
// interface, and read_array, the way blocks of whole numbers come back in.
//
// The interface hands NumPy the buffer's address with the read-only flag clear, so a NumPy
// view can be written; nothing in the module ever writes an Array after making it, so only a
// caller that writes through such a view changes one.
#include "bindings/arrays.hpp"

#include <charconv>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

#include "bindings/results.hpp"

namespace tv::py {
namespace {

using Self = Instance<ArrayBuffer>;

PyObject* element(const ArrayBuffer& a, std::size_t i) {
  switch (a.type()) {
    case ElementType::Flag: return to_python(a.whole(i) != 0);
    case ElementType::F32: return to_python(static_cast<double>(a.real(i)));
    default: return to_python(a.whole(i));
  }
}

PyObject* elements(const ArrayBuffer& a, std::size_t begin, std::size_t end) {
  PyObject* list = PyList_New(static_cast<Py_ssize_t>(end - begin));
  if (list == nullptr) return nullptr;
  for (std::size_t i = begin; i < end; ++i) {
    PyObject* item = element(a, i);
    if (item == nullptr) {
      Py_DECREF(list);
      return nullptr;
    }
    PyList_SET_ITEM(list, static_cast<Py_ssize_t>(i - begin), item);
  }
  return list;
}

PyObject* shape_tuple(const ArrayBuffer& a) { return to_python(a.shape()); }

PyObject* shape(Self& self) {
  PyObject* list = shape_tuple(self.value);
  if (list == nullptr) return nullptr;
  PyObject* tuple = PyList_AsTuple(list);
  Py_DECREF(list);
  return tuple;
}
PyObject* typestr(Self& self) { return PyUnicode_FromString(self.value.typestr()); }
PyObject* itemsize(Self& self) { return to_python(static_cast<std::uint64_t>(self.value.itemsize())); }
PyObject* size(Self& self) { return to_python(static_cast<std::uint64_t>(self.value.size())); }

// Sets dict[key] to `value`, a new reference that this consumes; false on failure.
bool set_item(PyObject* dict, const char* key, PyObject* value) {
  if (value == nullptr) return false;
  const bool ok = PyDict_SetItemString(dict, key, value) == 0;
  Py_DECREF(value);
  return ok;
}

PyObject* array_interface(Self& self) {
  PyObject* dict = PyDict_New();
  if (dict == nullptr) return nullptr;
  const bool ok = set_item(dict, "shape", shape(self)) &&
                  set_item(dict, "typestr", PyUnicode_FromString(self.value.typestr())) &&
                  set_item(dict, "version", PyLong_FromLong(3)) &&
                  set_item(dict, "data", Py_BuildValue("(Ni)", PyLong_FromVoidPtr(self.value.bytes()), 0));
  if (!ok) {
    Py_DECREF(dict);
    return nullptr;
  }
  return dict;
}

constexpr char kToListDoc[] = "tolist($self)\n--\n\nEvery element in order, as one flat list.";
PyObject* tolist(Self& self, Arguments&) { return elements(self.value, 0, self.value.size()); }

constexpr char kToBytesDoc[] = "to_bytes($self)\n--\n\nA copy of the buffer: little-endian, row-major, packed.";
PyObject* to_bytes(Self& self, Arguments&) {
  return PyBytes_FromStringAndSize(reinterpret_cast<const char*>(self.value.bytes()),
                                   static_cast<Py_ssize_t>(self.value.byte_size()));
}

std::size_t first_axis(const ArrayBuffer& a) { return static_cast<std::size_t>(a.shape()[0]); }

Py_ssize_t length(PyObject* object) {
  Self& self = instance_of<ArrayClass>(object);
  Borrow borrow(self.access, Access::Shared);
  if (!borrow) return -1;
  return static_cast<Py_ssize_t>(first_axis(self.value));
}

// a[i]: the element of a one-axis array, else row i as one flat list.
PyObject* subscript(PyObject* object, PyObject* key) {
  return guarded([&]() -> PyObject* {
    Self& self = instance_of<ArrayClass>(object);
    Borrow borrow(self.access, Access::Shared);
    if (!borrow) return nullptr;
    PyObject* index_object = PyNumber_Index(key);
    if (index_object == nullptr) return nullptr;
    int overflow = 0;
    long long index = PyLong_AsLongLongAndOverflow(index_object, &overflow);
    Py_DECREF(index_object);
    if (index == -1 && PyErr_Occurred()) return nullptr;
    const auto rows = static_cast<long long>(first_axis(self.value));
    if (overflow == 0 && index < 0) index += rows;
    if (overflow != 0 || index < 0 || index >= rows) {
      PyErr_SetString(PyExc_IndexError, "index out of range");
      return nullptr;
    }
    const auto row = static_cast<std::size_t>(index);
    if (self.value.shape().size() == 1) return element(self.value, row);
    const std::size_t width = self.value.size() / first_axis(self.value);
    return elements(self.value, row * width, (row + 1) * width);
  });
}

PyObject* repr(PyObject* object) {
  return guarded([&]() -> PyObject* {
    Self& self = instance_of<ArrayClass>(object);
    Borrow borrow(self.access, Access::Shared);
    if (!borrow) return nullptr;
    std::string text = "<Array shape=(";
    const auto& axes = self.value.shape();
    for (std::size_t i = 0; i < axes.size(); ++i) text += (i > 0 ? ", " : "") + std::to_string(axes[i]);
    if (axes.size() == 1) text += ",";
    text += std::string(") dtype=") + self.value.typestr() + ">";
    return to_python(text);
  });
}

constexpr char kDoc[] =
    "A block of numbers made by the module: a packed buffer, a shape and a NumPy type string. "
    "numpy.asarray views it without a copy.";

PyMethodDef methods[] = {
    TV_METHOD(ArrayClass, "tolist", kToListDoc, Access::Shared, tolist),
    TV_METHOD(ArrayClass, "to_bytes", kToBytesDoc, Access::Shared, to_bytes),
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef getset[] = {
    TV_GETTER(ArrayClass, "shape", "The axes, outermost first.", shape),
    TV_GETTER(ArrayClass, "typestr", "The NumPy type string: |b1, |u1, <u2, <u4 or <f4.", typestr),
    TV_GETTER(ArrayClass, "itemsize", "Bytes per element.", itemsize),
    TV_GETTER(ArrayClass, "size", "How many elements in all.", size),
    TV_GETTER(ArrayClass, "__array_interface__", "NumPy's view of the buffer, version 3.", array_interface),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char*>(kDoc)},
    {Py_tp_dealloc, reinterpret_cast<void*>(&deallocate<ArrayClass>)},
    {Py_tp_repr, reinterpret_cast<void*>(&repr)},
    {Py_mp_length, reinterpret_cast<void*>(&length)},
    {Py_mp_subscript, reinterpret_cast<void*>(&subscript)},
    {Py_tp_methods, methods},
    {Py_tp_getset, getset},
    {0, nullptr},
};

PyType_Spec type_spec = {"torvane._native.Array", 0, 0,
                         Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};

// ---- reading arrays back ----

constexpr char kNotWhole[] = "expected an array of whole numbers, not one of ";
constexpr char kNotAnArray[] = "expected an array, a buffer, or a sequence of whole numbers";

// Appends values narrowed to T, remembering the first that does not fit.
template <class T>
class Narrowing {
 public:
  explicit Narrowing(std::vector<T>& out) : out_(out) {}
  void push(std::uint64_t value) {
    if (value > std::numeric_limits<T>::max() && !misfit_) {
      misfit_ = true;
      first_misfit_ = value;
    }
    out_.push_back(static_cast<T>(value));
  }
  bool finish() const {
    if (!misfit_) return true;
    const std::uint64_t values = std::uint64_t{std::numeric_limits<T>::max()} + 1;
    PyErr_Format(PyExc_ValueError, "%llu does not fit the %llu values this puzzle's arrays hold",
                 static_cast<unsigned long long>(first_misfit_), static_cast<unsigned long long>(values));
    return false;
  }

 private:
  std::vector<T>& out_;
  bool misfit_ = false;
  std::uint64_t first_misfit_ = 0;
};

// The common case in one tight loop: `count` little-endian elements of type S at `data`, each
// converted to T. False, with `out` unspecified and no error set, when any element is negative
// or does not fit T: the caller then reads again element by element for the exact error.
template <class S, class T>
bool read_fitting(const std::uint8_t* data, std::size_t count, std::vector<T>& out) {
  out.resize(count);
  bool misfit = false;
  for (std::size_t i = 0; i < count; ++i) {
    S value;
    std::memcpy(&value, data + i * sizeof(S), sizeof(S));
    if constexpr (std::is_signed_v<S>) misfit |= value < 0;
    misfit |= static_cast<std::make_unsigned_t<S>>(value) > std::numeric_limits<T>::max();
    out[i] = static_cast<T>(value);
  }
  return !misfit;
}

template <class T>
bool read_array_object(PyObject* object, std::vector<T>& out) {
  Self& self = instance_of<ArrayClass>(object);
  Borrow borrow(self.access, Access::Shared);
  if (!borrow) return false;
  const ArrayBuffer& a = self.value;
  if (a.type() == ElementType::Flag || a.type() == ElementType::F32) {
    raise(PyExc_TypeError, std::string(kNotWhole) + a.typestr());
    return false;
  }
  const bool fits = a.type() == ElementType::U8    ? read_fitting<std::uint8_t>(a.bytes(), a.size(), out)
                    : a.type() == ElementType::U16 ? read_fitting<std::uint16_t>(a.bytes(), a.size(), out)
                                                   : read_fitting<std::uint32_t>(a.bytes(), a.size(), out);
  if (fits) return true;
  out.clear();
  Narrowing<T> narrowing(out);
  for (std::size_t i = 0; i < a.size(); ++i) narrowing.push(a.whole(i));
  return narrowing.finish();
}

// A value of the dict, as a new reference; nullptr with no error when it is absent.
PyObject* dict_item(PyObject* dict, const char* key) {
  PyObject* key_object = PyUnicode_FromString(key);
  if (key_object == nullptr) return nullptr;
  PyObject* value = nullptr;
  PyDict_GetItemRef(dict, key_object, &value);
  Py_DECREF(key_object);
  return value;
}

struct ElementFormat {
  bool big_endian = false;
  bool is_signed = false;
  std::size_t width = 0;
};

// "<i8", "|u1", ">u2": byte order, kind u or i, width 1, 2, 4 or 8 in decimal.
bool parse_format(PyObject* typestr, ElementFormat& format) {
  PyObject* text_object = PyObject_Str(typestr);
  if (text_object == nullptr) return false;
  Py_ssize_t size = 0;
  const char* chars = PyUnicode_AsUTF8AndSize(text_object, &size);
  if (chars == nullptr) {
    Py_DECREF(text_object);
    return false;
  }
  const std::string text(chars, static_cast<std::size_t>(size));
  Py_DECREF(text_object);
  std::size_t width = 0;
  bool ok = text.size() >= 3 && (text[1] == 'u' || text[1] == 'i');
  if (ok) {
    const auto [end, error] = std::from_chars(text.data() + 2, text.data() + text.size(), width);
    ok = error == std::errc() && end == text.data() + text.size() && (width == 1 || width == 2 || width == 4 || width == 8);
  }
  if (!ok) {
    raise(PyExc_TypeError, kNotWhole + text);
    return false;
  }
  format = {text[0] == '>', text[1] == 'i', width};
  return true;
}

// The element at `p`, sign-extended for a signed kind.
std::int64_t decode(const std::uint8_t* p, const ElementFormat& format, bool& negative) {
  std::uint64_t bits = 0;
  if (!format.big_endian) {
    std::memcpy(&bits, p, format.width);  // the host is little-endian
  } else {
    for (std::size_t k = 0; k < format.width; ++k) bits |= std::uint64_t{p[k]} << 8 * (format.width - 1 - k);
  }
  negative = format.is_signed && (bits >> (8 * format.width - 1)) != 0;
  return static_cast<std::int64_t>(bits);
}

template <class T>
bool read_fitting_format(const std::uint8_t* data, std::size_t count, const ElementFormat& format,
                         std::vector<T>& out) {
  switch (static_cast<int>(format.width) * (format.is_signed ? -1 : 1)) {
    case 1: return read_fitting<std::uint8_t>(data, count, out);
    case 2: return read_fitting<std::uint16_t>(data, count, out);
    case 4: return read_fitting<std::uint32_t>(data, count, out);
    case 8: return read_fitting<std::uint64_t>(data, count, out);
    case -1: return read_fitting<std::int8_t>(data, count, out);
    case -2: return read_fitting<std::int16_t>(data, count, out);
    case -4: return read_fitting<std::int32_t>(data, count, out);
    default: return read_fitting<std::int64_t>(data, count, out);
  }
}

template <class T>
bool read_elements(const std::uint8_t* data, std::size_t length, const ElementFormat& format, std::vector<T>& out) {
  const std::size_t count = length / format.width;
  if (!format.big_endian && read_fitting_format(data, count, format, out)) return true;
  out.clear();
  out.reserve(count);
  Narrowing<T> narrowing(out);
  for (std::size_t i = 0; i < count; ++i) {
    bool negative = false;
    const auto bits = static_cast<std::uint64_t>(decode(data + i * format.width, format, negative));
    if (negative) {
      raise(PyExc_ValueError,
            "a sticker, a face and a move are all counted from zero, and this array holds a negative number");
      return false;
    }
    if (bits > 0xFFFFFFFFull) {
      raise(PyExc_ValueError, "this array holds a number too large for a sticker slot");
      return false;
    }
    narrowing.push(bits);
  }
  return narrowing.finish();
}

// The content as bytes(object) gives it: read in place when the object exports a contiguous
// buffer and has no __bytes__ of its own, else through bytes().
template <class T>
bool read_content(PyObject* object, const ElementFormat& format, std::vector<T>& out) {
  PyObject* type = reinterpret_cast<PyObject*>(Py_TYPE(object));
  if (PyObject_CheckBuffer(object) && !PyObject_HasAttrString(type, "__bytes__")) {
    Py_buffer view;
    if (PyObject_GetBuffer(object, &view, PyBUF_C_CONTIGUOUS) == 0) {
      const bool ok = read_elements(static_cast<const std::uint8_t*>(view.buf), static_cast<std::size_t>(view.len),
                                    format, out);
      PyBuffer_Release(&view);
      return ok;
    }
    PyErr_Clear();
  }
  PyObject* bytes = PyObject_Bytes(object);
  if (bytes == nullptr) return false;
  const bool ok = read_elements(reinterpret_cast<const std::uint8_t*>(PyBytes_AS_STRING(bytes)),
                                static_cast<std::size_t>(PyBytes_GET_SIZE(bytes)), format, out);
  Py_DECREF(bytes);
  return ok;
}

enum class Way { Applied, Failed, NotApplicable };

// An object with a contiguous __array_interface__ of whole numbers. Only a missing attribute
// means "not this way"; any other failure of the lookup is the caller's and passes up.
template <class T>
Way read_interface(PyObject* object, std::vector<T>& out) {
  PyObject* interface = PyObject_GetAttrString(object, "__array_interface__");
  if (interface == nullptr) {
    if (!PyErr_ExceptionMatches(PyExc_AttributeError)) return Way::Failed;
    PyErr_Clear();
    return Way::NotApplicable;
  }
  Way way = Way::NotApplicable;
  if (PyDict_Check(interface)) {
    PyObject* strides = dict_item(interface, "strides");
    PyObject* typestr = dict_item(interface, "typestr");
    if (PyErr_Occurred()) {
      way = Way::Failed;
    } else if ((strides == nullptr || strides == Py_None) && typestr != nullptr) {
      ElementFormat format;
      way = parse_format(typestr, format) && read_content(object, format, out) ? Way::Applied : Way::Failed;
    }
    Py_XDECREF(strides);
    Py_XDECREF(typestr);
  }
  Py_DECREF(interface);
  return way;
}

// A sequence of whole numbers, or of sequences of them; a conversion failure of either is
// replaced by the one TypeError, while a value that converts keeps its fit test.
template <class T>
bool read_sequence(PyObject* object, std::vector<T>& out) {
  std::vector<std::uint32_t> flat;
  if (!Converter<std::vector<std::uint32_t>>::convert(object, flat)) {
    PyErr_Clear();
    std::vector<std::vector<std::uint32_t>> rows;
    if (!Converter<std::vector<std::vector<std::uint32_t>>>::convert(object, rows)) {
      PyErr_Clear();
      raise(PyExc_TypeError, kNotAnArray);
      return false;
    }
    for (const auto& row : rows) flat.insert(flat.end(), row.begin(), row.end());
  }
  out.clear();
  out.reserve(flat.size());
  Narrowing<T> narrowing(out);
  for (std::uint32_t v : flat) narrowing.push(v);
  return narrowing.finish();
}

}  // namespace

PyObject* array_class() { return create_type<ArrayClass>(type_spec); }

PyObject* array_object(ArrayBuffer buffer) { return wrap<ArrayClass>(std::move(buffer)); }

template <class T>
bool read_array(PyObject* object, std::vector<T>& out) {
  if (is_instance<ArrayClass>(object)) return read_array_object(object, out);
  switch (read_interface(object, out)) {
    case Way::Applied: return true;
    case Way::Failed: return false;
    case Way::NotApplicable: break;
  }
  return read_sequence(object, out);
}

template bool read_array<std::uint8_t>(PyObject*, std::vector<std::uint8_t>&);
template bool read_array<std::uint16_t>(PyObject*, std::vector<std::uint16_t>&);
template bool read_array<std::uint32_t>(PyObject*, std::vector<std::uint32_t>&);

}  // namespace tv::py
