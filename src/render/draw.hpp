// One frame of a Simulator: its pieces as they stand in the float world, their outlines and
// the grip arrows, drawn at supersample times the size and box-averaged down.
//
// A frame reads floats only and changes nothing in the Simulator; the rasterizer's bands and
// the box average's rows are its only parallel work, each writing rows of its own, so a frame
// is the same bytes on any number of threads.
#pragma once

#include <cstdint>

#include "failure.hpp"
#include "render/framebuffer.hpp"

namespace tv {
class Simulator;
}

namespace tv::render {

// The most pixels a working frame (width and height times the supersample) may have: color
// and depth take 8 bytes a pixel, so this bounds one frame's scratch at 2 GiB.
inline constexpr std::uint64_t kMaxWorkingPixels = std::uint64_t{1} << 28;

// Width or height 0 gives an empty image. A working frame past kMaxWorkingPixels is a Range
// failure, refused before anything is allocated.
Result<Framebuffer> draw_scene(const Simulator& simulator, std::uint32_t width, std::uint32_t height);

}  // namespace tv::render
