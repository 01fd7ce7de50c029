// SPDX-License-Identifier: MIT
#include "jpeg_reduced_idct_p.h"

#include <array>
#include <cmath>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "Engine/simd_target.h"

namespace voimg::detail {
namespace {

// basis[N][u][x] = C(u)/2 cos((2x+1) u pi / 2N), C(0) = 1/sqrt2, C(u) = 1: the 8x8 transform's 1/4 C(u)C(v)
// split between the axes, which keeps a flat block's level at any N.
struct Bases {
    std::array<std::array<std::array<float, 8>, 8>, 9> basis{};
    Bases() {
        for (int n : {1, 2, 4, 8})
            for (int u = 0; u < n; ++u)
                for (int x = 0; x < n; ++x)
                    basis[size_t(n)][size_t(u)][size_t(x)] =
                        float((u == 0 ? std::sqrt(0.5) : 1.0) / 2 * std::cos((2 * x + 1) * u * M_PI / (2.0 * n)));
    }
};

const Bases& bases() {
    static const Bases instance;
    return instance;
}

// The AC part in eighths, rounded to even as the vector code rounds, plus the DC part; wrapping, so that a DC level off
// by any amount is put right by adding the difference later.
inline int16_t toEighths(float ac, int32_t dc) {
    const float scaled = ac * 8.0f;
    const float clamped = scaled < -32768.0f ? -32768.0f : (scaled > 32767.0f ? 32767.0f : scaled);
    return int16_t(uint16_t(uint32_t(int32_t(std::nearbyint(clamped))) + uint32_t(dc)));
}

template <int NX, int NY, int KX, int KY, bool Vector>
void reducedIdct(const int16_t* quantised, const float* quant, int32_t dc, int16_t* out, int outStride) {
    const auto& bx = bases().basis[NX];
    const auto& by = bases().basis[NY];
    float coefficients[KX * KY];
    for (int i = 0; i < KX * KY; ++i) coefficients[i] = float(quantised[i]) * quant[i];
#if defined(__SSE2__)
    if constexpr (Vector && NX % 4 == 0) {
        constexpr int kVectors = NX / 4;
        __m128 rows[KY][kVectors];
        for (int v = 0; v < KY; ++v) {
            for (int i = 0; i < kVectors; ++i) rows[v][i] = _mm_setzero_ps();
            for (int u = 0; u < KX; ++u) {
                const __m128 c = _mm_set1_ps(coefficients[v * KX + u]);
                for (int i = 0; i < kVectors; ++i)
                    rows[v][i] = _mm_add_ps(rows[v][i], _mm_mul_ps(c, _mm_loadu_ps(&bx[size_t(u)][size_t(4 * i)])));
            }
        }
        const __m128 lowest = _mm_set1_ps(-32768.0f), highest = _mm_set1_ps(32767.0f), eight = _mm_set1_ps(8.0f);
        const __m128i dcShare = _mm_set1_epi32(dc);
        for (int y = 0; y < NY; ++y) {
            for (int i = 0; i < kVectors; ++i) {
                __m128 line = _mm_setzero_ps();
                for (int v = 0; v < KY; ++v)
                    line = _mm_add_ps(line, _mm_mul_ps(_mm_set1_ps(by[size_t(v)][size_t(y)]), rows[v][i]));
                line = _mm_min_ps(_mm_max_ps(_mm_mul_ps(line, eight), lowest), highest);
                __m128i words = _mm_add_epi32(_mm_cvtps_epi32(line), dcShare);
                words = _mm_srai_epi32(_mm_slli_epi32(words, 16), 16);  // modulo 2^16, then packed exactly
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out + y * outStride + 4 * i),
                                 _mm_packs_epi32(words, words));
            }
        }
        return;
    }
#endif
    float rows[KY][NX];
    for (int v = 0; v < KY; ++v) {
        for (int x = 0; x < NX; ++x) rows[v][x] = 0;
        for (int u = 0; u < KX; ++u) {
            const float c = coefficients[v * KX + u];
            for (int x = 0; x < NX; ++x) rows[v][x] += c * bx[size_t(u)][size_t(x)];
        }
    }
    for (int y = 0; y < NY; ++y) {
        float line[NX] = {};
        for (int v = 0; v < KY; ++v) {
            const float w = by[size_t(v)][size_t(y)];
            for (int x = 0; x < NX; ++x) line[x] += w * rows[v][x];
        }
        for (int x = 0; x < NX; ++x) out[y * outStride + x] = toEighths(line[x], dc);
    }
}

