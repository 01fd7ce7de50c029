// SPDX-License-Identifier: MIT
// The cores a test thread may use, for the tests of thread placement.
#pragma once

#include <gtest/gtest.h>

#include <sched.h>

#include <thread>

namespace voimg::testing {

inline cpu_set_t affinity() {
    cpu_set_t set;
    CPU_ZERO(&set);
    EXPECT_EQ(sched_getaffinity(0, sizeof set, &set), 0);
    return set;
}

inline bool sameSet(const cpu_set_t& a, const cpu_set_t& b) { return CPU_EQUAL(&a, &b); }

// Runs a test's body in a thread of its own, so that the test process keeps its cores whatever happens.
template <class Body>
void inOwnThread(Body body) {
    std::thread(body).join();
}

// Keeps the calling thread on the core it runs on; returns that core.
inline int pinToThisCore() {
    const int core = sched_getcpu();
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(core, &one);
    EXPECT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    return core;
}

}  // namespace voimg::testing
