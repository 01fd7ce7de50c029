// SPDX-License-Identifier: MIT
// Inverse DCT of an 8x8 JPEG block straight to a smaller (or, for subsampled chroma, the same) grid: the
// low KX x KY coefficients through an NX x NY point inverse transform, scaled so that a flat block keeps
// its level. Shrinking this way is the ideal low-pass of the block, and chroma comes out at the luma
// grid's resolution without a separate upsampling step.
#pragma once

#include <cstdint>

namespace voimg::detail {

// Coefficients are quantised values with their quantisers: the low KY rows of KX, in natural order, and
// the DC coefficient must be 0: its share of every sample, exactly DC x its quantiser in eighths, comes as
// `dc`. Samples are written in eighths of a level, centred on 0 (add 128 after dividing by 8), modulo 2^16.
using ReducedIdct = void (*)(const int16_t* coefficients, const float* quant, int32_t dc, int16_t* out, int outStride);

// N each 1, 2, 4 or 8, and K = N or N / 2; null otherwise. `vector`: SSE2 code for rows of 4 or 8
// samples (AVX2 for 8 where the processor has it); else the scalar reference, which gives the same
// samples.
[[nodiscard]] ReducedIdct reducedIdctFor(int nx, int ny, int kx, int ky, bool vector);

}  // namespace voimg::detail
