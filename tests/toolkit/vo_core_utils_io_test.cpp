// SPDX-License-Identifier: MIT
// VoCoreUtils import and export: files written, their quality and alpha, logged failures, pictures, resources.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "toolkit/toolkit_helpers.h"

namespace vo {
namespace {

using test::LogCapture;
using test::Pixels;
using test::TempDir;

CIImage testImage(int width = 120, int height = 80) {
    return test::imageFromPixels(test::makeTestPicture(width, height));
}

void expectQuality(const std::string& path, int quality) {
    const test::JpegFacts facts = test::readJpegFacts(path);
    EXPECT_TRUE(facts.baseline);
    ASSERT_GE(facts.quantTables.size(), 2u);
    EXPECT_EQ(facts.quantTables[0], test::standardQuantTable(0, quality)) << "luminance table of " << path;
    EXPECT_EQ(facts.quantTables[1], test::standardQuantTable(1, quality)) << "chrominance table of " << path;
}

TEST(VoCoreUtilsExport, DefaultExportIsJpegOfQuality85) {
    TempDir dir;
    LogCapture log;
    VoCoreUtils::exportImageToURL(testImage(), dir.file("a.jpg"));
    EXPECT_TRUE(log.lines().empty());
    const test::JpegFacts facts = test::readJpegFacts(dir.file("a.jpg"));
    EXPECT_EQ(facts.width, 120);
    EXPECT_EQ(facts.height, 80);
    expectQuality(dir.file("a.jpg"), 85);
}

TEST(VoCoreUtilsExport, GivenQualityIsUsed) {
    TempDir dir;
    VoCoreUtils::exportImageToURLTransparantQuality(testImage(), dir.file("half.jpg"), false, 0.5f);
    expectQuality(dir.file("half.jpg"), 50);
}

TEST(VoCoreUtilsExport, QualityZeroMeansTheDefault) {
    TempDir dir;
    VoCoreUtils::exportImageToURLTransparantQuality(testImage(), dir.file("zero.jpg"), false, 0.0f);
    expectQuality(dir.file("zero.jpg"), 85);
    VoCoreUtils::exportImageToURLTransparant(testImage(), dir.file("flag.jpg"), false);
    expectQuality(dir.file("flag.jpg"), 85);
}

TEST(VoCoreUtilsExport, JpegIsAtLeastAsCloseAsAPlainEncodingOfTheImage) {
    TempDir dir;
    const Pixels source = test::makeTestPicture(300, 200);
    VoCoreUtils::exportImageToURL(test::imageFromPixels(source), dir.file("p.jpg"));
    // The same pixels through libjpeg at quality 85: the export adds nothing of its own to the JPEG noise
    // (its chroma comes back closer, if anything).
    test::writeJpeg(dir.file("plain.jpg"), source, 85);
    const Pixels written = test::readJpeg(dir.file("p.jpg"));
    const Pixels plain = test::readJpeg(dir.file("plain.jpg"));
    ASSERT_EQ(written.width, 300);
    ASSERT_EQ(written.height, 200);
    double writtenError = 0, plainError = 0;
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 300; ++x)
            for (int k = 0; k < 3; ++k) {
                writtenError += std::abs(int(written.at(x, y)[k]) - int(source.at(x, y)[k]));
                plainError += std::abs(int(plain.at(x, y)[k]) - int(source.at(x, y)[k]));
            }
    EXPECT_LE(writtenError, plainError * 1.02);
}

TEST(VoCoreUtilsExport, TransparentExportWritesPngKeepingAlpha) {
    TempDir dir;
    const Pixels source = test::makeTestPicture(40, 30, 4);
    VoCoreUtils::exportTransparantImageToURL(test::imageFromPixels(source), dir.file("t.png"));
    const std::vector<uint8_t> bytes = test::readBytes(dir.file("t.png"));
    ASSERT_GE(bytes.size(), 8u);
    EXPECT_EQ(bytes[1], 'P');
    EXPECT_EQ(bytes[2], 'N');
    EXPECT_EQ(bytes[3], 'G');
    const Pixels written = test::readPng(dir.file("t.png"));
    ASSERT_EQ(written.width, 40);
    ASSERT_EQ(written.height, 30);
    // Premultiplied float working values round-trip to within a code, two where alpha is lowest.
    for (int y = 0; y < 30; ++y) {
        for (int x = 0; x < 40; ++x) {
            EXPECT_NEAR(written.at(x, y)[3], source.at(x, y)[3], 1) << x << "," << y;
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(written.at(x, y)[k], source.at(x, y)[k], 2) << x << "," << y;
        }
    }
}

TEST(VoCoreUtilsExport, TwoExportsShareOneContext) {
    TempDir dir;
    VoCoreUtils::exportImageToURL(testImage(), dir.file("1.jpg"));
    const voimg::RenderContext* first = VoCoreUtils::sharedExportContext();
    ASSERT_NE(first, nullptr);
    VoCoreUtils::exportImageToURL(testImage(), dir.file("2.jpg"));
    EXPECT_EQ(VoCoreUtils::sharedExportContext(), first);
    EXPECT_TRUE(test::fileExists(dir.file("2.jpg")));
}

TEST(VoCoreUtilsExport, SeveralExportsAtOnceWriteWhatEachWouldAndReportInOrder) {
    TempDir dir;
    const CIImage small = testImage(), large = testImage(300, 200);
    LogCapture log;
    VoCoreUtils::exportImagesToURLs({{VoCoreUtils::emptyCoreImage(), dir.file("a.jpg")},
                                     {small, dir.file("missing/b.jpg")},
                                     {small, dir.file("c.jpg")},
                                     {VoCoreUtils::emptyCoreImage(), dir.file("d.jpg")},
                                     {large, dir.file("e.jpg")}});
    const std::string unwritten = "problems writing JPEG file\n",
                      noDestination = "problems creating image destination\n";
    EXPECT_EQ(log.sequence({unwritten, noDestination}),
              (std::vector<std::string>{unwritten, noDestination, unwritten}));
    EXPECT_FALSE(test::fileExists(dir.file("a.jpg")));
    EXPECT_FALSE(test::fileExists(dir.file("d.jpg")));
    // The pictures written side by side are those written one at a time.
    VoCoreUtils::exportImageToURL(small, dir.file("c1.jpg"));
    VoCoreUtils::exportImageToURL(large, dir.file("e1.jpg"));
    EXPECT_EQ(test::readBytes(dir.file("c.jpg")), test::readBytes(dir.file("c1.jpg")));
    EXPECT_EQ(test::readBytes(dir.file("e.jpg")), test::readBytes(dir.file("e1.jpg")));
    EXPECT_FALSE(test::readBytes(dir.file("e.jpg")).empty());
}

TEST(VoCoreUtilsExport, ShrunkenFilesWrittenWhileTheyAreMadeAreThePicturesWrittenWhole) {
    TempDir dir;
    test::writeJpeg(dir.file("photo.jpg"), test::makeTestPicture(1200, 800));
    const CIImage file = VoCoreUtils::importImageFromUrl(dir.file("photo.jpg"));
    auto fitted = [&](float height) {
        return VoCoreUtils::moveImageToOrigin(VoCoreUtils::scaleImageToFitInRect(file, {0, 0, 8192, height}));
    };
    const CIImage small = fitted(150), large = fitted(600);
    LogCapture log;
    VoCoreUtils::exportImagesToURLs({{small, dir.file("small.jpg")}, {large, dir.file("large.jpg")}});
    EXPECT_TRUE(log.lines().empty());
    // The same pictures made again, then written whole.
    const std::vector<voimg::Bitmap> pictures = VoCoreUtils::sharedExportContext()->createBitmaps(
        {{small, small.extent(), voimg::BitmapFormat::Rgb8OverBlack},
         {large, large.extent(), voimg::BitmapFormat::Rgb8OverBlack}});
    const std::string names[2] = {"small", "large"};
    for (size_t i = 0; i < 2; ++i) {
        const voimg::Bitmap& picture = pictures[i];
        ASSERT_TRUE(voimg::writeJpegFile(dir.file(names[i] + "-whole.jpg"), picture.bytes.data(), picture.width,
                                         picture.height, 85));
        EXPECT_EQ(test::readBytes(dir.file(names[i] + ".jpg")), test::readBytes(dir.file(names[i] + "-whole.jpg")))
            << names[i];
    }
    EXPECT_EQ(pictures[1].height, 600);
}

TEST(VoCoreUtilsExport, MissingImageWritesAndLogsNothing) {
    TempDir dir;
    LogCapture log;
    VoCoreUtils::exportImageToURL(CIImage{}, dir.file("none.jpg"));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_FALSE(test::fileExists(dir.file("none.jpg")));
}

TEST(VoCoreUtilsExport, MissingFolderCannotBeADestination) {
    TempDir dir;
    LogCapture log;
    VoCoreUtils::exportImageToURL(testImage(), dir.file("missing/a.jpg"));
    ASSERT_EQ(log.lines().size(), 1u);
    // The message ends in its own line break, so the log line ends with an empty line.
    EXPECT_EQ(log.count("problems creating image destination\n"), 1);
    EXPECT_FALSE(test::fileExists(dir.file("missing")));
}

TEST(VoCoreUtilsExport, FolderCannotBeADestination) {
    TempDir dir;
    std::filesystem::create_directory(dir.file("folder.jpg"));
    LogCapture log;
    VoCoreUtils::exportImageToURL(testImage(), dir.file("folder.jpg"));
    EXPECT_EQ(log.count("problems creating image destination\n"), 1);
    EXPECT_TRUE(std::filesystem::is_directory(dir.file("folder.jpg")));
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("folder.jpg")));
}

