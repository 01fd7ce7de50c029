// SPDX-License-Identifier: MIT
// Micro-benchmarks of the engine's kernels: resampling (tiled, and the streaming resizer's passes scalar
// and SIMD, and its block pass over opaque rows), colour conversion (whole pictures, and decoded rows to linear light),
// PNG unfiltering (scalar and SIMD), JPEG colour planes, the luma fit and the whole JPEG writer, the reduced JPEG IDCTs
// and YCbCr rows (scalar and SIMD), composition (scalar and SIMD stage, whole compositions) and accumulator updates.
// Rates are in megapixels per second (of output, or of input for the row kernels).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>
#include <vector>

#include "Common/CoreGraphics/VoCompositionStage.h"
#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Common/CoreGraphics/VoImageAccumulator.h"
#include "Engine/codec/chroma_planes_p.h"
#include "Engine/codec/codec.h"
#include "Engine/codec/jpeg_reduced_idct_p.h"
#include "Engine/codec/jpeg_ycbcr_rows_p.h"
#include "Engine/codec/luma_fit_p.h"
#include "Engine/codec/png_unfilter_p.h"
#include "Engine/linear_rows_p.h"
#include "Engine/opaque_rows_filter_p.h"
#include "Engine/render_context.h"
#include "Engine/resample_taps_p.h"
#include "Engine/stream_resizer_kernels_p.h"

