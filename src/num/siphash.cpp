#include "num/siphash.hpp"

#include <bit>

namespace tv {
namespace {

struct State {
  std::uint64_t v0, v1, v2, v3;

  void round() {
    v0 += v1; v1 = std::rotl(v1, 13); v1 ^= v0; v0 = std::rotl(v0, 32);
    v2 += v3; v3 = std::rotl(v3, 16); v3 ^= v2;
    v0 += v3; v3 = std::rotl(v3, 21); v3 ^= v0;
    v2 += v1; v1 = std::rotl(v1, 17); v1 ^= v2; v2 = std::rotl(v2, 32);
  }
};

}  // namespace

SipHasher13::SipHasher13(std::uint64_t k0, std::uint64_t k1)
    : v0_(k0 ^ 0x736f6d6570736575ULL),
      v1_(k1 ^ 0x646f72616e646f6dULL),
      v2_(k0 ^ 0x6c7967656e657261ULL),
      v3_(k1 ^ 0x7465646279746573ULL) {}

void SipHasher13::compress(std::uint64_t block) {
  State s{v0_, v1_, v2_, v3_ ^ block};
  s.round();
  v0_ = s.v0 ^ block;
  v1_ = s.v1;
  v2_ = s.v2;
  v3_ = s.v3;
}

void SipHasher13::write(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  length_ += size;
  for (std::size_t i = 0; i < size; ++i) {
    tail_ |= static_cast<std::uint64_t>(bytes[i]) << (8 * tail_size_);
    if (++tail_size_ == 8) {
      compress(tail_);
      tail_ = 0;
      tail_size_ = 0;
    }
  }
}

void SipHasher13::write_u64(std::uint64_t word) {
  unsigned char bytes[8];
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(word >> (8 * i));
  write(bytes, 8);
}

std::uint64_t SipHasher13::finish() const {
  const std::uint64_t last = tail_ | (static_cast<std::uint64_t>(length_ & 0xff) << 56);
  State s{v0_, v1_, v2_, v3_ ^ last};
  s.round();
  s.v0 ^= last;
  s.v2 ^= 0xff;
  s.round();
  s.round();
  s.round();
  return s.v0 ^ s.v1 ^ s.v2 ^ s.v3;
}

}  // namespace tv
