// SPDX-License-Identifier: MIT
// Several shrunken renditions of one file rendered together: one streaming decode, the same pictures as
// rendering each on its own, and the same behaviour for files that cannot be decoded.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <thread>

#include "Engine/nodes_p.h"
#include "codec/test_support.h"
#include "engine_test_util.h"

namespace voimg {
namespace {

using votest::Bytes;

// `file` shrunk by `scale` about the origin, as the thumbnail command places it.
Image shrunk(const std::string& path, float scale) {
    return Image::withContentsOfFile(path).transformed(AffineTransform::scale(scale, scale));
}

struct Difference {
    double meanAbs = 0;
    int maxAbs = 0;
};

Difference compare(const Bitmap& a, const Bitmap& b) {
    Difference d;
    EXPECT_EQ(a.width, b.width);
    EXPECT_EQ(a.height, b.height);
    if (a.bytes.size() != b.bytes.size() || a.bytes.empty()) return {1e9, 255};
    for (size_t i = 0; i < a.bytes.size(); ++i) {
        const int diff = std::abs(int(a.bytes[i]) - int(b.bytes[i]));
        d.meanAbs += diff;
        d.maxAbs = std::max(d.maxAbs, diff);
    }
    d.meanAbs /= double(a.bytes.size());
    return d;
}

std::string writeFile(const vo::test::TempDir& dir, const std::string& name, const Bytes& data) {
    const std::string path = dir.file(name);
    votest::writeFile(path, data);
    return path;
}

TEST(FileRenditions, TwoSizesFromOneDecodeMatchRenderingEachAlone) {
    vo::test::TempDir dir;
    votest::JpegParams params;
    params.quality = 92;
    const std::string path = writeFile(dir, "photo.jpg", votest::encodeJpeg(votest::makeGradient(1203, 802), params));
    // 150 and 600 pixels high; the widths end inside a pixel (225.0 and 900.0 would not).
    const float small = 150.0f / 802, large = 600.0f / 802;
    const Image a = shrunk(path, small), b = shrunk(path, large);
    RenderContext context;
    const std::vector<Bitmap> together = context.createBitmaps(
        {{a, a.extent(), BitmapFormat::Rgb8OverBlack}, {b, b.extent(), BitmapFormat::Rgb8OverBlack}});
    ASSERT_EQ(together.size(), 2u);
    const Bitmap aloneSmall = context.createBitmap(shrunk(path, small), a.extent(), BitmapFormat::Rgb8OverBlack);
    const Bitmap aloneLarge = context.createBitmap(shrunk(path, large), b.extent(), BitmapFormat::Rgb8OverBlack);
    EXPECT_EQ(together[0].width, 225);  // 1203 x 150/802 = 225.0
    EXPECT_EQ(together[0].height, 150);
    EXPECT_EQ(together[1].width, 900);  // 899.9
    // The large one decodes at the same scale either way: equal up to rounding.
    const Difference large600 = compare(together[1], aloneLarge);
    EXPECT_LE(large600.maxAbs, 2);
    // The small one comes from a finer decode with a box prefilter: close, not identical.
    const Difference small150 = compare(together[0], aloneSmall);
    EXPECT_LT(small150.meanAbs, 1.5);
    EXPECT_LE(small150.maxAbs, 16);
    // The partly covered last column is as dark as when rendered alone.
    const uint8_t* lastTogether = &together[1].bytes[(size_t(300) * 900 + 899) * 3];
    const uint8_t* lastAlone = &aloneLarge.bytes[(size_t(300) * 900 + 899) * 3];
    EXPECT_NEAR(lastTogether[0], lastAlone[0], 2);
}

TEST(FileRenditions, TheFileIsNotDecodedWholeOrCached) {
    vo::test::TempDir dir;
    const std::string path =
        writeFile(dir, "p.png", votest::encodePng(400, 300, std::vector<uint16_t>(400 * 300 * 3, 77), {}));
    const Image file = Image::withContentsOfFile(path);
    const Image a = file.transformed(AffineTransform::scale(0.5f, 0.5f));
    const Image b = file.transformed(AffineTransform::scale(0.1f, 0.1f));
    RenderContext context;
    const std::vector<Bitmap> made =
        context.createBitmaps({{a, a.extent(), BitmapFormat::Rgba8}, {b, b.extent(), BitmapFormat::Rgba8}});
    const auto* node = dynamic_cast<const FileNode*>(file.node().get());
    ASSERT_NE(node, nullptr);
    EXPECT_TRUE(node->decodedReductions().empty());
    EXPECT_EQ(made[0].width, 200);
    EXPECT_EQ(made[1].height, 30);
    EXPECT_EQ(test::pixelAt(made[0], 100, 70)[0], 77);
    EXPECT_EQ(test::pixelAt(made[1], 20, 15)[3], 255);
}

TEST(FileRenditions, TransparencyAndSixteenBitSamplesComeThrough) {
    vo::test::TempDir dir;
    const int width = 200, height = 100;
    std::vector<uint16_t> samples;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) samples.insert(samples.end(), {65535, 0, 0, uint16_t(x < 100 ? 65535 : 0)});
    votest::PngParams params;
    params.colourType = 6;
    params.bitDepth = 16;
    const std::string path = writeFile(dir, "half.png", votest::encodePng(width, height, samples, params));
    const Image a = shrunk(path, 0.25f);
    RenderContext context;
    const Bitmap together = context.createBitmaps({{a, a.extent(), BitmapFormat::Rgba8}})[0];
    const Bitmap alone = context.createBitmap(shrunk(path, 0.25f), a.extent(), BitmapFormat::Rgba8);
    EXPECT_LE(compare(together, alone).maxAbs, 1);
    EXPECT_EQ(test::pixelAt(together, 5, 10)[0], 255);
    EXPECT_EQ(test::pixelAt(together, 5, 10)[3], 255);
    EXPECT_EQ(test::pixelAt(together, 45, 10)[3], 0);
}

TEST(FileRenditions, GreyPicturesShrunkWithABoxMatchTheDecodedPictureShrunk) {
    vo::test::TempDir dir;
    const int width = 640, height = 400;
    for (int colourType : {0, 4}) {  // grey, grey with alpha
        std::vector<uint16_t> samples;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                samples.push_back(uint16_t(128 + 120 * std::sin(x * 0.05) * std::cos(y * 0.07)));
                if (colourType == 4) samples.push_back(uint16_t(128 + 120 * std::cos(x * 0.03 + y * 0.02)));
            }
        votest::PngParams params;
        params.colourType = colourType;
        const std::string path = writeFile(dir, "grey" + std::to_string(colourType) + ".png",
                                           votest::encodePng(width, height, samples, params));
        const float scale = 0.1f;  // a tenfold shrink: boxes of 4 first
        const Image file = shrunk(path, scale);
        RenderContext context;
        // Over black, so that colour differences under nearly transparent pixels stay as small as they look.
        const Bitmap streamed = context.createBitmaps({{file, file.extent(), BitmapFormat::Rgb8OverBlack}})[0];
        std::optional<DecodedImage> decoded = decodeImageFile(path);
        ASSERT_TRUE(decoded);
        const Image whole =
            Image::withDecodedImage(std::move(*decoded)).transformed(AffineTransform::scale(scale, scale));
        const Bitmap tiled = context.createBitmap(whole, file.extent(), BitmapFormat::Rgb8OverBlack);
        const Difference d = compare(streamed, tiled);
        EXPECT_LT(d.meanAbs, 0.5) << colourType;
        EXPECT_LE(d.maxAbs, 3) << colourType;
    }
}

