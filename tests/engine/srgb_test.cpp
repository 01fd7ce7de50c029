// SPDX-License-Identifier: MIT
#include "Engine/srgb.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "Engine/bitmap_rows_p.h"

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

// Rows written over black encode each colour sample as linearToSrgb8 does, whatever the value, and drop alpha.
TEST(Srgb, RowsOverBlackEncodeEverySampleAsOneAtATime) {
    const float special[] = {-1.0f, 0.0f, 1e-9f, 0.5f, 0.99999f, 1.0f, 2.0f, std::nanf(""), INFINITY, -INFINITY};
    std::vector<float> row;
    for (float v : special) row.insert(row.end(), {v, 0.25f, v, 0.7f});
    for (int i = 0; i <= 600; ++i) row.insert(row.end(), {i / 600.0f, (i * 7 % 601) / 600.0f, 1.0f - i / 600.0f, 0.3f});
    const int64_t width = int64_t(row.size() / 4);  // more than one run of the converter
    Bitmap bitmap;
    bitmap.format = BitmapFormat::Rgb8OverBlack;
    bitmap.width = int(width), bitmap.height = 1;
    std::vector<uint8_t> bytes(size_t(width) * 3 + 1, 77);
    convertRow(row.data(), width, bitmap, bytes.data(), nullptr);
    for (int64_t x = 0; x < width; ++x)
        for (int c = 0; c < 3; ++c)
            ASSERT_EQ(bytes[size_t(x) * 3 + size_t(c)], linearToSrgb8(row[size_t(x) * 4 + size_t(c)])) << x << " " << c;
    EXPECT_EQ(bytes.back(), 77);  // nothing written past the row
}

}  // namespace
}  // namespace voimg
