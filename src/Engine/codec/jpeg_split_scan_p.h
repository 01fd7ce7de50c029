// SPDX-License-Identifier: MIT
// Entropy decoding of one baseline JPEG scan on several threads, though the format gives no place to start
// but the beginning (no restart markers). The data is cut into segments at byte boundaries; each thread
// starts decoding its segment as if an MCU began there, with zero DC predictors. Huffman codes resynchronise
// within a few MCUs, so the thread that decoded the segment before, running on past its end, soon starts an
// MCU at the very bit position where the next segment's decoding started one: from there the two decodings
// are the same, and the later one is correct once its DC predictors are shifted by the difference. A segment
// whose decoding never meets the previous one's is decoded again by the previous segment's thread. So the
// result equals a serial decoding whatever the data, and on ordinary files the work splits evenly.
//
// MCUs come out in scan order through mcu(), while the threads run at most a few segments ahead.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "codec_p.h"
#include "jpeg_baseline_scan_p.h"

namespace voimg::detail {

struct SplitScanSettings {
    int threads = 1;
    int segments = 1;
    // A segment no thread has started yet when the decoding before it gets there is decoded on by that
    // thread. Off (only with a thread per segment), every segment is decoded speculatively, which makes
    // the statistics below independent of timing.
    bool absorb = true;
};

struct SplitScanStats {
    int segments = 0;
    int joined = 0;    // segments whose speculative decoding the scan continued with
    int passed = 0;    // segments the scan was decoded through by an earlier segment's thread
    int absorbed = 0;  // of those, segments no thread had started when the one before got there
};

class SplitScanDecoder {
public:
    // Decodes the entropy data starting at `dataStart` in `file` (which must outlive the decoder).
    SplitScanDecoder(const BaselineScanLayout& layout, ByteSource& file, uint64_t dataStart,
                     const SplitScanSettings& settings);
    ~SplitScanDecoder();
    SplitScanDecoder(const SplitScanDecoder&) = delete;
    SplitScanDecoder& operator=(const SplitScanDecoder&) = delete;

    struct Mcu {
        const int16_t* samples = nullptr;  // null: the data ended before this MCU
        std::array<int32_t, 3> dcShift{};  // add dcShift[c] x the component's DC quantiser to its samples
    };
    // MCU `index` of the scan, waiting until it is decoded. Indices must not decrease from call to call;
    // the samples stay valid until the next call.
    Mcu mcu(uint64_t index);

    [[nodiscard]] SplitScanStats stats() const;

    // Segments worth cutting `entropyBytes` of data into for `threads` threads.
    [[nodiscard]] static int segmentsFor(const BaselineScanLayout& layout, uint64_t entropyBytes, int threads);

private:
    struct Parse;
    class Stream;
    struct Link;
    class ChunkPool;

    void work();
    std::shared_ptr<Parse> claim();
    void run(Parse& parse);
    bool tryLink(Parse& parse, uint64_t mcu, uint64_t position, const int32_t* predictors, Stream& stream, int& target,
                 uint64_t& cursor);
    std::shared_ptr<Parse> parseAt(int segment);
    void announce();
    template <typename Ready>
    void waitFor(Ready&& ready);
    void advanceChain();

    const BaselineScanLayout& layout_;
    ByteSource& file_;
    std::unique_ptr<ChunkPool> pool_;   // before the decodings, whose chunks it may hold
    std::vector<uint64_t> boundaries_;  // segment starts, then the end of the file
    int segments_ = 0;
    int maxAhead_ = 0;
    bool absorb_ = true;

    mutable std::mutex mutex_;
    std::condition_variable progress_;
    std::atomic<int> waiters_{0};
    std::atomic<bool> stopping_{false};
    enum class State : uint8_t { Waiting, Running, Absorbed };
    std::vector<State> states_;                   // under mutex_
    std::vector<std::shared_ptr<Parse>> parses_;  // under mutex_
    int nextSegment_ = 0;                         // under mutex_
    std::atomic<int> chainSegment_{0};            // the segment mcu() is reading from
    SplitScanStats stats_;                        // under mutex_

    // The chain of decodings mcu() follows.
    std::shared_ptr<Parse> current_;
    uint64_t currentFirst_ = 0;  // scan index of the current decoding's first MCU
    std::array<int32_t, 3> currentShift_{};
    uint64_t freedChunks_ = 0;

    std::vector<std::thread> threads_;
};

}  // namespace voimg::detail