#if defined(__SSE2__)
// Eight-sample rows (chroma at a 1/2 decode) in one AVX2 register: the same operations as the SSE2 code in
// the same order, so the same samples, in half the instructions. No FMA, which would round differently.
template <int NY, int KX, int KY>
__attribute__((target("avx2"))) void reducedIdctWide(const int16_t* quantised, const float* quant, int32_t dc,
                                                     int16_t* out, int outStride) {
    const auto& bx = bases().basis[8];
    const auto& by = bases().basis[NY];
    float coefficients[KX * KY];
    for (int i = 0; i < KX * KY; ++i) coefficients[i] = float(quantised[i]) * quant[i];
    __m256 rows[KY];
    for (int v = 0; v < KY; ++v) {
        rows[v] = _mm256_setzero_ps();
        for (int u = 0; u < KX; ++u)
            rows[v] = _mm256_add_ps(rows[v], _mm256_mul_ps(_mm256_set1_ps(coefficients[v * KX + u]),
                                                           _mm256_loadu_ps(bx[size_t(u)].data())));
    }
    const __m256 lowest = _mm256_set1_ps(-32768.0f), highest = _mm256_set1_ps(32767.0f), eight = _mm256_set1_ps(8.0f);
    const __m256i dcShare = _mm256_set1_epi32(dc);
    for (int y = 0; y < NY; ++y) {
        __m256 line = _mm256_setzero_ps();
        for (int v = 0; v < KY; ++v)
            line = _mm256_add_ps(line, _mm256_mul_ps(_mm256_set1_ps(by[size_t(v)][size_t(y)]), rows[v]));
        line = _mm256_min_ps(_mm256_max_ps(_mm256_mul_ps(line, eight), lowest), highest);
        __m256i words = _mm256_add_epi32(_mm256_cvtps_epi32(line), dcShare);
        words = _mm256_srai_epi32(_mm256_slli_epi32(words, 16), 16);
        const __m128i packed = _mm_packs_epi32(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + y * outStride), packed);
    }
}
#endif

// Output sizes N and coefficient counts K per axis, K = N or N / 2.
template <int NX, int KX, bool Vector>
ReducedIdct forHeight(int ny, int ky) {
    if (ny == 1 && ky == 1) return reducedIdct<NX, 1, KX, 1, Vector>;
    if (ny == 2 && ky == 1) return reducedIdct<NX, 2, KX, 1, Vector>;
    if (ny == 2 && ky == 2) return reducedIdct<NX, 2, KX, 2, Vector>;
    if (ny == 4 && ky == 2) return reducedIdct<NX, 4, KX, 2, Vector>;
    if (ny == 4 && ky == 4) return reducedIdct<NX, 4, KX, 4, Vector>;
    if (ny == 8 && ky == 4) return reducedIdct<NX, 8, KX, 4, Vector>;
    if (ny == 8 && ky == 8) return reducedIdct<NX, 8, KX, 8, Vector>;
    return nullptr;
}

template <bool Vector>
ReducedIdct forSize(int nx, int ny, int kx, int ky) {
    if (nx == 1 && kx == 1) return forHeight<1, 1, Vector>(ny, ky);
    if (nx == 2 && kx == 1) return forHeight<2, 1, Vector>(ny, ky);
    if (nx == 2 && kx == 2) return forHeight<2, 2, Vector>(ny, ky);
    if (nx == 4 && kx == 2) return forHeight<4, 2, Vector>(ny, ky);
    if (nx == 4 && kx == 4) return forHeight<4, 4, Vector>(ny, ky);
    if (nx == 8 && kx == 4) return forHeight<8, 4, Vector>(ny, ky);
    if (nx == 8 && kx == 8) return forHeight<8, 8, Vector>(ny, ky);
    return nullptr;
}

}  // namespace

ReducedIdct reducedIdctFor(int nx, int ny, int kx, int ky, bool vector) {
#if defined(__SSE2__)
    if (vector && cpuRunsAvx2() && nx == 8 && kx == 4 && ky == 4) {
        if (ny == 8) return reducedIdctWide<8, 4, 4>;
        if (ny == 4) return reducedIdctWide<4, 4, 4>;
    }
#endif
    return vector ? forSize<true>(nx, ny, kx, ky) : forSize<false>(nx, ny, kx, ky);
}

}  // namespace voimg::detail
