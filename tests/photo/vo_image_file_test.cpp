// SPDX-License-Identifier: MIT
// Photos read from files and from the resource folder: deferred modes, the file cache, the blank for
// unreadable files, decoding, and which pictures an instance owns or borrows.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>

#include "Common/Foundation/VoLog.h"
#include "Photo/VoImage.h"
#include "Photo/VoImage_p.h"
#include "Photo/photo_picture_p.h"
#include "photo_test_support.h"
#include "support/test_images.h"

namespace vo::phototest {
namespace {

using photo_detail::photoState;

class FileTest : public PhotoTest {
protected:
    void SetUp() override {
        PhotoTest::SetUp();
        previousSink_ = VoSetLogSink([this](const std::string& line) { logged_.push_back(line); });
    }
    void TearDown() override {
        VoSetLogSink(previousSink_);
        EXPECT_TRUE(logged_.empty()) << logged_.front();
        PhotoTest::TearDown();
    }
    // A 400 x 200 PNG of one colour at `name` in the temporary folder.
    std::string writeSolid(const std::string& name, const QColor& color, int width = 400, int height = 200) {
        const std::string path = folder_.file(name);
        savePng(solidPicture(width, height, color), path);
        return path;
    }
    std::string missingPath() const { return folder_.file("missing.png"); }

