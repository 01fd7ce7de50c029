// SPDX-License-Identifier: MIT
// Decoded rows (sRGB, straight alpha, RGBA bytes or 16-bit samples) to premultiplied linear-light floats,
// the form the resizers work in.
#pragma once

#include <cstdint>

#include "simd_target.h"

namespace voimg {

// How a row's pixels are stored, so that the conversion does no more than it must.
struct RowLayout {
    bool sixteenBit = false;
    bool alpha = false;  // false: every pixel is opaque
    bool grey = false;   // true: red, green and blue are equal in every pixel
};

// Pixels [begin, end) of `row` to out[begin * 4 ...].
void toLinear(const uint8_t* row, int64_t begin, int64_t end, RowLayout layout, float* out);

// The averages of runs of `box` pixels (the last run, at `width`, may be shorter) for runs [begin, end) of
// an 8-bit row, to out[begin * 4 ...]: the same as toLinear followed by averaging, without writing the
// full-width row.
void toLinearBoxed(const uint8_t* row, int64_t begin, int64_t end, int box, int64_t width, RowLayout layout,
                   float* out);

// ---- The kernel behind toLinear for colour rows of 8-bit samples: `pixels` RGBA pixels to premultiplied
// linear RGBA, alpha taken as 1 unless `alpha`. The scalar build is the reference; the AVX-512 build (with
// VBMI) runs where the processor has it and the switches allow (simd_target.h). The With form runs the
// given build: false, with nothing written, when this processor does not run it (there is no AVX2 build).
void linearColourPixels(const uint8_t* rgba, int64_t pixels, bool alpha, float* out);
bool linearColourPixelsWith(SimdBuild build, const uint8_t* rgba, int64_t pixels, bool alpha, float* out);

}  // namespace voimg
