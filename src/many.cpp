#include "many.hpp"

#include <algorithm>
#include <memory>

#include "pool.hpp"
#include "render/draw.hpp"
#include "render/scene.hpp"

namespace tv {

namespace {

// The camera rule of a list: a non-zero angle places the camera on its sphere (at `distance`
// or where it stands), else a distance alone moves it along its line.
render::CameraKeywords camera_keywords(const ListRendering& r) {
  if (r.yaw != 0.0 || r.pitch != 0.0) return {r.yaw, r.pitch, r.distance};
  return {std::nullopt, std::nullopt, r.distance};
}

Result<render::Framebuffer> render_entry(const std::string& query, std::uint64_t index, const ListRendering& r) {
  TV_TRY(Simulator sim, Simulator::from_recipe_text(query));
  render::ViewSettings& view = sim.view();
  view.background = r.background;
  view.supersample = std::max<std::uint32_t>(r.supersample, 1);
  view.show_arrows = r.show_arrows;
  view.show_edges = r.show_edges;
  render::apply_camera_keywords(sim.camera(), camera_keywords(r));
  if (r.scramble > 0) {
    sim.seed(r.seed + index);
    sim.scramble(r.scramble);
    TV_CHECK(sim.settle());
  }
  return render::draw_scene(sim, r.width, r.height);
}

// Runs `task(i)` for every entry, one pool task each, keeping every result in entry order.
template <class T, class Task>
std::vector<Result<T>> each_entry(std::size_t count, Task task) {
  std::vector<std::unique_ptr<Result<T>>> slots(count);
  pool::for_each_task(count, [&](std::size_t i) { slots[i] = std::make_unique<Result<T>>(task(i)); });
  std::vector<Result<T>> results;
  results.reserve(count);
  for (auto& slot : slots) results.push_back(std::move(*slot));
  return results;
}

}  // namespace

std::vector<Result<Simulator>> build_list(const std::vector<std::string>& queries) {
  return each_entry<Simulator>(queries.size(), [&](std::size_t i) { return Simulator::from_recipe_text(queries[i]); });
}

std::vector<Result<render::Framebuffer>> render_list(const std::vector<std::string>& queries,
                                                     const ListRendering& rendering) {
  return each_entry<render::Framebuffer>(queries.size(),
                                         [&](std::size_t i) { return render_entry(queries[i], i, rendering); });
}

}  // namespace tv
