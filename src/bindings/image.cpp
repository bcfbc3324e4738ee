// Python's Image: an RGBA8 picture over a Framebuffer, with drawing, the built-in font and PNG
// output. Methods that change pixels take the image exclusively, the rest shared; the box
// average, the resize, blit and PNG encoding run with the interpreter released.
#include "bindings/classes.hpp"
#include "bindings/colors.hpp"
#include "bindings/entry.hpp"
#include "bindings/results.hpp"
#include "render/font.hpp"
#include "render/framebuffer.hpp"
#include "render/png.hpp"

namespace tv::py {
namespace {

using render::Color;
using render::Framebuffer;

struct ImageClass {
  using Value = Framebuffer;
  static constexpr char name[] = "Image";
};

// Pixel data for from_bytes: an immutable bytes object is read in place, anything else is
// copied by the rule for list-valued arguments.
struct PixelData {
  std::span<const std::uint8_t> view;
  std::vector<std::uint8_t> owned;
};

// The `src` of blit: an Image, borrowed.
struct ImageArgument {
  PyObject* object = nullptr;
};

}  // namespace

template <>
struct Converter<PixelData> {
  static bool convert(PyObject* object, PixelData& out) {
    if (PyBytes_Check(object)) {
      out.view = {reinterpret_cast<const std::uint8_t*>(PyBytes_AS_STRING(object)),
                  static_cast<std::size_t>(PyBytes_GET_SIZE(object))};
      return true;
    }
    if (PyByteArray_Check(object)) {
      Py_BEGIN_CRITICAL_SECTION(object);
      const auto* begin = reinterpret_cast<const std::uint8_t*>(PyByteArray_AS_STRING(object));
      out.owned.assign(begin, begin + PyByteArray_GET_SIZE(object));
      Py_END_CRITICAL_SECTION();
    } else if (!Converter<std::vector<std::uint8_t>>::convert(object, out.owned)) {
      return false;
    }
    out.view = out.owned;
    return true;
  }
};

template <>
struct Converter<ImageArgument> {
  static bool convert(PyObject* object, ImageArgument& out) {
    if (!is_instance<ImageClass>(object)) {
      raise_mismatch(object, "Image");
      return false;
    }
    out.object = object;
    return true;
  }
};

namespace {

using Self = Instance<Framebuffer>;

PyObject* wrap_result(Result<Framebuffer>&& result) {
  if (!result) return raise_failure(result.failure());
  return wrap<ImageClass>(std::move(result).value());
}

PyObject* pixel_out_of_range() { return raise(PyExc_IndexError, "pixel out of range"); }

PyObject* color_tuple(Color c) {
  return to_python(std::tuple{static_cast<std::uint8_t>(render::channel(c, 0)),
                              static_cast<std::uint8_t>(render::channel(c, 1)),
                              static_cast<std::uint8_t>(render::channel(c, 2)), static_cast<std::uint8_t>(render::alpha(c))});
}

PyObject* bytes_of(std::span<const std::uint8_t> bytes) {
  return PyBytes_FromStringAndSize(reinterpret_cast<const char*>(bytes.data()), static_cast<Py_ssize_t>(bytes.size()));
}

constexpr char kDoc[] =
    "Image(width, height, color=(0, 0, 0, 0))\n--\n\n"
    "An RGBA8 picture: packed, top row first, not premultiplied. Colors are tuples (r, g, b, a)\n"
    "of integers from 0 to 255; every pixel starts as `color`.";

PyObject* construct(PyTypeObject* type, Arguments& args) {
  std::uint32_t width = 0, height = 0;
  ColorArgument color;
  if (!args.convert(width, height, color)) return nullptr;
  Result<Framebuffer> image = Framebuffer::create(width, height, color.word);
  if (!image) return raise_failure(image.failure());
  return wrap<ImageClass>(std::move(image).value(), type);
}

constexpr char kFromBytesDoc[] =
    "from_bytes(width, height, data)\n--\n\n"
    "An image holding a copy of `data`: bytes, bytearray or a sequence of integers from 0 to 255,\n"
    "width * height * 4 of them, row after row, r, g, b, a.";

PyObject* from_bytes(Arguments& args) {
  std::uint32_t width = 0, height = 0;
  PixelData data;
  if (!args.convert(width, height, data)) return nullptr;
  return wrap_result(Framebuffer::from_bytes(width, height, data.view));
}

PyObject* width(Self& self) { return to_python(self.value.width()); }
PyObject* height(Self& self) { return to_python(self.value.height()); }
PyObject* stride(Self& self) { return to_python(static_cast<std::uint64_t>(self.value.stride())); }

// A writable NumPy view of the pixels. The array's base keeps this image alive, and the view
// holds no access, since the buffer never moves for the life of the image.
PyObject* array_interface(Self& self) {
  PyObject* address = PyLong_FromVoidPtr(self.value.data());
  return Py_BuildValue("{s:(IIi),s:s,s:i,s:(Ni)}", "shape", self.value.height(), self.value.width(), 4, "typestr",
                       "|u1", "version", 3, "data", address, 0);
}

constexpr char kToBytesDoc[] = "to_bytes($self)\n--\n\nA copy of the pixel data.";
PyObject* to_bytes(Self& self, Arguments&) { return bytes_of(self.value.bytes()); }

constexpr char kCopyDoc[] = "copy($self)\n--\n\nA new image with a copy of the pixels.";
PyObject* copy(Self& self, Arguments&) { return wrap<ImageClass>(Framebuffer(self.value)); }

constexpr char kPixelDoc[] = "pixel($self, x, y)\n--\n\nThe color at column x, row y.";
PyObject* pixel(Self& self, Arguments& args) {
  std::uint32_t x = 0, y = 0;
  if (!args.convert(x, y)) return nullptr;
  if (!self.value.contains(x, y)) return pixel_out_of_range();
  return color_tuple(self.value.pixel(x, y));
}

constexpr char kSetPixelDoc[] = "set_pixel($self, x, y, color)\n--\n\nReplaces one pixel, without blending.";
PyObject* set_pixel(Self& self, Arguments& args) {
  std::uint32_t x = 0, y = 0;
  ColorArgument color;
  if (!args.convert(x, y, color)) return nullptr;
  if (!self.value.contains(x, y)) return pixel_out_of_range();
  self.value.set_pixel(x, y, color.word);
  Py_RETURN_NONE;
}

constexpr char kFillDoc[] = "fill($self, color)\n--\n\nSets every pixel to `color`.";
PyObject* fill(Self& self, Arguments& args) {
  ColorArgument color;
  if (!args.convert(color)) return nullptr;
  self.value.fill(color.word);
  Py_RETURN_NONE;
}

constexpr char kFillRectDoc[] =
    "fill_rect($self, x, y, width, height, color, mode='copy')\n--\n\n"
    "Blends `color` into the rectangle, clipped to the image. `mode` is 'copy', 'over', 'add' or\n"
    "'additive'.";
PyObject* fill_rect(Self& self, Arguments& args) {
  std::int64_t x = 0, y = 0;
  std::uint32_t width = 0, height = 0;
  ColorArgument color;
  std::string mode_text = "copy";
  if (!args.convert(x, y, width, height, color, mode_text)) return nullptr;
  const Result<render::BlendMode> mode = render::parse_blend_mode(mode_text);
  if (!mode) return raise_failure(mode.failure());
  self.value.fill_rect(x, y, width, height, color.word, *mode);
  Py_RETURN_NONE;
}

constexpr char kBlitDoc[] =
    "blit($self, src, x=0, y=0, src_x=0, src_y=0, src_width=None, src_height=None, mode='copy')\n--\n\n"
    "Blends the rectangle of `src` at (src_x, src_y), by default all of it, into this image with\n"
    "its corner at (x, y). Both rectangles are clipped; `src` must be another image.";
PyObject* blit(Self& self, Arguments& args) {
  ImageArgument src;
  render::BlitPlacement at;
  std::optional<std::uint32_t> src_width, src_height;
  std::string mode_text = "copy";
  if (!args.convert(src, at.x, at.y, at.src_x, at.src_y, src_width, src_height, mode_text)) return nullptr;
  const Result<render::BlendMode> mode = render::parse_blend_mode(mode_text);
  if (!mode) return raise_failure(mode.failure());
  auto& source = instance_of<ImageClass>(src.object);
  Borrow borrow(source.access, Access::Shared);
  if (!borrow) return nullptr;
  at.src_width = src_width.value_or(source.value.width());
  at.src_height = src_height.value_or(source.value.height());
  released([&] { self.value.blit(source.value, at, *mode); });
  Py_RETURN_NONE;
}

constexpr char kDrawTextDoc[] =
    "draw_text($self, x, y, text, color=(0, 0, 0, 255), scale=1, mode='over', center=False)\n--\n\n"
    "Draws `text` in the built-in font with its top-left corner at (x, y), each font pixel a\n"
    "scale x scale square; with `center`, each line is centered on x. Characters outside\n"
    "printable ASCII are drawn as '?'. Returns the width of the widest line.";
PyObject* draw_text(Self& self, Arguments& args) {
  std::int64_t x = 0, y = 0;
  std::string text;
  ColorArgument color{render::make_color(0, 0, 0, 255)};
  render::TextStyle style;
  std::string mode_text = "over";
  if (!args.convert(x, y, text, color, style.scale, mode_text, style.center)) return nullptr;
  const Result<render::BlendMode> mode = render::parse_blend_mode(mode_text);
  if (!mode) return raise_failure(mode.failure());
  style.color = color.word;
  style.mode = *mode;
  return to_python(render::draw_text(self.value, x, y, text, style));
}

constexpr char kTextSizeDoc[] =
    "text_size(text, scale=1)\n--\n\n"
    "(width, height) of `text` as draw_text lays it out: the widest line, and 9 * scale for\n"
    "one line plus 11 * scale for each further line.";
PyObject* text_size(Arguments& args) {
  std::string text;
  std::uint32_t scale = 1;
  if (!args.convert(text, scale)) return nullptr;
  const auto [width, height] = render::text_size(text, scale);
  return to_python(std::tuple{width, height});
}

constexpr char kFitTextDoc[] =
    "fit_text(text, max_width, scale=1)\n--\n\n"
    "`text` if its first line fits `max_width`, else its longest prefix that fits together with\n"
    "'...', followed by '...'. The result can be `scale` pixels wider than `max_width`.";
PyObject* fit_text(Arguments& args) {
  std::string text;
  std::uint32_t max_width = 0, scale = 1;
  if (!args.convert(text, max_width, scale)) return nullptr;
  return to_python(render::fit_text(text, max_width, scale));
}

constexpr char kDownsampleDoc[] =
    "downsample($self, factor)\n--\n\n"
    "A new image 1/factor the size, each pixel the rounded average of a factor x factor block;\n"
    "columns and rows that do not fill a block are dropped.";
PyObject* downsample(Self& self, Arguments& args) {
  std::uint32_t factor = 0;
  if (!args.convert(factor)) return nullptr;
  return wrap_result(released([&] { return self.value.downsample(factor); }));
}

constexpr char kResizedDoc[] = "resized($self, width, height)\n--\n\nA new image of the given size, nearest neighbor.";
PyObject* resized(Self& self, Arguments& args) {
  std::uint32_t width = 0, height = 0;
  if (!args.convert(width, height)) return nullptr;
  return wrap_result(released([&] { return self.value.resized(width, height); }));
}

constexpr char kToPngDoc[] = "to_png($self)\n--\n\nThe image as a PNG file: 8-bit RGBA, one IDAT, no other chunks.";
PyObject* to_png(Self& self, Arguments&) {
  Result<std::vector<std::uint8_t>> file = released([&] { return render::encode_png(self.value); });
  if (!file) return raise_failure(file.failure());
  return bytes_of(*file);
}

constexpr char kSaveDoc[] =
    "save($self, path)\n--\n\n"
    "Writes to_png()'s bytes to `path`, creating or truncating the file.";
PyObject* save(Self& self, Arguments& args) {
  std::string path;
  if (!args.convert(path)) return nullptr;
  return to_python(released([&] { return render::save_png(self.value, path); }));
}

PyObject* repr(PyObject* object) {
  return guarded([&]() -> PyObject* {
    Self& self = instance_of<ImageClass>(object);
    Borrow borrow(self.access, Access::Shared);
    if (!borrow) return nullptr;
    return PyUnicode_FromFormat("<Image %ux%u RGBA8>", self.value.width(), self.value.height());
  });
}

Py_ssize_t length(PyObject* object) {
  Self& self = instance_of<ImageClass>(object);
  Borrow borrow(self.access, Access::Shared);
  if (!borrow) return -1;
  return static_cast<Py_ssize_t>(self.value.byte_size());
}

// A static method row. (TV_STATIC_METHOD would do, but its `name` parameter also replaces the
// `name` in `Class::name`.)
template <const char* Doc, FunctionBody Body>
PyMethodDef static_method(const char* name) {
  return {name, as_cfunction(&function_entry<ImageClass::name, Doc, Body>), METH_FASTCALL | METH_KEYWORDS | METH_STATIC,
          Doc};
}

PyMethodDef methods[] = {
    static_method<kFromBytesDoc, from_bytes>("from_bytes"),
    TV_METHOD(ImageClass, "to_bytes", kToBytesDoc, Access::Shared, to_bytes),
    TV_METHOD(ImageClass, "copy", kCopyDoc, Access::Shared, copy),
    TV_METHOD(ImageClass, "pixel", kPixelDoc, Access::Shared, pixel),
    TV_METHOD(ImageClass, "set_pixel", kSetPixelDoc, Access::Exclusive, set_pixel),
    TV_METHOD(ImageClass, "fill", kFillDoc, Access::Exclusive, fill),
    TV_METHOD(ImageClass, "fill_rect", kFillRectDoc, Access::Exclusive, fill_rect),
    TV_METHOD(ImageClass, "blit", kBlitDoc, Access::Exclusive, blit),
    TV_METHOD(ImageClass, "draw_text", kDrawTextDoc, Access::Exclusive, draw_text),
    static_method<kTextSizeDoc, text_size>("text_size"),
    static_method<kFitTextDoc, fit_text>("fit_text"),
    TV_METHOD(ImageClass, "downsample", kDownsampleDoc, Access::Shared, downsample),
    TV_METHOD(ImageClass, "resized", kResizedDoc, Access::Shared, resized),
    TV_METHOD(ImageClass, "to_png", kToPngDoc, Access::Shared, to_png),
    TV_METHOD(ImageClass, "save", kSaveDoc, Access::Shared, save),
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef getset[] = {
    TV_GETTER(ImageClass, "width", "Width in pixels.", width),
    TV_GETTER(ImageClass, "height", "Height in pixels.", height),
    TV_GETTER(ImageClass, "stride", "Bytes per row: width * 4.", stride),
    TV_GETTER(ImageClass, "__array_interface__", "NumPy's view of the pixels, shape (height, width, 4).",
              array_interface),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char*>(kDoc)},
    {Py_tp_new, reinterpret_cast<void*>(&constructor_entry<ImageClass, kDoc, construct>)},
    {Py_tp_dealloc, reinterpret_cast<void*>(&deallocate<ImageClass>)},
    {Py_tp_repr, reinterpret_cast<void*>(&repr)},
    {Py_mp_length, reinterpret_cast<void*>(&length)},
    {Py_tp_methods, methods},
    {Py_tp_getset, getset},
    {0, nullptr},
};

PyType_Spec type_spec = {"torvane._native.Image", 0, 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE, slots};

}  // namespace

PyObject* image_class() { return create_type<ImageClass>(type_spec); }

PyObject* image_object(render::Framebuffer&& image) { return wrap<ImageClass>(std::move(image)); }

}  // namespace tv::py
