// The catalog of named puzzles and the names by which a recipe argument may be given.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "failure.hpp"

namespace tv {

struct CatalogRow {
  std::string_view name;
  std::string_view family;
  std::string_view kind;
  std::string_view recipe;  // a canonical query string
};

// The 85 rows, in their fixed order.
std::span<const CatalogRow> catalog_rows();
// The 36 cataloged recipes whose puzzles do not jumble, in catalog order.
std::span<const std::string_view> non_jumbling_recipes();

// A text that starts with `?` is a query string and comes back as it is; anything else is a
// name looked up in the catalog. No match, or several ("Unknown" names ten rows), is a Range
// failure; the latter lists every candidate recipe.
Result<std::string> resolve_recipe(std::string_view text);

}  // namespace tv
