// SPDX-License-Identifier: MIT
// The JPEG writer's chroma rows: the SIMD kernels equal their scalar references, and rows made by
// several makers, each from a first row of its own, are those one maker makes.
#include "Engine/codec/chroma_planes_p.h"
#include "Engine/simd_target.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace voimg::detail;

TEST(ChromaRowKernels, SimdBlockAveragesEqualScalarToRounding) {
    if (!voimg::simdEnabled()) GTEST_SKIP() << "no SIMD build runs here";
    std::mt19937 random(21);
    for (const size_t blocks : {1u, 7u, 8u, 9u, 16u, 61u}) {
        std::vector<uint8_t> top(blocks * 6), bottom(blocks * 6);
        for (uint8_t& v : top) v = uint8_t(random());
        for (uint8_t& v : bottom) v = uint8_t(random());
        std::vector<float> cb(blocks), cr(blocks), cbScalar(blocks), crScalar(blocks);
        averageChromaBlocks(top.data(), bottom.data(), blocks, cb.data(), cr.data());
        averageChromaBlocksScalar(top.data(), bottom.data(), blocks, cbScalar.data(), crScalar.data());
        // Equal but for the last bits, where fused and separate multiply-adds round differently.
        for (size_t b = 0; b < blocks; ++b) {
            EXPECT_NEAR(cb[b], cbScalar[b], 1e-4f) << blocks << " blocks, #" << b;
            EXPECT_NEAR(cr[b], crScalar[b], 1e-4f) << blocks << " blocks, #" << b;
        }
    }
}

TEST(ChromaRowKernels, SimdSharpeningAlongColumnsEqualsScalar) {
    if (!voimg::simdEnabled()) GTEST_SKIP() << "no SIMD build runs here";
    std::mt19937 random(22);
    std::uniform_real_distribution<float> level(-40.0f, 300.0f);  // beyond both ends: clipped
    for (const size_t width : {1u, 8u, 13u, 64u, 450u}) {
        std::vector<float> above(width), current(width), below(width);
        for (size_t x = 0; x < width; ++x)
            above[x] = level(random), current[x] = level(random), below[x] = level(random);
        std::vector<uint8_t> simd(width), scalar(width);
        sharpenAlongColumns(above.data(), current.data(), below.data(), width, kChromaSharpening, simd.data());
        sharpenAlongColumnsScalar(above.data(), current.data(), below.data(), width, kChromaSharpening, scalar.data());
        EXPECT_EQ(simd, scalar) << width << " samples";
    }
}

TEST(ChromaRows, MakersStartingAtTheirOwnRowsMakeWhatOneMakerMakes) {
    std::mt19937 random(23);
    for (const auto& [w, h] : std::vector<std::pair<int, int>>{{40, 70}, {33, 49}, {17, 130}}) {
        std::vector<uint8_t> rgb(size_t(w) * size_t(h) * 3);
        for (uint8_t& v : rgb) v = uint8_t(random());
        const YccPlanes whole = makeYccPlanes(rgb.data(), w, h);
        YccPlanes parts = sizedYccPlanes(w, h);
        // Three makers on rows of their own, made last part first.
        const size_t rows = parts.chromaRows;
        ChromaRows(rgb.data(), parts, rows / 2).makeUpTo(rows);
        ChromaRows(rgb.data(), parts, 8).makeUpTo(rows / 2);
        ChromaRows(rgb.data(), parts).makeUpTo(8);
        EXPECT_EQ(parts.cb, whole.cb) << w << "x" << h;
        EXPECT_EQ(parts.cr, whole.cr) << w << "x" << h;
    }
}
