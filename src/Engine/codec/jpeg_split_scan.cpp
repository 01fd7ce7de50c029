// SPDX-License-Identifier: MIT
#include "jpeg_split_scan_p.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <optional>

#include "jpeg_mcu_decode_p.h"

namespace voimg::detail {
namespace {

constexpr size_t kRawWindow = size_t(64) << 10;
constexpr size_t kUnstuffedBuffer = size_t(64) << 10;
constexpr uint64_t kChunkMcus = 1024;
constexpr uint64_t kPublishEvery = 32;
constexpr uint64_t kAnnounceEvery = 512;  // waking another thread costs more than a few MCUs of waiting
constexpr uint64_t kWakeAfterMcus = 1024;
constexpr uint64_t kNotReached = UINT64_MAX;

struct Record {
    uint64_t position = 0;  // bits from the decoding's start at which the MCU starts
    std::array<int32_t, 3> predictors{};
};

}  // namespace

// Where a decoding met the next one: its MCU `from` starts where the other's MCU `to` does.
struct SplitScanDecoder::Link {
    uint64_t from = 0;
    int segment = 0;
    uint64_t to = 0;
    std::array<int32_t, 3> predictors{};  // this decoding's at MCU `from`
};

// Sample chunks handed back by mcu() for the decodings to reuse: fresh ones would cost a page fault per
// 4 KiB each time.
class SplitScanDecoder::ChunkPool {
public:
    explicit ChunkPool(size_t samples) : samples_(samples) {}
    std::unique_ptr<int16_t[]> take() {
        {
            std::lock_guard lock(mutex_);
            if (!spare_.empty()) {
                std::unique_ptr<int16_t[]> chunk = std::move(spare_.back());
                spare_.pop_back();
                return chunk;
            }
        }
        return std::make_unique_for_overwrite<int16_t[]>(samples_);
    }
    void give(std::unique_ptr<int16_t[]> chunk) {
        if (!chunk) return;
        std::lock_guard lock(mutex_);
        spare_.push_back(std::move(chunk));
    }

private:
    const size_t samples_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<int16_t[]>> spare_;
};

// One segment's decoding: its MCUs' samples in chunks (published by `decoded`), and for MCUs starting in
// its own segment a record of where they start (published by `recorded`).
struct SplitScanDecoder::Parse {
    // A decoding may start with as many wrong MCUs as start in its segment, and records at most as many
    // as the scan has, so it never decodes more than twice the scan's MCUs.
    Parse(int segment, uint64_t scanMcus, size_t mcuSamples, ChunkPool& pool)
        : segment(segment),
          limit(2 * scanMcus + 1),
          mcuSamples(mcuSamples),
          pool(pool),
          samples(size_t(limit / kChunkMcus + 1)),
          records(size_t(limit / kChunkMcus + 1)) {}

    const int segment;
    const uint64_t limit;
    const size_t mcuSamples;
    ChunkPool& pool;
    std::vector<std::unique_ptr<int16_t[]>> samples;
    std::vector<std::unique_ptr<Record[]>> records;
    std::atomic<uint64_t> decoded{0};
    std::atomic<uint64_t> recorded{0};
    std::atomic<bool> recordingDone{false};
    std::atomic<bool> finished{false};
    std::atomic<bool> abandoned{false};
    std::optional<Link> link;  // set before `finished`

