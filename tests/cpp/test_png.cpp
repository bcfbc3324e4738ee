#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "render/png.hpp"

namespace tv::render {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint32_t read_u32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

struct Chunk {
  std::string type;
  Bytes data;
};

// Splits a file into chunks after checking the signature and every CRC.
std::vector<Chunk> read_chunks(const Bytes& file) {
  const Bytes signature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  EXPECT_TRUE(std::equal(signature.begin(), signature.end(), file.begin()));
  std::vector<Chunk> chunks;
  for (std::size_t at = 8; at < file.size();) {
    const std::uint32_t length = read_u32(&file[at]);
    const std::uint8_t* type = &file[at + 4];
    EXPECT_EQ(read_u32(type + 4 + length), crc32(0, type, 4 + length));
    chunks.push_back({std::string(type, type + 4), Bytes(type + 4, type + 4 + length)});
    at += 12 + length;
  }
  return chunks;
}

Bytes inflate_all(const Bytes& compressed) {
  z_stream stream{};
  EXPECT_EQ(inflateInit(&stream), Z_OK);
  stream.next_in = const_cast<Bytef*>(compressed.data());
  stream.avail_in = static_cast<uInt>(compressed.size());
  Bytes out;
  int status = Z_OK;
  while (status == Z_OK) {
    std::uint8_t buffer[4096];
    stream.next_out = buffer;
    stream.avail_out = sizeof buffer;
    status = inflate(&stream, Z_NO_FLUSH);
    out.insert(out.end(), buffer, stream.next_out);
  }
  EXPECT_EQ(status, Z_STREAM_END);
  EXPECT_EQ(stream.avail_in, 0u);  // nothing trails the stream
  inflateEnd(&stream);
  return out;
}

// Undoes the Sub filter, checking that every row uses it.
Bytes unfilter(const Bytes& rows, std::size_t stride, std::uint32_t height) {
  EXPECT_EQ(rows.size(), (stride + 1) * height);
  Bytes pixels;
  for (std::uint32_t y = 0; y < height; ++y) {
    const std::uint8_t* row = &rows[y * (stride + 1)];
    EXPECT_EQ(row[0], 1) << "row " << y;
    for (std::size_t i = 0; i < stride; ++i) pixels.push_back(static_cast<std::uint8_t>(row[1 + i] + (i >= 4 ? pixels[pixels.size() - 4] : 0)));
  }
  return pixels;
}

// An asymmetric red 'F' on blue, translucent in places, plus noise of other sizes.
Framebuffer test_image(std::uint32_t width, std::uint32_t height) {
  Framebuffer image = Framebuffer::create(width, height, make_color(0, 0, 255, 255)).value();
  std::mt19937 random(width * 31 + height);
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      const bool f_shape = x == 1 || (y == 0 && x < 5) || (y == 2 && x < 4);
      image.set_pixel(x, y, width == 7 ? (f_shape ? make_color(255, 0, 0, 128 + y) : image.pixel(x, y)) : random());
    }
  }
  return image;
}

class PngRoundTrip : public testing::TestWithParam<std::pair<std::uint32_t, std::uint32_t>> {};

TEST_P(PngRoundTrip, FourChunksInOrderThatDecodeToThePixels) {
  const auto [width, height] = GetParam();
  const Framebuffer image = test_image(width, height);
  const Bytes file = encode_png(image).value();
  EXPECT_EQ(encode_png(image).value(), file);
  const std::vector<Chunk> chunks = read_chunks(file);
  ASSERT_EQ(chunks.size(), 3u);
  EXPECT_EQ(chunks[0].type, "IHDR");
  EXPECT_EQ(chunks[0].data, (Bytes{0, 0, static_cast<std::uint8_t>(width >> 8), static_cast<std::uint8_t>(width), 0, 0,
                                   static_cast<std::uint8_t>(height >> 8), static_cast<std::uint8_t>(height), 8, 6, 0, 0, 0}));
  EXPECT_EQ(chunks[1].type, "IDAT");
  EXPECT_EQ(chunks[2].type, "IEND");
  EXPECT_TRUE(chunks[2].data.empty());
  const Bytes pixels = unfilter(inflate_all(chunks[1].data), image.stride(), height);
  EXPECT_TRUE(std::equal(pixels.begin(), pixels.end(), image.bytes().begin(), image.bytes().end()));
}

INSTANTIATE_TEST_SUITE_P(Sizes, PngRoundTrip,
                         testing::Values(std::pair{7u, 5u}, std::pair{1u, 1u}, std::pair{300u, 2u}, std::pair{33u, 17u},
                                         std::pair{0u, 3u}, std::pair{3u, 0u}, std::pair{0u, 0u}));

TEST(PngFiles, SaveWritesTheEncodedBytesAndReportsFailures) {
  const Framebuffer image = test_image(7, 5);
  const std::string path = testing::TempDir() + "torvane_png_test.png";
  ASSERT_TRUE(save_png(image, path).ok());
  std::ifstream in(path, std::ios::binary);
  EXPECT_EQ(Bytes(std::istreambuf_iterator<char>(in), {}), encode_png(image).value());
  std::remove(path.c_str());

  const Status missing = save_png(image, testing::TempDir() + "no/such/dir/x.png");
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.failure().kind, FailureKind::Other);
  EXPECT_EQ(missing.failure().message, "No such file or directory");
  const Status nul = save_png(image, std::string("x\0.png", 6));
  ASSERT_FALSE(nul.ok());
  EXPECT_EQ(nul.failure().message, "embedded null byte");
}

}  // namespace
}  // namespace tv::render
