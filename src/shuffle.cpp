#include "shuffle.hpp"

#include <cstring>

#include "failure.hpp"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define TV_HAVE_SHUFFLES 1
#endif

namespace tv {

ShuffleProgram compile_shuffles(const std::uint8_t* moves, std::size_t actions, std::size_t slots) {
  TV_ENSURE(slots <= kShuffleMaxSlots, "a shuffle program holds at most 64 slots");
  ShuffleProgram program;
  program.slots = slots;
  program.chunks = (slots + 15) / 16;
  const std::size_t per_action = program.chunks * program.chunks * 16;
  program.masks.assign(actions * per_action, 0x80);
  for (std::size_t a = 0; a < actions; ++a) {
    std::uint8_t* masks = program.masks.data() + a * per_action;
    for (std::size_t s = 0; s < slots; ++s) {
      const std::size_t source = moves[a * slots + s];
      const std::size_t out_chunk = s / 16, in_chunk = source / 16;
      masks[(out_chunk * program.chunks + in_chunk) * 16 + s % 16] = static_cast<std::uint8_t>(source % 16);
    }
  }
  return program;
}

#ifdef TV_HAVE_SHUFFLES

bool shuffles_available() {
  static const bool available = __builtin_cpu_supports("ssse3");
  return available;
}

namespace {

struct Row {
  __m128i chunk[4];
};

// The row's chunks; bytes past the row are read only when `readable` says they exist, and the
// shuffle masks never select them.
__attribute__((target("ssse3"))) inline Row load(const std::uint8_t* row, std::size_t slots, std::size_t readable) {
  Row r;
  if (readable >= kShuffleMaxSlots) {
    for (std::size_t c = 0; c < 4; ++c) r.chunk[c] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + 16 * c));
    return r;
  }
  alignas(16) std::uint8_t padded[kShuffleMaxSlots] = {};
  std::memcpy(padded, row, slots);
  for (std::size_t c = 0; c < 4; ++c) r.chunk[c] = _mm_load_si128(reinterpret_cast<const __m128i*>(padded + 16 * c));
  return r;
}

// Writes exactly `slots` bytes: whole chunks directly, the part of the last one in pieces of
// 8, 4, 2 and 1 bytes (a call to memcpy for a few bytes costs more than the shuffles, and a
// byte loop becomes one).
__attribute__((target("ssse3"))) inline void store(const Row& r, std::uint8_t* row, std::size_t slots) {
  const std::size_t whole = slots / 16, rest = slots % 16;
  for (std::size_t c = 0; c < whole; ++c) _mm_storeu_si128(reinterpret_cast<__m128i*>(row + 16 * c), r.chunk[c]);
  if (rest == 0) return;
  alignas(16) std::uint8_t tail[16];
  _mm_store_si128(reinterpret_cast<__m128i*>(tail), r.chunk[whole]);
  std::uint8_t* out = row + 16 * whole;
  std::size_t k = 0;
  const auto piece = [&](std::size_t size, auto word) {
    if ((rest & size) == 0) return;
    std::memcpy(&word, tail + k, sizeof(word));
    std::memcpy(out + k, &word, sizeof(word));
    k += size;
  };
  piece(8, std::uint64_t{});
  piece(4, std::uint32_t{});
  piece(2, std::uint16_t{});
  piece(1, std::uint8_t{});
}

__attribute__((target("ssse3"))) inline Row apply(const ShuffleProgram& program, std::uint32_t action, const Row& in) {
  const std::size_t chunks = program.chunks;
  const auto* masks = reinterpret_cast<const __m128i*>(program.masks.data() + action * chunks * chunks * 16);
  Row out{};
  for (std::size_t o = 0; o < chunks; ++o) {
    __m128i gathered = _mm_setzero_si128();
    for (std::size_t c = 0; c < chunks; ++c)
      gathered = _mm_or_si128(gathered, _mm_shuffle_epi8(in.chunk[c], _mm_loadu_si128(masks + o * chunks + c)));
    out.chunk[o] = gathered;
  }
  return out;
}

}  // namespace

__attribute__((target("ssse3"))) void shuffle_row(const ShuffleProgram& program, std::uint32_t action,
                                                  const std::uint8_t* in, std::size_t readable, std::uint8_t* out) {
  store(apply(program, action, load(in, program.slots, readable)), out, program.slots);
}

__attribute__((target("ssse3"))) void shuffle_row_through(const ShuffleProgram& program, const std::uint32_t* actions,
                                                          std::size_t count, std::uint8_t* row) {
  Row r = load(row, program.slots, 0);
  for (std::size_t k = 0; k < count; ++k) r = apply(program, actions[k], r);
  store(r, row, program.slots);
}

#else

bool shuffles_available() { return false; }
void shuffle_row(const ShuffleProgram&, std::uint32_t, const std::uint8_t*, std::size_t, std::uint8_t*) {
  fail_invariant("compiled shuffles on a processor without them");
}
void shuffle_row_through(const ShuffleProgram&, const std::uint32_t*, std::size_t, std::uint8_t*) {
  fail_invariant("compiled shuffles on a processor without them");
}

#endif

}  // namespace tv