namespace {

using vo::CIImage;
using vo::VoCoreUtils;

CIImage picture(int width, int height) {
    voimg::DecodedImage d;
    d.width = width, d.height = height;
    d.pixels.resize(size_t(width) * height * 4);
    std::mt19937 random(1);
    for (size_t i = 0; i < d.pixels.size(); i += 4) {
        const size_t p = i / 4;
        d.pixels[i] = uint8_t(p % width), d.pixels[i + 1] = uint8_t(p / width), d.pixels[i + 2] = uint8_t(random());
        d.pixels[i + 3] = 255;
    }
    return CIImage::withDecodedImage(std::move(d));
}

void setRate(benchmark::State& state, double pixels) {
    state.counters["Mpix/s"] = benchmark::Counter(pixels / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

void renderOnce(benchmark::State& state, const CIImage& image, voimg::BitmapFormat format) {
    static voimg::RenderContext context;
    const CIImage placed = VoCoreUtils::moveImageToOrigin(image);
    for (auto _ : state) benchmark::DoNotOptimize(context.createBitmap(placed, placed.extent(), format));
    setRate(state, placed.extent().width * placed.extent().height);
}

void Resample(benchmark::State& state) {
    const CIImage source = picture(int(state.range(0)), int(state.range(1)));
    renderOnce(state, VoCoreUtils::scaleImageToFitInRect(source, {0, 0, 8192, float(state.range(2))}),
               voimg::BitmapFormat::Rgb8OverBlack);
}
BENCHMARK(Resample)
    ->Args({3000, 2000, 150})
    ->Args({3000, 2000, 600})
    ->Args({400, 300, 600})
    ->ArgNames({"w", "h", "to_height"})
    ->Unit(benchmark::kMillisecond);

void ColourConversion(benchmark::State& state) {
    renderOnce(state, picture(1024, 1024), voimg::BitmapFormat::RgbaFloatLinear);
}
BENCHMARK(ColourConversion)->Unit(benchmark::kMillisecond);

void CompositionStage(benchmark::State& state) {
    const size_t pixels = size_t(state.range(1));
    std::vector<float> fg(pixels * 4, 0.5f), bg(pixels * 4, 0.25f), out(pixels * 4);
    const bool simd = state.range(0) != 0;
    for (auto _ : state) {
        if (simd)
            vo::factorCompositeSimd(fg.data(), bg.data(), 0.7f, out.data(), pixels);
        else
            vo::factorCompositeScalar(fg.data(), bg.data(), 0.7f, out.data(), pixels);
        benchmark::ClobberMemory();
    }
    setRate(state, double(pixels));
}
// One frame row (in cache) and a whole 1280 x 800 frame (memory-bound).
BENCHMARK(CompositionStage)
    ->ArgsProduct({{0, 1}, {1280, 1280 * 800}})
    ->ArgNames({"simd", "pixels"})
    ->Unit(benchmark::kMicrosecond);

void Compose(benchmark::State& state) {
    const CIImage fg = picture(1280, 800), bg = picture(1280, 800);
    const vo::NSAffineTransform move = vo::NSAffineTransform::translation(3.5f, 2.25f);
    const CIImage composed = state.range(0) == 0
                                 ? VoCoreUtils::composeImageOverImage(fg, bg)
                                 : VoCoreUtils::composeImageOverImageWithFactorTransform(fg, bg, 0.6f, &move);
    renderOnce(state, composed, voimg::BitmapFormat::RgbaFloatLinear);
}
BENCHMARK(Compose)->Arg(0)->Arg(1)->ArgName("factor_transform")->Unit(benchmark::kMillisecond);

void AccumulatorDirtyRect(benchmark::State& state) {
    vo::VoImageAccumulator accumulator({0, 0, 1280, 800}, voimg::AccumulatorFormat::Rgba16);
    const CIImage frame = picture(1280, 800);
    accumulator.setImage(frame);
    const float side = float(state.range(0));
    for (auto _ : state) accumulator.setImageDirtyRect(frame, {300, 200, side, side});
    setRate(state, double(side) * side);
}
BENCHMARK(AccumulatorDirtyRect)->Arg(128)->Arg(800)->ArgName("side")->Unit(benchmark::kMicrosecond);

// The streaming resizer's horizontal pass: one 3000-pixel row of linear RGBA to 900 pixels (a 3.33-fold
// shrink, 20 taps a pixel), scalar reference and SIMD build.
void StreamFilterRow(benchmark::State& state) {
    const int inWidth = 3000, outWidth = 900, taps = 20;
    std::vector<float> in(size_t(inWidth) * 4, 0.5f), out(size_t(outWidth) * 4),
        weights(size_t(outWidth) * taps, 0.05f);
    std::vector<int64_t> first(static_cast<size_t>(outWidth));
    std::vector<int> count(static_cast<size_t>(outWidth), taps);
    for (int o = 0; o < outWidth; ++o) first[size_t(o)] = std::min<int64_t>(int64_t(o * 3.333), inWidth - taps);
    const auto build = voimg::SimdBuild(state.range(0));
    for (auto _ : state) {
        if (!voimg::filterRowWith(build, weights.data(), taps, first.data(), count.data(), in.data(), out.data(),
                                  outWidth))
            return state.SkipWithError("this processor does not run that build");
        benchmark::DoNotOptimize(out.data());
    }
    setRate(state, inWidth);
}
BENCHMARK(StreamFilterRow)->DenseRange(0, 2)->ArgName("scalar_avx2_avx512")->Unit(benchmark::kMicrosecond);

// The vertical pass: one 900-pixel output row from 20 filtered rows.
void StreamSumRows(benchmark::State& state) {
    const int rows = 20;
    const int64_t values = 900 * 4;
    std::vector<std::vector<float>> data(static_cast<size_t>(rows), std::vector<float>(size_t(values), 0.5f));
    std::vector<const float*> pointers;
    for (const auto& row : data) pointers.push_back(row.data());
    std::vector<float> weights(static_cast<size_t>(rows), 0.05f), out(static_cast<size_t>(values));
    const auto build = voimg::SimdBuild(state.range(0));
    for (auto _ : state) {
        if (!voimg::sumRowsWith(build, pointers.data(), weights.data(), rows, out.data(), values))
            return state.SkipWithError("this processor does not run that build");
        benchmark::DoNotOptimize(out.data());
    }
    setRate(state, double(values) / 4);
}
BENCHMARK(StreamSumRows)->DenseRange(0, 2)->ArgName("scalar_avx2_avx512")->Unit(benchmark::kMicrosecond);

// The same pass also summing the next output row's share of the rows (17 of the 20, as in a 3.2-fold
// shrink), which that row then completes with its last 3 rows.
void StreamSumRowsAndShare(benchmark::State& state) {
    const int rows = 20, skip = 3;
    const int64_t values = 900 * 4;
    std::vector<std::vector<float>> data(static_cast<size_t>(rows), std::vector<float>(size_t(values), 0.5f));
    std::vector<const float*> pointers;
    for (const auto& row : data) pointers.push_back(row.data());
    std::vector<float> weights(static_cast<size_t>(rows), 0.05f), out(static_cast<size_t>(values)), share(out);
    const auto build = voimg::SimdBuild(state.range(0));
    for (auto _ : state) {
        if (!voimg::sumRowsAndShareWith(build, pointers.data(), weights.data(), rows, skip, weights.data(), out.data(),
                                        share.data(), values))
            return state.SkipWithError("this processor does not run that build");
        benchmark::DoNotOptimize(out.data());
        benchmark::DoNotOptimize(share.data());
    }
    setRate(state, double(values) / 4);
}
BENCHMARK(StreamSumRowsAndShare)->DenseRange(0, 2)->ArgName("scalar_avx2_avx512")->Unit(benchmark::kMicrosecond);

// Decoded rows to linear light: one 4000-pixel opaque row, colour or grey, whole (box 1) or straight to
// the averages of runs of 2 or 4 pixels, as a worker feeds a resizer that boxes columns.
void LinearRows(benchmark::State& state) {
    const int width = 4000;
    const bool grey = state.range(0) != 0;
    const int box = int(state.range(1));
    std::vector<uint8_t> row(size_t(width) * 4);
    std::mt19937 random(2);
    for (size_t i = 0; i < row.size(); i += 4) {
        row[i] = uint8_t(random());
        row[i + 1] = grey ? row[i] : uint8_t(random());
        row[i + 2] = grey ? row[i] : uint8_t(random());
        row[i + 3] = 255;
    }
    std::vector<float> out(size_t(width) * 4);
    const voimg::RowLayout layout{false, false, grey};
    for (auto _ : state) {
        if (box == 1)
            voimg::toLinear(row.data(), 0, width, layout, out.data());
        else
            voimg::toLinearBoxed(row.data(), 0, (width + box - 1) / box, box, width, layout, out.data());
        benchmark::DoNotOptimize(out.data());
    }
    setRate(state, width);
}
BENCHMARK(LinearRows)->ArgsProduct({{0, 1}, {1, 2, 4}})->ArgNames({"grey", "box"})->Unit(benchmark::kMicrosecond);

// The colour conversion behind LinearRows, opaque or with alpha, in each build: scalar, AVX2, AVX-512.
void LinearColourPixels(benchmark::State& state) {
    const int width = 4000;
    const bool alpha = state.range(1) != 0;
    std::vector<uint8_t> row(size_t(width) * 4);
    std::mt19937 random(2);
    for (uint8_t& v : row) v = uint8_t(random());
    std::vector<float> out(size_t(width) * 4);
    const auto build = voimg::SimdBuild(state.range(0));
    for (auto _ : state) {
        if (!voimg::linearColourPixelsWith(build, row.data(), width, alpha, out.data()))
            return state.SkipWithError("this processor does not run that build");
        benchmark::DoNotOptimize(out.data());
    }
    setRate(state, width);
}
BENCHMARK(LinearColourPixels)
    ->ArgsProduct({{0, 1, 2}, {0, 1}})
    ->ArgNames({"scalar_avx2_avx512", "alpha"})
    ->Unit(benchmark::kMicrosecond);

// The horizontal pass over a block of 16 opaque 2560-pixel rows to 800 pixels (the 600-pixel thumbnail
// of a 2560x1920 JPEG): each row converted to linear light and filtered (0), as the resizer does for rows
// with alpha, against the block kernel (1).
void OpaqueRowsFilter(benchmark::State& state) {
    const int64_t inWidth = 2560, outWidth = 800;
    const int rows = voimg::kOpaqueBlockRows;
    voimg::AxisTaps taps =
        voimg::AxisTaps::build(0, outWidth, 3.2, 0, voimg::ResampleKernel::forScale(1 / 3.2), 0, inWidth);
    taps.padToMultipleOf(4, 0, inWidth);
    std::vector<float> sums(static_cast<size_t>(outWidth));
    for (size_t o = 0; o < sums.size(); ++o)
        for (int k = 0; k < taps.count[o]; ++k) sums[o] += taps.weights[o * size_t(taps.stride) + size_t(k)];
    const voimg::RowTapsView view{taps.weights.data(), taps.stride, taps.first.data(),
                                  taps.count.data(),   sums.data(), outWidth};
    std::vector<uint8_t> bytes(size_t(inWidth) * 4 * rows);
    std::mt19937 random(3);
    for (uint8_t& v : bytes) v = uint8_t(random());
    std::vector<float> linear(size_t(inWidth) * 4), out(size_t(outWidth) * 4 * rows);
    std::vector<float*> pointers;
    for (int r = 0; r < rows; ++r) pointers.push_back(out.data() + size_t(r) * size_t(outWidth) * 4);
    const bool block = state.range(0) != 0;
    if (block && !voimg::opaqueRowsFilterIsFast()) return state.SkipWithError("this processor has no block kernel");
    for (auto _ : state) {
        if (block) {
            voimg::filterOpaqueRows(bytes.data(), size_t(inWidth) * 4, rows, view, pointers.data());
        } else {
            for (int r = 0; r < rows; ++r) {
                voimg::toLinear(bytes.data() + size_t(r) * size_t(inWidth) * 4, 0, inWidth, voimg::RowLayout{},
                                linear.data());
                voimg::filterRow(view.weights, view.stride, view.first, view.count, linear.data(), pointers[size_t(r)],
                                 outWidth);
            }
        }
        benchmark::DoNotOptimize(out.data());
    }
    setRate(state, double(inWidth) * rows);
}
BENCHMARK(OpaqueRowsFilter)->Arg(0)->Arg(1)->ArgName("block")->Unit(benchmark::kMicrosecond);

// PNG unfiltering of one 5120-pixel RGBA row with each filter, scalar reference and SIMD build.
void PngUnfilter(benchmark::State& state) {
    const size_t bytes = 5120 * 4;
    std::vector<uint8_t> row(bytes), previous(bytes);
    std::mt19937 random(2);
    for (size_t i = 0; i < bytes; ++i) row[i] = uint8_t(random()), previous[i] = uint8_t(random());
    const auto filter = uint8_t(state.range(0));
    const bool simd = state.range(1) != 0;
    for (auto _ : state) {
        if (simd)
            voimg::detail::unfilterRowSimd(filter, row.data(), previous.data(), bytes, 4);
        else
            voimg::detail::unfilterRowScalar(filter, row.data(), previous.data(), bytes, 4);
        benchmark::DoNotOptimize(row.data());
    }
    setRate(state, 5120);
}
BENCHMARK(PngUnfilter)->ArgsProduct({{1, 3, 4}, {0, 1}})->ArgNames({"filter", "simd"})->Unit(benchmark::kMicrosecond);

// The colour planes of a 900x600 JPEG rendition (luma, 2x2 chroma averages, chroma sharpening).
void JpegColourPlanes(benchmark::State& state) {
    std::vector<uint8_t> rgb(size_t(900) * 600 * 3);
    std::mt19937 random(3);
    for (uint8_t& v : rgb) v = uint8_t(random());
    for (auto _ : state) benchmark::DoNotOptimize(voimg::detail::makeYccPlanes(rgb.data(), 900, 600));
    setRate(state, 900 * 600);
}
BENCHMARK(JpegColourPlanes)->Unit(benchmark::kMillisecond);

// A photograph-like 900x600 rendition: smooth colour fields with fine detail; `saturated` pushes the colour
// fields three times as far, so that most pixels have a channel at 0 or 255.
std::vector<uint8_t> renditionPixels(bool saturated = false) {
    const double amplitude = saturated ? 270 : 90;
    std::vector<uint8_t> rgb(size_t(900) * 600 * 3);
    std::mt19937 random(4);
    for (size_t y = 0; y < 600; ++y)
        for (size_t x = 0; x < 900; ++x)
            for (size_t c = 0; c < 3; ++c)
                rgb[(y * 900 + x) * 3 + c] = uint8_t(std::clamp<double>(
                    128 + amplitude * std::sin(double(x) * (0.01 + 0.004 * double(c)) + double(y) * 0.013) +
                        double(random() % 25) - 12,
                    0, 255));
    return rgb;
}

// The luma fit of a 900x600 JPEG rendition (chroma quantised and upsampled as a decoder would, luma
// chosen per pixel), and the whole writer on the same picture.
void JpegLumaFit(benchmark::State& state) {
    const std::vector<uint8_t> rgb = renditionPixels(state.range(0) != 0);
    voimg::detail::YccPlanes planes = voimg::detail::makeYccPlanes(rgb.data(), 900, 600);
    for (auto _ : state) voimg::detail::fitLumaToDecodedChroma(planes, rgb.data(), 85);
    setRate(state, 900 * 600);
}
BENCHMARK(JpegLumaFit)->Arg(0)->Arg(1)->ArgName("saturated")->Unit(benchmark::kMillisecond);

void JpegWrite(benchmark::State& state) {
    const std::vector<uint8_t> rgb = renditionPixels();
    const std::string path = (std::filesystem::temp_directory_path() / "vo_engine_bench.jpg").string();
    for (auto _ : state) benchmark::DoNotOptimize(voimg::writeJpegFile(path, rgb.data(), 900, 600, 85, nullptr));
    std::filesystem::remove(path);
    setRate(state, 900 * 600);
}
BENCHMARK(JpegWrite)->Unit(benchmark::kMillisecond);

// The reduced inverse DCTs of a 1/2 JPEG decode: luma 4x4 from 4x4 coefficients, 4:2:0 chroma 8x8 from
// 4x4 (rate: blocks per second, in millions).
void JpegReducedIdct(benchmark::State& state) {
    const int n = int(state.range(0));
    const bool simd = state.range(1) != 0;
    const auto idct = voimg::detail::reducedIdctFor(n, n, 4, 4, simd);
    std::vector<int16_t> coefficients(size_t(64) * 1024);
    std::mt19937 random(4);
    for (int16_t& c : coefficients) c = int16_t(int(random() % 21) - 10);
    std::vector<float> quant(64, 6.0f);
    int16_t out[64];
    for (auto _ : state)
        for (size_t b = 0; b < 1024; ++b) {
            idct(coefficients.data() + b * 64, quant.data(), 800, out, 8);
            benchmark::DoNotOptimize(out);
        }
    setRate(state, 1024);
}
BENCHMARK(JpegReducedIdct)->ArgsProduct({{4, 8}, {0, 1}})->ArgNames({"size", "simd"})->Unit(benchmark::kMicrosecond);

// Decoded JPEG samples to RGBA, one 3000-pixel row: the scalar reference pixel by pixel, and the row
// function (SSE2).
void JpegYcbcrRows(benchmark::State& state) {
    const bool simd = state.range(0) != 0;
    const int width = 3000;
    std::vector<int16_t> y(width), cb(width), cr(width);
    std::mt19937 random(5);
    for (int x = 0; x < width; ++x)
        y[size_t(x)] = int16_t(int(random() % 2000) - 1000), cb[size_t(x)] = int16_t(int(random() % 800) - 400),
        cr[size_t(x)] = int16_t(int(random() % 800) - 400);
    std::vector<uint8_t> rgba(size_t(width) * 4);
    for (auto _ : state) {
        if (simd)
            voimg::detail::ycbcrRowToRgba(y.data(), cb.data(), cr.data(), width, rgba.data());
        else
            for (int x = 0; x < width; ++x)
                voimg::detail::ycbcrToRgbaScalar(y[size_t(x)], cb[size_t(x)], cr[size_t(x)],
                                                 rgba.data() + size_t(x) * 4);
        benchmark::DoNotOptimize(rgba.data());
    }
    setRate(state, width);
}
BENCHMARK(JpegYcbcrRows)->Arg(0)->Arg(1)->ArgName("simd")->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
