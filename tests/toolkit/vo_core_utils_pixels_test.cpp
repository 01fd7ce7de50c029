// SPDX-License-Identifier: MIT
// VoCoreUtils pixels: what flips, crops, solid images and a fitted downscale look like once rendered.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "Engine/resample_p.h"
#include "Engine/srgb.h"
#include "toolkit/toolkit_helpers.h"

namespace vo {
namespace {

using test::Pixels;

void expectSamePixel(const Pixels& a, int ax, int ay, const Pixels& b, int bx, int by) {
    for (int k = 0; k < 4; ++k) {
        ASSERT_EQ(a.at(ax, ay)[k], b.at(bx, by)[k]) << "channel " << k << " at (" << ax << ", " << ay << ")";
    }
}

TEST(VoCoreUtilsPixels, VerticalFlipReversesTheRows) {
    const CIImage image = test::imageFromPixels(test::makeTestPicture(10, 20));
    const CIImage flipped = VoCoreUtils::flipVertically(image, true);
    ASSERT_EQ(flipped.extent(), (CGRect{0, 0, 10, 20}));
    const Pixels before = test::renderRgba8(image, image.extent());
    const Pixels after = test::renderRgba8(flipped, flipped.extent());
    ASSERT_EQ(after.width, 10);
    ASSERT_EQ(after.height, 20);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 10; ++x) expectSamePixel(after, x, y, before, x, 19 - y);
}

TEST(VoCoreUtilsPixels, HorizontalFlipReversesTheColumns) {
    const CIImage image = test::imageFromPixels(test::makeTestPicture(10, 20));
    const CIImage flipped = VoCoreUtils::flipVertically(image, false);
    ASSERT_EQ(flipped.extent(), (CGRect{0, 0, 10, 20}));
    const Pixels before = test::renderRgba8(image, image.extent());
    const Pixels after = test::renderRgba8(flipped, flipped.extent());
    ASSERT_EQ(after.width, 10);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 10; ++x) expectSamePixel(after, x, y, before, 9 - x, y);
}

TEST(VoCoreUtilsPixels, CropDoesNotMoveThePicture) {
    const CIImage image = test::imageFromPixels(test::makeTestPicture(40, 30));
    const CGRect window{7, 5, 20, 12};
    const CIImage cropped = VoCoreUtils::cropImageToRect(image, window);
    ASSERT_EQ(cropped.extent(), window);
    const Pixels whole = test::renderRgba8(image, window);
    const Pixels part = test::renderRgba8(cropped, window);
    ASSERT_EQ(part.width, 20);
    ASSERT_EQ(part.height, 12);
    EXPECT_EQ(part.data, whole.data);
    // Outside the crop nothing is left: a render of a larger area has the same size as the crop.
    const Pixels around = test::renderRgba8(cropped, {0, 0, 40, 30});
    EXPECT_EQ(around.width, 20);
    EXPECT_EQ(around.height, 12);
}

TEST(VoCoreUtilsPixels, SolidImageOfAnExtentHasThatColour) {
    const CIImage image = VoCoreUtils::emptyCoreImageWithExtentAndColor({2, 3, 6, 4}, {1, 0.5f, 0, 1});
    ASSERT_EQ(image.extent(), (CGRect{2, 3, 6, 4}));
    const Pixels pixels = test::renderRgba8(image, {0, 0, 100, 100});
    ASSERT_EQ(pixels.width, 6);
    ASSERT_EQ(pixels.height, 4);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x) {
            EXPECT_EQ(pixels.at(x, y)[0], 255);
            EXPECT_NEAR(pixels.at(x, y)[1], 128, 1);
            EXPECT_EQ(pixels.at(x, y)[2], 0);
            EXPECT_EQ(pixels.at(x, y)[3], 255);
        }
    }
}

TEST(VoCoreUtilsPixels, EmptyImageWithExtentIsTransparent) {
    const Pixels pixels = test::renderRgba8(VoCoreUtils::emptyCoreImageWithExtent({0, 0, 5, 5}), {0, 0, 5, 5});
    ASSERT_EQ(pixels.width, 5);
    for (uint8_t byte : pixels.data) EXPECT_EQ(byte, 0);
}

TEST(VoCoreUtilsPixels, ColourImageFillsAnyRectangle) {
    const CIImage image = VoCoreUtils::imageWithColor({0, 0, 1, 1});
    const Pixels pixels = test::renderRgba8(image, {-1000, 5000, 3, 2});
    ASSERT_EQ(pixels.width, 3);
    ASSERT_EQ(pixels.height, 2);
    EXPECT_EQ(pixels.at(1, 1)[2], 255);
    EXPECT_EQ(pixels.at(1, 1)[3], 255);
}

// The fitted thumbnail of a 1200 x 800 picture, rendered by the engine's fast path, against the slow reference
// resampler run on the same transform. Tolerance: the two differ only by float rounding and the order of
// summation, so at most 2 codes in 8-bit sRGB, and 0.25 on average.
TEST(VoCoreUtilsPixels, FittedDownscaleMatchesTheReferenceResampler) {
    const CIImage image = test::imageFromPixels(test::makeTestPicture(1200, 800));
    const CGRect strip{0, 0, 8192, 150};
    const CIImage thumbnail = VoCoreUtils::moveImageToOrigin(VoCoreUtils::scaleImageToFitInRect(image, strip));
    ASSERT_EQ(thumbnail.extent(), (CGRect{0, 0, 225, 150}));
    const Pixels fast = test::renderRgba8(thumbnail, thumbnail.extent());
    ASSERT_EQ(fast.width, 225);
    ASSERT_EQ(fast.height, 150);

    // The whole placement as one transform: fit into the strip, then back to the origin.
    const NSAffineTransform fit = VoCoreUtils::transformForScaleImageInRectFill(image, strip, false);
    const NSAffineTransform t = fit.appending(NSAffineTransform::translation(-3983.5f, 0));
    voimg::TileBuffer reference({0, 0, 225, 150});
    voimg::resampleSeparableReference(*image.node(), image.extent(), t, reference.view());

    double total = 0;
    int worst = 0;
    for (int y = 0; y < 150; ++y) {
        for (int x = 0; x < 225; ++x) {
            // Tile rows go bottom up, bitmap rows top down.
            const float* r = reference.view().pixel(x, 149 - y);
            ASSERT_NEAR(r[3], 1.0f, 1e-3f);
            for (int k = 0; k < 3; ++k) {
                const int diff = std::abs(int(fast.at(x, y)[k]) - int(voimg::linearToSrgb8(r[k] / r[3])));
                total += diff;
                worst = std::max(worst, diff);
            }
            EXPECT_EQ(fast.at(x, y)[3], 255);
        }
    }
    EXPECT_LE(worst, 2);
    EXPECT_LE(total / (225.0 * 150 * 3), 0.25);
}

}  // namespace
}  // namespace vo
