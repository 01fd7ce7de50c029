// SPDX-License-Identifier: MIT
#include "Common/CoreGraphics/VoCoreSurfaceRefreshThread.h"

#include <thread>

#include "Common/CoreGraphics/VoClock.h"
#include "Common/CoreGraphics/VoCoreSurface.h"
#include "Common/CoreGraphics/VoCoreSurfaceMainThread.h"
#include "Common/CoreGraphics/VoSurfaceHost.h"

namespace vo {

namespace {
std::atomic<int> gRunningThreads{0};
}  // namespace

std::shared_ptr<VoCoreSurfaceRefreshThread> VoCoreSurfaceRefreshThread::init(VoCoreSurface* surface) {
    auto thread = std::make_shared<VoCoreSurfaceRefreshThread>(Passkey{}, surface);
    gRunningThreads.fetch_add(1);
    std::thread(&VoCoreSurfaceRefreshThread::actualRun, thread).detach();
    return thread;
}

VoCoreSurfaceRefreshThread::VoCoreSurfaceRefreshThread(Passkey, VoCoreSurface* surface)
    : surface_(surface), weakSurface_(surface->weak_from_this()), clock_(surface->clock()) {}

int VoCoreSurfaceRefreshThread::runningThreads() { return gRunningThreads.load(); }

void VoCoreSurfaceRefreshThread::stop() {
    std::lock_guard lock(mutex_);
    shouldStop_ = true;
}

bool VoCoreSurfaceRefreshThread::isStopped() const {
    std::lock_guard lock(mutex_);
    return shouldStop_;
}

void VoCoreSurfaceRefreshThread::actualRun(std::shared_ptr<VoCoreSurfaceRefreshThread> self) {
    VoClock& clock = *self->clock_;
    for (;;) {
        // The deadline is taken before the mutex, so waiting for the mutex shortens the sleep.
        const double deadline = clock.now() + kTickSeconds;
        {
            std::lock_guard lock(self->mutex_);
            if (self->shouldStop_) break;
            ++self->ticks_;
            if (self->shouldRefresh_.load() && self->active_.load()) {
                self->shouldRefresh_ = false;
                ++self->refreshes_;
                self->surface_->host()->setNeedsDisplay(true);
                std::weak_ptr<VoCoreSurface> weak = self->weakSurface_;
                VoCoreSurfaceMainThread::perform(
                    [weak] {
                        if (std::shared_ptr<VoCoreSurface> surface = weak.lock()) surface->host()->displayIfNeeded();
                    },
                    false);
            }
            // A request that arrived while inactive is dropped, not deferred.
            self->shouldRefresh_ = false;
        }
        clock.sleepUntil(deadline);
    }
    self.reset();
    gRunningThreads.fetch_sub(1);
}

}  // namespace vo
