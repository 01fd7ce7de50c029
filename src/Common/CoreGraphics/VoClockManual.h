// SPDX-License-Identifier: MIT
// VoManualClock: a clock whose time moves only when told to, for deterministic tests and benchmarks of the
// threads that sleep on it.
//
// Threads that call sleepUntil() block until advance() has moved the time to their deadline. settle()
// waits (in real time) until a given number of threads is asleep and none of them is due, i.e. every
// thread that the last advance() woke has done its work and gone back to sleep.
// run() turns the clock into a free-running one (every sleep returns after moving the time to its
// deadline), which lets tests wind their threads down.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>

#include "Common/CoreGraphics/VoClock.h"

namespace vo {

class VoManualClock final : public VoClock {
public:
    explicit VoManualClock(double start = 1.0e9) : now_(start) {}

    [[nodiscard]] double now() const override;
    void sleepUntil(double deadline) override;

    // Moves the time forward (or to `time`) and wakes the sleepers that are due.
    void advance(double seconds);
    void setNow(double time);
    // Waits until exactly `sleepers` threads sleep, none of them due. False after `timeoutSeconds` of real
    // time.
    [[nodiscard]] bool settle(int sleepers, double timeoutSeconds = 60.0);
    // advance() then settle().
    [[nodiscard]] bool advanceAndSettle(double seconds, int sleepers, double timeoutSeconds = 60.0);
    // Number of threads asleep now; number of sleepUntil() calls so far.
    [[nodiscard]] int sleepers() const;
    [[nodiscard]] long sleepCalls() const;
    // From now on sleeps do not block: each moves the time to its deadline and yields.
    void run();

private:
    [[nodiscard]] bool settledLocked(int sleepers) const;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    double now_;
    bool running_ = false;
    long sleepCalls_ = 0;
    long nextSleeper_ = 0;
    std::map<long, double> deadlines_;  // sleeper id -> deadline
};

}  // namespace vo
