// SPDX-License-Identifier: MIT
// The horizontal pass of the streaming resizer for a block of opaque 8-bit rows, taken in one piece: the
// same as converting each row to premultiplied linear light (toLinear) and filtering it (filterRow), at a
// fraction of the cost. The AVX-512 build (with VBMI) turns each column of up to sixteen rows into one
// register per channel, so that every tap is three multiply-adds with one broadcast weight for sixteen
// rows, where a row at a time needs shuffles to spread the weights and to sum each pixel's lanes; and the
// converted columns pass through a window a few dozen columns wide that stays in the first-level cache,
// where a converted row (16 bytes a pixel) does not. Alpha is left out of the arithmetic: an opaque
// pixel's filtered alpha is the sum of its weights.
#pragma once

#include <cstddef>
#include <cstdint>

#include "simd_target.h"

namespace voimg {

constexpr int kOpaqueBlockRows = 16;  // rows the kernel takes at most

struct RowTapsView {
    const float* weights = nullptr;  // `stride` per output pixel
    int stride = 0;
    const int64_t* first = nullptr;     // first source pixel per output pixel
    const int* count = nullptr;         // taps per output pixel
    const float* weightSums = nullptr;  // per output pixel, the sum of its weights
    int64_t outWidth = 0;
};

// Row i < rows (at most kOpaqueBlockRows) of `rgba` (at rgba + i x stride; RGBA bytes whose alpha is
// taken as opaque) filtered with `taps` into out[i] (outWidth premultiplied linear RGBA floats). Only the
// columns the taps name are read.
void filterOpaqueRows(const uint8_t* rgba, size_t stride, int rows, const RowTapsView& taps, float* const* out);

// The same with a given build: the scalar one converts and filters row by row, and is the reference; the
// AVX-512 one needs VBMI as well. False, with nothing written, when this processor does not run it.
bool filterOpaqueRowsWith(SimdBuild build, const uint8_t* rgba, size_t stride, int rows, const RowTapsView& taps,
                          float* const* out);

// Whether filterOpaqueRows takes the block kernel here rather than the row-by-row reference.
[[nodiscard]] bool opaqueRowsFilterIsFast();

}  // namespace voimg
