#include "render/png.hpp"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string_view>
#include <system_error>

namespace tv::render {

namespace {

constexpr std::uint8_t SIGNATURE[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
constexpr std::uint64_t MAX_CHUNK_LENGTH = 0x7fffffff;
constexpr std::uint8_t FILTER_SUB = 1;
constexpr int DEFLATE_LEVEL = 6;

using Bytes = std::vector<std::uint8_t>;

void put_u32(Bytes& out, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(value >> shift));
}

void put_type(Bytes& out, std::string_view type) { out.insert(out.end(), type.begin(), type.end()); }

// Appends the CRC-32 of everything from the chunk's type (at `type_offset`) to the end.
void put_crc(Bytes& out, std::size_t type_offset) {
  put_u32(out, static_cast<std::uint32_t>(crc32_z(0, out.data() + type_offset, out.size() - type_offset)));
}

void put_chunk(Bytes& out, std::string_view type, std::span<const std::uint8_t> data) {
  put_u32(out, static_cast<std::uint32_t>(data.size()));
  const std::size_t type_offset = out.size();
  put_type(out, type);
  out.insert(out.end(), data.begin(), data.end());
  put_crc(out, type_offset);
}

Bytes header_data(const Framebuffer& image) {
  Bytes data;
  put_u32(data, image.width());
  put_u32(data, image.height());
  // Bit depth 8, color type 6 (RGBA), compression 0, filter method 0, no interlace.
  data.insert(data.end(), {8, 6, 0, 0, 0});
  return data;
}

// Each row as one filter byte then the row with every byte after the first pixel replaced by
// its difference from the byte four places before, modulo 256.
Bytes sub_filtered_rows(const Framebuffer& image) {
  const std::size_t stride = image.stride();
  Bytes rows((stride + 1) * image.height());
  for (std::uint32_t y = 0; y < image.height(); ++y) {
    const std::uint8_t* source = image.bytes().data() + y * stride;
    std::uint8_t* target = rows.data() + y * (stride + 1);
    target[0] = FILTER_SUB;
    std::copy(source, source + std::min<std::size_t>(stride, 4), target + 1);
    for (std::size_t i = 4; i < stride; ++i) target[1 + i] = static_cast<std::uint8_t>(source[i] - source[i - 4]);
  }
  return rows;
}

// Appends one zlib stream of `input` to `out`, feeding zlib in pieces its 32-bit counts hold.
void append_deflated(Bytes& out, std::span<const std::uint8_t> input) {
  z_stream stream{};
  TV_ENSURE(deflateInit(&stream, DEFLATE_LEVEL) == Z_OK, "deflateInit refused its arguments");
  std::size_t written = out.size();
  int status = Z_OK;
  while (status != Z_STREAM_END) {
    if (stream.avail_in == 0 && !input.empty()) {
      const std::size_t piece = std::min<std::size_t>(input.size(), UINT_MAX);
      stream.next_in = const_cast<Bytef*>(input.data());
      stream.avail_in = static_cast<uInt>(piece);
      input = input.subspan(piece);
    }
    if (written == out.size()) out.resize(std::max<std::size_t>(out.size() * 2, 1024));
    stream.next_out = out.data() + written;
    stream.avail_out = static_cast<uInt>(std::min<std::size_t>(out.size() - written, UINT_MAX));
    status = deflate(&stream, input.empty() ? Z_FINISH : Z_NO_FLUSH);
    TV_ENSURE(status == Z_OK || status == Z_STREAM_END || status == Z_BUF_ERROR, "deflate failed");
    written = static_cast<std::size_t>(stream.next_out - out.data());
  }
  deflateEnd(&stream);
  out.resize(written);
}

Failure system_failure(int error) { return other_failure(std::generic_category().message(error)); }

}  // namespace

Result<Bytes> encode_png(const Framebuffer& image) {
  const Bytes rows = sub_filtered_rows(image);
  Bytes out;
  out.reserve(image.byte_size() / 2 + 1024);
  out.insert(out.end(), std::begin(SIGNATURE), std::end(SIGNATURE));
  put_chunk(out, "IHDR", header_data(image));

  // The IDAT's length is known only once the stream is written behind it.
  const std::size_t length_offset = out.size();
  put_u32(out, 0);
  put_type(out, "IDAT");
  append_deflated(out, rows);
  const std::size_t length = out.size() - length_offset - 8;
  if (length > MAX_CHUNK_LENGTH) {
    return range_failure("compressed image data of " + std::to_string(length) +
                         " bytes exceeds the PNG chunk limit of 2147483647 bytes");
  }
  for (int i = 0; i < 4; ++i) out[length_offset + i] = static_cast<std::uint8_t>(length >> (24 - 8 * i));
  put_crc(out, length_offset + 4);

  put_chunk(out, "IEND", {});
  return out;
}

Status write_file(const std::string& path, std::span<const std::uint8_t> bytes) {
  if (path.find('\0') != std::string::npos) return range_failure("embedded null byte");
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return system_failure(errno);
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), std::min<std::size_t>(bytes.size(), 1 << 30));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int error = errno;
      ::close(fd);
      return system_failure(error);
    }
    bytes = bytes.subspan(static_cast<std::size_t>(n));
  }
  if (::close(fd) != 0) return system_failure(errno);
  return {};
}

Status save_png(const Framebuffer& image, const std::string& path) {
  TV_TRY(const Bytes file, encode_png(image));
  return write_file(path, file);
}

}  // namespace tv::render
