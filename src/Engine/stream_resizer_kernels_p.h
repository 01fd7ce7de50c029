// SPDX-License-Identifier: MIT
// The streaming resizer's two hot loops on premultiplied RGBA floats. The SIMD build (AVX2 with FMA, whose
// fused multiply-adds halve the instructions) runs where the processor has it and VO_NOSIMD is not set
// (simd_target.h), the AVX-512 build where the processor has that; the scalar build is the reference they
// are tested against.
#pragma once

#include <cstdint>

#include "simd_target.h"

namespace voimg {

// out[o] = sum over k < count[o] of weights[o * stride + k] x in[first[o] + k], for o < outWidth (pixels).
void filterRow(const float* weights, int stride, const int64_t* first, const int* count, const float* in, float* out,
               int64_t outWidth);
void filterRowScalar(const float* weights, int stride, const int64_t* first, const int* count, const float* in,
                     float* out, int64_t outWidth);

// dst = sum of weights[k] x rows[k] over `count` (at least one) rows of `values` floats.
void sumRows(const float* const* rows, const float* weights, int count, float* dst, int64_t values);
void sumRowsScalar(const float* const* rows, const float* weights, int count, float* dst, int64_t values);

// sumRows for one output row while starting the next one's sum on the rows the two share, so that those are
// read once: also share = sum of shareWeights[k - skip] x rows[k] over skip <= k < count (skip < count).
void sumRowsAndShare(const float* const* rows, const float* weights, int count, int skip, const float* shareWeights,
                     float* dst, float* share, int64_t values);
void sumRowsAndShareScalar(const float* const* rows, const float* weights, int count, int skip,
                           const float* shareWeights, float* dst, float* share, int64_t values);

// The same with a given build; false, with nothing written, when this processor does not run it.
bool filterRowWith(SimdBuild build, const float* weights, int stride, const int64_t* first, const int* count,
                   const float* in, float* out, int64_t outWidth);
bool sumRowsWith(SimdBuild build, const float* const* rows, const float* weights, int count, float* dst,
                 int64_t values);
bool sumRowsAndShareWith(SimdBuild build, const float* const* rows, const float* weights, int count, int skip,
                         const float* shareWeights, float* dst, float* share, int64_t values);

}  // namespace voimg
