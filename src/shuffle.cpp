#include "shuffle.hpp"

#include <algorithm>
#include <cstring>

#include "failure.hpp"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define TV_HAVE_SHUFFLES 1
#define TV_SSSE3 __attribute__((target("ssse3")))
#define TV_AVX2 __attribute__((target("avx2")))
#define TV_VBMI __attribute__((target("avx512f,avx512bw,avx512vbmi")))
#endif

namespace tv {
namespace {

void compile_chunk_masks(ShuffleProgram& program, const std::uint8_t* moves, std::size_t actions) {
  const std::size_t chunks = program.chunks, slots = program.slots;
  const std::size_t per_action = chunks * chunks * 16;
  program.masks.assign(actions * per_action, 0x80);
  for (std::size_t a = 0; a < actions; ++a) {
    std::uint8_t* masks = program.masks.data() + a * per_action;
    for (std::size_t s = 0; s < slots; ++s) {
      const std::size_t source = moves[a * slots + s];
      const std::size_t out_chunk = s / 16, in_chunk = source / 16;
      masks[(out_chunk * chunks + in_chunk) * 16 + s % 16] = static_cast<std::uint8_t>(source % 16);
    }
  }
}

// AVX2: one mask per (32-byte output half, input chunk) pair, the input chunk being broadcast
// to both 16-byte lanes, since vpshufb only looks within a lane.
void compile_half_masks(ShuffleProgram& program, const std::uint8_t* moves, std::size_t actions) {
  const std::size_t chunks = program.chunks, halves = (program.slots + 31) / 32, slots = program.slots;
  const std::size_t per_action = halves * chunks * 32;
  program.masks.assign(actions * per_action, 0x80);
  for (std::size_t a = 0; a < actions; ++a) {
    std::uint8_t* masks = program.masks.data() + a * per_action;
    for (std::size_t s = 0; s < slots; ++s) {
      const std::size_t source = moves[a * slots + s];
      masks[(s / 32 * chunks + source / 16) * 32 + s % 32] = static_cast<std::uint8_t>(source % 16);
    }
  }
}

void compile_indices(ShuffleProgram& program, const std::uint8_t* moves, std::size_t actions) {
  program.masks.assign(actions * kShuffleMaxSlots, 0);
  for (std::size_t a = 0; a < actions; ++a)
    std::copy_n(moves + a * program.slots, program.slots, program.masks.begin() + static_cast<std::ptrdiff_t>(a * kShuffleMaxSlots));
}

// Whether every slot of `row` holds a sticker of its solved color.
bool colors_match(const ShuffleProgram& program, const std::uint8_t* row) {
  for (std::size_t s = 0; s < program.slots; ++s)
    if (program.colors[row[s]] != program.colors[s]) return false;
  return true;
}

}  // namespace

ShuffleProgram compile_shuffles(const std::uint8_t* moves, std::size_t actions, std::size_t slots,
                                const std::vector<std::uint8_t>& colors) {
  return compile_shuffles(moves, actions, slots, colors, shuffle_kinds().back());
}

ShuffleProgram compile_shuffles(const std::uint8_t* moves, std::size_t actions, std::size_t slots,
                                const std::vector<std::uint8_t>& colors, ShuffleKind kind) {
  TV_ENSURE(slots <= kShuffleMaxSlots, "a shuffle program holds at most 64 slots");
  TV_ENSURE(colors.empty() || colors.size() == slots, "one color per slot");
  const auto& kinds = shuffle_kinds();
  TV_ENSURE(std::find(kinds.begin(), kinds.end(), kind) != kinds.end(), "a shuffle kind this processor runs");
  ShuffleProgram program;
  if (kind == ShuffleKind::None || slots == 0) return program;
  program.kind = kind;
  program.slots = slots;
  program.chunks = (slots + 15) / 16;
  std::copy(colors.begin(), colors.end(), program.colors.begin());
  switch (kind) {
    case ShuffleKind::Ssse3: compile_chunk_masks(program, moves, actions); break;
    case ShuffleKind::Avx2: compile_half_masks(program, moves, actions); break;
    default: compile_indices(program, moves, actions); break;
  }
  return program;
}

bool shuffles_available() { return shuffle_kinds().size() > 1; }

#ifdef TV_HAVE_SHUFFLES

const std::vector<ShuffleKind>& shuffle_kinds() {
  static const std::vector<ShuffleKind> kinds = [] {
    std::vector<ShuffleKind> found{ShuffleKind::None};
    if (__builtin_cpu_supports("ssse3")) found.push_back(ShuffleKind::Ssse3);
    if (__builtin_cpu_supports("avx2")) found.push_back(ShuffleKind::Avx2);
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vbmi"))
      found.push_back(ShuffleKind::Avx512Vbmi);
    return found;
  }();
  return kinds;
}

namespace {

// ---- SSSE3: a row as four 16-byte chunks ----

struct Row {
  __m128i chunk[4];
};

// The row's chunks; bytes past the row are read only when `readable` says they exist, and the
// shuffle masks never select them.
TV_SSSE3 inline Row load(const std::uint8_t* row, std::size_t slots, std::size_t readable) {
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

// Writes whole chunks, up to 15 bytes past the row: for a row that a later one overwrites.
TV_SSSE3 inline void store_spilling(const Row& r, std::uint8_t* row, std::size_t chunks) {
  for (std::size_t c = 0; c < chunks; ++c) _mm_storeu_si128(reinterpret_cast<__m128i*>(row + 16 * c), r.chunk[c]);
}

// Writes exactly `slots` bytes: whole chunks directly, the part of the last one in pieces of
// 8, 4, 2 and 1 bytes (each a single move; a call to memcpy costs more than the shuffles).
TV_SSSE3 inline void store(const Row& r, std::uint8_t* row, std::size_t slots) {
  const std::size_t whole = slots / 16, rest = slots % 16;
  store_spilling(r, row, whole);
  if (rest == 0) return;
  alignas(16) std::uint8_t tail[16];
  _mm_store_si128(reinterpret_cast<__m128i*>(tail), r.chunk[whole]);
  std::uint8_t* to = row + 16 * whole;
  std::size_t k = 0;
  if (rest & 8) {
    std::memcpy(to, tail, 8);
    k = 8;
  }
  if (rest & 4) {
    std::memcpy(to + k, tail + k, 4);
    k += 4;
  }
  if (rest & 2) {
    std::memcpy(to + k, tail + k, 2);
    k += 2;
  }
  if (rest & 1) to[k] = tail[k];
}

TV_SSSE3 inline Row apply(const ShuffleProgram& program, std::uint32_t action, const Row& in) {
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

TV_SSSE3 void ssse3_row(const ShuffleProgram& program, std::uint32_t action, const std::uint8_t* in,
                        std::size_t readable, std::uint8_t* out) {
  store(apply(program, action, load(in, program.slots, readable)), out, program.slots);
}

TV_SSSE3 void ssse3_rows(const ShuffleProgram& program, const std::uint32_t* actions, bool same_action,
                         const std::uint8_t* in, std::size_t readable, std::uint8_t* out, std::size_t rows,
                         std::uint8_t* solved) {
  const std::size_t slots = program.slots, spill = 16 * program.chunks, total = rows * slots;
  for (std::size_t r = 0; r < rows; ++r) {
    const std::size_t at = r * slots;
    const Row moved = apply(program, actions[same_action ? 0 : r], load(in + at, slots, readable - at));
    if (at + spill <= total)
      store_spilling(moved, out + at, program.chunks);
    else
      store(moved, out + at, slots);
  }
  if (solved != nullptr)
    for (std::size_t r = 0; r < rows; ++r) solved[r] = colors_match(program, out + r * slots);
}

TV_SSSE3 void ssse3_through(const ShuffleProgram& program, const std::uint32_t* actions, std::size_t count,
                            std::uint8_t* row) {
  Row r = load(row, program.slots, 0);
  for (std::size_t k = 0; k < count; ++k) r = apply(program, actions[k], r);
  store(r, row, program.slots);
}

// ---- AVX2: a row as up to four 16-byte chunks, each broadcast to both lanes ----

struct Broadcast {
  __m256i chunk[4];
};

TV_AVX2 inline Broadcast broadcast(const Row& r) {
  Broadcast b;
  for (std::size_t c = 0; c < 4; ++c) b.chunk[c] = _mm256_broadcastsi128_si256(r.chunk[c]);
  return b;
}

// The moved row as 32-byte halves.
TV_AVX2 inline void apply_halves(const ShuffleProgram& program, std::uint32_t action, const Broadcast& in,
                                 __m256i* halves) {
  const std::size_t chunks = program.chunks, count = (program.slots + 31) / 32;
  const auto* masks = reinterpret_cast<const __m256i*>(program.masks.data() + action * count * chunks * 32);
  for (std::size_t h = 0; h < count; ++h) {
    __m256i gathered = _mm256_setzero_si256();
    for (std::size_t c = 0; c < chunks; ++c)
      gathered = _mm256_or_si256(gathered, _mm256_shuffle_epi8(in.chunk[c], _mm256_loadu_si256(masks + h * chunks + c)));
    halves[h] = gathered;
  }
}

TV_AVX2 inline Row split(const __m256i* halves) {
  Row r;
  for (std::size_t h = 0; h < 2; ++h) {
    r.chunk[2 * h] = _mm256_castsi256_si128(halves[h]);
    r.chunk[2 * h + 1] = _mm256_extracti128_si256(halves[h], 1);
  }
  return r;
}

TV_AVX2 Row avx2_apply(const ShuffleProgram& program, std::uint32_t action, const Row& in) {
  __m256i halves[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
  apply_halves(program, action, broadcast(in), halves);
  return split(halves);
}

TV_AVX2 void avx2_row(const ShuffleProgram& program, std::uint32_t action, const std::uint8_t* in,
                      std::size_t readable, std::uint8_t* out) {
  store(avx2_apply(program, action, load(in, program.slots, readable)), out, program.slots);
}

TV_AVX2 void avx2_rows(const ShuffleProgram& program, const std::uint32_t* actions, bool same_action,
                       const std::uint8_t* in, std::size_t readable, std::uint8_t* out, std::size_t rows,
                       std::uint8_t* solved) {
  const std::size_t slots = program.slots, count = (slots + 31) / 32, total = rows * slots;
  for (std::size_t r = 0; r < rows; ++r) {
    const std::size_t at = r * slots;
    __m256i halves[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
    apply_halves(program, actions[same_action ? 0 : r], broadcast(load(in + at, slots, readable - at)), halves);
    if (at + 32 * count <= total) {
      for (std::size_t h = 0; h < count; ++h) _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + at + 32 * h), halves[h]);
    } else {
      store(split(halves), out + at, slots);
    }
  }
  if (solved != nullptr)
    for (std::size_t r = 0; r < rows; ++r) solved[r] = colors_match(program, out + r * slots);
}

TV_AVX2 void avx2_through(const ShuffleProgram& program, const std::uint32_t* actions, std::size_t count,
                          std::uint8_t* row) {
  Row r = load(row, program.slots, 0);
  for (std::size_t k = 0; k < count; ++k) r = avx2_apply(program, actions[k], r);
  store(r, row, program.slots);
}

// ---- AVX-512 VBMI: a row in one register, masked to its slots (the bytes past them zero) ----

TV_VBMI inline __mmask64 row_mask(std::size_t slots) {
  return slots == kShuffleMaxSlots ? ~__mmask64{0} : (__mmask64{1} << slots) - 1;
}

TV_VBMI inline __m512i indices(const ShuffleProgram& program, std::uint32_t action) {
  return _mm512_loadu_si512(program.masks.data() + std::size_t{action} * kShuffleMaxSlots);
}

TV_VBMI void vbmi_row(const ShuffleProgram& program, std::uint32_t action, const std::uint8_t* in, std::uint8_t* out) {
  const __mmask64 mask = row_mask(program.slots);
  const __m512i row = _mm512_maskz_loadu_epi8(mask, in);
  _mm512_mask_storeu_epi8(out, mask, _mm512_maskz_permutexvar_epi8(mask, indices(program, action), row));
}

TV_VBMI inline bool vbmi_solved(__mmask64 mask, __m512i row, __m512i colors) {
  return _mm512_mask_cmpneq_epi8_mask(mask, _mm512_maskz_permutexvar_epi8(mask, row, colors), colors) == 0;
}

TV_VBMI void vbmi_solved_rows(const ShuffleProgram& program, const std::uint8_t* rows, std::size_t count,
                              std::uint8_t* solved) {
  const __mmask64 mask = row_mask(program.slots);
  const __m512i colors = _mm512_loadu_si512(program.colors.data());
  for (std::size_t r = 0; r < count; ++r)
    solved[r] = vbmi_solved(mask, _mm512_maskz_loadu_epi8(mask, rows + r * program.slots), colors);
}

// A mask of the first min(count, 64) bytes.
TV_VBMI inline __mmask64 first_bytes(std::size_t count) { return row_mask(std::min(count, kShuffleMaxSlots)); }

TV_VBMI void vbmi_colors_of(const ShuffleProgram& program, const std::uint8_t* ids, std::size_t count,
                            std::uint8_t* out) {
  const __m512i colors = _mm512_loadu_si512(program.colors.data());
  for (std::size_t i = 0; i < count; i += kShuffleMaxSlots) {
    const __mmask64 mask = first_bytes(count - i);
    _mm512_mask_storeu_epi8(out + i, mask, _mm512_maskz_permutexvar_epi8(mask, _mm512_maskz_loadu_epi8(mask, ids + i), colors));
  }
}

// Output byte q of the one-hot block is 1 when the color of element q / C is q % C. A 64-byte
// chunk starting at q0 reads the elements from q0 / C on; which of them each byte looks at, and
// for which color, depends only on q0 % C, so there are C patterns of (element, color) pairs.
TV_VBMI void vbmi_one_hot_of(const ShuffleProgram& program, std::size_t color_count, const std::uint8_t* ids,
                             std::size_t count, std::uint8_t* out) {
  const std::size_t c = color_count;
  std::vector<std::uint8_t> elements(c * kShuffleMaxSlots), hues(c * kShuffleMaxSlots);
  for (std::size_t r = 0; r < c; ++r)
    for (std::size_t k = 0; k < kShuffleMaxSlots; ++k) {
      elements[r * kShuffleMaxSlots + k] = static_cast<std::uint8_t>((r + k) / c);
      hues[r * kShuffleMaxSlots + k] = static_cast<std::uint8_t>((r + k) % c);
    }
  const __m512i colors = _mm512_loadu_si512(program.colors.data());
  const __m512i ones = _mm512_set1_epi8(1);
  const std::size_t total = count * c;
  for (std::size_t q = 0; q < total; q += kShuffleMaxSlots) {
    const std::size_t first = q / c, r = q % c;
    const __mmask64 window = first_bytes(count - first);
    const __m512i seen = _mm512_maskz_permutexvar_epi8(window, _mm512_maskz_loadu_epi8(window, ids + first), colors);
    const __m512i spread =
        _mm512_maskz_permutexvar_epi8(~__mmask64{0}, _mm512_loadu_si512(elements.data() + r * kShuffleMaxSlots), seen);
    const __mmask64 hit = _mm512_cmpeq_epi8_mask(spread, _mm512_loadu_si512(hues.data() + r * kShuffleMaxSlots));
    _mm512_mask_storeu_epi8(out + q, first_bytes(total - q), _mm512_maskz_mov_epi8(hit, ones));
  }
}

TV_VBMI void vbmi_rows(const ShuffleProgram& program, const std::uint32_t* actions, bool same_action,
                       const std::uint8_t* in, std::uint8_t* out, std::size_t rows, std::uint8_t* solved) {
  const std::size_t slots = program.slots;
  const __mmask64 mask = row_mask(slots);
  const __m512i colors = _mm512_loadu_si512(program.colors.data());
  for (std::size_t r = 0; r < rows; ++r) {
    const __m512i row = _mm512_maskz_loadu_epi8(mask, in + r * slots);
    const __m512i moved = _mm512_maskz_permutexvar_epi8(mask, indices(program, actions[same_action ? 0 : r]), row);
    _mm512_mask_storeu_epi8(out + r * slots, mask, moved);
    if (solved != nullptr) solved[r] = vbmi_solved(mask, moved, colors);
  }
}

TV_VBMI void vbmi_through(const ShuffleProgram& program, const std::uint32_t* actions, std::size_t count,
                          std::uint8_t* row) {
  const __mmask64 mask = row_mask(program.slots);
  __m512i r = _mm512_maskz_loadu_epi8(mask, row);
  for (std::size_t k = 0; k < count; ++k) r = _mm512_maskz_permutexvar_epi8(mask, indices(program, actions[k]), r);
  _mm512_mask_storeu_epi8(row, mask, r);
}

}  // namespace

void shuffle_row(const ShuffleProgram& program, std::uint32_t action, const std::uint8_t* in, std::size_t readable,
                 std::uint8_t* out) {
  switch (program.kind) {
    case ShuffleKind::Ssse3: return ssse3_row(program, action, in, readable, out);
    case ShuffleKind::Avx2: return avx2_row(program, action, in, readable, out);
    case ShuffleKind::Avx512Vbmi: return vbmi_row(program, action, in, out);
    case ShuffleKind::None: break;
  }
  fail_invariant("a shuffle without a program");
}

void shuffle_rows(const ShuffleProgram& program, const std::uint32_t* actions, bool same_action,
                  const std::uint8_t* in, std::size_t readable, std::uint8_t* out, std::size_t rows,
                  std::uint8_t* solved) {
  switch (program.kind) {
    case ShuffleKind::Ssse3: return ssse3_rows(program, actions, same_action, in, readable, out, rows, solved);
    case ShuffleKind::Avx2: return avx2_rows(program, actions, same_action, in, readable, out, rows, solved);
    case ShuffleKind::Avx512Vbmi: return vbmi_rows(program, actions, same_action, in, out, rows, solved);
    case ShuffleKind::None: break;
  }
  fail_invariant("a shuffle without a program");
}

void solved_rows(const ShuffleProgram& program, const std::uint8_t* rows, std::size_t count, std::uint8_t* solved) {
  if (program.kind == ShuffleKind::Avx512Vbmi) return vbmi_solved_rows(program, rows, count, solved);
  for (std::size_t r = 0; r < count; ++r) solved[r] = colors_match(program, rows + r * program.slots);
}

void colors_of(const ShuffleProgram& program, const std::uint8_t* ids, std::size_t count, std::uint8_t* out) {
  if (program.kind == ShuffleKind::Avx512Vbmi) return vbmi_colors_of(program, ids, count, out);
  for (std::size_t i = 0; i < count; ++i) out[i] = program.colors[ids[i]];
}

void one_hot_of(const ShuffleProgram& program, std::size_t color_count, const std::uint8_t* ids, std::size_t count,
                std::uint8_t* out) {
  TV_ENSURE(color_count <= kShuffleMaxSlots, "at most 64 colors");
  if (program.kind == ShuffleKind::Avx512Vbmi) return vbmi_one_hot_of(program, color_count, ids, count, out);
  for (std::size_t i = 0; i < count; ++i) out[i * color_count + program.colors[ids[i]]] = 1;
}

void shuffle_row_through(const ShuffleProgram& program, const std::uint32_t* actions, std::size_t count,
                         std::uint8_t* row) {
  switch (program.kind) {
    case ShuffleKind::Ssse3: return ssse3_through(program, actions, count, row);
    case ShuffleKind::Avx2: return avx2_through(program, actions, count, row);
    case ShuffleKind::Avx512Vbmi: return vbmi_through(program, actions, count, row);
    case ShuffleKind::None: break;
  }
  fail_invariant("a shuffle without a program");
}

#else

const std::vector<ShuffleKind>& shuffle_kinds() {
  static const std::vector<ShuffleKind> kinds{ShuffleKind::None};
  return kinds;
}
void shuffle_row(const ShuffleProgram&, std::uint32_t, const std::uint8_t*, std::size_t, std::uint8_t*) {
  fail_invariant("compiled shuffles on a processor without them");
}
void shuffle_rows(const ShuffleProgram&, const std::uint32_t*, bool, const std::uint8_t*, std::size_t, std::uint8_t*,
                  std::size_t, std::uint8_t*) {
  fail_invariant("compiled shuffles on a processor without them");
}
void solved_rows(const ShuffleProgram&, const std::uint8_t*, std::size_t, std::uint8_t*) {
  fail_invariant("compiled shuffles on a processor without them");
}
void colors_of(const ShuffleProgram&, const std::uint8_t*, std::size_t, std::uint8_t*) {
  fail_invariant("compiled shuffles on a processor without them");
}
void one_hot_of(const ShuffleProgram&, std::size_t, const std::uint8_t*, std::size_t, std::uint8_t*) {
  fail_invariant("compiled shuffles on a processor without them");
}
void shuffle_row_through(const ShuffleProgram&, const std::uint32_t*, std::size_t, std::uint8_t*) {
  fail_invariant("compiled shuffles on a processor without them");
}

#endif

}  // namespace tv
