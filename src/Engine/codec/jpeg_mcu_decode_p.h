// SPDX-License-Identifier: MIT
// The entropy decoding loop of one MCU, inlined into its callers.
#pragma once

#include "jpeg_baseline_scan_p.h"

#include <cstring>

namespace voimg::detail {

// Decodes the next MCU into `samples` (mcuSamples() values: each component's mcuWidth x mcuHeight plane),
// updating the DC predictors. `bits = refill(bits)` runs whenever fewer than 32 bits are buffered and the
// next 8 bytes are not all there. The bit reader is worked on in a local copy, so that it lives in
// registers rather than behind a pointer the stores might alias.
template <typename Refill>
void decodeMcu(const BaselineScanLayout& layout, EntropyBits& state, Refill&& refill, int32_t* predictors,
               int16_t* samples) {
    EntropyBits bits = state;
    const auto ensure = [&] {
        if (bits.available() < 32 && !bits.refill()) bits = refill(bits);
    };
    // Quantised values of the coefficients each block's IDCT reads (at most 4 x 4, then the spare slot),
    // and its DC share. All blocks are entropy-decoded before any IDCT runs, so that the decoding loop
    // makes no calls and keeps the bit reader in registers.
    alignas(16) int16_t coefficients[kMaxBlocksPerMcu][64];
    int32_t dcShares[kMaxBlocksPerMcu];
    const size_t blockCount = layout.blocks.size();
    for (size_t b = 0; b < blockCount; ++b) {
        const BaselineScanLayout::Block& block = layout.blocks[b];
        const BaselineComponent& component = layout.components[size_t(block.component)];
        int16_t* coefficient = coefficients[b];
        std::memset(coefficient, 0, BaselineScanLayout::kReadCoefficients * sizeof(int16_t));
        ensure();
        int size = decodeSymbol(bits, *component.dc);
        int diff = 0;
        if (size != 0) {
            if (size > 16) size = 16;
            ensure();
            diff = extendCoefficient(bits.take(size), size);
        }
        // Modulo 2^32: a decoding that started mid-stream may drift anywhere before it resynchronises.
        predictors[block.component] = int32_t(uint32_t(predictors[block.component]) + uint32_t(diff));
        dcShares[b] = int32_t(uint32_t(predictors[block.component]) * component.quant[0]);

        const HuffmanDecodeTable& ac = *component.ac;
        for (int k = 1; k < 64;) {
            ensure();
            const int32_t fast = ac.fastAc[bits.peek(kHuffmanFastBits)];
            int value;
            if (fast != 0) {
                bits.consume(fast & 0xFF);
                k += (fast >> 8) & 15;
                value = fast >> 16;
            } else {
                const int symbol = decodeSymbol(bits, ac);
                const int run = symbol >> 4, bitsOfValue = symbol & 15;
                if (bitsOfValue == 0) {
                    if (run != 15) break;  // end of block
                    k += 16;
                    continue;
                }
                k += run;
                value = extendCoefficient(bits.take(bitsOfValue), bitsOfValue);
            }
            // Without a branch: coefficients the IDCT does not read land in a spare slot, and a run past the
            // block's end (corrupt data) wraps harmlessly before the loop ends.
            const size_t zigzag = size_t(k & 63);
            coefficient[block.slot[zigzag]] = int16_t(value);
            ++k;
        }
    }
    state = bits;
    for (size_t b = 0; b < blockCount; ++b) {
        const BaselineScanLayout::Block& block = layout.blocks[b];
        block.idct(coefficients[b], block.quant.data(), dcShares[b], samples + block.offset, layout.mcuWidth);
    }
}

}  // namespace voimg::detail
