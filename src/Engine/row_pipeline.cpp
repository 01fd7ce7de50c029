// SPDX-License-Identifier: MIT
#include "row_pipeline_p.h"

#include <algorithm>

namespace voimg {

namespace {

// Each buffer starts on a cache line of its own.
constexpr size_t kAlignment = 64;
size_t aligned(size_t bytes) { return (bytes + kAlignment - 1) / kAlignment * kAlignment; }

}  // namespace

RowPipeline::RowPipeline(int blocks, size_t rawBytes, size_t scratchBytes, int workers) : workers_(workers) {
    const size_t blockBytes = aligned(rawBytes) + aligned(scratchBytes);
    memory_ = makeLargeArray<std::byte>(size_t(blocks) * blockBytes + kAlignment);
    std::byte* next = memory_.get() + (kAlignment - reinterpret_cast<uintptr_t>(memory_.get()) % kAlignment);
    for (int i = 0; i < blocks; ++i, next += blockBytes) {
        auto block = std::make_unique<Block>();
        block->raw = reinterpret_cast<uint8_t*>(next);
        if (scratchBytes > 0) block->scratch = reinterpret_cast<uint8_t*>(next + aligned(rawBytes));
        empty_.push_back(block.get());
        storage_.push_back(std::move(block));
    }
}

void RowPipeline::allowConversions(size_t convertedFloats) {
    if (workers_ != 1 || convertedFloats == 0) return;
    const size_t floatsPerBuffer = aligned(convertedFloats * sizeof(float)) / sizeof(float);
    LargeArray<float> memory = makeLargeArray<float>(floatsPerBuffer * kConvertedBuffers);
    std::lock_guard lock(mutex_);
    if (convertedFloats_ > 0) return;
    // Fresh memory costs a page fault per page at its first use, so the few buffers are reused.
    convertedMemory_ = std::move(memory);
    convertedFloats_ = convertedFloats;
    for (int i = 0; i < kConvertedBuffers; ++i) spareConverted_.push_back(convertedMemory_.get() + i * floatsPerBuffer);
    changed_.notify_all();
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

// Whether a block the worker has not started is still open: its rows may be unfinished, or every buffer
// in use, for now.
bool RowPipeline::mayBecomeConvertible() const {
    if (convertedFloats_ == 0) return false;
    for (auto b = inFlight_.rbegin(); b != inFlight_.rend(); ++b) {
        if ((*b)->ahead == Block::Ahead::Taken) return false;
        if ((*b)->ahead == Block::Ahead::Open) return true;
    }
    return false;
}

RowPipeline::Block* RowPipeline::startConverting(Block* block) {
    block->ahead = Block::Ahead::Converting;
    block->converted = spareConverted_.back();
    spareConverted_.pop_back();
    return block;
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
    convert = startConverting(convertible());
    return nullptr;
}

RowPipeline::Block* RowPipeline::takeLeftToConvert() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return cancelled_ || convertible() != nullptr || !mayBecomeConvertible(); });
    if (cancelled_) return nullptr;
    Block* block = convertible();
    return block ? startConverting(block) : nullptr;
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
    if (finished) block->pixels = block->raw;
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
    if (block->converted) spareConverted_.push_back(block->converted);
    block->ahead = Block::Ahead::Open, block->converted = nullptr;
    empty_.push_back(block);
    changed_.notify_all();
}

void RowPipeline::cancel() {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
    changed_.notify_all();
}

}  // namespace voimg
