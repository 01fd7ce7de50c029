// SPDX-License-Identifier: MIT
#include "thread_pool.h"

#include <system_error>

namespace voimg {

namespace {
thread_local const ThreadPool* tRunningIn = nullptr;  // the pool whose job this thread is running
}

ThreadPool::ThreadPool(size_t threads) : threads_(threads) {}

void ThreadPool::startWorkers() {
    started_ = true;
    workers_.reserve(threads_);
    try {
        for (size_t i = 0; i < threads_; ++i) workers_.emplace_back([this] { workerLoop(); });
    } catch (const std::system_error&) {  // no more threads to be had: the caller runs the rest
    }
}

ThreadPool::~ThreadPool() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (PromptThread& t : workers_) t.join();
}

void ThreadPool::parallelFor(size_t count, const std::function<void(size_t)>& job) {
    if (count == 0) return;
    if (tRunningIn == this) {
        for (size_t i = 0; i < count; ++i) job(i);
        return;
    }
    std::lock_guard turn(callers_);
    if (!started_) startWorkers();
    {
        std::lock_guard lock(mutex_);
        job_ = &job;
        count_ = count;
        next_ = finished_ = 0;
        ++generation_;
    }
    wake_.notify_all();
    runJobs();
    std::unique_lock lock(mutex_);
    done_.wait(lock, [this] { return finished_ == count_; });
    job_ = nullptr;
}

void ThreadPool::runJobs() {
    std::unique_lock lock(mutex_);
    while (job_ && next_ < count_) {
        const size_t i = next_++;
        const auto* job = job_;
        lock.unlock();
        const ThreadPool* outer = tRunningIn;
        tRunningIn = this;
        (*job)(i);
        tRunningIn = outer;
        lock.lock();
        if (++finished_ == count_) done_.notify_all();
    }
}

void ThreadPool::workerLoop() {
    size_t seen = 0;
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [&] { return stopping_ || (generation_ != seen && job_ && next_ < count_); });
            if (stopping_) return;
            seen = generation_;
        }
        runJobs();
    }
}

}  // namespace voimg
