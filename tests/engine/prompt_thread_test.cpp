// SPDX-License-Identifier: MIT
// Threads started on another core than their creator's, then given the cores they are to use.
#include "Engine/prompt_thread.h"

#include <gtest/gtest.h>

#include <sched.h>

#include <atomic>
#include <system_error>

#include "affinity_test_util.h"

namespace voimg {
namespace {

using namespace testing;  // the thread placement helpers

bool severalCores() {
    const cpu_set_t cores = affinity();
    return CPU_COUNT(&cores) >= 2;
}

TEST(PromptThread, StartsOffItsCreatorsCoreThenTakesTheCoresForNewThreads) {
    if (!severalCores()) GTEST_SKIP() << "a single core to use";
    inOwnThread([] {
        const cpu_set_t all = affinity();
        const int core = pinToThisCore();
        PromptThread::setCoresForNewThreads(&all);
        std::atomic<int> firstCore{-1};
        PromptThread thread([&] {
            firstCore = sched_getcpu();
            EXPECT_TRUE(sameSet(affinity(), all));
        });
        thread.join();
        PromptThread::setCoresForNewThreads(nullptr);
        EXPECT_GE(firstCore.load(), 0);
        EXPECT_NE(firstCore.load(), core);
    });
}

TEST(PromptThread, TakesItsCreatorsCoresByDefault) {
    inOwnThread([] {
        const cpu_set_t mine = affinity();
        bool ran = false;
        PromptThread thread([&] {
            ran = true;
            EXPECT_TRUE(sameSet(affinity(), mine));
        });
        EXPECT_TRUE(thread.joinable());
        thread.join();
        EXPECT_FALSE(thread.joinable());
        EXPECT_TRUE(ran);
    });
}

TEST(PromptThread, StartsOnItsCreatorsOnlyCore) {
    inOwnThread([] {
        const int core = pinToThisCore();
        PromptThread thread([&] {
            EXPECT_EQ(sched_getcpu(), core);
            const cpu_set_t set = affinity();
            EXPECT_EQ(CPU_COUNT(&set), 1);
        });
        thread.join();
    });
}

TEST(PromptThread, KeepsToTheCoresItIsGiven) {
    if (!severalCores()) GTEST_SKIP() << "a single core to use";
    inOwnThread([] {
        const cpu_set_t all = affinity();
        const int core = pinToThisCore();
        cpu_set_t others = all;
        CPU_CLR(core, &others);
        PromptThread thread(
            [&] {
                EXPECT_NE(sched_getcpu(), core);
                EXPECT_TRUE(sameSet(affinity(), others));
            },
            others);
        thread.join();
    });
}

TEST(PromptThread, MovesLikeAThread) {
    inOwnThread([] {
        std::atomic<int> runs{0};
        PromptThread first([&] { ++runs; });
        PromptThread second(std::move(first));
        EXPECT_FALSE(first.joinable());
        ASSERT_TRUE(second.joinable());
        PromptThread third;
        EXPECT_FALSE(third.joinable());
        third = std::move(second);
        EXPECT_FALSE(second.joinable());
        third.join();
        EXPECT_EQ(runs.load(), 1);
        EXPECT_THROW(third.join(), std::system_error);
    });
}

}  // namespace
}  // namespace voimg
