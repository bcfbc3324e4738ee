// The mutable state of one puzzle and the only thing that moves it.
//
// Two worlds meet here. The exact world (the pieces' orientations, the grips, the history) is
// changed at once by a turn: when `turn` returns, every orientation holds its final exact
// value and the grips belong to it. The float world is what a renderer reads: four doubles per
// piece, which lag behind while a move is animated and are brought level when the animation
// ends or is dropped. Nothing exact ever reads the float world.
//
// An animation never interpolates between a turn's real end points, which could not tell a
// half turn's direction or play a turn of more than 180 degrees. Its `to` is the start turned
// by exactly one radian about the grip's normal, so spherical interpolation from `from` to
// `to`, run with the parameter u = t * angle outside [0, 1] as needed, is the rotation by u
// radians: any size, either sign, constant speed (a full turn takes one second).
//
// Random moves come from SplitMix64's output function applied to a state that the simulator
// advances by hand, so a seed set while scramble moves are queued decides those moves.
//
// A Simulator has no lock: the caller holds it exclusively for every call, including the
// float reads, which can refine the shared field.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "failure.hpp"
#include "movement.hpp"
#include "parse.hpp"
#include "piece.hpp"
#include "render/arrows.hpp"
#include "render/scene.hpp"
#include "symbolic.hpp"

namespace tv {

using FloatQuaternion = std::array<double, 4>;  // x, y, z, w

// The Hamilton product on doubles, w the scalar part.
FloatQuaternion product(const FloatQuaternion& p, const FloatQuaternion& q);
// Spherical interpolation from p towards q, extrapolating for u outside [0, 1].
FloatQuaternion slerp(const FloatQuaternion& p, FloatQuaternion q, double u);

// SplitMix64's output function, and a double in [0, 1) from its top 53 bits.
std::uint64_t mix(std::uint64_t z);
double unit(std::uint64_t z);
inline constexpr std::uint64_t kGoldenGamma = 0x9E3779B97F4A7C15ull;
inline constexpr std::uint64_t kInitialRandomState = 0x2545F4914F6CDD1Dull;

// One applied turn: the plane of the grip that turned and the exact rotation.
struct TurnRecord {
  Plane plane;
  Quaternion rotation;
};

// The move in flight: `to` is each piece's `from` turned by one radian about the grip's normal.
struct Animation {
  std::vector<std::uint32_t> pieces;
  std::vector<FloatQuaternion> from;
  std::vector<FloatQuaternion> to;
  double duration_ms = 0.0;
  double elapsed_ms = 0.0;
  double angle = 0.0;  // signed, radians
};

struct RandomMove {
  std::uint64_t grip;  // as drawn, before clamping to the grip count
  std::int32_t direction;
};

// A turn made by the pointer: grip index and direction.
using GripTurn = std::pair<std::uint64_t, std::int32_t>;

class Simulator {
 public:
  static Result<Simulator> from_recipe_text(std::string_view text);

  // One turn of grip `grip_index`. Any move in flight lands first. Fails with kind Range for a
  // grip or stop index past its list; an exact-layer failure passes up with no rollback.
  Status turn(std::size_t grip_index, TurnChoice choice);
  // The stops of grip `grip_index` (kind Range past the grips), in order of increasing angle.
  Result<std::vector<Quaternion>> stops(std::size_t grip_index);
  // Inverts the last turn on the grip that now has its plane. False, with nothing changed, when
  // the history is empty or that layer is locked.
  Result<bool> undo();
  // Undoes the whole history; false when a locked layer stops it, leaving the rest recorded.
  Result<bool> restore();
  // One random move now: a random grip of the moment, a random direction, never the exact
  // inverse (same grip index, opposite direction) of the last random move.
  Status move_random();
  // One step of the animation or of the scramble queue (a resting puzzle starts one queued
  // move per step), then one step of the orbit camera unless the queued move failed.
  Status advance(double dt_ms);
  // Drags the camera by (dx, dy) at once; the following advances glide on, slowing down.
  void orbit(double dx, double dy);

  // The pointer, at (x, y) in [-1, 1] over the whole frame, y up. A press and release on one
  // arrow turns its grip; a press elsewhere drags the camera until the release.
  std::optional<std::uint32_t> arrow_at(double x, double y) const;
  void pointer_move(double x, double y);
  bool pointer_down(double x, double y);
  // The turn made, as (grip, direction): arrow i turns grip i / 2, direction -1 for an even
  // arrow and +1 for an odd one.
  Result<std::optional<GripTurn>> pointer_up(double x, double y);
  void clear_hover() { hovered_.reset(); }
  // Ends the move in flight and plays out the whole queue, to rest.
  Status settle();
  void cancel_animation();
  void refresh_orientations();
  // Recomputes the grips; on failure the old ones stay.
  Status rederive_grips();