    int16_t* samplesOf(uint64_t mcu) {
        auto& chunk = samples[size_t(mcu / kChunkMcus)];
        if (!chunk) chunk = pool.take();
        return samplesAt(mcu);
    }
    // Another thread's view of published samples.
    [[nodiscard]] int16_t* samplesAt(uint64_t mcu) const {
        return samples[size_t(mcu / kChunkMcus)].get() + (mcu % kChunkMcus) * mcuSamples;
    }
    Record& recordOf(uint64_t mcu) {
        auto& chunk = records[size_t(mcu / kChunkMcus)];
        if (!chunk) chunk = std::make_unique<Record[]>(kChunkMcus);
        return chunk[mcu % kChunkMcus];
    }
    // Another thread's view of a published record.
    [[nodiscard]] const Record& recordAt(uint64_t mcu) const {
        return records[size_t(mcu / kChunkMcus)][mcu % kChunkMcus];
    }
};

// The entropy data from a segment's start on, without byte stuffing, feeding the bit reader. It notes the
// unstuffed offset at which each later segment's raw data begins, and stops at the first marker.
class SplitScanDecoder::Stream {
public:
    Stream(ByteSource& file, uint64_t start, uint64_t end, const uint64_t* watch, size_t watchCount)
        : file_(file),
          rawNext_(start),
          rawEnd_(end),
          watch_(watch, watch + watchCount),
          crossings_(watchCount, kNotReached),
          raw_(std::make_unique_for_overwrite<uint8_t[]>(kRawWindow)),
          buffer_(std::make_unique_for_overwrite<uint8_t[]>(kUnstuffedBuffer + 16)) {
        unstuffMore();
        bits.reset(buffer_.get(), buffer_.get() + filled_);
    }

    EntropyBits bits;

    // Called when `reader` (this stream's bits, or a copy of them) has fewer than 8 bytes left to load;
    // returns it refilled. By value, so that the caller's copy never has its address taken.
    [[gnu::noinline]] EntropyBits refill(EntropyBits reader) {
        if (reader.refill()) return reader;
        if (!ended_) {
            const size_t left = size_t(buffer_.get() + filled_ - reader.next());
            base_ += uint64_t(reader.next() - buffer_.get());
            std::memmove(buffer_.get(), reader.next(), left);
            filled_ = left;
            unstuffMore();
            reader.rebase(buffer_.get(), buffer_.get() + filled_);
            if (reader.refill()) return reader;
        }
        reader.refillSlowly(true);
        return reader;
    }
    [[nodiscard]] uint64_t position() const {
        const uint64_t loaded = base_ + uint64_t(bits.next() - buffer_.get()) + bits.paddedBytes();
        return loaded * 8 - uint64_t(bits.available());
    }
    // True once every bit of the data before `position` has been read.
    [[nodiscard]] bool exhaustedAt(uint64_t position) const { return ended_ && position >= endBytes_ * 8; }
    // Unstuffed offset where watched boundary `i` begins, kNotReached before the stream got there.
    [[nodiscard]] uint64_t crossing(size_t i) const { return i < crossings_.size() ? crossings_[i] : kNotReached; }

private:
    // Appends unstuffed bytes until the buffer is full or the data ends.
    void unstuffMore() {
        uint8_t* out = buffer_.get();
        while (filled_ < kUnstuffedBuffer && !ended_) {
            if (rawAt_ == rawCount_ && !readWindow()) break;
            const uint8_t* raw = raw_.get();
            while (rawAt_ < rawCount_ && filled_ < kUnstuffedBuffer) {
                const size_t room = std::min(rawCount_ - rawAt_, kUnstuffedBuffer - filled_);
                const void* ff = std::memchr(raw + rawAt_, 0xFF, room);
                const size_t run = ff ? size_t(static_cast<const uint8_t*>(ff) - (raw + rawAt_)) : room;
                std::memcpy(out + filled_, raw + rawAt_, run);
                filled_ += run, rawAt_ += run;
                if (!ff) continue;
                if (rawAt_ + 1 == rawCount_) {  // the byte after 0xFF is in the next window
                    if (rawWindowStart_ + rawCount_ == rawEnd_) {
                        finish();
                        return;
                    }
                    rawNext_ = rawWindowStart_ + rawAt_;
                    rawAt_ = rawCount_;
                    break;
                }
                const uint8_t after = raw[rawAt_ + 1];
                if (after == 0x00) {
                    out[filled_++] = 0xFF;
                    rawAt_ += 2;
                } else if (after == 0xFF) {
                    rawAt_ += 1;  // fill byte
                } else {
                    finish();  // a marker: the end of the scan
                    return;
                }
            }
        }
        std::memset(out + filled_, 0, 16);  // the bit reader's loads may look past the end
    }

