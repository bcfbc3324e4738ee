// Build times of every polyhedron as a shell of size 1 (`?shell=<code>$1`), which is where
// unification meets the largest fields of the table. Prints milliseconds, field degree and
// code per polyhedron, then the slowest. Recipes given as arguments are timed instead. Built
// against the core library:
//
//   g++ -O2 -std=c++20 -ffp-contract=off -Isrc bench/shell_times.cpp \
//       build/release/libtorvane_core.a -ltbb -lz -lgmp -o build/shell_times
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "builder.hpp"
#include "polyhedra.hpp"

namespace {

// Milliseconds of one parse and build, or a negative number after printing the failure.
double build_ms(const std::string& recipe, std::size_t& pieces, std::string& field) {
  const auto start = std::chrono::steady_clock::now();
  auto parsed = tv::parse_recipe(recipe);
  if (!parsed.ok()) return std::fprintf(stderr, "%s: %s\n", recipe.c_str(), parsed.failure().message.c_str()), -1.0;
  auto built = tv::build_puzzle(*parsed);
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (!built.ok()) return std::fprintf(stderr, "%s: %s\n", recipe.c_str(), built.failure().message.c_str()), -1.0;
  pieces = built->pieces.pieces.size();
  field = built->field_text;
  return ms;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> recipes;
  for (int i = 1; i < argc; ++i) recipes.emplace_back(argv[i]);
  if (recipes.empty())
    for (const tv::PolyhedronRow& row : tv::polyhedron_rows()) recipes.push_back("?shell=" + std::string(row.code) + "$1");
  double slowest = 0.0, total = 0.0;
  std::string slowest_recipe;
  for (const std::string& recipe : recipes) {
    std::size_t pieces = 0;
    std::string field;
    const double ms = build_ms(recipe, pieces, field);
    if (ms < 0) return 1;
    std::printf("%9.2f ms %4zu pieces  %-16s %.60s\n", ms, pieces, recipe.c_str(), field.c_str());
    std::fflush(stdout);
    total += ms;
    if (ms > slowest) slowest = ms, slowest_recipe = recipe;
  }
  std::printf("total %.1f ms; slowest %.2f ms: %s\n", total, slowest, slowest_recipe.c_str());
}
