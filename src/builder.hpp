// The puzzle builder: from a recipe to the pieces of the solved puzzle.
//
// The method is subtractive. All plane coefficients are first moved into one number field; a
// box far larger than any shell is carved down to the shell by the shell planes (keeping the
// side each normal points away from), and the shell is then cut apart by the cut planes.
// Cuts are applied in groups of planes with identical normals, each group from the plane
// furthest back along the normal forwards, so that a half left behind a plane can never be
// reached by a later plane of its group and is set aside at once. A half without any shell
// facet would carry no sticker and could never be seen: it is dropped, which is how the core
// of a puzzle vanishes.
#pragma once

#include <string>

#include "failure.hpp"
#include "parse.hpp"
#include "piece.hpp"

namespace tv {

// Half the edge of the starting box: every shell is carved from [-1000, 1000]^3.
inline constexpr std::int64_t kBoxHalfSize = 1000;

struct BuiltPuzzle {
  PieceSet pieces;          // in build order, with empty memos
  Piece shell_solid;        // the uncut shell
  std::string field_text;   // the puzzle's field right after unification, or "(no planes)"
  double scale = 0.0;       // the factor that scales the puzzle to fit a unit sphere
};

// Builds the solved puzzle of `recipe`. Expansion and unification failures pass up unchanged,
// and nothing partial is kept. Two builds of one recipe give equal results in the same order.
Result<BuiltPuzzle> build_puzzle(const Recipe& recipe);

}  // namespace tv
