// SPDX-License-Identifier: MIT
#include "Engine/geometry.h"

#include <gtest/gtest.h>

namespace voimg {
namespace {

TEST(AffineTransform, AppendingAppliesTheFirstTransformFirst) {
    const AffineTransform moveThenScale = AffineTransform::translation(10, 0).appending(AffineTransform::scale(2, 2));
    EXPECT_EQ(moveThenScale.apply({1, 1}), (Point{22, 2}));
    const AffineTransform scaleThenMove = AffineTransform::scale(2, 2).appending(AffineTransform::translation(10, 0));
    EXPECT_EQ(scaleThenMove.apply({1, 1}), (Point{12, 2}));
}

TEST(AffineTransform, QuarterTurnsAreExact) {
    const AffineTransform r = AffineTransform::rotationDegrees(90);
    EXPECT_EQ(r.apply({1, 0}), (Point{0, 1}));
    EXPECT_EQ(r.applyToRect({0, 0, 10, 20}), (Rect{-20, 0, 20, 10}));
    EXPECT_EQ(AffineTransform::rotationDegrees(-90).apply({1, 0}), (Point{0, -1}));
}

TEST(AffineTransform, InverseUndoesTheTransform) {
    const AffineTransform t = AffineTransform::rotationDegrees(30).appending(AffineTransform{2, 0, 0, 3, 5, -7});
    const Point p = t.inverted().apply(t.apply({3, 4}));
    EXPECT_NEAR(p.x, 3, 1e-4);
    EXPECT_NEAR(p.y, 4, 1e-4);
    EXPECT_EQ(AffineTransform::scale(0, 1).inverted(), (AffineTransform{0, 0, 0, 0, 0, 0}));
}

TEST(Rect, InfiniteRectangleStaysInfiniteUnderTransforms) {
    EXPECT_TRUE(kInfiniteRect.isInfinite());
    EXPECT_TRUE(AffineTransform::scale(0.5f, 0.5f).applyToRect(kInfiniteRect).isInfinite());
    EXPECT_EQ(intersect(kInfiniteRect, Rect{1, 2, 3, 4}), (Rect{1, 2, 3, 4}));
    EXPECT_TRUE(unite(kInfiniteRect, Rect{1, 2, 3, 4}).isInfinite());
}

TEST(Rect, DisjointRectanglesIntersectInNothing) {
    EXPECT_TRUE(intersect(Rect{0, 0, 1, 1}, Rect{5, 5, 1, 1}).isEmpty());
    EXPECT_EQ(intersect(Rect{0, 0, 10, 10}, Rect{5, -5, 10, 10}), (Rect{5, 0, 5, 5}));
}

}  // namespace
}  // namespace voimg
