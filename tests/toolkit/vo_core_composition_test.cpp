// SPDX-License-Identifier: MIT
// Composition of a foreground over a background: the plain path, the factor kernel, bounds, the reuse of
// a filter's samplers, and the SIMD stage against its scalar reference.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "Common/CoreGraphics/VoCompositionStage.h"
#include "Common/CoreGraphics/VoCoreCompositionFilter.h"
#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Common/Foundation/VoLog.h"
#include "Engine/codec/codec.h"
#include "Engine/nodes_p.h"

namespace vo {
namespace {

CIImage solid(float r, float g, float b, float a, const CGRect& extent) {
    return VoCoreUtils::emptyCoreImageWithExtentAndColor(extent, {r, g, b, a});
}

// Premultiplied linear pixel (x, y) of the image, y counted in the plane.
std::array<float, 4> pixel(const CIImage& image, int x, int y) {
    voimg::RenderContext context(1);
    const voimg::Bitmap b = context.createBitmap(image, {float(x), float(y), 1, 1}, voimg::BitmapFormat::RgbaFloatLinear);
    if (b.isEmpty()) return {0, 0, 0, 0};
    return {b.floats[0], b.floats[1], b.floats[2], b.floats[3]};
}

struct LogCapture {
    std::vector<std::string> lines;
    VoLogSink previous;
    LogCapture() { previous = VoSetLogSink([this](const std::string& l) { lines.push_back(l); }); }
    ~LogCapture() { VoSetLogSink(previous); }
    [[nodiscard]] bool has(const std::string& text) const {
        for (const auto& l : lines)
            if (l.find(text) != std::string::npos) return true;
        return false;
    }
};

const CGRect kTen{0, 0, 10, 10};

TEST(Composition, PlainComposeIsSourceOverWithoutTheKernel) {
    const CIImage result = VoCoreUtils::composeImageOverImage(solid(1, 0, 0, 1, kTen), solid(0, 0, 1, 1, kTen));
    EXPECT_NE(dynamic_cast<const voimg::SourceOverNode*>(result.node().get()), nullptr);
    EXPECT_EQ(pixel(result, 5, 5), (std::array<float, 4>{1, 0, 0, 1}));
}

TEST(Composition, HalfFactorOfRedOverBlue) {
    const CIImage result =
        VoCoreUtils::composeImageOverImageWithFactor(solid(1, 0, 0, 1, kTen), solid(0, 0, 1, 1, kTen), 0.5f);
    EXPECT_EQ(dynamic_cast<const voimg::SourceOverNode*>(result.node().get()), nullptr);
    const auto p = pixel(result, 3, 7);
    EXPECT_NEAR(p[0], 0.5, 1e-6);
    EXPECT_NEAR(p[1], 0.0, 1e-6);
    EXPECT_NEAR(p[2], 0.5, 1e-6);
    EXPECT_NEAR(p[3], 1.0, 1e-6);
}

TEST(Composition, FactorsAboveOneAreNotClamped) {
    const CIImage result =
        VoCoreUtils::composeImageOverImageWithFactor(solid(1, 0, 0, 0.5f, kTen), solid(0, 0, 1, 1, kTen), 1.5f);
    const auto p = pixel(result, 1, 1);
    EXPECT_NEAR(p[0], 0.75, 1e-6);  // 0.5 x 1.5
    EXPECT_NEAR(p[3], 0.75 + 0.25, 1e-6);
}

TEST(Composition, MissingImagesWithFactorOrTransform) {
    const CIImage fg = solid(1, 0, 0, 1, kTen), bg = solid(0, 0, 1, 1, kTen);
    {
        LogCapture log;
        EXPECT_EQ(VoCoreUtils::composeImageOverImageWithFactor(fg, CIImage(), 0.5f), fg);
        EXPECT_TRUE(log.has("composeImage backgroundImage is null"));
    }
    {
        LogCapture log;
        EXPECT_EQ(VoCoreUtils::composeImageOverImageWithFactor(CIImage(), bg, 0.5f), bg);
        EXPECT_TRUE(log.has("composeImage image is null"));
    }
    const NSAffineTransform move = NSAffineTransform::translation(2, 0);
    EXPECT_EQ(VoCoreUtils::composeImageOverImageWithFactorTransform(fg, CIImage(), 1.0f, &move), fg);
    EXPECT_EQ(VoCoreUtils::composeImageOverImageWithFactorTransform(CIImage(), bg, 1.0f, &move), bg);
}

TEST(Composition, MissingImagesWithPlainSourceOver) {
    const CIImage fg = solid(1, 0, 0, 1, kTen), bg = solid(0, 0, 1, 1, kTen);
    LogCapture log;
    // Step 2 decides: a missing foreground gives nothing, a missing background the foreground.
    EXPECT_TRUE(VoCoreUtils::composeImageOverImage(CIImage(), bg).isNull());
    EXPECT_EQ(VoCoreUtils::composeImageOverImage(fg, CIImage()), fg);
    EXPECT_TRUE(log.has("composeImage image is null"));
    EXPECT_TRUE(log.has("composeImage backgroundImage is null"));
}

TEST(Composition, ZeroWidthBackgroundWithIdentityReturnsTheForeground) {
    const CIImage fg = solid(1, 0, 0, 1, kTen);
    const NSAffineTransform identity;
    EXPECT_EQ(VoCoreUtils::composeImageOverImageWithFactorTransform(fg, VoCoreUtils::emptyCoreImage(), 1.0f, &identity),
              fg);
}

TEST(Composition, BoundsOfZeroWidthAreIgnoredOthersCutTheExtent) {
    const CIImage fg = solid(1, 0, 0, 1, {0, 0, 100, 100}), bg = solid(0, 0, 1, 1, {0, 0, 200, 200});
    const CIImage unbounded =
        VoCoreUtils::composeImageOverImageWithFactorTransformWithinBounds(fg, bg, 0.5f, nullptr, {0, 0, 0, 100});
    EXPECT_EQ(unbounded.extent(), (CGRect{0, 0, 200, 200}));
    const CIImage bounded =
        VoCoreUtils::composeImageOverImageWithFactorTransformWithinBounds(fg, bg, 0.5f, nullptr, {10, 10, 50, 50});
    EXPECT_EQ(bounded.extent(), (CGRect{10, 10, 50, 50}));
    const CIImage negative =
        VoCoreUtils::composeImageOverImageWithFactorTransformWithinBounds(fg, bg, 0.5f, nullptr, {10, 10, -5, 50});
    EXPECT_EQ(negative.extent(), (CGRect{0, 0, 200, 200}));
}

TEST(Composition, TransformMovesTheForeground) {
    const CIImage fg = solid(1, 0, 0, 1, kTen), bg = solid(0, 0, 1, 1, {0, 0, 40, 10});
    const NSAffineTransform move = NSAffineTransform::translation(20, 0);
    const CIImage result = VoCoreUtils::composeImageOverImageWithFactorTransform(fg, bg, 1.0f, &move);
    EXPECT_EQ(result.extent(), (CGRect{0, 0, 40, 10}));
    EXPECT_NEAR(pixel(result, 25, 5)[0], 1.0, 1e-6);
    EXPECT_NEAR(pixel(result, 5, 5)[2], 1.0, 1e-6);
}

TEST(CompositionReuse, NewFactorKeepsBothSamplers) {
    VoCoreCompositionFilter filter;
    const CIImage fg = solid(1, 0, 0, 1, kTen), bg = solid(0, 0, 1, 1, kTen);
    (void)VoCoreUtils::composeImageOverImageWithFactorTransformWithinBoundsReuseFilter(fg, bg, 0.3f, nullptr, {}, &filter);
    const auto src = filter.src(), srcBg = filter.srcBg();
    ASSERT_NE(src, nullptr);
    ASSERT_NE(srcBg, nullptr);
    const CIImage second =
        VoCoreUtils::composeImageOverImageWithFactorTransformWithinBoundsReuseFilter(fg, bg, 0.6f, nullptr, {}, &filter);
    EXPECT_EQ(filter.src(), src);
    EXPECT_EQ(filter.srcBg(), srcBg);
    EXPECT_NEAR(pixel(second, 1, 1)[0], 0.6, 1e-6);
}

TEST(CompositionReuse, NewForegroundRebuildsOnlyItsSampler) {
    VoCoreCompositionFilter filter;
    const CIImage bg = solid(0, 0, 1, 1, kTen);
    (void)VoCoreUtils::composeImageOverImageWithFactorTransformWithinBoundsReuseFilter(solid(1, 0, 0, 1, kTen), bg,
                                                                                       0.5f, nullptr, {}, &filter);
    const auto src = filter.src(), srcBg = filter.srcBg();
    (void)VoCoreUtils::composeImageOverImageWithFactorTransformWithinBoundsReuseFilter(solid(0, 1, 0, 1, kTen), bg,
                                                                                       0.5f, nullptr, {}, &filter);
    EXPECT_NE(filter.src(), src);
    EXPECT_EQ(filter.srcBg(), srcBg);
}

TEST(CompositionReuse, ATransformOnceSetStaysWhenNoneIsPassed) {
    VoCoreCompositionFilter filter;
    const CIImage fg = solid(1, 0, 0, 1, kTen), bg = solid(0, 0, 1, 1, {0, 0, 40, 10});
    const NSAffineTransform move = NSAffineTransform::translation(20, 0);
    (void)VoCoreUtils::composeImageOverImageWithFactorTransformWithinBoundsReuseFilter(fg, bg, 0.5f, &move, {}, &filter);
    const CIImage later =
        VoCoreUtils::composeImageOverImageWithFactorTransformWithinBoundsReuseFilter(fg, bg, 0.5f, nullptr, {}, &filter);
    EXPECT_NEAR(pixel(later, 25, 5)[0], 0.5, 1e-6);  // the foreground is still moved
    EXPECT_NEAR(pixel(later, 5, 5)[0], 0.0, 1e-6);
    // Bounds once set stay too.
    (void)VoCoreUtils::composeImageOverImageWithFactorTransformWithinBoundsReuseFilter(fg, bg, 0.5f, nullptr,
                                                                                       {0, 0, 30, 10}, &filter);
    EXPECT_EQ(VoCoreUtils::composeImageOverImageWithFactorTransformWithinBoundsReuseFilter(fg, bg, 0.5f, nullptr, {},
                                                                                           &filter)
                  .extent(),
              (CGRect{0, 0, 30, 10}));
}

TEST(CompositionFilter, KernelTextsAndAttributes) {
    EXPECT_EQ(VoCoreCompositionFilter::factorFilterString(),
              "kernel vec4 compositionFilter(sampler image, sampler background, float factor){\tvec4 top = "
              "sample(image, samplerCoord(image));\tvec4 bottom = sample(background, samplerCoord(background));"
              "\ttop*=factor;\tbottom*=(1.0-top.a);\treturn top+bottom;}");
    EXPECT_EQ(VoCoreCompositionFilter::filterString(),
              "kernel vec4 compositionFilter(sampler image, sampler background){\tvec4 top = sample(image, "
              "samplerCoord(image)); return top;\tvec4 bottom = sample(background, samplerCoord(background));"
              "\tbottom*=(1.0-top.a);\treturn top+bottom;}");
    const auto attributes = VoCoreCompositionFilter::customAttributes();
    EXPECT_EQ(attributes.size(), 4u);
    EXPECT_EQ(attributes.count("inputBounds"), 0u);
    EXPECT_EQ(attributes.at("inputFactor").at("CIAttributeType"), "CIAttributeTypeScalar");
}

TEST(CompositionFilter, KernelsAreMadeOnceForTheProcess) {
    VoCoreCompositionFilter first;
    const auto kernel = VoCoreCompositionFilter::factorCompositionKernel();
    ASSERT_NE(kernel, nullptr);
    ASSERT_NE(VoCoreCompositionFilter::compositionKernel(), nullptr);
    VoCoreCompositionFilter second;
    EXPECT_EQ(VoCoreCompositionFilter::factorCompositionKernel(), kernel);
}

TEST(CompositionWithFilter, NamedFilterAndMissingBackground) {
    const CIImage fg = solid(1, 0, 0, 0.5f, kTen), bg = solid(0, 0, 1, 1, kTen);
    const CIImage over = VoCoreUtils::composeImageOverImageWithFilter(fg, bg, "CISourceOverCompositing");
    EXPECT_NEAR(pixel(over, 1, 1)[2], 0.5, 1e-6);
    LogCapture log;
    EXPECT_EQ(VoCoreUtils::composeImageOverImageWithFilter(fg, CIImage(), "CISourceOverCompositing"), fg);
    EXPECT_TRUE(log.has("composeImage backgroundImage is null"));
}

// The SIMD stage against the scalar reference over random pixels, factors and lengths (including lengths
// that are not a multiple of the vector width): equal within 2 ulp-ish (1e-6 relative).
TEST(CompositionStage, SimdMatchesScalar) {
    std::mt19937 random(99);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f), factors(0.0f, 2.0f);
    for (size_t pixels : {0u, 1u, 3u, 7u, 16u, 33u, 1000u, 1283u}) {
        std::vector<float> fg(pixels * 4), bg(pixels * 4), a(pixels * 4), b(pixels * 4);
        for (size_t i = 0; i < pixels; ++i) {
            const float fa = unit(random), ba = unit(random);
            for (int k = 0; k < 3; ++k) fg[i * 4 + k] = unit(random) * fa, bg[i * 4 + k] = unit(random) * ba;
            fg[i * 4 + 3] = fa, bg[i * 4 + 3] = ba;
        }
        const float factor = factors(random);
        factorCompositeScalar(fg.data(), bg.data(), factor, a.data(), pixels);
        factorCompositeSimd(fg.data(), bg.data(), factor, b.data(), pixels);
        for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], 1e-6f * std::max(1.0f, std::abs(a[i]))) << i;
    }
}