TEST(VoCoreUtilsExport, EmptyImageFailsToWriteAndLeavesNoFile) {
    TempDir dir;
    LogCapture log;
    VoCoreUtils::exportImageToURL(VoCoreUtils::emptyCoreImage(), dir.file("empty.jpg"));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count("problems writing JPEG file\n"), 1);
    EXPECT_FALSE(test::fileExists(dir.file("empty.jpg")));
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(VoCoreUtilsExport, EmptyImageAsPngLogsTheSameMessage) {
    TempDir dir;
    LogCapture log;
    VoCoreUtils::exportTransparantImageToURL(VoCoreUtils::emptyCoreImage(), dir.file("empty.png"));
    EXPECT_EQ(log.count("problems writing JPEG file\n"), 1);
    EXPECT_FALSE(test::fileExists(dir.file("empty.png")));
}

TEST(VoCoreUtilsImport, ReadsAFileAndMissesAMissingOne) {
    TempDir dir;
    test::writePng(dir.file("in.png"), test::makeTestPicture(30, 20, 4));
    EXPECT_EQ(VoCoreUtils::importImageFromUrl(dir.file("in.png")).extent(), (CGRect{0, 0, 30, 20}));
    EXPECT_TRUE(VoCoreUtils::importImageFromUrl(dir.file("nothing.png")).isNull());
    test::writeBytes(dir.file("junk.png"), {1, 2, 3, 4, 5});
    EXPECT_TRUE(VoCoreUtils::importImageFromUrl(dir.file("junk.png")).isNull());
}

