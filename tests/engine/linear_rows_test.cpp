// SPDX-License-Identifier: MIT
// Decoded rows to linear light: every layout's shortcut gives what the general conversion gives, and the
// boxed conversion equals converting then averaging.
#include "Engine/linear_rows_p.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "Engine/srgb.h"

namespace voimg {
namespace {

// Premultiplied linear RGBA of one 8-bit sRGB pixel, computed the long way.
void expectedPixel(const uint8_t* p, float* out) {
    const float a = p[3] / 255.0f;
    for (int c = 0; c < 3; ++c) out[c] = srgbToLinear8Table()[p[c]] * a;
    out[3] = a;
}

std::vector<uint8_t> randomRow(int width, bool grey, bool alpha, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<uint8_t> row(size_t(width) * 4);
    for (int x = 0; x < width; ++x) {
        uint8_t* p = &row[size_t(x) * 4];
        p[0] = uint8_t(random()), p[1] = grey ? p[0] : uint8_t(random()), p[2] = grey ? p[0] : uint8_t(random());
        p[3] = alpha ? uint8_t(random()) : 255;
    }
    return row;
}

TEST(LinearRows, EveryLayoutConvertsLikeTheGeneralFormula) {
    const int width = 37;
    for (bool grey : {false, true})
        for (bool alpha : {false, true}) {
            const std::vector<uint8_t> row = randomRow(width, grey, alpha, 7);
            std::vector<float> out(size_t(width) * 4, -1.0f);
            toLinear(row.data(), 3, 30, RowLayout{false, alpha, grey}, out.data());
            for (int x = 0; x < width; ++x) {
                float want[4] = {-1, -1, -1, -1};
                if (x >= 3 && x < 30) expectedPixel(&row[size_t(x) * 4], want);
                for (int c = 0; c < 4; ++c)
                    ASSERT_NEAR(out[size_t(x) * 4 + c], want[c], 1e-6f) << grey << alpha << " x " << x << " c " << c;
            }
        }
}

TEST(LinearRows, SixteenBitSamplesUseTheirOwnTable) {
    const uint16_t row[8] = {0, 65535, 32768, 65535, 65535, 0, 1000, 32768};
    std::vector<float> out(8);
    toLinear(reinterpret_cast<const uint8_t*>(row), 0, 2, RowLayout{true, true, false}, out.data());
    EXPECT_NEAR(out[0], 0.0f, 1e-6f);
    EXPECT_NEAR(out[1], 1.0f, 1e-6f);
    EXPECT_NEAR(out[2], srgbToLinear16Table()[32768], 1e-6f);
    EXPECT_NEAR(out[3], 1.0f, 1e-6f);
    EXPECT_NEAR(out[4], 32768 / 65535.0f, 1e-6f);  // premultiplied by alpha one half
    EXPECT_NEAR(out[7], 32768 / 65535.0f, 1e-6f);
}

TEST(LinearRows, BoxedConversionEqualsConvertingThenAveragingWithAShorterLastRun) {
    const int width = 23;  // with every box size but 1, the last run is shorter
    for (int box : {2, 3, 4, 5, 7})
        for (bool grey : {false, true})
            for (bool alpha : {false, true}) {
                const int runs = (width + box - 1) / box;
                const std::vector<uint8_t> row = randomRow(width, grey, alpha, 11);
                std::vector<float> full(size_t(width) * 4), boxed(size_t(runs) * 4, -1.0f);
                toLinear(row.data(), 0, width, RowLayout{false, alpha, false}, full.data());
                toLinearBoxed(row.data(), 1, runs, box, width, RowLayout{false, alpha, grey}, boxed.data());
                for (int c = 0; c < 4; ++c) EXPECT_EQ(boxed[size_t(c)], -1.0f);  // run 0 was not asked for
                for (int b = 1; b < runs; ++b) {
                    const int first = b * box, last = std::min(first + box, width);
                    for (int c = 0; c < 4; ++c) {
                        double sum = 0;
                        for (int x = first; x < last; ++x) sum += full[size_t(x) * 4 + c];
                        ASSERT_NEAR(boxed[size_t(b) * 4 + c], sum / (last - first), 1e-6)
                            << "box " << box << " grey " << grey << " alpha " << alpha << " run " << b << " c " << c;
                    }
                }
            }
}

TEST(LinearRows, TheWideColourKernelEqualsTheScalarReference) {
    for (bool alpha : {false, true})
        for (int width : {1, 15, 16, 17, 63, 64, 1001}) {
            const std::vector<uint8_t> row = randomRow(width, false, alpha, unsigned(width));
            std::vector<float> wide(size_t(width) * 4, -1.0f), scalar(wide.size(), -2.0f);
            ASSERT_TRUE(linearColourPixelsWith(SimdBuild::Scalar, row.data(), width, alpha, scalar.data()));
            if (!linearColourPixelsWith(SimdBuild::Avx512, row.data(), width, alpha, wide.data()))
                GTEST_SKIP() << "this processor does not run the AVX-512 build";
            for (size_t i = 0; i < wide.size(); ++i) ASSERT_EQ(wide[i], scalar[i]) << alpha << " " << width << " " << i;
            float want[4];
            expectedPixel(&row[0], want);
            for (int c = 0; c < 4; ++c) EXPECT_NEAR(scalar[size_t(c)], want[c], 1e-6f);
        }
}

}  // namespace
}  // namespace voimg
