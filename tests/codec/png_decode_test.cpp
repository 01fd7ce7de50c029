// SPDX-License-Identifier: MIT
// PNG decoding: every bit depth and colour type, palette with tRNS, grey key, interlacing.
#include "test_support.h"

#include <gtest/gtest.h>

using namespace votest;

namespace {


// Grey samples at `bits` spread over the full range, one value per pixel.
std::vector<uint16_t> greyRamp(int width, int height, int bits) {
    std::vector<uint16_t> s;
    const unsigned max = (1u << bits) - 1;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) s.push_back(uint16_t((x + y * 3) % (max + 1)));
    return s;
}

class PngGreyDepthTest : public ::testing::TestWithParam<int> {};

TEST_P(PngGreyDepthTest, ScalesToOutputDepth) {
    const int bits = GetParam();
    const int width = 37, height = 11;  // odd width exercises partial bytes at low depths
    const std::vector<uint16_t> samples = greyRamp(width, height, bits);
    PngParams params;
    params.colourType = 0;
    params.bitDepth = bits;
    const voimg::DecodedImage image = decodeOrFail(encodePng(width, height, samples, params));
    ASSERT_EQ(image.width, width);
    ASSERT_EQ(image.height, height);
    EXPECT_EQ(image.sixteenBit, bits == 16);
    EXPECT_FALSE(image.hasAlpha);
    const unsigned max = (1u << bits) - 1, outMax = bits == 16 ? 65535 : 255;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const unsigned want = samples[size_t(y) * width + x] * outMax / max;
            ASSERT_EQ(sampleAt(image, x, y, 0), want) << x << "," << y;
            ASSERT_EQ(sampleAt(image, x, y, 2), want);
            ASSERT_EQ(sampleAt(image, x, y, 3), outMax);
        }
}

INSTANTIATE_TEST_SUITE_P(Depths, PngGreyDepthTest, ::testing::Values(1, 2, 4, 8, 16));

TEST(PngDecode, Rgb8AndRgba8AreExact) {
    for (int channels : {3, 4}) {
        const Picture p = makeGradient(40, 30, channels);
        PngParams params;
        params.colourType = channels == 3 ? 2 : 6;
        const voimg::DecodedImage image = decodeOrFail(encodePng(40, 30, {p.samples.begin(), p.samples.end()}, params));
        EXPECT_EQ(image.hasAlpha, channels == 4);
        for (int y = 0; y < 30; ++y)
            for (int x = 0; x < 40; ++x)
                for (int c = 0; c < 4; ++c)
                    ASSERT_EQ(sampleAt(image, x, y, c), c < channels ? p.at(x, y)[c] : 255u);
    }
}

TEST(PngDecode, Rgba16KeepsSixteenBits) {
    std::vector<uint16_t> samples;
    for (int i = 0; i < 20 * 10; ++i)
        samples.insert(samples.end(),
                       {uint16_t(i * 321), uint16_t(65535 - i * 7), uint16_t(i * 13 + 1), uint16_t(i * 300)});
    PngParams params;
    params.colourType = 6;
    params.bitDepth = 16;
    const voimg::DecodedImage image = decodeOrFail(encodePng(20, 10, samples, params));
    ASSERT_TRUE(image.sixteenBit);
    EXPECT_TRUE(image.hasAlpha);
    for (int i = 0; i < 200; ++i)
        for (int c = 0; c < 4; ++c) ASSERT_EQ(sampleAt(image, i % 20, i / 20, c), samples[size_t(i) * 4 + c]);
}

TEST(PngDecode, GreyAlpha8And16) {
    for (int bits : {8, 16}) {
        std::vector<uint16_t> samples;
        const unsigned max = (1u << bits) - 1;
        for (int i = 0; i < 16 * 4; ++i) samples.insert(samples.end(), {uint16_t(i * max / 63), uint16_t(max - i)});
        PngParams params;
        params.colourType = 4;
        params.bitDepth = bits;
        const voimg::DecodedImage image = decodeOrFail(encodePng(16, 4, samples, params));
        EXPECT_TRUE(image.hasAlpha);
        for (int i = 0; i < 64; ++i) {
            ASSERT_EQ(sampleAt(image, i % 16, i / 16, 1), samples[size_t(i) * 2]);
            ASSERT_EQ(sampleAt(image, i % 16, i / 16, 3), samples[size_t(i) * 2 + 1]);
        }
    }
}

TEST(PngDecode, PaletteWithTransparency) {
    PngParams params;
    params.colourType = 3;
    params.bitDepth = 4;
    params.palette = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30};
    params.paletteAlpha = {0, 128};  // entries past the list are opaque
    std::vector<uint16_t> indices;
    for (int i = 0; i < 9 * 5; ++i) indices.push_back(uint16_t(i % 4));
    const voimg::DecodedImage image = decodeOrFail(encodePng(9, 5, indices, params));
    ASSERT_FALSE(image.sixteenBit);
    EXPECT_TRUE(image.hasAlpha);
    const unsigned alpha[4] = {0, 128, 255, 255};
    for (int i = 0; i < 45; ++i) {
        const int index = i % 4;
        for (int c = 0; c < 3; ++c) ASSERT_EQ(sampleAt(image, i % 9, i / 9, c), params.palette[size_t(index) * 3 + c]);
        ASSERT_EQ(sampleAt(image, i % 9, i / 9, 3), alpha[index]);
    }
}

TEST(PngDecode, GreyTransparentKey) {
    PngParams params;
    params.colourType = 0;
    params.greyTrns = 7;
    std::vector<uint16_t> samples;
    for (int i = 0; i < 64; ++i) samples.push_back(uint16_t(i));
    const voimg::DecodedImage image = decodeOrFail(encodePng(8, 8, samples, params));
    EXPECT_TRUE(image.hasAlpha);
    EXPECT_EQ(sampleAt(image, 7, 0, 3), 0u);
    EXPECT_EQ(sampleAt(image, 6, 0, 3), 255u);
}

TEST(PngDecode, InterlacedMatchesNonInterlaced) {
    for (int bits : {8, 16}) {
        const Picture p = makeGradient(33, 19, 4);
        std::vector<uint16_t> samples;
        for (uint8_t v : p.samples) samples.push_back(uint16_t(bits == 16 ? v * 257 : v));
        PngParams params;
        params.colourType = 6;
        params.bitDepth = bits;
        const voimg::DecodedImage flat = decodeOrFail(encodePng(33, 19, samples, params));
        params.interlaced = true;
        const voimg::DecodedImage interlaced = decodeOrFail(encodePng(33, 19, samples, params));
        EXPECT_EQ(flat.pixels, interlaced.pixels) << bits << " bits";
        EXPECT_EQ(sampleAt(interlaced, 32, 18, 0), samples[(18 * 33 + 32) * 4]);
    }
}

}  // namespace
