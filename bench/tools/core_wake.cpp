// SPDX-License-Identifier: MIT
// core_wake [ROUNDS]: how long a new thread waits before it first runs when the machine was idle for
// 20 ms, while the thread that started it keeps working. Prints the median in milliseconds.
//
// A multi-threaded tool pays this wait and a single-threaded one does not. On a virtual machine an idle
// virtual core may be parked by the host, and the kernel then counts it as busy: the new thread waits for
// the time slice of the thread that started it. The benchmark reports the figure beside its own.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double startDelayAfterIdling() {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::atomic<Clock::rep> started{0};
    const Clock::time_point asked = Clock::now();
    std::thread thread([&] { started = Clock::now().time_since_epoch().count(); });
    while (started.load() == 0) {
    }
    thread.join();
    const Clock::time_point first{Clock::duration(started.load())};
    return std::chrono::duration<double, std::milli>(first - asked).count();
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;
    std::vector<double> delays;
    for (int i = 0; i < rounds; ++i) delays.push_back(startDelayAfterIdling());
    std::sort(delays.begin(), delays.end());
    std::printf("%.3f\n", delays[delays.size() / 2]);
    return 0;
}
