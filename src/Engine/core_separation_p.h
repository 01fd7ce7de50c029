// SPDX-License-Identifier: MIT
// Keeping a streaming render's threads and its caller on separate cores.
//
// On a virtual machine an idle virtual core may be parked by the host, and the kernel then counts it as
// busy: a thread it wakes goes to the core of the thread that woke it instead. A reading thread and the
// worker that follows it wake each other for every block of rows, so both end up taking turns on one core
// while the other stays idle. On our two-core VM that made a 2560x1920 JPEG take 27 ms instead of 16, in
// most runs. So for the rows' pass the caller is kept on the core it runs on, and the render's own threads
// on the other cores, where they are started (see PromptThread). Threads the caller starts meanwhile for
// other work may use every core. Nothing changes where the process may use a single core.
#pragma once

#include <sched.h>

#include <functional>

#include "prompt_thread.h"

namespace voimg {

class CoreSeparation {
public:
    // When `wanted`, keeps the calling thread on the core it runs on, if the thread may use others too.
    explicit CoreSeparation(bool wanted);
    ~CoreSeparation() { release(); }
    CoreSeparation(const CoreSeparation&) = delete;
    CoreSeparation& operator=(const CoreSeparation&) = delete;

    // The calling thread may use every core it could before.
    void release();

    // Starts one of the render's threads, off the caller's core while the caller is kept on it.
    [[nodiscard]] PromptThread startThread(std::function<void()> body) const;

    [[nodiscard]] bool active() const { return active_; }
    [[nodiscard]] int callersCore() const { return core_; }

private:
    cpu_set_t allowed_{};  // the caller's cores before
    cpu_set_t others_{};   // those without the caller's
    int core_ = -1;
    bool active_ = false;
};

}  // namespace voimg
