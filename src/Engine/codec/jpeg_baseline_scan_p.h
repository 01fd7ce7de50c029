// SPDX-License-Identifier: MIT
// A baseline JPEG scan laid out for decoding at a reduced size: every component's blocks go through a
// reduced inverse DCT onto one grid (1/2, 1/4 or 1/8 of the picture), so each MCU yields its own patch of
// finished Y, Cb, Cr samples.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "jpeg_huffman_p.h"
#include "jpeg_reduced_idct_p.h"

namespace voimg::detail {

struct BaselineComponent {
    int horizontal = 1, vertical = 1;  // sampling factors
    uint16_t quant[64] = {};           // natural order
    const HuffmanDecodeTable* dc = nullptr;
    const HuffmanDecodeTable* ac = nullptr;
};

inline constexpr size_t kMaxBlocksPerMcu = 10;  // the format's limit

struct BaselineScanLayout {
    static constexpr int kReadCoefficients = 16;  // the IDCTs read at most the low 4 x 4 coefficients
    static constexpr uint8_t kSpareSlot = 63;     // never read
    int width = 0, height = 0;                    // full size
    int scale = 8;                                // 2, 4 or 8
    int componentCount = 0;                       // 1 (grey) or 3 (YCbCr)
    std::array<BaselineComponent, 3> components{};
    std::array<HuffmanDecodeTable, 4> dcTables{}, acTables{};

    // Derived by prepare().
    int mcuColumns = 0, mcuRows = 0;
    int mcuWidth = 0, mcuHeight = 0;  // output samples per MCU and component plane
    uint64_t mcuCount = 0;
    struct Block {
        int component = 0;
        int offset = 0;  // of the block's first sample in the MCU's samples
        ReducedIdct idct = nullptr;
        std::array<uint8_t, 64> slot{};  // each zigzag coefficient's index among those the IDCT reads, else kSpareSlot
        std::array<float, 16> quant{};   // the quantisers of those coefficients, in the same order
    };
    std::vector<Block> blocks;

    [[nodiscard]] int outputWidth() const { return (width + scale - 1) / scale; }
    [[nodiscard]] int outputHeight() const { return (height + scale - 1) / scale; }
    [[nodiscard]] size_t mcuSamples() const { return size_t(componentCount) * size_t(mcuWidth) * size_t(mcuHeight); }

    // Fills the derived fields; false for a layout this decoder does not handle.
    [[nodiscard]] bool prepare();
};

}  // namespace voimg::detail
