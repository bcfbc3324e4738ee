#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "many.hpp"
#include "render/draw.hpp"

namespace tv {
namespace {

// Entry tasks that start band tasks of their own on the same pool: each picture equals the one
// drawn alone, and a failing entry leaves the others whole.
TEST(RenderList, NestedTasksDrawWhatEachPuzzleDrawsAlone) {
  const std::vector<std::string> queries = {"?shell=C$1&cut=C$1/3", "?shell=T$1&cut=T$1/4", "?shell=Q$1",
                                            "?shell=D$1&cut=D$1/2", "?shell=C$1&cut=C$1/3"};
  ListRendering rendering;
  rendering.width = rendering.height = 48;
  rendering.scramble = 6;
  const auto images = render_list(queries, rendering);
  ASSERT_EQ(images.size(), queries.size());
  EXPECT_FALSE(images[2].ok());
  for (std::size_t i : {0, 1, 3, 4}) {
    auto sim = Simulator::from_recipe_text(queries[i]);
    ASSERT_TRUE(sim.ok());
    sim->view().background = rendering.background;
    sim->view().show_arrows = false;
    sim->seed(i);
    sim->scramble(rendering.scramble);
    ASSERT_TRUE(sim->settle().ok());
    auto alone = render::draw_scene(*sim, 48, 48);
    ASSERT_TRUE(images[i].ok() && alone.ok()) << i;
    EXPECT_TRUE(std::ranges::equal(images[i]->pixels(), alone->pixels())) << i;
  }
  EXPECT_FALSE(std::ranges::equal(images[0]->pixels(), images[4]->pixels()));
}

}  // namespace
}  // namespace tv