    vo::test::TempDir folder_;
    VoLogSink previousSink_;
    std::vector<std::string> logged_;
};

QColor middleOf(const VoImage::Picture& square) { return colorAt(*square, square->width() / 2, square->height() / 2); }

TEST_F(FileTest, ModeZeroReadsTheFileOnceAtConstruction) {
    const std::string path = writeSolid("photo.png", Qt::red);
    VoImage photo{VoImage::FileName{path}};
    EXPECT_EQ(photo.ratio(), 2.0f);
    writeSolid("photo.png", Qt::blue);
    EXPECT_TRUE(colorNear(*photo.squareImageWithWidthZoomAndPan(40, 1, 0), 20, 20, QColor(255, 0, 0)));
}

TEST_F(FileTest, ModeMinusOneReadsTheFileOnEveryRequest) {
    const std::string path = writeSolid("photo.png", Qt::red);
    VoImage::setCacheMode(-1);
    VoImage photo{VoImage::FileName{path}};
    writeSolid("photo.png", Qt::green);  // construction read nothing
    EXPECT_TRUE(colorNear(*photo.squareImageWithWidthZoomAndPan(40, 1, 0), 20, 20, QColor(0, 255, 0)));
    writeSolid("photo.png", Qt::blue);
    EXPECT_TRUE(colorNear(*photo.squareImageWithWidthZoomAndPan(40, 1, 0), 20, 20, QColor(0, 0, 255)));
    std::filesystem::remove(path);
    EXPECT_TRUE(rowsBlack(*photo.squareImageWithWidthZoomAndPan(40, 1, 0), 0, 39));  // now the blank
    EXPECT_TRUE(photoState().fileCache.empty());
}

TEST_F(FileTest, ModeMinusOneBorrowsItsLoadOnlyUntilTheEventLoopRuns) {
    const std::string path = writeSolid("photo.png", Qt::red);
    VoImage::setCacheMode(-1);
    VoImage photo{VoImage::FileName{path}};
    EXPECT_TRUE(std::isnan(photo.ratio()));  // nothing read yet
    (void)photo.squareImageWithWidth(10);
    EXPECT_EQ(photo.ratio(), 2.0f);
    EXPECT_TRUE(photo.isLandscape());
    runEventLoopOnce();
    EXPECT_TRUE(std::isnan(photo.ratio()));
    EXPECT_FALSE(photo.isLandscape());
}

TEST_F(FileTest, ModeMinusTwoSharesOneDecodedPhotoBetweenInstances) {
    const std::string path = writeSolid("photo.png", Qt::red);
    VoImage::setCacheMode(-2);
    VoImage first{VoImage::FileName{path}};
    VoImage second{VoImage::FileName{path}};
    EXPECT_TRUE(photoState().fileCache.empty());  // deferred: nothing read at construction
    EXPECT_TRUE(colorNear(*first.squareImageWithWidth(20), 10, 10, QColor(255, 0, 0)));
    const VoImage::Picture shared = VoImage::getCachedFile(path);
    EXPECT_EQ(VoImage::getCachedFile(path), shared);
    writeSolid("photo.png", Qt::blue);
    EXPECT_TRUE(colorNear(*second.squareImageWithWidth(20), 10, 10, QColor(255, 0, 0)));  // from the cache
    EXPECT_EQ(VoImage::getCachedFile(path), shared);
    EXPECT_EQ(photoState().fileCache.size(), 1u);
    tick(60);
    EXPECT_TRUE(colorNear(*second.squareImageWithWidth(20), 10, 10, QColor(0, 0, 255)));  // read again
    EXPECT_NE(VoImage::getCachedFile(path), shared);
}

TEST_F(FileTest, EveryModeFromMinusTwoDownUsesTheFileCache) {
    const std::string path = writeSolid("photo.png", Qt::red);
    VoImage::setCacheMode(-9);
    VoImage photo{VoImage::FileName{path}};
    (void)photo.squareImageWithWidth(8);
    ASSERT_EQ(photoState().fileCache.count(path), 1u);
}

TEST_F(FileTest, ModeMinusTwoBorrowsTheCachedPhotoWithoutKeepingIt) {
    const std::string path = writeSolid("photo.png", Qt::red);
    VoImage::setCacheMode(-2);
    auto photo = std::make_unique<VoImage>(VoImage::FileName{path});
    (void)photo->squareImageWithWidth(8);
    std::weak_ptr<const QImage> watch = VoImage::getCachedFile(path);
    EXPECT_EQ(photo->ratio(), 2.0f);
    photo.reset();  // the instance leaves the cache's photo alone
    EXPECT_EQ(VoImage::getCachedFile(path), watch.lock());

    photo = std::make_unique<VoImage>(VoImage::FileName{path});
    (void)photo->squareImageWithWidth(8);
    tick(60);  // emptying frees the photo although the instance still refers to it
    EXPECT_TRUE(watch.expired());
    EXPECT_TRUE(std::isnan(photo->ratio()));
}

TEST_F(FileTest, DeferredInstanceAskedInModeZeroHasNoPictureToCropFrom) {
    const std::string path = writeSolid("photo.png", Qt::red);
    VoImage::setCacheMode(-1);
    VoImage photo{VoImage::FileName{path}};
    VoImage::setCacheMode(0);
    EXPECT_TRUE(rowsBlack(*photo.squareImageWithWidth(16), 0, 15));
    EXPECT_TRUE(std::isnan(photo.ratio()));
}

TEST_F(FileTest, ModeOneKeepsOnlyTheReducedCopyOfTheFile) {
    const std::string path = writeSolid("photo.png", Qt::red, 300, 200);
    VoImage::setCacheMode(1);
    VoImage photo{VoImage::FileName{path}};
    EXPECT_EQ(photo.ratio(), 200.0f / (200.0f * 200.0f / 300.0f));
    std::filesystem::remove(path);
    EXPECT_TRUE(colorNear(*photo.squareImageWithWidthZoomAndPan(50, 1, 0), 25, 25, QColor(255, 0, 0)));
    EXPECT_TRUE(photoState().fileCache.empty());
}

TEST_F(FileTest, UnreadableFileGivesTheBlankAtConstruction) {
    for (int mode : {0, 1, 2}) {
        VoImage::setCacheMode(mode);
        VoImage photo{VoImage::FileName{missingPath()}};
        EXPECT_EQ(photo.ratio(), 1.0f) << mode;  // 10 x 10, or its 200 x 200 reduced copy
        EXPECT_TRUE(rowsBlack(*photo.squareImageWithWidthZoomAndPan(12, 0.3f, 0.7f), 0, 11)) << mode;
    }
}

TEST_F(FileTest, UnreadableFileGivesTheBlankOnDeferredLoads) {
    VoImage::setCacheMode(-1);
    VoImage fresh{VoImage::FileName{missingPath()}};
    EXPECT_TRUE(rowsBlack(*fresh.squareImageWithWidth(12), 0, 11));
    EXPECT_EQ(fresh.ratio(), 1.0f);

    VoImage::setCacheMode(-2);
    VoImage cached{VoImage::FileName{missingPath()}};
    EXPECT_TRUE(rowsBlack(*cached.squareImageWithWidth(12), 0, 11));
    EXPECT_EQ(cached.ratio(), 1.0f);
}

TEST_F(FileTest, UnreadableFileIsCachedAsATransparentTenByTenBlank) {
    const VoImage::Picture blank = VoImage::getCachedFile(missingPath());
    ASSERT_TRUE(blank);
    EXPECT_EQ(blank->size(), QSize(10, 10));
    EXPECT_EQ(colorAt(*blank, 5, 5).alpha(), 0);
    EXPECT_EQ(VoImage::getCachedFile(missingPath()), blank);
    EXPECT_EQ(photoState().fileCache.count(missingPath()), 1u);
    // A folder or a file that is not a picture is unreadable too.
    test::writeBytes(folder_.file("junk.png"), {1, 2, 3, 4, 5});
    EXPECT_EQ(VoImage::getCachedFile(folder_.file("junk.png"))->size(), QSize(10, 10));
    EXPECT_EQ(VoImage::getCachedFile(folder_.path())->size(), QSize(10, 10));
}

TEST_F(FileTest, JpegPhotoIsDecodedByTheToolkit) {
    const std::string path = folder_.file("photo.jpg");
    test::writeJpeg(path, test::makeSolid(320, 240, 200, 40, 40));
    const auto photo = VoImage::imageWithFileName(path);
    EXPECT_EQ(photo->ratio(), 320.0f / 240.0f);
    EXPECT_TRUE(colorNear(*photo->squareImageWithWidthZoomAndPan(30, 1, 0), 15, 15, QColor(200, 40, 40), 6));
}

TEST_F(FileTest, SixteenBitPhotoKeepsItsDepth) {
    QImage deep(64, 32, QImage::Format_RGBX64);
    deep.fill(QColor::fromRgba64(65535, 32768, 0));
    const std::string path = folder_.file("deep.png");
    savePng(deep, path);
    const VoImage::Picture picture = photo_detail::readPictureFile(path);
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->depth(), 64);
    EXPECT_FALSE(picture->hasAlphaChannel());
    VoImage photo{VoImage::FileName{path}};
    EXPECT_TRUE(colorNear(*photo.squareImageWithWidthZoomAndPan(16, 1, 0), 8, 8, QColor(255, 128, 0), 2));

