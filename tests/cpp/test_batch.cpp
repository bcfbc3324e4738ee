#include <gtest/gtest.h>

#include <numeric>

#include "batch.hpp"

namespace tv {
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
  EXPECT_STREQ(batch->sticker_ids().typestr(), typestr);
  EXPECT_STREQ(batch->permutations().typestr(), typestr);
  EXPECT_STREQ(batch->observations().typestr(), "|u1");

  auto stepped = batch->step({0, 1, 2, 3, 4});
  ASSERT_TRUE(stepped.ok());
  const ArrayBuffer ids = batch->sticker_ids();
  const std::size_t shifts[] = {1, n - 1, 2, n - 2, 3};
  for (std::size_t row = 0; row < 5; ++row) EXPECT_EQ(row_of(ids, row)[0], shifts[row] % n);
  EXPECT_EQ(batch->undo(Selection(5, 1)).size(), 5u);
  EXPECT_EQ(batch->solved().whole(3), 1u);

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
    EXPECT_EQ(row_of(batch->sticker_ids(), row)[0], shift % n);
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

}  // namespace
}  // namespace tv

namespace tv {
namespace {

TEST(Shuffle, CompiledShufflesGiveTheGathersBytes) {
  if (!shuffles_available()) GTEST_SKIP() << "no SSSE3";
  std::uint64_t state = 3;
  for (std::size_t n : {1, 15, 16, 17, 24, 54, 64}) {
    std::vector<std::uint8_t> moves;
    for (int a = 0; a < 4; ++a) {
      std::vector<std::uint8_t> perm(n);
      std::iota(perm.begin(), perm.end(), 0);
      for (std::size_t i = n; i > 1; --i) std::swap(perm[i - 1], perm[next_random(state) % i]);
      moves.insert(moves.end(), perm.begin(), perm.end());
    }
    const ShuffleProgram program = compile_shuffles(moves.data(), 4, n);
    std::vector<std::uint8_t> row(n), shuffled(n), gathered(n);
    for (std::size_t s = 0; s < n; ++s) row[s] = static_cast<std::uint8_t>(200 - s);
    const std::uint32_t walk[] = {0, 3, 1, 1, 2};
    gathered = row;
    for (std::uint32_t a : walk) {
      std::vector<std::uint8_t> next(n);
      for (std::size_t s = 0; s < n; ++s) next[s] = gathered[moves[a * n + s]];
      shuffle_row(program, a, gathered.data(), n, shuffled.data());
      EXPECT_EQ(shuffled, next) << n;
      gathered = next;
    }
    shuffle_row_through(program, walk, 5, row.data());
    EXPECT_EQ(row, gathered) << n;
  }
}

}  // namespace
}  // namespace tv
