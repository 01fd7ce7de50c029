// SPDX-License-Identifier: MIT
#include "geometry.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace voimg {

Rect intersect(const Rect& a, const Rect& b) {
    if (a.isInfinite()) return b;
    if (b.isInfinite()) return a;
    const float x0 = std::max(a.minX(), b.minX());
    const float y0 = std::max(a.minY(), b.minY());
    const float x1 = std::min(a.maxX(), b.maxX());
    const float y1 = std::min(a.maxY(), b.maxY());
    if (!(x1 > x0) || !(y1 > y0)) return kZeroRect;
    return {x0, y0, x1 - x0, y1 - y0};
}

Rect unite(const Rect& a, const Rect& b) {
    if (a.isInfinite() || b.isInfinite()) return kInfiniteRect;
    if (a.isEmpty()) return b;
    if (b.isEmpty()) return a;
    const float x0 = std::min(a.minX(), b.minX());
    const float y0 = std::min(a.minY(), b.minY());
    return {x0, y0, std::max(a.maxX(), b.maxX()) - x0, std::max(a.maxY(), b.maxY()) - y0};
}

AffineTransform AffineTransform::rotationDegrees(float degrees) {
    // Quarter turns are exact, so rotating by 90 degrees maps whole pixels to whole pixels.
    const double quarters = double(degrees) / 90.0;
    if (quarters == std::floor(quarters) && std::abs(quarters) < 1e9) {
        static constexpr float kCos[4] = {1, 0, -1, 0}, kSin[4] = {0, 1, 0, -1};
        const int q = int(((int64_t(quarters) % 4) + 4) % 4);
        return {kCos[q], kSin[q], -kSin[q], kCos[q], 0, 0};
    }
    const double radians = double(degrees) * std::numbers::pi / 180.0;
    const float c = float(std::cos(radians)), s = float(std::sin(radians));
    return {c, s, -s, c, 0, 0};
}

AffineTransform AffineTransform::appending(const AffineTransform& n) const {
    // Row-vector convention: [x y 1] * this * next.
    return {m11 * n.m11 + m12 * n.m21,        m11 * n.m12 + m12 * n.m22,
            m21 * n.m11 + m22 * n.m21,        m21 * n.m12 + m22 * n.m22,
            tX * n.m11 + tY * n.m21 + n.tX,   tX * n.m12 + tY * n.m22 + n.tY};
}

AffineTransform AffineTransform::inverted() const {
    const double det = double(m11) * m22 - double(m12) * m21;
    if (det == 0 || !std::isfinite(det)) return {0, 0, 0, 0, 0, 0};
    const double i11 = m22 / det, i12 = -m12 / det, i21 = -m21 / det, i22 = m11 / det;
    return {float(i11), float(i12), float(i21), float(i22), float(-(tX * i11 + tY * i21)),
            float(-(tX * i12 + tY * i22))};
}

Rect AffineTransform::applyToRect(const Rect& r) const {
    if (r.isInfinite()) return kInfiniteRect;
    const Point corners[4] = {apply({r.minX(), r.minY()}), apply({r.maxX(), r.minY()}),
                              apply({r.minX(), r.maxY()}), apply({r.maxX(), r.maxY()})};
    float x0 = corners[0].x, x1 = corners[0].x, y0 = corners[0].y, y1 = corners[0].y;
    for (const Point& p : corners) {
        x0 = std::min(x0, p.x), x1 = std::max(x1, p.x);
        y0 = std::min(y0, p.y), y1 = std::max(y1, p.y);
    }
    return {x0, y0, x1 - x0, y1 - y0};
}

}  // namespace voimg
