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

}  // namespace voimg
