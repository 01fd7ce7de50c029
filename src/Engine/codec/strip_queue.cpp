// SPDX-License-Identifier: MIT
#include "strip_queue_p.h"

#include <algorithm>

namespace voimg::detail {

StripQueue::StripQueue(uint32_t pieces, size_t pieceBytes, int slots, bool helper, Decode decode)
    : pieces_(pieces), decode_(std::move(decode)), slots_(size_t(std::max(slots, 1))) {
    for (Slot& slot : slots_) slot.bytes.resize(pieceBytes);
    // With one slot the helper would only ever wait for the reading thread to move on.
    if (helper && pieces > 1 && slots_.size() > 1) helper_ = PromptThread([this] { help(); });
}

StripQueue::~StripQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (helper_.joinable()) helper_.join();
}

// A piece may go into the slot of the one the reading thread holds only once it has moved past it.
bool StripQueue::mayClaim() const { return nextClaim_ < pieces_ && nextClaim_ < held_ + slots_.size(); }

void StripQueue::claimAndDecode(std::unique_lock<std::mutex>& lock, int decoder) {
    const uint32_t index = nextClaim_++;
    Slot& slot = slots_[index % slots_.size()];
    slot.index = index, slot.state = State::Decoding;
    lock.unlock();
    const bool good = decode_(decoder, index, slot.bytes.data());
    lock.lock();
    slot.good = good, slot.state = State::Ready;
    changed_.notify_all();
}

void StripQueue::help() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopping_ || mayClaim(); });
        if (stopping_) return;
        claimAndDecode(lock, 1);
    }
}

const uint8_t* StripQueue::piece(uint32_t index, bool& good) {
    good = false;
    if (index >= pieces_) return nullptr;
    std::unique_lock lock(mutex_);
    held_ = index;
    changed_.notify_all();  // the slot of the piece held before is free now
    Slot& slot = slots_[index % slots_.size()];
    // A piece skipped on the way may still be decoding into this slot.
    changed_.wait(lock, [&] { return slot.index == index || slot.state != State::Decoding; });
    if (slot.index != index) {
        // Nobody has claimed it (pieces skipped on the way are never asked for).
        nextClaim_ = index;
        claimAndDecode(lock, 0);
    }
    // While the helper finishes this piece, decode the next ones rather than wait.
    while (slot.state != State::Ready) {
        if (mayClaim())
            claimAndDecode(lock, 0);
        else
            changed_.wait(lock);
    }
    good = slot.good;
    return slot.bytes.data();
}

}  // namespace voimg::detail
