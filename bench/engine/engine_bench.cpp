// SPDX-License-Identifier: MIT
// Micro-benchmarks of the engine's kernels: resampling, colour conversion, composition (scalar and SIMD
// stage, whole compositions) and accumulator updates. Rates are in megapixels of output per second.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "Common/CoreGraphics/VoCompositionStage.h"
#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Common/CoreGraphics/VoImageAccumulator.h"
#include "Engine/codec/codec.h"
#include "Engine/render_context.h"

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
BENCHMARK(Resample)->Args({3000, 2000, 150})->Args({3000, 2000, 600})->Args({400, 300, 600})
    ->ArgNames({"w", "h", "to_height"})->Unit(benchmark::kMillisecond);

void ColourConversion(benchmark::State& state) {
    renderOnce(state, picture(1024, 1024), voimg::BitmapFormat::RgbaFloatLinear);
}
BENCHMARK(ColourConversion)->Unit(benchmark::kMillisecond);

void CompositionStage(benchmark::State& state) {
    const size_t pixels = size_t(state.range(1));
    std::vector<float> fg(pixels * 4, 0.5f), bg(pixels * 4, 0.25f), out(pixels * 4);
    const bool simd = state.range(0) != 0;
    for (auto _ : state) {
        if (simd) vo::factorCompositeSimd(fg.data(), bg.data(), 0.7f, out.data(), pixels);
        else vo::factorCompositeScalar(fg.data(), bg.data(), 0.7f, out.data(), pixels);
        benchmark::ClobberMemory();
    }
    setRate(state, double(pixels));
}
// One frame row (in cache) and a whole 1280 x 800 frame (memory-bound).
BENCHMARK(CompositionStage)->ArgsProduct({{0, 1}, {1280, 1280 * 800}})->ArgNames({"simd", "pixels"})
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

}  // namespace

BENCHMARK_MAIN();
