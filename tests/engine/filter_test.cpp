// SPDX-License-Identifier: MIT
#include "Engine/filter.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "engine_test_util.h"

namespace voimg {
namespace {

TEST(Filter, KnownNamesOnly) {
    for (const char* name : {"CIAffineTransform", "CICrop", "CIConstantColorGenerator", "CISourceOverCompositing"}) {
        const auto f = Filter::filterWithName(name);
        ASSERT_NE(f, nullptr) << name;
        EXPECT_EQ(f->name(), name);
    }
    EXPECT_EQ(Filter::filterWithName("CINoSuchFilter"), nullptr);
}

TEST(Filter, InputsAreUnsetUntilDefaultsAreSet) {
    const auto f = Filter::filterWithName("CIConstantColorGenerator");
    EXPECT_TRUE(std::holds_alternative<std::monostate>(f->valueForKey("inputColor")));
    f->setDefaults();
    EXPECT_EQ(std::get<Color>(f->valueForKey("inputColor")), (Color{1, 0, 0, 1}));
    EXPECT_TRUE(std::get<Image>(f->valueForKey("outputImage")).extent().isInfinite());
}

TEST(Filter, UnknownKeysAndWrongKindsAreRejected) {
    const auto f = Filter::filterWithName("CICrop");
    EXPECT_THROW(f->setValue(1.0, "inputRadius"), std::invalid_argument);
    EXPECT_THROW(f->setValue(1.0, "inputRectangle"), std::invalid_argument);
    EXPECT_THROW((void)f->valueForKey("inputNothing"), std::invalid_argument);
}

TEST(Filter, AffineTransformWithoutAnImageGivesNothing) {
    const auto f = Filter::filterWithName("CIAffineTransform");
    f->setValue(AffineTransform::scale(2, 2), "inputTransform");
    EXPECT_TRUE(f->outputImage().isNull());
}

TEST(Filter, AffineTransformAndCropCompute) {
    const Image a = test::makeSolidImage(10, 20, 0, 0, 0);
    const auto t = Filter::filterWithName("CIAffineTransform");
    t->setValue(a, "inputImage");
    t->setValue(AffineTransform::scale(2, 0.5f), "inputTransform");
    EXPECT_EQ(t->outputImage().extent(), (Rect{0, 0, 20, 10}));
    EXPECT_EQ(std::get<AffineTransform>(t->valueForKey("inputTransform")), AffineTransform::scale(2, 0.5f));

    const auto c = Filter::filterWithName("CICrop");
    c->setValue(a, "inputImage");
    EXPECT_EQ(c->outputImage().extent(), a.extent());  // default rectangle: infinite
    c->setValue(Vector4{2, 3, 4, 5}, "inputRectangle");
    EXPECT_EQ(std::get<Image>(c->valueForKey("outputImage")).extent(), (Rect{2, 3, 4, 5}));
}

TEST(Filter, SourceOverComposites) {
    const auto f = Filter::filterWithName("CISourceOverCompositing");
    f->setValue(test::makeSolidImage(2, 2, 0, 0, 0), "inputImage");
    f->setValue(test::makeSolidImage(4, 4, 0, 0, 0), "inputBackgroundImage");
    EXPECT_EQ(f->outputImage().extent(), (Rect{0, 0, 4, 4}));
}

}  // namespace
}  // namespace voimg
