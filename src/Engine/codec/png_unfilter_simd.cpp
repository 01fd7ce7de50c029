// SPDX-License-Identifier: MIT
// SIMD PNG unfiltering for 3-, 4-, 6- and 8-byte pixels: each pixel's channels sit in 16-bit lanes of one vector,
// and the left-to-right dependency is carried from pixel to pixel in a register. Compiled for the targets
// Highway supports; the AVX2 one runs where the processor has it (simd_target.h), else the scalar reference.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Engine/codec/png_unfilter_simd.cpp"
#include <hwy/foreach_target.h>  // must come before highway.h
#include <hwy/highway.h>

#include <cstring>

#include "Engine/codec/png_unfilter_p.h"
#include "Engine/simd_target.h"

HWY_BEFORE_NAMESPACE();
namespace voimg::detail {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR
bool Unfilter(uint8_t filter, uint8_t* row, const uint8_t* previous, size_t bytes, int bpp) {
    return unfilterRowScalar(filter, row, previous, bytes, bpp);
}
#else

// Lanes for a pixel of kBpp bytes: four for 3 and 4 bytes, eight for 6 and 8 (16-bit samples).
template <int kBpp>
constexpr size_t kLanes = kBpp <= 4 ? 4 : 8;
template <int kBpp>
using D16 = hn::FixedTag<int16_t, kLanes<kBpp> >;
template <int kBpp>
using D8 = hn::FixedTag<uint8_t, kLanes<kBpp> >;
template <int kBpp>
using V16 = hn::Vec<D16<kBpp> >;

// a <= b, for lanes where only "less than" is available on integers.
template <class V>
HWY_INLINE auto LessOrEqual(V a, V b) {
    return hn::Not(hn::Lt(b, a));
}

// Runs `predict(left, up, upLeft)` along a row, pixel by pixel, adding each prediction to the stored
// bytes. A pixel is read and written with a whole vector while that stays inside the row: the lanes beyond
// the pixel then hold the next pixel's bytes, which are written back unchanged. The last pixel of a row
// whose pixels are shorter than the vector goes through a small buffer.
template <int kBpp, class Predict>
void unfilterWith(uint8_t* row, const uint8_t* previous, size_t pixels, Predict predict) {
    const D16<kBpp> d;
    const D8<kBpp> d8;
    const auto pixelLanes = hn::FirstN(d, kBpp);
    const auto low = hn::Set(d, 0xFF);  // sums wrap modulo 256, as the filters define them
    V16<kBpp> left = hn::Zero(d), upLeft = hn::Zero(d);
    for (size_t i = 0; i < pixels; ++i) {
        uint8_t* p = row + i * kBpp;
        const uint8_t* q = previous + i * kBpp;
        if (kBpp == kLanes<kBpp> || i + 1 < pixels) {
            const V16<kBpp> raw = hn::PromoteTo(d, hn::LoadU(d8, p));
            const V16<kBpp> up = hn::PromoteTo(d, hn::LoadU(d8, q));
            left = hn::And(hn::Add(raw, predict(left, up, upLeft)), low);
            hn::StoreU(hn::DemoteTo(d8, hn::IfThenElse(pixelLanes, left, raw)), d8, p);
            upLeft = up;
            continue;
        }
        uint8_t rawBytes[kLanes<kBpp>] = {}, upBytes[kLanes<kBpp>] = {}, out[kLanes<kBpp>];
        std::memcpy(rawBytes, p, kBpp);
        std::memcpy(upBytes, q, kBpp);
        const V16<kBpp> up = hn::PromoteTo(d, hn::LoadU(d8, upBytes));
        left = hn::And(hn::Add(hn::PromoteTo(d, hn::LoadU(d8, rawBytes)), predict(left, up, upLeft)), low);
        hn::StoreU(hn::DemoteTo(d8, left), d8, out);
        std::memcpy(p, out, kBpp);
        upLeft = up;
    }
}

template <int kBpp>
void unfilterSub(uint8_t* row, const uint8_t* previous, size_t pixels) {
    unfilterWith<kBpp>(row, previous, pixels, [](V16<kBpp> left, V16<kBpp>, V16<kBpp>) { return left; });
}

template <int kBpp>
void unfilterAverage(uint8_t* row, const uint8_t* previous, size_t pixels) {
    unfilterWith<kBpp>(row, previous, pixels,
                       [](V16<kBpp> left, V16<kBpp> up, V16<kBpp>) { return hn::ShiftRight<1>(hn::Add(left, up)); });
}

template <int kBpp>
void unfilterPaeth(uint8_t* row, const uint8_t* previous, size_t pixels) {
    unfilterWith<kBpp>(row, previous, pixels, [](V16<kBpp> left, V16<kBpp> up, V16<kBpp> upLeft) {
        const V16<kBpp> pa = hn::Abs(hn::Sub(up, upLeft));
        const V16<kBpp> pb = hn::Abs(hn::Sub(left, upLeft));
        const V16<kBpp> pc = hn::Abs(hn::Sub(hn::Add(left, up), hn::Add(upLeft, upLeft)));
        // left when pa is smallest (ties to left), else up when pb <= pc, else upLeft.
        const auto useLeft = hn::And(LessOrEqual(pa, pb), LessOrEqual(pa, pc));
        return hn::IfThenElse(useLeft, left, hn::IfThenElse(LessOrEqual(pb, pc), up, upLeft));
    });
}

template <int kBpp>
bool unfilterPixels(uint8_t filter, uint8_t* row, const uint8_t* previous, size_t bytes) {
    const size_t pixels = bytes / kBpp;
    switch (filter) {
        case 1:
            unfilterSub<kBpp>(row, previous, pixels);
            return true;
        case 3:
            unfilterAverage<kBpp>(row, previous, pixels);
            return true;
        case 4:
            unfilterPaeth<kBpp>(row, previous, pixels);
            return true;
        default:
            return unfilterRowScalar(filter, row, previous, bytes, kBpp);
    }
}

bool Unfilter(uint8_t filter, uint8_t* row, const uint8_t* previous, size_t bytes, int bpp) {
    if (bpp == 4 && bytes % 4 == 0) return unfilterPixels<4>(filter, row, previous, bytes);
    if (bpp == 3 && bytes % 3 == 0) return unfilterPixels<3>(filter, row, previous, bytes);
    if (bpp == 8 && bytes % 8 == 0) return unfilterPixels<8>(filter, row, previous, bytes);
    if (bpp == 6 && bytes % 6 == 0) return unfilterPixels<6>(filter, row, previous, bytes);
    return unfilterRowScalar(filter, row, previous, bytes, bpp);
}
#endif

}  // namespace HWY_NAMESPACE
}  // namespace voimg::detail
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace voimg::detail {

bool unfilterRowSimd(uint8_t filter, uint8_t* row, const uint8_t* previous, size_t bytes, int bpp) {
#if HWY_TARGETS & HWY_AVX2
    if (cpuRunsAvx2()) return N_AVX2::Unfilter(filter, row, previous, bytes, bpp);
#endif
    return unfilterRowScalar(filter, row, previous, bytes, bpp);
}

}  // namespace voimg::detail
#endif
