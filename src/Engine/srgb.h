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

// The table behind linearToSrgb8, for loops that convert many values: entry round(v x 65535) is the code
// of linear value v in [0, 1].
[[nodiscard]] const uint8_t* linearToSrgb8Table();
inline constexpr int kLinearToSrgb8Steps = 65535;
inline uint8_t linearToSrgb8(const uint8_t* table, float linear) {
    if (!(linear > 0.0f)) return 0;  // also NaN
    if (linear >= 1.0f) return 255;
    return table[int(linear * float(kLinearToSrgb8Steps) + 0.5f)];
}

}  // namespace voimg
