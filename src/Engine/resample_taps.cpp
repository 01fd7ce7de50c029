// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "resample_taps_p.h"

namespace voimg {

ResampleKernel ResampleKernel::forScale(double scale) {
    if (scale < 1.0) return {3.0, scale};
    return {1.0, 1.0};
}

double ResampleKernel::operator()(double x) const {
    x = std::abs(x);
    if (x >= radius) return 0.0;
    if (radius == 1.0) return 1.0 - x;
    if (x < 1e-9) return 1.0;
    const double px = std::numbers::pi * x;
    return radius * std::sin(px) * std::sin(px / radius) / (px * px);
}

namespace {

// The kernel at x0, x0 + step, x0 + 2 step, ...: Lanczos values from sines advanced by rotation, two sine
// evaluations per call instead of two per tap (the taps' sines were most of building the taps).
class KernelSeries {
public:
    KernelSeries(const ResampleKernel& kernel, double step)
        : kernel_(kernel), lanczos_(kernel.radius != 1.0), step_(step) {
        if (!lanczos_) return;
        const double d = std::numbers::pi * step;
        cosStep_ = std::cos(d), sinStep_ = std::sin(d);
        cosStepR_ = std::cos(d / kernel.radius), sinStepR_ = std::sin(d / kernel.radius);
    }

    // Writes the kernel at x0 + k * step for k < count to out.
    void fill(double x0, int count, double* out) const {
        if (!lanczos_) {
            for (int k = 0; k < count; ++k) out[k] = kernel_(x0 + k * step_);
            return;
        }
        const double r = kernel_.radius, p0 = std::numbers::pi * x0;
        double s = std::sin(p0), c = std::cos(p0), sr = std::sin(p0 / r), cr = std::cos(p0 / r);
        for (int k = 0; k < count; ++k) {
            const double x = x0 + k * step_, px = std::numbers::pi * x;
            out[k] = std::abs(x) >= r ? 0.0 : std::abs(x) < 1e-9 ? 1.0 : r * s * sr / (px * px);
            const double s1 = s * cosStep_ + c * sinStep_, sr1 = sr * cosStepR_ + cr * sinStepR_;
            c = c * cosStep_ - s * sinStep_, cr = cr * cosStepR_ - sr * sinStepR_;
            s = s1, sr = sr1;
        }
    }

private:
    ResampleKernel kernel_;
    bool lanczos_;
    double step_;
    double cosStep_ = 1, sinStep_ = 0, cosStepR_ = 1, sinStepR_ = 0;
};

}  // namespace

AxisTaps AxisTaps::build(int64_t outStart, int64_t n, double a, double b, const ResampleKernel& kernel, int64_t validLo,
                         int64_t validHi) {
    AxisTaps t;
    const double support = kernel.radius / kernel.scale;
    t.stride = int(std::min<double>(std::ceil(2 * support) + 2, double(std::max<int64_t>(validHi - validLo, 1))));
    t.first.resize(size_t(n));
    t.count.resize(size_t(n));
    t.weights.assign(size_t(n) * size_t(t.stride), 0.0f);
    t.lo = std::numeric_limits<int64_t>::max();
    t.hi = std::numeric_limits<int64_t>::min();
    std::vector<double> w(size_t(t.stride));
    const KernelSeries series(kernel, kernel.scale);
    for (int64_t o = 0; o < n; ++o) {
        const double c = a * (double(outStart + o) + 0.5) + b;
        // Pixel j (centre j + 0.5) contributes when |j + 0.5 - c| < support.
        const double jLo = std::max(std::floor(c - support - 0.5) + 1, double(validLo));
        const double jHi = std::min(std::ceil(c + support - 0.5) - 1, double(validHi - 1));
        int taps = 0;
        double sum = 0;
        if (jHi >= jLo) {
            const int64_t j0 = int64_t(jLo), j1 = std::min(int64_t(jHi), j0 + t.stride - 1);
            taps = int(j1 - j0 + 1);
            series.fill((double(j0) + 0.5 - c) * kernel.scale, taps, w.data());
            for (int k = 0; k < taps; ++k) sum += w[size_t(k)];
            t.first[size_t(o)] = j0;
            if (sum < 0.1) {
                // Only the far tail of the kernel lies inside: take the nearest existing pixel.
                const int64_t nearest = std::clamp<int64_t>(int64_t(std::floor(c)), j0, j1);
                t.first[size_t(o)] = nearest;
                taps = 1;
                w[0] = sum = 1.0;
            }
        }
        t.count[size_t(o)] = taps;
        float* dst = &t.weights[size_t(o) * size_t(t.stride)];
        for (int k = 0; k < taps; ++k) dst[k] = float(w[size_t(k)] / sum);
        if (taps > 0) {
            t.lo = std::min(t.lo, t.first[size_t(o)]);
            t.hi = std::max(t.hi, t.first[size_t(o)] + taps);
        }
    }
    return t;
}

void AxisTaps::padToMultipleOf(int multiple, int64_t validLo, int64_t validHi) {
    const int padded = (stride + multiple - 1) / multiple * multiple;
    std::vector<float> wider(first.size() * size_t(padded), 0.0f);
    for (size_t o = 0; o < first.size(); ++o) {
        const float* from = &weights[o * size_t(stride)];
        float* to = &wider[o * size_t(padded)];
        const int n = count[o];
        const int extra = (n + multiple - 1) / multiple * multiple - n;
        const int64_t after = std::min<int64_t>(extra, std::max<int64_t>(0, validHi - (first[o] + n)));
        const int64_t before = extra - after;
        if (n == 0 || extra == 0 || first[o] - before < validLo) {
            std::copy_n(from, n, to);
            continue;
        }
        std::copy_n(from, n, to + before);
        first[o] -= before;
        count[o] = n + extra;
        lo = std::min(lo, first[o]);
        hi = std::max(hi, first[o] + count[o]);
    }
    weights = std::move(wider);
    stride = padded;
}

}  // namespace voimg
