// SPDX-License-Identifier: MIT
// AVX2 builds of the luma fit's kernels, eight floats to a vector; the scalar references are in
// luma_fit.cpp, and the vector fit chooses what they choose, where channels clip too. Compiled for
// Highway's AVX2 target only (simd_target.h says why the choice is made here).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Engine/codec/luma_fit_simd.cpp"
#include <hwy/foreach_target.h>  // must come before highway.h
#include <hwy/highway.h>

#include "Engine/codec/luma_fit_p.h"
#include "Engine/simd_target.h"

HWY_BEFORE_NAMESPACE();
namespace voimg::detail {
namespace HWY_NAMESPACE {
#if HWY_TARGET == HWY_AVX2
namespace hn = hwy::HWY_NAMESPACE;
using DF = hn::FixedTag<float, 8>;
using DI = hn::RebindToSigned<DF>;
using D8 = hn::Rebind<uint8_t, DF>;
using VF = hn::Vec<DF>;

// One block's row of bytes as floats, level-shifted.
HWY_INLINE VF LoadRow(const uint8_t* p) {
    const DF df;
    return hn::Sub(hn::ConvertTo(df, hn::PromoteTo(DI(), hn::LoadU(D8(), p))), hn::Set(df, 128.0f));
}

// out[i] = sum over j of weight(i, j) * rows[j]; the weights are broadcast from memory.
template <class Weight>
HWY_INLINE void Combine(const VF* rows, VF* out, Weight weight) {
    const DF df;
    for (int i = 0; i < 8; ++i) {
        VF acc = hn::Mul(hn::Set(df, weight(i, 0)), rows[0]);
        for (int j = 1; j < 8; ++j) acc = hn::MulAdd(hn::Set(df, weight(i, j)), rows[j], acc);
        out[i] = acc;
    }
}

void RoundTripBlocks(const uint8_t* plane, size_t stride, size_t blocks, uint8_t* out, const BlockTransform& t) {
    const DF df;
    const float* m = t.basis.data();
    const VF half = hn::Set(df, 0.5f);
    alignas(32) float spill[64];
    for (size_t b = 0; b < blocks; ++b) {
        VF f[8], a[8], c[8];
        for (size_t y = 0; y < 8; ++y) f[y] = LoadRow(plane + y * stride + b * 8);
        // Coefficients F = M f M^T: columns first (weights M[u][y]), then rows (the row's values times
        // the rows of M^T, which are M's columns).
        Combine(f, a, [&](int u, int y) { return m[u * 8 + y]; });
        for (size_t u = 0; u < 8; ++u) hn::Store(a[u], df, spill + u * 8);
        for (size_t x = 0; x < 8; ++x) c[x] = hn::Load(df, t.basisTransposed.data() + x * 8);
        Combine(c, a, [&](int u, int x) { return spill[u * 8 + x]; });
        // Quantised to the nearest step, halves away from zero.
        for (size_t u = 0; u < 8; ++u) {
            const VF q = hn::Mul(a[u], hn::Load(df, t.inverseStep.data() + u * 8));
            const VF rounded = hn::ConvertTo(df, hn::ConvertTo(DI(), hn::Add(q, hn::CopySign(half, q))));
            a[u] = hn::Mul(rounded, hn::Load(df, t.step.data() + u * 8));
        }
        // Back: M^T F M, columns first again.
        Combine(a, c, [&](int y, int u) { return m[u * 8 + y]; });
        for (size_t y = 0; y < 8; ++y) hn::Store(c[y], df, spill + y * 8);
        for (size_t v = 0; v < 8; ++v) f[v] = hn::Load(df, m + v * 8);
        Combine(f, c, [&](int y, int v) { return spill[y * 8 + v]; });
        for (size_t y = 0; y < 8; ++y) {
            const VF level = hn::Min(hn::Max(hn::Add(c[y], hn::Set(df, 128.0f)), hn::Zero(df)), hn::Set(df, 255.0f));
            const auto whole = hn::ConvertTo(DI(), hn::Add(level, hn::Set(df, 0.5f)));
            hn::StoreU(hn::DemoteTo(D8(), whole), D8(), out + y * stride + b * 8);
        }
    }
}

void UpsampleRow(const int32_t* sums, size_t halfWidth, float* out) {
    const DF df;
    const DI di;
    const auto three = hn::Set(di, 3), eight = hn::Set(di, 8), seven = hn::Set(di, 7);
    for (size_t i = 0; i < halfWidth; i += 8) {
        const auto centre = hn::Mul(hn::LoadU(di, sums + i + 1), three);
        const auto even = hn::ShiftRight<4>(hn::Add(hn::Add(centre, hn::LoadU(di, sums + i)), eight));
        const auto odd = hn::ShiftRight<4>(hn::Add(hn::Add(centre, hn::LoadU(di, sums + i + 2)), seven));
        hn::StoreInterleaved2(hn::ConvertTo(df, even), hn::ConvertTo(df, odd), df, out + 2 * i);
    }
}

// Squared distance of the colour a luma gives (each channel clipped as the decoder clips it) to the target.
HWY_INLINE VF FitError(VF luma, const VF target[3], const VF offset[3]) {
    const DF df;
    VF error = hn::Zero(df);
    for (int c = 0; c < 3; ++c) {
        const VF d = hn::Sub(hn::Min(hn::Max(hn::Add(luma, offset[c]), hn::Zero(df)), hn::Set(df, 255.0f)), target[c]);
        error = hn::Add(error, hn::Mul(d, d));
    }
    return error;
}

// The scalar bestFit for eight pixels: the same candidates in the same order, hence the same choice (every
// value involved is a whole number, a half or an exact quotient, so no rounding differs).
HWY_INLINE VF BestFit(const VF target[3], const VF offset[3], VF unclipped) {
    const DF df;
    const VF zero = hn::Zero(df), top = hn::Set(df, 255.0f), one = hn::Set(df, 1.0f), half = hn::Set(df, 0.5f);
    auto clampLevel = [&](VF v) { return hn::Min(hn::Max(v, zero), top); };
    // Where each channel starts and stops clipping, sorted (a sorting network for six); 0 and 255 bound them.
    VF p[8] = {zero};
    for (int c = 0; c < 3; ++c) {
        p[1 + 2 * c] = clampLevel(hn::Neg(offset[c]));
        p[2 + 2 * c] = clampLevel(hn::Sub(top, offset[c]));
    }
    p[7] = top;
    constexpr int kNetwork[12][2] = {{1, 6}, {2, 4}, {3, 5}, {2, 3}, {4, 5}, {1, 4},
                                     {3, 6}, {1, 2}, {3, 4}, {5, 6}, {2, 3}, {4, 5}};
    for (const auto& [i, j] : kNetwork) {
        const VF low = hn::Min(p[i], p[j]);
        p[j] = hn::Max(p[i], p[j]);
        p[i] = low;
    }
    VF best = clampLevel(unclipped);
    VF bestError = FitError(best, target, offset);
    for (int i = 0; i < 7; ++i) {
        const VF low = p[i], high = p[i + 1], middle = hn::Mul(hn::Add(low, high), half);
        VF sum = zero, active = zero;
        for (int c = 0; c < 3; ++c) {
            const VF value = hn::Add(middle, offset[c]);
            const auto inside = hn::And(hn::Gt(value, zero), hn::Lt(value, top));
            sum = hn::Add(sum, hn::IfThenElseZero(inside, hn::Sub(target[c], offset[c])));
            active = hn::Add(active, hn::IfThenElseZero(inside, one));
        }
        const VF mean = hn::Min(hn::Max(hn::Div(sum, hn::Max(active, one)), low), high);
        const VF candidate = hn::Floor(hn::IfThenElse(hn::Eq(active, zero), low, mean));
        const VF error = FitError(candidate, target, offset);
        const auto better = hn::Lt(error, bestError);
        best = hn::IfThenElse(better, candidate, best);
        bestError = hn::IfThenElse(better, error, bestError);
    }
    return best;
}

size_t FitLumaRow(const uint8_t* rgb, const float* cb, const float* cr, uint8_t* luma, size_t width) {
    const DF df;
    const D8 d8;
    const VF offset = hn::Set(df, 128.0f), third = hn::Set(df, 1.0f / 3.0f), top = hn::Set(df, 255.0f);
    const VF zero = hn::Zero(df), none = hn::Set(df, 1e30f);
    const VF crRed = hn::Set(df, kCrToRed), cbGreen = hn::Set(df, kCbToGreen), crGreen = hn::Set(df, kCrToGreen),
             cbBlue = hn::Set(df, kCbToBlue);
    size_t x = 0;
    for (; x + 8 <= width; x += 8) {
        hn::Vec<D8> r, g, b;
        hn::LoadInterleaved3(d8, rgb + x * 3, r, g, b);
        const VF target[3] = {hn::ConvertTo(df, hn::PromoteTo(DI(), r)), hn::ConvertTo(df, hn::PromoteTo(DI(), g)),
                              hn::ConvertTo(df, hn::PromoteTo(DI(), b))};
        const VF blue = hn::Sub(hn::LoadU(df, cb + x), offset), red = hn::Sub(hn::LoadU(df, cr + x), offset);
        const VF k[3] = {hn::Round(hn::Mul(crRed, red)),
                         hn::Round(hn::Add(hn::Mul(cbGreen, blue), hn::Mul(crGreen, red))),
                         hn::Round(hn::Mul(cbBlue, blue))};
        const VF fitted = hn::Round(hn::Mul(
            hn::Sub(hn::Add(hn::Add(target[0], target[1]), target[2]), hn::Add(hn::Add(k[0], k[1]), k[2])), third));
        // The same test as the scalar fit's: no channel clips, and the error stays below what a clipped
        // channel would cost.
        auto doubt = hn::Or(hn::Lt(fitted, zero), hn::Gt(fitted, top));
        VF error = zero, bound = none;
        for (int c = 0; c < 3; ++c) {
            const VF value = hn::Add(fitted, k[c]), d = hn::Sub(value, target[c]), above = hn::Sub(top, target[c]);
            error = hn::MulAdd(d, d, error);
            doubt = hn::Or(doubt, hn::Or(hn::Lt(value, zero), hn::Gt(value, top)));
            bound = hn::IfThenElse(hn::Lt(k[c], zero), hn::Min(bound, hn::Mul(target[c], target[c])), bound);
            bound = hn::IfThenElse(hn::Gt(k[c], zero), hn::Min(bound, hn::Mul(above, above)), bound);
        }
        doubt = hn::Or(doubt, hn::Gt(error, bound));
        const VF chosen = hn::AllFalse(df, doubt) ? fitted : hn::IfThenElse(doubt, BestFit(target, k, fitted), fitted);
        hn::StoreU(hn::DemoteTo(d8, hn::ConvertTo(DI(), chosen)), d8, luma + x);
    }
    return x;
}
#endif
}  // namespace HWY_NAMESPACE
}  // namespace voimg::detail
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace voimg::detail {

void roundTripBlocks(const uint8_t* plane, size_t stride, size_t blocks, uint8_t* out, const BlockTransform& t) {
#if HWY_TARGETS & HWY_AVX2
    if (simdEnabled()) return N_AVX2::RoundTripBlocks(plane, stride, blocks, out, t);
#endif
    roundTripBlocksScalar(plane, stride, blocks, out, t);
}

void upsampleChromaRow(const int32_t* sums, size_t halfWidth, float* out) {
#if HWY_TARGETS & HWY_AVX2
    if (simdEnabled()) return N_AVX2::UpsampleRow(sums, halfWidth, out);
#endif
    upsampleChromaRowScalar(sums, halfWidth, out);
}

size_t fitLumaRowQuick(const uint8_t* rgb, const float* cb, const float* cr, uint8_t* luma, size_t width) {
#if HWY_TARGETS & HWY_AVX2
    if (simdEnabled()) return N_AVX2::FitLumaRow(rgb, cb, cr, luma, width);
#endif
    (void)rgb, (void)cb, (void)cr, (void)luma, (void)width;
    return 0;
}

}  // namespace voimg::detail
#endif
