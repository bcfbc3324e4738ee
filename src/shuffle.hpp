// Byte rows of up to 64 slots moved by compiled shuffles instead of a per-byte gather.
//
// A row is held as up to four 16-byte chunks. Each action's permutation is compiled once into
// one pshufb mask per (output chunk, input chunk) pair: a byte of an output chunk takes its
// value from the one input chunk that holds its source (the mask's index there) and zero from
// the others (0x80), so OR-ing the shuffles of all input chunks gives the gathered chunk. A
// walk keeps its row in registers across all its moves.
//
// The shuffles need SSSE3, which is checked at run time; without it (or off x86) the callers
// use the plain gather, which gives the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tv {

inline constexpr std::size_t kShuffleMaxSlots = 64;

struct ShuffleProgram {
  std::size_t slots = 0;
  std::size_t chunks = 0;            // ceil(slots / 16)
  std::vector<std::uint8_t> masks;   // per action, chunks * chunks masks of 16 bytes
};

// Whether the running processor can run compiled shuffles.
bool shuffles_available();

// The program of `actions` permutations of `slots` <= kShuffleMaxSlots bytes each, packed in
// `moves` (row a is action a, new[s] = old[moves[a][s]]).
ShuffleProgram compile_shuffles(const std::uint8_t* moves, std::size_t actions, std::size_t slots);

// out = in moved by `action`; in and out are rows of program.slots bytes and may not overlap.
// `readable` is how many bytes from `in` may be read (at least the row; 64 or more lets the
// row be loaded without a copy).
void shuffle_row(const ShuffleProgram& program, std::uint32_t action, const std::uint8_t* in, std::size_t readable,
                 std::uint8_t* out);

// Moves `row` by each action of `actions` in turn, in place.
void shuffle_row_through(const ShuffleProgram& program, const std::uint32_t* actions, std::size_t count,
                         std::uint8_t* row);

}  // namespace tv
