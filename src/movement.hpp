// What can turn, how far it can turn, and what a turn does to the pieces.
//
// Nothing here is stored in a recipe; it is read off the puzzle as it stands.
//
// A grip is a plane that no piece straddles. The candidate planes are the interior facets of
// all pieces, each carried to where its piece now is. A piece is on one side of a plane when
// the lowest and highest values of n . v over its vertices both lie on that side; the normal is
// carried back into the piece's own frame (by the conjugate orientation) instead of every
// vertex being carried forward, and the projection is remembered per normal, piece and
// orientation, so parallel planes share it and a state seen before costs only a text lookup.
//
// A turn is an exact rotation kept as an unnormalised quaternion in the puzzle's field. For a
// rotation by theta about n taking a to b (equal length, equal component along n),
//   n . (a x b) = |n| r^2 sin(theta),   a . a - a . b = r^2 (1 - cos(theta)),
// so their quotient is |n| cot(theta / 2) and (n, quotient) is proportional to
// (n/|n| sin(theta/2), cos(theta/2)): rational in the data, with no sine, cosine or square root.
// The field therefore never grows however long a puzzle is turned. The stops of a grip are the
// rotations that carry a cut dividing its layer onto a cut dividing the rest; they are ordered
// by stop_key = 1 - w|w| / |q|^2, an exact, strictly increasing function of the angle.
//
// Every map keyed by exact numbers is keyed by text: equal values give equal text within one
// puzzle's field, and comparing text is far cheaper than comparing numbers.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "failure.hpp"
#include "piece.hpp"

