// Inputs that once ran for minutes. Each has a time limit far above its present time, so
// that only a return to the old behaviour fails, never a slow machine.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "builder.hpp"
#include "polyhedra.hpp"

namespace tv {
namespace {

TEST(SlowInputs, EveryPolyhedronBuildsAsAShell) {
  for (const PolyhedronRow& row : polyhedron_rows()) {
    const std::string query = "?shell=" + std::string(row.code) + "$1";
    const auto start = std::chrono::steady_clock::now();
    auto built = build_puzzle(*parse_recipe(query));
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ASSERT_TRUE(built.ok()) << query << ": " << built.failure().message;
    EXPECT_EQ(built->pieces.pieces.size(), 1u) << query;
    EXPECT_LT(seconds, 60.0) << query;
  }
}

}  // namespace
}  // namespace tv
