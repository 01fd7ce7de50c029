// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "nodes_p.h"
#include "resample_p.h"
#include "resample_taps_p.h"

namespace voimg {

namespace {
constexpr int64_t kUnbounded = std::numeric_limits<int64_t>::max() / 4;
// Budget for one chunk of child rows pulled at a time.
constexpr size_t kChunkBytes = size_t(4) << 20;

// The child pixels that exist: the enclosing pixel rectangle of its extent, or everything.
PixelRect validPixels(const Rect& extent) {
    if (extent.isInfinite()) return {-kUnbounded, -kUnbounded, 2 * kUnbounded, 2 * kUnbounded};
    return clipToExtent({-kUnbounded, -kUnbounded, 2 * kUnbounded, 2 * kUnbounded}, extent);
}
}  // namespace

void resampleSeparable(const Node& child, const Rect& childExtent, const AffineTransform& t, const TileView& out) {
    const AffineTransform inv = t.inverted();
    const PixelRect valid = validPixels(childExtent);
    if (valid.isEmpty() || inv.m11 == 0 || inv.m22 == 0) return out.clear();
    const AxisTaps xt = AxisTaps::build(out.rect.x, out.rect.width, inv.m11, inv.tX,
                                        ResampleKernel::forScale(std::abs(double(t.m11))), valid.x, valid.maxX());
    const AxisTaps yt = AxisTaps::build(out.rect.y, out.rect.height, inv.m22, inv.tY,
                                        ResampleKernel::forScale(std::abs(double(t.m22))), valid.y, valid.maxY());
    if (xt.hi <= xt.lo || yt.hi <= yt.lo) return out.clear();

    // Horizontal pass: every needed child row filtered down to the output width.
    const int64_t srcWidth = xt.hi - xt.lo, rows = yt.hi - yt.lo, outWidth = out.rect.width;
    // Every value is written below before it is read.
    const std::unique_ptr<float[]> horizontal(new float[size_t(rows) * size_t(outWidth) * 4]);
    const int64_t chunkRows = std::max<int64_t>(1, int64_t(kChunkBytes / (size_t(srcWidth) * 16)));
    for (int64_t r0 = yt.lo; r0 < yt.hi; r0 += chunkRows) {
        const int64_t r1 = std::min(yt.hi, r0 + chunkRows);
        TileBuffer chunk({xt.lo, r0, srcWidth, r1 - r0});
        child.render(chunk.view());
        for (int64_t y = r0; y < r1; ++y) {
            const float* src = chunk.view().row(y);
            float* dst = &horizontal[size_t(y - yt.lo) * size_t(outWidth) * 4];
            for (int64_t o = 0; o < outWidth; ++o, dst += 4) {
                const float* w = &xt.weights[size_t(o) * size_t(xt.stride)];
                const float* s = src + size_t(xt.first[size_t(o)] - xt.lo) * 4;
                float r = 0, g = 0, b = 0, a = 0;
                for (int k = 0; k < xt.count[size_t(o)]; ++k, s += 4) {
                    r += w[k] * s[0], g += w[k] * s[1], b += w[k] * s[2], a += w[k] * s[3];
                }
                dst[0] = r, dst[1] = g, dst[2] = b, dst[3] = a;
            }
        }
    }

    // Vertical pass.
    for (int64_t o = 0; o < out.rect.height; ++o) {
        float* dst = out.row(out.rect.y + o);
        std::fill_n(dst, size_t(outWidth) * 4, 0.0f);
        const float* w = &yt.weights[size_t(o) * size_t(yt.stride)];
        for (int k = 0; k < yt.count[size_t(o)]; ++k) {
            const float* src = &horizontal[size_t(yt.first[size_t(o)] + k - yt.lo) * size_t(outWidth) * 4];
            const float wk = w[k];
            for (int64_t i = 0; i < outWidth * 4; ++i) dst[i] += wk * src[i];
        }
    }
}

void resampleSeparableReference(const Node& child, const Rect& childExtent, const AffineTransform& t,
                                const TileView& out) {
    const AffineTransform inv = t.inverted();
    const PixelRect valid = validPixels(childExtent);
    const ResampleKernel kx = ResampleKernel::forScale(std::abs(double(t.m11)));
    const ResampleKernel ky = ResampleKernel::forScale(std::abs(double(t.m22)));
    for (int64_t y = out.rect.y; y < out.rect.maxY(); ++y) {
        for (int64_t x = out.rect.x; x < out.rect.maxX(); ++x) {
            const double cx = inv.m11 * (x + 0.5) + inv.tX, cy = inv.m22 * (y + 0.5) + inv.tY;
            const double sx = kx.radius / kx.scale, sy = ky.radius / ky.scale;
            const PixelRect window = intersect(
                {int64_t(std::floor(cx - sx)), int64_t(std::floor(cy - sy)), int64_t(2 * sx + 2), int64_t(2 * sy + 2)},
                valid);
            double acc[4] = {0, 0, 0, 0}, wsum = 0;
            if (!window.isEmpty()) {
                TileBuffer src(window);
                child.render(src.view());
                double wxs = 0, wys = 0;
                for (int64_t j = window.x; j < window.maxX(); ++j) wxs += kx((j + 0.5 - cx) * kx.scale);
                for (int64_t i = window.y; i < window.maxY(); ++i) wys += ky((i + 0.5 - cy) * ky.scale);
                const bool xNearest = wxs < 0.1, yNearest = wys < 0.1;
                for (int64_t i = window.y; i < window.maxY(); ++i) {
                    const double wy = yNearest ? (i == std::clamp<int64_t>(int64_t(std::floor(cy)), window.y,
                                                                           window.maxY() - 1))
                                               : ky((i + 0.5 - cy) * ky.scale);
                    for (int64_t j = window.x; j < window.maxX(); ++j) {
                        const double wx = xNearest ? (j == std::clamp<int64_t>(int64_t(std::floor(cx)), window.x,
                                                                               window.maxX() - 1))
                                                   : kx((j + 0.5 - cx) * kx.scale);
                        const float* p = src.view().pixel(j, i);
                        for (int k = 0; k < 4; ++k) acc[k] += wx * wy * p[k];
                        wsum += wx * wy;
                    }
                }
            }
            float* d = out.pixel(x, y);
            for (int k = 0; k < 4; ++k) d[k] = wsum != 0 ? float(acc[k] / wsum) : 0.0f;
        }
    }
}

namespace {
// Singular values of the linear part: how much the transform stretches at most and at least.
void stretch(const AffineTransform& t, double& most, double& least) {
    const double a = t.m11, b = t.m12, c = t.m21, d = t.m22;
    const double s1 = a * a + b * b + c * c + d * d, det = std::abs(a * d - b * c);
    const double root = std::sqrt(std::max(0.0, s1 * s1 - 4 * det * det));
    most = std::sqrt((s1 + root) / 2);
    least = std::sqrt(std::max(0.0, (s1 - root) / 2));
}
}  // namespace

void resampleGeneral(const Node& child, const Rect& childExtent, const AffineTransform& t, const TileView& out) {
    double most = 0, least = 0;
    stretch(t, most, least);
    if (!(least > 0) || !std::isfinite(most)) return out.clear();
    if (most < 0.75) {
        // Shrink with the low-pass separable path first, leaving a transform that stretches about 1 at most.
        const AffineTransform pre = AffineTransform::scale(float(most), float(most));
        const AffineNode reduced(std::shared_ptr<const Node>(&child, [](const Node*) {}), pre,
                                 pre.applyToRect(childExtent));
        const AffineTransform rest = AffineTransform::scale(float(1 / most), float(1 / most)).appending(t);
        return resampleGeneral(reduced, reduced.extent(), rest, out);
    }
    const AffineTransform inv = t.inverted();
    // One bilinear sample at the pixel centre, as the platform samples, unless the transform still shrinks
    // along some direction; then a grid of samples averages the pixel's footprint.
    const int n = least >= 1.0 ? 1 : std::clamp(int(std::ceil(1.0 / least)), 2, 8);

    // The child region all samples may touch, one pixel wider for the bilinear neighbours. Outside it (and
    // outside the child's extent) the child reads as transparent.
    const Point c[4] = {inv.apply({float(out.rect.x), float(out.rect.y)}),
                        inv.apply({float(out.rect.maxX()), float(out.rect.y)}),
                        inv.apply({float(out.rect.x), float(out.rect.maxY())}),
                        inv.apply({float(out.rect.maxX()), float(out.rect.maxY())})};
    double x0 = c[0].x, x1 = c[0].x, y0 = c[0].y, y1 = c[0].y;
    for (const Point& p : c) {
        x0 = std::min<double>(x0, p.x), x1 = std::max<double>(x1, p.x);
        y0 = std::min<double>(y0, p.y), y1 = std::max<double>(y1, p.y);
    }
    const PixelRect need = clipToExtent(
        {int64_t(std::floor(x0)) - 1, int64_t(std::floor(y0)) - 1, int64_t(std::ceil(x1 - x0)) + 3,
         int64_t(std::ceil(y1 - y0)) + 3},
        childExtent);
    if (need.isEmpty() || need.area() > (int64_t(1) << 28)) return out.clear();
    TileBuffer buffer(need);
    child.render(buffer.view());
    const TileView& src = buffer.view();
    static const float kTransparent[4] = {0, 0, 0, 0};
    auto at = [&](int64_t x, int64_t y) -> const float* {
        if (x < need.x || y < need.y || x >= need.maxX() || y >= need.maxY()) return kTransparent;
        return src.pixel(x, y);
    };

    const float invN = 1.0f / float(n * n);
    for (int64_t y = out.rect.y; y < out.rect.maxY(); ++y) {
        float* d = out.row(y);
        for (int64_t x = out.rect.x; x < out.rect.maxX(); ++x, d += 4) {
            float acc[4] = {0, 0, 0, 0};
            for (int sy = 0; sy < n; ++sy) {
                for (int sx = 0; sx < n; ++sx) {
                    const double px = double(x) + (sx + 0.5) / n, py = double(y) + (sy + 0.5) / n;
                    // Bilinear between the four pixel centres around the sample point.
                    const double fx = inv.m11 * px + inv.m21 * py + inv.tX - 0.5;
                    const double fy = inv.m12 * px + inv.m22 * py + inv.tY - 0.5;
                    if (!(std::abs(fx) < 4e18 && std::abs(fy) < 4e18)) continue;
                    const int64_t ix = int64_t(std::floor(fx)), iy = int64_t(std::floor(fy));
                    const float wx = float(fx - double(ix)), wy = float(fy - double(iy));
                    const float *p00 = at(ix, iy), *p10 = at(ix + 1, iy), *p01 = at(ix, iy + 1),
                                *p11 = at(ix + 1, iy + 1);
                    for (int k = 0; k < 4; ++k) {
                        const float low = p00[k] + (p10[k] - p00[k]) * wx;
                        const float high = p01[k] + (p11[k] - p01[k]) * wx;
                        acc[k] += low + (high - low) * wy;
                    }
                }
            }
            for (int k = 0; k < 4; ++k) d[k] = acc[k] * invN;
        }
    }
}

}  // namespace voimg
