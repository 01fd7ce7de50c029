// SPDX-License-Identifier: MIT
// Which SIMD build of a kernel this processor runs.
//
// Kernels are compiled with Highway for its AVX2 target (among others) and called here directly rather than
// through Highway's run-time dispatch: that lives in Highway's shared library, which measures the clock
// when it is loaded and so would add milliseconds to the start of every process. On x86-64 the choice
// that matters is AVX2 (with the FMA, BMI2 and F16C extensions Highway's AVX2 target assumes) or the
// scalar reference.
#pragma once

namespace voimg {

[[nodiscard]] bool cpuRunsAvx2();

// True when SIMD kernels are to run: the processor runs AVX2 and VO_NOSIMD is not set (to anything but
// "0") in the environment, which makes every kernel take its scalar reference instead.
[[nodiscard]] bool simdEnabled();
// Only the environment's part of that, for kernels whose SIMD builds cover other targets too.
[[nodiscard]] bool simdDisabledByEnvironment();

}  // namespace voimg
