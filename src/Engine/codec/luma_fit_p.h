// SPDX-License-Identifier: MIT
// Luma chosen for the chroma a decoder will actually show.
//
// A 4:2:0 JPEG loses most in its chroma: it is halved in resolution, quantised more coarsely than luma and
// brought back by the decoder's triangle upsampling. Each decoded pixel is luma plus a per-channel offset
// from that chroma, so the error the chroma leaves in R, G and B shares a common part, and luma can take
// that part back: the luma whose R, G and B come closest to the original ones, given the chroma the decoder
// reconstructs, is the mean over the channels of (original - chroma offset). The encoder predicts the
// reconstruction by running each chroma block through the same quantisation and upsampling a decoder does;
// luma is then quantised as usual. On photographs' thumbnails at quality 85 the decoded RGB comes 0.1 to
// 0.25 dB closer to the original (PSNR), at about the same file size.
#pragma once

#include "chroma_planes_p.h"

#include <array>
#include <cstdint>
#include <vector>

namespace voimg::detail {

// The decoder's factors from chroma (less 128) to the offsets it adds to luma for R, G and B.
inline constexpr float kCrToRed = 1.402f, kCbToGreen = -0.34414f, kCrToGreen = -0.71414f, kCbToBlue = 1.772f;

// The standard chroma quantisation table scaled to `quality` (1 to 100) as the encoder scales it for
// baseline output, in natural (row-major) order.
[[nodiscard]] std::array<uint16_t, 64> chromaQuantisationTable(int quality);

// What a decoder reconstructs of a half-resolution plane (`stride` x `rows` bytes, whole 8x8 blocks): each
// block through the forward DCT, rounded to the nearest multiple of its quantisation step, back through
// the inverse DCT and rounded to bytes.
[[nodiscard]] PlaneBytes quantisedPlane(const PlaneBytes& plane, size_t stride, size_t rows,
                                        const std::array<uint16_t, 64>& table);

// The 8x8 DCT and a quantisation table, all in natural order: basis[u * 8 + x] = c(u) / 2 *
// cos((2x + 1) u pi / 16), so that the coefficients of a block f are basis * f * basis^T.
struct BlockTransform {
    alignas(32) std::array<float, 64> basis, basisTransposed, step, inverseStep;
};
[[nodiscard]] BlockTransform blockTransform(const std::array<uint16_t, 64>& table);

// A half-resolution plane (`stride` bytes a row) of a width x height picture brought back to full
// resolution row by row, as decoders do it: each sample 3/4 of its own half-resolution sample and 1/4 of
// the next one per axis, edges repeated; planes one or two samples wide repeat each sample. A plane that
// holds only a window of `kept` rows has row r in slot r % kept.
class ChromaUpsampler {
public:
    ChromaUpsampler(const uint8_t* plane, size_t stride, size_t width, size_t height, size_t kept = SIZE_MAX);
    // Full-resolution row y (width values, valid until the next call).
    const float* row(size_t y);

private:
    [[nodiscard]] const uint8_t* planeRow(size_t row) const { return plane_ + row % kept_ * stride_; }

    const uint8_t* plane_;
    size_t stride_, width_, halfWidth_, halfHeight_, kept_;
    std::vector<int32_t> sums_;
    std::vector<float> row_;
};

// The chroma a decoder will reconstruct from the planes' stored chroma, predicted one row of 8x8 blocks at a
// time (rows written by different threads do not overlap), in as many rows as the planes keep of theirs.
// Allocates only in the constructor.
class DecodedChroma {
public:
    DecodedChroma(const YccPlanes& planes, int quality);
    void quantiseBlockRow(size_t blockRow);
    [[nodiscard]] const uint8_t* cb() const { return cb_.data(); }
    [[nodiscard]] const uint8_t* cr() const { return cr_.data(); }

private:
    const YccPlanes& planes_;
    BlockTransform transform_;
    PlaneBytes cb_, cr_;
};

// Gives each pixel of the luma rows it is asked for the luma that best matches `rgb` (width * height * 3
// bytes) together with the decoded chroma, whose rows around them (the next row of blocks included, for
// the upsampling) must be predicted. One per thread; allocates only in the constructor.
class LumaFitter {
public:
    LumaFitter(YccPlanes& planes, const uint8_t* rgb, const DecodedChroma& chroma);
    // Luma rows [begin, end); rows below the picture are filled in when `end` reaches its height.
    void fitRows(size_t begin, size_t end);

private:
    YccPlanes& planes_;
    const uint8_t* rgb_;
    ChromaUpsampler upCb_, upCr_;
};

// All luma of `planes` at once; the chroma planes must be complete.
void fitLumaToDecodedChroma(YccPlanes& planes, const uint8_t* rgb, int quality);

// ---- Kernels. Each has a scalar reference; the SIMD build runs unless VO_NOSIMD=1 (simd_target.h).

// A row of `blocks` 8x8 blocks from `plane` through quantisation and back into `out` (same layout).
void roundTripBlocks(const uint8_t* plane, size_t stride, size_t blocks, uint8_t* out, const BlockTransform& t);
void roundTripBlocksScalar(const uint8_t* plane, size_t stride, size_t blocks, uint8_t* out, const BlockTransform& t);

// One full-resolution row of upsampled chroma from `sums` = 3 * (nearer half-resolution row) + (farther
// one), padded with a copy of its first value before it and of its last after it. Writes 2 * halfWidth
// values; `sums` must be readable, and `out` writable, up to the next multiple of 8 (of halfWidth) beyond.
void upsampleChromaRow(const int32_t* sums, size_t halfWidth, float* out);
void upsampleChromaRowScalar(const int32_t* sums, size_t halfWidth, float* out);

// The fitted luma of a row of pixels in whole groups of eight; the number of pixels done (0 without a SIMD
// build). A group where the plain fit may not be the best goes through fitLumaRowScalar.
[[nodiscard]] size_t fitLumaRowQuick(const uint8_t* rgb, const float* cb, const float* cr, uint8_t* luma, size_t width);
// The best luma of pixels [begin, end): of all 256 values, the one whose decoded R, G and B (clipped to
// bytes) come closest to the pixel's.
void fitLumaRowScalar(const uint8_t* rgb, const float* cb, const float* cr, uint8_t* luma, size_t begin, size_t end);

}  // namespace voimg::detail