    bool readWindow() {
        if (watchAt_ < watch_.size() && rawNext_ == watch_[watchAt_]) crossings_[watchAt_++] = base_ + filled_;
        uint64_t limit = rawEnd_;
        if (watchAt_ < watch_.size()) limit = std::min(limit, watch_[watchAt_]);
        const size_t want = size_t(std::min<uint64_t>(kRawWindow, limit - std::min(limit, rawNext_)));
        const size_t got = want ? file_.readAt(rawNext_, raw_.get(), want) : 0;
        if (got == 0) {
            finish();
            return false;
        }
        rawWindowStart_ = rawNext_;
        rawNext_ += got;
        rawAt_ = 0, rawCount_ = got;
        return true;
    }

    void finish() {
        ended_ = true;
        endBytes_ = base_ + filled_;
        std::memset(buffer_.get() + filled_, 0, 16);
    }

    ByteSource& file_;
    uint64_t rawNext_;  // next raw offset to read
    const uint64_t rawEnd_;
    std::vector<uint64_t> watch_;
    std::vector<uint64_t> crossings_;
    size_t watchAt_ = 0;
    std::unique_ptr<uint8_t[]> raw_;
    uint64_t rawWindowStart_ = 0;
    size_t rawAt_ = 0, rawCount_ = 0;
    std::unique_ptr<uint8_t[]> buffer_;
    size_t filled_ = 0;
    uint64_t base_ = 0;  // unstuffed offset of buffer_[0]
    bool ended_ = false;
    uint64_t endBytes_ = 0;
};

SplitScanDecoder::SplitScanDecoder(const BaselineScanLayout& layout, ByteSource& file, uint64_t dataStart,
                                   const SplitScanSettings& settings)
    : layout_(layout), file_(file), pool_(std::make_unique<ChunkPool>(kChunkMcus * layout.mcuSamples())) {
    const int threads = std::max(1, settings.threads);
    const int segments = std::max(1, settings.segments);
    // With fewer threads than segments, threads can all be waiting for a segment nobody is free to start.
    absorb_ = settings.absorb || threads < segments;
    const uint64_t end = file.size();
    boundaries_.push_back(dataStart);
    uint8_t probe[64];
    for (int k = 1; k < segments; ++k) {
        uint64_t at = dataStart + (end - dataStart) * uint64_t(k) / uint64_t(segments);
        if (at <= boundaries_.back()) continue;
        // Start a segment on a byte that begins a code unit: not the byte after an 0xFF.
        const size_t got = file.readAt(at - 1, probe, sizeof probe);
        size_t i = 0;
        while (i < got && probe[i] == 0xFF) ++i;
        if (i == got) continue;
        at += i;
        if (at >= end) break;
        boundaries_.push_back(at);
    }
    segments_ = int(boundaries_.size());
    boundaries_.push_back(end);
    maxAhead_ = threads + 2;
    states_.assign(size_t(segments_), State::Waiting);
    parses_.resize(size_t(segments_));
    stats_.segments = segments_;
    for (int t = 0; t < threads; ++t) threads_.emplace_back([this] { work(); });
}

SplitScanDecoder::~SplitScanDecoder() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        for (auto& parse : parses_)
            if (parse) parse->abandoned = true;
    }
    progress_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

int SplitScanDecoder::segmentsFor(const BaselineScanLayout& layout, uint64_t entropyBytes, int threads) {
    // About 1 MB of data and at most 1.5 MB of samples per segment; at least two per thread.
    const uint64_t sampleBytes = layout.mcuCount * layout.mcuSamples() * sizeof(int16_t);
    const uint64_t byData = entropyBytes >> 20;
    const uint64_t bySamples = sampleBytes / (uint64_t(3) << 19);
    return int(std::clamp<uint64_t>(std::max({byData, bySamples, uint64_t(threads) * 2}), 1, 512));
}

