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

// Sharpens a half-resolution plane in place along both axes with [-a, 1 + 2a, -a], edges repeated. The
// vertical pass combines whole rows, so both passes run along rows.
void sharpen(std::vector<float>& plane, int width, int height, float a) {
    const float centre = 1 + 2 * a;
    std::vector<float> line(static_cast<size_t>(width));
    for (int y = 0; y < height; ++y) {
        float* row = &plane[size_t(y) * size_t(width)];
        std::copy_n(row, width, line.data());
        const float* l = line.data();
        row[0] = centre * l[0] - a * l[0] - a * l[std::min(1, width - 1)];
        for (int x = 1; x < width - 1; ++x) row[x] = centre * l[x] - a * l[x - 1] - a * l[x + 1];
        if (width > 1) row[width - 1] = centre * l[width - 1] - a * l[width - 2] - a * l[width - 1];
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

// Converts a plane into padded storage, repeating the last column and row.
void storePadded(const std::vector<float>& plane, int width, int height, std::vector<uint8_t>& out, size_t stride,
                 size_t rows) {
    out.resize(stride * rows);
    for (size_t y = 0; y < rows; ++y) {
        uint8_t* o = &out[y * stride];
        if (y >= size_t(height)) {
            std::copy_n(o - stride, stride, o);
            continue;
        }
        const float* in = &plane[y * size_t(width)];
        for (size_t x = 0; x < size_t(width); ++x) o[x] = toByte(in[x]);
        std::fill(o + width, o + stride, o[width - 1]);
    }
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

YccPlanes makeYccPlanes(const uint8_t* rgb, int width, int height, Luma luma) {
    YccPlanes planes;
    planes.width = width, planes.height = height;
    const int mcuColumns = (width + 15) / 16, mcuRows = (height + 15) / 16;
    planes.lumaStride = size_t(mcuColumns) * 16, planes.lumaRows = size_t(mcuRows) * 16;
    planes.chromaStride = size_t(mcuColumns) * 8, planes.chromaRows = size_t(mcuRows) * 8;

    // Luma row by row; the padding repeats the last column and row.
    planes.y.resize(planes.lumaStride * planes.lumaRows);
    for (size_t y = 0; y < planes.lumaRows && luma == Luma::Jfif; ++y) {
        uint8_t* out = &planes.y[y * planes.lumaStride];
        if (y >= size_t(height)) {
            std::copy_n(out - planes.lumaStride, planes.lumaStride, out);
            continue;
        }
        const uint8_t* in = rgb + y * size_t(width) * 3;
        for (int x = 0; x < width; ++x) out[x] = lumaOf(in + size_t(x) * 3);
        std::fill(out + width, out + planes.lumaStride, out[width - 1]);
    }

    // Chroma: 2x2 averages (of the pixels present at odd edges), then sharpened. Whole 2x2 blocks convert
    // their summed RGB once (the conversion is linear).
    const int halfWidth = (width + 1) / 2, halfHeight = (height + 1) / 2;
    const int wholeColumns = width / 2, wholeRows = height / 2;
    std::vector<float> cb(size_t(halfWidth) * size_t(halfHeight)), cr(cb.size());
    for (int hy = 0; hy < halfHeight; ++hy) {
        float* b = &cb[size_t(hy) * size_t(halfWidth)];
        float* r = &cr[size_t(hy) * size_t(halfWidth)];
        int hx = 0;
        if (hy < wholeRows) {
            const uint8_t* top = rgb + size_t(2 * hy) * size_t(width) * 3;
            const uint8_t* bottom = top + size_t(width) * 3;
            for (; hx < wholeColumns; ++hx) {
                const uint8_t *p = top + size_t(hx) * 6, *q = bottom + size_t(hx) * 6;
                const float sum[3] = {float(p[0] + p[3] + q[0] + q[3]), float(p[1] + p[4] + q[1] + q[4]),
                                      float(p[2] + p[5] + q[2] + q[5])};
                b[hx] = cbOf(sum) * 0.25f + 96.0f;  // the offset of 128 was counted four times
                r[hx] = crOf(sum) * 0.25f + 96.0f;
            }
        }
        for (; hx < halfWidth; ++hx) chromaAverage(rgb, width, height, hx, hy, b[hx], r[hx]);
    }
    sharpen(cb, halfWidth, halfHeight, kChromaSharpening);
    sharpen(cr, halfWidth, halfHeight, kChromaSharpening);
    storePadded(cb, halfWidth, halfHeight, planes.cb, planes.chromaStride, planes.chromaRows);
    storePadded(cr, halfWidth, halfHeight, planes.cr, planes.chromaStride, planes.chromaRows);
    return planes;
}

}  // namespace voimg::detail
