// SPDX-License-Identifier: MIT
// vothumb's two thumbnails: their sizes for ordinary, small and very wide pictures, the JPEG they are written
// as, and their pixels against the engine's slow reference resampler.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>

#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Engine/codec/codec.h"
#include "Engine/resample_p.h"
#include "Engine/srgb.h"
#include "command/vothumb_runner.h"
#include "support/test_images.h"

namespace vo::test {
namespace {

// Runs vothumb on `input` and checks that it succeeded quietly and wrote both files at the given sizes.
void expectThumbnailSizes(const std::string& input, const std::string& prefix, int smallWidth, int smallHeight,
                          int largeWidth, int largeHeight) {
    const ChildRun run = runVothumb({input, prefix});
    ASSERT_FALSE(run.timedOut);
    ASSERT_TRUE(run.exited) << "ended by signal " << run.signal;
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(run.standardError.empty()) << run.standardError;
    const JpegFacts small = readJpegFacts(prefix + "-200.jpg");
    EXPECT_EQ(small.width, smallWidth);
    EXPECT_EQ(small.height, smallHeight);
    const JpegFacts large = readJpegFacts(prefix + "-600.jpg");
    EXPECT_EQ(large.width, largeWidth);
    EXPECT_EQ(large.height, largeHeight);
}

CIImage imageOf(const Pixels& rgb) {
    voimg::DecodedImage decoded;
    decoded.width = rgb.width;
    decoded.height = rgb.height;
    decoded.pixels.resize(size_t(rgb.width) * rgb.height * 4);
    for (size_t i = 0, n = size_t(rgb.width) * rgb.height; i < n; ++i) {
        std::copy_n(&rgb.data[i * 3], 3, &decoded.pixels[i * 4]);
        decoded.pixels[i * 4 + 3] = 255;
    }
    return CIImage::withDecodedImage(std::move(decoded));
}

// How far a thumbnail region is from the exact resample, beside plain JPEG noise.
struct Closeness {
    double mean = 0;       // mean difference from the exact resample, in 8-bit codes
    int worst = 0;         // largest difference
    double plainMean = 0;  // the same for the exact resample itself encoded plainly with libjpeg
    int plainWorst = 0;
};

// One 3000 x 2000 photograph-like picture and its two thumbnails, made once for the whole suite.
class VothumbPhoto : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        dir_ = new TempDir;
        writeJpeg(dir_->file("photo.jpg"), makeTestPicture(3000, 2000), 92);
        run_ = new ChildRun(runVothumb({dir_->file("photo.jpg"), dir_->file("photo")}));
    }
    static void TearDownTestSuite() {
        delete run_;
        delete dir_;
    }
    static std::string small() { return dir_->file("photo-200.jpg"); }
    static std::string large() { return dir_->file("photo-600.jpg"); }

    // Renders the region (x, y, width, height; top-down bitmap coordinates, x and y multiples of 16) of the
    // thumbnail with the slow reference resampler from the full-resolution input and measures how far the
    // thumbnail is from it, beside how far a plain libjpeg encoding of the exact region (quality 85, 4:2:0,
    // as the thumbnail) is: that is the JPEG noise alone. The region starts on a block boundary so its
    // blocks hold the same pixels as in the whole picture. Pixels within 2 of a cut edge are left out:
    // chroma upsampling reads across it.
    static Closeness compareWithReference(const std::string& output, float stripHeight, int x0, int y0, int width,
                                          int height) {
        const CIImage input = imageOf(readJpeg(dir_->file("photo.jpg")));
        const CGRect strip{0, 0, 8192, stripHeight};
        const NSAffineTransform fit = VoCoreUtils::transformForScaleImageInRectFill(input, strip, false);
        const CGRect placed = fit.applyToRect(input.extent());
        const NSAffineTransform t = fit.appending(NSAffineTransform::translation(-placed.x, -placed.y));
        const Pixels written = readJpeg(output);
        EXPECT_LE(x0 + width, written.width);
        EXPECT_LE(y0 + height, written.height);

        // The plane's rows go bottom up: the region's top row is the plane's row written.height - 1 - y0.
        voimg::TileBuffer tile({x0, written.height - y0 - height, width, height});
        voimg::resampleSeparableReference(*input.node(), input.extent(), t, tile.view());
        Pixels reference{width, height, 3, std::vector<uint8_t>(size_t(width) * height * 3)};
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const float* p = tile.view().pixel(x0 + x, written.height - 1 - (y0 + y));
                uint8_t* q = &reference.data[(size_t(y) * width + x) * 3];
                for (int k = 0; k < 3; ++k) q[k] = voimg::linearToSrgb8(p[k]);
            }
        }
        writeJpeg(dir_->file("reference.jpg"), reference, 85);
        const Pixels encoded = readJpeg(dir_->file("reference.jpg"));

        const bool cutRight = x0 + width < written.width, cutBottom = y0 + height < written.height;
        const int xs = x0 > 0 ? 2 : 0, ys = y0 > 0 ? 2 : 0;
        const int xe = width - (cutRight ? 2 : 0), ye = height - (cutBottom ? 2 : 0);
        Closeness c;
        int count = 0;
        for (int y = ys; y < ye; ++y) {
            for (int x = xs; x < xe; ++x) {
                for (int k = 0; k < 3; ++k) {
                    const int exact = reference.at(x, y)[k];
                    const int diff = std::abs(int(written.at(x0 + x, y0 + y)[k]) - exact);
                    const int plainDiff = std::abs(int(encoded.at(x, y)[k]) - exact);
                    c.mean += diff, c.plainMean += plainDiff;
                    c.worst = std::max(c.worst, diff), c.plainWorst = std::max(c.plainWorst, plainDiff);
                    ++count;
                }
            }
        }
        c.mean /= count, c.plainMean /= count;
        return c;
    }

    static TempDir* dir_;
    static ChildRun* run_;
};

