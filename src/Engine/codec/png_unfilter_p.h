// SPDX-License-Identifier: MIT
// Undoing PNG's per-row filters (None, Sub, Up, Average, Paeth).
//
// Sub, Average and Paeth predict each byte from the pixel to its left, so a row is a chain of dependent
// pixels; the SIMD version works on all channels of a pixel at once (pixels of 3, 4, 6 or 8 bytes; other
// sizes take the scalar path), which is as parallel as the format allows. The scalar version is the
// reference it is tested against. Setting VO_NOSIMD=1 in the environment makes unfilterRow() use it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace voimg::detail {

// Reconstructs `row` (`bytes` bytes, filtered with `filter`) in place. `previous` is the reconstructed row
// above (all zero for the first row); `bpp` is bytes per complete pixel (1 .. 8). False for an unknown
// filter type.
bool unfilterRowScalar(uint8_t filter, uint8_t* row, const uint8_t* previous, size_t bytes, int bpp);
bool unfilterRowSimd(uint8_t filter, uint8_t* row, const uint8_t* previous, size_t bytes, int bpp);
bool unfilterRow(uint8_t filter, uint8_t* row, const uint8_t* previous, size_t bytes, int bpp);

}  // namespace voimg::detail