SplitScanStats SplitScanDecoder::stats() const {
    std::lock_guard lock(mutex_);
    return stats_;
}

void SplitScanDecoder::announce() {
    if (waiters_.load() == 0) return;
    { std::lock_guard lock(mutex_); }
    progress_.notify_all();
}

template <typename Ready>
void SplitScanDecoder::waitFor(Ready&& ready) {
    std::unique_lock lock(mutex_);
    ++waiters_;
    while (!ready() && !stopping_) progress_.wait_for(lock, std::chrono::milliseconds(20));
    --waiters_;
}

void SplitScanDecoder::work() {
    while (std::shared_ptr<Parse> parse = claim()) {
        run(*parse);
        parse->finished = true;
        announce();
    }
}

std::shared_ptr<SplitScanDecoder::Parse> SplitScanDecoder::claim() {
    std::unique_lock lock(mutex_);
    ++waiters_;
    std::shared_ptr<Parse> parse;
    while (!stopping_) {
        while (nextSegment_ < segments_ && states_[size_t(nextSegment_)] != State::Waiting) ++nextSegment_;
        if (nextSegment_ >= segments_) break;
        if (nextSegment_ < chainSegment_.load() + maxAhead_) {
            const int segment = nextSegment_++;
            states_[size_t(segment)] = State::Running;
            parse = std::make_shared<Parse>(segment, layout_.mcuCount, layout_.mcuSamples(), *pool_);
            parses_[size_t(segment)] = parse;
            break;
        }
        progress_.wait_for(lock, std::chrono::milliseconds(20));
    }
    --waiters_;
    return parse;
}

std::shared_ptr<SplitScanDecoder::Parse> SplitScanDecoder::parseAt(int segment) {
    std::lock_guard lock(mutex_);
    return parses_[size_t(segment)];
}

void SplitScanDecoder::run(Parse& parse) {
    const size_t first = size_t(parse.segment) + 1;
    Stream stream(file_, boundaries_[size_t(parse.segment)], boundaries_.back(), boundaries_.data() + first,
                  size_t(segments_) - std::min(first, size_t(segments_)));
    auto refill = [&stream](EntropyBits bits) { return stream.refill(bits); };
    std::array<int32_t, 3> predictors{};
    int target = parse.segment + 1;  // the segment whose decoding this one looks to meet
    uint64_t cursor = 0;             // in that decoding's records
    bool recording = true;
    uint64_t mcu = 0, recorded = 0;
    // Once met, a decoding is followed to the scan's end, which is at most the scan's MCUs after the MCUs
    // that started in its own segment.
    for (; mcu < layout_.mcuCount + recorded; ++mcu) {
        if (mcu % kPublishEvery == 0) {
            parse.decoded = mcu;
            if (mcu % kAnnounceEvery == 0) announce();
            if (parse.abandoned) break;
        }
        const uint64_t position = stream.position();
        if (stream.exhaustedAt(position)) break;
        if (recording && ((stream.crossing(0) != kNotReached && position >= stream.crossing(0) * 8) ||
                          recorded == layout_.mcuCount)) {
            recording = false;
            parse.recordingDone = true;
        }
        if (recording) {
            parse.recordOf(mcu) = Record{position, predictors};
            parse.recorded = recorded = mcu + 1;
        } else if (tryLink(parse, mcu, position, predictors.data(), stream, target, cursor)) {
            break;
        }
        decodeMcu(layout_, stream.bits, refill, predictors.data(), parse.samplesOf(mcu));
    }
    parse.recordingDone = true;
    parse.decoded = mcu;
}

