#include <gtest/gtest.h>

#include <numeric>

#include "batch.hpp"
#include "simulator_access.hpp"

namespace tv {

struct BatchTestAccess {
  static Simulator& copy(Batch& batch, std::size_t i) { return batch.sims_[i]; }
};

namespace {

// A synthetic puzzle of n slots in `colors` runs, whose grip k rotates all slots by k + 1 and
// whose inverse rotates them back.
std::pair<std::shared_ptr<const StickerTable>, std::vector<std::vector<std::uint32_t>>> rotations(std::size_t n,
                                                                                                   std::size_t grips) {
  auto table = std::make_shared<StickerTable>();
  for (std::size_t s = 0; s < n; ++s) table->solved_colors.push_back(static_cast<std::uint16_t>(s * 6 / n));
  table->palette.assign(6, 0);
  std::vector<std::vector<std::uint32_t>> perms;
  for (std::size_t k = 0; k < grips; ++k) {
    table->grip_names.push_back(std::string(1, static_cast<char>('A' + k)));
    for (std::size_t back : {k + 1, n - (k + 1)}) {
      std::vector<std::uint32_t> perm(n);
      for (std::size_t s = 0; s < n; ++s) perm[s] = static_cast<std::uint32_t>((s + back) % n);
      perms.push_back(perm);
    }
  }
  return {table, perms};
}

std::vector<std::uint64_t> row_of(const ArrayBuffer& a, std::size_t row) {
  const std::size_t width = a.size() / a.shape()[0];
  std::vector<std::uint64_t> values;
  for (std::size_t i = row * width; i < (row + 1) * width; ++i) values.push_back(a.whole(i));
  return values;
}

class BatchWidths : public testing::TestWithParam<std::pair<std::size_t, const char*>> {};

TEST_P(BatchWidths, StepWalkAndUndoAtEveryWidth) {
  const auto [n, typestr] = GetParam();
  auto [table, perms] = rotations(n, 3);
  auto batch = Batch::from_permutations("synthetic", table, perms, 5, std::nullopt);
  ASSERT_TRUE(batch.ok());
  EXPECT_STREQ(batch->sticker_ids()->typestr(), typestr);
  EXPECT_STREQ(batch->permutations().typestr(), typestr);
  EXPECT_STREQ(batch->observations()->typestr(), "|u1");

  auto stepped = batch->step({0, 1, 2, 3, 4});
  ASSERT_TRUE(stepped.ok());
  const ArrayBuffer ids = std::move(batch->sticker_ids()).value();
  const std::size_t shifts[] = {1, n - 1, 2, n - 2, 3};
  for (std::size_t row = 0; row < 5; ++row) EXPECT_EQ(row_of(ids, row)[0], shifts[row] % n);
  EXPECT_EQ(batch->undo(Selection(5, 1))->size(), 5u);
  EXPECT_EQ(batch->solved()->whole(3), 1u);

  // A walk by hand: one draw per move, the inverse of the last move sent on to the next grip.
  batch->seed_all(40);
  ASSERT_TRUE(batch->scramble(std::vector<std::uint32_t>(5, 9)).ok());
  for (std::uint64_t row = 0; row < 5; ++row) {
    std::uint64_t state = 40 + row, shift = 0;
    std::uint32_t last = kNoMove;
    for (int k = 0; k < 9; ++k) {
      last = walk_move(next_random(state), last, 6);
      EXPECT_EQ(batch->history(row)[k], last);
      shift += perms[last][0];
    }
    EXPECT_EQ(row_of(*batch->sticker_ids(), row)[0], shift % n);
    EXPECT_EQ(batch->rng()[row], state);
  }
}

INSTANTIATE_TEST_SUITE_P(Widths, BatchWidths,
                         testing::Values(std::pair<std::size_t, const char*>{300, "<u2"},
                                         std::pair<std::size_t, const char*>{70000, "<u4"},
                                         std::pair<std::size_t, const char*>{256, "|u1"}));

// Histories against vectors, through blocks moved to the end of the pool and blocks kept by
// clearing: uneven walks, steps for all, undos and clears, in a seeded mix.
TEST(Histories, AgreeWithOneVectorPerCopy) {
  constexpr std::size_t copies = 37;
  Histories histories(copies);
  std::vector<std::vector<std::uint32_t>> model(copies);
  std::uint64_t state = 11;
  std::uint32_t next = 0;
  for (int round = 0; round < 400; ++round) {
    const std::uint64_t kind = next_random(state) % 4;
    if (kind == 0) {
      histories.reserve_each(1);
      for (std::size_t c = 0; c < copies; ++c) {
        histories.push(c, next);
        model[c].push_back(next++);
      }
    } else if (kind == 1) {
      std::vector<std::uint32_t> extra(copies);
      for (auto& e : extra) e = static_cast<std::uint32_t>(next_random(state) % 3 == 0 ? next_random(state) % 40 : 0);
      histories.reserve(extra);
      for (std::size_t c = 0; c < copies; ++c) {
        std::uint32_t* entries = histories.append(c, extra[c]);
        for (std::uint32_t k = 0; k < extra[c]; ++k) model[c].push_back(entries[k] = next++);
      }
    } else {
      for (std::size_t c = 0; c < copies; ++c) {
        if (next_random(state) % 5 != 0 || model[c].empty()) continue;
        if (kind == 2) {
          histories.pop(c);
          model[c].pop_back();
        } else {
          histories.clear(c);
          model[c].clear();
        }
      }
    }
    for (std::size_t c = 0; c < copies; ++c) {
      const auto h = histories.of(c);
      ASSERT_EQ(std::vector<std::uint32_t>(h.begin(), h.end()), model[c]) << round << " " << c;
    }
  }
}

TEST(Batch, WidthRuleOnTheBound) {
  EXPECT_EQ(whole_type_for_bound(256), ElementType::U8);
  EXPECT_EQ(whole_type_for_bound(257), ElementType::U16);
  EXPECT_EQ(whole_type_for_bound(65536), ElementType::U16);
  EXPECT_EQ(whole_type_for_bound(65537), ElementType::U32);
}

TEST(Batch, RefusesUnaddressableCountsBeforeAllocating) {
  auto [table, perms] = rotations(300, 1);
  auto huge = Batch::from_permutations("synthetic", table, perms, std::uint64_t{1} << 62, std::nullopt);
  ASSERT_FALSE(huge.ok());
  EXPECT_EQ(huge.failure().kind, FailureKind::Range);
}

std::vector<std::uint8_t> bytes_of(const ArrayBuffer& a) { return {a.bytes(), a.bytes() + a.byte_size()}; }
std::vector<std::uint8_t> bytes_of(const Result<ArrayBuffer>& a) { return bytes_of(*a); }

// Every query of both batches, byte for byte, and the per-copy records.
void expect_same_batches(Batch& rows, Batch& sims, const std::string& when) {
  SCOPED_TRACE(when);
  EXPECT_EQ(bytes_of(rows.observations()), bytes_of(sims.observations()));
  EXPECT_EQ(bytes_of(rows.sticker_ids()), bytes_of(sims.sticker_ids()));
  EXPECT_EQ(bytes_of(rows.one_hot()), bytes_of(sims.one_hot()));
  EXPECT_EQ(bytes_of(rows.action_masks()), bytes_of(sims.action_masks()));
  EXPECT_EQ(bytes_of(rows.solved()), bytes_of(sims.solved()));
  EXPECT_EQ(rows.move_counts(), sims.move_counts());
  EXPECT_EQ(rows.last_moves(), sims.last_moves());
  EXPECT_EQ(rows.rng(), sims.rng());
  for (std::uint64_t i = 0; i < rows.count(); ++i) {
    const auto a = rows.history(i), b = sims.history(i);
    EXPECT_EQ(std::vector<std::uint32_t>(a.begin(), a.end()), std::vector<std::uint32_t>(b.begin(), b.end()));
  }
}

class EnginesAgree : public testing::TestWithParam<const char*> {};

// On a puzzle whose moves are fixed permutations, turning geometry must give what the rows give.
TEST_P(EnginesAgree, OnEveryQueryStepWalkUndoAndSolve) {
  constexpr std::uint64_t kCopies = 4;
  auto rows = Batch::create(GetParam(), kCopies);
  auto sims = Batch::create_geometric(GetParam(), kCopies);
  ASSERT_TRUE(rows.ok() && sims.ok());
  ASSERT_TRUE(rows->is_tabular());
  ASSERT_FALSE(sims->is_tabular());
  const std::uint64_t actions = rows->action_count();
  std::uint64_t state = 11;
  for (int k = 0; k < 6; ++k) {
    std::vector<std::uint32_t> step(kCopies);
    for (auto& a : step) a = static_cast<std::uint32_t>(next_random(state) % actions);
    auto a = rows->step(step);
    auto b = sims->step(step);
    ASSERT_TRUE(a.ok() && b.ok());
    EXPECT_EQ(bytes_of(a->first), bytes_of(b->first));
    EXPECT_EQ(bytes_of(a->second), bytes_of(b->second));
  }
  expect_same_batches(*rows, *sims, "after steps");
  const Selection odd{0, 1, 0, 1};
  EXPECT_EQ(bytes_of(rows->undo(odd)), bytes_of(sims->undo(odd)));
  expect_same_batches(*rows, *sims, "after undo");
  for (Batch* b : {&*rows, &*sims}) {
    b->seed_all(7);
    b->seed(2, 99);
    ASSERT_TRUE(b->scramble({3, 0, 5, 1}).ok());
  }
  expect_same_batches(*rows, *sims, "after walks");
  for (Batch* b : {&*rows, &*sims}) ASSERT_TRUE(b->apply(rows->table().grip_names[0] + "2 " + rows->table().grip_names[1] + "'").ok());
  expect_same_batches(*rows, *sims, "after written moves");
  for (Batch* b : {&*rows, &*sims}) ASSERT_TRUE(b->reset_where({1, 1, 0, 1}, 4).ok());
  expect_same_batches(*rows, *sims, "after reset_where");
  for (Batch* b : {&*rows, &*sims}) ASSERT_TRUE(b->solve(Selection(kCopies, 1)).ok());
  expect_same_batches(*rows, *sims, "after solve");
  EXPECT_EQ(sims->solved()->whole(3), 1u);
}

INSTANTIATE_TEST_SUITE_P(Recipes, EnginesAgree,
                         testing::Values("?shell=C$1&cut=C$0", "?shell=C$1&cut=C$1/3", "?shell=T$1&cut=T$-1/3&cut=T$-5/3",
                                         "?shell=C$sqrt(2)/3&cut=O$0", "?shell=D$1&cut=D$2/(sqrt(5)+1)"));

TEST(GeometricBatch, SolveRebuildsACopyThatCannotBeWalkedBack) {
  auto batch = Batch::create_geometric("?shell=C$1&cut=C$1/3", 2);
  ASSERT_TRUE(batch.ok());
  render::ViewChange wide;
  wide.fov = 30.0;
  batch->configure(wide);
  ASSERT_TRUE(batch->step({0, 0}).ok());
  // Turn a layer across the recorded one behind the history's back: that plane is locked now.
  Simulator& locked = BatchTestAccess::copy(*batch, 1);
  const Plane turned = locked.history().back().plane;
  std::size_t across = 0;
  while ((locked.grips()[across].plane.a * turned.a + locked.grips()[across].plane.b * turned.b +
          locked.grips()[across].plane.c * turned.c).sign() != 0)
    ++across;
  const Plane axis = locked.grips()[across].plane;
  SimulatorTestAccess::rotate_unrecorded(locked, across, {axis.a, axis.b, axis.c, AlgebraicNumber::from_int(rational_field(), 3)});
  EXPECT_EQ(bytes_of(batch->undo(Selection(2, 1))), (std::vector<std::uint8_t>{1, 0}));
  EXPECT_EQ(batch->move_counts(), (std::vector<std::uint64_t>{0, 1}));
  const auto off = batch->solved();
  ASSERT_FALSE(off.ok()) << "copy 1 was turned by an angle that is no stop";
  EXPECT_EQ(off.failure().kind, FailureKind::State);
  ASSERT_TRUE(batch->solve(Selection(2, 1)).ok());
  EXPECT_EQ(bytes_of(batch->solved()), (std::vector<std::uint8_t>{1, 1}));
  EXPECT_EQ(BatchTestAccess::copy(*batch, 1).move_count(), 0u) << "rebuilt, not walked back";
  EXPECT_EQ(BatchTestAccess::copy(*batch, 1).camera().fov, 30.0);
  EXPECT_FALSE(BatchTestAccess::copy(*batch, 1).view().show_arrows);
  ASSERT_TRUE(batch->step({2, 3}).ok()) << "the rebuilt copy turns with the shared table";
  EXPECT_EQ(batch->move_counts(), (std::vector<std::uint64_t>{1, 1}));
}

TEST(GeometricBatch, CopiesFindTheSharedTablesPlanesInTheirOwnField) {
  auto batch = Batch::create_geometric("?shell=D$1&cut=D$2/(sqrt(5)+1)", 2);
  ASSERT_TRUE(batch.ok());
  for (std::size_t i = 0; i < 2; ++i) {
    const Simulator& sim = BatchTestAccess::copy(*batch, i);
    const FieldRef& own = sim.grips()[0].plane.a.field();
    EXPECT_NE(batch->table().action_planes[0].a.field(), own) << "each copy has a field of its own";
    for (const Plane& p : sim.action_planes())
      for (const AlgebraicNumber* x : {&p.a, &p.b, &p.c, &p.d})
        EXPECT_TRUE(x->field() == own || x->field() == rational_field());
  }
}

}  // namespace
}  // namespace tv

