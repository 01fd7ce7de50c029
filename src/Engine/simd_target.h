// SPDX-License-Identifier: MIT
// Which SIMD build of a kernel this processor runs.
//
// Kernels are compiled with Highway for its AVX2 target (among others) and called here directly rather than
// through Highway's run-time dispatch: that lives in Highway's shared library, which measures the clock
// when it is loaded and so would add milliseconds to the start of every process. On x86-64 the choice
// that matters is AVX2 (with the FMA, BMI2 and F16C extensions Highway's AVX2 target assumes) or the
// scalar reference; the hottest resampling loops also have an AVX-512 build.
#pragma once

namespace voimg {

[[nodiscard]] bool cpuRunsAvx2();
// AVX-512 with the F, VL, DQ and BW extensions Highway's AVX3 target assumes, enabled by the system. The
// kernels that gain from sixteen-float vectors have a build for it beside the AVX2 one.
[[nodiscard]] bool cpuRunsAvx512();

// True when SIMD kernels are to run: the processor runs AVX2 and VO_NOSIMD is not set (to anything but
// "0") in the environment, which makes every kernel take its scalar reference instead.
[[nodiscard]] bool simdEnabled();
// True when the AVX-512 builds are to run: SIMD is enabled, the processor runs AVX-512, and VO_NOAVX512 is
// not set (to anything but "0"), which leaves those kernels to their AVX2 builds.
[[nodiscard]] bool avx512Enabled();

// The builds of a kernel, for the kernels that have all three.
enum class SimdBuild { Scalar, Avx2, Avx512 };
// The widest build the switches above allow on this processor.
[[nodiscard]] SimdBuild preferredSimdBuild();
// Only the environment's part of that, for kernels whose SIMD builds cover other targets too.
[[nodiscard]] bool simdDisabledByEnvironment();

}  // namespace voimg