TEST(FileRenditions, SharpColourEdgesComeThroughAtLeastAsWellAsFromTheWholeDecode) {
    vo::test::TempDir dir;
    // Hard colour edges every few pixels, where the chroma upsampling shows most. Shrunk 2.5-fold, the
    // streaming decode repeats the chroma samples where the whole decode interpolates them: it must come at
    // least as close to the picture the file was made from, and stay close to the whole decode shrunk.
    votest::Picture edges{480, 320, 3, {}};
    for (int y = 0; y < 320; ++y)
        for (int x = 0; x < 480; ++x)
            edges.samples.insert(edges.samples.end(),
                                 {uint8_t(((x + y / 4) / 5) % 2 ? 230 : 20), uint8_t(60 + y / 3), uint8_t(x / 2)});
    const std::string path = writeFile(dir, "edges.jpg", votest::encodeJpeg(edges, {}));
    const float scale = 0.4f;  // decoded whole, shrunk 2.5-fold
    const Image file = shrunk(path, scale);
    RenderContext context;
    const Bitmap streamed = context.createBitmaps({{file, file.extent(), BitmapFormat::Rgb8OverBlack}})[0];
    std::optional<DecodedImage> decoded = decodeImageFile(path);
    ASSERT_TRUE(decoded);
    const Image whole = Image::withDecodedImage(std::move(*decoded)).transformed(AffineTransform::scale(scale, scale));
    const Bitmap tiled = context.createBitmap(whole, file.extent(), BitmapFormat::Rgb8OverBlack);
    DecodedImage source;
    source.width = edges.width, source.height = edges.height;
    const votest::Picture rgba = votest::rgbToRgba(edges);
    source.pixels.assign(rgba.samples.begin(), rgba.samples.end());
    const Image original = Image::withDecodedImage(std::move(source)).transformed(AffineTransform::scale(scale, scale));
    const Bitmap truth = context.createBitmap(original, file.extent(), BitmapFormat::Rgb8OverBlack);
    auto psnr = [](const Bitmap& a, const Bitmap& b) {
        EXPECT_EQ(a.bytes.size(), b.bytes.size());
        double squared = 0;
        for (size_t i = 0; i < a.bytes.size() && i < b.bytes.size(); ++i) {
            const double d = double(a.bytes[i]) - double(b.bytes[i]);
            squared += d * d;
        }
        return 10 * std::log10(255.0 * 255.0 / std::max(1e-9, squared / double(std::max<size_t>(1, a.bytes.size()))));
    };
    EXPECT_GE(psnr(streamed, truth), psnr(tiled, truth));
    EXPECT_GT(psnr(streamed, tiled), 30.0);
}

