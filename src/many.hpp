// Whole lists of puzzles at once: every entry is one task on the worker pool, building its own
// Simulator (and, to render, drawing it and dropping it), sharing nothing with the others but
// number fields, which guard themselves. Every task runs to its end whatever its neighbours do,
// and results come back in entry order, so the caller sees the same list on any thread count;
// a scrambled entry draws only from its own generator, seeded by its place in the list.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "failure.hpp"
#include "render/framebuffer.hpp"
#include "simulator.hpp"

namespace tv {

// What every picture of a `render_list` shares. Angles are in radians.
struct ListRendering {
  std::uint32_t width = 512, height = 512;
  render::Color background = 0xffffffff;
  std::uint32_t supersample = 2;  // 0 draws as 1
  bool show_arrows = false;
  bool show_edges = true;
  std::uint32_t scramble = 0;
  std::uint64_t seed = 0;  // entry i draws from seed + i
  std::optional<double> distance;
  double yaw = 0.0, pitch = 0.0;
};

// One Simulator per query, each built as a plain constructor builds it.
std::vector<Result<Simulator>> build_list(const std::vector<std::string>& queries);

// One frame per query, of a freshly built and possibly scrambled puzzle.
std::vector<Result<render::Framebuffer>> render_list(const std::vector<std::string>& queries,
                                                     const ListRendering& rendering);

}  // namespace tv
