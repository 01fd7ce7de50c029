// SPDX-License-Identifier: MIT
#include "Common/CoreGraphics/VoImageAccumulator.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "Common/CoreGraphics/VoCoreTextures.h"
#include "Engine/codec/codec.h"
#include "Common/CoreGraphics/VoCoreUtils.h"

namespace vo {
namespace {

voimg::BitmapFloats render(const CIImage& image, const CGRect& rect) {
    voimg::RenderContext context(1);
    return context.createBitmap(image, rect, voimg::BitmapFormat::RgbaFloatLinear).floats;
}

CIImage randomPicture(int width, int height, uint32_t seed) {
    std::mt19937 random(seed);
    voimg::DecodedImage d;
    d.width = width, d.height = height;
    d.pixels.resize(size_t(width) * height * 4);
    for (auto& v : d.pixels) v = uint8_t(random());
    return CIImage::withDecodedImage(std::move(d));
}

// Run in a fresh process (gtest re-executes the binary for this test alone), so no other test has made
// an accumulator yet.
TEST(VoImageAccumulatorDeathTest, TheThirdAccumulatorOfTheProcessHasSequenceThree) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            VoImageAccumulator a({0, 0, 4, 4}, voimg::AccumulatorFormat::Rgba16);
            VoImageAccumulator b({0, 0, 4, 4}, voimg::AccumulatorFormat::Rgba16);
            VoImageAccumulator c({0, 0, 4, 4}, voimg::AccumulatorFormat::Rgba16);
            std::exit(a.sequence() == 1 && b.sequence() == 2 && c.sequence() == 3 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(VoImageAccumulator, SequencesCountUp) {
    VoImageAccumulator a({0, 0, 1, 1}, voimg::AccumulatorFormat::Rgba8);
    VoImageAccumulator b({0, 0, 1, 1}, voimg::AccumulatorFormat::Rgba8, nullptr);
    EXPECT_EQ(b.sequence(), a.sequence() + 1);
    EXPECT_EQ(VoImageAccumulator::totalSequence(), b.sequence());
}

TEST(VoImageAccumulator, KeepsExtentFormatAndPixels) {
    const CIImage picture = randomPicture(30, 20, 1);
    for (auto format : {voimg::AccumulatorFormat::Rgba8, voimg::AccumulatorFormat::Rgba16,
                        voimg::AccumulatorFormat::RgbaFloat}) {
        VoImageAccumulator accumulator({0, 0, 30, 20}, format);
        EXPECT_EQ(accumulator.extent(), (CGRect{0, 0, 30, 20}));
        EXPECT_EQ(accumulator.format(), format);
        accumulator.setImage(picture);
        const auto expected = render(picture, picture.extent());
        const auto actual = render(accumulator.image(), accumulator.extent());
        ASSERT_EQ(actual.size(), expected.size());
        // 16-bit and float hold the linear values; 8-bit holds them sRGB-encoded, within one code.
        const double tolerance = format == voimg::AccumulatorFormat::Rgba8 ? 0.02 : 1e-4;
        for (size_t i = 0; i < actual.size(); ++i) ASSERT_NEAR(actual[i], expected[i], tolerance) << i;
    }
}

TEST(VoImageAccumulator, ClearMakesItTransparentAndImagesHandedOutStay) {
    VoImageAccumulator accumulator({0, 0, 8, 8}, voimg::AccumulatorFormat::Rgba16);
    accumulator.setImage(VoCoreUtils::imageWithColor({1, 1, 1, 1}));
    const CIImage before = accumulator.image();
    accumulator.clear();
    EXPECT_EQ(render(accumulator.image(), {0, 0, 8, 8})[3], 0.0f);
    EXPECT_EQ(render(before, {0, 0, 8, 8})[3], 1.0f);
}

// Fed with patches and their dirty rectangles, an accumulator holds the same pixels as one fed the whole
// image each time.
TEST(VoImageAccumulator, DirtyRectanglesEqualWholeUpdates) {
    std::mt19937 random(42);
    const CGRect extent{0, 0, 64, 48};
    VoImageAccumulator whole(extent, voimg::AccumulatorFormat::Rgba16), dirty(extent, voimg::AccumulatorFormat::Rgba16);
    CIImage current = randomPicture(64, 48, 7);
    whole.setImage(current);
    dirty.setImage(current);
    for (int step = 0; step < 10; ++step) {
        const float x = float(random() % 50), y = float(random() % 40);
        const CGRect patchRect{x, y, float(1 + random() % 14), float(1 + random() % 8)};
        const CIImage patch = VoCoreUtils::moveImageByXByY(
            randomPicture(int(patchRect.width), int(patchRect.height), uint32_t(step)), x, y);
        current = patch.compositedOver(current);
        whole.setImage(current);
        dirty.setImageDirtyRect(current, patchRect);
        ASSERT_EQ(render(whole.image(), extent), render(dirty.image(), extent)) << "step " << step;
    }
}

TEST(VoImageAccumulator, DirtyRectangleOutsideChangesNothing) {
    VoImageAccumulator accumulator({0, 0, 8, 8}, voimg::AccumulatorFormat::Rgba16);
    accumulator.setImageDirtyRect(VoCoreUtils::imageWithColor({1, 0, 0, 1}), {2, 2, 2, 2});
    const auto pixels = render(accumulator.image(), {0, 0, 8, 8});
    // Plane (2..3, 2..3) is red; row 0 of the bitmap is the top, plane row 7.
    EXPECT_EQ(pixels[((7 - 2) * 8 + 2) * 4 + 3], 1.0f);
    EXPECT_EQ(pixels[((7 - 5) * 8 + 5) * 4 + 3], 0.0f);
}

TEST(FlattenForChooser, SamePictureWithTheChainCut) {
    const CIImage picture = randomPicture(16, 12, 3).transformed(NSAffineTransform::translation(5, 7));
    const CIImage flat = VoCoreUtils::flattenCoreImageForChooser(picture);
    EXPECT_EQ(flat.extent(), picture.extent());
    const auto a = render(picture, picture.extent()), b = render(flat, flat.extent());
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], 1.0 / 65535);
    EXPECT_FALSE(VoCoreUtils::flattenCoreImageForChooser(CIImage()).isNull());
    EXPECT_TRUE(VoCoreUtils::flattenCoreImageForChooser(CIImage()).extent().isEmpty());
}

TEST(VoCoreTextures, CachedUntilDropped) {
    VoCoreTextures::dropCaches();
    VoCoreTextures::dropCaches();  // nothing cached: nothing happens
    const CIImage first = VoCoreTextures::shadingBall();
    ASSERT_FALSE(first.isNull()) << "texture missing from " << VoBundle::mainBundle().resourcePath();
    EXPECT_EQ(VoCoreTextures::shadingBall(), first);
    VoCoreTextures::dropCaches();
    const CIImage again = VoCoreTextures::shadingBall();
    EXPECT_FALSE(again == first);
    EXPECT_EQ(again.extent(), first.extent());
}

TEST(VoCoreTextures, BothTexturesAreThereAndLookRight) {
    const CIImage ball = VoCoreTextures::shadingBall(), fiber = VoCoreTextures::fiber();
    ASSERT_FALSE(ball.isNull());
    ASSERT_FALSE(fiber.isNull());
    EXPECT_EQ(fiber, VoCoreTextures::fiber());
    // The ball: transparent corners, opaque centre, brighter towards the light (upper left).
    const auto b = render(ball, ball.extent());
    const int w = int(ball.extent().width), h = int(ball.extent().height);
    auto at = [&](int x, int y) { return &b[(size_t(y) * w + x) * 4]; };
    EXPECT_EQ(at(0, 0)[3], 0.0f);
    EXPECT_EQ(at(w / 2, h / 2)[3], 1.0f);
    EXPECT_GT(at(w / 3, h / 3)[0], at(2 * w / 3, 2 * h / 3)[0]);
    // The fibre: opaque everywhere.
    const auto f = render(fiber, fiber.extent());
    for (size_t i = 3; i < f.size(); i += 4) ASSERT_EQ(f[i], 1.0f);
}

TEST(VoCoreTextures, AMissingFileStaysUncached) {
    EXPECT_TRUE(VoCoreTextures::bundleCIImageWithName("NoSuchTexture.png").isNull());
}

}  // namespace
}  // namespace vo