TEST(FileRenditions, AFileWithoutImageDataRendersAsAFailedFileDoes) {
    vo::test::TempDir dir;
    // Small renditions, and ones large enough for their blank pixels to be made on a thread of their own.
    for (const auto& [width, height] : std::vector<std::pair<int, int>>{{320, 240}, {2400, 1600}}) {
        Bytes jpeg = votest::encodeJpeg(votest::makeGradient(width, height), {});
        size_t sos = 0;
        for (size_t i = 0; i + 1 < jpeg.size(); ++i)
            if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xDA) sos = i;
        jpeg.resize(sos + 14);
        const std::string path = writeFile(dir, "nodata" + std::to_string(width) + ".jpg", jpeg);
        const Image a = shrunk(path, 0.5f);
        ASSERT_FALSE(a.isNull());  // the header reads fine
        RenderContext context;
        const Bitmap together = context.createBitmaps({{a, a.extent(), BitmapFormat::Rgb8OverBlack}})[0];
        const Bitmap alone = context.createBitmap(shrunk(path, 0.5f), a.extent(), BitmapFormat::Rgb8OverBlack);
        EXPECT_EQ(together.width, width / 2);
        EXPECT_EQ(together.bytes.size(), size_t(width / 2) * size_t(height / 2) * 3);
        EXPECT_EQ(together.bytes, alone.bytes);  // black
    }
}

TEST(FileRenditions, OtherRequestsRenderAsCreateBitmapDoes) {
    vo::test::TempDir dir;
    const std::string path =
        writeFile(dir, "a.png", votest::encodePng(64, 64, std::vector<uint16_t>(64 * 64 * 3, 200), {}));
    const Image colour = Image::withColor({0.2f, 0.4f, 0.6f, 1}).croppedTo({0, 0, 10, 10});
    const Image enlarged = Image::withContentsOfFile(path).transformed(AffineTransform::scale(2, 2));
    const Image rotated = Image::withContentsOfFile(path).transformed(AffineTransform::rotationDegrees(17));
    RenderContext context;
    const std::vector<RenderRequest> requests = {{colour, colour.extent(), BitmapFormat::Rgba8},
                                                 {enlarged, enlarged.extent(), BitmapFormat::Rgba8},
                                                 {rotated, rotated.extent(), BitmapFormat::Rgba8},
                                                 {Image(), {0, 0, 5, 5}, BitmapFormat::Rgba8}};
    const std::vector<Bitmap> made = context.createBitmaps(requests);
    ASSERT_EQ(made.size(), requests.size());
    for (size_t i = 0; i < requests.size(); ++i) {
        const Bitmap alone = context.createBitmap(requests[i].image, requests[i].rect, requests[i].format);
        EXPECT_EQ(made[i].width, alone.width) << i;
        EXPECT_EQ(made[i].bytes, alone.bytes) << i;
    }
    EXPECT_TRUE(made[3].isEmpty());
}

