// SPDX-License-Identifier: MIT
#include "VoCompositionStage.h"

#include "Engine/simd_target.h"

namespace vo {

void factorCompositeScalar(const float* fg, const float* bg, float factor, float* out, size_t pixels) {
    for (size_t i = 0; i < pixels; ++i, fg += 4, bg += 4, out += 4) {
        const float keep = 1.0f - fg[3] * factor;
        for (int k = 0; k < 4; ++k) out[k] = fg[k] * factor + bg[k] * keep;
    }
}

void factorComposite(const float* fg, const float* bg, float factor, float* out, size_t pixels) {
    if (voimg::simdDisabledByEnvironment()) return factorCompositeScalar(fg, bg, factor, out, pixels);
    factorCompositeSimd(fg, bg, factor, out, pixels);
}

}  // namespace vo
