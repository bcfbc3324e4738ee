#include "array.hpp"

#include <cstddef>
#include <limits>
#include <new>
#include <string>

#include "failure.hpp"

namespace tv {

const char* typestr_of(ElementType type) {
  switch (type) {
    case ElementType::Flag: return "|b1";
    case ElementType::U8: return "|u1";
    case ElementType::U16: return "<u2";
    case ElementType::U32: return "<u4";
    case ElementType::F32: return "<f4";
  }
  fail_invariant("unknown element type");
}

std::size_t itemsize_of(ElementType type) {
  switch (type) {
    case ElementType::Flag:
    case ElementType::U8: return 1;
    case ElementType::U16: return 2;
    default: return 4;
  }
}

namespace {

std::string shape_text(const std::vector<std::uint64_t>& shape) {
  std::string text;
  for (std::uint64_t axis : shape) text += (text.empty() ? "" : " x ") + std::to_string(axis);
  return text;
}

}  // namespace

Result<ArrayBuffer> allocate_array(ElementType type, const std::vector<std::uint64_t>& shape) {
  std::uint64_t bytes = itemsize_of(type);
  for (std::uint64_t axis : shape)
    if (__builtin_mul_overflow(bytes, axis, &bytes) ||
        bytes > static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max()))
      return range_failure("an array of " + shape_text(shape) + " values is too large to address");
  try {
    return ArrayBuffer(type, shape);
  } catch (const std::bad_alloc&) {
    return range_failure("there is not enough memory for an array of " + shape_text(shape) + " values");
  }
}

ElementType whole_type_for_bound(std::uint64_t bound) {
  if (bound <= 256) return ElementType::U8;
  if (bound <= 65536) return ElementType::U16;
  return ElementType::U32;
}

ArrayBuffer::ArrayBuffer(ElementType type, std::vector<std::uint64_t> shape) : shape_(std::move(shape)), type_(type) {
  TV_ENSURE(!shape_.empty(), "an array has at least one axis");
  std::size_t count = 1;
  for (std::uint64_t axis : shape_) count *= static_cast<std::size_t>(axis);
  const std::size_t bytes = count * itemsize();
  data_.reserve(bytes == 0 ? 1 : bytes);  // a non-null address even when empty
  data_.resize(bytes);
}

std::uint64_t ArrayBuffer::whole(std::size_t i) const {
  switch (type_) {
    case ElementType::Flag: return data_[i] != 0 ? 1 : 0;
    case ElementType::U8: return data_[i];
    case ElementType::U16: {
      std::uint16_t v;
      std::memcpy(&v, data_.data() + 2 * i, 2);
      return v;
    }
    case ElementType::U32: {
      std::uint32_t v;
      std::memcpy(&v, data_.data() + 4 * i, 4);
      return v;
    }
    case ElementType::F32: break;
  }
  fail_invariant("a float array read as whole numbers");
}

float ArrayBuffer::real(std::size_t i) const {
  TV_ENSURE(type_ == ElementType::F32, "a whole-number array read as floats");
  float v;
  std::memcpy(&v, data_.data() + 4 * i, 4);
  return v;
}

}  // namespace tv
