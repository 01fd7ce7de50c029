// SPDX-License-Identifier: MIT
#include "jpeg_ycbcr_rows_p.h"

#include <cmath>

#include "Engine/simd_target.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace voimg::detail {
namespace {

constexpr float kCrToR = 1.402f, kCbToG = -0.344136f, kCrToG = -0.714136f, kCbToB = 1.772f;

inline int level(int16_t eighths) {
    const int v = ((int(eighths) + 4) >> 3) + 128;
    return v < 0 ? 0 : (v > 255 ? 255 : v);
}

inline uint8_t toByte(float v) {
    const float r = std::nearbyint(v);
    return uint8_t(r < 0 ? 0 : (r > 255 ? 255 : r));
}

#if defined(__SSE2__)
// Eight samples as levels 0..255 in 16-bit lanes.
inline __m128i levels(const int16_t* eighths) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(eighths));
    const __m128i shifted = _mm_add_epi16(_mm_srai_epi16(_mm_adds_epi16(v, _mm_set1_epi16(4)), 3), _mm_set1_epi16(128));
    return _mm_min_epi16(_mm_max_epi16(shifted, _mm_setzero_si128()), _mm_set1_epi16(255));
}
inline __m128 low(__m128i v) { return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16)); }
inline __m128 high(__m128i v) { return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16)); }
inline __m128i toWords(__m128 a, __m128 b) { return _mm_packs_epi32(_mm_cvtps_epi32(a), _mm_cvtps_epi32(b)); }
#endif

}  // namespace

void ycbcrToRgbaScalar(int16_t y, int16_t cb, int16_t cr, uint8_t* rgba) {
    const float luma = float(level(y)), blue = float(level(cb) - 128), red = float(level(cr) - 128);
    rgba[0] = toByte(luma + kCrToR * red);
    rgba[1] = toByte(luma + (kCbToG * blue + kCrToG * red));
    rgba[2] = toByte(luma + kCbToB * blue);
    rgba[3] = 255;
}

void ycbcrRowToRgba(const int16_t* y, const int16_t* cb, const int16_t* cr, int width, uint8_t* rgba) {
    int x = 0;
#if defined(__SSE2__)
    const __m128i centre = _mm_set1_epi16(128);
    const bool vector = simdEnabled();
    for (; vector && x + 8 <= width; x += 8) {
        const __m128i l = levels(y + x);
        const __m128i b = _mm_sub_epi16(levels(cb + x), centre);
        const __m128i r = _mm_sub_epi16(levels(cr + x), centre);
        __m128 out[3][2];
        for (int half = 0; half < 2; ++half) {
            const __m128 lf = half ? high(l) : low(l), bf = half ? high(b) : low(b), rf = half ? high(r) : low(r);
            out[0][half] = _mm_add_ps(lf, _mm_mul_ps(_mm_set1_ps(kCrToR), rf));
            out[1][half] =
                _mm_add_ps(lf, _mm_add_ps(_mm_mul_ps(_mm_set1_ps(kCbToG), bf), _mm_mul_ps(_mm_set1_ps(kCrToG), rf)));
            out[2][half] = _mm_add_ps(lf, _mm_mul_ps(_mm_set1_ps(kCbToB), bf));
        }
        const __m128i red = _mm_packus_epi16(toWords(out[0][0], out[0][1]), _mm_setzero_si128());
        const __m128i green = _mm_packus_epi16(toWords(out[1][0], out[1][1]), _mm_setzero_si128());
        const __m128i blue = _mm_packus_epi16(toWords(out[2][0], out[2][1]), _mm_setzero_si128());
        const __m128i rg = _mm_unpacklo_epi8(red, green);
        const __m128i ba = _mm_unpacklo_epi8(blue, _mm_set1_epi8(char(0xFF)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(rgba + size_t(x) * 4), _mm_unpacklo_epi16(rg, ba));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(rgba + size_t(x) * 4 + 16), _mm_unpackhi_epi16(rg, ba));
    }
#endif
    for (; x < width; ++x) ycbcrToRgbaScalar(y[x], cb[x], cr[x], rgba + size_t(x) * 4);
}

void greyRowToRgba(const int16_t* y, int width, uint8_t* rgba) {
    for (int x = 0; x < width; ++x) {
        const uint8_t v = uint8_t(level(y[x]));
        uint8_t* p = rgba + size_t(x) * 4;
        p[0] = p[1] = p[2] = v, p[3] = 255;
    }
}

}  // namespace voimg::detail
