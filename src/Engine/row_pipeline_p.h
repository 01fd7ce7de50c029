// SPDX-License-Identifier: MIT
// Blocks of picture rows handed from a reading thread, through an optional finishing thread, to several
// workers that each read every block, in order. Each block is reused once every worker is done with it,
// so only a few blocks exist however tall the picture is.
//
// With a single worker, the reading thread can take a share of the worker's work: when every block is
// full and it would wait, it converts the rows of the newest published block the worker has not started
// (the farthest from the worker, so that the two seldom meet) into the form the worker needs, so that
// whichever side is slower, decoding or resizing, the other helps it along; and once the picture is read,
// it does the same with the blocks the worker has left.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "large_allocator.h"

namespace voimg {

class RowPipeline {
public:
    struct Block {
        // Parts of the pipeline's one allocation, left unwritten until rows are read into them: fresh memory
        // costs a page fault per page at its first use, which is better spread over the reading than paid
        // before it starts.
        uint8_t* raw = nullptr;           // rows as read
        uint8_t* scratch = nullptr;       // room for finished rows, when finishing needs it
        const uint8_t* pixels = nullptr;  // the finished rows: raw or scratch
        int rows = 0;
        int64_t sequence = 0;
        bool finished = false;
        int readersLeft = 0;
        // Converted by the reading thread: `converted` then holds the rows in the worker's form.
        enum class Ahead : uint8_t { Open, Converting, Converted, Taken } ahead = Ahead::Open;
        float* converted = nullptr;  // one of the pipeline's few buffers, while converted
    };

    RowPipeline(int blocks, size_t rawBytes, size_t scratchBytes, int workers);
    // Lets the reading thread convert blocks from now on (a single worker only; once), into buffers of
    // `convertedFloats` (one block of converted rows): what it needs for that is ready.
    void allowConversions(size_t convertedFloats);

    // Reading side: an empty block to fill (null once cancelled), then handing it on; `finished` when its
    // rows need no finishing. close() after the last block.
    Block* takeEmpty();
    // The same, except that while no block is empty it returns (in `convert`, with a null result) a block to
    // convert ahead when there is one; markConverted() when done. Both null once cancelled.
    Block* takeEmptyOrConvert(Block*& convert);
    void markConverted(Block* block);
    // Once the last block is read: the next block to convert ahead among those the worker has not started,
    // waiting while one could still become convertible (its rows finished, a buffer free); null when none
    // is left (or the pipeline was cancelled).
    Block* takeLeftToConvert();
    void putBackEmpty(Block* block);  // taken but not filled
    void publish(Block* block, bool finished);
    void close();

    // Block number `sequence` once it was published (and finished, when `needFinished`); null when the
    // rows ended before it or the pipeline was cancelled. For the worker, when the reading thread converts
    // blocks, the block's conversion is over (its `ahead` is Converted) or never starts (Taken).
    Block* waitFor(int64_t sequence, bool needFinished);
    void markFinished(Block* block);
    // A worker is done with the block.
    void release(Block* block);

    // Stops every side: waits return null from now on.
    void cancel();

private:
    [[nodiscard]] Block* convertible() const;
    [[nodiscard]] bool mayBecomeConvertible() const;
    Block* startConverting(Block* block);

    static constexpr int kConvertedBuffers = 3;

    std::mutex mutex_;
    std::condition_variable changed_;
    // Every buffer in one allocation: released in one piece, rather than a dozen unmappings (each
    // interrupting the other cores to flush their address translations) at the end of every picture.
    LargeArray<std::byte> memory_;
    LargeArray<float> convertedMemory_;  // the conversion buffers, once allowed
    std::vector<std::unique_ptr<Block>> storage_;
    std::deque<Block*> empty_;
    std::deque<Block*> inFlight_;  // published and not yet released by every worker, in sequence order
    int64_t published_ = 0;
    int workers_;
    size_t convertedFloats_ = 0;
    std::vector<float*> spareConverted_;
    bool closed_ = false;
    bool cancelled_ = false;
};

}  // namespace voimg
