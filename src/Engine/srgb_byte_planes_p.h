// SPDX-License-Identifier: MIT
// The 8-bit sRGB-to-linear table in the form the AVX-512 kernels look it up in: split into the four byte
// planes of its floats, each plane held in registers and indexed with byte permutes (VBMI), sixteen
// samples at a time. Gathers would be simpler, but on the AMD processors measured they were slower than a
// scalar loop.
#pragma once

#include <cstdint>

// The kernels are built where the compiler can target AVX-512 with VBMI (x86-64 with GCC or Clang), in
// functions marked VO_VBMI_TARGET, and run only where cpuRunsVbmi(). Meant for the kernels' own files:
// GCC's AVX-512 intrinsics start from deliberately undefined registers, which it then warns about, so
// that warning is off in the files that include this.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#define VO_HAS_VBMI_BUILD 1
#define VO_VBMI_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi")))
#endif

namespace voimg {

struct SrgbBytePlanes {
    alignas(64) uint8_t plane[4][256];  // byte j (0 = lowest) of each of the table's 256 floats
};
const SrgbBytePlanes& srgbBytePlanes();

// Whether this processor has AVX-512 with VBMI (whatever the switches of simd_target.h say).
bool cpuRunsVbmi();

}  // namespace voimg
