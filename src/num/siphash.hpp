// SipHash-1-3 (one compression round per block, three finalisation rounds) over a byte
// stream, with a 128-bit key given as two words. Bytes may be written in any number of
// pieces; the hash is that of their concatenation.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tv {

class SipHasher13 {
 public:
  explicit SipHasher13(std::uint64_t k0 = 0, std::uint64_t k1 = 0);

  void write(const void* data, std::size_t size);
  void write_u64(std::uint64_t word);  // 8 bytes, little-endian
  std::uint64_t finish() const;

 private:
  void compress(std::uint64_t block);

  std::uint64_t v0_, v1_, v2_, v3_;
  std::uint64_t tail_ = 0;       // bytes not yet forming a whole block, little-endian
  std::size_t tail_size_ = 0;
  std::size_t length_ = 0;       // total bytes written
};

}  // namespace tv
