// SPDX-License-Identifier: MIT
#include "jpeg_baseline_scan_p.h"

#include <algorithm>

#include "Engine/simd_target.h"

namespace voimg::detail {
namespace {

// Natural (row-major) index of each coefficient in the order the entropy data lists them.
constexpr std::array<int8_t, 64> kZigzagToNatural = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                                     12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                                     35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                                     58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

int ceilDiv(int a, int b) { return (a + b - 1) / b; }

}  // namespace

bool BaselineScanLayout::prepare() {
    if (width <= 0 || height <= 0 || (scale != 2 && scale != 4 && scale != 8)) return false;
    if (componentCount != 1 && componentCount != 3) return false;
    int maxH = 1, maxV = 1;
    if (componentCount == 3) {
        for (int c = 0; c < 3; ++c) {
            maxH = std::max(maxH, components[size_t(c)].horizontal);
            maxV = std::max(maxV, components[size_t(c)].vertical);
        }
    } else {
        // A scan of one component has one block per MCU whatever its sampling factors say.
        components[0].horizontal = components[0].vertical = 1;
    }
    mcuColumns = ceilDiv(width, 8 * maxH);
    mcuRows = ceilDiv(height, 8 * maxV);
    mcuCount = uint64_t(mcuColumns) * uint64_t(mcuRows);
    mcuWidth = 8 * maxH / scale;
    mcuHeight = 8 * maxV / scale;
    const int plane = mcuWidth * mcuHeight;

    blocks.clear();
    for (int c = 0; c < componentCount; ++c) {
        const BaselineComponent& component = components[size_t(c)];
        if (!component.dc || !component.ac) return false;
        const int h = component.horizontal, v = component.vertical;
        if (h < 1 || v < 1 || maxH % h != 0 || maxV % v != 0) return false;
        // A subsampled component's block spans more of the output grid, and its coefficients are
        // interpolated onto it; at most the low 4 x 4 of them, which keeps what a 1/2 decode needs (half
        // the output grid's band for chroma) at a quarter of the IDCT's cost.
        const int nx = mcuWidth / h, ny = mcuHeight / v;
        const int kx = std::min(nx, 4), ky = std::min(ny, 4);
        const ReducedIdct idct = reducedIdctFor(nx, ny, kx, ky, simdEnabled());
        if (!idct) return false;
        Block block;
        block.component = c;
        block.idct = idct;
        for (int k = 0; k < 64; ++k) {
            const int natural = kZigzagToNatural[size_t(k)];
            const bool used = k != 0 && natural % 8 < kx && natural / 8 < ky;  // DC is added separately
            block.slot[size_t(k)] = uint8_t(used ? natural / 8 * kx + natural % 8 : kSpareSlot);
            if (used || k == 0) block.quant[size_t(natural / 8 * kx + natural % 8)] = float(component.quant[natural]);
        }
        for (int by = 0; by < v; ++by)
            for (int bx = 0; bx < h; ++bx) {
                block.offset = c * plane + by * ny * mcuWidth + bx * nx;
                blocks.push_back(block);
            }
    }
    return blocks.size() <= kMaxBlocksPerMcu;
}

}  // namespace voimg::detail
