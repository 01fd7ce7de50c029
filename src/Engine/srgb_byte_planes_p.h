// SPDX-License-Identifier: MIT
// The 8-bit sRGB-to-linear table in the form the AVX-512 kernels look it up in: split into the four byte
// planes of its floats, each plane held in registers and indexed with byte permutes (VBMI), sixteen
// samples at a time. Gathers would be simpler, but on the AMD processors measured they were slower than a
// scalar loop.
#pragma once

#include <cstdint>

namespace voimg {

struct SrgbBytePlanes {
    alignas(64) uint8_t plane[4][256];  // byte j (0 = lowest) of each of the table's 256 floats
};
const SrgbBytePlanes& srgbBytePlanes();

// Whether this processor has AVX-512 with VBMI (whatever the switches of simd_target.h say).
bool cpuRunsVbmi();

}  // namespace voimg