    QImage deepTranslucent(8, 8, QImage::Format_RGBA64);
    deepTranslucent.fill(QColor::fromRgba64(0, 65535, 0, 16384));
    savePng(deepTranslucent, folder_.file("deep-translucent.png"));
    const VoImage::Picture premultiplied = photo_detail::readPictureFile(folder_.file("deep-translucent.png"));
    ASSERT_TRUE(premultiplied);
    EXPECT_EQ(premultiplied->format(), QImage::Format_RGBA64_Premultiplied);
    EXPECT_EQ(premultiplied->pixelColor(2, 2).rgba64(), QColor::fromRgba64(0, 65535, 0, 16384).rgba64());
}

TEST_F(FileTest, TranslucentPhotoIsPremultipliedAndDrawnOverBlack) {
    QImage translucent(20, 20, QImage::Format_ARGB32);
    translucent.fill(QColor(0, 255, 0, 64));
    const std::string path = folder_.file("translucent.png");
    savePng(translucent, path);
    const VoImage::Picture picture = photo_detail::readPictureFile(path);
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->format(), QImage::Format_RGBA8888_Premultiplied);
    EXPECT_EQ(colorAt(*picture, 3, 3), QColor(0, 255, 0, 64));
    VoImage photo{VoImage::FileName{path}};
    EXPECT_TRUE(colorNear(*photo.squareImageWithWidth(10), 5, 5, QColor(0, 64, 0), 2));
}

