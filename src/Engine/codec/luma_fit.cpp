// SPDX-License-Identifier: MIT
#include "luma_fit_p.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <jpeglib.h>

namespace voimg::detail {
namespace {

// The chroma table of the JPEG standard's example tables, natural order.
constexpr uint16_t kBaseChromaTable[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                                           24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                                           99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                           99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// Nearest integer, ties to even, for |v| < 2^22: adding 1.5 * 2^23 leaves no fraction bits. Unlike the
// library's rounding functions it needs no instruction beyond SSE2.
inline float roundNearest(float v) { return (v + 12582912.0f) - 12582912.0f; }

// Nearest integer, halves away from zero, as the encoder rounds quantised coefficients (a block's mean
// often falls exactly half-way).
inline float roundHalfAway(float v) { return float(int(v + std::copysign(0.5f, v))); }

inline float clampLevel(float v) { return std::min(std::max(v, 0.0f), 255.0f); }

// out[i] = sum over j of weight(i, j) * rows[j], whole rows of eight at a time.
template <class Weight>
void combine(const float* rows, float* out, Weight weight) {
    for (int i = 0; i < 8; ++i) {
        float acc[8];
        for (int x = 0; x < 8; ++x) acc[x] = weight(i, 0) * rows[x];
        for (int j = 1; j < 8; ++j)
            for (int x = 0; x < 8; ++x) acc[x] += weight(i, j) * rows[j * 8 + x];
        std::copy_n(acc, 8, out + i * 8);
    }
}

float fitError(float luma, const float target[3], const float offset[3]) {
    float e = 0;
    for (int c = 0; c < 3; ++c) {
        const float d = clampLevel(luma + offset[c]) - target[c];
        e += d * d;
    }
    return e;
}

// The best luma of all, where the plain fit may not be. Between the points where a channel starts or
// stops clipping the error is one quadratic (over the channels that do not clip), so the best value is
// the best whole number next to the minimum of one of those pieces.
float bestFit(const float target[3], const float offset[3], float unclipped) {
    float points[8] = {0.0f, 255.0f};
    int count = 2;
    for (int c = 0; c < 3; ++c) {
        points[count++] = clampLevel(-offset[c]);
        points[count++] = clampLevel(255.0f - offset[c]);
    }
    std::sort(points, points + count);
    float best = clampLevel(unclipped);
    float bestError = fitError(best, target, offset);
    for (int i = 0; i + 1 < count; ++i) {
        const float low = points[i], high = points[i + 1], middle = (low + high) / 2;
        float sum = 0;
        int active = 0;
        for (int c = 0; c < 3; ++c)
            if (middle + offset[c] > 0.0f && middle + offset[c] < 255.0f) sum += target[c] - offset[c], ++active;
        // The piece's best whole number: its minimum rounded down. Rounding up never does better: with one
        // channel or none active the minimum is whole, with two it is whole or a half (both neighbours
        // equally good), and with all three the piece is the unclipped fit's own, whose nearest whole
        // number is where the search starts.
        const float minimum = active == 0 ? low : std::clamp(sum / float(active), low, high);
        const float candidate = std::floor(minimum), error = fitError(candidate, target, offset);
        if (error < bestError) best = candidate, bestError = error;
    }
    return best;
}

}  // namespace

std::array<uint16_t, 64> chromaQuantisationTable(int quality) {
    const long scale = jpeg_quality_scaling(quality);
    std::array<uint16_t, 64> table{};
    for (size_t k = 0; k < 64; ++k)
        table[k] = uint16_t(std::clamp<long>((long(kBaseChromaTable[k]) * scale + 50) / 100, 1, 255));
    return table;
}

BlockTransform blockTransform(const std::array<uint16_t, 64>& table) {
    BlockTransform t;
    for (size_t u = 0; u < 8; ++u)
        for (size_t x = 0; x < 8; ++x) {
            const double c = (u == 0 ? std::sqrt(0.5) : 1.0) / 2.0;
            t.basis[u * 8 + x] = float(c * std::cos(double((2 * x + 1) * u) * 3.14159265358979323846 / 16.0));
        }
    for (size_t u = 0; u < 8; ++u)
        for (size_t x = 0; x < 8; ++x) t.basisTransposed[x * 8 + u] = t.basis[u * 8 + x];
    for (size_t k = 0; k < 64; ++k) t.step[k] = float(table[k]), t.inverseStep[k] = 1.0f / t.step[k];
    return t;
}

void roundTripBlocksScalar(const uint8_t* plane, size_t stride, size_t blocks, uint8_t* out, const BlockTransform& t) {
    const float* m = t.basis.data();
    float f[64], a[64], c[64];
    for (size_t b = 0; b < blocks; ++b) {
        for (size_t y = 0; y < 8; ++y)
            for (size_t x = 0; x < 8; ++x) f[y * 8 + x] = float(plane[y * stride + b * 8 + x]) - 128.0f;
        // Coefficients F = M f M^T: columns first (weights M[u][y]), then rows (each row's values times the
        // rows of M^T).
        combine(f, a, [&](int u, int y) { return m[u * 8 + y]; });
        combine(t.basisTransposed.data(), c, [&](int u, int x) { return a[u * 8 + x]; });
        for (size_t k = 0; k < 64; ++k) c[k] = roundHalfAway(c[k] * t.inverseStep[k]) * t.step[k];
        // Back: M^T F M.
        combine(c, a, [&](int y, int u) { return m[u * 8 + y]; });
        combine(m, f, [&](int y, int v) { return a[y * 8 + v]; });
        for (size_t y = 0; y < 8; ++y)
            for (size_t x = 0; x < 8; ++x)
                out[y * stride + b * 8 + x] = uint8_t(clampLevel(f[y * 8 + x] + 128.0f) + 0.5f);
    }
}

PlaneBytes quantisedPlane(const PlaneBytes& plane, size_t stride, size_t rows, const std::array<uint16_t, 64>& table) {
    const BlockTransform t = blockTransform(table);
    PlaneBytes out(plane.size());
    for (size_t y = 0; y + 8 <= rows; y += 8)
        roundTripBlocks(&plane[y * stride], stride, stride / 8, &out[y * stride], t);
    return out;
}

// The decoder's triangle upsampling: each output sample is 3/4 of its own half-resolution sample and 1/4
// of the next one, per axis, with its rounding (8 for even columns, 7 for odd ones, out of 16).
void upsampleChromaRowScalar(const int32_t* sums, size_t halfWidth, float* out) {
    for (size_t i = 0; i < halfWidth; ++i) {
        out[2 * i] = float((3 * sums[i + 1] + sums[i] + 8) >> 4);
        out[2 * i + 1] = float((3 * sums[i + 1] + sums[i + 2] + 7) >> 4);
    }
}

void fitLumaRowScalar(const uint8_t* rgb, const float* cb, const float* cr, uint8_t* luma, size_t begin, size_t end) {
    for (size_t x = begin; x < end; ++x) {
        const float blue = cb[x] - 128.0f, red = cr[x] - 128.0f;
        const float offset[3] = {roundNearest(kCrToRed * red), roundNearest(kCbToGreen * blue + kCrToGreen * red),
                                 roundNearest(kCbToBlue * blue)};
        const uint8_t* p = rgb + x * 3;
        const float target[3] = {float(p[0]), float(p[1]), float(p[2])};
        float fitted =
            roundNearest((target[0] + target[1] + target[2] - offset[0] - offset[1] - offset[2]) * (1.0f / 3.0f));
        // The plain fit is the best when no channel clips there and its error is below what any clipping
        // channel alone would leave: a channel clipped at 0 costs its target squared, one clipped at 255
        // (255 - target) squared, whatever the luma.
        float error = 0, bound = 1e30f;
        bool clips = fitted < 0.0f || fitted > 255.0f;
        for (int c = 0; c < 3; ++c) {
            const float value = fitted + offset[c], d = value - target[c];
            error += d * d;
            clips |= value < 0.0f || value > 255.0f;
            if (offset[c] < 0.0f) bound = std::min(bound, target[c] * target[c]);
            if (offset[c] > 0.0f) bound = std::min(bound, (255.0f - target[c]) * (255.0f - target[c]));
        }
        if (clips || error > bound) fitted = bestFit(target, offset, fitted);
        luma[x] = uint8_t(clampLevel(fitted));
    }
}

ChromaUpsampler::ChromaUpsampler(const uint8_t* plane, size_t stride, size_t width, size_t height, size_t kept)
    : plane_(plane),
      stride_(stride),
      width_(width),
      halfWidth_((width + 1) / 2),
      halfHeight_((height + 1) / 2),
      kept_(kept) {
    // Room for the kernels' whole groups of eight beyond the row.
    const size_t padded = (halfWidth_ + 7) / 8 * 8;
    sums_.resize(padded + 2);
    row_.resize(2 * padded);
}

const float* ChromaUpsampler::row(size_t y) {
    // The half-resolution row a full-resolution row lies in, and its other neighbour (itself at the
    // picture's top and bottom edge).
    const size_t near = y / 2;
    const size_t far = (y & 1) ? std::min(near + 1, halfHeight_ - 1) : (near > 0 ? near - 1 : 0);
    const uint8_t* n = planeRow(near);
    if (halfWidth_ <= 2) {  // decoders repeat samples of planes this narrow rather than interpolate
        for (size_t x = 0; x < width_; ++x) row_[x] = float(n[x / 2]);
        return row_.data();
    }
    const uint8_t* f = planeRow(far);
    for (size_t i = 0; i < halfWidth_; ++i) sums_[i + 1] = 3 * n[i] + f[i];
    sums_[0] = sums_[1], sums_[halfWidth_ + 1] = sums_[halfWidth_];  // edges repeat, as decoders do
    upsampleChromaRow(sums_.data(), halfWidth_, row_.data());
    return row_.data();
}

DecodedChroma::DecodedChroma(const YccPlanes& planes, int quality)
    : planes_(planes),
      transform_(blockTransform(chromaQuantisationTable(quality))),
      cb_(planes.cb.size()),
      cr_(planes.cr.size()) {}

void DecodedChroma::quantiseBlockRow(size_t blockRow) {
    const size_t stride = planes_.chromaStride, row = blockRow * 8;
    const size_t at = YccPlanes::slot(row, planes_.chromaRows, planes_.chromaKept) * stride;
    roundTripBlocks(planes_.cbRow(row), stride, stride / 8, &cb_[at], transform_);
    roundTripBlocks(planes_.crRow(row), stride, stride / 8, &cr_[at], transform_);
}

LumaFitter::LumaFitter(YccPlanes& planes, const uint8_t* rgb, const DecodedChroma& chroma)
    : planes_(planes),
      rgb_(rgb),
      upCb_(chroma.cb(), planes.chromaStride, size_t(planes.width), size_t(planes.height), planes.chromaKept),
      upCr_(chroma.cr(), planes.chromaStride, size_t(planes.width), size_t(planes.height), planes.chromaKept) {}

void LumaFitter::fitRows(size_t begin, size_t end) {
    const size_t width = size_t(planes_.width), height = size_t(planes_.height);
    for (size_t y = begin; y < end; ++y) {
        const float *blue = upCb_.row(y), *red = upCr_.row(y);
        const uint8_t* in = rgb_ + y * width * 3;
        uint8_t* luma = planes_.lumaRow(y);
        const size_t done = fitLumaRowQuick(in, blue, red, luma, width);
        fitLumaRowScalar(in, blue, red, luma, done, width);
        std::fill(luma + width, luma + planes_.lumaStride, luma[width - 1]);
    }
    // Rows below the picture repeat its last one, as the planes' padding does.
    if (end == height)
        for (size_t y = height; y < planes_.lumaRows; ++y)
            std::copy_n(planes_.lumaRow(y - 1), planes_.lumaStride, planes_.lumaRow(y));
}

void fitLumaToDecodedChroma(YccPlanes& planes, const uint8_t* rgb, int quality) {
    DecodedChroma chroma(planes, quality);
    for (size_t blockRow = 0; blockRow < planes.chromaRows / 8; ++blockRow) chroma.quantiseBlockRow(blockRow);
    LumaFitter(planes, rgb, chroma).fitRows(0, size_t(planes.height));
}

}  // namespace voimg::detail
