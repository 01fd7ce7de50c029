// SPDX-License-Identifier: MIT
// Huffman decoding of baseline JPEG entropy data that has had its byte stuffing removed: lookup tables for
// short codes (with the coefficient's value folded in where it fits), and a bit reader whose refill is one
// unaligned load, so that the decoding loop never looks for markers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace voimg::detail {

inline constexpr int kHuffmanFastBits = 10;

struct HuffmanDecodeTable {
    // Codes of at most kHuffmanFastBits bits: length << 8 | symbol; 0 when the code is longer.
    std::array<uint16_t, 1 << kHuffmanFastBits> fast{};
    // AC codes whose value bits fit in the same lookup: value << 16 | run << 8 | code and value length.
    std::array<int32_t, 1 << kHuffmanFastBits> fastAc{};
    // Canonical decoding of the longer codes: the largest code of each length (-1: none), and the offset
    // from a code of that length to its symbol's index.
    std::array<int32_t, 18> maxCode{};
    std::array<int32_t, 17> valueOffset{};
    std::array<uint8_t, 256> values{};

    // From a DHT segment's 16 code counts and its symbols; false when the counts describe no valid code.
    [[nodiscard]] bool build(const uint8_t counts[16], const uint8_t* symbols, bool ac);
};

// The value of `length` raw bits as JPEG codes a coefficient: the upper half of the range is positive,
// the lower half negative.
inline int extendCoefficient(uint32_t raw, int length) {
    return int(raw) - int(((raw >> (length - 1)) ^ 1u) * ((1u << length) - 1u));
}

// Reads bits most significant first from unstuffed bytes. The buffer must stay readable 8 bytes past `end`;
// refill() reports when it needs more bytes than are left.
class EntropyBits {
public:
    void reset(const uint8_t* data, const uint8_t* end) { next_ = data, end_ = end, acc_ = 0, count_ = 0; }
    // The caller's bytes moved (a longer buffer, or the unread bytes copied to the front): same data.
    void rebase(const uint8_t* data, const uint8_t* end) { next_ = data, end_ = end; }

    // Makes at least 57 bits available when 8 bytes are left to load; false when fewer are.
    bool refill() {
        if (end_ - next_ < 8) return count_ >= 57;
        uint64_t word;
        std::memcpy(&word, next_, 8);
        acc_ |= __builtin_bswap64(word) >> count_;
        next_ += (63 - count_) >> 3;
        count_ |= 56;
        return true;
    }
    // Loads single bytes (zeros past `end`) until 57 bits are available; for the last bytes of a buffer.
    void refillSlowly(bool zerosPastEnd) {
        while (count_ <= 56) {
            uint64_t byte = 0;
            if (next_ < end_)
                byte = *next_++;
            else if (!zerosPastEnd)
                return;
            else
                ++padded_;
            acc_ |= byte << (56 - count_);
            count_ += 8;
        }
    }

    [[nodiscard]] uint32_t peek(int n) const { return uint32_t(acc_ >> (64 - n)); }
    void consume(int n) {
        acc_ <<= n;
        count_ -= n;
    }
    uint32_t take(int n) {
        const uint32_t v = peek(n);
        consume(n);
        return v;
    }
    [[nodiscard]] int available() const { return count_; }
    // Bytes loaded from the buffer so far (past `end`: zeros counted too), and bits of them not yet read.
    [[nodiscard]] const uint8_t* next() const { return next_; }
    [[nodiscard]] uint64_t paddedBytes() const { return padded_; }

private:
    const uint8_t* next_ = nullptr;
    const uint8_t* end_ = nullptr;
    uint64_t acc_ = 0;
    int count_ = 0;
    uint64_t padded_ = 0;
};

// Decodes one symbol; the caller made at least 16 bits available. A bit pattern that is no code (corrupt
// data) reads as symbol 0 after 16 bits, as libjpeg reads it.
inline int decodeSymbol(EntropyBits& bits, const HuffmanDecodeTable& table) {
    const uint32_t entry = table.fast[bits.peek(kHuffmanFastBits)];
    if (entry != 0) {
        bits.consume(int(entry >> 8));
        return int(entry & 0xFF);
    }
    const uint32_t code16 = bits.peek(16);
    for (int length = kHuffmanFastBits + 1; length <= 16; ++length) {
        const int32_t code = int32_t(code16 >> (16 - length));
        if (code <= table.maxCode[size_t(length)]) {
            bits.consume(length);
            return table.values[size_t((code + table.valueOffset[size_t(length)]) & 0xFF)];
        }
    }
    bits.consume(16);
    return 0;
}

}  // namespace voimg::detail
