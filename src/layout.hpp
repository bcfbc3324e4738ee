// A face-by-face numbering of a puzzle's stickers, and a permutation engine over it.
//
// The simulator numbers sticker slots in the order its geometry yields them; learning code and
// outside solvers expect facelets numbered face by face. When a puzzle is a cube, its geometry
// says which slot is which facelet of the usual U, D, L, R, B, F numbering, each face read row
// by row, and the twelve face turns are worked out by rotating facelet centres, so they exist
// even for a cube whose turns jumble. Any other puzzle keeps its own slot order, its colors as
// faces and its actions as moves, so that everything built on a layout works alike for all.
//
// A layout holds no geometry: once made it is plain vectors, immutable, and every operation on
// it reads them only. Moves follow the system's convention new[i] = old[moves[m][i]].
//
// Rows of states move on the worker pool with whole rows as the unit, each row writing only its
// own output through one scratch row per leaf of the loop. Walks draw from one SplitMix64
// generator per row, seeded from the row index, so no result depends on the schedule.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "array.hpp"
#include "failure.hpp"
#include "shuffle.hpp"

namespace tv {

struct CubeShape {
  std::uint32_t size = 0;  // facelets along one side
  double half = 0.0;       // the largest absolute sticker coordinate
};

struct Layout {
  std::optional<CubeShape> cube;
  std::string query;                           // canonical recipe text of the puzzle
  std::vector<std::uint32_t> facelet_of_slot;  // slot -> facelet
  std::vector<std::uint32_t> slot_of_facelet;  // facelet -> slot
  std::vector<std::uint16_t> face_of_color;    // one per color of the puzzle
  std::vector<std::uint16_t> color_of_face;
  std::vector<std::uint32_t> face_sizes;
  std::vector<std::string> faces;
  std::vector<std::uint32_t> goal;  // the face of each facelet when solved
  std::vector<std::vector<std::uint32_t>> moves;
  std::vector<std::string> move_names;
  std::vector<std::optional<std::uint32_t>> actions;   // the puzzle's own action of each move
  std::vector<std::optional<std::uint32_t>> inverses;  // the move that undoes each move
  std::uint64_t face_count = 0;

  // The moves packed row after row, and compiled for byte rows of up to 64 facelets (empty
  // when the rows are longer or the processor has no shuffles).
  std::vector<std::uint32_t> table;
  ShuffleProgram shuffles;

  std::size_t facelet_count() const { return goal.size(); }
  std::size_t move_count() const { return moves.size(); }
  std::size_t color_count() const { return face_of_color.size(); }
  // Colors and faces are read and written at the width this bound gives.
  std::uint64_t value_bound() const {
    return color_count() > face_count ? static_cast<std::uint64_t>(color_count()) : face_count;
  }
};

// ---- derivation ----

// Builds the puzzle of the resolved recipe text and derives its layout; the puzzle is dropped.
Result<Layout> derive_layout(std::string_view query);

// The facelet at point p of a cube with `size` facelets a side and half-edge `half`: the first
// face whose plane holds p, then p's cell, which must lie at a cell centre.
std::optional<std::uint32_t> locate_facelet(const std::array<double, 3>& p, std::uint32_t size, double half);

// inverses[m]: the move with the inverse permutation, the first such, or m itself when it is
// its own inverse; absent when no move undoes it.
std::vector<std::optional<std::uint32_t>> inverses_of(const std::vector<std::vector<std::uint32_t>>& moves);

// A copy whose moves are the composites of `sequences`, each applied first to last.
Result<Layout> with_moves(const Layout& layout, const std::vector<std::vector<std::uint64_t>>& sequences);

// The move a name stands for, white space trimmed: the first move of exactly that name, or on a
// cube a face letter with "", "1", "+1" (the move named "<letter>1", clockwise) or "-1", "'"
// (the move named "<letter>-1").
std::optional<std::uint32_t> move_index(const Layout& layout, std::string_view name);

// ---- states ----

// How many rows a flat input of `length` values holds; `single` when it is exactly one state.
struct StateRows {
  std::size_t count = 0;
  bool single = false;
};
Result<StateRows> state_rows(const Layout& layout, std::size_t length);

Result<std::vector<std::uint32_t>> moves_to_actions(const Layout& layout, const std::vector<std::uint64_t>& moves);
Result<ArrayBuffer> inverse_moves(const Layout& layout, std::span<const std::uint32_t> moves);

// Slot-order colors to facelet-order faces, slot-order identities to facelet-order ones, and
// facelet-order faces back to slot-order colors. T is the width the values were read at.
template <class T>
Result<ArrayBuffer> to_facelets(const Layout& layout, std::span<const T> states);
template <class T>
Result<ArrayBuffer> to_facelet_ids(const Layout& layout, std::span<const T> ids);
template <class T>
Result<ArrayBuffer> from_facelets(const Layout& layout, std::span<const T> facelets);

// The moves of next_states: one for every row, or one per row.
struct MoveChoice {
  std::optional<std::uint32_t> every;
  std::vector<std::uint32_t> per_row;
};
// Each row moved once; the result has element type `width`.
Result<ArrayBuffer> next_states(const Layout& layout, std::span<const std::uint32_t> states, ElementType width,
                                const MoveChoice& moves);

template <class T>
Result<ArrayBuffer> one_hot(const Layout& layout, std::span<const T> facelets);
template <class T>
Result<ArrayBuffer> solved(const Layout& layout, std::span<const T> facelets);
// One line per face: its name, a blank and its facelets as letters.
template <class T>
std::string facelet_text(const Layout& layout, std::span<const T> facelets);

// ---- walks ----

// How long each row walks: one depth for all, a range drawn row by row, or one per row.
struct DepthChoice {
  std::optional<std::uint32_t> every;
  std::optional<std::pair<std::uint32_t, std::uint32_t>> range;  // low <= high
  std::vector<std::uint32_t> per_row;
};

// One depth per row. A range draws in row order from one generator seeded with
// seed ^ 0x51ED2701A5C61B3D: depth = low + z mod (high - low + 1).
Result<std::vector<std::uint32_t>> walk_depths(const DepthChoice& choice, std::uint64_t rows, std::uint64_t seed);

// The generator state of walk row i.
inline std::uint64_t walk_seed(std::uint64_t seed, std::uint64_t row) { return ((seed + row) * 0x9E3779B97F4A7C15ull) | 1; }

// Row i walks depths[i] moves from the goal; only the end states are kept.
Result<ArrayBuffer> scrambled(const Layout& layout, std::span<const std::uint32_t> depths, std::uint64_t seed);
// The same walks with every position and every move: (states, moves).
Result<std::pair<ArrayBuffer, ArrayBuffer>> trajectories(const Layout& layout, std::span<const std::uint32_t> depths,
                                                         std::uint64_t seed);

}  // namespace tv
