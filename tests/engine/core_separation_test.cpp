// SPDX-License-Identifier: MIT
// The caller kept on its core and the render's threads on the others, for as long as the rows pass.
#include <gtest/gtest.h>

#include <sched.h>

#include "Engine/core_separation_p.h"
#include "affinity_test_util.h"

namespace voimg {
namespace {

using namespace testing;  // the thread placement helpers

TEST(CoreSeparation, KeepsTheCallerOnItsCoreAndTheRendersThreadsOffIt) {
    const cpu_set_t cores = affinity();
    if (CPU_COUNT(&cores) < 2) GTEST_SKIP() << "a single core to use";
    inOwnThread([] {
        const cpu_set_t before = affinity();
        CoreSeparation separation(true);
        ASSERT_TRUE(separation.active());
        const int core = separation.callersCore();
        const cpu_set_t pinned = affinity();
        EXPECT_EQ(CPU_COUNT(&pinned), 1);
        EXPECT_TRUE(CPU_ISSET(core, &pinned));
        EXPECT_EQ(sched_getcpu(), core);

        PromptThread renders = separation.startThread([&] {
            EXPECT_NE(sched_getcpu(), core);  // started off it, not moved at some later wake-up
            const cpu_set_t off = affinity();
            EXPECT_FALSE(CPU_ISSET(core, &off));
            EXPECT_EQ(CPU_COUNT(&off), CPU_COUNT(&before) - 1);
        });
        renders.join();
        // Another thread the caller starts meanwhile (one finishing a file, say) may use every core.
        PromptThread other([&] { EXPECT_TRUE(sameSet(affinity(), before)); });
        other.join();

        separation.release();
        EXPECT_FALSE(separation.active());
        EXPECT_TRUE(sameSet(affinity(), before));
        PromptThread after([&] { EXPECT_TRUE(sameSet(affinity(), before)); });
        after.join();
    });
}

TEST(CoreSeparation, TheDestructorGivesTheCallerItsCoresBack) {
    inOwnThread([] {
        const cpu_set_t before = affinity();
        { CoreSeparation separation(true); }
        EXPECT_TRUE(sameSet(affinity(), before));
        PromptThread after([&] { EXPECT_TRUE(sameSet(affinity(), before)); });
        after.join();
    });
}

TEST(CoreSeparation, ChangesNothingWhenNotWanted) {
    inOwnThread([] {
        const cpu_set_t before = affinity();
        CoreSeparation separation(false);
        EXPECT_FALSE(separation.active());
        EXPECT_TRUE(sameSet(affinity(), before));
        PromptThread renders = separation.startThread([&] { EXPECT_TRUE(sameSet(affinity(), before)); });
        renders.join();
    });
}

TEST(CoreSeparation, ChangesNothingForAThreadAllowedASingleCore) {
    inOwnThread([] {
        pinToThisCore();
        const cpu_set_t one = affinity();
        CoreSeparation separation(true);
        EXPECT_FALSE(separation.active());
        EXPECT_TRUE(sameSet(affinity(), one));
        PromptThread renders = separation.startThread([&] { EXPECT_TRUE(sameSet(affinity(), one)); });
        renders.join();
    });
}

}  // namespace
}  // namespace voimg
