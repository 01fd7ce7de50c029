// SPDX-License-Identifier: MIT
// vothumb on real photographs from Debian's wallpaper package (installed by the setup script): sizes,
// the JPEG they are written as, and pixels against a render of the fully decoded photograph.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>

#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Engine/codec/codec.h"
#include "command/vothumb_runner.h"
#include "support/test_images.h"

namespace vo::test {
namespace {

struct Photo {
    const char* path;
    int smallWidth, largeWidth;
};

// A baseline 2560 x 1600 photograph and a progressive 5640 x 3172 painting.
const Photo kPhotos[] = {{"/usr/share/backgrounds/mate/nature/LadyBird.jpg", 240, 960},
                         {"/usr/share/backgrounds/mate/abstract/Elephants_5640x3172.jpg", 267, 1067}};

// Mean absolute difference per 8-bit sample between a thumbnail and the same fit rendered from the fully
// decoded photograph through the engine (no reduced decode), re-encoded the same way.
double differenceFromFullDecode(const std::string& photo, const std::string& thumbnail, float height) {
    std::optional<voimg::DecodedImage> full = voimg::decodeImageFile(photo);
    EXPECT_TRUE(full);
    if (!full) return 1e9;
    const CIImage image = CIImage::withDecodedImage(std::move(*full));
    const CIImage fitted = VoCoreUtils::moveImageToOrigin(VoCoreUtils::scaleImageToFitInRect(image, {0, 0, 8192, height}));
    TempDir dir;
    VoCoreUtils::exportImageToURL(fitted, dir.file("reference.jpg"));
    const Pixels reference = readJpeg(dir.file("reference.jpg")), actual = readJpeg(thumbnail);
    EXPECT_EQ(reference.width, actual.width);
    EXPECT_EQ(reference.height, actual.height);
    if (reference.data.size() != actual.data.size()) return 1e9;
    double sum = 0;
    for (size_t i = 0; i < actual.data.size(); ++i) sum += std::abs(int(actual.data[i]) - int(reference.data[i]));
    return sum / double(actual.data.size());
}

TEST(VothumbRealPhoto, ThumbnailsOfWallpapers) {
    for (const Photo& photo : kPhotos) {
        if (!std::filesystem::exists(photo.path)) GTEST_SKIP() << photo.path << " missing: run scripts/setup.sh";
        TempDir dir;
        const ChildRun run = runVothumb({photo.path, dir.file("thumb")});
        ASSERT_TRUE(run.exited);
        EXPECT_EQ(run.exitStatus, 0);
        EXPECT_TRUE(run.standardError.empty()) << run.standardError;
        for (const auto& [suffix, width, height] :
             {std::tuple{"-200.jpg", photo.smallWidth, 150}, std::tuple{"-600.jpg", photo.largeWidth, 600}}) {
            const std::string path = dir.file(std::string("thumb") + suffix);
            const JpegFacts facts = readJpegFacts(path);
            EXPECT_EQ(facts.width, width) << path;
            EXPECT_EQ(facts.height, height) << path;
            EXPECT_TRUE(facts.baseline);
            ASSERT_EQ(facts.sampling.size(), 3u);
            EXPECT_EQ(facts.sampling[0], (std::pair{2, 2}));
            EXPECT_EQ(facts.sampling[1], (std::pair{1, 1}));
            ASSERT_GE(facts.quantTables.size(), 2u);
            EXPECT_EQ(facts.quantTables[0], standardQuantTable(0, 85));
            // Reduced decoding (DCT scaling averages gamma-encoded samples) moves samples a little, and JPEG
            // noise on top of two slightly different pictures adds to it: measured 0.53 and 0.00 on the
            // photograph, 2.51 and 2.00 on the finely textured painting. A wrong scale, shift or colour gives
            // well over 10.
            const double difference = differenceFromFullDecode(photo.path, path, float(height));
            std::printf("%s%s: mean difference from the full decode %.2f\n", photo.path, suffix, difference);
            EXPECT_LT(difference, 3.0) << path;
        }
    }
}

}  // namespace
}  // namespace vo::test
