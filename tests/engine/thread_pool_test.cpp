// SPDX-License-Identifier: MIT
#include "Engine/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace voimg {
namespace {

TEST(ThreadPool, RunsEveryIndexExactlyOnce) {
    ThreadPool pool(3);
    for (int round = 0; round < 50; ++round) {
        std::vector<std::atomic<int>> hits(97);
        pool.parallelFor(hits.size(), [&](size_t i) { hits[i]++; });
        for (auto& h : hits) ASSERT_EQ(h.load(), 1);
    }
}

TEST(ThreadPool, UsesTheWorkerThreads) {
    ThreadPool pool(2);
    std::mutex m;
    std::set<std::thread::id> seen;
    pool.parallelFor(64, [&](size_t) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        std::lock_guard lock(m);
        seen.insert(std::this_thread::get_id());
    });
    EXPECT_GE(seen.size(), 2u);
}

// Threads of this process, as the kernel lists them.
size_t processThreads() {
    return size_t(
        std::distance(std::filesystem::directory_iterator("/proc/self/task"), std::filesystem::directory_iterator()));
}

TEST(ThreadPool, StartsItsThreadsWithTheFirstJob) {
    const size_t before = processThreads();
    ThreadPool pool(3);
    EXPECT_EQ(pool.workerCount(), 3u);
    EXPECT_EQ(processThreads(), before) << "no thread before any job";
    std::atomic<int> runs{0};
    pool.parallelFor(8, [&](size_t) { ++runs; });
    EXPECT_EQ(runs.load(), 8);
    // Its three workers (a sanitizer's runtime may add a thread of its own with the first one started).
    const size_t started = processThreads();
    EXPECT_GE(started, before + 3);
    EXPECT_LE(started, before + 4);
    pool.parallelFor(8, [&](size_t) { ++runs; });
    EXPECT_EQ(processThreads(), started) << "the same threads for every later job";
}

TEST(ThreadPool, WithoutWorkersRunsOnTheCaller) {
    ThreadPool pool(0);
    std::thread::id id;
    pool.parallelFor(1, [&](size_t) { id = std::this_thread::get_id(); });
    EXPECT_EQ(id, std::this_thread::get_id());
    pool.parallelFor(0, [&](size_t) { FAIL(); });
}

}  // namespace
}  // namespace voimg
