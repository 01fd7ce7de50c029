// SPDX-License-Identifier: MIT
#include "simd_target.h"

#include <cstdlib>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace voimg {

bool cpuRunsAvx2() {
#if defined(__x86_64__) || defined(__i386__)
    static const bool runs = [] {
        __builtin_cpu_init();
        // F16C is not among the names every compiler's __builtin_cpu_supports knows: CPUID leaf 1, ECX bit 29.
        unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
        const bool f16c = __get_cpuid(1, &eax, &ebx, &ecx, &edx) && (ecx & (1u << 29)) != 0;
        return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2") &&
               f16c;
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
