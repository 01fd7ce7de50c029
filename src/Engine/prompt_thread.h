// SPDX-License-Identifier: MIT
// Threads that start running at once beside a busy creator.
//
// On a virtual machine an idle virtual core may be parked by the host, and the kernel then counts it as
// busy: a new thread is queued on its creator's core and waits there for the creator's time slice to end,
// about 4 ms on our 2-core VM when the creator keeps working (`bench/tools/core_wake.cpp`). A thread that
// may not use its creator's core is queued on another one and first runs within about 0.2 ms. So a
// PromptThread starts on the creator's other cores, where it has some, and then takes the cores it was
// given (by default the creator's, as a std::thread would inherit them).
#pragma once

#include <pthread.h>
#include <sched.h>

#include <functional>

namespace voimg {

class PromptThread {
public:
    PromptThread() noexcept = default;
    // Runs `body` on a new thread that may then use the creator's cores; throws std::system_error, as
    // std::thread does, when no thread can be had. An exception leaving `body` ends the program.
    explicit PromptThread(std::function<void()> body);
    // The same, on `cores` for the whole of its life (they need not include the creator's).
    PromptThread(std::function<void()> body, const cpu_set_t& cores);
    PromptThread(PromptThread&& other) noexcept;
    PromptThread& operator=(PromptThread&& other) noexcept;
    PromptThread(const PromptThread&) = delete;
    PromptThread& operator=(const PromptThread&) = delete;
    // Like std::thread, a thread still joinable here ends the program.
    ~PromptThread();

    [[nodiscard]] bool joinable() const noexcept { return joinable_; }
    void join();

    // The cores that threads started by the calling thread may use from now on, instead of its own: for a
    // thread kept on one core for a while (CoreSeparation), whose new threads should not be kept there too.
    // Null returns to its own.
    static void setCoresForNewThreads(const cpu_set_t* cores) noexcept;

private:
    void start(std::function<void()> body, const cpu_set_t& cores);

    pthread_t thread_{};
    bool joinable_ = false;
};

}  // namespace voimg
