// The module's classes. Each function creates its class's type on first call and returns a
// new reference to it; the module registers them in its fixed attribute order.
#pragma once

#include "bindings/compat.hpp"

namespace tv::py {

PyObject* fraction_class();

}  // namespace tv::py
