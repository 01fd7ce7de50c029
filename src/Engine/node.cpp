// SPDX-License-Identifier: MIT
#include "node.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace voimg {

namespace {
constexpr double kSnap = 1e-3;

double snapped(double v) {
    const double r = std::round(v);
    return std::abs(v - r) <= kSnap ? r : v;
}
}  // namespace

PixelRect intersect(const PixelRect& a, const PixelRect& b) {
    const int64_t x0 = std::max(a.x, b.x), y0 = std::max(a.y, b.y);
    const int64_t x1 = std::min(a.maxX(), b.maxX()), y1 = std::min(a.maxY(), b.maxY());
    if (x1 <= x0 || y1 <= y0) return {};
    return {x0, y0, x1 - x0, y1 - y0};
}

void TileView::clear() const {
    for (int64_t y = rect.y; y < rect.maxY(); ++y) std::memset(row(y), 0, size_t(rect.width) * 4 * sizeof(float));
}

TileBuffer::TileBuffer(const PixelRect& rect) : storage_(new float[size_t(rect.area()) * 4]) {
    view_ = {rect, storage_.get(), size_t(std::max<int64_t>(rect.width, 0)) * 4};
}

PixelRect pixelRectEnclosing(const Rect& r) {
    if (r.isInfinite() || r.isEmpty()) return {};
    const double x0 = snapped(r.x), y0 = snapped(r.y);
    const double x1 = snapped(double(r.x) + double(r.width)), y1 = snapped(double(r.y) + double(r.height));
    if (!std::isfinite(x0) || !std::isfinite(y0) || !std::isfinite(x1) || !std::isfinite(y1)) return {};
    constexpr double kLimit = 9.0e15;  // beyond this, int64 pixel arithmetic is no longer exact
    if (std::abs(x0) > kLimit || std::abs(y0) > kLimit || std::abs(x1) > kLimit || std::abs(y1) > kLimit) return {};
    const int64_t px0 = int64_t(std::floor(x0)), py0 = int64_t(std::floor(y0));
    const int64_t px1 = int64_t(std::ceil(x1)), py1 = int64_t(std::ceil(y1));
    if (px1 <= px0 || py1 <= py0) return {};
    return {px0, py0, px1 - px0, py1 - py0};
}

PixelRect clipToExtent(const PixelRect& r, const Rect& e) {
    if (e.isInfinite()) return r;
    if (e.isEmpty() || r.isEmpty()) return {};
    // Clamp in double before converting, so huge finite extents cannot overflow.
    const double x0 = std::max(double(r.x), std::floor(snapped(e.x)));
    const double y0 = std::max(double(r.y), std::floor(snapped(e.y)));
    const double x1 = std::min(double(r.maxX()), std::ceil(snapped(double(e.x) + double(e.width))));
    const double y1 = std::min(double(r.maxY()), std::ceil(snapped(double(e.y) + double(e.height))));
    if (!(x1 > x0) || !(y1 > y0)) return {};
    return {int64_t(x0), int64_t(y0), int64_t(x1 - x0), int64_t(y1 - y0)};
}

float spanCoverage(int64_t i, double lo, double hi) {
    const double a = std::max(double(i), snapped(lo)), b = std::min(double(i + 1), snapped(hi));
    return b > a ? float(b - a) : 0.0f;
}

}  // namespace voimg
