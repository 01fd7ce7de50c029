// SPDX-License-Identifier: MIT
// The pipeline between the reading thread and the workers: blocks in order, and blocks the reading thread
// converts for a single worker when it would otherwise wait.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "Engine/row_pipeline_p.h"

namespace voimg {
namespace {

using Ahead = RowPipeline::Block::Ahead;

// Fills a block as the reading thread does: `rows` rows whose first byte is the block's number.
RowPipeline::Block* publishBlock(RowPipeline& pipeline, uint8_t number) {
    RowPipeline::Block* block = pipeline.takeEmpty();
    EXPECT_NE(block, nullptr);
    block->raw[0] = number;
    block->rows = 1;
    pipeline.publish(block, true);
    return block;
}

TEST(RowPipeline, TheReadingThreadConvertsTheNewestBlockWhenEveryBlockIsFull) {
    RowPipeline pipeline(3, 16, 0, 1);
    pipeline.allowConversions(8);
    for (uint8_t n = 0; n < 3; ++n) publishBlock(pipeline, n);
    // Nothing is empty: the newest block the worker has not started is handed out to convert.
    RowPipeline::Block* convert = nullptr;
    EXPECT_EQ(pipeline.takeEmptyOrConvert(convert), nullptr);
    ASSERT_NE(convert, nullptr);
    EXPECT_EQ(convert->raw[0], 2);
    EXPECT_EQ(convert->ahead, Ahead::Converting);
    ASSERT_NE(convert->converted, nullptr);
    convert->converted[0] = 42.0f;
    pipeline.markConverted(convert);

    // The worker takes block 0 itself (it is not converted), which no one can convert any more.
    RowPipeline::Block* first = pipeline.waitFor(0, true);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->raw[0], 0);
    EXPECT_EQ(first->ahead, Ahead::Taken);
    // Block 1 is the only one left to convert; after it there is none.
    EXPECT_EQ(pipeline.takeEmptyOrConvert(convert), nullptr);
    ASSERT_NE(convert, nullptr);
    EXPECT_EQ(convert->raw[0], 1);
    pipeline.markConverted(convert);

