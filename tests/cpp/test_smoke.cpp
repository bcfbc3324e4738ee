#include <gtest/gtest.h>
#include "num/polynomial.hpp"
TEST(Smoke, Builds) { EXPECT_EQ(tv::polynomial_text(tv::QPoly()), "0"); }
