// The symbolic state of a puzzle: sticker slots, colors and permutations.
//
// A sticker is a shell facet of a piece; a slot is a place where a sticker sits on the solved
// puzzle. Slots are numbered once, from the solved puzzle, by (color id, piece, facet), so the
// colors form contiguous runs and each run follows the build's piece order. A place is
// identified exactly by the unscaled sum of the facet's world vertices and their count, written
// as text without the field (all numbers of a puzzle share one field).
//
// In any later state of a puzzle that stays on its own lattice, each sticker sits in some slot,
// and ids[slot] is the solved slot of the sticker found there: a permutation, the identity when
// solved, with the convention new[i] = old[perm[i]] for moves. A sticker that lands on no
// solved place, or a slot left empty, means the puzzle has left its lattice: it jumbles.
//
// Only the first visit to a (piece, orientation) pair does exact work; afterwards a moved piece
// costs one text key and one lookup, and a piece at home costs nothing.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "failure.hpp"
#include "movement.hpp"
#include "piece.hpp"

namespace tv {

class Simulator;

// What one recipe's slots are; immutable once made and shared by the simulators that use it.
struct StickerTable {
  std::vector<std::uint16_t> solved_colors;              // color id per slot
  std::vector<std::uint32_t> palette;                    // 0xRRGGBB per color id, first seen first
  std::vector<std::vector<std::uint32_t>> slots_of_piece;  // a piece's solved slots, ascending
  std::vector<std::vector<std::uint32_t>> facets_of_piece;  // their facet indices, in parallel
  std::vector<std::array<double, 3>> positions;          // sticker centres, before the scale
  std::unordered_map<std::string, std::uint32_t> position_index;  // exact place -> slot
  std::vector<std::string> grip_names;
  std::vector<Plane> action_planes;
};

// (piece index, orientation) -> the slots its stickers occupy, parallel to slots_of_piece.
using SlotMemo = std::unordered_map<std::string, std::shared_ptr<const std::vector<std::uint32_t>>>;

// The slot part of a table (no names) from the pieces of a solved puzzle.
Result<StickerTable> build_sticker_slots(const std::vector<Piece>& pieces);

// ids[slot]: the solved slot of the sticker in `slot` now. Fails with kind State off the lattice.
Result<std::vector<std::uint32_t>> sticker_ids(const StickerTable& table, const std::vector<Piece>& pieces,
                                               SlotMemo& memo);
// colors[slot] = solved_colors[ids[slot]], with the same failures.
Result<std::vector<std::uint16_t>> sticker_colors(const StickerTable& table, const std::vector<Piece>& pieces,
                                                  SlotMemo& memo);

struct ActionPermutations {
  std::vector<std::vector<std::uint32_t>> permutations;  // one per action
  std::vector<std::uint16_t> baseline;                   // the colors when derived
};

// Each action's permutation, measured on the live simulator from its state at the call, which
// it leaves as it found it (history and orientations; move_count rises by two per action).
// Nothing when some action cannot be made, lands off the lattice, locks a layer or does not
// come back: then the actions are not fixed permutations.
Result<std::optional<ActionPermutations>> derive_action_permutations(Simulator& sim);

// Whether the puzzle of this query ever leaves its own lattice, found by trying: every action
// and its inverse from the solved state, then a fixed walk of forty actions.
Result<bool> jumbles(std::string_view query);

}  // namespace tv
