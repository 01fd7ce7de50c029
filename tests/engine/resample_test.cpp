// SPDX-License-Identifier: MIT
// The resamplers against the slow reference, and the properties a thumbnailer relies on: no aliasing, no
// dark edges, smooth enlargement.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "Engine/nodes_p.h"
#include "Engine/resample_p.h"
#include "Engine/resample_taps_p.h"
#include "engine_test_util.h"

namespace voimg {
namespace {

using test::floatPixelAt;
using test::makeImage;
using test::makeSolidImage;
using test::pixelAt;

Image randomImage(int width, int height, uint32_t seed) {
    std::mt19937 rng(seed);
    return makeImage(width, height, [&](int, int, uint8_t* p) {
        for (int k = 0; k < 4; ++k) p[k] = uint8_t(rng());
    });
}

// Each output pixel's taps are the kernel at its source pixels' distances, normalised to sum to one.
TEST(AxisTaps, WeightsAreTheNormalisedKernelAtEachSourcePixel) {
    std::mt19937 rng(12);
    std::uniform_real_distribution<double> scaleOf(0.05, 2.0), offset(-3.0, 3.0);
    for (int round = 0; round < 40; ++round) {
        const double scale = scaleOf(rng), a = 1 / scale, b = offset(rng);
        const ResampleKernel kernel = ResampleKernel::forScale(scale);
        const int64_t n = 37, sources = int64_t(std::ceil(n * a)) + 2;
        const AxisTaps taps = AxisTaps::build(0, n, a, b, kernel, 0, sources);
        for (int64_t o = 0; o < n; ++o) {
            const int count = taps.count[size_t(o)];
            if (count <= 1) continue;  // nothing, or the nearest pixel alone at an edge
            const double c = a * (double(o) + 0.5) + b;
            double sum = 0;
            for (int k = 0; k < count; ++k) sum += kernel((double(taps.first[size_t(o)] + k) + 0.5 - c) * kernel.scale);
            for (int k = 0; k < count; ++k) {
                const double want = kernel((double(taps.first[size_t(o)] + k) + 0.5 - c) * kernel.scale) / sum;
                ASSERT_NEAR(taps.weights[size_t(o) * size_t(taps.stride) + size_t(k)], want, 1e-6)
                    << "scale " << scale << " output " << o << " tap " << k;
            }
        }
    }
}

// Fast separable path and reference over random scales, offsets and flips: the same values up to float
// rounding (1e-4 of full scale).
TEST(SeparableResample, MatchesTheReferenceOverRandomTransforms) {
    std::mt19937 rng(1234);
    std::uniform_real_distribution<float> scale(0.05f, 3.0f), offset(-20.0f, 20.0f);
    for (int trial = 0; trial < 24; ++trial) {
        const Image source = randomImage(37 + trial, 23 + 2 * trial, uint32_t(trial));
        const float sx = scale(rng) * (trial % 5 == 0 ? -1.0f : 1.0f), sy = scale(rng) * (trial % 7 == 0 ? -1.f : 1.f);
        const AffineTransform t{sx, 0, 0, sy, offset(rng), offset(rng)};
        const Rect extent = t.applyToRect(source.extent());
        const PixelRect grid = pixelRectEnclosing(extent);
        TileBuffer fast(grid), reference(grid);
        resampleSeparable(*source.node(), source.extent(), t, fast.view());
        resampleSeparableReference(*source.node(), source.extent(), t, reference.view());
        for (int64_t y = grid.y; y < grid.maxY(); ++y)
            for (int64_t x = grid.x; x < grid.maxX(); ++x)
                for (int k = 0; k < 4; ++k)
                    ASSERT_NEAR(fast.view().pixel(x, y)[k], reference.view().pixel(x, y)[k], 1e-4)
                        << "trial " << trial << " at " << x << "," << y;
    }
}

// A shrunk solid picture is solid right to its edges: the filter is renormalised over the pixels that
// exist, so edges do not fade to transparent or dark.
TEST(SeparableResample, ShrinkingKeepsEdgesOpaqueAndTrue) {
    const Image source = makeSolidImage(3000, 2000, 200, 100, 50);
    const Image small = source.transformed(AffineTransform::scale(0.075f, 0.075f));
    RenderContext context;
    const Bitmap b = context.createBitmap(small, small.extent(), BitmapFormat::Rgba8);
    ASSERT_EQ(b.width, 225);
    ASSERT_EQ(b.height, 150);
    for (int y : {0, 75, 149})
        for (int x : {0, 112, 224}) {
            const uint8_t* p = pixelAt(b, x, y);
            EXPECT_EQ(p[0], 200);
            EXPECT_EQ(p[1], 100);
            EXPECT_EQ(p[2], 50);
            EXPECT_EQ(p[3], 255);
        }
}

// A pattern far above the output's Nyquist frequency must come out as flat grey, not as a moire pattern.
// Measure: standard deviation of the output's linear luminance below 1% of the pattern's amplitude
// (sampling without a low-pass filter gives tens of percent here).
TEST(SeparableResample, ShrinkingDoesNotAlias) {
    const Image stripes = makeImage(1600, 1600, [](int x, int y, uint8_t* p) {
        const bool on = ((x / 1) + (y / 1)) % 2 == 0;
        p[0] = p[1] = p[2] = on ? 255 : 0, p[3] = 255;
    });
    const Image small = stripes.transformed(AffineTransform::scale(0.0917f, 0.0917f));
    RenderContext context;
    const Bitmap b = context.createBitmap(small, small.extent(), BitmapFormat::RgbaFloatLinear);
    double sum = 0, sum2 = 0;
    int n = 0;
    for (int y = 2; y < b.height - 2; ++y)
        for (int x = 2; x < b.width - 2; ++x) {
            const double v = floatPixelAt(b, x, y)[0];
            sum += v, sum2 += v * v, ++n;
        }
    const double mean = sum / n, sd = std::sqrt(std::max(0.0, sum2 / n - mean * mean));
    EXPECT_NEAR(mean, 0.5, 0.01);
    EXPECT_LT(sd, 0.01);
}

// A zone plate (chirp) shrunk 8x: where the source frequency is beyond the output's Nyquist limit the
// result must be flat (no false rings); below it the rings must survive.
TEST(SeparableResample, ZonePlateShowsNoFalseRings) {
    const int size = 1024;
    const Image plate = makeImage(size, size, [=](int x, int y, uint8_t* p) {
        const double dx = x - size / 2 + 0.5, dy = y - size / 2 + 0.5;
        const double v = 0.5 + 0.5 * std::cos(std::numbers::pi * (dx * dx + dy * dy) / size);
        p[0] = p[1] = p[2] = uint8_t(std::lround(v * 255)), p[3] = 255;
    });
    const Image small = plate.transformed(AffineTransform::scale(0.125f, 0.125f));
    RenderContext context;
    const Bitmap b = context.createBitmap(small, small.extent(), BitmapFormat::RgbaFloatLinear);
    // Local frequency at radius r is r/size cycles per source pixel; output Nyquist is 1/16 per source pixel.
    double outerSd = 0, innerRange = 0;
    {
        double sum = 0, sum2 = 0;
        int n = 0;
        float lo = 1, hi = 0;
        for (int y = 0; y < b.height; ++y)
            for (int x = 0; x < b.width; ++x) {
                const double r = std::hypot((x + 0.5) * 8 - size / 2, (y + 0.5) * 8 - size / 2);
                const float v = floatPixelAt(b, x, y)[0];
                if (r > 0.1 * size && r < 0.45 * size) sum += v, sum2 += v * v, ++n;  // 0.1..0.45 c/px: beyond
                if (r < 0.03 * size) lo = std::min(lo, v), hi = std::max(hi, v);      // below 0.03 c/px: kept
            }
        const double mean = sum / n;
        outerSd = std::sqrt(std::max(0.0, sum2 / n - mean * mean));
        innerRange = hi - lo;
    }
    EXPECT_LT(outerSd, 0.02);
    EXPECT_GT(innerRange, 0.3);
}

TEST(SeparableResample, EnlargementInterpolatesBetweenPixels) {
    // Two pixels, black and white: enlarged 8x the values rise monotonically from one to the other.
    const Image pair = makeImage(2, 1, [](int x, int, uint8_t* p) { p[0] = p[1] = p[2] = x ? 255 : 0, p[3] = 255; });
    const Image big = pair.transformed(AffineTransform::scale(8, 8));
    RenderContext context;
    const Bitmap b = context.createBitmap(big, big.extent(), BitmapFormat::RgbaFloatLinear);
    ASSERT_EQ(b.width, 16);
    float previous = -1;
    int distinct = 0;
    for (int x = 0; x < 16; ++x) {
        const float v = floatPixelAt(b, x, 4)[0];
        EXPECT_GE(v, previous);
        distinct += v != previous;
        previous = v;
        EXPECT_FLOAT_EQ(floatPixelAt(b, x, 4)[3], 1.0f);
    }
    EXPECT_GE(distinct, 8);
}

TEST(GeneralResample, QuarterTurnMovesPixelsExactly) {
    const Image source = randomImage(10, 20, 7);
    const Image turned = source.transformed(AffineTransform::rotationDegrees(90));
    EXPECT_EQ(turned.extent(), (Rect{-20, 0, 20, 10}));
    RenderContext context;
    const Bitmap in = context.createBitmap(source, source.extent(), BitmapFormat::RgbaFloatLinear);
    const Bitmap out = context.createBitmap(turned, turned.extent(), BitmapFormat::RgbaFloatLinear);
    ASSERT_EQ(out.width, 20);
    ASSERT_EQ(out.height, 10);
    // Plane point (x, y) goes to (-y, x).
    for (int py = 0; py < 20; ++py)
        for (int px = 0; px < 10; ++px) {
            const float* a = floatPixelAt(in, px, 19 - py);  // plane (px, py)
            const int ox = -py - 1 + 20, oy = px;            // output pixel column and plane row
            const float* b = floatPixelAt(out, ox, 9 - oy);
            for (int k = 0; k < 4; ++k) ASSERT_NEAR(a[k], b[k], 1e-6);
        }
}

TEST(GeneralResample, RotatedShrinkIsSmoothAndKeepsTheMeanColour) {
    const Image source = makeSolidImage(400, 400, 255, 0, 0);
    const Image rotated =
        source.transformed(AffineTransform::rotationDegrees(30).appending(AffineTransform::scale(0.2f, 0.2f)));
    RenderContext context;
    const Bitmap b = context.createBitmap(rotated, rotated.extent(), BitmapFormat::Rgba8);
    // The centre is solid red and opaque.
    const uint8_t* centre = pixelAt(b, b.width / 2, b.height / 2);
    EXPECT_EQ(centre[0], 255);
    EXPECT_EQ(centre[3], 255);
    // The corners of the bounding box are outside the turned square.
    EXPECT_EQ(pixelAt(b, 0, 0)[3], 0);
}

}  // namespace
}  // namespace voimg
