// SPDX-License-Identifier: MIT
// Writing rendered rows into bitmaps.
#pragma once

#include "render_context.h"

namespace voimg {

// Converts one row of premultiplied linear floats to the bitmap's format, into `bytes` (8-bit formats) or
// `floats` (RgbaFloatLinear).
void convertRow(const float* src, int64_t width, const Bitmap& bitmap, uint8_t* bytes, float* floats);

}  // namespace voimg
