// SPDX-License-Identifier: MIT
// The kernel facts the system utilities read: the release text, the processor count and the load
// average. Behind an interface so that tests can feed fixed answers (a release of 15.6.0, a failing
// load read); every answer is empty when the kernel cannot be asked.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace vo {

class VoKernel {
public:
    // Three load averages over 1, 5 and 15 minutes as fixed-point numbers: average = ldavg[i] / fscale.
    struct LoadAverage {
        std::array<std::uint32_t, 3> ldavg{};
        std::int64_t fscale = 1;
    };

    virtual ~VoKernel() = default;

    // The kernel's release text, e.g. "6.1.0-18-amd64" (uname).
    [[nodiscard]] virtual std::optional<std::string> osRelease() = 0;
    // Processors online now.
    [[nodiscard]] virtual std::optional<int> cpuCount() = 0;
    // The current load averages.
    [[nodiscard]] virtual std::optional<LoadAverage> loadAverage() = 0;

    // The running kernel.
    [[nodiscard]] static std::shared_ptr<VoKernel> standard();
};

}  // namespace vo
