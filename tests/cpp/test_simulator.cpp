#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "simulator.hpp"
#include "simulator_access.hpp"

namespace tv {
namespace {

constexpr const char* kCube3 = "?shell=C$1&cut=C$1/3";
constexpr const char* kOneSlab = "?shell=C$1&cut=1,0,0$1/4";  // one grip
constexpr const char* kObliqueSlab = "?shell=C$1&cut=1,2,3$1/10";  // one grip, no stops

Simulator make(const char* query) {
  auto sim = Simulator::from_recipe_text(query);
  EXPECT_TRUE(sim.ok()) << query;
  return std::move(sim).value();
}

AlgebraicNumber q(std::int64_t n) { return AlgebraicNumber::from_int(rational_field(), n); }

// What a game did, as text: each turn's plane and rotation.
std::string history_text(const Simulator& sim) {
  std::string text;
  for (const TurnRecord& r : sim.history()) text += plane_key(r.plane) + orientation_key(r.rotation) + "\n";
  return text;
}

TEST(Random, SplitMixOutputsAndFreshState) {
  EXPECT_EQ(mix(kGoldenGamma), 0xE220A8397B1DCDAFull);
  EXPECT_EQ(mix(2 * kGoldenGamma), 0x6E789E6AA1B965F4ull);
  EXPECT_EQ(unit(~0ull), 1.0 - 0x1p-53);
  const Simulator sim = make(kCube3);
  EXPECT_EQ(sim.rng_state(), 0x2545F4914F6CDD1Dull);
  EXPECT_EQ(sim.move_count(), 0u);
  EXPECT_FALSE(sim.animation() || sim.last_random());
}

TEST(Random, SameSeedSameGameOnEveryThread) {
  const auto play = [](std::uint64_t seed) {
    Simulator sim = make(kCube3);
    sim.seed(seed);
    sim.scramble(25);
    EXPECT_TRUE(sim.settle().ok());
    return history_text(sim);
  };
  const std::string serial = play(0);
  EXPECT_NE(serial, play(1));
  std::vector<std::string> games(8);
  std::vector<std::thread> threads;
  for (auto& game : games) threads.emplace_back([&game, &play] { game = play(0); });
  for (auto& t : threads) t.join();
  for (const auto& game : games) EXPECT_EQ(game, serial);
}

TEST(Random, QueuedMovesAreDrawnWhenPlayedNotWhenQueued) {
  Simulator queued = make(kCube3), direct = make(kCube3);
  queued.scramble(12);
  queued.seed(99);
  ASSERT_TRUE(queued.advance(16.0).ok());
  EXPECT_EQ(queued.scramble_queue(), 11u);
  EXPECT_TRUE(queued.animation());
  ASSERT_TRUE(queued.settle().ok());
  direct.seed(99);
  for (int k = 0; k < 12; ++k) ASSERT_TRUE(direct.move_random().ok());
  EXPECT_EQ(history_text(queued), history_text(direct));
  EXPECT_EQ(queued.scramble_queue(), 0u);
  queued.scramble(std::numeric_limits<std::uint32_t>::max());
  queued.scramble(5);
  EXPECT_EQ(queued.scramble_queue(), std::numeric_limits<std::uint32_t>::max());
}

TEST(Random, NeverTheExactInverseOfTheLastDraw) {
  // With one grip every draw that passes repeats the first direction.
  Simulator one = make(kOneSlab);
  ASSERT_EQ(one.grips().size(), 1u);
  ASSERT_TRUE(one.move_random().ok());
  const std::int32_t first = one.last_random()->direction;
  for (int k = 0; k < 10000; ++k) {
    ASSERT_TRUE(one.move_random().ok());
    ASSERT_EQ(one.last_random()->direction, first);
  }
  Simulator cube = make(kCube3);
  RandomMove previous{0, 0};
  for (int k = 0; k < 300; ++k) {
    ASSERT_TRUE(cube.move_random().ok());
    const RandomMove move = *cube.last_random();
    EXPECT_FALSE(k > 0 && move.grip == previous.grip && move.direction == -previous.direction);
    previous = move;
  }
}

TEST(Random, NoGripsNoMove) {
  Simulator sim = make("?shell=C$1");
  EXPECT_TRUE(sim.grips().empty());
  sim.scramble(2);
  ASSERT_TRUE(sim.advance(16.0).ok());
  ASSERT_TRUE(sim.move_random().ok());
  EXPECT_EQ(sim.scramble_queue(), 1u);
  ASSERT_TRUE(sim.settle().ok());
  EXPECT_EQ(sim.move_count(), 0u);
}

TEST(Turning, BadIndicesChangeNothingExact) {
  Simulator sim = make(kCube3);
  ASSERT_TRUE(sim.turn(0, TurnChoice::direction(1)).ok());
  const auto before = history_text(sim);
  const auto grip_error = sim.turn(6, TurnChoice::direction(1));
  ASSERT_FALSE(grip_error.ok());
  EXPECT_EQ(grip_error.failure().kind, FailureKind::Range);
  EXPECT_EQ(grip_error.failure().message, "grip index 6 out of range (have 6)");
  EXPECT_TRUE(sim.animation());
  const auto stop_error = sim.turn(2, TurnChoice::stop(4));
  ASSERT_FALSE(stop_error.ok());
  EXPECT_EQ(stop_error.failure().message, "stop index 4 out of range (grip 2 has 4)");
  EXPECT_FALSE(sim.animation()) << "the move in flight landed first";
  EXPECT_EQ(history_text(sim), before);
  EXPECT_EQ(sim.move_count(), 1u);
}

TEST(Turning, UndoOfALockedLayerIsRefused) {
  Simulator sim = make(kCube3);
  EXPECT_FALSE(*sim.undo());
  EXPECT_EQ(sim.move_count(), 0u);
  ASSERT_TRUE(sim.turn(0, TurnChoice::direction(1)).ok());
  const Plane turned = sim.history().back().plane;
  // A layer at right angles to the last turn, turned by an angle that is no stop.
  std::size_t across = 0;
  while ((sim.grips()[across].plane.a * turned.a + sim.grips()[across].plane.b * turned.b +
          sim.grips()[across].plane.c * turned.c).sign() != 0) {
    ++across;
  }
  const Plane axis = sim.grips()[across].plane;
  SimulatorTestAccess::rotate_unrecorded(sim, across, {axis.a, axis.b, axis.c, q(3)});
  EXPECT_FALSE(*sim.undo());
  EXPECT_EQ(sim.history().size(), 1u);
  EXPECT_EQ(sim.move_count(), 1u);
  const auto back = std::find_if(sim.grips().begin(), sim.grips().end(), [&](const GripLayer& g) { return g.plane == axis; });
  ASSERT_NE(back, sim.grips().end());
  SimulatorTestAccess::rotate_unrecorded(sim, back - sim.grips().begin(), {-axis.a, -axis.b, -axis.c, q(3)});
  EXPECT_TRUE(*sim.undo());
  EXPECT_EQ(sim.move_count(), 2u);
}

// The float rotation by u radians about the plane's normal applied to p.
FloatQuaternion turned_by(const Plane& plane, double u, const FloatQuaternion& p) {
  const double x = plane.a.to_f64(), y = plane.b.to_f64(), z = plane.c.to_f64();
  const double s = std::sin(u / 2) / std::sqrt(x * x + y * y + z * z);
  return product(FloatQuaternion{x * s, y * s, z * s, std::cos(u / 2)}, p);
}

void expect_same_rotation(const FloatQuaternion& a, const FloatQuaternion& b) {
  const double sign = a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3] < 0 ? -1.0 : 1.0;
  for (int k = 0; k < 4; ++k) EXPECT_NEAR(a[k], sign * b[k], 1e-12);
}

TEST(Animation, PlaysTheRotationByTheAngleSoFar) {
  struct Case {
    const char* query;
    TurnChoice choice;
    double angle;
  };
  const Case cases[] = {
      {kCube3, TurnChoice::direction(1), M_PI / 2},
      {kCube3, TurnChoice::direction(-7), -M_PI / 2},
      {kCube3, TurnChoice::stop(2), M_PI},
      {kCube3, TurnChoice::stop(3), 1.5 * M_PI},
      {kObliqueSlab, TurnChoice::direction(-1), kFullTurn},
  };
  for (const Case& c : cases) {
    Simulator sim = make(c.query);
    const GripLayer grip = sim.grips().back();
    const auto before = sim.orientations();
    ASSERT_TRUE(sim.turn(sim.grips().size() - 1, c.choice).ok());
    const Animation animation = *sim.animation();
    EXPECT_NEAR(animation.angle, c.angle, 1e-12);
    EXPECT_NEAR(animation.duration_ms, std::abs(c.angle) / kFullTurn * 1000.0, 1e-9);
    EXPECT_EQ(sim.orientations(), before) << "the float world shows the past until advanced";
    double elapsed = 0.0;
    for (const double dt : {0.0, 40.0, 0.001, 120.0, animation.duration_ms - 160.001}) {
      ASSERT_TRUE(sim.advance(dt).ok());
      elapsed += dt;
      const double u = elapsed / animation.duration_ms * animation.angle;
      for (std::size_t k = 0; k < animation.pieces.size(); ++k) {
        expect_same_rotation(sim.orientations()[animation.pieces[k]], turned_by(grip.plane, u, animation.from[k]));
      }
    }
    ASSERT_TRUE(sim.animation()) << "t = 1 still runs";
    for (const std::uint32_t i : animation.pieces) expect_same_rotation(sim.orientations()[i], sim.float_orientation(i));
    ASSERT_TRUE(sim.advance(std::nan("")).ok());
    for (const auto& o : sim.orientations()) EXPECT_TRUE(std::isfinite(o[0] + o[1] + o[2] + o[3]));
    ASSERT_TRUE(sim.advance(1e-9).ok());
    EXPECT_FALSE(sim.animation());
  }
}

TEST(Animation, ANewTurnLandsTheOldOneFirst) {
  Simulator sim = make(kCube3);
  const auto& first = sim.grips()[0].moving;
  std::size_t opposite = 1;
  while (std::find_first_of(first.begin(), first.end(), sim.grips()[opposite].moving.begin(),
                            sim.grips()[opposite].moving.end()) != first.end()) {
    ++opposite;
  }
  const std::uint32_t moved = first.front();
  ASSERT_TRUE(sim.turn(0, TurnChoice::direction(1)).ok());
  ASSERT_TRUE(sim.advance(100.0).ok());
  ASSERT_TRUE(sim.turn(opposite, TurnChoice::direction(1)).ok());
  expect_same_rotation(sim.orientations()[moved], sim.float_orientation(moved));
}

TEST(Animation, ASpinChangesNothingExactButCounts) {
  Simulator sim = make(kObliqueSlab);
  PieceSet set = sim.pieces();
  EXPECT_TRUE(stops_of(set, sim.grips()[0])->empty());
  ASSERT_TRUE(sim.turn(0, TurnChoice::direction(1)).ok());
  EXPECT_EQ(sim.animation()->duration_ms, 1000.0);
  EXPECT_EQ(sim.move_count(), 1u);
  EXPECT_EQ(sim.history().size(), 1u);
  for (const Piece& p : sim.pieces().pieces) EXPECT_TRUE(is_identity(p.orientation));
}

}  // namespace
}  // namespace tv
