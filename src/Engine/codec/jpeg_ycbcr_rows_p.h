// SPDX-License-Identifier: MIT
// Rows of decoded JPEG samples (eighths of a level, centred on 0) to RGBA: limited to 0..255 as libjpeg
// limits them, and converted from YCbCr with the JFIF matrix.
#pragma once

#include <cstdint>

namespace voimg::detail {

// SSE2 for runs of 8 pixels unless SIMD is switched off (VO_NOSIMD); the same bytes either way.
void ycbcrRowToRgba(const int16_t* y, const int16_t* cb, const int16_t* cr, int width, uint8_t* rgba);
void greyRowToRgba(const int16_t* y, int width, uint8_t* rgba);

// One pixel, the reference for the vector code.
void ycbcrToRgbaScalar(int16_t y, int16_t cb, int16_t cr, uint8_t* rgba);

}  // namespace voimg::detail
