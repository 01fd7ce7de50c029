// SPDX-License-Identifier: MIT
#include "simd_target.h"

#include <cstdlib>
#include <cstring>

namespace voimg {

bool cpuRunsAvx2() {
#if defined(__x86_64__) || defined(__i386__)
    static const bool runs = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2") &&
               __builtin_cpu_supports("f16c");
    }();
    return runs;
#else
    return false;
#endif
}

bool simdDisabledByEnvironment() {
    static const bool disabled = [] {
        const char* v = std::getenv("VO_NOSIMD");
        return v && *v && std::strcmp(v, "0") != 0;
    }();
    return disabled;
}

bool simdEnabled() { return cpuRunsAvx2() && !simdDisabledByEnvironment(); }

}  // namespace voimg
