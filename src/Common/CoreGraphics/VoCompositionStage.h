// SPDX-License-Identifier: MIT
// The per-pixel stage of the factor composition kernel, on premultiplied RGBA floats:
//   top = foreground x factor; bottom = background x (1 - top.alpha); result = top + bottom.
// Factors above 1 are not clamped. The SIMD version (AVX2) runs where the processor has it; the scalar
// version is the reference it is tested against. Setting VO_NOSIMD=1 in the environment makes the SIMD
// entry point use the scalar code.
#pragma once

#include <cstddef>

namespace vo {

void factorCompositeScalar(const float* foreground, const float* background, float factor, float* out, size_t pixels);
void factorCompositeSimd(const float* foreground, const float* background, float factor, float* out, size_t pixels);
// The SIMD version unless VO_NOSIMD is set.
void factorComposite(const float* foreground, const float* background, float factor, float* out, size_t pixels);

}  // namespace vo