// Called at each MCU start past the parse's own segment; true when it met the decoding of a later segment.
bool SplitScanDecoder::tryLink(Parse& parse, uint64_t mcu, uint64_t position, const int32_t* predictors, Stream& stream,
                               int& target, uint64_t& cursor) {
    while (target < segments_) {
        const size_t watch = size_t(target - parse.segment - 1);
        const uint64_t start = stream.crossing(watch);
        if (start == kNotReached || position < start * 8) return false;
        const uint64_t next = stream.crossing(watch + 1);
        std::shared_ptr<Parse> other;
        bool absorbed = false;
        if (absorb_) {
            std::lock_guard lock(mutex_);
            if (states_[size_t(target)] == State::Waiting) {
                states_[size_t(target)] = State::Absorbed;
                ++stats_.absorbed;
                absorbed = true;
            } else {
                other = parses_[size_t(target)];
            }
        } else {
            waitFor([&] { return parses_[size_t(target)] != nullptr || parse.abandoned.load(); });
            if (parse.abandoned) return false;
            other = parseAt(target);
        }
        if (absorbed || !other) {  // decode that segment here, and look to meet the one after it
            ++target, cursor = 0;
            continue;
        }
        // Only MCUs starting inside the other's own segment can meet it: it keeps no records beyond.
        if (next == kNotReached || position < next * 8) {
            const uint64_t wanted = position - start * 8;
            for (;;) {
                const uint64_t available = other->recorded.load();
                while (cursor < available && other->recordAt(cursor).position < wanted) ++cursor;
                if (cursor < available) {
                    if (other->recordAt(cursor).position != wanted) return false;  // perhaps at a later MCU
                    parse.link = Link{mcu, target, cursor, {predictors[0], predictors[1], predictors[2]}};
                    return true;
                }
                if (other->recordingDone.load() && other->recorded.load() == available) break;
                waitFor([&] {
                    return other->recorded.load() > available || other->recordingDone.load() || parse.abandoned.load();
                });
                if (parse.abandoned) return false;
            }
        }
        // This decoding never met the other's inside its segment: look to meet the next one. (Only the
        // chain of correct decodings may stop the other: this one may itself be wrong here.)
        ++target, cursor = 0;
    }
    return false;
}

SplitScanDecoder::Mcu SplitScanDecoder::mcu(uint64_t index) {
    if (!current_) {
        waitFor([&] { return parses_[0] != nullptr; });
        current_ = parseAt(0);
        if (!current_) return {};
    }
    for (;;) {
        Parse& parse = *current_;
        const uint64_t local = index - currentFirst_;
        if (local < parse.decoded.load()) {
            for (; freedChunks_ < local / kChunkMcus; ++freedChunks_)
                pool_->give(std::move(parse.samples[size_t(freedChunks_)]));
            Mcu out;
            out.samples = parse.samplesAt(local);
            out.dcShift = currentShift_;
            return out;
        }
        if (parse.finished.load()) {
            if (!parse.link || local < parse.link->from) return {};  // the data ended
            advanceChain();
            continue;
        }
        // Wait for a good stretch, not the next few MCUs, so that neither thread wakes up for every batch.
        const uint64_t wanted = std::min(local + kWakeAfterMcus, parse.limit - 1);
        waitFor([&] { return parse.decoded.load() > wanted || parse.finished.load(); });
        if (stopping_) return {};
    }
}

// Moves mcu() on to the decoding the current one met.
void SplitScanDecoder::advanceChain() {
    const Link link = *current_->link;
    std::shared_ptr<Parse> next = parseAt(link.segment);
    const Record& met = next->recordAt(link.to);
    for (size_t c = 0; c < 3; ++c)  // modulo 2^32, as the predictors
        currentShift_[c] =
            int32_t(uint32_t(currentShift_[c]) + uint32_t(link.predictors[c]) - uint32_t(met.predictors[c]));
    currentFirst_ += link.from - link.to;
    freedChunks_ = 0;
    {
        std::lock_guard lock(mutex_);
        for (int s = current_->segment; s < link.segment; ++s) {
            if (parses_[size_t(s)]) parses_[size_t(s)]->abandoned = true;  // passed over: of no further use
            parses_[size_t(s)].reset();
        }
        ++stats_.joined;
        stats_.passed += link.segment - current_->segment - 1;
    }
    current_ = std::move(next);
    chainSegment_ = link.segment;
    announce();
}

}  // namespace voimg::detail
