// SPDX-License-Identifier: MIT
// Blocks of picture rows handed from a reading thread, through an optional finishing thread, to several
// workers that each read every block, in order. Each block is reused once every worker is done with it,
// so only a few blocks exist however tall the picture is.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace voimg {

class RowPipeline {
public:
    struct Block {
        std::vector<uint8_t> raw;         // rows as read
        std::vector<uint8_t> scratch;     // room for finished rows, when finishing needs it
        const uint8_t* pixels = nullptr;  // the finished rows: raw or scratch
        int rows = 0;
        int64_t sequence = 0;
        bool finished = false;
        int readersLeft = 0;
    };

    RowPipeline(int blocks, size_t rawBytes, size_t scratchBytes, int workers);

    // Reading side: an empty block to fill (null once cancelled), then handing it on; `finished` when its
    // rows need no finishing. close() after the last block.
    Block* takeEmpty();
    void putBackEmpty(Block* block);  // taken but not filled
    void publish(Block* block, bool finished);
    void close();

    // Block number `sequence` once it was published (and finished, when `needFinished`); null when the
    // rows ended before it or the pipeline was cancelled.
    Block* waitFor(int64_t sequence, bool needFinished);
    void markFinished(Block* block);
    // A worker is done with the block.
    void release(Block* block);

    // Stops every side: waits return null from now on.
    void cancel();

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::unique_ptr<Block>> storage_;
    std::deque<Block*> empty_;
    std::deque<Block*> inFlight_;  // published and not yet released by every worker, in sequence order
    int64_t published_ = 0;
    int workers_;
    bool closed_ = false;
    bool cancelled_ = false;
};

}  // namespace voimg
