// SPDX-License-Identifier: MIT
#include "Engine/srgb.h"

#include <gtest/gtest.h>

#include <cmath>

namespace voimg {
namespace {

// Every 8-bit code survives decode + table encode.
TEST(Srgb, EightBitCodesRoundTrip) {
    const float* table = srgbToLinear8Table();
    for (int i = 0; i < 256; ++i) ASSERT_EQ(linearToSrgb8(table[i]), i);
}

// The encode table agrees with the exact formula for a dense sweep (at most one code off at a rounding tie).
TEST(Srgb, EncodeTableMatchesTheFormula) {
    for (int i = 0; i <= 100000; ++i) {
        const double linear = i / 100000.0;
        const long exact = std::lround(srgbEncode(linear) * 255.0);
        ASSERT_LE(std::abs(long(linearToSrgb8(float(linear))) - exact), 1) << linear;
    }
    EXPECT_EQ(linearToSrgb8(-1.0f), 0);
    EXPECT_EQ(linearToSrgb8(2.0f), 255);
    EXPECT_EQ(linearToSrgb8(NAN), 0);
}

TEST(Srgb, SixteenBitTableIsMonotonic) {
    const float* table = srgbToLinear16Table();
    for (int i = 1; i < 65536; ++i) ASSERT_GE(table[i], table[i - 1]);
    EXPECT_FLOAT_EQ(table[65535], 1.0f);
}

}  // namespace
}  // namespace voimg