  // The slots and action names of this recipe, made on first use from the solved puzzle (a
  // private solved rebuild once anything has moved), or the one a batch installed.
  Result<std::shared_ptr<const StickerTable>> sticker_table();
  // Shares a table made elsewhere for the same recipe; the slot memo belongs to a table.
  void install_sticker_table(std::shared_ptr<const StickerTable> table);
  // The table's action planes with their numbers moved into this puzzle's own field objects.
  // A table made by another build holds numbers of an equal field that is another object, and
  // comparing across two objects asks whether the fields are equal, which reads the other
  // field's interval under its lock and counts roots; settling that once here keeps every
  // later grip lookup to comparisons of coefficients. Valid once sticker_table() succeeded.
  const std::vector<Plane>& action_planes() const { return action_planes_; }
  Result<std::vector<std::uint32_t>> sticker_ids();
  Result<std::vector<std::uint16_t>> sticker_colors();
  // Whether every slot shows its solved color; fails like sticker_colors off the lattice.
  Result<bool> is_solved();
  // Makes action `action` at once, with no animation; false, with nothing changed, when its
  // layer is locked now. Past the table: kind Range.
  Result<bool> apply_action(std::uint64_t action);
  // Whether each action's layer can turn now.
  Result<std::vector<bool>> action_mask();

  // The generator starts from exactly this state; the last random move is forgotten.
  void seed(std::uint64_t state);
  // Queues `count` random moves, played by advance or settle; the queue saturates at 2^32 - 1.
  void scramble(std::uint32_t count);

  const PieceSet& pieces() const { return pieces_; }
  const std::vector<GripLayer>& grips() const { return grips_; }
  const std::vector<FloatQuaternion>& orientations() const { return orientations_; }
  const std::vector<TurnRecord>& history() const { return history_; }
  const std::optional<Animation>& animation() const { return animation_; }
  std::uint64_t move_count() const { return move_count_; }
  std::uint64_t rng_state() const { return rng_state_; }
  const std::optional<RandomMove>& last_random() const { return last_random_; }
  std::uint32_t scramble_queue() const { return scramble_queue_; }
  const std::string& field_text() const { return field_text_; }
  double scale() const { return scale_; }
  const std::vector<Shape>& shell_shapes() const { return shell_shapes_; }
  const std::vector<Shape>& cut_shapes() const { return cut_shapes_; }

  // What the renderer draws and how: meshes made once at construction, the view and the
  // camera, which a caller changes freely, and the arrow under the pointer.
  const render::Scene& scene() const { return scene_; }
  const render::ViewSettings& view() const { return view_; }
  render::ViewSettings& view() { return view_; }
  const render::Camera& camera() const { return camera_; }
  render::Camera& camera() { return camera_; }
  std::optional<std::uint32_t> hovered_arrow() const { return hovered_; }

  // The piece's exact orientation as a unit quaternion of doubles (the identity for a zero one).
  FloatQuaternion float_orientation(std::uint32_t piece) const;

 private:
  friend struct SimulatorTestAccess;
  Simulator() = default;

  Status step_animation(double dt_ms);
  std::vector<Plane> planes_in_own_field(const std::vector<Plane>& planes) const;
  void drop_animation();
  void prepare_animation(const GripLayer& grip, double angle);

  std::optional<RandomMove> last_random_;
  std::vector<Shape> shell_shapes_;
  std::vector<Shape> cut_shapes_;
  PieceSet pieces_;
  std::string field_text_;
  std::vector<GripLayer> grips_;
  std::vector<FloatQuaternion> orientations_;
  std::vector<TurnRecord> history_;
  std::optional<Animation> animation_;
  double scale_ = 0.0;
  std::uint64_t rng_state_ = kInitialRandomState;
  std::uint64_t move_count_ = 0;
  std::uint32_t scramble_queue_ = 0;
  std::shared_ptr<const StickerTable> sticker_table_;
  std::vector<Plane> action_planes_;
  SlotMemo slot_memo_;
  render::Scene scene_;
  render::ViewSettings view_;
  render::Camera camera_;
  render::OrbitState orbit_;
  std::optional<std::uint32_t> hovered_;
  std::optional<std::uint32_t> pressed_;
};

}  // namespace tv
