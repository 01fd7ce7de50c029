// SPDX-License-Identifier: MIT
// Compiled once per Highway target (the code is plain C++ with vectors of four to sixteen floats; the target
// decides the instructions): the AVX2 build runs where the processor has it, the baseline build of the
// plain loops is the scalar reference. Nothing here calls into the standard library, so no out-of-line copy of a
// library function can be compiled for a wider target than the processor runs.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Engine/stream_resizer_kernels_simd.cpp"
#include <hwy/foreach_target.h>  // must come before highway.h
#include <hwy/highway.h>

#include <cstring>

#include "Engine/simd_target.h"
#include "Engine/stream_resizer_kernels_p.h"

HWY_BEFORE_NAMESPACE();
namespace voimg {
namespace HWY_NAMESPACE {

// One premultiplied RGBA pixel in a 128-bit register.
using Pixel = float __attribute__((vector_size(16)));

HWY_INLINE Pixel LoadPixel(const float* p) {
    Pixel v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}
HWY_INLINE void StorePixel(float* p, Pixel v) { __builtin_memcpy(p, &v, sizeof v); }

// The reference: one pixel's taps at a time, in four independent sums so that consecutive taps do not wait
// for each other's additions.
void FilterRowByPixel(const float* weights, int stride, const int64_t* first, const int* count, const float* in,
                      float* out, int64_t outWidth) {
    for (int64_t o = 0; o < outWidth; ++o) {
        const float* w = weights + o * stride;
        const float* s = in + first[o] * 4;
        const int n = count[o];
        Pixel s0 = {0, 0, 0, 0}, s1 = s0, s2 = s0, s3 = s0;
        int k = 0;
        for (; k + 4 <= n; k += 4) {
            s0 += LoadPixel(s + k * 4) * w[k];
            s1 += LoadPixel(s + k * 4 + 4) * w[k + 1];
            s2 += LoadPixel(s + k * 4 + 8) * w[k + 2];
            s3 += LoadPixel(s + k * 4 + 12) * w[k + 3];
        }
        for (; k < n; ++k) s0 += LoadPixel(s + k * 4) * w[k];
        StorePixel(out + o * 4, (s0 + s1) + (s2 + s3));
    }
}

// Two neighbouring source pixels in one eight-float register.
using PixelPair = float __attribute__((vector_size(32)));

#if HWY_TARGET == HWY_AVX2  // the only build that calls it; eight-float vectors need AVX
HWY_INLINE PixelPair LoadPair(const float* p) {
    PixelPair v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}

// Two taps per multiply-add: a pair of source pixels times its two weights, each spread over four lanes.
// Half the multiply-adds of the reference and far fewer loads (one load brings four weights), which is
// what bounds the reference on wide vectors. The pair sums fold into one pixel at the end.
void FilterRowByPairs(const float* weights, int stride, const int64_t* first, const int* count, const float* in,
                      float* out, int64_t outWidth) {
    for (int64_t o = 0; o < outWidth; ++o) {
        const float* w = weights + o * stride;
        const float* s = in + first[o] * 4;
        const int n = count[o];
        PixelPair a0 = {0, 0, 0, 0, 0, 0, 0, 0}, a1 = a0, a2 = a0, a3 = a0;
        int k = 0;
        for (; k + 8 <= n; k += 8) {
            const Pixel w0 = LoadPixel(w + k), w1 = LoadPixel(w + k + 4);
            a0 += LoadPair(s + k * 4) * __builtin_shufflevector(w0, w0, 0, 0, 0, 0, 1, 1, 1, 1);
            a1 += LoadPair(s + k * 4 + 8) * __builtin_shufflevector(w0, w0, 2, 2, 2, 2, 3, 3, 3, 3);
            a2 += LoadPair(s + k * 4 + 16) * __builtin_shufflevector(w1, w1, 0, 0, 0, 0, 1, 1, 1, 1);
            a3 += LoadPair(s + k * 4 + 24) * __builtin_shufflevector(w1, w1, 2, 2, 2, 2, 3, 3, 3, 3);
        }
        if (k + 4 <= n) {
            const Pixel w0 = LoadPixel(w + k);
            a0 += LoadPair(s + k * 4) * __builtin_shufflevector(w0, w0, 0, 0, 0, 0, 1, 1, 1, 1);
            a1 += LoadPair(s + k * 4 + 8) * __builtin_shufflevector(w0, w0, 2, 2, 2, 2, 3, 3, 3, 3);
            k += 4;
        }
        const PixelPair sum = (a0 + a1) + (a2 + a3);
        Pixel pixel = __builtin_shufflevector(sum, sum, 0, 1, 2, 3) + __builtin_shufflevector(sum, sum, 4, 5, 6, 7);
        for (; k < n; ++k) pixel += LoadPixel(s + k * 4) * w[k];
        StorePixel(out + o * 4, pixel);
    }
}
#endif

#if HWY_TARGET == HWY_AVX3  // sixteen-float vectors: four source pixels per multiply-add
using PixelQuad = float __attribute__((vector_size(64)));

HWY_INLINE PixelQuad LoadQuad(const float* p) {
    PixelQuad v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}

// Four weights, each spread over the four lanes of its pixel. Written with the intrinsic: the compiler's
// own widening shuffle goes through memory, which costs a store-forwarding stall every time. (Weights
// stored spread out beforehand would save the shuffle but quadruple the weights read, which costs more.)
HWY_INLINE PixelQuad SpreadWeights(const float* w) {
    const __m512i index = _mm512_set_epi32(3, 3, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1, 0, 0, 0, 0);
    return PixelQuad(_mm512_permutexvar_ps(index, _mm512_castps128_ps512(_mm_loadu_ps(w))));
}

// The pair method with twice the width: four taps per multiply-add, folded into one pixel at the end.
void FilterRowByQuads(const float* weights, int stride, const int64_t* first, const int* count, const float* in,
                      float* out, int64_t outWidth) {
    for (int64_t o = 0; o < outWidth; ++o) {
        const float* w = weights + o * stride;
        const float* s = in + first[o] * 4;
        const int n = count[o];
        PixelQuad a0 = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, a1 = a0;
        int k = 0;
        for (; k + 8 <= n; k += 8) {
            a0 += LoadQuad(s + k * 4) * SpreadWeights(w + k);
            a1 += LoadQuad(s + k * 4 + 16) * SpreadWeights(w + k + 4);
        }
        if (k + 4 <= n) {
            a0 += LoadQuad(s + k * 4) * SpreadWeights(w + k);
            k += 4;
        }
        const PixelQuad sum = a0 + a1;
        const PixelPair half = __builtin_shufflevector(sum, sum, 0, 1, 2, 3, 4, 5, 6, 7) +
                               __builtin_shufflevector(sum, sum, 8, 9, 10, 11, 12, 13, 14, 15);
        Pixel pixel = __builtin_shufflevector(half, half, 0, 1, 2, 3) + __builtin_shufflevector(half, half, 4, 5, 6, 7);
        for (; k < n; ++k) pixel += LoadPixel(s + k * 4) * w[k];
        StorePixel(out + o * 4, pixel);
    }
}
#endif

// Four rows per pass over dst, so dst is read and written a quarter as often.
void SumRows(const float* const* rows, const float* weights, int count, float* dst, int64_t values) {
    int k = count < 4 ? count : 4;
    {
        const float* r[4];
        float w[4];
        for (int j = 0; j < 4; ++j) r[j] = rows[j < k ? j : k - 1], w[j] = j < k ? weights[j] : 0.0f;
        for (int64_t i = 0; i < values; ++i)
            dst[i] = (r[0][i] * w[0] + r[1][i] * w[1]) + (r[2][i] * w[2] + r[3][i] * w[3]);
    }
    for (; k + 4 <= count; k += 4) {
        const float *r0 = rows[k], *r1 = rows[k + 1], *r2 = rows[k + 2], *r3 = rows[k + 3];
        const float w0 = weights[k], w1 = weights[k + 1], w2 = weights[k + 2], w3 = weights[k + 3];
        for (int64_t i = 0; i < values; ++i) dst[i] += (r0[i] * w0 + r1[i] * w1) + (r2[i] * w2 + r3[i] * w3);
    }
    for (; k < count; ++k)
        for (int64_t i = 0; i < values; ++i) dst[i] += rows[k][i] * weights[k];
}

// One register of floats: sixteen on AVX-512, eight below.
#if HWY_TARGET <= HWY_AVX3
constexpr int64_t kRegisterFloats = 16;
#else
constexpr int64_t kRegisterFloats = 8;
#endif
using Register = float __attribute__((vector_size(kRegisterFloats * sizeof(float))));

HWY_INLINE Register LoadRegister(const float* p) {
    Register v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}

// Four registers of values: a run of a row, or its weighted sum over rows. Named members rather than an
// array, so that the compiler keeps a sum in registers across the loop over the rows.
struct Run {
    Register a, b, c, d;
};

HWY_INLINE Run LoadRun(const float* p) {
    constexpr int64_t n = kRegisterFloats;
    return {LoadRegister(p), LoadRegister(p + n), LoadRegister(p + 2 * n), LoadRegister(p + 3 * n)};
}
HWY_INLINE void AddWeighted(Run& sum, const Run& r, float w) {
    sum.a += r.a * w, sum.b += r.b * w, sum.c += r.c * w, sum.d += r.d * w;
}
HWY_INLINE void StoreRun(float* p, const Run& r) {
    constexpr int64_t n = kRegisterFloats;
    __builtin_memcpy(p, &r.a, sizeof r.a);
    __builtin_memcpy(p + n, &r.b, sizeof r.b);
    __builtin_memcpy(p + 2 * n, &r.c, sizeof r.c);
    __builtin_memcpy(p + 3 * n, &r.d, sizeof r.d);
}

// The SIMD builds: each run of four registers of values is summed over all the rows in registers and
// stored once, so the rows are read once and the destination written once (summing four rows at a time
// into the destination reads and writes it again for every four rows, and the rows of a large shrink do
// not stay in the cache beside everything else in flight).
void SumRowsInRuns(const float* const* rows, const float* weights, int count, float* dst, int64_t values) {
    constexpr int64_t n = kRegisterFloats;
    int64_t i = 0;
    for (; i + 4 * n <= values; i += 4 * n) {
        Run s = {};
        for (int k = 0; k < count; ++k) AddWeighted(s, LoadRun(rows[k] + i), weights[k]);
        StoreRun(dst + i, s);
    }
    for (; i + n <= values; i += n) {
        Register s = {};
        for (int k = 0; k < count; ++k) s += LoadRegister(rows[k] + i) * weights[k];
        __builtin_memcpy(dst + i, &s, sizeof s);
    }
    for (; i < values; ++i) {
        float s = 0.0f;
        for (int k = 0; k < count; ++k) s += rows[k][i] * weights[k];
        dst[i] = s;
    }
}

// The reference: both sums, one after the other.
void SumRowsAndShare(const float* const* rows, const float* weights, int count, int skip, const float* shareWeights,
                     float* dst, float* share, int64_t values) {
    SumRows(rows, weights, count, dst, values);
    SumRows(rows + skip, shareWeights, count - skip, share, values);
}

// The SIMD builds: as SumRowsInRuns, with the second sum in four more registers, so that each row is
// loaded once for both.
void SumRowsAndShareInRuns(const float* const* rows, const float* weights, int count, int skip,
                           const float* shareWeights, float* dst, float* share, int64_t values) {
    constexpr int64_t n = kRegisterFloats;
    int64_t i = 0;
    for (; i + 4 * n <= values; i += 4 * n) {
        Run s = {}, t = {};
        int k = 0;
        for (; k < skip; ++k) AddWeighted(s, LoadRun(rows[k] + i), weights[k]);
        for (; k < count; ++k) {
            const Run r = LoadRun(rows[k] + i);
            AddWeighted(s, r, weights[k]);
            AddWeighted(t, r, shareWeights[k - skip]);
        }
        StoreRun(dst + i, s);
        StoreRun(share + i, t);
    }
    for (; i + n <= values; i += n) {
        Register s = {}, t = {};
        for (int k = 0; k < count; ++k) {
            const Register r = LoadRegister(rows[k] + i);
            s += r * weights[k];
            if (k >= skip) t += r * shareWeights[k - skip];
        }
        __builtin_memcpy(dst + i, &s, sizeof s);
        __builtin_memcpy(share + i, &t, sizeof t);
    }
    for (; i < values; ++i) {
        float s = 0.0f, t = 0.0f;
        for (int k = 0; k < count; ++k) {
            s += rows[k][i] * weights[k];
            if (k >= skip) t += rows[k][i] * shareWeights[k - skip];
        }
        dst[i] = s, share[i] = t;
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace voimg
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace voimg {

void filterRowScalar(const float* weights, int stride, const int64_t* first, const int* count, const float* in,
                     float* out, int64_t outWidth) {
    HWY_STATIC_DISPATCH(FilterRowByPixel)(weights, stride, first, count, in, out, outWidth);
}

void sumRowsScalar(const float* const* rows, const float* weights, int count, float* dst, int64_t values) {
    HWY_STATIC_DISPATCH(SumRows)(rows, weights, count, dst, values);
}

void sumRowsAndShareScalar(const float* const* rows, const float* weights, int count, int skip,
                           const float* shareWeights, float* dst, float* share, int64_t values) {
    HWY_STATIC_DISPATCH(SumRowsAndShare)(rows, weights, count, skip, shareWeights, dst, share, values);
}

// A kernel's build for `build`: null when this processor does not run it or it was not compiled.
#if HWY_TARGETS & HWY_AVX2
#define VO_AVX2_BUILD(kernel) &N_AVX2::kernel
#else
#define VO_AVX2_BUILD(kernel) nullptr
#endif
#if HWY_TARGETS & HWY_AVX3
#define VO_AVX512_BUILD(kernel) &N_AVX3::kernel
#else
#define VO_AVX512_BUILD(kernel) nullptr
#endif

template <class Kernel>
Kernel buildOf(SimdBuild build, Kernel scalar, Kernel avx2, Kernel avx512) {
    switch (build) {
        case SimdBuild::Scalar:
            return scalar;
        case SimdBuild::Avx2:
            return cpuRunsAvx2() ? avx2 : nullptr;
        case SimdBuild::Avx512:
            return cpuRunsAvx512() ? avx512 : nullptr;
    }
    return nullptr;
}

bool filterRowWith(SimdBuild build, const float* weights, int stride, const int64_t* first, const int* count,
                   const float* in, float* out, int64_t outWidth) {
    const auto kernel =
        buildOf(build, &filterRowScalar, VO_AVX2_BUILD(FilterRowByPairs), VO_AVX512_BUILD(FilterRowByQuads));
    if (kernel) kernel(weights, stride, first, count, in, out, outWidth);
    return kernel != nullptr;
}

bool sumRowsWith(SimdBuild build, const float* const* rows, const float* weights, int count, float* dst,
                 int64_t values) {
    const auto kernel = buildOf(build, &sumRowsScalar, VO_AVX2_BUILD(SumRowsInRuns), VO_AVX512_BUILD(SumRowsInRuns));
    if (kernel) kernel(rows, weights, count, dst, values);
    return kernel != nullptr;
}

bool sumRowsAndShareWith(SimdBuild build, const float* const* rows, const float* weights, int count, int skip,
                         const float* shareWeights, float* dst, float* share, int64_t values) {
    const auto kernel = buildOf(build, &sumRowsAndShareScalar, VO_AVX2_BUILD(SumRowsAndShareInRuns),
                                VO_AVX512_BUILD(SumRowsAndShareInRuns));
    if (kernel) kernel(rows, weights, count, skip, shareWeights, dst, share, values);
    return kernel != nullptr;
}

void filterRow(const float* weights, int stride, const int64_t* first, const int* count, const float* in, float* out,
               int64_t outWidth) {
    filterRowWith(preferredSimdBuild(), weights, stride, first, count, in, out, outWidth);
}

void sumRows(const float* const* rows, const float* weights, int count, float* dst, int64_t values) {
    sumRowsWith(preferredSimdBuild(), rows, weights, count, dst, values);
}

void sumRowsAndShare(const float* const* rows, const float* weights, int count, int skip, const float* shareWeights,
                     float* dst, float* share, int64_t values) {
    sumRowsAndShareWith(preferredSimdBuild(), rows, weights, count, skip, shareWeights, dst, share, values);
}

}  // namespace voimg
#endif
