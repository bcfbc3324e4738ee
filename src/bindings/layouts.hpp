// The Layout class, for the bindings that take a layout as an argument.
#pragma once

#include "bindings/entry.hpp"
#include "layout.hpp"

namespace tv::py {

struct LayoutClass {
  using Value = Layout;
  static constexpr char name[] = "Layout";
};

}  // namespace tv::py
