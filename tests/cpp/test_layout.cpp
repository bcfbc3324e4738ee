#include <gtest/gtest.h>

#include <map>

#include "layout.hpp"

namespace tv {
namespace {

// An integer cube of size n: coordinates doubled so that every facelet centre is a lattice
// point, the faces at +-n. A facelet is its centre and its outward normal.
using IVec = std::array<int, 3>;
using IMat = std::array<IVec, 3>;

struct ModelFace {
  IVec normal, row, col;
};
const ModelFace kModelFaces[6] = {
    {{0, 1, 0}, {1, 0, 0}, {0, 0, -1}},  {{0, -1, 0}, {1, 0, 0}, {0, 0, 1}}, {{-1, 0, 0}, {0, 0, 1}, {0, 1, 0}},
    {{1, 0, 0}, {0, 0, -1}, {0, 1, 0}},  {{0, 0, -1}, {-1, 0, 0}, {0, 1, 0}}, {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}},
};

// A quarter turn about +x, +y or +z, counterclockwise when looked at from the positive side.
const IMat kQuarter[3] = {
    {{{1, 0, 0}, {0, 0, -1}, {0, 1, 0}}},
    {{{0, 0, 1}, {0, 1, 0}, {-1, 0, 0}}},
    {{{0, -1, 0}, {1, 0, 0}, {0, 0, 1}}},
};

IVec times(const IMat& m, const IVec& v) {
  IVec out{};
  for (int i = 0; i < 3; ++i) out[i] = m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2];
  return out;
}

int axis_of(const IVec& normal) { return normal[0] != 0 ? 0 : normal[1] != 0 ? 1 : 2; }
int sign_of(const IVec& normal) { return normal[0] + normal[1] + normal[2]; }

struct Model {
  int n;
  std::vector<std::pair<IVec, IVec>> facelets;  // (centre, normal) by facelet number
  std::map<std::pair<IVec, IVec>, std::uint32_t> number;

  explicit Model(int size) : n(size) {
    for (const ModelFace& face : kModelFaces)
      for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
          IVec p;
          for (int k = 0; k < 3; ++k)
            p[k] = face.normal[k] * n + face.row[k] * (2 * r - n + 1) + face.col[k] * (2 * c - n + 1);
          number[{p, face.normal}] = static_cast<std::uint32_t>(facelets.size());
          facelets.push_back({p, face.normal});
        }
  }

  // Move of the outer layer of face k, turns quarter turns counterclockwise seen from outside,
  // as new[i] = old[perm[i]].
  std::vector<std::uint32_t> turn(int k, int turns) const {
    const IVec& axis = kModelFaces[k].normal;
    std::vector<std::uint32_t> perm(facelets.size());
    for (std::uint32_t f = 0; f < facelets.size(); ++f) perm[f] = f;
    for (std::uint32_t f = 0; f < facelets.size(); ++f) {
      auto [p, normal] = facelets[f];
      if (p[axis_of(axis)] * sign_of(axis) < n - 1) continue;
      // Seen from the negative side a turn runs the other way: three quarters about +axis.
      const int quarters = sign_of(axis) > 0 ? turns : 4 - turns;
      for (int q = 0; q < quarters; ++q) {
        p = times(kQuarter[axis_of(axis)], p);
        normal = times(kQuarter[axis_of(axis)], normal);
      }
      perm[number.at({p, normal})] = f;  // the sticker from f arrives there
    }
    return perm;
  }
};

class CubeLayouts : public testing::TestWithParam<std::pair<int, const char*>> {};

TEST_P(CubeLayouts, FaceTurnsEqualTheIntegerModel) {
  const auto [size, query] = GetParam();
  auto layout = derive_layout(query);
  ASSERT_TRUE(layout.ok()) << layout.failure().message;
  ASSERT_TRUE(layout->cube.has_value());
  EXPECT_EQ(layout->cube->size, static_cast<std::uint32_t>(size));
  const Model model(size);
  ASSERT_EQ(layout->facelet_count(), model.facelets.size());
  for (int k = 0; k < 6; ++k) {
    EXPECT_EQ(layout->moves[2 * k], model.turn(k, 1)) << layout->move_names[2 * k];
    EXPECT_EQ(layout->moves[2 * k + 1], model.turn(k, 3)) << layout->move_names[2 * k + 1];
    EXPECT_EQ(layout->inverses[2 * k], std::optional<std::uint32_t>(2 * k + 1));
  }
  // Every slot's solved color is its face's color, and the slot tables are inverse.
  for (std::uint32_t f = 0; f < layout->facelet_count(); ++f)
    EXPECT_EQ(layout->facelet_of_slot[layout->slot_of_facelet[f]], f);
  // Every action of the puzzle is a face turn or an extra inner-layer move.
  std::size_t with_action = 0;
  for (std::size_t m = 0; m < layout->move_count(); ++m) with_action += layout->actions[m].has_value();
  EXPECT_EQ(with_action, layout->move_count());
  for (std::size_t m = 12; m < layout->move_count(); ++m) EXPECT_EQ(layout->move_names[m][0], ':');
}

INSTANTIATE_TEST_SUITE_P(Sizes, CubeLayouts,
                         testing::Values(std::pair{2, "?shell=C$1&cut=C$0"}, std::pair{3, "?shell=C$1&cut=C$1/3"},
                                         std::pair{4, "?shell=C$1&cut=C$0&cut=C$1/2"},
                                         std::pair{5, "?shell=C$1&cut=C$1/5&cut=C$3/5"}));

TEST(LocateFacelet, RefusesPointsOffTheFacesAndOffTheCentres) {
  EXPECT_EQ(locate_facelet({-2.0 / 3, 1.0, 2.0 / 3}, 3, 1.0), std::optional<std::uint32_t>(0));
  EXPECT_EQ(locate_facelet({0.0, 0.0, 1.0}, 3, 1.0), std::optional<std::uint32_t>(49));
  EXPECT_FALSE(locate_facelet({0.0, 0.5, 0.0}, 3, 1.0));       // inside
  EXPECT_FALSE(locate_facelet({0.0, 1.0, 0.3}, 3, 1.0));       // between centres
  EXPECT_FALSE(locate_facelet({0.0, 1.0, -4.0 / 3}, 3, 1.0));  // past the edge
}

TEST(Inverses, SelfInverseMovesKeepTheirOwnIndexAndMissingInversesStayEmpty) {
  const std::vector<std::vector<std::uint32_t>> moves{{1, 0, 2}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {0, 2, 1}};
  const std::vector<std::optional<std::uint32_t>> expected{0, 1, 3, 2, 4};
  EXPECT_EQ(inverses_of(moves), expected);
  EXPECT_EQ(inverses_of({{1, 2, 0}}), std::vector<std::optional<std::uint32_t>>{std::nullopt});
}

}  // namespace
}  // namespace tv
