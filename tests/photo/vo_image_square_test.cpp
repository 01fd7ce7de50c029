// SPDX-License-Identifier: MIT
// Squares drawn from pictures held in memory (mode 0): letter-boxing, cuts, pan, unclamped zoom and pan,
// sizes, and the picture's shape.
#include <gtest/gtest.h>

#include <cmath>

#include "Photo/VoImage.h"
#include "photo_test_support.h"

namespace vo::phototest {
namespace {

using SquareTest = PhotoTest;

// Every pixel of the rectangle [x0, x1] x [y0, y1] has the colour.
::testing::AssertionResult areaIs(const QImage& image, int x0, int y0, int x1, int y1, const QColor& color,
                                  int tolerance = 3) {
    for (int y = y0; y <= y1; ++y) {
        for (int x = x0; x <= x1; ++x) {
            if (auto result = colorNear(image, x, y, color, tolerance); !result) return result;
        }
    }
    return ::testing::AssertionSuccess();
}

TEST_F(SquareTest, WidePictureAtZoomZeroFillsTheMiddleHalfWithBlackAboveAndBelow) {
    VoImage photo(share(quadrantPicture(400, 200)));
    const VoImage::Picture square = photo.squareImageWithWidthZoomAndPan(100, 0, 0);
    ASSERT_TRUE(square);
    ASSERT_EQ(square->size(), QSize(100, 100));
    EXPECT_TRUE(rowsBlack(*square, 0, 24));
    EXPECT_TRUE(rowsBlack(*square, 75, 99));
    // The picture spans all columns of rows 25 to 74, upright and unmirrored.
    EXPECT_TRUE(areaIs(*square, 0, 25, 48, 48, kTopLeft, 8));
    EXPECT_TRUE(areaIs(*square, 51, 25, 99, 48, kTopRight, 8));
    EXPECT_TRUE(areaIs(*square, 0, 51, 48, 74, kBottomLeft, 8));
    EXPECT_TRUE(areaIs(*square, 51, 51, 99, 74, kBottomRight, 8));
}

TEST_F(SquareTest, WidePictureAtZoomOnePanOneIsItsRightHandHalf) {
    VoImage photo(share(quadrantPicture(400, 200)));
    const VoImage::Picture square = photo.squareImageWithWidthZoomAndPan(100, 1, 1);
    ASSERT_EQ(square->size(), QSize(100, 100));
    EXPECT_TRUE(areaIs(*square, 0, 0, 99, 48, kTopRight));
    EXPECT_TRUE(areaIs(*square, 0, 51, 99, 99, kBottomRight));
}

TEST_F(SquareTest, PanMinusOneCutsTheLeftHandHalfAndZeroTheMiddle) {
    VoImage photo(share(quadrantPicture(400, 200)));
    const VoImage::Picture left = photo.squareImageWithWidthZoomAndPan(100, 1, -1);
    EXPECT_TRUE(areaIs(*left, 0, 0, 99, 48, kTopLeft));
    EXPECT_TRUE(areaIs(*left, 0, 51, 99, 99, kBottomLeft));
    const VoImage::Picture middle = photo.squareImageWithWidthZoomAndPan(100, 1, 0);
    EXPECT_TRUE(areaIs(*middle, 0, 0, 48, 48, kTopLeft));
    EXPECT_TRUE(areaIs(*middle, 51, 0, 99, 48, kTopRight));
}

TEST_F(SquareTest, TallPicturePansVerticallyPlusOneBeingTheTop) {
    VoImage photo(share(quadrantPicture(200, 400)));
    const VoImage::Picture top = photo.squareImageWithWidthZoomAndPan(100, 1, 1);
    EXPECT_TRUE(areaIs(*top, 0, 0, 48, 99, kTopLeft));
    EXPECT_TRUE(areaIs(*top, 51, 0, 99, 99, kTopRight));
    const VoImage::Picture bottom = photo.squareImageWithWidthZoomAndPan(100, 1, -1);
    EXPECT_TRUE(areaIs(*bottom, 0, 0, 48, 99, kBottomLeft));
    EXPECT_TRUE(areaIs(*bottom, 51, 0, 99, 99, kBottomRight));
    const VoImage::Picture whole = photo.squareImageWithWidth(100);  // bars left and right
    EXPECT_TRUE(columnsBlack(*whole, 0, 24));
    EXPECT_TRUE(columnsBlack(*whole, 75, 99));
    EXPECT_TRUE(areaIs(*whole, 25, 0, 48, 48, kTopLeft, 8));
    EXPECT_TRUE(areaIs(*whole, 51, 51, 74, 99, kBottomRight, 8));
}

TEST_F(SquareTest, SquarePictureShowsWhollyWhateverTheZoomAndPan) {
    VoImage photo(share(quadrantPicture(100, 100)));
    for (float zoom : {0.0f, 0.5f, 1.0f, 2.0f}) {
        for (float pan : {-1.0f, 0.0f, 1.0f}) {
            const VoImage::Picture square = photo.squareImageWithWidthZoomAndPan(50, zoom, pan);
            SCOPED_TRACE(::testing::Message() << "zoom " << zoom << " pan " << pan);
            EXPECT_TRUE(areaIs(*square, 0, 0, 23, 23, kTopLeft));
            EXPECT_TRUE(areaIs(*square, 26, 0, 49, 23, kTopRight));
            EXPECT_TRUE(areaIs(*square, 0, 26, 23, 49, kBottomLeft));
            EXPECT_TRUE(areaIs(*square, 26, 26, 49, 49, kBottomRight));
        }
    }
}

TEST_F(SquareTest, ZoomBelowZeroLeavesWiderBars) {
    VoImage photo(share(quadrantPicture(400, 200)));
    // Cut (-100, -200, 600, 600): the picture covers x 10..50 and rows 20..40 of a 60-wide square.
    const VoImage::Picture square = photo.squareImageWithWidthZoomAndPan(60, -1, 0);
    EXPECT_TRUE(rowsBlack(*square, 0, 19));
    EXPECT_TRUE(rowsBlack(*square, 40, 59));
    EXPECT_TRUE(columnsBlack(*square, 0, 9));
    EXPECT_TRUE(columnsBlack(*square, 50, 59));
    EXPECT_TRUE(areaIs(*square, 11, 21, 28, 28, kTopLeft, 12));
    EXPECT_TRUE(areaIs(*square, 31, 31, 48, 38, kBottomRight, 12));
}

TEST_F(SquareTest, ZoomAboveOneCutsInsideTheShortSide) {
    VoImage photo(share(quadrantPicture(400, 200)));
    // Cut (150, 50, 100, 100): the middle of the picture, where the four quadrants meet.
    const VoImage::Picture square = photo.squareImageWithWidthZoomAndPan(100, 1.5f, 0);
    EXPECT_TRUE(areaIs(*square, 0, 0, 48, 48, kTopLeft));
    EXPECT_TRUE(areaIs(*square, 52, 0, 99, 48, kTopRight));
    EXPECT_TRUE(areaIs(*square, 0, 52, 48, 99, kBottomLeft));
    EXPECT_TRUE(areaIs(*square, 52, 52, 99, 99, kBottomRight));
}

TEST_F(SquareTest, PanBeyondOneIsNotClampedAndCanLeaveThePicture) {
    VoImage photo(share(quadrantPicture(400, 200)));
    const VoImage::Picture outside = photo.squareImageWithWidthZoomAndPan(50, 1, 3);  // cut (400, 0, 200, 200)
    EXPECT_TRUE(rowsBlack(*outside, 0, 49));
    const VoImage::Picture half = photo.squareImageWithWidthZoomAndPan(50, 1, 2);  // cut (300, 0, 200, 200)
    EXPECT_TRUE(areaIs(*half, 0, 0, 23, 23, kTopRight));
    EXPECT_TRUE(columnsBlack(*half, 26, 49));
}

TEST_F(SquareTest, CutWithoutSideDrawsOnlyBlack) {
    VoImage photo(share(quadrantPicture(400, 200)));
    EXPECT_TRUE(rowsBlack(*photo.squareImageWithWidthZoomAndPan(20, 2, 0), 0, 19));  // side 0
    EXPECT_TRUE(rowsBlack(*photo.squareImageWithWidthZoomAndPan(20, 3, 0), 0, 19));  // side -200
}

TEST_F(SquareTest, WidthOnlyIsZoomZeroPanZero) {
    VoImage photo(share(quadrantPicture(300, 120)));
    const VoImage::Picture a = photo.squareImageWithWidth(64);
    const VoImage::Picture b = photo.squareImageWithWidthZoomAndPan(64, 0, 0);
    EXPECT_EQ(*a, *b);
    EXPECT_NE(a, b);  // mode 0: a new square each time
}

TEST_F(SquareTest, SquareHasWholePixelsForAFractionalWidthAndNoneForNoWidth) {
    VoImage photo(share(quadrantPicture(40, 40)));
    const VoImage::Picture fractional = photo.squareImageWithWidth(50.5f);
    EXPECT_EQ(fractional->size(), QSize(51, 51));
    EXPECT_TRUE(colorNear(*fractional, 10, 10, kTopLeft));
    EXPECT_TRUE(photo.squareImageWithWidth(0)->isNull());
    EXPECT_TRUE(photo.squareImageWithWidth(-5)->isNull());
    EXPECT_TRUE(photo.squareImageWithWidth(NAN)->isNull());
}

TEST_F(SquareTest, EnlargingKeepsTheGeometry) {
    VoImage photo(share(quadrantPicture(40, 20)));
    const VoImage::Picture square = photo.squareImageWithWidthZoomAndPan(400, 1, 1);
    EXPECT_TRUE(areaIs(*square, 0, 0, 399, 185, kTopRight));
    EXPECT_TRUE(areaIs(*square, 0, 215, 399, 399, kBottomRight));
}

TEST_F(SquareTest, StrongReductionAveragesInsteadOfSkippingPixels) {
    // One-pixel black and white columns, reduced 8 times: every square pixel is a mid grey.
    QImage stripes(1200, 800, QImage::Format_RGB32);
    for (int x = 0; x < stripes.width(); ++x) {
        for (int y = 0; y < stripes.height(); ++y) stripes.setPixel(x, y, x % 2 ? 0xffffffff : 0xff000000);
    }
    VoImage photo(share(std::move(stripes)));
    const VoImage::Picture square = photo.squareImageWithWidthZoomAndPan(100, 1, 0);
    for (int y = 2; y < 98; y += 5) {
        for (int x = 2; x < 98; x += 3) EXPECT_TRUE(colorNear(*square, x, y, QColor(128, 128, 128), 12));
    }
}

TEST_F(SquareTest, TransparencyIsDrawnOverBlack) {
    QImage translucent(40, 40, QImage::Format_ARGB32);
    translucent.fill(QColor(255, 0, 0, 128));
    VoImage photo(share(std::move(translucent)));
    const VoImage::Picture square = photo.squareImageWithWidth(20);
    EXPECT_TRUE(areaIs(*square, 0, 0, 19, 19, QColor(128, 0, 0), 2));
}

TEST_F(SquareTest, SizeIsDeviceIndependent) {
    QImage sharp = quadrantPicture(800, 400);
    sharp.setDevicePixelRatio(2.0);
    VoImage photo(share(std::move(sharp)));
    EXPECT_FLOAT_EQ(photo.ratio(), 2.0f);
    const VoImage::Picture square = photo.squareImageWithWidthZoomAndPan(100, 1, 1);
    EXPECT_EQ(square->size(), QSize(100, 100));
    EXPECT_TRUE(areaIs(*square, 0, 0, 99, 48, kTopRight));
    EXPECT_TRUE(areaIs(*square, 0, 51, 99, 99, kBottomRight));
}

TEST_F(SquareTest, SquarePictureIsNotLandscapeAndHasRatioOne) {
    VoImage photo(share(quadrantPicture(100, 100)));
    EXPECT_FALSE(photo.isLandscape());
    EXPECT_EQ(photo.ratio(), 1.0f);
}

TEST_F(SquareTest, WideAndTallPictures) {
    VoImage wide(share(quadrantPicture(400, 200)));
    EXPECT_TRUE(wide.isLandscape());
    EXPECT_EQ(wide.ratio(), 2.0f);
    VoImage tall(share(quadrantPicture(200, 400)));
    EXPECT_FALSE(tall.isLandscape());
    EXPECT_EQ(tall.ratio(), 0.5f);
    VoImage barely(share(quadrantPicture(101, 100)));
    EXPECT_TRUE(barely.isLandscape());
}

TEST_F(SquareTest, MissingOrEmptyPictureHasNoRatioAndGivesBlackSquares) {
    for (const VoImage::Picture& picture : {VoImage::Picture(), share(QImage())}) {
        VoImage photo(picture);
        EXPECT_TRUE(std::isnan(photo.ratio()));
        EXPECT_FALSE(photo.isLandscape());
        const VoImage::Picture square = photo.squareImageWithWidthZoomAndPan(16, 0.5f, 0.5f);
        ASSERT_EQ(square->size(), QSize(16, 16));
        EXPECT_TRUE(rowsBlack(*square, 0, 15));
    }
}

TEST_F(SquareTest, FactoryBuildsTheSameAsTheConstructor) {
    const auto photo = VoImage::imageWithImage(share(quadrantPicture(400, 200)));
    ASSERT_TRUE(photo);
    EXPECT_EQ(photo->ratio(), 2.0f);
    EXPECT_TRUE(colorNear(*photo->squareImageWithWidthZoomAndPan(10, 1, 1), 5, 2, kTopRight));
}

TEST_F(SquareTest, ConstructionKeepsTheGivenPictureAlive) {
    auto picture = share(quadrantPicture(40, 20));
    const std::weak_ptr<const QImage> watch = picture;
    auto photo = std::make_unique<VoImage>(std::move(picture));
    EXPECT_FALSE(watch.expired());
    photo.reset();
    EXPECT_TRUE(watch.expired());
}

}  // namespace
}  // namespace vo::phototest
