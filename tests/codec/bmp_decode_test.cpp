// SPDX-License-Identifier: MIT
// BMP decoding: palette depths, direct colour, bit fields, row order, header variants, rejected files.
#include "test_support.h"

#include <gtest/gtest.h>

using namespace votest;

namespace {

const std::vector<uint8_t> kPalette = {0, 0, 0, 255, 255, 255, 200, 10, 20, 10, 200, 20, 20, 10, 200};

std::vector<uint8_t> indexPattern(int width, int height, int colours) {
    std::vector<uint8_t> out;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) out.push_back(uint8_t((x + 2 * y) % colours));
    return out;
}

std::optional<voimg::DecodedImage> decode(const Bytes& data, std::string* error = nullptr) {
    return voimg::decodeImageMemory(data.data(), data.size(), {}, error);
}

struct PaletteCase {
    int bpp, infoSize;
};

class BmpPaletteTest : public ::testing::TestWithParam<PaletteCase> {};

TEST_P(BmpPaletteTest, DecodesIndices) {
    const auto [bpp, infoSize] = GetParam();
    const int colours = bpp == 1 ? 2 : 5;
    BmpParams params;
    params.bitsPerPixel = bpp;
    params.infoSize = infoSize;
    params.palette.assign(kPalette.begin(), kPalette.begin() + colours * 3);
    const auto indices = indexPattern(13, 7, colours);
    std::string error;
    const auto image = decode(encodeBmp(13, 7, indices, params), &error);
    ASSERT_TRUE(image) << error;
    EXPECT_FALSE(image->hasAlpha);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 13; ++x)
            for (int c = 0; c < 3; ++c)
                ASSERT_EQ(sampleAt(*image, x, y, c), kPalette[size_t(indices[size_t(y) * 13 + x]) * 3 + c])
                    << x << "," << y;
}

INSTANTIATE_TEST_SUITE_P(Depths, BmpPaletteTest,
                         ::testing::Values(PaletteCase{1, 40}, PaletteCase{4, 40}, PaletteCase{8, 40},
                                           PaletteCase{8, 12}, PaletteCase{4, 124}));

void expectRgb(const voimg::DecodedImage& image, const Picture& p, int tolerance, bool alpha) {
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x) {
            for (int c = 0; c < 3; ++c) ASSERT_NEAR(int(sampleAt(image, x, y, c)), int(p.at(x, y)[c]), tolerance);
            ASSERT_EQ(sampleAt(image, x, y, 3), alpha ? p.at(x, y)[3] : 255u);
        }
}

TEST(BmpDecode, Rgb24BottomUpAndTopDown) {
    const Picture p = makeGradient(19, 11, 4);
    for (bool topDown : {false, true}) {
        BmpParams params;
        params.topDown = topDown;
        const auto image = decode(encodeBmp(19, 11, p.samples, params));
        ASSERT_TRUE(image);
        expectRgb(*image, p, 0, false);
    }
}

TEST(BmpDecode, Rgb32PlainIsOpaque) {
    const Picture p = makeGradient(8, 5, 4);
    BmpParams params;
    params.bitsPerPixel = 32;
    const auto image = decode(encodeBmp(8, 5, p.samples, params));
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->hasAlpha);
    expectRgb(*image, p, 0, false);
}

TEST(BmpDecode, Bitfields32WithAlpha) {
    const Picture p = makeGradient(9, 6, 4);
    BmpParams params;
    params.bitsPerPixel = 32;
    params.compression = 3;
    params.infoSize = 124;
    const uint32_t masks[4] = {0x0000ff00, 0x00ff0000, 0xff000000, 0x000000ff};  // unusual order on purpose
    std::copy(masks, masks + 4, params.masks);
    const auto image = decode(encodeBmp(9, 6, p.samples, params));
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->hasAlpha);
    expectRgb(*image, p, 0, true);
}

TEST(BmpDecode, Bitfields16Rgb565AndDefault555) {
    const Picture p = makeGradient(10, 4, 4);
    BmpParams params;
    params.bitsPerPixel = 16;
    params.compression = 3;
    const uint32_t masks[4] = {0xf800, 0x07e0, 0x001f, 0};
    std::copy(masks, masks + 4, params.masks);
    auto image = decode(encodeBmp(10, 4, p.samples, params));
    ASSERT_TRUE(image);
    expectRgb(*image, p, 5, false);
    params.compression = 0;
    image = decode(encodeBmp(10, 4, p.samples, params));
    ASSERT_TRUE(image);
    expectRgb(*image, p, 5, false);
}

TEST(BmpDecode, RejectsRleAndOddHeaders) {
    BmpParams params;
    params.bitsPerPixel = 8;
    params.palette = kPalette;
    Bytes data = encodeBmp(4, 4, indexPattern(4, 4, 5), params);
    Bytes rle = data;
    rle[30] = 1;  // BI_RLE8
    std::string error;
    EXPECT_FALSE(decode(rle, &error));
    EXPECT_NE(error.find("BMP"), std::string::npos) << error;
    Bytes depth = data;
    depth[28] = 7;
    EXPECT_FALSE(decode(depth));
    Bytes zeroWidth = data;
    zeroWidth[18] = zeroWidth[19] = zeroWidth[20] = zeroWidth[21] = 0;
    EXPECT_FALSE(decode(zeroWidth));
}

TEST(BmpDecode, TruncatedKeepsRowsPresent) {
    const Picture p = makeGradient(16, 16, 4);
    const Bytes data = encodeBmp(16, 16, p.samples, BmpParams{});
    // Bottom-up: the first half of the pixel data is the bottom half of the picture.
    const Bytes half(data.begin(), data.end() - 8 * 48);
    const auto image = decode(half);
    ASSERT_TRUE(image);
    EXPECT_EQ(sampleAt(*image, 3, 15, 0), p.at(3, 15)[0]);
    EXPECT_EQ(sampleAt(*image, 3, 8, 1), p.at(3, 8)[1]);
    EXPECT_EQ(sampleAt(*image, 3, 2, 0), 128u);
    EXPECT_EQ(sampleAt(*image, 3, 2, 3), 255u);
    const Bytes headerOnly(data.begin(), data.begin() + 54 + 10);
    EXPECT_FALSE(decode(headerOnly));
}

}  // namespace
