// SPDX-License-Identifier: MIT
#include "row_pipeline_p.h"

#include <algorithm>

namespace voimg {

RowPipeline::RowPipeline(int blocks, size_t rawBytes, size_t scratchBytes, int workers, size_t convertedFloats)
    : workers_(workers), convertedFloats_(workers == 1 ? convertedFloats : 0) {
    for (int i = 0; i < blocks; ++i) {
        auto block = std::make_unique<Block>();
        block->raw = std::make_unique_for_overwrite<uint8_t[]>(rawBytes);
        if (scratchBytes > 0) block->scratch = std::make_unique_for_overwrite<uint8_t[]>(scratchBytes);
        empty_.push_back(block.get());
        storage_.push_back(std::move(block));
    }
    // Fresh memory costs a page fault per page at its first use, so the few buffers are reused.
    for (int i = 0; convertedFloats_ > 0 && i < kConvertedBuffers; ++i)
        spareConverted_.push_back(std::make_unique_for_overwrite<float[]>(convertedFloats_));
}

RowPipeline::Block* RowPipeline::takeEmpty() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return cancelled_ || !empty_.empty(); });
    if (cancelled_) return nullptr;
    Block* block = empty_.front();
    empty_.pop_front();
    return block;
}

RowPipeline::Block* RowPipeline::convertible() const {
    if (spareConverted_.empty()) return nullptr;
    for (auto b = inFlight_.rbegin(); b != inFlight_.rend(); ++b) {
        if ((*b)->ahead == Block::Ahead::Taken) return nullptr;  // the worker is there already
        if ((*b)->ahead == Block::Ahead::Open && (*b)->finished) return *b;
    }
    return nullptr;
}

RowPipeline::Block* RowPipeline::takeEmptyOrConvert(Block*& convert) {
    convert = nullptr;
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return cancelled_ || !empty_.empty() || convertible() != nullptr; });
    if (cancelled_) return nullptr;
    if (!empty_.empty()) {
        Block* block = empty_.front();
        empty_.pop_front();
        return block;
    }
    convert = convertible();
    convert->ahead = Block::Ahead::Converting;
    convert->convertedStorage = std::move(spareConverted_.back());
    spareConverted_.pop_back();
    convert->converted = convert->convertedStorage.get();
    return nullptr;
}

void RowPipeline::markConverted(Block* block) {
    std::lock_guard lock(mutex_);
    block->ahead = Block::Ahead::Converted;
    changed_.notify_all();
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
    if (finished) block->pixels = block->raw.get();
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
            if (b->sequence == sequence && (b->finished || !needFinished) && b->ahead != Block::Ahead::Converting) {
                found = b;
                return true;
            }
        return closed_ && sequence >= published_;
    });
    if (cancelled_) return nullptr;
    if (found && needFinished && found->ahead == Block::Ahead::Open) found->ahead = Block::Ahead::Taken;
    return found;
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
    block->ahead = Block::Ahead::Open, block->converted = nullptr;
    if (block->convertedStorage) spareConverted_.push_back(std::move(block->convertedStorage));
    empty_.push_back(block);
    changed_.notify_all();
}

void RowPipeline::cancel() {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
    changed_.notify_all();
}

}  // namespace voimg
