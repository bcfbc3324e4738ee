// One frame of a Simulator: its pieces as they stand in the float world, their outlines and
// the grip arrows, drawn at supersample times the size and box-averaged down.
//
// A frame reads floats only and changes nothing in the Simulator; the rasterizer's bands and
// the box average's rows are its only parallel work, each writing rows of its own, so a frame
// is the same bytes on any number of threads.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "failure.hpp"
#include "render/framebuffer.hpp"
#include "render/raster.hpp"

namespace tv {
class Simulator;
}

namespace tv::render {

// The most pixels a working frame (width and height times the supersample) may have: color
// and depth take 8 bytes a pixel, so this bounds one frame's scratch at 2 GiB.
inline constexpr std::uint64_t kMaxWorkingPixels = std::uint64_t{1} << 28;

inline constexpr Color kEdgeColor = 0xff000000;

// Every piece's items in piece order, each piece's fill and then its outline, placed by its
// orientation and the scale. The fill takes `fill_colors[i]` per triangle of piece i, or the
// mesh's own colors when `fill_colors` is empty; outlines are `edge_color`, their width the line
// width times the supersample `s`.
void add_piece_items(const Simulator& sim, std::uint32_t s, std::span<const std::vector<Color>> fill_colors,
                     Color edge_color, std::vector<DrawItem>& items);

// Projection times view of the Simulator's camera at the aspect of the frame, or none when the
// camera has no direction to look along.
std::optional<Matrix4> frame_transform(const Simulator& sim, std::uint32_t width, std::uint32_t height);

// A Range failure when the working frame (width and height times s) would pass kMaxWorkingPixels.
Status check_working_size(std::uint32_t width, std::uint32_t height, std::uint64_t s);

// Width or height 0 gives an empty image. A working frame past kMaxWorkingPixels is a Range
// failure, refused before anything is allocated.
Result<Framebuffer> draw_scene(const Simulator& simulator, std::uint32_t width, std::uint32_t height);

}  // namespace tv::render
