// Build times of every catalog puzzle: parses and builds each of the 85 recipes in catalog
// order on the calling thread (a build uses no other), prints milliseconds, piece count and
// name per recipe, then the slowest. An optional argument repeats each build that many times
// and reports the fastest run. Built against the core library:
//
//   g++ -O2 -std=c++20 -ffp-contract=off -Isrc bench/build_times.cpp \
//       build/release/libtorvane_core.a -ltbb -lz -lgmp -o build/build_times
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "builder.hpp"
#include "catalog.hpp"

int main(int argc, char** argv) {
  const int repeats = argc > 1 ? std::max(1, std::atoi(argv[1])) : 1;
  double slowest = 0.0, total = 0.0;
  std::string slowest_name;
  for (const tv::CatalogRow& row : tv::catalog_rows()) {
    double best = 1e300;
    std::size_t pieces = 0;
    for (int r = 0; r < repeats; ++r) {
      const auto start = std::chrono::steady_clock::now();
      auto recipe = tv::parse_recipe(row.recipe);
      if (!recipe.ok()) return std::fprintf(stderr, "%s: %s\n", row.recipe.data(), recipe.failure().message.c_str()), 1;
      auto built = tv::build_puzzle(*recipe);
      const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
      if (!built.ok()) return std::fprintf(stderr, "%s: %s\n", row.recipe.data(), built.failure().message.c_str()), 1;
      pieces = built->pieces.pieces.size();
      best = std::min(best, ms);
    }
    std::printf("%9.2f ms %5zu pieces  %.*s  %.*s\n", best, pieces, int(row.name.size()), row.name.data(),
                int(row.recipe.size()), row.recipe.data());
    total += best;
    if (best > slowest) slowest = best, slowest_name = std::string(row.name) + "  " + std::string(row.recipe);
  }
  std::printf("total %.1f ms; slowest %.2f ms: %s\n", total, slowest, slowest_name.c_str());
}
