// SPDX-License-Identifier: MIT
#include "Engine/render_context.h"

#include <gtest/gtest.h>

#include "Engine/node.h"
#include "engine_test_util.h"

namespace voimg {
namespace {

using test::makeImage;
using test::makeSolidImage;
using test::pixelAt;

TEST(PixelGrid, FloatNoiseNeverAddsAColumn) {
    // 3000 x 0.075f is 225.0000153 in 32-bit floats.
    const float width = 3000.0f * 0.075f;
    EXPECT_GT(width, 225.0f);
    EXPECT_EQ(pixelRectEnclosing({0, 0, width, 150}), (PixelRect{0, 0, 225, 150}));
    EXPECT_EQ(pixelRectEnclosing({-0.0004f, 0.0009f, 10.0f, 10.0f}), (PixelRect{0, 0, 10, 10}));
    // Beyond 1/1000 of a pixel an edge is real and gets its own row.
    EXPECT_EQ(pixelRectEnclosing({0, 0.002f, 10.0f, 10.0f}), (PixelRect{0, 0, 10, 11}));
}

TEST(PixelGrid, FractionalEdgesRoundOutwards) {
    EXPECT_EQ(pixelRectEnclosing({0.5f, 0.25f, 10, 10}), (PixelRect{0, 0, 11, 11}));
    EXPECT_EQ(pixelRectEnclosing({-1.5f, -2.01f, 1, 1}), (PixelRect{-2, -3, 2, 2}));
    EXPECT_TRUE(pixelRectEnclosing(kInfiniteRect).isEmpty());
    EXPECT_TRUE(pixelRectEnclosing({0, 0, 0, 5}).isEmpty());
}

TEST(PixelGrid, RenderIntersectsTheRectangleWithTheExtent) {
    const Image image = makeSolidImage(20, 10, 0, 0, 0);
    EXPECT_EQ(RenderContext::pixelGrid(image, {5, -5, 100, 100}), (PixelRect{5, 0, 15, 10}));
    EXPECT_TRUE(RenderContext::pixelGrid(Image(), {0, 0, 10, 10}).isEmpty());
}

TEST(RenderContext, TopRowOfTheBitmapIsTheHighestRowOfThePlane) {
    // Top row red, the rest blue.
    const Image image = makeImage(4, 3, [](int, int y, uint8_t* p) {
        p[0] = y == 0 ? 255 : 0, p[1] = 0, p[2] = y == 0 ? 0 : 255, p[3] = 255;
    });
    RenderContext context(2);
    const Bitmap b = context.createBitmap(image, image.extent(), BitmapFormat::Rgba8);
    ASSERT_EQ(b.width, 4);
    ASSERT_EQ(b.height, 3);
    EXPECT_EQ(pixelAt(b, 0, 0)[0], 255);
    EXPECT_EQ(pixelAt(b, 0, 2)[2], 255);
    // Plane row 2 is the top row.
    const Bitmap top = context.createBitmap(image, {0, 2, 4, 1}, BitmapFormat::Rgba8);
    ASSERT_EQ(top.height, 1);
    EXPECT_EQ(pixelAt(top, 3, 0)[0], 255);
}

TEST(RenderContext, EightBitValuesRoundTripExactly) {
    const Image image = makeImage(256, 4, [](int x, int y, uint8_t* p) {
        p[0] = uint8_t(x), p[1] = uint8_t(255 - x), p[2] = uint8_t(x * 7), p[3] = 255;
    });
    RenderContext context;
    const Bitmap b = context.createBitmap(image, image.extent(), BitmapFormat::Rgba8);
    for (int x = 0; x < 256; ++x) {
        const uint8_t* p = pixelAt(b, x, 1);
        ASSERT_EQ(p[0], x);
        ASSERT_EQ(p[1], 255 - x);
        ASSERT_EQ(p[2], uint8_t(x * 7));
        ASSERT_EQ(p[3], 255);
    }
}

TEST(RenderContext, JpegFormatWritesPremultipliedColourOverBlack) {
    const Image half = makeSolidImage(2, 2, 255, 255, 255, 128);
    RenderContext context;
    const Bitmap b = context.createBitmap(half, half.extent(), BitmapFormat::Rgb8OverBlack);
    ASSERT_EQ(b.channels(), 3);
    // Linear 128/255 of white, sRGB encoded: 188.
    EXPECT_NEAR(pixelAt(b, 1, 1)[0], 188, 1);
}

TEST(RenderContext, ResultDoesNotDependOnTheNumberOfThreads) {
    const Image image = makeImage(300, 200, [](int x, int y, uint8_t* p) {
        p[0] = uint8_t(x * 3 + y), p[1] = uint8_t(x ^ y), p[2] = uint8_t(y * 5), p[3] = uint8_t(128 + x % 100);
    });
    const Image scaled = image.transformed(AffineTransform::scale(0.37f, 0.41f));
    RenderContext one(1), many(4);
    const Bitmap a = one.createBitmap(scaled, scaled.extent(), BitmapFormat::RgbaFloatLinear);
    const Bitmap b = many.createBitmap(scaled, scaled.extent(), BitmapFormat::RgbaFloatLinear);
    ASSERT_EQ(a.floats.size(), b.floats.size());
    EXPECT_EQ(a.floats, b.floats);
}

TEST(RenderContext, InfiniteAndHugeRendersGiveAnEmptyBitmap) {
    RenderContext context;
    const Image red = Image::withColor({1, 0, 0, 1});
    EXPECT_TRUE(context.createBitmap(red, red.extent(), BitmapFormat::Rgba8).isEmpty());
    EXPECT_TRUE(context.createBitmap(red, {0, 0, 100000, 100000}, BitmapFormat::Rgba8).isEmpty());
    EXPECT_TRUE(context.createBitmap(Image(), {0, 0, 10, 10}, BitmapFormat::Rgba8).isEmpty());
}

TEST(RenderContext, ConstantColourIsTheGivenSrgbColour) {
    RenderContext context;
    const Image c = Image::withColor({0.2f, 0.6f, 1.0f, 1.0f}).croppedTo({0, 0, 3, 3});
    const Bitmap b = context.createBitmap(c, c.extent(), BitmapFormat::Rgba8);
    ASSERT_EQ(b.width, 3);
    EXPECT_EQ(pixelAt(b, 1, 1)[0], 51);
    EXPECT_EQ(pixelAt(b, 1, 1)[1], 153);
    EXPECT_EQ(pixelAt(b, 1, 1)[2], 255);
    EXPECT_EQ(pixelAt(b, 1, 1)[3], 255);
}

}  // namespace
}  // namespace voimg
