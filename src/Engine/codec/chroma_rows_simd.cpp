// SPDX-License-Identifier: MIT
// AVX2 builds of the chroma rows' kernels, eight samples to a vector; the scalar references are in
// chroma_planes.cpp. Compiled for Highway's AVX2 target only (simd_target.h says why the choice is made here).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Engine/codec/chroma_rows_simd.cpp"
#include <hwy/foreach_target.h>  // must come before highway.h
#include <hwy/highway.h>

#include "Engine/codec/chroma_planes_p.h"
#include "Engine/simd_target.h"

HWY_BEFORE_NAMESPACE();
namespace voimg::detail {
namespace HWY_NAMESPACE {
#if HWY_TARGET == HWY_AVX2
namespace hn = hwy::HWY_NAMESPACE;
using DF = hn::FixedTag<float, 8>;
using DI = hn::RebindToSigned<DF>;
using DU = hn::RebindToUnsigned<DF>;
using D8 = hn::FixedTag<uint8_t, 16>;
using D16 = hn::Rebind<uint16_t, D8>;
using VF = hn::Vec<DF>;

// Eight blocks: sixteen pixels of each row, each channel widened and summed over the two rows, then the
// two pixels of a block added (the 16-bit lanes of a pair, read as one 32-bit lane).
size_t AverageBlocks(const uint8_t* top, const uint8_t* bottom, size_t blocks, float* cb, float* cr) {
    const DF df;
    const D8 d8;
    const D16 d16;
    const DU du;
    const auto low = hn::Set(du, 0xFFFFu);
    size_t b = 0;
    for (; b + 8 <= blocks; b += 8) {
        hn::Vec<D8> t[3], u[3];
        hn::LoadInterleaved3(d8, top + b * 6, t[0], t[1], t[2]);
        hn::LoadInterleaved3(d8, bottom + b * 6, u[0], u[1], u[2]);
        VF sum[3];
        for (int c = 0; c < 3; ++c) {
            const auto pairs = hn::BitCast(du, hn::Add(hn::PromoteTo(d16, t[c]), hn::PromoteTo(d16, u[c])));
            const auto blockSum = hn::Add(hn::And(pairs, low), hn::ShiftRight<16>(pairs));
            sum[c] = hn::ConvertTo(df, hn::BitCast(DI(), blockSum));
        }
        // As the scalar reference: JFIF's conversion of the sum, a quarter of it, the offset counted four
        // times taken off.
        const VF blue =
            hn::Add(hn::Add(hn::Sub(hn::Mul(hn::Set(df, -0.168736f), sum[0]), hn::Mul(hn::Set(df, 0.331264f), sum[1])),
                            hn::Mul(hn::Set(df, 0.5f), sum[2])),
                    hn::Set(df, 128.0f));
        const VF red =
            hn::Add(hn::Sub(hn::Sub(hn::Mul(hn::Set(df, 0.5f), sum[0]), hn::Mul(hn::Set(df, 0.418688f), sum[1])),
                            hn::Mul(hn::Set(df, 0.081312f), sum[2])),
                    hn::Set(df, 128.0f));
        hn::StoreU(hn::Add(hn::Mul(blue, hn::Set(df, 0.25f)), hn::Set(df, 96.0f)), df, cb + b);
        hn::StoreU(hn::Add(hn::Mul(red, hn::Set(df, 0.25f)), hn::Set(df, 96.0f)), df, cr + b);
    }
    return b;
}

size_t SharpenAlongColumns(const float* above, const float* current, const float* below, size_t width, float a,
                           uint8_t* out) {
    const DF df;
    const hn::Rebind<uint8_t, DF> d8;
    const VF centre = hn::Set(df, 1 + 2 * a), side = hn::Set(df, a), top = hn::Set(df, 255.0f);
    size_t x = 0;
    for (; x + 8 <= width; x += 8) {
        const VF v =
            hn::Sub(hn::Sub(hn::Mul(centre, hn::LoadU(df, current + x)), hn::Mul(side, hn::LoadU(df, above + x))),
                    hn::Mul(side, hn::LoadU(df, below + x)));
        const VF level = hn::Add(hn::Min(hn::Max(v, hn::Zero(df)), top), hn::Set(df, 0.5f));
        hn::StoreU(hn::DemoteTo(d8, hn::ConvertTo(DI(), level)), d8, out + x);
    }
    return x;
}
#endif
}  // namespace HWY_NAMESPACE
}  // namespace voimg::detail
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace voimg::detail {

void averageChromaBlocks(const uint8_t* top, const uint8_t* bottom, size_t blocks, float* cb, float* cr) {
    size_t done = 0;
#if HWY_TARGETS & HWY_AVX2
    if (simdEnabled()) done = N_AVX2::AverageBlocks(top, bottom, blocks, cb, cr);
#endif
    averageChromaBlocksScalar(top + done * 6, bottom + done * 6, blocks - done, cb + done, cr + done);
}

void sharpenAlongColumns(const float* above, const float* current, const float* below, size_t width, float a,
                         uint8_t* out) {
    size_t done = 0;
#if HWY_TARGETS & HWY_AVX2
    if (simdEnabled()) done = N_AVX2::SharpenAlongColumns(above, current, below, width, a, out);
#endif
    sharpenAlongColumnsScalar(above + done, current + done, below + done, width - done, a, out + done);
}

}  // namespace voimg::detail
#endif