    pipeline.release(first);
    RowPipeline::Block* second = pipeline.waitFor(1, true);
    EXPECT_EQ(second->ahead, Ahead::Converted);
    pipeline.release(second);
    RowPipeline::Block* third = pipeline.waitFor(2, true);
    EXPECT_EQ(third->ahead, Ahead::Converted);
    EXPECT_EQ(third->converted[0], 42.0f);
    pipeline.release(third);
    // Released blocks come back empty and open.
    RowPipeline::Block* again = pipeline.takeEmptyOrConvert(convert);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(convert, nullptr);
    EXPECT_EQ(again->ahead, Ahead::Open);
    EXPECT_EQ(again->converted, nullptr);
}

TEST(RowPipeline, ConversionsWaitForASpareBuffer) {
    RowPipeline pipeline(6, 16, 0, 1);
    pipeline.allowConversions(8);
    for (uint8_t n = 0; n < 6; ++n) publishBlock(pipeline, n);
    // The pipeline has three conversion buffers (a fourth call would wait): the newest three blocks get one
    // each.
    std::vector<RowPipeline::Block*> converting;
    for (int i = 0; i < 3; ++i) {
        RowPipeline::Block* convert = nullptr;
        EXPECT_EQ(pipeline.takeEmptyOrConvert(convert), nullptr);
        ASSERT_NE(convert, nullptr);
        converting.push_back(convert);
    }
    EXPECT_EQ(converting[0]->raw[0], 5);
    EXPECT_EQ(converting[1]->raw[0], 4);
    EXPECT_EQ(converting[2]->raw[0], 3);
    EXPECT_NE(converting[0]->converted, converting[1]->converted);
    EXPECT_NE(converting[1]->converted, converting[2]->converted);
    // A fourth waits, though blocks 0 to 2 are still open: no buffer is left for them.
    std::atomic<bool> returned{false};
    std::thread fourth([&] {
        RowPipeline::Block* convert = nullptr;
        RowPipeline::Block* empty = pipeline.takeEmptyOrConvert(convert);
        EXPECT_NE(empty, nullptr);
        EXPECT_EQ(convert, nullptr);
        if (empty) pipeline.putBackEmpty(empty);
        returned = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(returned);
    for (RowPipeline::Block* b : converting) pipeline.markConverted(b);
    // Marking them converted frees no buffer: only the worker's release does.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(returned);
    RowPipeline::Block* first = pipeline.waitFor(0, true);
    pipeline.release(first);  // block 0 was not converted: an empty block for the fourth call
    fourth.join();
    EXPECT_TRUE(returned);
    // The worker goes through the other five in order.
    for (int64_t n = 1; n < 6; ++n) {
        RowPipeline::Block* block = pipeline.waitFor(n, true);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(block->raw[0], n);
        EXPECT_EQ(block->ahead, n >= 3 ? Ahead::Converted : Ahead::Taken);
        pipeline.release(block);
    }
}

TEST(RowPipeline, AfterTheLastBlockTheReadingThreadConvertsWhatTheWorkerHasNotStarted) {
    RowPipeline pipeline(6, 16, 0, 1);
    pipeline.allowConversions(8);
    for (uint8_t n = 0; n < 5; ++n) publishBlock(pipeline, n);
    pipeline.close();
    RowPipeline::Block* first = pipeline.waitFor(0, true);  // the worker is on block 0
    // Newest first, a buffer each, while there are buffers.
    std::vector<RowPipeline::Block*> converting;
    for (int i = 0; i < 3; ++i) {
        RowPipeline::Block* convert = pipeline.takeLeftToConvert();
        ASSERT_NE(convert, nullptr);
        EXPECT_EQ(convert->raw[0], 4 - i);
        EXPECT_EQ(convert->ahead, Ahead::Converting);
        converting.push_back(convert);
    }
    // Block 1 is still open but every buffer is in use: the call waits for the worker to free one, which
    // the worker's release of a converted block does.
    std::atomic<RowPipeline::Block*> fourth{nullptr};
    std::atomic<bool> returned{false};
    std::thread helper([&] {
        fourth = pipeline.takeLeftToConvert();
        returned = true;
    });
    for (RowPipeline::Block* b : converting) pipeline.markConverted(b);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(returned);
    pipeline.release(first);
    RowPipeline::Block* second = pipeline.waitFor(1, true);  // the worker took block 1 first
    EXPECT_EQ(second->ahead, Ahead::Taken);
    pipeline.release(second);
    RowPipeline::Block* third = pipeline.waitFor(2, true);
    EXPECT_EQ(third->ahead, Ahead::Converted);
    pipeline.release(third);  // no open block is left: the call returns null
    helper.join();
    EXPECT_TRUE(returned);
    EXPECT_EQ(fourth.load(), nullptr);
    for (int64_t n = 3; n < 5; ++n) {
        RowPipeline::Block* block = pipeline.waitFor(n, true);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(block->ahead, Ahead::Converted);
        pipeline.release(block);
    }
    EXPECT_EQ(pipeline.waitFor(5, true), nullptr);
    EXPECT_EQ(pipeline.takeLeftToConvert(), nullptr);
}

TEST(RowPipeline, ConversionsStartWhenAllowed) {
    RowPipeline pipeline(3, 16, 0, 1);
    for (uint8_t n = 0; n < 3; ++n) publishBlock(pipeline, n);
    // Every block is full and nothing may be converted yet: the reading thread waits.
    std::atomic<RowPipeline::Block*> converting{nullptr};
    std::atomic<bool> returned{false};
    std::thread reader([&] {
        RowPipeline::Block* convert = nullptr;
        EXPECT_EQ(pipeline.takeEmptyOrConvert(convert), nullptr);
        converting = convert;
        returned = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(returned);
    pipeline.allowConversions(8);  // wakes it with the newest block
    reader.join();
    ASSERT_NE(converting.load(), nullptr);
    EXPECT_EQ(converting.load()->raw[0], 2);
    ASSERT_NE(converting.load()->converted, nullptr);
    converting.load()->converted[7] = 1.0f;  // room for the floats asked for
    pipeline.markConverted(converting.load());
}

TEST(RowPipeline, SeveralWorkersOrNoBufferMeanNoConversions) {
    for (const auto& [workers, floats] : std::vector<std::pair<int, size_t>>{{2, 8}, {1, 0}}) {
        RowPipeline pipeline(2, 16, 0, workers);
        pipeline.allowConversions(floats);
        for (uint8_t n = 0; n < 2; ++n) publishBlock(pipeline, n);
        // With nothing to convert the reading thread waits for an empty block: cancelling ends the wait.
        std::thread canceller([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            pipeline.cancel();
        });
        RowPipeline::Block* convert = nullptr;
        EXPECT_EQ(pipeline.takeEmptyOrConvert(convert), nullptr);
        EXPECT_EQ(convert, nullptr);
        canceller.join();
        EXPECT_EQ(pipeline.takeLeftToConvert(), nullptr);
    }
    // Nor after the last block, at once, whatever is allowed later with several workers.
    RowPipeline pipeline(2, 16, 0, 2);
    pipeline.allowConversions(8);
    publishBlock(pipeline, 0);
    pipeline.close();
    EXPECT_EQ(pipeline.takeLeftToConvert(), nullptr);
}

// Real threads: a reader that converts whenever it would wait, and a slow worker; every block arrives in
// order, each converted either by the reader or not at all, never both or half.
TEST(RowPipeline, ConvertingAheadKeepsOrderUnderRealThreads) {
    constexpr int kBlocks = 400;
    RowPipeline pipeline(6, 16, 0, 1);
    pipeline.allowConversions(4);
    int converted = 0;
    std::thread reader([&] {
        int next = 0;
        while (next < kBlocks) {
            RowPipeline::Block* convert = nullptr;
            RowPipeline::Block* block = pipeline.takeEmptyOrConvert(convert);
            if (convert) {
                for (int i = 0; i < 4; ++i) convert->converted[i] = float(convert->raw[0]) + 0.5f;
                pipeline.markConverted(convert);
                ++converted;
                continue;
            }
            if (!block) break;
            block->raw[0] = uint8_t(next % 256);
            block->rows = 1;
            pipeline.publish(block, true);
            ++next;
        }
        pipeline.close();
    });
    int seen = 0, ahead = 0;
    for (int64_t n = 0;; ++n) {
        RowPipeline::Block* block = pipeline.waitFor(n, true);
        if (!block) break;
        EXPECT_EQ(block->raw[0], uint8_t(n % 256));
        if (block->ahead == Ahead::Converted) {
            ++ahead;
            for (int i = 0; i < 4; ++i) EXPECT_EQ(block->converted[i], float(n % 256) + 0.5f);
        } else {
            EXPECT_EQ(block->ahead, Ahead::Taken);
        }
        if (n % 3 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));  // a slow worker
        pipeline.release(block);
        ++seen;
    }
    reader.join();
    EXPECT_EQ(seen, kBlocks);
    EXPECT_EQ(ahead, converted);
    EXPECT_GT(ahead, 0);  // a reader that far ahead has time to convert
}

}  // namespace
}  // namespace voimg
