#include <gtest/gtest.h>

#include "num/int.hpp"
#include "num/siphash.hpp"

namespace tv {
namespace {

const Int kMin(INT64_MIN);
const Int kMax(INT64_MAX);
const Int kTwo63 = Int::from_u64(std::uint64_t{1} << 63);

std::uint64_t hash_of(const Int& x) {
  SipHasher13 hasher;
  x.hash_into(hasher);
  return hasher.finish();
}

TEST(Int, MostNegativeValueStaysExact) {
  EXPECT_TRUE(kMin.is_small());
  EXPECT_FALSE(kTwo63.is_small());
  EXPECT_EQ(-kMin, kTwo63);
  EXPECT_EQ(kMin.abs(), kTwo63);
  EXPECT_EQ(div(kMin, Int(-1)), kTwo63);
  EXPECT_EQ(rem(kMin, Int(-1)), Int(0));
  EXPECT_EQ(gcd(kMin, Int(0)), kTwo63);
  EXPECT_EQ(gcd(kMin, kMin), kTwo63);
  EXPECT_EQ(gcd(kMin, Int(6)), Int(2));
  EXPECT_TRUE((-kTwo63).is_small());
  EXPECT_EQ((-kTwo63).small(), INT64_MIN);
}

TEST(Int, ResultsComeBackSmallWhenTheyFit) {
  const Int big = kMax * kMax;
  EXPECT_FALSE(big.is_small());
  const Int back = div(big, kMax);
  EXPECT_TRUE(back.is_small());
  EXPECT_EQ(back, kMax);
  EXPECT_EQ(hash_of(back), hash_of(kMax));
  EXPECT_TRUE((kTwo63 - Int(1)).is_small());
  EXPECT_TRUE((kMax + Int(1) - Int(1)).is_small());
}

TEST(Int, DivisionTruncatesAndRemainderFollowsTheDividend) {
  const std::int64_t cases[][4] = {{7, 2, 3, 1}, {-7, 2, -3, -1}, {7, -2, -3, 1}, {-7, -2, 3, -1}, {0, 5, 0, 0}};
  for (const auto& c : cases) {
    Int q, r;
    divrem(Int(c[0]), Int(c[1]), q, r);
    EXPECT_EQ(q, Int(c[2])) << c[0] << "/" << c[1];
    EXPECT_EQ(r, Int(c[3])) << c[0] << "%" << c[1];
    // The same on the big path: scale both by 2^70.
    const Int scale = Int(1).shifted_left(70);
    divrem(Int(c[0]) * scale, Int(c[1]) * scale, q, r);
    EXPECT_EQ(q, Int(c[2]));
    EXPECT_EQ(r, Int(c[3]) * scale);
  }
}

TEST(Int, ExactDivisionReportsItsFailures) {
  EXPECT_EQ(*div_exact(Int(12), Int(-4)), Int(-3));
  EXPECT_EQ(div_exact(Int(12), Int(5)).failure().message, "Not divisible");
  EXPECT_EQ(div_exact(Int(12), Int(0)).failure().message, "Division by zero");
  EXPECT_EQ(div_exact(Int(12), Int(0)).failure().kind, FailureKind::Division);
}

TEST(Int, GcdIsNonNegative) {
  EXPECT_EQ(gcd(Int(0), Int(0)), Int(0));
  EXPECT_EQ(gcd(Int(0), Int(-9)), Int(9));
  EXPECT_EQ(gcd(Int(-12), Int(18)), Int(6));
  EXPECT_EQ(gcd(Int(1).shifted_left(80) * Int(3), Int(1).shifted_left(75) * Int(9)), Int(1).shifted_left(75) * Int(3));
}

TEST(Int, PowersFactorialsBinomials) {
  EXPECT_EQ(Int(3).pow(0), Int(1));
  EXPECT_EQ(Int(-2).pow(63), kMin);
  EXPECT_EQ(Int(2).pow(64).to_string(), "18446744073709551616");
  EXPECT_EQ(Int::factorial(20).to_string(), "2432902008176640000");
  EXPECT_EQ(Int::factorial(21).to_string(), "51090942171709440000");
  EXPECT_EQ(Int::binomial(10, 3), Int(120));
}

TEST(Int, TextAndParsing) {
  EXPECT_EQ(kMin.to_string(), "-9223372036854775808");
  EXPECT_EQ((-(kTwo63 * kTwo63)).to_string(), "-85070591730234615865843651857942052864");
  for (const char* text : {"0", "-1", "9223372036854775807", "-9223372036854775809", "123456789012345678901234567890"})
    EXPECT_EQ(Int::parse(text)->to_string(), text);
  for (const char* text : {"", "-", "1a", "+1", " 1"}) EXPECT_FALSE(Int::parse(text).ok()) << text;
}

TEST(Int, OrderIsByValueAcrossForms) {
  EXPECT_LT(kMin, kMax);
  EXPECT_LT(kMax, kTwo63);
  EXPECT_LT(-kTwo63 - Int(1), kMin);
  EXPECT_GT(compare(kTwo63, Int(0)), 0);
  EXPECT_EQ(kTwo63.bit_length(), 64u);
  EXPECT_EQ(Int(0).bit_length(), 0u);
  EXPECT_EQ(kMin.bit_length(), 64u);
}

TEST(Int, CopiesShareTheBigForm) {
  Int a = kTwo63 * kTwo63;
  Int b = a;
  Int c = std::move(a);
  EXPECT_EQ(b, c);
  b = b + Int(1);
  EXPECT_EQ(b - c, Int(1));
}

}  // namespace
}  // namespace tv
