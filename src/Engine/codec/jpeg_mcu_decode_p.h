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
    // Quantised values of the coefficients the IDCT reads (at most 4 x 4, then the spare slot): kept as
    // integers here, dequantised by the IDCT a whole row at a time.
    alignas(16) int16_t coefficients[64];
    for (const BaselineScanLayout::Block& block : layout.blocks) {
        const BaselineComponent& component = layout.components[size_t(block.component)];
        std::memset(coefficients, 0, 16 * sizeof(int16_t));
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
            coefficients[block.slot[zigzag]] = int16_t(value);
            ++k;
        }
        const uint32_t dc = uint32_t(predictors[block.component]) * component.quant[0];
        block.idct(coefficients, block.quant.data(), int32_t(dc), samples + block.offset, layout.mcuWidth);
    }
    state = bits;
}

}  // namespace voimg::detail