// Whole compositions over random images, factors and transforms against a reference computed from the
// separately rendered inputs with the formula.
TEST(CompositionStage, ComposedImagesMatchTheFormula) {
    std::mt19937 random(5);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    voimg::RenderContext context(2);
    for (int trial = 0; trial < 8; ++trial) {
        voimg::DecodedImage pixels;
        pixels.width = 23, pixels.height = 17;
        pixels.pixels.resize(23 * 17 * 4);
        for (auto& v : pixels.pixels) v = uint8_t(random());
        const CIImage fg = CIImage::withDecodedImage(pixels);
        const CIImage bg = solid(unit(random), unit(random), unit(random), unit(random), {-5, -5, 40, 30});
        const NSAffineTransform t = NSAffineTransform::rotationDegrees(unit(random) * 60).appending(
            NSAffineTransform::translation(unit(random) * 10, unit(random) * 5));
        const float factor = unit(random) * 1.5f;
        const CIImage composed = VoCoreUtils::composeImageOverImageWithFactorTransform(fg, bg, factor, &t);
        const CGRect r = composed.extent();
        const auto out = context.createBitmap(composed, r, voimg::BitmapFormat::RgbaFloatLinear);
        const auto top = context.createBitmap(fg.transformed(t).compositedOver(solid(0, 0, 0, 0, r)), r,
                                              voimg::BitmapFormat::RgbaFloatLinear);
        const auto bottom = context.createBitmap(bg.compositedOver(solid(0, 0, 0, 0, r)), r,
                                                 voimg::BitmapFormat::RgbaFloatLinear);
        ASSERT_EQ(out.floats.size(), top.floats.size());
        for (size_t i = 0; i < out.floats.size(); i += 4)
            for (int k = 0; k < 4; ++k)
                ASSERT_NEAR(out.floats[i + k],
                            top.floats[i + k] * factor + bottom.floats[i + k] * (1 - top.floats[i + 3] * factor), 1e-5);
    }
}

}  // namespace
}  // namespace vo
