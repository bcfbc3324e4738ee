// The PNG writer: one fixed kind of file, 8-bit RGBA, not interlaced.
//
//   encode_png   the whole file in memory: signature, IHDR, one IDAT holding a single zlib
//                stream (deflate level 6) of the rows, each filtered with Sub, and an empty IEND
//   write_file   creates or truncates a file (mode 0666 under the umask) and writes all bytes
//   save_png     encode_png, then write_file
//
// An image of zero width or height is written with the same structure, although the format
// does not allow it and decoders refuse such files. Compressed data that a PNG chunk cannot
// hold (more than 2^31 - 1 bytes) is a Range failure rather than a file no decoder reads.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "failure.hpp"
#include "render/framebuffer.hpp"

namespace tv::render {

Result<std::vector<std::uint8_t>> encode_png(const Framebuffer& image);

// A NUL in `path` is a Range failure ("embedded null byte"), so no truncated name is ever
// written; an I/O failure is an Other failure with the system's text.
Status write_file(const std::string& path, std::span<const std::uint8_t> bytes);

Status save_png(const Framebuffer& image, const std::string& path);

}  // namespace tv::render
