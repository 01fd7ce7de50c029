// SPDX-License-Identifier: MIT
// VoCoreSurfaceMainThread: running work on the main thread, the thread of the Qt event loop
// (QCoreApplication), waiting for it or not. The surface's threads use it to hand layer changes, draws and
// delegate notices to the main thread.
#pragma once

#include <cstddef>
#include <functional>

namespace vo {

class VoCoreSurfaceMainThread {
public:
    // True on the thread of the application object; also true when there is no application object (there
    // is no event loop to hand work to, so the caller counts as the main thread).
    [[nodiscard]] static bool isMainThread();
    // Sets up the wake-up of the main thread; does something only on the main thread, once. Called by
    // surfaces when they are made and by perform() on the main thread.
    static void prepare();
    // Runs `work` on the main thread. Waiting: from the main thread it runs at once; from another thread the
    // caller blocks until the event loop has run it. Not waiting: it is queued behind the events already
    // posted, also when called on the main thread. Without an application object it runs at once.
    static void perform(std::function<void()> work, bool wait);
    // Calls run through perform() so far (waited for or queued), and queued calls not run yet.
    [[nodiscard]] static long tasksRun();
    [[nodiscard]] static size_t pendingTasks();
};

}  // namespace vo
