#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "util/convert.h"

using namespace kv;

TEST(Conversions, IntTruncatesTowardZeroAndSaturates) {
    EXPECT_EQ(toInt(0.9), 0);
    EXPECT_EQ(toInt(-0.9), 0);
    EXPECT_EQ(toInt(2.999), 2);
    EXPECT_EQ(toInt(-2.999), -2);
    EXPECT_EQ(toInt(2147483646.9), 2147483646);
    EXPECT_EQ(toInt(2147483647.0), 2147483647);
    EXPECT_EQ(toInt(2147483647.5), 2147483647);
    EXPECT_EQ(toInt(2147483648.0), 2147483647);
    EXPECT_EQ(toInt(5000000000.0), 2147483647);
    EXPECT_EQ(toInt(-2147483647.9), -2147483647);
    EXPECT_EQ(toInt(-2147483648.0), INT32_MIN);
    EXPECT_EQ(toInt(-2147483648.9), INT32_MIN);
    EXPECT_EQ(toInt(-1e300), INT32_MIN);
    EXPECT_EQ(toInt(std::numeric_limits<double>::infinity()), INT32_MAX);
    EXPECT_EQ(toInt(-std::numeric_limits<double>::infinity()), INT32_MIN);
    EXPECT_EQ(toInt(std::nan("")), INT32_MIN);
}

TEST(Conversions, UintFoldsTheTopBitAndSaturatesAtTwoToThe32) {
    EXPECT_EQ(toUint(0.5), 0u);
    EXPECT_EQ(toUint(2147483647.9), 2147483647u);
    EXPECT_EQ(toUint(2147483648.0), 2147483648u);
    EXPECT_EQ(toUint(2147483648.7), 2147483648u);
    EXPECT_EQ(toUint(4294967295.0), 4294967295u);
    EXPECT_EQ(toUint(4294967296.0), 4294967295u);
    EXPECT_EQ(toUint(5000000000.0), 4294967295u);
    EXPECT_EQ(toUint(std::nan("")), 2147483648u);
    // Negative numbers go through the signed conversion and keep its bit pattern.
    EXPECT_EQ(toUint(-1.0), 4294967295u);
    EXPECT_EQ(toUint(-0.5), 0u);
    EXPECT_EQ(toUint(-1e20), 2147483648u);
}

TEST(Conversions, SingleRoundsAndResultsAreNearestFloats) {
    EXPECT_EQ(toSingle(0.1), 0.1f);
    EXPECT_EQ(toSingle(16777217.0), 16777216.0f);  // ties to even
    EXPECT_TRUE(std::isnan(toSingle(std::nan(""))));
    EXPECT_EQ(fromInt(-1760), -1760.0f);
    EXPECT_EQ(fromInt(16777217), 16777216.0f);
    EXPECT_EQ(fromUint(4294967295u), 4294967296.0f);
    EXPECT_EQ(fromUint(2147483648u), 2147483648.0f);
}
