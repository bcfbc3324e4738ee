// Writes the grip arrows of a puzzle as world-space triangles, for the pointer benchmark's NumPy
// anchor: two little-endian u32 counts (arrows, triangles per arrow), then arrows x triangles x
// 3 corners x 3 coordinates as float64, each corner taken through its arrow's matrix exactly as
// the hit test takes it. Built against the core library:
//
//   g++ -O2 -std=c++20 -ffp-contract=off -Isrc bench/arrow_triangles.cpp \
//       build/release/libtorvane_core.a -ltbb -lz -lgmp -o build/arrow_triangles
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "simulator.hpp"

int main(int argc, char** argv) {
  const std::string recipe = argc > 1 ? argv[1] : "?shell=C$1&cut=C$1/3";
  auto sim = tv::Simulator::from_recipe_text(recipe);
  if (!sim.ok()) return std::fprintf(stderr, "%s: %s\n", recipe.c_str(), sim.failure().message.c_str()), 1;
  const tv::render::Scene& scene = sim->scene();
  const std::uint32_t counts[2] = {static_cast<std::uint32_t>(scene.arrows.size()),
                                   static_cast<std::uint32_t>(scene.arrow_mesh.size())};
  std::vector<double> corners;
  for (const tv::render::ArrowInstance& arrow : scene.arrows) {
    const tv::render::Matrix4& m = arrow.model;
    for (const tv::render::Triangle3& t : scene.arrow_mesh) {
      for (const tv::render::Point3& p : t) {
        corners.push_back(m[0] * p.x + m[4] * p.y + m[8] * p.z + m[12]);
        corners.push_back(m[1] * p.x + m[5] * p.y + m[9] * p.z + m[13]);
        corners.push_back(m[2] * p.x + m[6] * p.y + m[10] * p.z + m[14]);
      }
    }
  }
  std::fwrite(counts, sizeof counts, 1, stdout);
  std::fwrite(corners.data(), sizeof(double), corners.size(), stdout);
  return 0;
}
