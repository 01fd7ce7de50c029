// SPDX-License-Identifier: MIT
#include "prompt_thread.h"

#include <cerrno>
#include <exception>
#include <memory>
#include <system_error>
#include <utility>

namespace voimg {
namespace {

struct Start {
    std::function<void()> body;
    cpu_set_t cores;
    bool moves = false;  // started elsewhere than on `cores`
};

void* run(void* argument) noexcept {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    if (start->moves) ::sched_setaffinity(0, sizeof start->cores, &start->cores);
    start->body();
    return nullptr;
}

thread_local const cpu_set_t* tCoresForNewThreads = nullptr;

cpu_set_t callersCores() {
    if (tCoresForNewThreads) return *tCoresForNewThreads;
    cpu_set_t cores;
    CPU_ZERO(&cores);
    if (::sched_getaffinity(0, sizeof cores, &cores) != 0) CPU_ZERO(&cores);
    return cores;
}

}  // namespace

PromptThread::PromptThread(std::function<void()> body) { start(std::move(body), callersCores()); }

PromptThread::PromptThread(std::function<void()> body, const cpu_set_t& cores) { start(std::move(body), cores); }

void PromptThread::start(std::function<void()> body, const cpu_set_t& cores) {
    auto start = std::make_unique<Start>(Start{std::move(body), cores, false});
    // Where it starts: its cores without the creator's, when that leaves some.
    cpu_set_t first = cores;
    const int mine = ::sched_getcpu();
    if (mine >= 0 && mine < CPU_SETSIZE) CPU_CLR(mine, &first);
    if (CPU_COUNT(&first) == 0) first = cores;
    pthread_attr_t attributes;
    if (int error = ::pthread_attr_init(&attributes)) throw std::system_error(error, std::generic_category());
    const bool placed = ::pthread_attr_setaffinity_np(&attributes, sizeof first, &first) == 0;
    start->moves = !placed || !CPU_EQUAL(&first, &cores);
    int error = ::pthread_create(&thread_, &attributes, run, start.get());
    ::pthread_attr_destroy(&attributes);
    if (error == EINVAL && placed) {  // cores the system would not take: started where the creator may run
        start->moves = true;
        error = ::pthread_create(&thread_, nullptr, run, start.get());
    }
    if (error) throw std::system_error(error, std::generic_category(), "thread not started");
    start.release();  // the thread's now
    joinable_ = true;
}

void PromptThread::setCoresForNewThreads(const cpu_set_t* cores) noexcept { tCoresForNewThreads = cores; }

PromptThread::PromptThread(PromptThread&& other) noexcept
    : thread_(other.thread_), joinable_(std::exchange(other.joinable_, false)) {}

PromptThread& PromptThread::operator=(PromptThread&& other) noexcept {
    if (joinable_) std::terminate();
    thread_ = other.thread_;
    joinable_ = std::exchange(other.joinable_, false);
    return *this;
}

PromptThread::~PromptThread() {
    if (joinable_) std::terminate();
}

void PromptThread::join() {
    if (!joinable_) throw std::system_error(std::make_error_code(std::errc::invalid_argument), "thread not joinable");
    if (int error = ::pthread_join(thread_, nullptr)) throw std::system_error(error, std::generic_category());
    joinable_ = false;
}

}  // namespace voimg
