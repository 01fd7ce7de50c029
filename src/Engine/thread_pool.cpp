// SPDX-License-Identifier: MIT
#include "thread_pool.h"

namespace voimg {

ThreadPool::ThreadPool(size_t threads) {
    workers_.reserve(threads);
    for (size_t i = 0; i < threads; ++i) workers_.emplace_back([this] { workerLoop(); });
}

ThreadPool::~ThreadPool() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (std::thread& t : workers_) t.join();
}

void ThreadPool::parallelFor(size_t count, const std::function<void(size_t)>& job) {
    if (count == 0) return;
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
        (*job)(i);
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
