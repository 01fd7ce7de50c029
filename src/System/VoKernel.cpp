// SPDX-License-Identifier: MIT
#include "VoKernel.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>

namespace vo {

namespace {

// The kernel keeps its load averages in fixed point with 11 fraction bits; the record keeps that scale,
// so the two decimals the kernel publishes come back as the same numbers.
constexpr std::int64_t kLoadScale = 2048;

class RunningKernel final : public VoKernel {
public:
    std::optional<std::string> osRelease() override {
        utsname names{};
        if (::uname(&names) != 0) return std::nullopt;
        return std::string(names.release);
    }

    std::optional<int> cpuCount() override {
        const long n = ::sysconf(_SC_NPROCESSORS_ONLN);
        if (n <= 0) return std::nullopt;
        return int(n);
    }

    std::optional<LoadAverage> loadAverage() override {
        double loads[3];
        if (::getloadavg(loads, 3) != 3) return std::nullopt;
        LoadAverage record;
        record.fscale = kLoadScale;
        for (int i = 0; i < 3; ++i) record.ldavg[i] = std::uint32_t(std::lround(loads[i] * double(kLoadScale)));
        return record;
    }
};

}  // namespace

std::shared_ptr<VoKernel> VoKernel::standard() {
    static const std::shared_ptr<VoKernel> kernel = std::make_shared<RunningKernel>();
    return kernel;
}

}  // namespace vo
