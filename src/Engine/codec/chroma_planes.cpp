// SPDX-License-Identifier: MIT
#include "chroma_planes_p.h"

#include <cmath>

namespace voimg::detail {
namespace {

// Nearest byte; plain truncation after the clamp is rounding for non-negative values, and much cheaper
// than the library's rounding functions.
inline uint8_t toByte(float v) { return uint8_t(std::clamp(v, 0.0f, 255.0f) + 0.5f); }

float cbOf(const uint8_t* p) { return -0.168736f * p[0] - 0.331264f * p[1] + 0.5f * p[2] + 128.0f; }
float crOf(const uint8_t* p) { return 0.5f * p[0] - 0.418688f * p[1] - 0.081312f * p[2] + 128.0f; }

// Sharpens a half-resolution plane in place along both axes with [-a, 1 + 2a, -a], edges repeated. The
// vertical pass combines whole rows, so both passes run along rows.
void sharpen(std::vector<float>& plane, int width, int height, float a) {
    const float centre = 1 + 2 * a;
    std::vector<float> line(static_cast<size_t>(width));
    for (int y = 0; y < height; ++y) {
        float* row = &plane[size_t(y) * size_t(width)];
        std::copy_n(row, width, line.data());
        for (int x = 0; x < width; ++x)
            row[x] = centre * line[size_t(x)] - a * line[size_t(std::max(x - 1, 0))] -
                     a * line[size_t(std::min(x + 1, width - 1))];
    }
    std::vector<float> above(plane.begin(), plane.begin() + width), current(static_cast<size_t>(width));
    for (int y = 0; y < height; ++y) {
        float* row = &plane[size_t(y) * size_t(width)];
        const float* below = &plane[size_t(std::min(y + 1, height - 1)) * size_t(width)];
        std::copy_n(row, width, current.data());
        for (int x = 0; x < width; ++x) row[x] = centre * current[size_t(x)] - a * above[size_t(x)] - a * below[x];
        above.swap(current);
    }
}

// Copies a plane into padded storage, repeating the last column and row.
void storePadded(const std::vector<float>& plane, int width, int height, std::vector<uint8_t>& out, size_t stride,
                 size_t rows) {
    out.resize(stride * rows);
    for (size_t y = 0; y < rows; ++y) {
        const float* in = &plane[size_t(std::min<int>(int(y), height - 1)) * size_t(width)];
        uint8_t* o = &out[y * stride];
        for (size_t x = 0; x < stride; ++x) o[x] = toByte(in[std::min<size_t>(x, size_t(width) - 1)]);
    }
}

}  // namespace

YccPlanes makeYccPlanes(const uint8_t* rgb, int width, int height) {
    YccPlanes planes;
    planes.width = width, planes.height = height;
    const int mcuColumns = (width + 15) / 16, mcuRows = (height + 15) / 16;
    planes.lumaStride = size_t(mcuColumns) * 16, planes.lumaRows = size_t(mcuRows) * 16;
    planes.chromaStride = size_t(mcuColumns) * 8, planes.chromaRows = size_t(mcuRows) * 8;

    planes.y.resize(planes.lumaStride * planes.lumaRows);
    for (size_t y = 0; y < planes.lumaRows; ++y) {
        const uint8_t* in = rgb + size_t(std::min<int>(int(y), height - 1)) * size_t(width) * 3;
        uint8_t* out = &planes.y[y * planes.lumaStride];
        for (size_t x = 0; x < planes.lumaStride; ++x) {
            const uint8_t* p = in + std::min<size_t>(x, size_t(width) - 1) * 3;
            out[x] = toByte(0.299f * p[0] + 0.587f * p[1] + 0.114f * p[2]);
        }
    }

    // Chroma: 2x2 averages (of the pixels present at odd edges), then sharpened.
    const int halfWidth = (width + 1) / 2, halfHeight = (height + 1) / 2;
    std::vector<float> cb(size_t(halfWidth) * size_t(halfHeight)), cr(cb.size());
    for (int hy = 0; hy < halfHeight; ++hy)
        for (int hx = 0; hx < halfWidth; ++hx) {
            float sumB = 0, sumR = 0;
            int n = 0;
            for (int y = 2 * hy; y < std::min(2 * hy + 2, height); ++y)
                for (int x = 2 * hx; x < std::min(2 * hx + 2, width); ++x, ++n) {
                    const uint8_t* p = rgb + (size_t(y) * size_t(width) + size_t(x)) * 3;
                    sumB += cbOf(p), sumR += crOf(p);
                }
            cb[size_t(hy) * size_t(halfWidth) + size_t(hx)] = sumB / float(n);
            cr[size_t(hy) * size_t(halfWidth) + size_t(hx)] = sumR / float(n);
        }
    sharpen(cb, halfWidth, halfHeight, kChromaSharpening);
    sharpen(cr, halfWidth, halfHeight, kChromaSharpening);
    storePadded(cb, halfWidth, halfHeight, planes.cb, planes.chromaStride, planes.chromaRows);
    storePadded(cr, halfWidth, halfHeight, planes.cr, planes.chromaStride, planes.chromaRows);
    return planes;
}

}  // namespace voimg::detail
