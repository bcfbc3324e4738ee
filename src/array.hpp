// Blocks of numbers handed to Python: one packed little-endian buffer, a shape and one of five
// NumPy type strings. Whole numbers take the narrowest width that holds every value below the
// bound their maker gives, so an array made for a puzzle has the same width in every state.
//
// The buffer always has a non-null address, also when it holds no element, because NumPy is
// handed that address through the array interface.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "failure.hpp"

namespace tv {

static_assert(std::endian::native == std::endian::little, "arrays are written in host order, which must be little-endian");

enum class ElementType : std::uint8_t { Flag, U8, U16, U32, F32 };

const char* typestr_of(ElementType type);
std::size_t itemsize_of(ElementType type);
// The whole-number type for values in 0 .. bound - 1: up to 256 one byte, up to 65536 two.
ElementType whole_type_for_bound(std::uint64_t bound);

class ArrayBuffer {
 public:
  // A zero-filled block; the caller has checked that the product of `shape` is addressable.
  ArrayBuffer(ElementType type, std::vector<std::uint64_t> shape);
  // Moved, never copied: a copy of an empty vector could lose the non-null address.
  ArrayBuffer(ArrayBuffer&&) = default;
  ArrayBuffer& operator=(ArrayBuffer&&) = default;
  ArrayBuffer(const ArrayBuffer&) = delete;
  ArrayBuffer& operator=(const ArrayBuffer&) = delete;

  ElementType type() const { return type_; }
  const char* typestr() const { return typestr_of(type_); }
  std::size_t itemsize() const { return itemsize_of(type_); }
  const std::vector<std::uint64_t>& shape() const { return shape_; }
  std::size_t size() const { return data_.size() / itemsize(); }
  std::size_t byte_size() const { return data_.size(); }
  const std::uint8_t* bytes() const { return data_.data(); }
  std::uint8_t* bytes() { return data_.data(); }

  // The elements as U, which must have the element's width.
  template <class U>
  U* as() {
    return reinterpret_cast<U*>(data_.data());
  }
  // Element i widened to 64 bits (a flag as 0 or 1); not for F32.
  std::uint64_t whole(std::size_t i) const;
  float real(std::size_t i) const;

 private:
  std::vector<std::uint8_t> data_;
  std::vector<std::uint64_t> shape_;
  ElementType type_;
};

// A zero-filled block of this shape, refused with a Range failure rather than attempted when it
// cannot be addressed or allocated.
Result<ArrayBuffer> allocate_array(ElementType type, const std::vector<std::uint64_t>& shape);

// A block of whole numbers below `bound`, each element of `values` widened or copied.
template <class Source>
ArrayBuffer whole_array(std::span<const Source> values, std::uint64_t bound, std::vector<std::uint64_t> shape) {
  ArrayBuffer out(whole_type_for_bound(bound), std::move(shape));
  const auto fill = [&](auto* target) {
    for (std::size_t i = 0; i < values.size(); ++i) target[i] = static_cast<std::remove_pointer_t<decltype(target)>>(values[i]);
  };
  switch (out.type()) {
    case ElementType::U8: fill(out.as<std::uint8_t>()); break;
    case ElementType::U16: fill(out.as<std::uint16_t>()); break;
    default: fill(out.as<std::uint32_t>()); break;
  }
  return out;
}

}  // namespace tv
