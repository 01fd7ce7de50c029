// SPDX-License-Identifier: MIT
// Crop, composite and transform folding of image values.
#include <gtest/gtest.h>

#include "Engine/nodes_p.h"
#include "engine_test_util.h"

namespace voimg {
namespace {

using test::floatPixelAt;
using test::makeSolidImage;
using test::pixelAt;

TEST(Image, MissingImageHasZeroExtentAndStaysMissing) {
    const Image missing;
    EXPECT_TRUE(missing.isNull());
    EXPECT_EQ(missing.extent(), kZeroRect);
    EXPECT_TRUE(missing.croppedTo({0, 0, 5, 5}).isNull());
    EXPECT_TRUE(missing.transformed(AffineTransform::scale(2, 2)).isNull());
}

TEST(Image, OperationsReturnNewValuesAndLeaveTheOriginal) {
    const Image a = makeSolidImage(10, 10, 1, 2, 3);
    const Image b = a.croppedTo({0, 0, 5, 5});
    const Image c = a.transformed(AffineTransform::identity());
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(a == c);
    EXPECT_EQ(a.extent(), (Rect{0, 0, 10, 10}));
}

TEST(Crop, ExtentIsTheIntersectionAndPixelsStayInPlace) {
    const Image a = makeSolidImage(10, 10, 255, 0, 0);
    const Image cropped = a.croppedTo({4, -3, 20, 5});
    EXPECT_EQ(cropped.extent(), (Rect{4, 0, 6, 2}));
    RenderContext context;
    const Bitmap b = context.createBitmap(cropped, {0, 0, 10, 10}, BitmapFormat::Rgba8);
    EXPECT_EQ(b.width, 6);
    EXPECT_EQ(b.height, 2);
    EXPECT_EQ(pixelAt(b, 0, 0)[0], 255);
}

TEST(Crop, FractionalEdgesArePartlyTransparent) {
    const Image a = makeSolidImage(10, 10, 255, 255, 255);
    const Image cropped = a.croppedTo({0.5f, 0, 5, 10});
    RenderContext context;
    const Bitmap b = context.createBitmap(cropped, cropped.extent(), BitmapFormat::RgbaFloatLinear);
    ASSERT_EQ(b.width, 6);
    EXPECT_FLOAT_EQ(floatPixelAt(b, 0, 5)[3], 0.5f);
    EXPECT_FLOAT_EQ(floatPixelAt(b, 1, 5)[3], 1.0f);
    EXPECT_FLOAT_EQ(floatPixelAt(b, 5, 5)[3], 0.5f);
}

TEST(Crop, CroppingToTheChildsOwnFractionalExtentChangesNothing) {
    // A scaled image ends inside its last column; cropping to a rectangle around it must not darken that
    // column a second time.
    const Image scaled = makeSolidImage(10, 10, 255, 255, 255).transformed(AffineTransform::scale(0.55f, 1));
    const Image cropped = scaled.croppedTo({0, 0, 100, 10});
    const Image tight = scaled.croppedTo(scaled.extent());
    RenderContext context;
    const Bitmap a = context.createBitmap(scaled, scaled.extent(), BitmapFormat::RgbaFloatLinear);
    const Bitmap b = context.createBitmap(cropped, cropped.extent(), BitmapFormat::RgbaFloatLinear);
    const Bitmap c = context.createBitmap(tight, tight.extent(), BitmapFormat::RgbaFloatLinear);
    ASSERT_EQ(a.width, 6);
    EXPECT_NEAR(floatPixelAt(a, 5, 5)[3], 0.5f, 1e-5);
    EXPECT_FLOAT_EQ(floatPixelAt(b, 5, 5)[3], floatPixelAt(a, 5, 5)[3]);
    EXPECT_FLOAT_EQ(floatPixelAt(c, 5, 5)[3], floatPixelAt(a, 5, 5)[3]);
    // A crop inside the partly covered column keeps only its share of it.
    const Image inner = scaled.croppedTo({0, 0, 5.25f, 10});
    const Bitmap d = context.createBitmap(inner, inner.extent(), BitmapFormat::RgbaFloatLinear);
    EXPECT_NEAR(floatPixelAt(d, 5, 5)[3], 0.25f, 1e-5);
}

TEST(Composite, SourceOverOnPremultipliedValues) {
    // Half-transparent red over opaque blue, in linear light: (0.5, 0, 0.5, 1).
    const Image red = makeSolidImage(4, 4, 255, 0, 0, 128);
    const Image blue = makeSolidImage(4, 4, 0, 0, 255);
    const Image over = red.compositedOver(blue);
    RenderContext context;
    const Bitmap b = context.createBitmap(over, over.extent(), BitmapFormat::RgbaFloatLinear);
    const float a = 128.0f / 255.0f;
    EXPECT_NEAR(floatPixelAt(b, 1, 1)[0], a, 1e-6);
    EXPECT_NEAR(floatPixelAt(b, 1, 1)[2], 1 - a, 1e-6);
    EXPECT_NEAR(floatPixelAt(b, 1, 1)[3], 1.0, 1e-6);
}

TEST(Composite, ExtentIsTheUnionAndAMissingOperandGivesTheOther) {
    const Image a = makeSolidImage(4, 4, 255, 0, 0).transformed(AffineTransform::translation(10, 0));
    const Image b = makeSolidImage(4, 4, 0, 255, 0);
    EXPECT_EQ(a.compositedOver(b).extent(), (Rect{0, 0, 14, 4}));
    EXPECT_EQ(a.compositedOver(Image()), a);
    EXPECT_EQ(Image().compositedOver(b), b);
    // Between the two the result is transparent.
    RenderContext context;
    const Image both = a.compositedOver(b);
    const Bitmap bitmap = context.createBitmap(both, both.extent(), BitmapFormat::Rgba8);
    EXPECT_EQ(pixelAt(bitmap, 7, 1)[3], 0);
    EXPECT_EQ(pixelAt(bitmap, 12, 1)[0], 255);
}

TEST(Transform, SuccessiveTransformsFoldIntoOneResampleKeepingStepwiseExtents) {
    const Image a = makeSolidImage(3000, 2000, 9, 9, 9);
    const Image scaled = a.transformed(AffineTransform::scale(0.075f, 0.075f));
    const Image moved = scaled.transformed(AffineTransform::translation(3983.5f, 0));
    const Image back = moved.croppedTo({0, 0, 8192, 150}).transformed(AffineTransform::translation(-3983.5f, 0));
    EXPECT_EQ(moved.extent(), (Rect{3983.5f, 0, 225, 150}));
    EXPECT_EQ(pixelRectEnclosing(back.extent()), (PixelRect{0, 0, 225, 150}));
    // One crop over one transform over the bitmap.
    const auto* crop = dynamic_cast<const CropNode*>(back.node().get());
    ASSERT_NE(crop, nullptr);
    const auto* affine = dynamic_cast<const AffineNode*>(crop->child().get());
    ASSERT_NE(affine, nullptr);
    EXPECT_NE(dynamic_cast<const BitmapNode*>(affine->child().get()), nullptr);
}

TEST(Transform, IntegerTranslationKeepsPixelsExact) {
    const Image a = test::makeImage(
        5, 5, [](int x, int y, uint8_t* p) { p[0] = uint8_t(x * 50), p[1] = uint8_t(y * 50), p[2] = 0, p[3] = 255; });
    const Image moved = a.transformed(AffineTransform::translation(-7, 3));
    EXPECT_EQ(moved.extent(), (Rect{-7, 3, 5, 5}));
    RenderContext context;
    const Bitmap b = context.createBitmap(moved, moved.extent(), BitmapFormat::Rgba8);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 5; ++x) {
            EXPECT_EQ(pixelAt(b, x, y)[0], x * 50);
            EXPECT_EQ(pixelAt(b, x, y)[1], y * 50);
        }
}

TEST(Transform, VerticalFlipReversesRows) {
    const Image a =
        test::makeImage(3, 4, [](int, int y, uint8_t* p) { p[0] = uint8_t(y * 60), p[1] = p[2] = 0, p[3] = 255; });
    const Image flipped = a.transformed(AffineTransform::scale(1, -1));
    EXPECT_EQ(flipped.extent(), (Rect{0, -4, 3, 4}));
    RenderContext context;
    const Bitmap b = context.createBitmap(flipped, flipped.extent(), BitmapFormat::Rgba8);
    for (int y = 0; y < 4; ++y) EXPECT_EQ(pixelAt(b, 1, y)[0], (3 - y) * 60);
}

}  // namespace
}  // namespace voimg