TEST(VoCoreUtilsPicture, ZeroWidthImageGivesAnEmpty10By10Picture) {
    const auto picture = VoCoreUtils::imageFromCoreImage(VoCoreUtils::emptyCoreImageWithExtent({0, 0, 0, 7}));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->width, 10);
    EXPECT_EQ(picture->height, 10);
    ASSERT_EQ(picture->bytes.size(), 400u);
    for (uint8_t byte : picture->bytes) EXPECT_EQ(byte, 0);
}

TEST(VoCoreUtilsPicture, MissingImageGivesAnEmpty10By10Picture) {
    const auto picture = VoCoreUtils::imageFromCoreImage(CIImage{});
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->width, 10);
    EXPECT_EQ(picture->height, 10);
}

TEST(VoCoreUtilsPicture, PictureHoldsThePixelsWithTheirTransparency) {
    const Pixels source = test::makeTestPicture(16, 12, 4);
    const auto picture = VoCoreUtils::imageFromCoreImage(test::imageFromPixels(source));
    ASSERT_EQ(picture->width, 16);
    ASSERT_EQ(picture->height, 12);
    ASSERT_EQ(picture->channels(), 4);
    for (size_t i = 0; i < source.data.size(); ++i) EXPECT_NEAR(picture->bytes[i], source.data[i], 2) << i;
}

TEST(VoCoreUtilsFlatten, OldFlattenOfNothingIsTransparent10By10) {
    const CIImage flat = VoCoreUtils::_old_flattenCoreImage(CIImage{});
    ASSERT_FALSE(flat.isNull());
    EXPECT_EQ(flat.extent(), (CGRect{0, 0, 10, 10}));
    const Pixels pixels = test::renderRgba8(flat, flat.extent());
    ASSERT_EQ(pixels.width, 10);
    for (uint8_t byte : pixels.data) EXPECT_EQ(byte, 0);
}

TEST(VoCoreUtilsFlatten, OldFlattenOfAnImageIsThatImage) {
    const CIImage image = testImage(8, 8);
    EXPECT_EQ(VoCoreUtils::_old_flattenCoreImage(image), image);
}

TEST(VoCoreUtilsFlatten, FlattenReturnsItsArgumentEvenWhenMissing) {
    const CIImage image = testImage(8, 8);
    EXPECT_EQ(VoCoreUtils::flattenCoreImage(image), image);
    EXPECT_TRUE(VoCoreUtils::flattenCoreImage(CIImage{}).isNull());
}

TEST(VoCoreUtilsBundle, ReadsTheNamedFileDirectlyInsideTheFolder) {
    TempDir dir;
    test::writePng(dir.file("TextureFiber.png"), test::makeTestPicture(24, 18, 4));
    const VoBundle bundle(dir.path());
    const CIImage image = VoCoreUtils::bundleCIImageWithName(bundle, "TextureFiber.png");
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.extent(), (CGRect{0, 0, 24, 18}));
    const auto picture = VoCoreUtils::bundleImageWithName(bundle, "TextureFiber.png");
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->width, 24);
}

TEST(VoCoreUtilsBundle, NameWithLeadingSlashStillFindsTheFile) {
    TempDir dir;
    test::writePng(dir.file("TextureFiber.png"), test::makeTestPicture(4, 4, 4));
    EXPECT_FALSE(VoCoreUtils::bundleCIImageWithName(VoBundle(dir.path()), "/TextureFiber.png").isNull());
}

TEST(VoCoreUtilsBundle, MissingFileGivesNothing) {
    TempDir dir;
    const VoBundle bundle(dir.path());
    EXPECT_TRUE(VoCoreUtils::bundleCIImageWithName(bundle, "TextureFiber.png").isNull());
    EXPECT_EQ(VoCoreUtils::bundleImageWithName(bundle, "TextureFiber.png"), nullptr);
}

}  // namespace
}  // namespace vo
