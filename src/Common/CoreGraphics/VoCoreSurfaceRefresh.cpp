// SPDX-License-Identifier: MIT
// VoCoreSurface: redraw scheduling, the animation switch and the end of a surface's life.
#include "Common/CoreGraphics/VoCoreSurface.h"
#include "Common/CoreGraphics/VoCoreSurfaceRefreshThread.h"

namespace vo {

void VoCoreSurface::setNeedsDisplayInternal() {
    requiresFullRender_ = true;
    std::shared_ptr<VoCoreSurfaceRefreshThread> refresh;
    if (throttle_.load()) refresh = refreshThread();
    // Throttled and animating: the refresh thread's next tick draws. Otherwise invalidate at once and let the
    // platform coalesce.
    if (refresh) {
        refresh->setShouldRefresh();
    } else {
        host_->setNeedsDisplay(true);
    }
}

std::shared_ptr<VoCoreSurfaceRefreshThread> VoCoreSurface::refreshThread() const {
    std::lock_guard lock(refreshThreadMutex_);
    return refreshThread_;
}

void VoCoreSurface::setAnimates(bool flag) {
    std::shared_ptr<VoCoreSurfaceRefreshThread> stopped;
    {
        std::lock_guard lock(refreshThreadMutex_);
        if (flag && !refreshThread_) {
            refreshThread_ = VoCoreSurfaceRefreshThread::init(this);
            refreshThread_->setActive(true);
            animates_ = true;
        } else if (!flag && refreshThread_) {
            stopped = std::move(refreshThread_);
            refreshThread_.reset();
            animates_ = false;
        }
    }
    // Stopped outside the pointer's mutex; the thread's own mutex is a leaf as well.
    if (stopped) stopped->stop();
}

void VoCoreSurface::viewWillMoveToWindow() {
    if (std::shared_ptr<VoCoreSurfaceRefreshThread> refresh = refreshThread()) refresh->setActive(false);
}

void VoCoreSurface::viewDidMoveToWindow() {
    if (host_->isInWindow()) {
        if (std::shared_ptr<VoCoreSurfaceRefreshThread> refresh = refreshThread()) refresh->setActive(true);
    }
    reshape();
}

void VoCoreSurface::prepareEnd() {
    setAnimates(false);
    removeAllCoreElements();
}

}  // namespace vo
