// SPDX-License-Identifier: MIT
// A fixed set of worker threads that run the tiles of a render, started by the first job that needs them
// (a command that only streams a file never does).
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <vector>

#include "prompt_thread.h"

namespace voimg {

class ThreadPool {
public:
    // `threads` workers besides the caller; 0 runs everything on the calling thread.
    explicit ThreadPool(size_t threads);
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Runs job(i) for i in [0, count) on the workers and the calling thread; returns when all are done.
    // Calls from several threads take turns; a call from inside a job runs its jobs serially on the caller.
    void parallelFor(size_t count, const std::function<void(size_t)>& job);
    [[nodiscard]] size_t workerCount() const { return threads_; }

private:
    void startWorkers();
    void workerLoop();
    void runJobs();

    size_t threads_;
    bool started_ = false;  // guarded by callers_
    std::vector<PromptThread> workers_;
    std::mutex callers_;  // one parallelFor at a time
    std::mutex mutex_;
    std::condition_variable wake_, done_;
    const std::function<void(size_t)>* job_ = nullptr;
    size_t count_ = 0, next_ = 0, finished_ = 0, generation_ = 0;
    bool stopping_ = false;
};

}  // namespace voimg