namespace tv {

// One turnable layer as it stands now. `moving` holds the pieces with every vertex on the
// positive side of `plane` (touching allowed), `fixed` the others; together they hold every
// piece.
struct GripLayer {
  Plane plane;
  std::vector<std::uint32_t> moving;
  std::vector<std::uint32_t> fixed;
};

using Vector3 = std::array<AlgebraicNumber, 3>;

// The Hamilton product, w the scalar part.
Quaternion product(const Quaternion& p, const Quaternion& q);
Quaternion conjugate(const Quaternion& q);
AlgebraicNumber norm2(const Quaternion& q);
Quaternion scaled(const Quaternion& q, const AlgebraicNumber& s);
// q v q* / |q|^2: the rotation of v by an unnormalised q. Fails only on a zero q.
Result<Vector3> rotate(const Quaternion& q, const Vector3& v);
// A plane through the rotation: its normal rotated, its d unchanged.
Result<Plane> rotated_plane(const Quaternion& q, const Plane& plane);

// Text keys: a number is its field's identity and its coefficients (a rational is the same text
// in every field); a normal "[a,b,c]"; a plane "[normal,d]"; an orientation "[x,y,z,w]".
std::string number_key(const AlgebraicNumber& x);
std::string normal_key(const Plane& plane);
std::string plane_key(const Plane& plane);
std::string orientation_key(const Quaternion& q);

// The cut planes of the pieces' interior facets, as they now stand, in standard sign (first
// non-zero of a, b, c positive) and first-seen order, with the pieces of `subset` sorted onto
// their sides. A plane that a piece of the subset straddles is dropped. With `both_sides`, a
// plane is kept only when both sides hold a piece of the subset.
Result<std::vector<GripLayer>> candidate_planes(PieceSet& pieces, const std::vector<std::uint32_t>& subset,
                                                bool both_sides);
Result<std::vector<GripLayer>> candidate_planes(PieceSet& pieces, bool both_sides);

// The turnable layers in grip order: every plane with d <= 0 (a plane through the centre gives
// one grip for each half), sorted by d, nearest the centre first.
Result<std::vector<GripLayer>> derive_grips(PieceSet& pieces);

// The rotations about the grip's normal that carry a cut of its layer onto a cut of the rest,
// each once, in order of increasing angle.
Result<std::vector<Quaternion>> stops_of(PieceSet& pieces, const GripLayer& grip);

// The rotation about `axis` that takes `from` to `to` (vectors with equal length and equal
// component along the axis).
Result<Quaternion> rotation_between(const Vector3& axis, const Vector3& from, const Vector3& to);
// 1 - w|w| / |q|^2: 0 for the identity, 1 for a half turn, approaching 2 near a full turn.
Result<AlgebraicNumber> stop_key(const Quaternion& q);
// The angle of q in radians, in [0, 2 pi], from its coordinates as doubles.
double stop_angle(const Quaternion& q);
// Whether q is the identity rotation (its stop key is 0).
bool is_identity(const Quaternion& q);

// Either "turn in this direction to the nearest stop" (only the sign counts) or "turn to stop s".
struct TurnChoice {
  enum class Kind : std::uint8_t { Direction, Stop };
  Kind kind;
  std::int64_t value;
  static TurnChoice direction(std::int64_t d) { return {Kind::Direction, d}; }
  static TurnChoice stop(std::int64_t s) { return {Kind::Stop, s}; }
};

// The rotation a choice makes among `stops`, and the signed float angle it animates through.
struct ChosenTurn {
  Quaternion rotation;
  double angle;
};
inline constexpr double kFullTurn = 6.283185307179586;

// A direction always chooses: +1 (and 0) the smallest positive angle, -1 the largest; with no
// stop but the identity, a full spin; with no stop at all, the identity spun a full turn. A
// stop index is checked by the caller.
ChosenTurn choose_direction(const std::vector<Quaternion>& stops, std::int64_t direction);

// Turns the listed pieces by r: each orientation becomes r * orientation, rescaled to L1
// length 1 with w >= 0, so numbers do not grow over a game and equal rotations have equal text.
Status apply_rotation(std::vector<Piece>& pieces, const std::vector<std::uint32_t>& indices, const Quaternion& r);

// ---------------------------------------------------------------------------------------------
// Actions: stable numbers for turns of the solved puzzle's layers. Grip k of the solved puzzle
// has the name grip_names[k] and two actions, 2k (the way its normal points) and 2k + 1 (back,
// named with a trailing "'"). Names come from the axes in grip order: the axes are labelled
// A, B, ..., Z, AA, AB, ... (bijective base 26), and a grip shares its axis's label, with its
// place on the axis from 1 appended when the axis has several grips.
// ---------------------------------------------------------------------------------------------

struct GripNames {
  std::vector<std::string> names;
  std::vector<Plane> planes;  // each solved grip's plane, in grip order
};

// Names the solved grips; a grip whose normal is zero fails with kind State.
Result<GripNames> name_grips(const std::vector<GripLayer>& grips);
// "A", "B2'": the name of an action, whose grip k = action / 2 must exist.
std::string action_name(const std::vector<std::string>& names, std::uint64_t action);
// The action a name stands for; nothing when no grip has it.
std::optional<std::uint64_t> action_index(const std::vector<std::string>& names, std::string_view name);
// The index among `grips` of the layer that action `action` turns now: the first grip with the
// action's solved plane. Nothing past the table, or when that layer is locked.
std::optional<std::size_t> current_grip(const std::vector<Plane>& action_planes, const std::vector<GripLayer>& grips,
                                        std::uint64_t action);

struct Move {
  std::uint64_t action;
  std::uint32_t repeat;
};

// Reads written moves such as "A B2' A'": tokens split on runs of Unicode white space (the
// White_Space property: U+0009 to U+000D, U+0020, U+0085, U+00A0, U+1680, U+2000 to U+200A,
// U+2028, U+2029, U+202F, U+205F, U+3000). A token is a name with an optional trailing "'"; a
// name that is not itself a grip's may end in an ASCII repeat count from 1 to 2^32 - 1, which
// stands before the "'". The whole text is read before anything moves; failures have kind Parse.
Result<std::vector<Move>> parse_moves(const std::vector<std::string>& names, std::string_view text);

}  // namespace tv
