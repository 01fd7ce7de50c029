// SPDX-License-Identifier: MIT
// WebP decoding (lossy, lossless, alpha, scaled, animated) and HEIC/AVIF decoding (8 and 10 bits).
#include "test_support.h"

#include <gtest/gtest.h>

using namespace votest;

namespace {


// Compares quadrant centres of a decoded (possibly 16-bit) image with the 8-bit source, alpha included.
void expectQuadrants(const voimg::DecodedImage& image, const Picture& source, int tolerance8, bool checkAlpha) {
    const unsigned div = image.sixteenBit ? 257 : 1;
    for (const auto& [fx, fy] : {std::pair{0.25, 0.25}, {0.75, 0.25}, {0.25, 0.75}, {0.75, 0.75}}) {
        const int x = int(image.width * fx), y = int(image.height * fy);
        const uint8_t* want = source.at(int(source.width * fx), int(source.height * fy));
        for (int c = 0; c < (checkAlpha ? 4 : 3); ++c)
            EXPECT_NEAR(double(sampleAt(image, x, y, c)) / div, want[c], tolerance8) << x << "," << y << " c" << c;
    }
}

TEST(WebPDecode, LosslessWithAlphaIsExact) {
    const Picture p = makeGradient(50, 40, 4);
    const voimg::DecodedImage image = decodeOrFail(encodeWebP(p, true));
    ASSERT_EQ(image.width, 50);
    ASSERT_EQ(image.height, 40);
    EXPECT_TRUE(image.hasAlpha);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 50; ++x)
            for (int c = 0; c < 4; ++c) ASSERT_EQ(sampleAt(image, x, y, c), p.at(x, y)[c]);
}

TEST(WebPDecode, LossyOpaque) {
    const Picture p = rgbToRgba(makeQuadrants(64, 48));
    const voimg::DecodedImage image = decodeOrFail(encodeWebP(p, false, 95));
    EXPECT_FALSE(image.hasAlpha);
    expectQuadrants(image, p, 6, true);
}

TEST(WebPDecode, LossyWithAlpha) {
    const Picture p = makeQuadrants(64, 48, 4);
    const voimg::DecodedImage image = decodeOrFail(encodeWebP(p, false, 95));
    EXPECT_TRUE(image.hasAlpha);
    expectQuadrants(image, p, 6, true);
}

TEST(WebPDecode, ScaledDecodingRoundsUp) {
    const Bytes data = encodeWebP(rgbToRgba(makeQuadrants(100, 75)), false, 90);
    for (const auto& [n, w, h] : {std::tuple{2, 50, 38}, {3, 34, 25}, {8, 13, 10}}) {
        const voimg::DecodedImage image = decodeOrFail(data, n);
        EXPECT_EQ(image.width, w) << "scale " << n;
        EXPECT_EQ(image.height, h) << "scale " << n;
    }
    expectQuadrants(decodeOrFail(data, 4), rgbToRgba(makeQuadrants(100, 75)), 8, false);
}

TEST(WebPDecode, AnimatedGivesFirstFrame) {
    const Picture first = makeGradient(24, 16, 4);
    Picture second = first;
    for (auto& s : second.samples) s = uint8_t(255 - s);
    const voimg::DecodedImage image = decodeOrFail(animatedWebP(first, second));
    ASSERT_EQ(image.width, 24);
    ASSERT_EQ(image.height, 16);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 24; ++x)
            for (int c = 0; c < 4; ++c) ASSERT_EQ(sampleAt(image, x, y, c), first.at(x, y)[c]) << x << "," << y;
}

TEST(HeifDecode, Heic8Bit) {
    if (!haveHeifEncoder(false)) GTEST_SKIP() << "no HEVC encoder in libheif";
    const Picture p = rgbToRgba(makeQuadrants(64, 64));
    const Bytes data = encodeHeif(p, false, 8);
    ASSERT_FALSE(data.empty());
    const voimg::DecodedImage image = decodeOrFail(data);
    ASSERT_EQ(image.width, 64);
    ASSERT_EQ(image.height, 64);
    EXPECT_FALSE(image.sixteenBit);
    EXPECT_FALSE(image.hasAlpha);
    expectQuadrants(image, p, 8, true);
}

TEST(HeifDecode, Avif8BitWithAlpha) {
    if (!haveHeifEncoder(true)) GTEST_SKIP() << "no AV1 encoder in libheif";
    const Picture p = makeQuadrants(64, 64, 4);
    const Bytes data = encodeHeif(p, true, 8);
    ASSERT_FALSE(data.empty());
    const voimg::DecodedImage image = decodeOrFail(data);
    EXPECT_FALSE(image.sixteenBit);
    EXPECT_TRUE(image.hasAlpha);
    expectQuadrants(image, p, 8, true);
}

// Only HEIC here: the AV1 encoder of this platform (libaom through libheif) aborts on 10-bit input. Deep
// AVIF files take the same decoder path as deep HEIC ones.
TEST(HeifDecode, DeepHeicGivesSixteenBits) {
    if (!haveHeifEncoder(false)) GTEST_SKIP() << "no HEVC encoder in libheif";
    const Picture p = rgbToRgba(makeQuadrants(64, 64));
    const Bytes data = encodeHeif(p, false, 10);
    ASSERT_FALSE(data.empty());
    const voimg::DecodedImage image = decodeOrFail(data);
    EXPECT_TRUE(image.sixteenBit);
    EXPECT_FALSE(image.hasAlpha);
    expectQuadrants(image, p, 8, true);
    EXPECT_EQ(sampleAt(image, 1, 1, 3), 65535u);
}

}  // namespace
