// SPDX-License-Identifier: MIT
// VoClock: the wall clock and the sleep that the surface's threads use, behind an interface so that tests
// can drive time by hand. Time is seconds since 1970-01-01 00:00 UTC in double precision.
#pragma once

#include <memory>

namespace vo {

class VoClock {
public:
    virtual ~VoClock();
    // The current wall-clock time.
    [[nodiscard]] virtual double now() const = 0;
    // Blocks the calling thread until now() >= deadline. A deadline that is already past, or not a
    // number, returns at once.
    virtual void sleepUntil(double deadline) = 0;
    // sleepUntil(now() + seconds).
    void sleepFor(double seconds) { sleepUntil(now() + seconds); }

    // The process-wide system clock; surfaces, effects and refresh threads use it unless given another.
    [[nodiscard]] static std::shared_ptr<VoClock> systemClock();
};

// The real clock: std::chrono::system_clock and a thread sleep.
class VoSystemClock final : public VoClock {
public:
    [[nodiscard]] double now() const override;
    void sleepUntil(double deadline) override;
};

}  // namespace vo
