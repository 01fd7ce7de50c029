// SPDX-License-Identifier: MIT
// Cache modes for pictures in memory, the reduced copy, the square cache, idle emptying and its timer.
#include <gtest/gtest.h>

#include <cmath>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QThread>
#include <QTimer>

#include "Photo/VoImage.h"
#include "Photo/VoImage_p.h"
#include "photo_test_support.h"

namespace vo::phototest {
namespace {

using CacheTest = PhotoTest;
using photo_detail::photoState;

TEST_F(CacheTest, ModeTwoReturnsTheIdenticalSquareUntilSixtyIdleTicks) {
    VoImage::setCacheMode(2);
    VoImage photo(share(quadrantPicture(400, 200)));
    const VoImage::Picture first = photo.squareImageWithWidthZoomAndPan(100, 0.5f, 0.25f);
    EXPECT_EQ(photo.squareImageWithWidthZoomAndPan(100, 0.5f, 0.25f), first);
    tick(59);
    EXPECT_EQ(photo.squareImageWithWidthZoomAndPan(100, 0.5f, 0.25f), first);  // the access restarts the count
    tick(60);
    const VoImage::Picture rebuilt = photo.squareImageWithWidthZoomAndPan(100, 0.5f, 0.25f);
    EXPECT_NE(rebuilt, first);
    EXPECT_EQ(*rebuilt, *first);
}

TEST_F(CacheTest, ModeTwoKeysOnWidthZoomAndPanAsPrintedWithSixDecimals) {
    VoImage::setCacheMode(2);
    VoImage photo(share(quadrantPicture(400, 200)));
    const VoImage::Picture square = photo.squareImageWithWidthZoomAndPan(100, 0.5f, 0);
    EXPECT_NE(photo.squareImageWithWidthZoomAndPan(101, 0.5f, 0), square);
    EXPECT_NE(photo.squareImageWithWidthZoomAndPan(100, 0.6f, 0), square);
    EXPECT_NE(photo.squareImageWithWidthZoomAndPan(100, 0.5f, 0.1f), square);
    // 0.0000004 prints as 0.000000: the same entry.
    EXPECT_EQ(photo.squareImageWithWidthZoomAndPan(100, 0.5f, 0.0000004f), square);
    EXPECT_EQ(photoState().squareCache.size(), 4u);
}

TEST_F(CacheTest, EveryModeFromTwoUpUsesTheSquareCache) {
    VoImage::setCacheMode(7);
    VoImage photo(share(quadrantPicture(400, 200)));
    EXPECT_EQ(photo.squareImageWithWidth(50), photo.squareImageWithWidth(50));
}

TEST_F(CacheTest, ModesOneAndBelowDoNotUseTheSquareCache) {
    for (int mode : {1, 0, -1, -2}) {
        VoImage::setCacheMode(mode);
        VoImage photo(share(quadrantPicture(400, 200)));
        EXPECT_NE(photo.squareImageWithWidth(50), photo.squareImageWithWidth(50)) << mode;
    }
    EXPECT_TRUE(photoState().squareCache.empty());
}

TEST_F(CacheTest, ModeOneKeepsAReducedCopyTwoHundredWide) {
    VoImage::setCacheMode(1);
    auto picture = share(quadrantPicture(300, 200));
    const std::weak_ptr<const QImage> watch = picture;
    VoImage photo(std::move(picture));
    EXPECT_TRUE(watch.expired());  // only the copy is kept
    // Nominally (200, 200 * 200 / 300): the fractional height counts, not the 134 rows of pixels.
    EXPECT_EQ(photo.ratio(), 200.0f / (200.0f * 200.0f / 300.0f));
    EXPECT_TRUE(photo.isLandscape());
    const VoImage::Picture square = photo.squareImageWithWidthZoomAndPan(100, 1, 1);
    EXPECT_TRUE(colorNear(*square, 50, 20, kTopRight, 12));
    EXPECT_TRUE(colorNear(*square, 50, 80, kBottomRight, 12));
    EXPECT_TRUE(columnsBlack(*photo.squareImageWithWidthZoomAndPan(100, 1, 6), 0, 99));
}

TEST_F(CacheTest, SquaresWiderThanTheReducedCopyAreEnlargedFromIt) {
    // One-pixel stripes survive at full size in mode 0 but not through the 200-wide copy.
    QImage stripes(400, 400, QImage::Format_RGB32);
    for (int x = 0; x < 400; ++x) {
        for (int y = 0; y < 400; ++y) stripes.setPixel(x, y, x % 2 ? 0xffffffff : 0xff000000);
    }
    const auto picture = share(std::move(stripes));
    VoImage full(picture);
    VoImage::setCacheMode(1);
    VoImage reduced(picture);
    const VoImage::Picture sharp = full.squareImageWithWidth(400);
    const VoImage::Picture soft = reduced.squareImageWithWidth(400);
    EXPECT_TRUE(colorNear(*sharp, 100, 100, QColor(0, 0, 0)));
    EXPECT_TRUE(colorNear(*sharp, 101, 100, QColor(255, 255, 255)));
    EXPECT_TRUE(colorNear(*soft, 100, 100, QColor(128, 128, 128), 12));
    EXPECT_TRUE(colorNear(*soft, 101, 100, QColor(128, 128, 128), 12));
}

TEST_F(CacheTest, ReducedCopyOfAMissingPictureHasNoHeight) {
    VoImage::setCacheMode(1);
    VoImage photo{VoImage::Picture()};
    EXPECT_TRUE(std::isnan(photo.ratio()));
    EXPECT_TRUE(rowsBlack(*photo.squareImageWithWidth(8), 0, 7));
}

TEST_F(CacheTest, ReducedCopiesAreOwnPictureObjectsSoInstancesDoNotShareSquares) {
    VoImage::setCacheMode(2);
    const auto picture = share(quadrantPicture(400, 200));
    VoImage a(picture);
    VoImage b(picture);
    EXPECT_NE(a.squareImageWithWidth(50), b.squareImageWithWidth(50));
}

TEST_F(CacheTest, BuiltInModeZeroAskedInModeTwoCachesSquaresOfTheFullPicture) {
    const auto picture = share(quadrantPicture(400, 200));
    VoImage a(picture);
    VoImage b(picture);
    VoImage::setCacheMode(2);
    const VoImage::Picture square = a.squareImageWithWidthZoomAndPan(100, 1, 1);
    EXPECT_EQ(b.squareImageWithWidthZoomAndPan(100, 1, 1), square);  // same picture object, same key
    EXPECT_EQ(VoImage::getCachedSquareImageWithImageWidthZoomAndPan(picture.get(), 100, 1, 1), square);
    EXPECT_EQ(a.ratio(), 2.0f);
}

TEST_F(CacheTest, EqualPicturesInDistinctObjectsDoNotShareSquares) {
    VoImage::setCacheMode(2);
    const QImage pixels = quadrantPicture(400, 200);
    VoImage a(share(pixels));
    VoImage b(share(pixels));
    EXPECT_NE(a.squareImageWithWidth(30), b.squareImageWithWidth(30));
}

TEST_F(CacheTest, CachedSquaresAreStoredAndReplacedByKey) {
    const QImage picture = quadrantPicture(4, 4);
    EXPECT_FALSE(VoImage::getCachedSquareImageWithImageWidthZoomAndPan(&picture, 10, 0, 0));
    const auto first = share(solidPicture(10, 10, Qt::red));
    const auto second = share(solidPicture(10, 10, Qt::green));
    VoImage::cacheSquareImageWithImageWidthZoomAndPan(first, &picture, 10, 0, 0);
    EXPECT_EQ(VoImage::getCachedSquareImageWithImageWidthZoomAndPan(&picture, 10, 0, 0), first);
    VoImage::cacheSquareImageWithImageWidthZoomAndPan(second, &picture, 10, 0, 0);
    EXPECT_EQ(VoImage::getCachedSquareImageWithImageWidthZoomAndPan(&picture, 10, 0, 0), second);
    const QImage other = picture;
    EXPECT_FALSE(VoImage::getCachedSquareImageWithImageWidthZoomAndPan(&other, 10, 0, 0));
    EXPECT_FALSE(VoImage::getCachedSquareImageWithImageWidthZoomAndPan(nullptr, 10, 0, 0));
}

TEST_F(CacheTest, EveryCacheAccessRestartsTheIdleCount) {
    const QImage picture = quadrantPicture(4, 4);
    tick(30);
    EXPECT_EQ(idleTicks(), 30);
    (void)VoImage::getCachedSquareImageWithImageWidthZoomAndPan(&picture, 1, 0, 0);
    EXPECT_EQ(idleTicks(), 0);
    tick(5);
    VoImage::cacheSquareImageWithImageWidthZoomAndPan(share(picture), &picture, 1, 0, 0);
    EXPECT_EQ(idleTicks(), 0);
    tick(5);
    (void)VoImage::getCachedFile("/nonexistent/photo.jpg");
    EXPECT_EQ(idleTicks(), 0);
}

TEST_F(CacheTest, BothCachesEmptyOnTheSixtiethIdleTickAndTheCountThenStandsAtOne) {
    const QImage picture = quadrantPicture(4, 4);
    VoImage::cacheSquareImageWithImageWidthZoomAndPan(share(picture), &picture, 1, 0, 0);
    (void)VoImage::getCachedFile("/nonexistent/photo.jpg");
    tick(59);
    EXPECT_EQ(idleTicks(), 59);
    EXPECT_EQ(photoState().squareCache.size(), 1u);
    EXPECT_EQ(photoState().fileCache.size(), 1u);
    tick(1);
    EXPECT_TRUE(photoState().squareCache.empty());
    EXPECT_TRUE(photoState().fileCache.empty());
    EXPECT_EQ(idleTicks(), 1);
    // Without further use the next emptying comes 59 ticks later.
    VoImage::cacheSquareImageWithImageWidthZoomAndPan(share(picture), &picture, 1, 0, 0);
    photoState().emptyCacheCounter = 1;
    tick(58);
    EXPECT_EQ(photoState().squareCache.size(), 1u);
    tick(1);
    EXPECT_TRUE(photoState().squareCache.empty());
}

TEST_F(CacheTest, CachesAndTimerAreCreatedOnceAndOutliveEmptying) {
    QTimer* const timer = photoState().timer;
    ASSERT_NE(timer, nullptr);
    VoImage::checkStartCache();
    tick(120);
    VoImage::checkStartCache();
    EXPECT_EQ(photoState().timer, timer);
    EXPECT_TRUE(photoState().cachesExist);
    EXPECT_EQ(timer->interval(), 1000);
    EXPECT_FALSE(timer->isSingleShot());
    EXPECT_EQ(timer->thread(), QThread::currentThread());
}

TEST_F(CacheTest, TimerTicksOnTheEventLoopOfTheFirstThreadAndEmptiesTheCaches) {
    QTimer* const timer = photoState().timer;
    VoImage::setCacheMode(2);
    VoImage photo(share(quadrantPicture(40, 20)));
    const VoImage::Picture square = photo.squareImageWithWidth(10);
    ASSERT_EQ(photoState().squareCache.size(), 1u);
    // The same timer at a faster pace: sixty ticks pass within a second of event loop.
    timer->start(1);
    QElapsedTimer clock;
    clock.start();
    while (!photoState().squareCache.empty() && clock.elapsed() < 5000) {
        QEventLoop loop;
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.exec();
    }
    timer->stop();
    timer->setInterval(1000);
    EXPECT_TRUE(photoState().squareCache.empty());
    EXPECT_NE(photo.squareImageWithWidth(10), square);
}

TEST_F(CacheTest, ModeIsReadAtEveryRequest) {
    VoImage photo(share(quadrantPicture(400, 200)));
    const VoImage::Picture uncached = photo.squareImageWithWidth(20);
    VoImage::setCacheMode(2);
    const VoImage::Picture cached = photo.squareImageWithWidth(20);
    EXPECT_NE(cached, uncached);
    EXPECT_EQ(photo.squareImageWithWidth(20), cached);
    VoImage::setCacheMode(0);
    EXPECT_NE(photo.squareImageWithWidth(20), cached);
}

}  // namespace
}  // namespace vo::phototest
