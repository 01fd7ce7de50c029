// SPDX-License-Identifier: MIT
// The square cut's arithmetic and the square-cache key, without drawing.
#include <gtest/gtest.h>

#include <cmath>

#include "Photo/VoImage_p.h"
#include "photo_test_support.h"

namespace vo::phototest {
namespace {

using photo_detail::squareCut;

TEST(SquareCut, WidePictureAtZoomZeroIsTheWholePictureLetterBoxed) {
    const auto cut = squareCut(400, 200, 0, 0);
    EXPECT_TRUE(cut.landscape);
    EXPECT_FLOAT_EQ(cut.side, 400);
    EXPECT_FLOAT_EQ(cut.x, 0);
    EXPECT_FLOAT_EQ(cut.y, -100);
}

TEST(SquareCut, WidePictureAtZoomOnePanOneIsTheRightHalf) {
    const auto cut = squareCut(400, 200, 1, 1);
    EXPECT_FLOAT_EQ(cut.side, 200);
    EXPECT_FLOAT_EQ(cut.x, 200);
    EXPECT_FLOAT_EQ(cut.y, 0);
}

TEST(SquareCut, PanMinusOneCutsAtTheLowEdgeAndZeroCentres) {
    EXPECT_FLOAT_EQ(squareCut(400, 200, 1, -1).x, 0);
    EXPECT_FLOAT_EQ(squareCut(400, 200, 1, 0).x, 100);
    EXPECT_FLOAT_EQ(squareCut(200, 400, 1, -1).y, 0);
    EXPECT_FLOAT_EQ(squareCut(200, 400, 1, 0).y, 100);
    EXPECT_FLOAT_EQ(squareCut(200, 400, 1, 1).y, 200);
}

TEST(SquareCut, TallPictureTakesThePortraitBranchAndPanMovesY) {
    const auto cut = squareCut(200, 400, 0.5f, 0.5f);
    EXPECT_FALSE(cut.landscape);
    EXPECT_FLOAT_EQ(cut.side, 300);  // 200 + 0.5 * 200
    EXPECT_FLOAT_EQ(cut.x, -50);
    EXPECT_FLOAT_EQ(cut.y, 0.25f * 100 + 50);
}

TEST(SquareCut, SquarePictureTakesThePortraitBranchWithSideEqualToWidthAtAnyZoom) {
    for (float zoom : {-2.0f, -0.5f, 0.0f, 0.3f, 1.0f, 1.7f, 5.0f}) {
        for (float pan : {-3.0f, -1.0f, 0.0f, 0.4f, 1.0f, 2.0f}) {
            const auto cut = squareCut(100, 100, zoom, pan);
            EXPECT_FALSE(cut.landscape) << zoom << " " << pan;
            EXPECT_FLOAT_EQ(cut.side, 100) << zoom << " " << pan;
            EXPECT_FLOAT_EQ(cut.x, 0) << zoom << " " << pan;
            // The pan term (pan / 2) * (h - side) is there but zero for a square.
            EXPECT_FLOAT_EQ(cut.y, 0) << zoom << " " << pan;
        }
    }
}

TEST(SquareCut, ZoomAndPanAreNotClamped) {
    auto cut = squareCut(400, 200, 1.5f, 0);  // smaller than the short side
    EXPECT_FLOAT_EQ(cut.side, 100);
    EXPECT_FLOAT_EQ(cut.x, 150);
    EXPECT_FLOAT_EQ(cut.y, 50);
    cut = squareCut(400, 200, -1, 0);  // wider bars than zoom 0
    EXPECT_FLOAT_EQ(cut.side, 600);
    EXPECT_FLOAT_EQ(cut.x, -100);
    EXPECT_FLOAT_EQ(cut.y, -200);
    cut = squareCut(400, 200, 1, 3);  // past the right edge
    EXPECT_FLOAT_EQ(cut.x, 400);
    cut = squareCut(400, 200, 3, 0);  // side below zero
    EXPECT_FLOAT_EQ(cut.side, -200);
}

TEST(SquareCut, FollowsTheSinglePrecisionFormulas) {
    const float w = 6000, h = 4000, zoom = 0.37f, pan = -0.61f;
    const float side = h + (1.0f - zoom) * (w - h);
    const auto cut = squareCut(w, h, zoom, pan);
    EXPECT_EQ(cut.side, side);
    EXPECT_EQ(cut.x, (pan / 2.0f) * (w - side) + (w - side) / 2.0f);
    EXPECT_EQ(cut.y, (h - side) / 2.0f);
}

TEST(SquareCut, MissingPictureGivesNoSide) {
    const auto cut = squareCut(0, 0, 0.5f, 0.5f);  // ratio 0 / 0: not landscape
    EXPECT_FALSE(cut.landscape);
    EXPECT_EQ(cut.side, 0);
}

TEST(SquareCacheKey, IsTheDescriptionFollowedByThreeSixDecimalNumbers) {
    const QImage picture = quadrantPicture(4, 2);
    const std::string description = photo_detail::pictureDescription(&picture);
    EXPECT_EQ(photo_detail::squareCacheKey(&picture, 100, 0.5f, -1), description + "100.0000000.500000-1.000000");
    EXPECT_EQ(photo_detail::squareCacheKey(nullptr, 64, 0, 0), "(null)64.0000000.0000000.000000");
}

TEST(SquareCacheKey, DescriptionIsTiedToThePictureObjectNotItsContent) {
    const QImage first = quadrantPicture(4, 2);
    const QImage twin = first;  // same pixels, another object
    EXPECT_NE(photo_detail::pictureDescription(&first), photo_detail::pictureDescription(&twin));
    EXPECT_EQ(photo_detail::pictureDescription(&first), photo_detail::pictureDescription(&first));
}

TEST(SquareCacheKey, PictureLaterAtTheSameAddressGetsAnotherDescription) {
    auto slot = std::make_unique<QImage>(quadrantPicture(4, 2));
    const std::string before = photo_detail::pictureDescription(slot.get());
    *slot = quadrantPicture(4, 2);  // another picture in the same object storage
    EXPECT_NE(photo_detail::pictureDescription(slot.get()), before);
}

}  // namespace
}  // namespace vo::phototest
