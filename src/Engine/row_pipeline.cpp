// SPDX-License-Identifier: MIT
#include "row_pipeline_p.h"

#include <algorithm>

namespace voimg {

RowPipeline::RowPipeline(int blocks, size_t rawBytes, size_t scratchBytes, int workers) : workers_(workers) {
    for (int i = 0; i < blocks; ++i) {
        auto block = std::make_unique<Block>();
        block->raw.resize(rawBytes);
        block->scratch.resize(scratchBytes);
        empty_.push_back(block.get());
        storage_.push_back(std::move(block));
    }
}

RowPipeline::Block* RowPipeline::takeEmpty() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return cancelled_ || !empty_.empty(); });
    if (cancelled_) return nullptr;
    Block* block = empty_.front();
    empty_.pop_front();
    return block;
}

void RowPipeline::putBackEmpty(Block* block) {
    std::lock_guard lock(mutex_);
    empty_.push_back(block);
    changed_.notify_all();
}

void RowPipeline::publish(Block* block, bool finished) {
    std::lock_guard lock(mutex_);
    block->sequence = published_++;
    block->finished = finished;
    if (finished) block->pixels = block->raw.data();
    block->readersLeft = workers_;
    inFlight_.push_back(block);
    changed_.notify_all();
}

void RowPipeline::close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    changed_.notify_all();
}

RowPipeline::Block* RowPipeline::waitFor(int64_t sequence, bool needFinished) {
    std::unique_lock lock(mutex_);
    Block* found = nullptr;
    changed_.wait(lock, [&] {
        if (cancelled_) return true;
        for (Block* b : inFlight_)
            if (b->sequence == sequence && (b->finished || !needFinished)) {
                found = b;
                return true;
            }
        return closed_ && sequence >= published_;
    });
    return cancelled_ ? nullptr : found;
}

void RowPipeline::markFinished(Block* block) {
    std::lock_guard lock(mutex_);
    block->finished = true;
    changed_.notify_all();
}

void RowPipeline::release(Block* block) {
    std::lock_guard lock(mutex_);
    if (--block->readersLeft > 0) return;
    inFlight_.erase(std::find(inFlight_.begin(), inFlight_.end(), block));
    block->rows = 0, block->finished = false, block->pixels = nullptr;
    empty_.push_back(block);
    changed_.notify_all();
}

void RowPipeline::cancel() {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
    changed_.notify_all();
}

}  // namespace voimg
