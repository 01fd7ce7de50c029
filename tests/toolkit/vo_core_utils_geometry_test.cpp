// SPDX-License-Identifier: MIT
// VoCoreUtils geometry: conversions, the rectangle union, placement transforms and the extents they give.
#include <gtest/gtest.h>

#include <cfloat>

#include "toolkit/toolkit_helpers.h"

namespace vo {
namespace {

using test::LogCapture;

// A plain opaque image of the given extent; geometry never looks at the pixels.
CIImage grey(const CGRect& extent) { return VoCoreUtils::emptyCoreImageWithExtentAndColor(extent, {0.5, 0.5, 0.5, 1}); }

void expectRectNear(const CGRect& actual, const CGRect& expected) {
    EXPECT_FLOAT_EQ(actual.x, expected.x);
    EXPECT_FLOAT_EQ(actual.y, expected.y);
    EXPECT_FLOAT_EQ(actual.width, expected.width);
    EXPECT_FLOAT_EQ(actual.height, expected.height);
}

TEST(VoCoreUtilsConversions, RectanglesCopyTheFourFieldsInOrder) {
    const NSRect ns{{1.5f, -2}, {30, 40.25f}};
    EXPECT_EQ(VoCoreUtils::coreRectFromNSRect(ns), (CGRect{1.5f, -2, 30, 40.25f}));
    EXPECT_EQ(VoCoreUtils::rectFromCoreRect({1.5f, -2, 30, 40.25f}), ns);
    EXPECT_EQ(VoCoreUtils::coreVectorFromCGRect({1, 2, 3, 4}), (CIVector{1, 2, 3, 4}));
    EXPECT_EQ(VoCoreUtils::coreVectorFromNSRect(ns), (CIVector{1.5f, -2, 30, 40.25f}));
    EXPECT_EQ(VoCoreUtils::coreRectFromVector({5, 6, 7, 8}), (CGRect{5, 6, 7, 8}));
}

TEST(VoCoreUtilsConversions, TransformFieldsMapToTheGraphicsForm) {
    const NSAffineTransform t{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(VoCoreUtils::fromNSTransform(&t), (CGAffineTransform{1, 2, 3, 4, 5, 6}));
}

TEST(VoCoreUtilsConversions, MissingTransformGivesAllZeros) {
    EXPECT_EQ(VoCoreUtils::fromNSTransform(nullptr), (CGAffineTransform{0, 0, 0, 0, 0, 0}));
}

TEST(VoCoreUtilsUnionRect, ZeroWidthFirstRectangleGivesTheSecond) {
    EXPECT_EQ(VoCoreUtils::unionRectWithRect({0, 0, 0, 50}, {5, 5, 10, 10}), (CGRect{5, 5, 10, 10}));
}

TEST(VoCoreUtilsUnionRect, ZeroHeightRectangleStillTakesPart) {
    EXPECT_EQ(VoCoreUtils::unionRectWithRect({0, 0, 10, 0}, {20, 20, 10, 10}), (CGRect{0, 0, 30, 30}));
}

TEST(VoCoreUtilsUnionRect, ZeroWidthSecondRectangleGivesTheFirst) {
    EXPECT_EQ(VoCoreUtils::unionRectWithRect({1, 2, 3, 4}, {100, 100, 0, 9}), (CGRect{1, 2, 3, 4}));
}

TEST(VoCoreUtilsUnionRect, BothZeroWidthsGiveTheZeroRectangle) {
    EXPECT_EQ(VoCoreUtils::unionRectWithRect({7, 8, 0, 9}, {1, 2, 0, 3}), (CGRect{0, 0, 0, 0}));
}

TEST(VoCoreUtilsUnionRect, OverlappingRectanglesGiveTheBoundingBox) {
    EXPECT_EQ(VoCoreUtils::unionRectWithRect({-5, 10, 10, 10}, {0, 0, 20, 5}), (CGRect{-5, 0, 25, 20}));
}

TEST(VoCoreUtilsPlacement, FitOfA3000By2000ImageInto150HighStrip) {
    const CIImage image = grey({0, 0, 3000, 2000});
    const CGRect strip{0, 0, 8192, 150};
    const NSAffineTransform t = VoCoreUtils::transformForScaleImageInRectFill(image, strip, false);
    EXPECT_FLOAT_EQ(t.m11, 0.075f);
    EXPECT_FLOAT_EQ(t.m22, 0.075f);

    const CIImage fitted = VoCoreUtils::scaleImageToFitInRect(image, strip);
    expectRectNear(fitted.extent(), {3983.5f, 0, 225, 150});
    expectRectNear(VoCoreUtils::moveImageToOrigin(fitted).extent(), {0, 0, 225, 150});
}

TEST(VoCoreUtilsPlacement, FitIgnoresWhereTheImageStarts) {
    const CIImage image = grey({-300, 700, 3000, 2000});
    expectRectNear(VoCoreUtils::scaleImageToFitInRect(image, {0, 0, 8192, 150}).extent(), {3983.5f, 0, 225, 150});
}

TEST(VoCoreUtilsPlacement, FitEnlargesSmallImages) {
    const CIImage image = grey({0, 0, 100, 40});
    expectRectNear(VoCoreUtils::moveImageToOrigin(VoCoreUtils::scaleImageToFitInRect(image, {0, 0, 8192, 600}))
                       .extent(),
                   {0, 0, 1500, 600});
}

TEST(VoCoreUtilsPlacement, FillOf100By50ImageInto40By40Square) {
    const CIImage image = grey({0, 0, 100, 50});
    const CGRect square{10, 20, 40, 40};
    const NSAffineTransform t = VoCoreUtils::transformForScaleImageInRectFill(image, square, true);
    EXPECT_FLOAT_EQ(t.m11, 0.8f);
    expectRectNear(VoCoreUtils::transformImageWithTransform(image, &t).extent(), {-10, 20, 80, 40});
    expectRectNear(VoCoreUtils::scaleImageInRectFillCrop(image, square, true, false).extent(), {-10, 20, 80, 40});
    expectRectNear(VoCoreUtils::scaleImageToFillRect(image, square).extent(), {10, 20, 40, 40});
}

TEST(VoCoreUtilsPlacement, FillFactorHalfBlendsTheTwoScales) {
    const CIImage image = grey({0, 0, 100, 50});
    const NSAffineTransform t = VoCoreUtils::transformForScaleImageInRectFillFactor(image, {10, 20, 40, 40}, 0.5f);
    EXPECT_FLOAT_EQ(t.m11, 0.6f);
    EXPECT_FLOAT_EQ(t.m22, 0.6f);
}

TEST(VoCoreUtilsPlacement, FillFactorAboveOneEnlargesBeyondCovering) {
    const CIImage image = grey({0, 0, 100, 50});
    const NSAffineTransform t = VoCoreUtils::transformForScaleImageInRectFillFactor(image, {10, 20, 40, 40}, 2.0f);
    EXPECT_FLOAT_EQ(t.m11, 1.6f);
    // Centred: the 160 x 80 picture overhangs the square equally on both sides.
    expectRectNear(VoCoreUtils::transformImageWithTransform(image, &t).extent(), {-50, 0, 160, 80});
}

TEST(VoCoreUtilsPlacement, FitLeavesTheCropWithNothingToRemove) {
    const CIImage image = grey({0, 0, 100, 50});
    expectRectNear(VoCoreUtils::scaleImageInRectFillCrop(image, {10, 20, 40, 40}, false, true).extent(),
                   {10, 30, 40, 20});
}

TEST(VoCoreUtilsPlacement, InfiniteImagePassesThroughTheArithmetic) {
    const CIColor red{1, 0, 0, 1};
    const CIImage infinite = VoCoreUtils::imageWithColor(red);
    ASSERT_TRUE(infinite.extent().isInfinite());
    const NSAffineTransform t = VoCoreUtils::transformForScaleImageInRectFill(infinite, {0, 0, 8192, 150}, false);
    EXPECT_FLOAT_EQ(t.m11, 150.0f / FLT_MAX);
    const CIImage fitted = VoCoreUtils::scaleImageToFitInRect(infinite, {0, 0, 8192, 150});
    ASSERT_FALSE(fitted.isNull());
    expectRectNear(fitted.extent(), {0, 0, 8192, 150});
    // A constant colour stays that colour whatever the transform did.
    const test::Pixels pixels = test::renderRgba8(fitted, {0, 0, 4, 4});
    ASSERT_EQ(pixels.width, 4);
    EXPECT_EQ(pixels.at(2, 2)[0], 255);
    EXPECT_EQ(pixels.at(2, 2)[1], 0);
    EXPECT_EQ(pixels.at(2, 2)[3], 255);
}

TEST(VoCoreUtilsPlacement, MissingImageCountsAsZeroExtent) {
    const NSAffineTransform t = VoCoreUtils::transformForMoveImageToOrigin(CIImage{});
    EXPECT_EQ(t, NSAffineTransform::identity());
    LogCapture log;
    EXPECT_TRUE(VoCoreUtils::scaleImageToFitInRect(CIImage{}, {0, 0, 8192, 150}).isNull());
}

TEST(VoCoreUtilsMoves, MoveToOriginAndCentreToOrigin) {
    const CIImage image = grey({-50, 30, 100, 100});
    EXPECT_EQ(VoCoreUtils::moveImageToOrigin(image).extent(), (CGRect{0, 0, 100, 100}));
    EXPECT_EQ(VoCoreUtils::moveImageCenterToOrigin(image).extent(), (CGRect{-50, -50, 100, 100}));
    EXPECT_EQ(VoCoreUtils::transformForMoveImageCenterToOrigin(image), NSAffineTransform::translation(0, -80));
}

TEST(VoCoreUtilsMoves, MoveByOffsetAndScaleAboutTheOrigin) {
    const CIImage image = grey({10, 20, 30, 40});
    EXPECT_EQ(VoCoreUtils::moveImageByXByY(image, 5, -20).extent(), (CGRect{15, 0, 30, 40}));
    EXPECT_EQ(VoCoreUtils::transformForMoveImageByXByY(image, 5, -20), NSAffineTransform::translation(5, -20));
    EXPECT_EQ(VoCoreUtils::scaleImageBy(image, 2).extent(), (CGRect{20, 40, 60, 80}));
    EXPECT_EQ(VoCoreUtils::transformForScaleImageBy(image, 2), NSAffineTransform::scale(2, 2));
}

TEST(VoCoreUtilsMoves, FlipTransformsAndExtentAtTheOrigin) {
    const CIImage image = grey({0, 0, 10, 20});
    EXPECT_EQ(VoCoreUtils::transformForFlipImageVertically(image, true), NSAffineTransform::scale(1, -1));
    EXPECT_EQ(VoCoreUtils::transformForFlipImageVertically(image, false), NSAffineTransform::scale(-1, 1));
    EXPECT_EQ(VoCoreUtils::flipVertically(image, true).extent(), (CGRect{0, 0, 10, 20}));
    EXPECT_EQ(VoCoreUtils::flipVertically(grey({5, 5, 10, 20}), false).extent(), (CGRect{0, 0, 10, 20}));
}

TEST(VoCoreUtilsMoves, RotateQuarterTurnAboutTheOrigin) {
    EXPECT_EQ(VoCoreUtils::rotateImageBy(grey({0, 0, 10, 20}), 90).extent(), (CGRect{-20, 0, 20, 10}));
}

TEST(VoCoreUtilsTransformImage, MissingImageIsLoggedAndGivesNothing) {
    LogCapture log;
    const NSAffineTransform t = NSAffineTransform::scale(2, 2);
    EXPECT_TRUE(VoCoreUtils::transformImageWithTransform(CIImage{}, &t).isNull());
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count("transformImage image is null"), 1);
}

TEST(VoCoreUtilsTransformImage, MissingTransformIsLoggedAndLeavesTheImageInPlace) {
    LogCapture log;
    const CIImage image = grey({3, 4, 10, 20});
    const CIImage result = VoCoreUtils::transformImageWithTransform(image, nullptr);
    EXPECT_EQ(result.extent(), image.extent());
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count("composeImage transform is null"), 1);
}

TEST(VoCoreUtilsTransformImage, BothMissingLogTwoLines) {
    LogCapture log;
    EXPECT_TRUE(VoCoreUtils::transformImageWithTransform(CIImage{}, nullptr).isNull());
    EXPECT_EQ(log.count("transformImage image is null"), 1);
    EXPECT_EQ(log.count("composeImage transform is null"), 1);
}

TEST(VoCoreUtilsTransformImage, PresentArgumentsLogNothing) {
    LogCapture log;
    const NSAffineTransform t = NSAffineTransform::translation(1, 1);
    EXPECT_EQ(VoCoreUtils::transformImageWithTransform(grey({0, 0, 5, 5}), &t).extent(), (CGRect{1, 1, 5, 5}));
    EXPECT_TRUE(log.lines().empty());
}

TEST(VoCoreUtilsCrop, ExtentIsTheIntersection) {
    const CIImage image = grey({0, 0, 100, 50});
    EXPECT_EQ(VoCoreUtils::cropImageToRect(image, {50, 25, 100, 100}).extent(), (CGRect{50, 25, 50, 25}));
    EXPECT_EQ(VoCoreUtils::cropImageToRect(image, {-10, -10, 20, 20}).extent(), (CGRect{0, 0, 10, 10}));
    EXPECT_TRUE(VoCoreUtils::cropImageToRect(image, {200, 200, 10, 10}).extent().isEmpty());
    EXPECT_TRUE(VoCoreUtils::cropImageToRect(CIImage{}, {0, 0, 10, 10}).isNull());
}

TEST(VoCoreUtilsEmptyImages, EmptyImageHasZeroExtent) {
    const CIImage empty = VoCoreUtils::emptyCoreImage();
    EXPECT_FALSE(empty.isNull());
    EXPECT_EQ(empty.extent(), (CGRect{0, 0, 0, 0}));
    EXPECT_EQ(VoCoreUtils::emptyCoreImageWithExtent({1, 2, 3, 4}).extent(), (CGRect{1, 2, 3, 4}));
}

TEST(VoCoreUtilsEmptyImages, ImageWithColorIsInfinite) {
    EXPECT_TRUE(VoCoreUtils::imageWithColor({0.2f, 0.4f, 0.6f, 1}).extent().isInfinite());
}

}  // namespace
}  // namespace vo
