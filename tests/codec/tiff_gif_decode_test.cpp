// SPDX-License-Identifier: MIT
// TIFF decoding (8/16-bit, RGB/RGBA/grey/palette, strips/tiles, planar) and GIF decoding (first frame,
// transparency, interlacing, logical screen).
#include "test_support.h"

#include <gtest/gtest.h>
#include <lcms2.h>
#include <tiffio.h>

using namespace votest;

namespace {


std::vector<uint16_t> samplesOf(const Picture& p, int bits) {
    std::vector<uint16_t> s;
    for (uint8_t v : p.samples) s.push_back(uint16_t(bits == 16 ? v * 257 + 3 : v));
    return s;
}

struct TiffCase {
    const char* name;
    int bits, channels;
    bool alpha, planar, tiled;
    int compression;
};

class TiffDecodeTest : public ::testing::TestWithParam<TiffCase> {};

TEST_P(TiffDecodeTest, DecodesExactly) {
    const TiffCase& tc = GetParam();
    TempDir dir;
    const Picture p = makeGradient(45, 37, tc.channels);
    TiffParams params;
    params.bitsPerSample = tc.bits;
    params.samplesPerPixel = tc.channels;
    params.photometric = tc.channels >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    params.alpha = tc.alpha;
    params.planarSeparate = tc.planar;
    params.tiled = tc.tiled;
    params.compression = tc.compression;
    const std::vector<uint16_t> samples = samplesOf(p, tc.bits);
    const voimg::DecodedImage image = decodeOrFail(encodeTiff(dir.file("t.tif"), 45, 37, samples, params));
    ASSERT_EQ(image.width, 45);
    ASSERT_EQ(image.height, 37);
    EXPECT_EQ(image.sixteenBit, tc.bits == 16);
    EXPECT_EQ(image.hasAlpha, tc.alpha);
    const int colour = tc.alpha ? tc.channels - 1 : tc.channels;
    for (int y = 0; y < 37; ++y)
        for (int x = 0; x < 45; ++x) {
            const uint16_t* s = samples.data() + (size_t(y) * 45 + x) * tc.channels;
            for (int c = 0; c < 3; ++c) ASSERT_EQ(sampleAt(image, x, y, c), s[colour == 1 ? 0 : c]) << x << "," << y;
            const unsigned max = tc.bits == 16 ? 65535 : 255;
            ASSERT_EQ(sampleAt(image, x, y, 3), tc.alpha ? s[tc.channels - 1] : max);
        }
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, TiffDecodeTest,
    ::testing::Values(TiffCase{"rgb8", 8, 3, false, false, false, COMPRESSION_NONE},
                      TiffCase{"rgb8lzw", 8, 3, false, false, false, COMPRESSION_LZW},
                      TiffCase{"rgba8", 8, 4, true, false, false, COMPRESSION_ADOBE_DEFLATE},
                      TiffCase{"grey8", 8, 1, false, false, false, COMPRESSION_NONE},
                      TiffCase{"rgb8tiled", 8, 3, false, false, true, COMPRESSION_NONE},
                      TiffCase{"rgb16", 16, 3, false, false, false, COMPRESSION_NONE},
                      TiffCase{"rgba16", 16, 4, true, false, false, COMPRESSION_LZW},
                      TiffCase{"grey16", 16, 1, false, false, false, COMPRESSION_ADOBE_DEFLATE},
                      TiffCase{"greyalpha16", 16, 2, true, false, false, COMPRESSION_NONE},
                      TiffCase{"rgb16planar", 16, 3, false, true, false, COMPRESSION_NONE},
                      TiffCase{"rgba16tiled", 16, 4, true, false, true, COMPRESSION_NONE},
                      TiffCase{"rgb16tiledplanar", 16, 3, false, true, true, COMPRESSION_LZW}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(TiffDecode, Palette) {
    TempDir dir;
    TiffParams params;
    params.bitsPerSample = 4;
    params.samplesPerPixel = 1;
    params.photometric = PHOTOMETRIC_PALETTE;
    params.colourMap.assign(3 * 16, 0);
    for (int i = 0; i < 16; ++i) {
        params.colourMap[size_t(i)] = uint16_t(i * 17 * 257);             // red
        params.colourMap[16 + size_t(i)] = uint16_t((15 - i) * 17 * 257);  // green
        params.colourMap[32 + size_t(i)] = uint16_t(128 * 257);            // blue
    }
    std::vector<uint16_t> indices;
    for (int i = 0; i < 21 * 9; ++i) indices.push_back(uint16_t(i % 16));
    const voimg::DecodedImage image = decodeOrFail(encodeTiff(dir.file("p.tif"), 21, 9, indices, params));
    ASSERT_FALSE(image.sixteenBit);
    for (int i = 0; i < 21 * 9; ++i) {
        const unsigned index = unsigned(i % 16);
        ASSERT_EQ(sampleAt(image, i % 21, i / 21, 0), index * 17);
        ASSERT_EQ(sampleAt(image, i % 21, i / 21, 1), (15 - index) * 17);
        ASSERT_EQ(sampleAt(image, i % 21, i / 21, 2), 128u);
    }
}

TEST(TiffDecode, CmykGoesThroughTheStandardProfile) {
    const Bytes profile = readFile(kCmykProfile);
    if (profile.empty()) GTEST_SKIP() << "no CMYK profile installed at " << kCmykProfile;
    TempDir dir;
    const Picture cmyk = makeGradient(24, 16, 4);
    TiffParams params;
    params.samplesPerPixel = 4;
    params.photometric = PHOTOMETRIC_SEPARATED;
    const voimg::DecodedImage image =
        decodeOrFail(encodeTiff(dir.file("c.tif"), 24, 16, {cmyk.samples.begin(), cmyk.samples.end()}, params));
    const std::vector<uint8_t> want = lcmsToSrgb8(profile, cmyk.samples.data(), 24 * 16, TYPE_CMYK_8, TYPE_RGB_8, 3);
    for (int i = 0; i < 24 * 16; ++i) {
        for (int c = 0; c < 3; ++c)
            ASSERT_NEAR(int(sampleAt(image, i % 24, i / 24, c)), int(want[size_t(i) * 3 + c]), 1);
        ASSERT_EQ(sampleAt(image, i % 24, i / 24, 3), 255u);
    }
}

std::vector<uint8_t> gifIndices(int width, int height) {
    std::vector<uint8_t> indices;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) indices.push_back(uint8_t((x / 3 + y) % 4));
    return indices;
}

const std::vector<uint8_t> kGifPalette = {255, 0, 0, 0, 255, 0, 0, 0, 255, 250, 250, 250};

void expectGifFrame(const voimg::DecodedImage& image, const std::vector<uint8_t>& indices, int width, int height,
                    int left, int top, int transparent) {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int index = indices[size_t(y) * width + x];
            for (int c = 0; c < 3; ++c)
                ASSERT_EQ(sampleAt(image, left + x, top + y, c),
                          index == transparent ? 0u : kGifPalette[size_t(index) * 3 + c]);
            ASSERT_EQ(sampleAt(image, left + x, top + y, 3), index == transparent ? 0u : 255u);
        }
}

TEST(GifDecode, FirstFrameWithTransparency) {
    GifParams params;
    params.transparentIndex = 2;
    params.secondFrame = true;
    const auto indices = gifIndices(30, 20);
    const voimg::DecodedImage image = decodeOrFail(encodeGif(30, 20, indices, kGifPalette, params));
    ASSERT_EQ(image.width, 30);
    ASSERT_EQ(image.height, 20);
    EXPECT_TRUE(image.hasAlpha);
    expectGifFrame(image, indices, 30, 20, 0, 0, 2);
}

TEST(GifDecode, InterlacedOpaque) {
    GifParams params;
    params.interlaced = true;
    const auto indices = gifIndices(17, 23);
    const voimg::DecodedImage image = decodeOrFail(encodeGif(17, 23, indices, kGifPalette, params));
    EXPECT_FALSE(image.hasAlpha);
    expectGifFrame(image, indices, 17, 23, 0, 0, -1);
}

TEST(GifDecode, FrameSmallerThanScreenLeavesTransparentBorder) {
    GifParams params;
    params.screenWidth = 40;
    params.screenHeight = 30;
    params.left = 5;
    params.top = 7;
    const auto indices = gifIndices(20, 10);
    const voimg::DecodedImage image = decodeOrFail(encodeGif(20, 10, indices, kGifPalette, params));
    ASSERT_EQ(image.width, 40);
    ASSERT_EQ(image.height, 30);
    EXPECT_TRUE(image.hasAlpha);
    EXPECT_EQ(sampleAt(image, 0, 0, 3), 0u);
    EXPECT_EQ(sampleAt(image, 39, 29, 3), 0u);
    expectGifFrame(image, indices, 20, 10, 5, 7, -1);
}

}  // namespace
