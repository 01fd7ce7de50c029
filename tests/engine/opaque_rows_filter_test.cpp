// SPDX-License-Identifier: MIT
// The horizontal pass over blocks of opaque 8-bit rows: the reference gives the weighted sums of the
// rows' linear-light samples, with the sum of the weights as alpha, and the block kernel gives what the
// reference gives, for real shrinks and for taps in no particular order.
#include "Engine/opaque_rows_filter_p.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "Engine/resample_taps_p.h"
#include "Engine/srgb.h"

namespace voimg {
namespace {

struct Taps {
    AxisTaps axis;
    std::vector<float> sums;

    [[nodiscard]] RowTapsView view() const {
        return {axis.weights.data(), axis.stride, axis.first.data(),
                axis.count.data(),   sums.data(), int64_t(axis.count.size())};
    }
    void sumWeights() {
        sums.assign(axis.count.size(), 0.0f);
        for (size_t o = 0; o < sums.size(); ++o)
            for (int k = 0; k < axis.count[o]; ++k) sums[o] += axis.weights[o * size_t(axis.stride) + size_t(k)];
    }
};

// Output columns [outStart, outStart + count) of a shrink of a `width`-pixel row by `factor`, its taps
// padded as the streaming resizer pads them.
Taps shrinkTaps(int64_t width, double factor, int64_t outStart, int64_t count) {
    Taps t{AxisTaps::build(outStart, count, factor, 0, ResampleKernel::forScale(1 / factor), 0, width), {}};
    t.axis.padToMultipleOf(4, 0, width);
    t.sumWeights();
    return t;
}

// Rows of random RGBA bytes, alpha included (the filter must ignore it), `stride` bytes apart.
std::vector<uint8_t> randomRows(int rows, size_t stride, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<uint8_t> bytes(size_t(rows) * stride);
    for (uint8_t& b : bytes) b = uint8_t(random());
    return bytes;
}

std::vector<std::vector<float>> filtered(SimdBuild build, const std::vector<uint8_t>& bytes, size_t stride, int rows,
                                         const Taps& taps, bool* ran = nullptr) {
    std::vector<std::vector<float>> out(size_t(rows), std::vector<float>(taps.axis.count.size() * 4, -7.0f));
    std::vector<float*> pointers;
    for (auto& row : out) pointers.push_back(row.data());
    const bool done = filterOpaqueRowsWith(build, bytes.data(), stride, rows, taps.view(), pointers.data());
    if (ran) *ran = done;
    return out;
}

void expectSame(const std::vector<std::vector<float>>& got, const std::vector<std::vector<float>>& want,
                const std::string& what) {
    ASSERT_EQ(got.size(), want.size()) << what;
    for (size_t r = 0; r < got.size(); ++r)
        for (size_t i = 0; i < got[r].size(); ++i)
            ASSERT_NEAR(got[r][i], want[r][i], 2e-6f * std::max(1.0f, std::abs(want[r][i])))
                << what << " row " << r << " value " << i;
}

TEST(OpaqueRowsFilter, TheReferenceSumsWeightedLinearSamplesWithTheWeightsAsAlpha) {
    const int64_t width = 53;
    const size_t stride = size_t(width) * 4 + 12;
    const int rows = 3;
    const std::vector<uint8_t> bytes = randomRows(rows, stride, 1);
    const Taps taps = shrinkTaps(width, 3.2, 0, 17);
    const auto out = filtered(SimdBuild::Scalar, bytes, stride, rows, taps);
    const float* linear = srgbToLinear8Table();
    for (int r = 0; r < rows; ++r)
        for (size_t o = 0; o < taps.axis.count.size(); ++o) {
            double sum[4] = {0, 0, 0, 0};
            for (int k = 0; k < taps.axis.count[o]; ++k) {
                const double w = taps.axis.weights[o * size_t(taps.axis.stride) + size_t(k)];
                const uint8_t* p = &bytes[size_t(r) * stride + size_t(taps.axis.first[o] + k) * 4];
                for (int c = 0; c < 3; ++c) sum[c] += w * linear[p[c]];
                sum[3] += w;  // whatever the byte says, the pixel is opaque
            }
            for (int c = 0; c < 4; ++c) EXPECT_NEAR(out[size_t(r)][o * 4 + size_t(c)], sum[c], 1e-5) << o << " " << c;
        }
    EXPECT_NEAR(out[0][8 * 4 + 3], 1.0f, 1e-5f);  // inside the row the weights sum to one
}

TEST(OpaqueRowsFilter, TheBlockKernelEqualsTheReferenceForRealShrinks) {
    int compared = 0;
    for (double factor : {1.3, 2.0, 3.2, 4.9})
        for (int64_t width : {7, 100, 1001})
            for (int rows : {1, 5, 16}) {
                const int64_t outWidth = std::max<int64_t>(1, int64_t(double(width) / factor));
                // The whole row, and a slice of it as one of several workers would take.
                for (const auto& [start, count] :
                     {std::pair<int64_t, int64_t>{0, outWidth}, {outWidth / 3, std::max<int64_t>(1, outWidth / 3)}}) {
                    const Taps taps = shrinkTaps(width, factor, start, count);
                    const size_t stride = size_t(width) * 4 + 4 * size_t(rows);
                    const std::vector<uint8_t> bytes = randomRows(rows, stride, unsigned(width + rows));
                    const std::string what = "factor " + std::to_string(factor) + " width " + std::to_string(width) +
                                             " rows " + std::to_string(rows) + " start " + std::to_string(start);
                    bool ran = false;
                    const auto wide = filtered(SimdBuild::Avx512, bytes, stride, rows, taps, &ran);
                    if (!ran) GTEST_SKIP() << "this processor does not run the AVX-512 build with VBMI";
                    expectSame(wide, filtered(SimdBuild::Scalar, bytes, stride, rows, taps), what);
                    ++compared;
                }
            }
    EXPECT_EQ(compared, 4 * 3 * 3 * 2);
}

TEST(OpaqueRowsFilter, TheBlockKernelEqualsTheReferenceForTapsInAnyOrder) {
    std::mt19937 random(9);
    std::uniform_real_distribution<float> weight(-0.2f, 1.0f);
    for (int round = 0; round < 40; ++round) {
        const int64_t width = 20 + int64_t(random() % 400);
        const int64_t outWidth = 1 + int64_t(random() % 70);
        const int stride = 1 + int(random() % 90);  // beyond the window's usual width, now and then
        Taps taps;
        taps.axis.stride = stride;
        taps.axis.weights.resize(size_t(outWidth) * size_t(stride));
        for (float& w : taps.axis.weights) w = weight(random);
        for (int64_t o = 0; o < outWidth; ++o) {
            const int count = int(random() % size_t(std::min<int64_t>(stride, width) + 1));
            taps.axis.count.push_back(count);
            taps.axis.first.push_back(int64_t(random() % size_t(width - count + 1)));
        }
        taps.sumWeights();
        const int rows = 1 + int(random() % 16);
        const size_t rowStride = size_t(width) * 4;
        const std::vector<uint8_t> bytes = randomRows(rows, rowStride, unsigned(round));
        bool ran = false;
        const auto wide = filtered(SimdBuild::Avx512, bytes, rowStride, rows, taps, &ran);
        if (!ran) GTEST_SKIP() << "this processor does not run the AVX-512 build with VBMI";
        expectSame(wide, filtered(SimdBuild::Scalar, bytes, rowStride, rows, taps), "round " + std::to_string(round));
    }
}

TEST(OpaqueRowsFilter, TheDefaultBuildEqualsTheReference) {
    const int64_t width = 333;
    const int rows = 11;
    const Taps taps = shrinkTaps(width, 2.7, 0, 123);
    const std::vector<uint8_t> bytes = randomRows(rows, size_t(width) * 4, 4);
    std::vector<std::vector<float>> out(size_t(rows), std::vector<float>(123 * 4));
    std::vector<float*> pointers;
    for (auto& row : out) pointers.push_back(row.data());
    filterOpaqueRows(bytes.data(), size_t(width) * 4, rows, taps.view(), pointers.data());
    expectSame(out, filtered(SimdBuild::Scalar, bytes, size_t(width) * 4, rows, taps), "default");
}

}  // namespace
}  // namespace voimg
