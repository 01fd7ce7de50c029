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

bool cpuRunsAvx512() {
#if defined(__x86_64__) || defined(__i386__)
    // libgcc's answers include the system's support: the AVX-512 features count only when XCR0 says the
    // operating system saves the wider registers.
    static const bool runs = [] {
        __builtin_cpu_init();
        return cpuRunsAvx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
               __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw");
    }();
    return runs;
#else
    return false;
#endif
}

namespace {
bool setInEnvironment(const char* name) {
    const char* v = std::getenv(name);
    return v && *v && std::strcmp(v, "0") != 0;
}
}  // namespace

bool simdDisabledByEnvironment() {
    static const bool disabled = setInEnvironment("VO_NOSIMD");
    return disabled;
}

bool simdEnabled() { return cpuRunsAvx2() && !simdDisabledByEnvironment(); }

bool avx512Enabled() {
    static const bool enabled = simdEnabled() && cpuRunsAvx512() && !setInEnvironment("VO_NOAVX512");
    return enabled;
}

SimdBuild preferredSimdBuild() {
    return avx512Enabled() ? SimdBuild::Avx512 : simdEnabled() ? SimdBuild::Avx2 : SimdBuild::Scalar;
}

}  // namespace voimg
