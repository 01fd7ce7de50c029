// SPDX-License-Identifier: MIT
// Pieces decoded on two threads come out in order, each decoded once, and a piece handed out stays intact
// until the next one is asked for.
#include "Engine/codec/strip_queue_p.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

using voimg::detail::StripQueue;

namespace {

constexpr size_t kPieceBytes = 64;

// Records which decoder decoded each piece; pieces listed in `failing` fail.
struct Recorder {
    explicit Recorder(uint32_t pieces) : decodedBy(pieces), decodeCount(pieces) {}
    std::vector<std::atomic<int>> decodedBy;
    std::vector<std::atomic<int>> decodeCount;
    std::vector<uint32_t> failing;
    std::chrono::microseconds helperDelay{0};
    bool readerWaitsForHelper = false;  // the reading thread's decodes wait until the helper has started one
    std::atomic<bool> helperStarted{false};

    StripQueue::Decode decode() {
        return [this](int decoder, uint32_t index, uint8_t* out) {
            if (decoder == 1) helperStarted = true;
            if (decoder == 1 && helperDelay.count() > 0) std::this_thread::sleep_for(helperDelay);
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
            while (decoder == 0 && readerWaitsForHelper && !helperStarted &&
                   std::chrono::steady_clock::now() < deadline)
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            decodedBy[index] = decoder;
            ++decodeCount[index];
            std::memset(out, int(index % 251), kPieceBytes);
            for (uint32_t f : failing)
                if (f == index) return false;
            return true;
        };
    }
};

bool holds(const uint8_t* piece, uint32_t index) {
    for (size_t i = 0; i < kPieceBytes; ++i)
        if (piece[i] != uint8_t(index % 251)) return false;
    return true;
}

TEST(StripQueue, HandsOutEveryPieceInOrderDecodedOnceByEitherThread) {
    const uint32_t pieces = 400;
    Recorder recorder(pieces);
    recorder.readerWaitsForHelper = true;
    StripQueue queue(pieces, kPieceBytes, 4, true, recorder.decode());
    for (uint32_t i = 0; i < pieces; ++i) {
        bool good = false;
        const uint8_t* piece = queue.piece(i, good);
        ASSERT_TRUE(good) << i;
        ASSERT_TRUE(holds(piece, i)) << i;
    }
    int byHelper = 0;
    for (uint32_t i = 0; i < pieces; ++i) {
        EXPECT_EQ(recorder.decodeCount[i], 1) << i;
        byHelper += recorder.decodedBy[i] == 1;
    }
    EXPECT_GT(byHelper, 0);
}

TEST(StripQueue, TheReadingThreadDecodesAheadWhileASlowHelperWorks) {
    const uint32_t pieces = 24;
    Recorder recorder(pieces);
    recorder.helperDelay = std::chrono::milliseconds(50);
    recorder.readerWaitsForHelper = true;
    StripQueue queue(pieces, kPieceBytes, 4, true, recorder.decode());
    for (uint32_t i = 0; i < pieces; ++i) {
        bool good = false;
        ASSERT_TRUE(holds(queue.piece(i, good), i)) << i;
    }
    int byReader = 0;
    for (uint32_t i = 0; i < pieces; ++i) byReader += recorder.decodedBy[i] == 0;
    // The helper takes 50 ms a piece; the reading thread does most of them meanwhile instead of waiting
    // for each piece the helper has claimed.
    EXPECT_GT(byReader, int(pieces) / 2);
    EXPECT_LT(byReader, int(pieces));
}

TEST(StripQueue, APieceHandedOutIsNotOverwrittenBeforeTheNextIsAskedFor) {
    const uint32_t pieces = 60;
    Recorder recorder(pieces);
    StripQueue queue(pieces, kPieceBytes, 2, true, recorder.decode());
    for (uint32_t i = 0; i < pieces; ++i) {
        bool good = false;
        const uint8_t* piece = queue.piece(i, good);
        std::this_thread::sleep_for(std::chrono::microseconds(300));  // the helper runs meanwhile
        ASSERT_TRUE(holds(piece, i)) << i;
    }
}

TEST(StripQueue, FailedPiecesAreReportedAndTheRestStillDecode) {
    const uint32_t pieces = 30;
    Recorder recorder(pieces);
    recorder.failing = {3, 17};
    StripQueue queue(pieces, kPieceBytes, 3, true, recorder.decode());
    for (uint32_t i = 0; i < pieces; ++i) {
        bool good = true;
        queue.piece(i, good);
        EXPECT_EQ(good, i != 3 && i != 17) << i;
    }
    bool good = true;
    EXPECT_EQ(queue.piece(pieces, good), nullptr);
    EXPECT_FALSE(good);
}

TEST(StripQueue, WithoutAHelperEverythingIsDecodedOnTheReadingThreadInOneSlot) {
    const uint32_t pieces = 20;
    for (bool helper : {false, true}) {  // a helper asked for with a single slot is not started
        Recorder recorder(pieces);
        StripQueue queue(pieces, kPieceBytes, 1, helper, recorder.decode());
        const uint8_t* first = nullptr;
        for (uint32_t i = 0; i < pieces; ++i) {
            if (i % 5 == 3) continue;  // skipped pieces are never decoded
            bool good = false;
            const uint8_t* piece = queue.piece(i, good);
            ASSERT_TRUE(good && holds(piece, i)) << i;
            if (first == nullptr) first = piece;
            EXPECT_EQ(piece, first);  // one slot, used again and again
        }
        for (uint32_t i = 0; i < pieces; ++i) {
            EXPECT_EQ(recorder.decodeCount[i], i % 5 == 3 ? 0 : 1) << i;
            if (i % 5 != 3) EXPECT_EQ(recorder.decodedBy[i], 0);
        }
    }
}

TEST(StripQueue, StopsItsHelperWhenDestroyedHalfWay) {
    Recorder recorder(1000);
    {
        StripQueue queue(1000, kPieceBytes, 8, true, recorder.decode());
        bool good = false;
        queue.piece(0, good);
        EXPECT_TRUE(good);
    }
    int decoded = 0;
    for (auto& count : recorder.decodeCount) decoded += count;
    EXPECT_LE(decoded, 9);  // the piece held and at most the slots ahead of it
}

}  // namespace
