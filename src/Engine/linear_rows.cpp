// SPDX-License-Identifier: MIT
#include "linear_rows_p.h"

#include <algorithm>

#include "srgb.h"

namespace voimg {
namespace {

using Pixel = float __attribute__((vector_size(16)));

inline Pixel linearPixel(const uint8_t* p, const float* table, RowLayout layout) {
    if (layout.grey) {
        const float v = table[p[0]];
        if (!layout.alpha) return Pixel{v, v, v, 1.0f};
        const float a = float(p[3]) * (1.0f / 255.0f);
        return Pixel{v * a, v * a, v * a, a};
    }
    if (!layout.alpha) return Pixel{table[p[0]], table[p[1]], table[p[2]], 1.0f};
    const float a = float(p[3]) * (1.0f / 255.0f);
    return Pixel{table[p[0]] * a, table[p[1]] * a, table[p[2]] * a, a};
}

inline void store(float* out, Pixel v) { __builtin_memcpy(out, &v, sizeof v); }

// One loop per layout, so that the layout's tests stay out of the inner loop.
template <bool Grey, bool Alpha>
void convert8(const uint8_t* row, int64_t begin, int64_t end, float* out) {
    const float* table = srgbToLinear8Table();
    const RowLayout layout{false, Alpha, Grey};
    for (int64_t x = begin; x < end; ++x) store(out + x * 4, linearPixel(row + x * 4, table, layout));
}

// The average of the `count` pixels at `p`, times `scale` (1 / count).
template <bool Grey, bool Alpha, int Box>
inline Pixel runAverage(const uint8_t* p, int count, float scale, const float* table) {
    const int n = Box > 0 ? Box : count;
    if constexpr (Grey && !Alpha) {  // one channel to sum
        float sum = 0;
        for (int k = 0; k < n; ++k) sum += table[p[k * 4]];
        const float v = sum * scale;
        return Pixel{v, v, v, 1.0f};
    } else {
        const RowLayout layout{false, Alpha, Grey};
        Pixel sum = linearPixel(p, table, layout);
        for (int k = 1; k < n; ++k) sum += linearPixel(p + k * 4, table, layout);
        return sum * scale;
    }
}

// Runs of a size known at compile time (0: `box`) up to the last whole run, then the shorter last one.
template <bool Grey, bool Alpha, int Box>
void convertBoxed8(const uint8_t* row, int64_t begin, int64_t end, int box, int64_t width, float* out) {
    const float* table = srgbToLinear8Table();
    const int64_t whole = std::min(end, width / box);
    const float inverse = 1.0f / float(box);
    for (int64_t b = begin; b < whole; ++b)
        store(out + b * 4, runAverage<Grey, Alpha, Box>(row + b * box * 4, box, inverse, table));
    for (int64_t b = std::max(begin, whole); b < end; ++b) {
        const int count = int(width - b * box);
        store(out + b * 4, runAverage<Grey, Alpha, 0>(row + b * box * 4, count, 1.0f / float(count), table));
    }
}

template <bool Grey, bool Alpha>
void convertBoxed8(const uint8_t* row, int64_t begin, int64_t end, int box, int64_t width, float* out) {
    switch (box) {
        case 2:
            return convertBoxed8<Grey, Alpha, 2>(row, begin, end, box, width, out);
        case 3:
            return convertBoxed8<Grey, Alpha, 3>(row, begin, end, box, width, out);
        case 4:
            return convertBoxed8<Grey, Alpha, 4>(row, begin, end, box, width, out);
        default:
            return convertBoxed8<Grey, Alpha, 0>(row, begin, end, box, width, out);
    }
}

}  // namespace

void toLinear(const uint8_t* row, int64_t begin, int64_t end, RowLayout layout, float* out) {
    if (!layout.sixteenBit) {
        if (layout.grey)
            return layout.alpha ? convert8<true, true>(row, begin, end, out)
                                : convert8<true, false>(row, begin, end, out);
        return linearColourPixels(row + begin * 4, end - begin, layout.alpha, out + begin * 4);
    }
    const float* table = srgbToLinear16Table();
    const auto* samples = reinterpret_cast<const uint16_t*>(row) + begin * 4;
    out += begin * 4;
    for (int64_t x = begin; x < end; ++x, samples += 4, out += 4) {
        const float a = layout.alpha ? float(samples[3]) * (1.0f / 65535.0f) : 1.0f;
        out[0] = table[samples[0]] * a, out[1] = table[samples[1]] * a, out[2] = table[samples[2]] * a, out[3] = a;
    }
}

void toLinearBoxed(const uint8_t* row, int64_t begin, int64_t end, int box, int64_t width, RowLayout layout,
                   float* out) {
    if (layout.grey)
        return layout.alpha ? convertBoxed8<true, true>(row, begin, end, box, width, out)
                            : convertBoxed8<true, false>(row, begin, end, box, width, out);
    return layout.alpha ? convertBoxed8<false, true>(row, begin, end, box, width, out)
                        : convertBoxed8<false, false>(row, begin, end, box, width, out);
}

}  // namespace voimg
