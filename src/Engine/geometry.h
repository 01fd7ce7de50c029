// SPDX-License-Identifier: MIT
// Geometry of the image plane: points, sizes, rectangles, four-vectors and affine transforms.
//
// The plane has its origin at the lower left and y growing upwards. All fields are 32-bit floats, as the
// toolkit's geometry is; arithmetic follows IEEE rules with no hidden rounding. The infinite rectangle is
// the float analogue of the platform's: origin (-FLT_MAX/2, -FLT_MAX/2), size (FLT_MAX, FLT_MAX), so that
// origin + size stays finite.
#pragma once

#include <cfloat>

namespace voimg {

struct Point {
    float x = 0, y = 0;
    friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
    float width = 0, height = 0;
    friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
    float x = 0, y = 0, width = 0, height = 0;

    [[nodiscard]] float minX() const { return x; }
    [[nodiscard]] float minY() const { return y; }
    [[nodiscard]] float maxX() const { return x + width; }
    [[nodiscard]] float maxY() const { return y + height; }
    [[nodiscard]] bool isEmpty() const { return !(width > 0) || !(height > 0); }
    [[nodiscard]] bool isInfinite() const;
    friend bool operator==(const Rect&, const Rect&) = default;
};

inline constexpr Rect kInfiniteRect{-FLT_MAX / 2, -FLT_MAX / 2, FLT_MAX, FLT_MAX};
inline constexpr Rect kZeroRect{0, 0, 0, 0};

inline bool Rect::isInfinite() const { return width >= FLT_MAX && height >= FLT_MAX; }

// Intersection; an infinite operand yields the other one, a disjoint pair yields the zero rectangle.
[[nodiscard]] Rect intersect(const Rect& a, const Rect& b);
// Bounding union; an empty operand yields the other one, an infinite one yields infinity.
[[nodiscard]] Rect unite(const Rect& a, const Rect& b);

// Four floats as the platform's image vector: a rectangle maps to (x, y, width, height).
struct Vector4 {
    float x = 0, y = 0, z = 0, w = 0;
    friend bool operator==(const Vector4&, const Vector4&) = default;
};

// Affine transform with the point mapping x' = m11*x + m21*y + tX, y' = m12*x + m22*y + tY.
struct AffineTransform {
    float m11 = 1, m12 = 0, m21 = 0, m22 = 1, tX = 0, tY = 0;

    [[nodiscard]] static AffineTransform identity() { return {}; }
    [[nodiscard]] static AffineTransform translation(float x, float y) { return {1, 0, 0, 1, x, y}; }
    [[nodiscard]] static AffineTransform scale(float sx, float sy) { return {sx, 0, 0, sy, 0, 0}; }
    // Counter-clockwise rotation (y-up plane) by degrees.
    [[nodiscard]] static AffineTransform rotationDegrees(float degrees);

    // The transform that applies this one first and `next` second.
    [[nodiscard]] AffineTransform appending(const AffineTransform& next) const;
    [[nodiscard]] Point apply(Point p) const { return {m11 * p.x + m21 * p.y + tX, m12 * p.x + m22 * p.y + tY}; }
    [[nodiscard]] float determinant() const { return m11 * m22 - m12 * m21; }
    // Inverse; a singular transform gives all zeros.
    [[nodiscard]] AffineTransform inverted() const;
    // No rotation or shear: the image of an axis-aligned rectangle is an axis-aligned rectangle.
    [[nodiscard]] bool isAxisAligned() const { return m12 == 0 && m21 == 0; }
    [[nodiscard]] bool isIdentity() const { return *this == AffineTransform{}; }
    // Bounding box of the transformed rectangle; an infinite rectangle stays infinite.
    [[nodiscard]] Rect applyToRect(const Rect& r) const;
    friend bool operator==(const AffineTransform&, const AffineTransform&) = default;
};

}  // namespace voimg
