// SPDX-License-Identifier: MIT
#include "png_unfilter_p.h"

#include <cstdlib>

#include "Engine/simd_target.h"

namespace voimg::detail {
namespace {

uint8_t paeth(int a, int b, int c) {
    const int pa = std::abs(b - c), pb = std::abs(a - c), pc = std::abs(a + b - 2 * c);
    if (pa <= pb && pa <= pc) return uint8_t(a);
    return uint8_t(pb <= pc ? b : c);
}

}  // namespace

bool unfilterRowScalar(uint8_t filter, uint8_t* row, const uint8_t* previous, size_t bytes, int bpp) {
    const size_t step = size_t(bpp);
    switch (filter) {
        case 0:
            return true;
        case 1:
            for (size_t i = step; i < bytes; ++i) row[i] = uint8_t(row[i] + row[i - step]);
            return true;
        case 2:
            for (size_t i = 0; i < bytes; ++i) row[i] = uint8_t(row[i] + previous[i]);
            return true;
        case 3:
            for (size_t i = 0; i < bytes; ++i) {
                const int left = i >= step ? row[i - step] : 0;
                row[i] = uint8_t(row[i] + ((left + previous[i]) >> 1));
            }
            return true;
        case 4:
            for (size_t i = 0; i < bytes; ++i) {
                const int left = i >= step ? row[i - step] : 0, upLeft = i >= step ? previous[i - step] : 0;
                row[i] = uint8_t(row[i] + paeth(left, previous[i], upLeft));
            }
            return true;
        default:
            return false;
    }
}

bool unfilterRow(uint8_t filter, uint8_t* row, const uint8_t* previous, size_t bytes, int bpp) {
    if (simdDisabledByEnvironment()) return unfilterRowScalar(filter, row, previous, bytes, bpp);
    return unfilterRowSimd(filter, row, previous, bytes, bpp);
}

}  // namespace voimg::detail
