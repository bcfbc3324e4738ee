// The draw list of a frame: per piece its fill and then its outline, so that each piece's
// edges win the depth test against its own faces through the polygon offset; then the arrows,
// translucent, with the hovered one last so it blends over the rest.
#include "render/draw.hpp"

#include <string>
#include <vector>

#include "render/scene.hpp"
#include "simulator.hpp"

namespace tv::render {

namespace {

constexpr std::array<double, 4> kIdentityRotation{0.0, 0.0, 0.0, 1.0};

}  // namespace

void add_piece_items(const Simulator& sim, std::uint32_t s, std::span<const std::vector<Color>> fill_colors,
                     Color edge_color, std::vector<DrawItem>& items) {
  const ViewSettings& view = sim.view();
  const auto& meshes = sim.scene().meshes;
  const auto& orientations = sim.orientations();
  for (std::size_t i = 0; i < meshes.size(); ++i) {
    const PieceMesh& mesh = meshes[i];
    const Matrix4 model = rotation_matrix(i < orientations.size() ? orientations[i] : kIdentityRotation, sim.scale());
    if (view.show_pieces) {
      DrawItem fill;
      fill.model = model;
      fill.triangles = mesh.triangles;
      fill.colors = fill_colors.empty() ? std::span<const Color>(mesh.colors) : std::span<const Color>(fill_colors[i]);
      fill.cull = CullMode::Back;
      fill.blend = 0;
      fill.depth_write = fill.depth_test = true;
      items.push_back(fill);
    }
    if (view.show_edges) {
      DrawItem edges;
      edges.model = model;
      edges.segments = mesh.outline;
      edges.line_width = s * view.line_width;
      edges.segment_color = edge_color;
      edges.polygon_offset = {true, -1.0f, -4.0f};
      edges.cull = CullMode::None;
      edges.blend = 0;
      edges.depth_write = edges.depth_test = true;
      items.push_back(edges);
    }
  }
}

std::optional<Matrix4> frame_transform(const Simulator& sim, std::uint32_t width, std::uint32_t height) {
  Camera camera = sim.camera();
  camera.aspect = height == 0 ? 1.0 : static_cast<double>(width) / static_cast<double>(height);
  const auto view_transform = view_matrix(camera);
  if (!view_transform) return std::nullopt;
  return multiply(projection_matrix(camera), *view_transform);
}

Status check_working_size(std::uint32_t width, std::uint32_t height, std::uint64_t s) {
  const std::uint64_t working_width = s * width, working_height = s * height;
  if (working_width * working_height > kMaxWorkingPixels || working_width > UINT32_MAX || working_height > UINT32_MAX) {
    return range_failure("frame " + std::to_string(width) + "x" + std::to_string(height) + " at supersample " +
                         std::to_string(s) + " needs more than " + std::to_string(kMaxWorkingPixels) +
                         " working pixels");
  }
  return {};
}

namespace {

// One color per arrow triangle, all the same word.
DrawItem arrow_item(const Scene& scene, const ArrowInstance& arrow, const std::vector<Color>& colors) {
  DrawItem item;
  item.model = arrow.model;
  item.triangles = scene.arrow_mesh;
  item.colors = colors;
  item.cull = CullMode::None;
  item.blend = 1;
  item.depth_write = item.depth_test = true;
  return item;
}

void add_arrows(const Simulator& sim, std::vector<Color>& normal, std::vector<Color>& hover,
                std::vector<DrawItem>& items) {
  const Scene& scene = sim.scene();
  if (!sim.view().show_arrows || scene.arrows.empty()) return;
  const ArrowColors colors = arrow_colors(sim.view().background);
  normal.assign(scene.arrow_mesh.size(), colors.normal);
  hover.assign(scene.arrow_mesh.size(), colors.hover);
  const auto hovered = sim.hovered_arrow();
  for (std::size_t i = 0; i < scene.arrows.size(); ++i) {
    if (hovered != i) items.push_back(arrow_item(scene, scene.arrows[i], normal));
  }
  if (hovered && *hovered < scene.arrows.size()) items.push_back(arrow_item(scene, scene.arrows[*hovered], hover));
}

}  // namespace

Result<Framebuffer> draw_scene(const Simulator& sim, std::uint32_t width, std::uint32_t height) {
  const ViewSettings& view = sim.view();
  const std::uint64_t s = view.supersample == 0 ? 1 : view.supersample;
  TV_CHECK(check_working_size(width, height, s));
  TV_TRY(RasterFrame frame, RasterFrame::create(static_cast<std::uint32_t>(s * width),
                                                static_cast<std::uint32_t>(s * height), view.background));
  // With no side vector to look along there is nothing to project: the frame stays background.
  if (const auto transform = frame_transform(sim, width, height)) {
    std::vector<DrawItem> items;
    std::vector<Color> normal, hover;
    add_piece_items(sim, static_cast<std::uint32_t>(s), {}, kEdgeColor, items);
    add_arrows(sim, normal, hover, items);
    RasterScratch scratch;
    rasterize(scratch, frame, items, *transform);
  }
  if (s == 1) return std::move(frame.color);
  return frame.color.downsample(static_cast<std::uint32_t>(s));
}

}  // namespace tv::render
