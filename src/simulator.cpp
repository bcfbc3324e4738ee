// The simulator: exact turns, their history, random moves and the float state that follows.
#include "simulator.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "builder.hpp"
#include "interrupt.hpp"

namespace tv {

namespace {

constexpr FloatQuaternion kFloatIdentity{0.0, 0.0, 0.0, 1.0};
// sin(1/2) and cos(1/2): the half-angle terms of a rotation by one radian.
constexpr double kSinHalfRadian = 0.479425538604203;
constexpr double kCosHalfRadian = 0.8775825618903728;

FloatQuaternion weighted_sum(const FloatQuaternion& p, double a, const FloatQuaternion& q, double b) {
  return {p[0] * a + q[0] * b, p[1] * a + q[1] * b, p[2] * a + q[2] * b, p[3] * a + q[3] * b};
}

bool all_finite(const FloatQuaternion& q) {
  return std::all_of(q.begin(), q.end(), [](double x) { return std::isfinite(x); });
}

// One radian about the plane's normal, as doubles.
FloatQuaternion one_radian_about(const Plane& plane) {
  const double x = plane.a.to_f64(), y = plane.b.to_f64(), z = plane.c.to_f64();
  const double m = x * x + y * y + z * z;
  if (m == 0.0) return {0.0, 0.0, 0.0, kCosHalfRadian};
  const double s = 1.0 / std::sqrt(m) * kSinHalfRadian;
  return {x * s, y * s, z * s, kCosHalfRadian};
}

// The grip index and direction of one draw from the state s: outputs at s + g and s + 2g.
RandomMove draw(std::uint64_t s, std::size_t grip_count) {
  const double scaled_index = std::floor(unit(mix(s + kGoldenGamma)) * static_cast<double>(grip_count));
  const std::uint64_t index = scaled_index >= 18446744073709551616.0 ? std::numeric_limits<std::uint64_t>::max()
                                                                     : static_cast<std::uint64_t>(scaled_index);
  const int b = static_cast<int>(std::floor(2.0 * unit(mix(s + 2 * kGoldenGamma))));
  return {index, 2 * b - 1};
}

Failure grip_index_failure(std::size_t index, std::size_t count) {
  return range_failure("grip index " + std::to_string(index) + " out of range (have " + std::to_string(count) + ")");
}

}  // namespace

FloatQuaternion product(const FloatQuaternion& p, const FloatQuaternion& q) {
  const auto [px, py, pz, pw] = p;
  const auto [qx, qy, qz, qw] = q;
  return {pw * qx + px * qw + py * qz - pz * qy, pw * qy - px * qz + py * qw + pz * qx,
          pw * qz + px * qy - py * qx + pz * qw, pw * qw - px * qx - py * qy - pz * qz};
}

FloatQuaternion slerp(const FloatQuaternion& p, FloatQuaternion q, double u) {
  double c = p[0] * q[0] + p[1] * q[1] + p[2] * q[2] + p[3] * q[3];
  if (-c > c) {
    for (double& x : q) x = -x;
    c = -c;
  }
  if (c >= 1.0) return p;
  if (1.0 - c * c <= 2.220446049250313e-16) {
    const FloatQuaternion sum = weighted_sum(p, 1.0 - u, q, u);
    const double length = std::sqrt(sum[0] * sum[0] + sum[1] * sum[1] + sum[2] * sum[2] + sum[3] * sum[3]);
    if (length == 0.0) return kFloatIdentity;
    return weighted_sum(sum, 1.0 / length, sum, 0.0);
  }
  const double y = std::sqrt(1.0 - c * c);
  const double omega = std::atan2(y, c);
  return weighted_sum(p, std::sin((1.0 - u) * omega) / y, q, std::sin(u * omega) / y);
}

std::uint64_t mix(std::uint64_t z) {
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

double unit(std::uint64_t z) { return static_cast<double>(z >> 11) * 1.1102230246251565e-16; }

Result<Simulator> Simulator::from_recipe_text(std::string_view text) {
  TV_TRY(Recipe recipe, parse_recipe(text));
  TV_TRY(BuiltPuzzle built, build_puzzle(recipe));
  Simulator sim;
  sim.shell_shapes_ = std::move(recipe.shell);
  sim.cut_shapes_ = std::move(recipe.cuts);
  sim.pieces_ = std::move(built.pieces);
  sim.field_text_ = std::move(built.field_text);
  sim.scale_ = built.scale;
  sim.scene_.meshes = render::build_scene(sim.pieces_.pieces);
  sim.scene_.arrow_mesh = render::arrow_mesh();
  sim.scene_.arrow_ball = render::bounding_ball(sim.scene_.arrow_mesh);
  sim.refresh_orientations();
  TV_CHECK(sim.rederive_grips());
  return sim;
}

FloatQuaternion Simulator::float_orientation(std::uint32_t piece) const {
  const Quaternion& q = pieces_.pieces[piece].orientation;
  const FloatQuaternion f{q.x.to_f64(), q.y.to_f64(), q.z.to_f64(), q.w.to_f64()};
  const double m = f[0] * f[0] + f[1] * f[1] + f[2] * f[2] + f[3] * f[3];
  if (m == 0.0) return kFloatIdentity;
  return weighted_sum(f, 1.0 / std::sqrt(m), f, 0.0);
}

void Simulator::refresh_orientations() {
  orientations_.resize(pieces_.pieces.size());
  for (std::uint32_t i = 0; i < orientations_.size(); ++i) {
    FloatQuaternion q = float_orientation(i);
    if (!all_finite(q)) q = kFloatIdentity;
    orientations_[i] = product(pieces_.base_rotation, q);
  }
}

Status Simulator::rederive_grips() {
  TV_TRY(auto grips, derive_grips(pieces_));
  scene_.arrows = render::place_arrows(grips, pieces_.base_rotation);
  grips_ = std::move(grips);
  hovered_.reset();
  return {};
}

void Simulator::drop_animation() {
  if (!animation_) return;
  animation_.reset();
  refresh_orientations();
}

void Simulator::cancel_animation() {
  animation_.reset();
  refresh_orientations();
}

void Simulator::prepare_animation(const GripLayer& grip, double angle) {
  const FloatQuaternion step = one_radian_about(grip.plane);
  Animation animation;
  animation.pieces = grip.moving;
  animation.from.reserve(grip.moving.size());
  animation.to.reserve(grip.moving.size());
  for (const std::uint32_t i : grip.moving) {
    const FloatQuaternion q = float_orientation(i);
    animation.from.push_back(product(pieces_.base_rotation, q));
    animation.to.push_back(product(pieces_.base_rotation, product(step, q)));
  }
  animation.duration_ms = std::abs(angle) / kFullTurn * 1000.0;
  animation.angle = angle;
  animation_ = std::move(animation);
}

Result<std::vector<Quaternion>> Simulator::stops(std::size_t grip_index) {
  if (grip_index >= grips_.size()) return grip_index_failure(grip_index, grips_.size());
  return stops_of(pieces_, grips_[grip_index]);
}

Status Simulator::turn(std::size_t grip_index, TurnChoice choice) {
  // Long sequences (a scramble queue, written repeats, restore) end here when the caller asks.
  TV_CHECK(check_interrupt());
  if (grip_index >= grips_.size()) return grip_index_failure(grip_index, grips_.size());
  drop_animation();
  const GripLayer grip = grips_[grip_index];
  TV_TRY(const auto stops, stops_of(pieces_, grip));
  ChosenTurn chosen{Quaternion::identity(), 0.0};
  if (choice.kind == TurnChoice::Kind::Stop) {
    if (choice.value < 0 || static_cast<std::uint64_t>(choice.value) >= stops.size()) {
      return range_failure("stop index " + std::to_string(choice.value) + " out of range (grip " +
                           std::to_string(grip_index) + " has " + std::to_string(stops.size()) + ")");
    }
    chosen = {stops[choice.value], stop_angle(stops[choice.value])};
  } else {
    chosen = choose_direction(stops, choice.value);
  }
  prepare_animation(grip, chosen.angle);
  TV_CHECK(apply_rotation(pieces_.pieces, grip.moving, chosen.rotation));
  ++move_count_;
  history_.push_back({grip.plane, std::move(chosen.rotation)});
  return rederive_grips();
}

Result<bool> Simulator::undo() {
  if (history_.empty()) return false;
  const TurnRecord& record = history_.back();
  const auto grip = std::find_if(grips_.begin(), grips_.end(), [&](const GripLayer& g) { return g.plane == record.plane; });
  if (grip == grips_.end()) return false;
  const std::vector<std::uint32_t> moving = grip->moving;
  const Quaternion inverse = conjugate(record.rotation);
  history_.pop_back();
  drop_animation();
  TV_CHECK(apply_rotation(pieces_.pieces, moving, inverse));
  ++move_count_;
  TV_CHECK(rederive_grips());
  refresh_orientations();
  return true;
}

Result<bool> Simulator::restore() {
  while (!history_.empty()) {
    TV_CHECK(check_interrupt());
    TV_TRY(const bool undone, undo());
    if (!undone) return false;
  }
  return true;
}

Status Simulator::move_random() {
  const std::size_t n = grips_.size();
  if (n == 0) return {};
  std::uint64_t s = rng_state_;
  RandomMove move = draw(s, n);
  s += 2 * kGoldenGamma;
  while (last_random_ && last_random_->grip == move.grip && last_random_->direction == -move.direction) {
    move = draw(s, n);
    s += 2 * kGoldenGamma;
  }
  rng_state_ = s;
  last_random_ = move;
  return turn(std::min<std::uint64_t>(n - 1, move.grip), TurnChoice::direction(move.direction));
}

Status Simulator::advance(double dt_ms) {
  TV_CHECK(step_animation(dt_ms));
  render::orbit_update(orbit_, camera_);
  return {};
}

void Simulator::orbit(double dx, double dy) {
  orbit_.dragging = true;
  orbit_.previous_pointer = {0.0, 0.0, 0.0};
  orbit_.current_pointer = {dx, dy, 0.0};
  render::orbit_update(orbit_, camera_);
  orbit_.dragging = false;
}

std::optional<std::uint32_t> Simulator::arrow_at(double x, double y) const {
  return render::arrow_at(scene_, camera_, view_, x, y);
}

void Simulator::pointer_move(double x, double y) {
  if (orbit_.dragging) {
    orbit_.previous_pointer = orbit_.current_pointer;
    orbit_.current_pointer = {x, y, 0.0};
  }
  hovered_ = arrow_at(x, y);
}

bool Simulator::pointer_down(double x, double y) {
  const auto hit = arrow_at(x, y);
  hovered_ = pressed_ = hit;
  if (!hit) {
    orbit_.current_pointer = orbit_.previous_pointer = {x, y, 0.0};
    orbit_.dragging = true;
  }
  return hit.has_value();
}

Result<std::optional<GripTurn>> Simulator::pointer_up(double x, double y) {
  orbit_.dragging = false;
  const auto hit = arrow_at(x, y);
  hovered_ = hit;
  const auto pressed = std::exchange(pressed_, std::nullopt);
  if (!hit || pressed != hit) return std::optional<GripTurn>{};
  const std::uint64_t grip = *hit / 2;
  const std::int32_t direction = 2 * static_cast<std::int32_t>(*hit % 2) - 1;
  TV_CHECK(turn(grip, TurnChoice::direction(direction)));
  return std::optional<GripTurn>{GripTurn{grip, direction}};
}

Status Simulator::step_animation(double dt_ms) {
  if (!animation_) {
    if (scramble_queue_ > 0) {
      --scramble_queue_;
      TV_CHECK(move_random());
    }
    return {};
  }
  Animation& animation = *animation_;
  // A NaN step, or infinities of opposite signs, would leave the animation nowhere.
  if (const double elapsed = animation.elapsed_ms + dt_ms; !std::isnan(elapsed)) animation.elapsed_ms = elapsed;
  const double t = animation.duration_ms > 0.0 ? animation.elapsed_ms / animation.duration_ms : 2.0;
  if (t > 1.0) {
    cancel_animation();
    return {};
  }
  const double u = t * animation.angle;
  if (!std::isfinite(u)) return {};
  for (std::size_t k = 0; k < animation.pieces.size(); ++k) {
    FloatQuaternion& target = orientations_[animation.pieces[k]];
    if (u == 0.0) {
      target = animation.from[k];
    } else if (u == 1.0) {
      target = animation.to[k];
    } else {
      target = slerp(animation.from[k], animation.to[k], u);
    }
  }
  return {};
}

Status Simulator::settle() {
  drop_animation();
  while (scramble_queue_ > 0) {
    --scramble_queue_;
    TV_CHECK(move_random());
    drop_animation();
  }
  return {};
}

Result<std::shared_ptr<const StickerTable>> Simulator::sticker_table() {
  if (sticker_table_) return sticker_table_;
  std::optional<BuiltPuzzle> rebuilt;
  std::vector<GripLayer> solved_grips;
  if (move_count_ > 0) {
    TV_TRY(rebuilt, build_puzzle(Recipe{shell_shapes_, cut_shapes_}));
    TV_TRY(solved_grips, derive_grips(rebuilt->pieces));
  }
  const PieceSet& solved = rebuilt ? rebuilt->pieces : pieces_;
  TV_TRY(StickerTable table, build_sticker_slots(solved.pieces));
  TV_TRY(GripNames named, name_grips(rebuilt ? solved_grips : grips_));
  table.grip_names = std::move(named.names);
  table.action_planes = std::move(named.planes);
  action_planes_ = planes_in_own_field(table.action_planes);
  sticker_table_ = std::make_shared<const StickerTable>(std::move(table));
  return sticker_table_;
}

void Simulator::install_sticker_table(std::shared_ptr<const StickerTable> table) {
  action_planes_ = planes_in_own_field(table->action_planes);
  sticker_table_ = std::move(table);
  slot_memo_.clear();
}

std::vector<Plane> Simulator::planes_in_own_field(const std::vector<Plane>& planes) const {
  std::vector<FieldRef> own;
  for (const GripLayer& grip : grips_)
    for (const AlgebraicNumber* x : {&grip.plane.a, &grip.plane.b, &grip.plane.c, &grip.plane.d})
      if (std::find(own.begin(), own.end(), x->field()) == own.end()) own.push_back(x->field());
  // Each foreign field is compared with ours once; a number whose field has no equal among
  // ours keeps its own, and compares as before.
  std::vector<std::pair<FieldRef, FieldRef>> renamed;
  const auto home = [&](const AlgebraicNumber& x) {
    if (std::find(own.begin(), own.end(), x.field()) != own.end()) return x;
    auto known = std::find_if(renamed.begin(), renamed.end(), [&](const auto& r) { return r.first == x.field(); });
    if (known == renamed.end()) {
      FieldRef match;
      for (const FieldRef& f : own) {
        const Result<bool> same = equals(x.field(), f);
        if (same.ok() && same.value()) {
          match = f;
          break;
        }
      }
      known = renamed.insert(renamed.end(), {x.field(), match});
    }
    if (!known->second) return x;
    return AlgebraicNumber::from_polynomial(known->second, x.polynomial());
  };
  std::vector<Plane> homed;
  homed.reserve(planes.size());
  for (const Plane& p : planes) homed.push_back(Plane{home(p.a), home(p.b), home(p.c), home(p.d)});
  return homed;
}

Result<std::vector<std::uint32_t>> Simulator::sticker_ids() {
  TV_TRY(const auto table, sticker_table());
  return tv::sticker_ids(*table, pieces_.pieces, slot_memo_);
}

Result<std::vector<std::uint16_t>> Simulator::sticker_colors() {
  TV_TRY(const auto table, sticker_table());
  return tv::sticker_colors(*table, pieces_.pieces, slot_memo_);
}

Result<bool> Simulator::is_solved() {
  TV_TRY(const auto table, sticker_table());
  TV_TRY(const auto colors, sticker_colors());
  return colors == table->solved_colors;
}

Result<bool> Simulator::apply_action(std::uint64_t action) {
  TV_TRY(const auto table, sticker_table());
  const std::uint64_t count = 2 * table->action_planes.size();
  if (action >= count) {
    return range_failure("action " + std::to_string(action) + " out of range (have " + std::to_string(count) + ")");
  }
  const auto grip = current_grip(action_planes_, grips_, action);
  if (!grip) return false;
  TV_CHECK(turn(*grip, TurnChoice::direction(action % 2 ? -1 : 1)));
  cancel_animation();
  return true;
}

Result<std::vector<bool>> Simulator::action_mask() {
  TV_TRY(const auto table, sticker_table());
  std::vector<bool> mask(2 * table->action_planes.size());
  for (std::uint64_t a = 0; a < mask.size(); ++a) mask[a] = current_grip(action_planes_, grips_, a).has_value();
  return mask;
}

void Simulator::seed(std::uint64_t state) {
  rng_state_ = state;
  last_random_.reset();
}

void Simulator::scramble(std::uint32_t count) {
  const std::uint32_t room = std::numeric_limits<std::uint32_t>::max() - scramble_queue_;
  scramble_queue_ += std::min(count, room);
}

}  // namespace tv
