// SPDX-License-Identifier: MIT
// Colour rows of 8-bit samples to premultiplied linear light. The AVX-512 build looks sixteen pixels up at
// once in the table's byte planes (srgb_byte_planes_p.h) and interleaves the planes' bytes back into floats.
#include <cstring>

#include "Engine/linear_rows_p.h"
#include "Engine/simd_target.h"
#include "Engine/srgb.h"
#include "Engine/srgb_byte_planes_p.h"

namespace voimg {

#ifdef VO_HAS_VBMI_BUILD
bool cpuRunsVbmi() {
    static const bool runs = [] {
        __builtin_cpu_init();
        return cpuRunsAvx512() && __builtin_cpu_supports("avx512vbmi");
    }();
    return runs;
}
#else
bool cpuRunsVbmi() { return false; }
#endif

const SrgbBytePlanes& srgbBytePlanes() {
    static const SrgbBytePlanes planes = [] {
        SrgbBytePlanes p{};
        const float* table = srgbToLinear8Table();
        for (int i = 0; i < 256; ++i) {
            uint8_t bytes[4];
            std::memcpy(bytes, &table[i], 4);
            for (int j = 0; j < 4; ++j) p.plane[j][i] = bytes[j];
        }
        return p;
    }();
    return planes;
}

namespace {

void scalarColourPixels(const uint8_t* rgba, int64_t pixels, bool alpha, float* out) {
    const float* table = srgbToLinear8Table();
    for (int64_t x = 0; x < pixels; ++x, rgba += 4, out += 4) {
        const float a = alpha ? float(rgba[3]) * (1.0f / 255.0f) : 1.0f;
        out[0] = table[rgba[0]] * a, out[1] = table[rgba[1]] * a, out[2] = table[rgba[2]] * a, out[3] = a;
    }
}

#ifdef VO_HAS_VBMI_BUILD

VO_VBMI_TARGET void vbmiColourPixels(const uint8_t* rgba, int64_t pixels, bool alpha, float* out) {
    const SrgbBytePlanes& planes = srgbBytePlanes();
    __m512i table[4][4];  // plane j, entries 64k .. 64k + 63
    for (int j = 0; j < 4; ++j)
        for (int k = 0; k < 4; ++k) table[j][k] = _mm512_load_si512(&planes.plane[j][64 * k]);
    // Unpacking bytes and then words interleaves within 128-bit lanes: result k, lane L, float d comes from
    // byte 16L + 4k + d. Bytes are first moved so that this is sample 16k + 4L + d, the natural order.
    alignas(64) uint8_t order[64];
    for (int lane = 0; lane < 4; ++lane)
        for (int k = 0; k < 4; ++k)
            for (int d = 0; d < 4; ++d) order[16 * lane + 4 * k + d] = uint8_t(16 * k + 4 * lane + d);
    const __m512i reorder = _mm512_load_si512(order);
    // The alpha of pixel 4k + q over the four lanes of that pixel, for result k.
    __m512i spread[4];
    for (int k = 0; k < 4; ++k)
        spread[k] = _mm512_set_epi32(4 * k + 3, 4 * k + 3, 4 * k + 3, 4 * k + 3, 4 * k + 2, 4 * k + 2, 4 * k + 2,
                                     4 * k + 2, 4 * k + 1, 4 * k + 1, 4 * k + 1, 4 * k + 1, 4 * k, 4 * k, 4 * k, 4 * k);
    constexpr __mmask16 kAlphaLanes = 0x8888;
    const __m512 ones = _mm512_set1_ps(1.0f), inverse255 = _mm512_set1_ps(1.0f / 255.0f);

    int64_t x = 0;
    for (; x + 16 <= pixels; x += 16) {
        const __m512i samples = _mm512_loadu_si512(rgba + x * 4);
        const __m512i index = _mm512_permutexvar_epi8(reorder, samples);
        const __mmask64 upper = _mm512_movepi8_mask(index);  // samples 128 and above
        __m512i byte[4];
        for (int j = 0; j < 4; ++j)
            byte[j] = _mm512_mask_blend_epi8(upper, _mm512_permutex2var_epi8(table[j][0], index, table[j][1]),
                                             _mm512_permutex2var_epi8(table[j][2], index, table[j][3]));
        const __m512i low01 = _mm512_unpacklo_epi8(byte[0], byte[1]), high01 = _mm512_unpackhi_epi8(byte[0], byte[1]);
        const __m512i low23 = _mm512_unpacklo_epi8(byte[2], byte[3]), high23 = _mm512_unpackhi_epi8(byte[2], byte[3]);
        __m512 result[4] = {_mm512_castsi512_ps(_mm512_unpacklo_epi16(low01, low23)),
                            _mm512_castsi512_ps(_mm512_unpackhi_epi16(low01, low23)),
                            _mm512_castsi512_ps(_mm512_unpacklo_epi16(high01, high23)),
                            _mm512_castsi512_ps(_mm512_unpackhi_epi16(high01, high23))};
        if (alpha) {
            const __m512 a = _mm512_mul_ps(_mm512_cvtepi32_ps(_mm512_srli_epi32(samples, 24)), inverse255);
            for (int k = 0; k < 4; ++k) {
                const __m512 pixelAlpha = _mm512_permutexvar_ps(spread[k], a);
                result[k] = _mm512_mask_blend_ps(kAlphaLanes, _mm512_mul_ps(result[k], pixelAlpha), pixelAlpha);
            }
        } else {
            for (__m512& r : result) r = _mm512_mask_blend_ps(kAlphaLanes, r, ones);
        }
        for (int k = 0; k < 4; ++k) _mm512_storeu_ps(out + x * 4 + 16 * k, result[k]);
    }
    scalarColourPixels(rgba + x * 4, pixels - x, alpha, out + x * 4);
}
#endif

}  // namespace

bool linearColourPixelsWith(SimdBuild build, const uint8_t* rgba, int64_t pixels, bool alpha, float* out) {
    switch (build) {
        case SimdBuild::Scalar:
            scalarColourPixels(rgba, pixels, alpha, out);
            return true;
        case SimdBuild::Avx2:  // no build: gathers lose to the scalar loop
            return false;
        case SimdBuild::Avx512:
#ifdef VO_HAS_VBMI_BUILD
            if (!cpuRunsVbmi()) return false;
            vbmiColourPixels(rgba, pixels, alpha, out);
            return true;
#else
            return false;
#endif
    }
    return false;
}

void linearColourPixels(const uint8_t* rgba, int64_t pixels, bool alpha, float* out) {
#ifdef VO_HAS_VBMI_BUILD
    if (avx512Enabled() && cpuRunsVbmi()) return vbmiColourPixels(rgba, pixels, alpha, out);
#endif
    scalarColourPixels(rgba, pixels, alpha, out);
}

}  // namespace voimg
