// SPDX-License-Identifier: MIT
// SIMD factor composition, compiled for the targets Highway supports; the AVX2 one runs where the processor
// has it (Engine/simd_target.h), else the scalar reference.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Common/CoreGraphics/VoCompositionStage_simd.cpp"
#include <hwy/foreach_target.h>  // must come before highway.h
#include <hwy/highway.h>

#include "Common/CoreGraphics/VoCompositionStage.h"
#include "Engine/simd_target.h"

HWY_BEFORE_NAMESPACE();
namespace vo {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void FactorComposite(const float* HWY_RESTRICT fg, const float* HWY_RESTRICT bg, float factor, float* HWY_RESTRICT out,
                     size_t pixels) {
    const hn::ScalableTag<float> d;
    const size_t lanes = hn::Lanes(d);
    const auto f = hn::Set(d, factor);
    const auto one = hn::Set(d, 1.0f);
    size_t i = 0;
    for (; i + lanes <= pixels; i += lanes) {
        // De-interleave so that alpha is its own vector.
        hn::Vec<decltype(d)> fr, fgc, fb, fa, br, bgc, bb, ba;
        hn::LoadInterleaved4(d, fg + 4 * i, fr, fgc, fb, fa);
        hn::LoadInterleaved4(d, bg + 4 * i, br, bgc, bb, ba);
        const auto topA = hn::Mul(fa, f);
        const auto keep = hn::Sub(one, topA);
        hn::StoreInterleaved4(hn::MulAdd(fr, f, hn::Mul(br, keep)), hn::MulAdd(fgc, f, hn::Mul(bgc, keep)),
                              hn::MulAdd(fb, f, hn::Mul(bb, keep)), hn::MulAdd(fa, f, hn::Mul(ba, keep)), d,
                              out + 4 * i);
    }
    factorCompositeScalar(fg + 4 * i, bg + 4 * i, factor, out + 4 * i, pixels - i);
}

}  // namespace HWY_NAMESPACE
}  // namespace vo
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vo {

void factorCompositeSimd(const float* fg, const float* bg, float factor, float* out, size_t pixels) {
#if HWY_TARGETS & HWY_AVX2
    if (voimg::cpuRunsAvx2()) return N_AVX2::FactorComposite(fg, bg, factor, out, pixels);
#endif
    factorCompositeScalar(fg, bg, factor, out, pixels);
}

}  // namespace vo
#endif