TEST(FileRenditions, RowsAreToldFinalTopFirstAndKeepTheirValues) {
    vo::test::TempDir dir;
    const std::string path = writeFile(dir, "photo.jpg", votest::encodeJpeg(votest::makeGradient(1203, 802), {}));
    const Image a = shrunk(path, 150.0f / 802), b = shrunk(path, 600.0f / 802);
    RenderContext context;
    // A copy of the rows told final at each call, to be compared with the finished bitmaps.
    std::vector<std::vector<std::pair<int64_t, std::vector<uint8_t>>>> partial(2);
    const std::vector<Bitmap> bitmaps = context.createBitmaps(
        {{a, a.extent(), BitmapFormat::Rgb8OverBlack}, {b, b.extent(), BitmapFormat::Rgb8OverBlack}},
        [&](size_t index, const Bitmap& bitmap, int64_t rows) {
            const size_t rowBytes = size_t(bitmap.width) * 3;
            partial.at(index).emplace_back(
                rows, std::vector<uint8_t>(bitmap.bytes.begin(),
                                           bitmap.bytes.begin() + std::ptrdiff_t(size_t(rows) * rowBytes)));
        });
    ASSERT_EQ(bitmaps.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        ASSERT_FALSE(partial[i].empty()) << i;
        EXPECT_EQ(partial[i].back().first, bitmaps[i].height) << i;
        for (size_t k = 0; k < partial[i].size(); ++k) {
            if (k > 0) {
                EXPECT_GT(partial[i][k].first, partial[i][k - 1].first) << i;
            }
            const std::vector<uint8_t>& rows = partial[i][k].second;
            EXPECT_TRUE(std::equal(rows.begin(), rows.end(), bitmaps[i].bytes.begin())) << i << " call " << k;
        }
    }
    // With one worker beside the reading thread (two cores), rows are told as they are made.
    if (std::thread::hardware_concurrency() <= 2) {
        EXPECT_GT(partial[1].size(), 10u);
        EXPECT_GT(partial[0].size(), 10u);
    }
}

TEST(FileRenditions, FailedFilesAndOtherRequestsAreToldFinalOnceWhole) {
    vo::test::TempDir dir;
    Bytes jpeg = votest::encodeJpeg(votest::makeGradient(320, 240), {});
    size_t sos = 0;
    for (size_t i = 0; i + 1 < jpeg.size(); ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xDA) sos = i;
    jpeg.resize(sos + 14);  // a header that reads, and no image data
    const std::string broken = writeFile(dir, "broken.jpg", jpeg);
    const Image failed = shrunk(broken, 0.5f);
    const Image colour = Image::withColor({0.2f, 0.4f, 0.6f, 1}).croppedTo({0, 0, 10, 10});
    RenderContext context;
    std::vector<std::vector<int64_t>> counts(3);
    const std::vector<Bitmap> made =
        context.createBitmaps({{failed, failed.extent(), BitmapFormat::Rgb8OverBlack},
                               {colour, colour.extent(), BitmapFormat::Rgba8},
                               {Image(), {0, 0, 5, 5}, BitmapFormat::Rgba8}},
                              [&](size_t index, const Bitmap&, int64_t rows) { counts.at(index).push_back(rows); });
    EXPECT_EQ(counts[0], std::vector<int64_t>{made[0].height});
    EXPECT_EQ(counts[1], std::vector<int64_t>{10});
    EXPECT_TRUE(counts[2].empty());  // an empty bitmap has no rows to tell
}

}  // namespace
}  // namespace voimg