TEST_F(FileTest, BundlePictureIsFoundByNameWithOrWithoutExtension) {
    savePng(quadrantPicture(400, 200), resourceFolder() + "/bundled.png");
    const auto byFullName = VoImage::imageWithImageNamed("bundled.png");
    EXPECT_EQ(byFullName->ratio(), 2.0f);
    EXPECT_TRUE(colorNear(*byFullName->squareImageWithWidthZoomAndPan(20, 1, 1), 10, 4, kTopRight));
    VoImage byStem{VoImage::ImageNamed{"bundled"}};
    EXPECT_EQ(byStem.ratio(), 2.0f);
}

TEST_F(FileTest, BundlePictureIsOneSharedObjectPerName) {
    savePng(quadrantPicture(40, 20), resourceFolder() + "/shared.png");
    VoImage a{VoImage::ImageNamed{"shared.png"}};
    VoImage b{VoImage::ImageNamed{"shared.png"}};
    VoImage::setCacheMode(2);
    EXPECT_EQ(a.squareImageWithWidth(10), b.squareImageWithWidth(10));
}

TEST_F(FileTest, BundlePictureInModeOneIsReduced) {
    savePng(quadrantPicture(400, 100), resourceFolder() + "/reduced.png");
    VoImage::setCacheMode(1);
    VoImage photo{VoImage::ImageNamed{"reduced.png"}};
    EXPECT_EQ(photo.ratio(), 4.0f);
    EXPECT_TRUE(colorNear(*photo.squareImageWithWidthZoomAndPan(20, 1, -1), 10, 4, kTopLeft, 12));
}

TEST_F(FileTest, MissingBundlePictureIsTheMissingPicture) {
    VoImage photo{VoImage::ImageNamed{"no-such-picture"}};
    EXPECT_TRUE(std::isnan(photo.ratio()));
    EXPECT_TRUE(rowsBlack(*photo.squareImageWithWidth(8), 0, 7));
    VoImage deferredModesDoNotApply{VoImage::ImageNamed{""}};
    EXPECT_TRUE(std::isnan(deferredModesDoNotApply.ratio()));
}

TEST_F(FileTest, ConstructorsOtherThanTheFileOneTreatNegativeModesAsZero) {
    savePng(quadrantPicture(40, 20), resourceFolder() + "/negative.png");
    VoImage::setCacheMode(-2);
    VoImage named{VoImage::ImageNamed{"negative.png"}};
    VoImage given(share(quadrantPicture(40, 20)));
    EXPECT_EQ(named.ratio(), 2.0f);
    EXPECT_EQ(given.ratio(), 2.0f);
    EXPECT_TRUE(colorNear(*named.squareImageWithWidthZoomAndPan(20, 1, 1), 10, 4, kTopRight));
    EXPECT_TRUE(photoState().fileCache.empty());
}

TEST_F(FileTest, MiddleOfASquareOfAFileInEveryMode) {
    const std::string path = writeSolid("photo.png", QColor(10, 120, 230));
    for (int mode : {3, 2, 1, 0, -1, -2, -3}) {
        VoImage::setCacheMode(mode);
        VoImage photo{VoImage::FileName{path}};
        const QColor middle = middleOf(photo.squareImageWithWidthZoomAndPan(24, 1, 0));
        EXPECT_NEAR(middle.red(), 10, 2) << mode;
        EXPECT_NEAR(middle.green(), 120, 2) << mode;
        EXPECT_NEAR(middle.blue(), 230, 2) << mode;
    }
}

}  // namespace
}  // namespace vo::phototest