namespace tv {
namespace {

// Every kind of program the processor runs gives the gather's bytes: one row, many rows (the
// last ones loaded without bytes past the buffer), walks, the solved flags of a step, and the
// colors and one-hot colors of a block.
class ShuffleKinds : public testing::TestWithParam<std::size_t> {};

TEST_P(ShuffleKinds, GiveTheGathersBytes) {
  const std::size_t n = GetParam();
  std::uint64_t state = 3 + n;
  constexpr std::size_t actions = 4, rows = 9;
  std::vector<std::uint8_t> moves, colors(n);
  for (std::size_t a = 0; a < actions; ++a) {
    std::vector<std::uint8_t> perm(n);
    std::iota(perm.begin(), perm.end(), 0);
    // Action 3 only swaps two slots of one color, so a row it moves stays solved.
    if (a < 3)
      for (std::size_t i = n; i > 1; --i) std::swap(perm[i - 1], perm[next_random(state) % i]);
    else if (n >= 2)
      std::swap(perm[0], perm[1]);
    moves.insert(moves.end(), perm.begin(), perm.end());
  }
  for (std::size_t s = 0; s < n; ++s) colors[s] = static_cast<std::uint8_t>(s < 2 ? 0 : s % 5 + 1);
  const auto gather = [&](const std::uint8_t* row, std::uint32_t a) {
    std::vector<std::uint8_t> next(n);
    for (std::size_t s = 0; s < n; ++s) next[s] = row[moves[a * n + s]];
    return next;
  };
  std::vector<std::uint8_t> in(rows * n), expected;
  std::vector<std::uint32_t> step(rows);
  std::vector<std::uint8_t> expected_solved(rows);
  for (std::size_t r = 0; r < rows; ++r) {
    for (std::size_t s = 0; s < n; ++s) in[r * n + s] = static_cast<std::uint8_t>(r % 3 == 0 ? s : next_random(state) % n);
    step[r] = static_cast<std::uint32_t>(r % actions);
    const auto next = gather(in.data() + r * n, step[r]);
    expected.insert(expected.end(), next.begin(), next.end());
    bool solved = true;
    for (std::size_t s = 0; s < n; ++s) solved = solved && colors[next[s]] == colors[s];
    expected_solved[r] = solved;
  }
  const std::uint32_t walk[] = {0, 3, 1, 1, 2};
  std::vector<std::uint8_t> walked(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(n));
  for (std::uint32_t a : walk) walked = gather(walked.data(), a);

  for (ShuffleKind kind : shuffle_kinds()) {
    if (kind == ShuffleKind::None) continue;
    const ShuffleProgram program = compile_shuffles(moves.data(), actions, n, colors, kind);
    const auto label = "kind " + std::to_string(static_cast<int>(kind)) + ", " + std::to_string(n) + " slots";
    std::vector<std::uint8_t> out(rows * n + 1, 0xEE), solved(rows, 2);
    shuffle_rows(program, step.data(), false, in.data(), in.size(), out.data(), rows, solved.data());
    EXPECT_EQ(out.back(), 0xEE) << label;
    out.pop_back();
    EXPECT_EQ(out, expected) << label;
    EXPECT_EQ(solved, expected_solved) << label;
    solved_rows(program, out.data(), rows, solved.data());
    EXPECT_EQ(solved, expected_solved) << label;
    std::vector<std::uint8_t> seen(in.size()), hot(in.size() * 6), expected_hot(in.size() * 6);
    colors_of(program, in.data(), in.size(), seen.data());
    one_hot_of(program, 6, in.data(), in.size(), hot.data());
    for (std::size_t i = 0; i < in.size(); ++i) {
      EXPECT_EQ(seen[i], colors[in[i]]) << label;
      expected_hot[i * 6 + colors[in[i]]] = 1;
    }
    EXPECT_EQ(hot, expected_hot) << label;
    std::vector<std::uint8_t> one(n);
    shuffle_row(program, 2, in.data() + (rows - 1) * n, n, one.data());
    EXPECT_EQ(one, gather(in.data() + (rows - 1) * n, 2)) << label;
    std::vector<std::uint8_t> row(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(n));
    shuffle_row_through(program, walk, 5, row.data());
    EXPECT_EQ(row, walked) << label;
  }
}

INSTANTIATE_TEST_SUITE_P(Slots, ShuffleKinds, testing::Values(1, 4, 15, 16, 17, 24, 54, 63, 64));

}  // namespace
}  // namespace tv
