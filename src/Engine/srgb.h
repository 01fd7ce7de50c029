// SPDX-License-Identifier: MIT
// sRGB transfer function: encoded samples to linear light and back, table-driven.
#pragma once

#include <cstdint>

namespace voimg {

// Exact formulas: the slow, obviously correct reference for the tables below.
[[nodiscard]] double srgbDecode(double encoded);
[[nodiscard]] double srgbEncode(double linear);

// 256 linear values for 8-bit samples.
[[nodiscard]] const float* srgbToLinear8Table();
// 65536 linear values for 16-bit samples.
[[nodiscard]] const float* srgbToLinear16Table();
// Linear value (clamped to [0, 1]) to the nearest 8-bit sRGB code.
[[nodiscard]] uint8_t linearToSrgb8(float linear);

}  // namespace voimg
