// SPDX-License-Identifier: MIT
// PNG row filters: the SIMD unfiltering equals the scalar reference, and both undo a forward filter.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <vector>

#include "Engine/codec/png_unfilter_p.h"

namespace {

using voimg::detail::unfilterRow;
using voimg::detail::unfilterRowScalar;
using voimg::detail::unfilterRowSimd;

int paeth(int a, int b, int c) {
    const int pa = std::abs(b - c), pb = std::abs(a - c), pc = std::abs(a + b - 2 * c);
    return pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
}

// The encoder's side, straight from the filter definitions.
std::vector<uint8_t> filterRow(uint8_t filter, const std::vector<uint8_t>& row, const std::vector<uint8_t>& above,
                               int bpp) {
    std::vector<uint8_t> out(row.size());
    for (size_t i = 0; i < row.size(); ++i) {
        const int a = i >= size_t(bpp) ? row[i - bpp] : 0, b = above[i], c = i >= size_t(bpp) ? above[i - bpp] : 0;
        const int predicted = filter == 0   ? 0
                              : filter == 1 ? a
                              : filter == 2 ? b
                              : filter == 3 ? (a + b) / 2
                                            : paeth(a, b, c);
        out[i] = uint8_t(row[i] - predicted);
    }
    return out;
}

std::vector<uint8_t> randomBytes(std::mt19937& random, size_t n) {
    std::vector<uint8_t> v(n);
    for (auto& b : v) b = uint8_t(random());
    return v;
}

TEST(PngUnfilter, BothVersionsUndoEveryFilterForEveryPixelSize) {
    std::mt19937 random(7);
    for (int bpp : {1, 2, 3, 4, 6, 8}) {
        for (size_t pixels : {1, 2, 5, 64, 333}) {
            const size_t bytes = pixels * size_t(bpp);
            const std::vector<uint8_t> above = randomBytes(random, bytes), row = randomBytes(random, bytes);
            for (uint8_t filter = 0; filter <= 4; ++filter) {
                const std::vector<uint8_t> filtered = filterRow(filter, row, above, bpp);
                std::vector<uint8_t> scalar = filtered, simd = filtered;
                ASSERT_TRUE(unfilterRowScalar(filter, scalar.data(), above.data(), bytes, bpp));
                ASSERT_TRUE(unfilterRowSimd(filter, simd.data(), above.data(), bytes, bpp));
                EXPECT_EQ(scalar, row) << "filter " << int(filter) << " bpp " << bpp << " pixels " << pixels;
                EXPECT_EQ(simd, row) << "filter " << int(filter) << " bpp " << bpp << " pixels " << pixels;
            }
        }
    }
}

TEST(PngUnfilter, SimdEqualsScalarOnArbitraryData) {
    std::mt19937 random(11);
    for (int round = 0; round < 200; ++round) {
        static const int kPixelSizes[] = {3, 4, 6, 8};
        const int bpp = kPixelSizes[round % 4];
        const size_t bytes = size_t(bpp) * (1 + random() % 500);
        const std::vector<uint8_t> above = randomBytes(random, bytes), data = randomBytes(random, bytes);
        const uint8_t filter = uint8_t(random() % 5);
        std::vector<uint8_t> scalar = data, simd = data;
        unfilterRowScalar(filter, scalar.data(), above.data(), bytes, bpp);
        unfilterRowSimd(filter, simd.data(), above.data(), bytes, bpp);
        ASSERT_EQ(scalar, simd) << "round " << round;
    }
}

TEST(PngUnfilter, UnknownFilterTypesAreRejected) {
    std::vector<uint8_t> row(12), above(12);
    EXPECT_FALSE(unfilterRowScalar(5, row.data(), above.data(), 12, 4));
    EXPECT_FALSE(unfilterRowSimd(5, row.data(), above.data(), 12, 4));
    EXPECT_FALSE(unfilterRow(255, row.data(), above.data(), 12, 3));
}

}  // namespace
