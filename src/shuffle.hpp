// Byte rows of up to 64 slots moved by compiled shuffles instead of a per-byte gather.
//
// Three kinds of program, chosen at run time from what the processor has:
// - AVX-512 VBMI holds the whole row in one 64-byte register, and a move is one vpermb with the
//   action's permutation as its index vector. The same instruction looks up the colors of the
//   moved row, so the solved test of a step is one compare.
// - SSSE3 holds the row as up to four 16-byte chunks. Each action is compiled into one pshufb
//   mask per (output chunk, input chunk) pair: a byte of an output chunk takes its value from
//   the one input chunk that holds its source (the mask's index there) and zero from the others
//   (0x80), so OR-ing the shuffles of all input chunks gives the gathered chunk.
// - AVX2 does the same for 32-byte output halves, each input chunk broadcast to both lanes
//   (vpshufb looks only within a lane): half the shuffles of SSSE3.
// Off x86, or without SSSE3, callers use the plain gather. Every kind gives the same bytes. A
// walk keeps its row in registers across all its moves.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tv {

inline constexpr std::size_t kShuffleMaxSlots = 64;

enum class ShuffleKind : std::uint8_t { None, Ssse3, Avx2, Avx512Vbmi };

struct ShuffleProgram {
  ShuffleKind kind = ShuffleKind::None;
  std::size_t slots = 0;
  std::size_t chunks = 0;           // ceil(slots / 16); 0 when nothing is compiled
  std::vector<std::uint8_t> masks;  // per action: SSSE3 chunks * chunks masks of 16 bytes, VBMI 64 indices
  std::array<std::uint8_t, kShuffleMaxSlots> colors{};  // the solved color of each slot, when given
};

// The kinds the running processor can run, best last (None is always there).
const std::vector<ShuffleKind>& shuffle_kinds();
// Whether the running processor can run compiled shuffles at all.
bool shuffles_available();

// The program of `actions` permutations of `slots` <= kShuffleMaxSlots bytes each, packed in
// `moves` (row a is action a, new[s] = old[moves[a][s]]), for the best kind the processor has.
// `colors` (one per slot, each below 256) lets shuffle_rows give the solved test too.
ShuffleProgram compile_shuffles(const std::uint8_t* moves, std::size_t actions, std::size_t slots,
                                const std::vector<std::uint8_t>& colors = {});
// The same for one kind, which the processor must have (tests compare the kinds).
ShuffleProgram compile_shuffles(const std::uint8_t* moves, std::size_t actions, std::size_t slots,
                                const std::vector<std::uint8_t>& colors, ShuffleKind kind);

// out = in moved by `action`; in and out are rows of program.slots bytes and may not overlap.
// `readable` is how many bytes from `in` may be read (at least the row; 64 or more lets the
// row be loaded without a copy).
void shuffle_row(const ShuffleProgram& program, std::uint32_t action, const std::uint8_t* in, std::size_t readable,
                 std::uint8_t* out);

// Moves `rows` consecutive rows from `in` to `out`, row r by actions[r], or all by actions[0]
// when `same_action`. `readable` bytes may be read from `in`; exactly rows * slots bytes of
// `out` are written. When `solved` is given, solved[r] becomes whether every slot of moved row
// r holds a sticker of its solved color (the program must have the colors).
void shuffle_rows(const ShuffleProgram& program, const std::uint32_t* actions, bool same_action,
                  const std::uint8_t* in, std::size_t readable, std::uint8_t* out, std::size_t rows,
                  std::uint8_t* solved);

// solved[r] = whether every slot of row r of `rows` holds a sticker of its solved color (the
// program must have the colors).
void solved_rows(const ShuffleProgram& program, const std::uint8_t* rows, std::size_t count, std::uint8_t* solved);

// out[i] = the solved color of slot ids[i], for `count` slot numbers (the program must have the
// colors).
void colors_of(const ShuffleProgram& program, const std::uint8_t* ids, std::size_t count, std::uint8_t* out);
// The one-hot colors of `count` slot numbers into a zero-filled `out`: out[i * color_count + c]
// is 1 where c is the solved color of slot ids[i]. `color_count` is at most 64, above every color.
void one_hot_of(const ShuffleProgram& program, std::size_t color_count, const std::uint8_t* ids, std::size_t count,
                std::uint8_t* out);

// Moves `row` by each action of `actions` in turn, in place.
void shuffle_row_through(const ShuffleProgram& program, const std::uint32_t* actions, std::size_t count,
                         std::uint8_t* row);

}  // namespace tv