TempDir* VothumbPhoto::dir_ = nullptr;
ChildRun* VothumbPhoto::run_ = nullptr;

TEST_F(VothumbPhoto, SucceedsQuietly) {
    ASSERT_FALSE(run_->timedOut);
    ASSERT_TRUE(run_->exited);
    EXPECT_EQ(run_->exitStatus, 0);
    EXPECT_TRUE(run_->standardError.empty()) << run_->standardError;
}

TEST_F(VothumbPhoto, SmallThumbnailIs225By150) {
    const JpegFacts facts = readJpegFacts(small());
    EXPECT_EQ(facts.width, 225);
    EXPECT_EQ(facts.height, 150);
}

TEST_F(VothumbPhoto, LargeThumbnailIs900By600) {
    const JpegFacts facts = readJpegFacts(large());
    EXPECT_EQ(facts.width, 900);
    EXPECT_EQ(facts.height, 600);
}

TEST_F(VothumbPhoto, ThumbnailsAreBaseline420JpegsOfQuality85) {
    for (const std::string& path : {small(), large()}) {
        const JpegFacts facts = readJpegFacts(path);
        EXPECT_TRUE(facts.baseline) << path;
        EXPECT_FALSE(facts.progressive) << path;
        EXPECT_EQ(facts.sampling, (std::vector<std::pair<int, int>>{{2, 2}, {1, 1}, {1, 1}})) << path;
        ASSERT_GE(facts.quantTables.size(), 2u) << path;
        EXPECT_EQ(facts.quantTables[0], standardQuantTable(0, 85)) << path;
        EXPECT_EQ(facts.quantTables[1], standardQuantTable(1, 85)) << path;
    }
}

// Tolerance: on average at most half a code further from the exact resample than the plain JPEG noise,
// and at most 25 codes further at the worst pixel. The command may decode the input at a reduced scale,
// where the JPEG decoder averages blocks in gamma space rather than linear light; at the hardest edges of
// the picture that moves a pixel by up to about 25 codes, and next to nothing elsewhere. The region holds
// the dark square and the start of the light band: the picture's hardest edges.
void expectCloseToTheExactResample(const Closeness& c) {
    EXPECT_LE(c.mean, c.plainMean + 0.5) << "plain JPEG noise alone: " << c.plainMean;
    EXPECT_LE(c.worst, c.plainWorst + 25) << "plain JPEG noise alone: " << c.plainWorst;
}

TEST_F(VothumbPhoto, SmallThumbnailMatchesTheReferenceResampler) {
    expectCloseToTheExactResample(compareWithReference(small(), 150, 0, 0, 112, 80));
}

// Same tolerance, on two regions: around the dark square and across the light band.
TEST_F(VothumbPhoto, LargeThumbnailMatchesTheReferenceResampler) {
    expectCloseToTheExactResample(compareWithReference(large(), 600, 96, 64, 256, 224));
    expectCloseToTheExactResample(compareWithReference(large(), 600, 640, 432, 192, 160));
}

TEST(VothumbSizes, SmallPictureIsEnlarged) {
    TempDir dir;
    writeJpeg(dir.file("icon.jpg"), makeTestPicture(100, 40));
    expectThumbnailSizes(dir.file("icon.jpg"), dir.file("icon"), 375, 150, 1500, 600);
}

TEST(VothumbSizes, PngInputWorksToo) {
    TempDir dir;
    writePng(dir.file("in.png"), makeTestPicture(300, 200, 4));
    expectThumbnailSizes(dir.file("in.png"), dir.file("out"), 225, 150, 900, 600);
}

// 200:1 is wider than 8192:150, so the width binds: 8192 x 40.96, which renders as 41 whole rows.
TEST(VothumbSizes, VeryWidePictureIsBoundByTheWidth) {
    TempDir dir;
    writeJpeg(dir.file("wide.jpg"), makeTestPicture(20000, 100));
    expectThumbnailSizes(dir.file("wide.jpg"), dir.file("wide"), 8192, 41, 8192, 41);
}

TEST(VothumbSizes, TallPictureKeepsItsAspectRatio) {
    TempDir dir;
    writeJpeg(dir.file("tall.jpg"), makeTestPicture(50, 1000));
    expectThumbnailSizes(dir.file("tall.jpg"), dir.file("tall"), 8, 150, 30, 600);
}

}  // namespace
}  // namespace vo::test
