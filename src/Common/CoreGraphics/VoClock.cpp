// SPDX-License-Identifier: MIT
#include "Common/CoreGraphics/VoClock.h"

#include <chrono>
#include <cmath>
#include <thread>

namespace vo {

VoClock::~VoClock() = default;

std::shared_ptr<VoClock> VoClock::systemClock() {
    static const std::shared_ptr<VoClock> clock = std::make_shared<VoSystemClock>();
    return clock;
}

double VoSystemClock::now() const {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

void VoSystemClock::sleepUntil(double deadline) {
    // Sleep in a loop: a sleep may return early, and the wall clock may be stepped meanwhile.
    for (;;) {
        const double remaining = deadline - now();
        if (!(remaining > 0)) return;  // past, or not a number
        std::this_thread::sleep_for(std::chrono::duration<double>(remaining));
    }
}

}  // namespace vo
