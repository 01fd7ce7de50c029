// SPDX-License-Identifier: MIT
#include "chroma_planes_p.h"

#include <cmath>

namespace voimg::detail {
namespace {

// Nearest byte; plain truncation after the clamp is rounding for non-negative values, and much cheaper
// than the library's rounding functions. min and max rather than a clamp keep it free of branches.
inline uint8_t toByte(float v) { return uint8_t(std::min(std::max(v, 0.0f), 255.0f) + 0.5f); }

// JFIF's weights in 16-bit fixed point (they sum to 65536, so white stays 255).
constexpr int kRed = 19595, kGreen = 38470, kBlue = 7471;
inline uint8_t lumaOf(const uint8_t* p) { return uint8_t((kRed * p[0] + kGreen * p[1] + kBlue * p[2] + 32768) >> 16); }
template <typename T>
inline float cbOf(const T* p) {
    return -0.168736f * p[0] - 0.331264f * p[1] + 0.5f * p[2] + 128.0f;
}
template <typename T>
inline float crOf(const T* p) {
    return 0.5f * p[0] - 0.418688f * p[1] - 0.081312f * p[2] + 128.0f;
}

// Sharpens a row in place with [-a, 1 + 2a, -a], edges repeated; `line` is scratch of the same width.
void sharpenAcross(float* row, int width, float a, float* line) {
    const float centre = 1 + 2 * a;
    std::copy_n(row, width, line);
    row[0] = centre * line[0] - a * line[0] - a * line[std::min(1, width - 1)];
    for (int x = 1; x < width - 1; ++x) row[x] = centre * line[x] - a * line[x - 1] - a * line[x + 1];
    if (width > 1) row[width - 1] = centre * line[width - 1] - a * line[width - 2] - a * line[width - 1];
}

// The 2x2 average of Cb and Cr at half-resolution (hx, hy), of the pixels present at odd edges.
void chromaAverage(const uint8_t* rgb, int width, int height, int hx, int hy, float& cb, float& cr) {
    float sumB = 0, sumR = 0;
    int n = 0;
    for (int y = 2 * hy; y < std::min(2 * hy + 2, height); ++y)
        for (int x = 2 * hx; x < std::min(2 * hx + 2, width); ++x, ++n) {
            const uint8_t* p = rgb + (size_t(y) * size_t(width) + size_t(x)) * 3;
            sumB += cbOf(p), sumR += crOf(p);
        }
    cb = sumB / float(n), cr = sumR / float(n);
}

}  // namespace

void averageChromaBlocksScalar(const uint8_t* top, const uint8_t* bottom, size_t blocks, float* cb, float* cr) {
    // The conversion is linear, so each block converts its summed RGB once.
    for (size_t b = 0; b < blocks; ++b) {
        const uint8_t *p = top + b * 6, *q = bottom + b * 6;
        const float sum[3] = {float(p[0] + p[3] + q[0] + q[3]), float(p[1] + p[4] + q[1] + q[4]),
                              float(p[2] + p[5] + q[2] + q[5])};
        cb[b] = cbOf(sum) * 0.25f + 96.0f;  // the offset of 128 was counted four times
        cr[b] = crOf(sum) * 0.25f + 96.0f;
    }
}

void sharpenAlongColumnsScalar(const float* above, const float* current, const float* below, size_t width, float a,
                               uint8_t* out) {
    const float centre = 1 + 2 * a;
    for (size_t x = 0; x < width; ++x) out[x] = toByte(centre * current[x] - a * above[x] - a * below[x]);
}

YccPlanes sizedYccPlanes(int width, int height, bool banded) {
    YccPlanes planes;
    planes.width = width, planes.height = height;
    const int mcuColumns = (width + 15) / 16, mcuRows = (height + 15) / 16;
    planes.lumaStride = size_t(mcuColumns) * 16, planes.lumaRows = size_t(mcuRows) * 16;
    planes.chromaStride = size_t(mcuColumns) * 8, planes.chromaRows = size_t(mcuRows) * 8;
    planes.lumaKept = banded ? std::min(kBandedLumaRows, planes.lumaRows) : planes.lumaRows;
    planes.chromaKept = banded ? std::min(kBandedChromaRows, planes.chromaRows) : planes.chromaRows;
    planes.y.resize(planes.lumaStride * planes.lumaKept);
    planes.cb.resize(planes.chromaStride * planes.chromaKept);
    planes.cr.resize(planes.cb.size());
    return planes;
}

ChromaRows::ChromaRows(const uint8_t* rgb, YccPlanes& planes, size_t firstRow)
    : rgb_(rgb),
      planes_(planes),
      halfWidth_((planes.width + 1) / 2),
      halfHeight_((planes.height + 1) / 2),
      ring_(size_t(6) * size_t(halfWidth_)),
      line_(size_t(halfWidth_)),
      averaged_(firstRow == 0 ? 0 : std::min(firstRow - 1, size_t(halfHeight_ - 1))),
      made_(firstRow) {}

void ChromaRows::averageRow(size_t row) {
    const int width = planes_.width, hy = int(row);
    float* b = across(row, 0);
    float* r = across(row, 1);
    int hx = 0;
    if (2 * hy + 1 < planes_.height) {  // whole 2x2 blocks
        const uint8_t* top = rgb_ + size_t(2 * hy) * size_t(width) * 3;
        averageChromaBlocks(top, top + size_t(width) * 3, size_t(width / 2), b, r);
        hx = width / 2;
    }
    for (; hx < halfWidth_; ++hx) chromaAverage(rgb_, width, planes_.height, hx, hy, b[hx], r[hx]);
    sharpenAcross(b, halfWidth_, kChromaSharpening, line_.data());
    sharpenAcross(r, halfWidth_, kChromaSharpening, line_.data());
}

void ChromaRows::makeUpTo(size_t rows) {
    const float a = kChromaSharpening;
    const size_t stride = planes_.chromaStride, lastRow = size_t(halfHeight_) - 1;
    for (rows = std::min(rows, planes_.chromaRows); made_ < rows; ++made_) {
        uint8_t* out[2] = {planes_.cbRow(made_), planes_.crRow(made_)};
        if (made_ > lastRow) {  // padding: the last row again
            std::copy_n(planes_.cbRow(made_ - 1), stride, out[0]);
            std::copy_n(planes_.crRow(made_ - 1), stride, out[1]);
            continue;
        }
        // Sharpening along the columns needs the rows above and below (edges repeated).
        for (; averaged_ <= std::min(made_ + 1, lastRow); ++averaged_) averageRow(averaged_);
        for (int plane = 0; plane < 2; ++plane) {
            const float* above = across(made_ == 0 ? 0 : made_ - 1, plane);
            const float* current = across(made_, plane);
            const float* below = across(std::min(made_ + 1, lastRow), plane);
            uint8_t* o = out[plane];
            sharpenAlongColumns(above, current, below, size_t(halfWidth_), a, o);
            std::fill(o + halfWidth_, o + stride, o[halfWidth_ - 1]);
        }
    }
}

YccPlanes makeYccPlanes(const uint8_t* rgb, int width, int height) {
    YccPlanes planes = sizedYccPlanes(width, height);
    // Luma row by row; the padding repeats the last column and row.
    for (size_t y = 0; y < planes.lumaRows; ++y) {
        uint8_t* out = &planes.y[y * planes.lumaStride];
        if (y >= size_t(height)) {
            std::copy_n(out - planes.lumaStride, planes.lumaStride, out);
            continue;
        }
        const uint8_t* in = rgb + y * size_t(width) * 3;
        for (int x = 0; x < width; ++x) out[x] = lumaOf(in + size_t(x) * 3);
        std::fill(out + width, out + planes.lumaStride, out[width - 1]);
    }
    ChromaRows(rgb, planes).makeUpTo(planes.chromaRows);
    return planes;
}

}  // namespace voimg::detail
