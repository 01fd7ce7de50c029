// SPDX-License-Identifier: MIT
// The row-streaming shrink: the same result as the tiled resampler, rows emitted as soon as possible,
// and a picture that ends early leaves its missing rows transparent.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "Engine/opaque_rows_filter_p.h"
#include "Engine/resample_taps_p.h"
#include "Engine/srgb.h"
#include "Engine/stream_resizer_kernels_p.h"
#include "Engine/stream_resizer_p.h"
#include "engine_test_util.h"

namespace voimg {
namespace {

// The SIMD builds compared with the scalar reference, where this processor runs them.
constexpr SimdBuild kSimdBuilds[] = {SimdBuild::Avx2, SimdBuild::Avx512};

struct Source {
    int width, height;
    std::vector<uint8_t> rgba;  // top row first
};

Source texturedSource(int width, int height) {
    Source s{width, height, std::vector<uint8_t>(size_t(width) * height * 4)};
    std::mt19937 random(3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint8_t* p = &s.rgba[(size_t(y) * width + x) * 4];
            p[0] = uint8_t(128 + 100 * std::sin(x * 0.31) * std::cos(y * 0.17));
            p[1] = uint8_t((x * 3 + y * 5) & 255);
            p[2] = uint8_t(random() & 255);
            p[3] = 255;
        }
    return s;
}

// Shrinks `source` uniformly by `scale` into a (ceil) grid, as the engine maps an image scaled about the
// origin: returns premultiplied linear floats, top row first.
std::vector<float> streamShrink(const Source& source, double scale, int64_t outW, int64_t outH, int* box = nullptr,
                                std::vector<int64_t>* emittedAfter = nullptr) {
    std::vector<float> out(size_t(outW * outH) * 4, -1.0f);
    const ResizeAxis x{1 / scale, 0, outW, source.width};
    // Top-down rows: source row j is engine row height-1-j.
    const ResizeAxis y{1 / scale, double(source.height) - double(outH) / scale, outH, source.height};
    int64_t pushed = 0;
    StreamResizer resizer(x, y, [&](int64_t row, const float* rgba) {
        std::copy_n(rgba, size_t(outW) * 4, &out[size_t(row * outW) * 4]);
        if (emittedAfter) emittedAfter->push_back(pushed);
    });
    if (box) *box = resizer.boxX();
    const float* table = srgbToLinear8Table();
    std::vector<float> row(size_t(source.width) * 4);
    for (int j = 0; j < source.height; ++j) {
        for (int i = 0; i < source.width * 4; ++i)
            row[size_t(i)] = i % 4 == 3 ? source.rgba[size_t(j) * source.width * 4 + i] / 255.0f
                                        : table[source.rgba[size_t(j) * source.width * 4 + i]];
        ++pushed;
        resizer.pushRow(row.data());
    }
    resizer.finish();
    return out;
}

std::vector<float> engineShrink(const Source& source, double scale) {
    DecodedImage d;
    d.width = source.width, d.height = source.height, d.pixels = source.rgba;
    const Image scaled =
        Image::withDecodedImage(std::move(d)).transformed(AffineTransform::scale(float(scale), float(scale)));
    RenderContext context;
    const BitmapFloats floats = context.createBitmap(scaled, scaled.extent(), BitmapFormat::RgbaFloatLinear).floats;
    return {floats.begin(), floats.end()};
}

double psnr(const std::vector<float>& a, const std::vector<float>& b) {
    double squared = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        const double d = (a[i] - b[i]) * 255.0;
        squared += d * d;
    }
    return 10 * std::log10(255.0 * 255.0 / std::max(1e-12, squared / double(a.size())));
}

TEST(StreamResizer, WithoutABoxItEqualsTheTiledResampler) {
    const Source source = texturedSource(300, 200);
    // Shrinks whose neighbouring output rows share most of their source rows, or a few.
    for (const double scale : {0.3, 0.5, 0.85}) {
        int box = 0;
        const std::vector<float> streamed =
            streamShrink(source, scale, std::lround(300 * scale), std::lround(200 * scale), &box);
        const std::vector<float> tiled = engineShrink(source, scale);
        ASSERT_EQ(box, 1);
        ASSERT_EQ(streamed.size(), tiled.size()) << scale;
        for (size_t i = 0; i < tiled.size(); ++i)
            ASSERT_NEAR(streamed[i], tiled[i], 2e-5) << "scale " << scale << ", value " << i;
    }
}

TEST(StreamResizer, ALargeShrinkAveragesBoxesFirstAndStaysCloseToTheExactFilter) {
    const Source source = texturedSource(800, 600);
    int box = 0;
    const std::vector<float> streamed = streamShrink(source, 0.075, 60, 45, &box);
    ASSERT_EQ(box, 5);  // a 13.3-fold shrink: boxes of 5, then 2.67-fold with the filter
    EXPECT_GT(psnr(streamed, engineShrink(source, 0.075)), 40.0);
}

TEST(StreamResizer, RowsBoxedByTheCallerGiveWhatFullRowsGive) {
    const Source source = texturedSource(203, 150);  // columns end inside a box
    const double scale = 0.06;
    const int64_t outW = 13, outH = 9;
    int box = 0;
    const std::vector<float> full = streamShrink(source, scale, outW, outH, &box);
    ASSERT_GT(box, 1);

    std::vector<float> out(size_t(outW * outH) * 4, -1.0f);
    const ResizeAxis x{1 / scale, 0, outW, source.width};
    const ResizeAxis y{1 / scale, double(source.height) - double(outH) / scale, outH, source.height};
    StreamResizer resizer(x, y, [&](int64_t row, const float* rgba) {
        std::copy_n(rgba, size_t(outW) * 4, &out[size_t(row * outW) * 4]);
    });
    const float* table = srgbToLinear8Table();
    std::vector<float> boxed(size_t(resizer.boxedWidth()) * 4);
    for (int j = 0; j < source.height; ++j) {
        for (int64_t b = 0; b < resizer.boxedWidth(); ++b) {
            const int64_t first = b * box, last = std::min<int64_t>(first + box, source.width);
            for (int c = 0; c < 4; ++c) {
                float sum = 0;
                for (int64_t i = first; i < last; ++i) {
                    const uint8_t v = source.rgba[(size_t(j) * source.width + size_t(i)) * 4 + size_t(c)];
                    sum += c == 3 ? v / 255.0f : table[v];
                }
                boxed[size_t(b) * 4 + size_t(c)] = sum / float(last - first);
            }
        }
        resizer.pushBoxedRow(boxed.data());
    }
    resizer.finish();
    for (size_t i = 0; i < full.size(); ++i) ASSERT_NEAR(out[i], full[i], 1e-5) << "value " << i;
}

TEST(StreamResizer, BoxFactorsLeaveAtLeastTwoAndAHalfFoldToTheFilter) {
    EXPECT_EQ(StreamResizer::boxFactorFor(0.5), 1);
    EXPECT_EQ(StreamResizer::boxFactorFor(0.21), 1);
    EXPECT_EQ(StreamResizer::boxFactorFor(0.2), 2);
    EXPECT_EQ(StreamResizer::boxFactorFor(1 / 13.33), 5);
    EXPECT_EQ(StreamResizer::boxFactorFor(1 / 40.0), 16);
}

TEST(StreamResizer, EachRowIsEmittedOnceItsLastSourceRowArrived) {
    const Source source = texturedSource(120, 400);
    std::vector<int64_t> emittedAfter;
    streamShrink(source, 0.25, 30, 100, nullptr, &emittedAfter);
    ASSERT_EQ(emittedAfter.size(), 100u);
    // A 4-fold Lanczos-3 reaches 12 source rows beyond the centre: row 0 needs about 14 rows, and every
    // later row about 4 more; nothing waits for the whole picture.
    EXPECT_LE(emittedAfter.front(), 16);
    EXPECT_LT(emittedAfter[50], 220);
    for (size_t i = 1; i < emittedAfter.size(); ++i) EXPECT_GE(emittedAfter[i], emittedAfter[i - 1]);
}

TEST(StreamResizer, APictureEndingEarlyLeavesItsMissingRowsTransparent) {
    const Source source = texturedSource(100, 100);
    std::vector<float> out(size_t(50 * 50) * 4, -1.0f);
    const ResizeAxis x{2, 0, 50, 100}, y{2, 0, 50, 100};
    StreamResizer resizer(x, y,
                          [&](int64_t row, const float* rgba) { std::copy_n(rgba, 200, &out[size_t(row) * 200]); });
    std::vector<float> opaque(400, 1.0f);
    for (int j = 0; j < 40; ++j) resizer.pushRow(opaque.data());
    resizer.finish();
    EXPECT_NEAR(out[size_t(5 * 50 + 10) * 4 + 3], 1.0f, 1e-5);
    EXPECT_EQ(out[size_t(49 * 50 + 10) * 4 + 3], 0.0f);
    for (float v : out) ASSERT_GE(v, -1e-3f);  // every row was emitted
}

TEST(StreamResizer, RowsFilteredApartAreTakenInAsIfPushedWhole) {
    const Source source = texturedSource(300, 120);
    const double scale = 0.3;
    const int64_t outW = 90, outH = 36;
    const ResizeAxis x{1 / scale, 0, outW, source.width};
    const ResizeAxis y{1 / scale, double(source.height) - double(outH) / scale, outH, source.height};
    std::vector<float> whole(size_t(outW * outH) * 4), apart(whole.size());
    StreamResizer a(x, y, [&](int64_t row, const float* rgba) {
        std::copy_n(rgba, size_t(outW) * 4, &whole[size_t(row * outW) * 4]);
    });
    StreamResizer b(x, y, [&](int64_t row, const float* rgba) {
        std::copy_n(rgba, size_t(outW) * 4, &apart[size_t(row * outW) * 4]);
    });
    ASSERT_TRUE(b.filtersSeparately());
    ASSERT_EQ(b.outWidth(), outW);
    std::vector<float> row(size_t(source.width) * 4), filtered(size_t(outW) * 4);
    for (int j = 0; j < source.height; ++j) {
        for (int i = 0; i < source.width * 4; ++i)
            row[size_t(i)] = source.rgba[size_t(j) * source.width * 4 + i] / 255.0f;
        a.pushRow(row.data());
        b.filterSourceRow(row.data(), filtered.data());
        b.pushFilteredRow(filtered.data());
    }
    a.finish();
    b.finish();
    EXPECT_EQ(whole, apart);
    // A shrink that boxes first keeps state between rows: it cannot filter apart.
    const ResizeAxis far{10, 0, 30, 300};
    EXPECT_FALSE(StreamResizer(far, far, [](int64_t, const float*) {}).filtersSeparately());
}

// Blocks of opaque bytes filtered straight into the ring, in blocks of every size up to the most it takes
// and across the ring's end many times over, give what converting and pushing each row gives.
TEST(StreamResizer, OpaqueBlocksWrittenIntoTheRingGiveWhatWholeRowsGive) {
    Source source = texturedSource(301, 173);
    for (size_t i = 3; i < source.rgba.size(); i += 4) source.rgba[i] = uint8_t(i);  // alpha is not read
    const double scale = 0.31;
    const int64_t outW = 93, outH = 53;
    const ResizeAxis x{1 / scale, 0, outW, source.width};
    const ResizeAxis y{1 / scale, double(source.height) - double(outH) / scale, outH, source.height};
    std::vector<float> whole(size_t(outW * outH) * 4, -1.0f), blocks(whole.size(), -2.0f);
    std::vector<int64_t> emittedAfter;
    int64_t taken = 0;
    StreamResizer a(x, y, [&](int64_t row, const float* rgba) {
        std::copy_n(rgba, size_t(outW) * 4, &whole[size_t(row * outW) * 4]);
    });
    StreamResizer b(x, y, [&](int64_t row, const float* rgba) {
        std::copy_n(rgba, size_t(outW) * 4, &blocks[size_t(row * outW) * 4]);
        emittedAfter.push_back(taken);
    });
    b.makeRoomForRowsAhead(kOpaqueBlockRows);
    const float* table = srgbToLinear8Table();
    std::vector<float> row(size_t(source.width) * 4);
    for (int j = 0; j < source.height; ++j) {
        for (int i = 0; i < source.width * 4; ++i)
            row[size_t(i)] = i % 4 == 3 ? 1.0f : table[source.rgba[size_t(j) * source.width * 4 + size_t(i)]];
        a.pushRow(row.data());
    }
    const size_t stride = size_t(source.width) * 4;
    for (int j = 0, size = 1; j < source.height; j += size, size = size % kOpaqueBlockRows + 1) {
        const int rows = std::min(size, source.height - j);
        float* out[kOpaqueBlockRows];
        for (int i = 0; i < rows; ++i) out[i] = b.rowAhead(i);
        b.filterOpaqueSourceRows(&source.rgba[size_t(j) * stride], stride, rows, out);
        taken += rows;
        b.takeRowsAhead(rows);
    }
    a.finish();
    b.finish();
    for (size_t i = 0; i < whole.size(); ++i) ASSERT_NEAR(blocks[i], whole[i], 2e-6f) << "value " << i;
    // Rows still come out as soon as their sources are in: the first long before the picture's end.
    ASSERT_EQ(emittedAfter.size(), size_t(outH));
    EXPECT_LT(emittedAfter.front(), 30);
}

TEST(AxisTaps, PaddingToFourTapsKeepsTheFilterAndStaysInside) {
    const int64_t sourceWidth = 103;
    const AxisTaps plain = AxisTaps::build(0, 32, 3.2, 0, ResampleKernel::forScale(1 / 3.2), 0, sourceWidth);
    AxisTaps padded = plain;
    padded.padToMultipleOf(4, 0, sourceWidth);
    EXPECT_EQ(padded.stride % 4, 0);
    std::vector<float> in(size_t(sourceWidth) * 4);
    for (size_t i = 0; i < in.size(); ++i) in[i] = float((i * 37) % 101) / 100.0f;
    std::vector<float> before(32 * 4), after(32 * 4);
    filterRowScalar(plain.weights.data(), plain.stride, plain.first.data(), plain.count.data(), in.data(),
                    before.data(), 32);
    filterRowScalar(padded.weights.data(), padded.stride, padded.first.data(), padded.count.data(), in.data(),
                    after.data(), 32);
    for (size_t i = 0; i < before.size(); ++i) EXPECT_NEAR(after[i], before[i], 1e-6f) << i;
    bool paddedInFront = false;
    for (size_t o = 0; o < 32; ++o) {
        EXPECT_EQ(padded.count[o] % 4, 0) << o;
        EXPECT_GE(padded.first[o], 0) << o;
        EXPECT_LE(padded.first[o] + padded.count[o], sourceWidth) << o;
        paddedInFront = paddedInFront || padded.first[o] < plain.first[o];
    }
    EXPECT_TRUE(paddedInFront);  // at the right edge the zeros go before the taps
    EXPECT_GE(padded.lo, 0);
    EXPECT_LE(padded.hi, sourceWidth);
    // Without room for the padding the taps stay as they are.
    AxisTaps narrow = AxisTaps::build(0, 2, 3.2, 0, ResampleKernel::forScale(1 / 3.2), 0, 5);
    const std::vector<int> counts = narrow.count;
    ASSERT_NE(counts[0] % 4, 0);
    narrow.padToMultipleOf(4, 0, 5);
    EXPECT_EQ(narrow.count, counts);
}

TEST(StreamResizerKernels, SimdBuildsEqualTheScalarReference) {
    std::mt19937 random(5);
    std::uniform_real_distribution<float> value(0.0f, 1.0f), weight(-0.2f, 1.0f);
    int compared = 0;
    for (int round = 0; round < 50; ++round) {
        const int inWidth = 40 + int(random() % 200), outWidth = 1 + int(random() % 60),
                  stride = 1 + int(random() % 23);
        std::vector<float> in(size_t(inWidth) * 4), weights(size_t(outWidth) * stride);
        for (float& v : in) v = value(random);
        for (float& w : weights) w = weight(random);
        std::vector<int64_t> first(static_cast<size_t>(outWidth));
        std::vector<int> count(static_cast<size_t>(outWidth));
        for (int o = 0; o < outWidth; ++o) {
            count[size_t(o)] = int(random() % (stride + 1));
            first[size_t(o)] = int64_t(random() % size_t(inWidth - stride));
        }
        std::vector<float> simd(size_t(outWidth) * 4), scalar(simd.size());
        filterRowScalar(weights.data(), stride, first.data(), count.data(), in.data(), scalar.data(), outWidth);
        for (SimdBuild build : kSimdBuilds) {
            if (!filterRowWith(build, weights.data(), stride, first.data(), count.data(), in.data(), simd.data(),
                               outWidth))
                continue;
            ++compared;
            for (size_t i = 0; i < simd.size(); ++i)
                ASSERT_NEAR(simd[i], scalar[i], 1e-5f) << "round " << round << " build " << int(build);
        }

        const int rowCount = 1 + int(random() % 13);
        const int64_t values = 4 * (1 + int64_t(random() % 300));
        std::vector<std::vector<float>> rows(static_cast<size_t>(rowCount),
                                             std::vector<float>(static_cast<size_t>(values)));
        std::vector<const float*> pointers;
        for (auto& row : rows) {
            for (float& v : row) v = value(random);
            pointers.push_back(row.data());
        }
        std::vector<float> rowWeights(static_cast<size_t>(rowCount));
        for (float& w : rowWeights) w = weight(random);
        std::vector<float> sumSimd(static_cast<size_t>(values)), sumScalar(static_cast<size_t>(values));
        sumRowsScalar(pointers.data(), rowWeights.data(), rowCount, sumScalar.data(), values);
        for (SimdBuild build : kSimdBuilds) {
            if (!sumRowsWith(build, pointers.data(), rowWeights.data(), rowCount, sumSimd.data(), values)) continue;
            for (size_t i = 0; i < sumSimd.size(); ++i)
                ASSERT_NEAR(sumSimd[i], sumScalar[i], 1e-5f) << "round " << round << " build " << int(build);
        }

        // The next output row's share of the rows from `skip` on, summed in the same pass.
        const int skip = int(random() % size_t(rowCount));
        std::vector<float> shareWeights(size_t(rowCount - skip));
        for (float& w : shareWeights) w = weight(random);
        std::vector<float> shareScalar(static_cast<size_t>(values)), shareSimd(shareScalar), alone(shareScalar);
        sumRowsAndShareScalar(pointers.data(), rowWeights.data(), rowCount, skip, shareWeights.data(), sumScalar.data(),
                              shareScalar.data(), values);
        sumRowsScalar(pointers.data() + skip, shareWeights.data(), rowCount - skip, alone.data(), values);
        ASSERT_EQ(shareScalar, alone);
        for (SimdBuild build : kSimdBuilds) {
            if (!sumRowsAndShareWith(build, pointers.data(), rowWeights.data(), rowCount, skip, shareWeights.data(),
                                     sumSimd.data(), shareSimd.data(), values))
                continue;
            for (size_t i = 0; i < sumSimd.size(); ++i) {
                ASSERT_NEAR(sumSimd[i], sumScalar[i], 1e-5f) << "round " << round << " build " << int(build);
                ASSERT_NEAR(shareSimd[i], shareScalar[i], 1e-5f) << "round " << round << " build " << int(build);
            }
        }
    }
    if (compared == 0) GTEST_SKIP() << "this processor runs no SIMD build";
}

}  // namespace
}  // namespace voimg
