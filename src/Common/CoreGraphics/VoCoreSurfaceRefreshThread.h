// SPDX-License-Identifier: MIT
// VoCoreSurfaceRefreshThread: the background thread of an animating surface. It ticks every 0.0333333 s
// (ticks spaced from their start) and, when a redraw was requested since the last tick and it is active,
// invalidates the surface from its own thread and posts an immediate draw to the main thread: any number
// of requests within one tick give at most one draw. A request made while inactive is dropped.
//
// The object does not own its surface: the surface stops it (setAnimates NO, prepareEnd, teardown) before
// it goes away. The running thread owns the object until its loop ends. The mutex guards shouldStop and the
// tick's decision; it is never held while waiting for the main thread or taking the surface's renderLock.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

namespace vo {

class VoClock;
class VoCoreSurface;

class VoCoreSurfaceRefreshThread : public std::enable_shared_from_this<VoCoreSurfaceRefreshThread> {
    struct Passkey {};

public:
    static constexpr double kTickSeconds = 0.0333333;

    // Starts the thread on `surface` (not owned), inactive, ticking on the surface's clock.
    [[nodiscard]] static std::shared_ptr<VoCoreSurfaceRefreshThread> init(VoCoreSurface* surface);
    VoCoreSurfaceRefreshThread(Passkey, VoCoreSurface* surface);

    // A redraw at the next tick; no lock.
    void setShouldRefresh() { shouldRefresh_ = true; }
    [[nodiscard]] bool shouldRefresh() const { return shouldRefresh_.load(); }
    // Whether requests are honoured; no lock.
    void setActive(bool flag) { active_ = flag; }
    [[nodiscard]] bool isActive() const { return active_.load(); }
    // The thread ends at its next tick; once this returns, it touches the surface no more.
    void stop();
    [[nodiscard]] bool isStopped() const;
    // Ticks run so far, and draws posted.
    [[nodiscard]] long ticks() const { return ticks_.load(); }
    [[nodiscard]] long refreshes() const { return refreshes_.load(); }

    // Refresh threads still running in this process (for tests and teardown).
    [[nodiscard]] static int runningThreads();

private:
    static void actualRun(std::shared_ptr<VoCoreSurfaceRefreshThread> self);

    VoCoreSurface* surface_;
    std::weak_ptr<VoCoreSurface> weakSurface_;  // for the posted draws, which may run after the surface died
    std::shared_ptr<VoClock> clock_;
    std::atomic<bool> active_{false};
    std::atomic<bool> shouldRefresh_{false};
    bool shouldStop_ = false;  // guarded by mutex_
    mutable std::mutex mutex_;
    std::atomic<long> ticks_{0};
    std::atomic<long> refreshes_{0};
};

}  // namespace vo
