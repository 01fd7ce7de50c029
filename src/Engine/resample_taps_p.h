// SPDX-License-Identifier: MIT
// Filter taps along one axis of a separable resample.
#pragma once

#include <cstdint>
#include <vector>

namespace voimg {

// Lanczos-3 when shrinking (scale < 1, widened by 1/scale), the linear "tent" when enlarging.
struct ResampleKernel {
    double radius;  // in kernel units
    double scale;   // source distance x scale = kernel argument
    [[nodiscard]] static ResampleKernel forScale(double scale);
    [[nodiscard]] double operator()(double x) const;
};

// For output pixels outStart .. outStart+count-1 along one axis, with the source coordinate of an output
// coordinate c being a*c + b: which source pixels contribute and with what weights. Source pixels are
// limited to [validLo, validHi).
struct AxisTaps {
    std::vector<int64_t> first;  // first source pixel per output pixel
    std::vector<int> count;      // number of taps per output pixel (0: nothing contributes)
    std::vector<float> weights;  // `stride` weights per output pixel
    int stride = 0;
    int64_t lo = 0, hi = 0;  // union of the source pixels used; hi <= lo when none

    static AxisTaps build(int64_t outStart, int64_t count, double a, double b, const ResampleKernel& kernel,
                          int64_t validLo, int64_t validHi);

    // Pads every output pixel's taps with zero weights to a multiple of `multiple`, at the end or, where
    // [validLo, validHi) ends first, at the start: a filter loop that takes the taps `multiple` at a time
    // then never has a remainder, and runs the same number of times for each pixel of a steady shrink.
    // Pixels without room for the padding are left as they are.
    void padToMultipleOf(int multiple, int64_t validLo, int64_t validHi);
};

}  // namespace voimg
