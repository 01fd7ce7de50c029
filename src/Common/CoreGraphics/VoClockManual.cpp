// SPDX-License-Identifier: MIT
#include "Common/CoreGraphics/VoClockManual.h"

#include <chrono>
#include <thread>

namespace vo {

double VoManualClock::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

void VoManualClock::sleepUntil(double deadline) {
    std::unique_lock lock(mutex_);
    ++sleepCalls_;
    if (running_) {
        if (deadline > now_) now_ = deadline;
        lock.unlock();
        // Free-running: give other threads a chance instead of spinning at full speed.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return;
    }
    if (!(deadline > now_)) return;
    const long id = nextSleeper_++;
    deadlines_[id] = deadline;
    changed_.notify_all();
    changed_.wait(lock, [&] { return running_ || !(deadline > now_); });
    deadlines_.erase(id);
    changed_.notify_all();
}

void VoManualClock::advance(double seconds) {
    std::lock_guard lock(mutex_);
    now_ += seconds;
    changed_.notify_all();
}

void VoManualClock::setNow(double time) {
    std::lock_guard lock(mutex_);
    now_ = time;
    changed_.notify_all();
}

bool VoManualClock::settledLocked(int sleepers) const {
    if (static_cast<int>(deadlines_.size()) != sleepers) return false;
    for (const auto& [id, deadline] : deadlines_) {
        if (!(deadline > now_)) return false;
    }
    return true;
}

bool VoManualClock::settle(int sleepers, double timeoutSeconds) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::duration<double>(timeoutSeconds),
                             [&] { return settledLocked(sleepers); });
}

bool VoManualClock::advanceAndSettle(double seconds, int sleepers, double timeoutSeconds) {
    advance(seconds);
    return settle(sleepers, timeoutSeconds);
}

int VoManualClock::sleepers() const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(deadlines_.size());
}

long VoManualClock::sleepCalls() const {
    std::lock_guard lock(mutex_);
    return sleepCalls_;
}

void VoManualClock::run() {
    std::lock_guard lock(mutex_);
    running_ = true;
    changed_.notify_all();
}

}  // namespace vo
