// SPDX-License-Identifier: MIT
// Independently compressed pieces of a picture (TIFF strips) decompressed on two threads and handed out
// in order.
//
// The reading thread asks for the pieces in increasing order. A helper thread with a decoder of its own
// claims the next unclaimed piece whenever a slot is free; the reading thread decodes a piece itself when
// it gets to one nobody has claimed yet, and while the helper finishes the one it needs, it decodes the
// next unclaimed ones rather than wait. So the two share the decompression without either idling while
// work is left, and memory stays at `slots` pieces whatever the picture's size.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "Engine/prompt_thread.h"

namespace voimg::detail {

class StripQueue {
public:
    // Decodes piece `index` into `out` (`pieceBytes` bytes) with decoder `decoder` (0 on the reading
    // thread, 1 on the helper); false when the piece could not be decoded. Each decoder is used by one
    // thread at a time.
    using Decode = std::function<bool(int decoder, uint32_t index, uint8_t* out)>;

    // `slots` (at least 1) pieces in memory at once; `helper` false, or a single slot, decodes everything
    // on the reading thread.
    StripQueue(uint32_t pieces, size_t pieceBytes, int slots, bool helper, Decode decode);
    ~StripQueue();
    StripQueue(const StripQueue&) = delete;
    StripQueue& operator=(const StripQueue&) = delete;

    // Piece `index` (indices not below the last one asked for), valid until the next call; `good` tells
    // whether it decoded (false, with null, past the last piece).
    const uint8_t* piece(uint32_t index, bool& good);

private:
    enum class State { Empty, Decoding, Ready };
    struct Slot {
        uint32_t index = UINT32_MAX;
        State state = State::Empty;
        bool good = false;
        std::vector<uint8_t> bytes;
    };

    void help();
    [[nodiscard]] bool mayClaim() const;
    // Claims the lowest unclaimed piece and decodes it with `decoder`, unlocking meanwhile.
    void claimAndDecode(std::unique_lock<std::mutex>& lock, int decoder);

    const uint32_t pieces_;
    Decode decode_;
    std::vector<Slot> slots_;
    std::mutex mutex_;
    std::condition_variable changed_;
    uint32_t nextClaim_ = 0;  // the lowest piece nobody has claimed
    uint32_t held_ = 0;       // the piece the reading thread holds (its slot is not to be reused)
    bool stopping_ = false;
    PromptThread helper_;
};

}  // namespace voimg::detail
