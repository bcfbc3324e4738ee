#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "movement.hpp"
#include "simulator.hpp"

namespace tv {
namespace {

constexpr const char* kCube3 = "?shell=C$1&cut=C$1/3";
constexpr const char* kMegaminx = "?shell=D$1&cut=D$2/(sqrt(5)+1)";
constexpr const char* kHelicopter = "?shell=C$3*sqrt(2)/4&cut=jC$1/2";
constexpr const char* kLittleChop = "?shell=C$3*sqrt(2)/4&cut=jC$0";

Simulator make(const char* query) {
  auto sim = Simulator::from_recipe_text(query);
  EXPECT_TRUE(sim.ok()) << query << ": " << (sim.ok() ? "" : sim.failure().message);
  return std::move(sim).value();
}

AlgebraicNumber q(std::int64_t n) { return AlgebraicNumber::from_int(rational_field(), n); }

std::vector<double> angles_in_degrees(PieceSet& set, const GripLayer& grip) {
  std::vector<double> degrees;
  const auto stops = *stops_of(set, grip);
  for (const Quaternion& stop : stops) degrees.push_back(std::round(stop_angle(stop) / M_PI * 180.0 * 1e6) / 1e6);
  return degrees;
}

TEST(Grips, LayersAndStopsOfSimpleCuts) {
  struct Case {
    const char* query;
    std::size_t grips, moving, fixed;
    std::vector<double> stops;
  };
  const Case cases[] = {
      {kCube3, 6, 9, 17, {0, 90, 180, 270}},
      {"?shell=C$1&cut=C$0", 6, 4, 4, {0, 90, 180, 270}},
      {"?shell=C$1&cut=1,1,1$0&cut=1,1,-1$0&cut=1,-1,1$0&cut=1,-1,-1$0", 8, 7, 7, {0, 120, 240}},
  };
  for (const Case& c : cases) {
    Simulator sim = make(c.query);
    PieceSet set = sim.pieces();
    ASSERT_EQ(sim.grips().size(), c.grips) << c.query;
    for (const GripLayer& grip : sim.grips()) {
      EXPECT_LE(grip.plane.d.sign(), 0);
      EXPECT_EQ(grip.moving.size(), c.moving) << c.query;
      EXPECT_EQ(grip.fixed.size(), c.fixed) << c.query;
      EXPECT_EQ(angles_in_degrees(set, grip), c.stops) << c.query;
    }
  }
}

TEST(Grips, APlaneThroughTheCentreGivesOneGripPerHalf) {
  Simulator sim = make("?shell=C$1&cut=C$0");
  const auto& grips = sim.grips();
  for (std::size_t i = 0; i < grips.size(); i += 2) {
    EXPECT_EQ(grips[i + 1].plane, negated(grips[i].plane));
    EXPECT_EQ(grips[i + 1].moving, grips[i].fixed);
    EXPECT_EQ(grips[i + 1].fixed, grips[i].moving);
  }
}

TEST(Grips, ASinglePieceLayerFallsBackToEveryCutItLeavesWhole) {
  PieceSet set = make(kCube3).pieces();
  const std::vector<std::uint32_t> corner{0};
  EXPECT_TRUE(candidate_planes(set, corner, true)->empty());
  EXPECT_FALSE(candidate_planes(set, corner, false)->empty());
}

TEST(Grips, DirectionPicksTheNearestStopEachWay) {
  Simulator sim = make("?shell=C$1&cut=1,1,1$0&cut=1,1,-1$0&cut=1,-1,1$0&cut=1,-1,-1$0");
  PieceSet set = sim.pieces();
  const auto grip = std::find_if(sim.grips().begin(), sim.grips().end(), [](const GripLayer& g) {
    return g.plane.a.sign() > 0 && g.plane.a == g.plane.b && g.plane.b == g.plane.c;
  });
  ASSERT_NE(grip, sim.grips().end());
  const auto stops = *stops_of(set, *grip);
  // (1, 1, 1, 1) up to the stop's own factor.
  const ChosenTurn forward = choose_direction(stops, 5);
  const AlgebraicNumber factor = forward.rotation.w;
  EXPECT_EQ(forward.rotation.x, factor);
  EXPECT_EQ(forward.rotation.y, factor);
  EXPECT_EQ(forward.rotation.z, factor);
  EXPECT_NEAR(forward.angle, 2 * M_PI / 3, 1e-12);
  EXPECT_NEAR(choose_direction(stops, 0).angle, forward.angle, 0);
  EXPECT_NEAR(choose_direction(stops, -1).angle, -2 * M_PI / 3, 1e-12);
  // Only the identity: a full spin each way; no stop at all: the identity spun forwards.
  const std::vector<Quaternion> identity_only{Quaternion::identity()};
  EXPECT_EQ(choose_direction(identity_only, 1).angle, kFullTurn);
  EXPECT_EQ(choose_direction(identity_only, -1).angle, -kFullTurn);
  EXPECT_EQ(choose_direction(identity_only, 0).angle, 0.0);
  EXPECT_EQ(choose_direction({}, -1).angle, kFullTurn);
  EXPECT_TRUE(is_identity(choose_direction({}, -1).rotation));
}


// The grip whose normal points along the positive direction (sx, sy, sz) of signs.
Plane plane_towards(const Simulator& sim, int sx, int sy, int sz) {
  for (const GripLayer& g : sim.grips()) {
    if (g.plane.a.sign() == sx && g.plane.b.sign() == sy && g.plane.c.sign() == sz) return g.plane;
  }
  ADD_FAILURE() << "no grip towards " << sx << sy << sz;
  return sim.grips().front().plane;
}

// Grip numbers move as a puzzle turns: a layer is found by its plane each time.
void turn_plane(Simulator& sim, const Plane& plane, std::int64_t direction) {
  const auto grip = std::find_if(sim.grips().begin(), sim.grips().end(), [&](const GripLayer& g) { return g.plane == plane; });
  ASSERT_NE(grip, sim.grips().end()) << "the layer is locked";
  ASSERT_TRUE(sim.turn(grip - sim.grips().begin(), TurnChoice::direction(direction)).ok());
}

std::vector<std::string> orientation_keys(const Simulator& sim) {
  std::vector<std::string> keys;
  for (const Piece& p : sim.pieces().pieces) keys.push_back(orientation_key(p.orientation));
  return keys;
}

bool at_home(const Simulator& sim, std::uint32_t i) { return is_identity(sim.pieces().pieces[i].orientation); }

std::size_t sticker_count(const Piece& piece) {
  return std::count_if(piece.facets.begin(), piece.facets.end(), [](const Facet& f) { return !f.interior; });
}

TEST(Turning, FaceTurnOrders) {
  for (const auto& [query, order] : {std::pair{kCube3, 4}, std::pair{kMegaminx, 5}}) {
    Simulator sim = make(query);
    const Plane face = sim.grips().back().plane;
    for (int k = 1; k <= order; ++k) {
      turn_plane(sim, face, +1);
      const auto keys = orientation_keys(sim);
      const bool home = std::all_of(keys.begin(), keys.end(),
                                    [&](const std::string& key) { return key == orientation_key(Quaternion::identity()); });
      EXPECT_EQ(home, k == order) << query << " after " << k << " turns";
    }
  }
}

TEST(Turning, CommutatorAndSexyMoveOrders) {
  Simulator sim = make(kCube3);
  const Plane r = plane_towards(sim, 1, 0, 0), u = plane_towards(sim, 0, 1, 0);
  const auto solved = [&](bool centres) {
    for (std::uint32_t i = 0; i < sim.pieces().pieces.size(); ++i) {
      if ((centres || sticker_count(sim.pieces().pieces[i]) > 1) && !at_home(sim, i)) return false;
    }
    return true;
  };
  for (int k = 1; k <= 6; ++k) {
    turn_plane(sim, r, 1), turn_plane(sim, u, 1), turn_plane(sim, r, -1), turn_plane(sim, u, -1);
    EXPECT_EQ(solved(true), k == 6) << k;
  }
  int first_return = 0;
  for (int k = 1; k <= 420; ++k) {
    turn_plane(sim, r, 1), turn_plane(sim, u, 1);
    if (first_return == 0 && solved(false)) {
      first_return = k;
      EXPECT_FALSE(solved(true)) << "the R and U centres are a quarter turn off";
    }
    if (k < 420) {
      EXPECT_FALSE(solved(true)) << k;
    }
  }
  EXPECT_EQ(first_return, 105);
  EXPECT_TRUE(solved(true));
}

TEST(Turning, InversesRestoreExactOrientations) {
  for (const char* query : {kCube3, kMegaminx, kHelicopter}) {
    Simulator sim = make(query);
    const auto solved = orientation_keys(sim);
    for (std::size_t g = 0; g < sim.grips().size(); g += 3) {
      const Plane plane = sim.grips()[g].plane;
      turn_plane(sim, plane, +1);
      turn_plane(sim, plane, -1);
      EXPECT_EQ(orientation_keys(sim), solved) << query;
      ASSERT_TRUE(sim.turn(g, TurnChoice::direction(1)).ok());
      EXPECT_TRUE(*sim.undo());
      EXPECT_EQ(orientation_keys(sim), solved) << query;
    }
    sim.seed(7);
    sim.scramble(100);
    const std::size_t recorded = sim.history().size();
    ASSERT_TRUE(sim.settle().ok());
    EXPECT_EQ(sim.history().size(), recorded + 100);
    EXPECT_TRUE(*sim.restore()) << query;
    EXPECT_EQ(orientation_keys(sim), solved) << query;
  }
}

// Orientation texts up to the sign a half turn can carry.
std::set<std::string> distinct_rotations(const Simulator& sim) {
  std::set<std::string> rotations;
  for (const Piece& p : sim.pieces().pieces) {
    Quaternion o = p.orientation;
    if (o.w.sign() == 0 && (o.x.sign() < 0 || (o.x.sign() == 0 && (o.y.sign() < 0 || (o.y.sign() == 0 && o.z.sign() < 0))))) {
      o = scaled(o, q(-1));
    }
    rotations.insert(orientation_key(o));
  }
  return rotations;
}

TEST(Turning, OrientationsStayInTheSymmetryGroup) {
  for (const auto& [query, group] : {std::pair{kCube3, 24u}, std::pair{kMegaminx, 60u}}) {
    Simulator sim = make(query);
    std::set<std::string> seen;
    sim.scramble(200);
    ASSERT_TRUE(sim.settle().ok());
    seen.merge(distinct_rotations(sim));
    EXPECT_LE(seen.size(), group) << query;
    EXPECT_GT(seen.size(), group / 2) << query;
  }
}

using Matrix = std::array<std::array<AlgebraicNumber, 3>, 3>;

// The rotation matrix of q, exactly: the images of the unit vectors.
Matrix matrix_of(const Quaternion& r) {
  const auto column = [&](int k) { return *rotate(r, {q(k == 0), q(k == 1), q(k == 2)}); };
  const Vector3 c0 = column(0), c1 = column(1), c2 = column(2);
  return {{{c0[0], c1[0], c2[0]}, {c0[1], c1[1], c2[1]}, {c0[2], c1[2], c2[2]}}};
}

// Each stop of every grip is a proper rotation about the grip's normal, and on a puzzle that
// does not jumble it sends each piece of the layer onto the place of a solved piece.
TEST(Turning, StopsAreRotationsOntoSolvedPlaces) {
  for (const char* query : {kCube3, kMegaminx}) {
    Simulator sim = make(query);
    PieceSet set = sim.pieces();
    std::set<std::string> places;
    const auto place_of = [](const Piece& piece, const Quaternion& r) {
      AlgebraicNumber x = q(0), y = q(0), z = q(0);
      for (const Vertex& v : piece.vertices) {
        const Vector3 w = *rotate(r, {v.x, v.y, v.z});
        x = x + w[0], y = y + w[1], z = z + w[2];
      }
      return number_key(x) + number_key(y) + number_key(z);
    };
    for (const Piece& p : set.pieces) places.insert(place_of(p, Quaternion::identity()));
    for (const GripLayer& grip : sim.grips()) {
      const auto stops = *stops_of(set, grip);
      for (const Quaternion& stop : stops) {
        const Matrix m = matrix_of(stop);
        for (int i = 0; i < 3; ++i) {
          for (int j = 0; j < 3; ++j) {
            const AlgebraicNumber entry = m[0][i] * m[0][j] + m[1][i] * m[1][j] + m[2][i] * m[2][j];
            EXPECT_EQ(entry, q(i == j));
          }
        }
        const AlgebraicNumber det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                                    m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                                    m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
        EXPECT_EQ(det, q(1));
        const Vector3 axis{grip.plane.a, grip.plane.b, grip.plane.c};
        const Vector3 turned = *rotate(stop, axis);
        for (int k = 0; k < 3; ++k) EXPECT_EQ(turned[k], axis[k]);
        for (const std::uint32_t i : grip.moving) EXPECT_TRUE(places.count(place_of(set.pieces[i], stop))) << query;
      }
    }
  }
}

// The grips by brute force: every vertex carried forward, every side an exact sign.
std::multiset<std::pair<std::string, std::vector<std::uint32_t>>> brute_force_grips(const PieceSet& set) {
  std::vector<std::vector<Vector3>> world;
  std::vector<Plane> planes;
  for (const Piece& p : set.pieces) {
    auto& vertices = world.emplace_back();
    for (const Vertex& v : p.vertices) vertices.push_back(*rotate(p.orientation, {v.x, v.y, v.z}));
    for (const Facet& f : p.facets) {
      if (!f.interior) continue;
      const Plane r = *rotated_plane(p.orientation, f.plane);
      if (std::none_of(planes.begin(), planes.end(), [&](const Plane& s) { return s == r || s == negated(r); })) planes.push_back(r);
    }
  }
  std::multiset<std::pair<std::string, std::vector<std::uint32_t>>> grips;
  for (const Plane& plane : planes) {
    std::vector<std::uint32_t> sides[2];
    bool straddled = false;
    for (std::uint32_t i = 0; i < world.size() && !straddled; ++i) {
      bool positive = false, negative = false;
      for (const Vector3& v : world[i]) {
        const int s = (plane.a * v[0] + plane.b * v[1] + plane.c * v[2] + plane.d).sign();
        positive |= s > 0, negative |= s < 0;
      }
      straddled = positive && negative;
      sides[negative ? 1 : 0].push_back(i);
    }
    if (straddled || sides[0].empty() || sides[1].empty()) continue;
    const int s = plane.d.sign();
    if (s <= 0) grips.insert({plane_key(plane), sides[0]});
    if (s >= 0) grips.insert({plane_key(negated(plane)), sides[1]});
  }
  return grips;
}

std::multiset<std::pair<std::string, std::vector<std::uint32_t>>> derived(PieceSet set) {
  std::multiset<std::pair<std::string, std::vector<std::uint32_t>>> grips;
  const auto layers = *derive_grips(set);
  for (const GripLayer& g : layers) grips.insert({plane_key(g.plane), g.moving});
  return grips;
}

TEST(Turning, JumblingPuzzlesLockExactlyWhereAPieceStraddles) {
  for (const char* query : {kHelicopter, kLittleChop}) {
    Simulator sim = make(query);
    const auto solved = derived(sim.pieces());
    std::mt19937_64 random(11);
    for (int move = 0; move < 12; ++move) {
      const std::size_t g = random() % sim.grips().size();
      PieceSet set = sim.pieces();
      const std::size_t stops = stops_of(set, sim.grips()[g])->size();
      ASSERT_TRUE(sim.turn(g, TurnChoice::stop(static_cast<std::int64_t>(random() % stops))).ok());
      EXPECT_EQ(derived(sim.pieces()), brute_force_grips(sim.pieces())) << query << " move " << move;
      PieceSet fresh = sim.pieces();
      fresh.clear_memos();
      EXPECT_EQ(derived(fresh), derived(sim.pieces()));
    }
    EXPECT_TRUE(*sim.restore());
    EXPECT_EQ(derived(sim.pieces()), solved) << query;
  }
}

TEST(Turning, RotateAgreesWithRodrigues) {
  std::mt19937_64 random(3);
  for (int trial = 0; trial < 200; ++trial) {
    const auto pick = [&] { return static_cast<std::int64_t>(random() % 41) - 20; };
    const Quaternion r{q(pick()), q(pick()), q(pick()), q(pick())};
    if (norm2(r).is_zero()) continue;
    const Vector3 v{q(pick()), q(pick()), q(pick())};
    const Vector3 turned = *rotate(r, v);
    const double n = std::sqrt(norm2(r).to_f64());
    const double ux = r.x.to_f64() / n, uy = r.y.to_f64() / n, uz = r.z.to_f64() / n, w = r.w.to_f64() / n;
    const double s = std::sqrt(ux * ux + uy * uy + uz * uz);
    const double theta = 2 * std::atan2(s, w);
    const double kx = s ? ux / s : 0, ky = s ? uy / s : 0, kz = s ? uz / s : 0;
    const double vx = v[0].to_f64(), vy = v[1].to_f64(), vz = v[2].to_f64();
    const double kv = kx * vx + ky * vy + kz * vz, c = std::cos(theta), sn = std::sin(theta);
    const double expected[3] = {vx * c + (ky * vz - kz * vy) * sn + kx * kv * (1 - c),
                                vy * c + (kz * vx - kx * vz) * sn + ky * kv * (1 - c),
                                vz * c + (kx * vy - ky * vx) * sn + kz * kv * (1 - c)};
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(turned[k].to_f64(), expected[k], 1e-12 * (1 + std::abs(expected[k])));
  }
}

TEST(Turning, StopKeysOrderAnglesExactly) {
  EXPECT_TRUE(stop_key(Quaternion::identity())->is_zero());
  EXPECT_EQ(*stop_key({q(0), q(0), q(3), q(0)}), q(1));
  const Quaternion nearly_full{q(1), q(0), q(0), q(-1000)};
  EXPECT_EQ((*stop_key(nearly_full) - q(2)).sign(), -1);
  EXPECT_EQ((*stop_key(nearly_full) - *stop_key({q(1), q(0), q(0), q(-999)})).sign(), 1);
}

}  // namespace
}  // namespace tv
