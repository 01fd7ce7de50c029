// SPDX-License-Identifier: MIT
#include "jpeg_huffman_p.h"

namespace voimg::detail {

bool HuffmanDecodeTable::build(const uint8_t counts[16], const uint8_t* symbols, bool ac) {
    fast.fill(0);
    fastAc.fill(0);
    maxCode.fill(-1);
    valueOffset.fill(0);
    values.fill(0);
    int total = 0;
    for (int i = 0; i < 16; ++i) total += counts[i];
    if (total > 256) return false;
    std::memcpy(values.data(), symbols, size_t(total));

    // Canonical codes: each length's codes follow the previous length's, shifted up one bit.
    int32_t code = 0;
    int index = 0;
    for (int length = 1; length <= 16; ++length) {
        const int n = counts[length - 1];
        // Codes of this length beyond the last possible one, or one of all ones: not a valid code.
        if (n > 0 && code + n >= (int32_t(1) << length)) return false;
        if (n > 0) {
            valueOffset[size_t(length)] = index - code;
            for (int i = 0; i < n; ++i, ++code, ++index) {
                if (length > kHuffmanFastBits) continue;
                const int shift = kHuffmanFastBits - length;
                const int symbol = values[size_t(index)];
                for (int low = 0; low < (1 << shift); ++low) {
                    const size_t slot = size_t((code << shift) | low);
                    fast[slot] = uint16_t(length << 8 | symbol);
                    const int run = symbol >> 4, size = symbol & 15;
                    if (ac && size != 0 && length + size <= kHuffmanFastBits) {
                        const uint32_t raw = uint32_t(low >> (shift - size)) & ((1u << size) - 1u);
                        fastAc[slot] =
                            int32_t(uint32_t(extendCoefficient(raw, size)) << 16) | run << 8 | (length + size);
                    }
                }
            }
            maxCode[size_t(length)] = code - 1;
        }
        code <<= 1;
    }
    maxCode[17] = INT32_MAX;
    return true;
}

}  // namespace voimg::detail
