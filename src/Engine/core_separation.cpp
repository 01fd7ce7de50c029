// SPDX-License-Identifier: MIT
#include "core_separation_p.h"

#include <utility>

namespace voimg {

CoreSeparation::CoreSeparation(bool wanted) {
    CPU_ZERO(&allowed_);
    if (!wanted) return;
    // A process allowed more cores than a cpu_set_t holds is left alone (EINVAL), as one allowed a single one.
    if (::sched_getaffinity(0, sizeof allowed_, &allowed_) != 0 || CPU_COUNT(&allowed_) < 2) return;
    const int core = ::sched_getcpu();
    if (core < 0 || core >= CPU_SETSIZE || !CPU_ISSET(core, &allowed_)) return;
    cpu_set_t mine;
    CPU_ZERO(&mine);
    CPU_SET(core, &mine);
    if (::sched_setaffinity(0, sizeof mine, &mine) != 0) return;
    others_ = allowed_;
    CPU_CLR(core, &others_);
    core_ = core;
    active_ = true;
    PromptThread::setCoresForNewThreads(&allowed_);
}

void CoreSeparation::release() {
    if (!active_) return;
    active_ = false;
    PromptThread::setCoresForNewThreads(nullptr);
    ::sched_setaffinity(0, sizeof allowed_, &allowed_);
}

PromptThread CoreSeparation::startThread(std::function<void()> body) const {
    return core_ >= 0 ? PromptThread(std::move(body), others_) : PromptThread(std::move(body));
}

}  // namespace voimg
