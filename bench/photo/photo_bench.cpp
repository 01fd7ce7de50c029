// SPDX-License-Identifier: MIT
// Square crops per second of a 24-megapixel photo (6000 x 4000) in cache modes 0, 1 and 2, and what
// building an instance costs in each mode (mode 1 and up make the 200-wide reduced copy).
//
// Mode 0 crops from the full picture every time; mode 1 from the reduced copy; mode 2 answers repeated
// requests from the square cache ("same" rows) and builds only new ones otherwise ("varied" rows: a new
// pan for each request, so every request misses). Rates are per second of wall-clock time; the CPU column
// counts every thread of the process (Qt's area reduction of large pictures runs on its thread pool).
#include <benchmark/benchmark.h>

#include <QGuiApplication>
#include <QImage>

#include <cstdint>
#include <memory>

#include "Photo/VoImage.h"
#include "Photo/VoImage_p.h"

namespace {

constexpr int kPhotoWidth = 6000;
constexpr int kPhotoHeight = 4000;

// A smooth, photo-like opaque picture with some detail (gradients and a fine checker).
const vo::VoImage::Picture& photo() {
    static const vo::VoImage::Picture picture = [] {
        QImage image(kPhotoWidth, kPhotoHeight, QImage::Format_RGBX8888);
        for (int y = 0; y < kPhotoHeight; ++y) {
            auto* row = image.scanLine(y);
            for (int x = 0; x < kPhotoWidth; ++x) {
                const uint8_t detail = ((x / 3 + y / 3) & 1) ? 24 : 0;
                row[4 * x + 0] = static_cast<uint8_t>(x * 255 / kPhotoWidth);
                row[4 * x + 1] = static_cast<uint8_t>(y * 255 / kPhotoHeight ^ detail);
                row[4 * x + 2] = static_cast<uint8_t>((x + y) * 127 / (kPhotoWidth + kPhotoHeight) + detail);
                row[4 * x + 3] = 255;
            }
        }
        return std::make_shared<const QImage>(std::move(image));
    }();
    return picture;
}

void resetCaches(int mode) {
    auto& state = vo::photo_detail::photoState();
    state.squareCache.clear();
    state.fileCache.clear();
    vo::VoImage::setCacheMode(mode);
}

// Args: mode, square width, whether the request repeats (1) or changes pan each time (0).
void BM_SquareCrop(benchmark::State& state) {
    const int mode = static_cast<int>(state.range(0));
    const auto width = static_cast<float>(state.range(1));
    const bool repeat = state.range(2) != 0;
    resetCaches(mode);
    vo::VoImage image(photo());
    int64_t request = 0;
    for (auto _ : state) {
        const float pan = repeat ? 0.0f : static_cast<float>(request % 2001) / 1000.0f - 1.0f;
        benchmark::DoNotOptimize(image.squareImageWithWidthZoomAndPan(width, 0.5f, pan));
        ++request;
        // Keep a varied mode-2 run from growing the cache without bound between idle emptyings.
        if (!repeat && request % 1000 == 0) vo::photo_detail::photoState().squareCache.clear();
    }
    state.SetItemsProcessed(state.iterations());
    state.SetLabel("6000x4000 -> " + std::to_string(state.range(1)) + (repeat ? " same" : " varied"));
    resetCaches(0);
}
BENCHMARK(BM_SquareCrop)
    ->ArgNames({"mode", "width", "same"})
    ->Args({0, 200, 0})
    ->Args({0, 600, 0})
    ->Args({1, 200, 0})
    ->Args({1, 600, 0})
    ->Args({2, 200, 0})
    ->Args({2, 200, 1})
    ->Args({2, 600, 1})
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

void BM_Construct(benchmark::State& state) {
    const int mode = static_cast<int>(state.range(0));
    resetCaches(mode);
    for (auto _ : state) benchmark::DoNotOptimize(std::make_unique<vo::VoImage>(photo()));
    state.SetItemsProcessed(state.iterations());
    state.SetLabel("6000x4000");
    resetCaches(0);
}
BENCHMARK(BM_Construct)
    ->ArgName("mode")
    ->Arg(0)
    ->Arg(1)
    ->Arg(2)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    int qtArgc = 1;
    char name[] = "vo_photo_bench";
    char* qtArgv[] = {name, nullptr};
    QGuiApplication app(qtArgc, qtArgv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    (void)photo();  // generated once, outside every measurement
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
