// SPDX-License-Identifier: MIT
// Images backed by files: lazy decoding, reduced decodes for shrinking renders, unreadable files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "Engine/codec/codec.h"
#include "Engine/nodes_p.h"
#include "Engine/render_context.h"
#include "support/test_images.h"

namespace voimg {
namespace {

double meanAbsoluteDifference(const Bitmap& a, const Bitmap& b) {
    EXPECT_EQ(a.bytes.size(), b.bytes.size());
    double sum = 0;
    for (size_t i = 0; i < std::min(a.bytes.size(), b.bytes.size()); ++i) sum += std::abs(a.bytes[i] - b.bytes[i]);
    return sum / double(std::max<size_t>(1, a.bytes.size()));
}

// A shrinking render of a JPEG decodes it at a reduced scale; the result must match a render from the
// full-size pixels within 1.0 mean absolute difference (8-bit units).
TEST(FileImage, ReducedDecodeMatchesFullResolutionRender) {
    vo::test::TempDir dir;
    const std::string path = dir.file("picture.jpg");
    vo::test::writeJpeg(path, vo::test::makeTestPicture(1600, 1200), 95);
    const Image lazy = Image::withContentsOfFile(path);
    ASSERT_FALSE(lazy.isNull());
    EXPECT_EQ(lazy.extent(), (Rect{0, 0, 1600, 1200}));
    std::optional<DecodedImage> full = decodeImageFile(path);
    ASSERT_TRUE(full);
    const Image eager = Image::withDecodedImage(std::move(*full));

    RenderContext context;
    for (float scale : {0.03f, 0.05f, 0.1f, 0.3f}) {
        const AffineTransform t = AffineTransform::scale(scale, scale);
        const Image a = lazy.transformed(t), b = eager.transformed(t);
        const Bitmap ra = context.createBitmap(a, a.extent(), BitmapFormat::Rgba8);
        const Bitmap rb = context.createBitmap(b, b.extent(), BitmapFormat::Rgba8);
        ASSERT_EQ(ra.width, rb.width);
        ASSERT_EQ(ra.height, rb.height);
        EXPECT_LT(meanAbsoluteDifference(ra, rb), 1.0) << "scale " << scale;
    }
    // Each scale decoded at the coarsest level the resample hides: 1/2 when at least a 2x shrink remains,
    // 1/4 and 1/8 when at least 4x remains: 0.03 -> 1/8, 0.05 -> 1/4, 0.1 -> 1/2, 0.3 -> full size.
    const auto* file = dynamic_cast<const FileNode*>(lazy.node().get());
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->decodedReductions(), (std::vector<int>{1, 2, 4, 8}));
}

TEST(FileImage, UnreadableFilesGiveTheMissingImage) {
    vo::test::TempDir dir;
    EXPECT_TRUE(Image::withContentsOfFile(dir.file("absent.png")).isNull());
    EXPECT_TRUE(Image::withContentsOfFile(dir.path()).isNull());
    vo::test::writeBytes(dir.file("empty.jpg"), {});
    EXPECT_TRUE(Image::withContentsOfFile(dir.file("empty.jpg")).isNull());
    vo::test::writeBytes(dir.file("garbage.png"), std::vector<uint8_t>(1000, 0x5a));
    EXPECT_TRUE(Image::withContentsOfFile(dir.file("garbage.png")).isNull());
}

TEST(FileImage, OnlyTheHeaderIsReadUntilRendered) {
    vo::test::TempDir dir;
    const std::string path = dir.file("later.png");
    vo::test::writePng(path, vo::test::makeTestPicture(64, 32, 4));
    const Image image = Image::withContentsOfFile(path);
    ASSERT_FALSE(image.isNull());
    // The file may go away after the header was read: the render then shows a transparent picture of
    // the declared size instead of failing.
    ASSERT_EQ(std::remove(path.c_str()), 0);
    RenderContext context;
    const Bitmap b = context.createBitmap(image, image.extent(), BitmapFormat::Rgba8);
    ASSERT_EQ(b.width, 64);
    ASSERT_EQ(b.height, 32);
    EXPECT_EQ(b.bytes[3], 0);
}

}  // namespace
}  // namespace voimg
