// SPDX-License-Identifier: MIT
#include "Engine/opaque_rows_filter_p.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <vector>

#include "Engine/linear_rows_p.h"
#include "Engine/srgb_byte_planes_p.h"
#include "Engine/stream_resizer_kernels_p.h"

namespace voimg {
namespace {

// Each row converted to linear light and filtered on its own: with the scalar kernels, the reference, or
// with the fastest row kernels there are, where the block kernel does not run. Only the columns the taps
// read are converted.
void filterRowByRow(bool scalar, const uint8_t* rgba, size_t stride, int rows, const RowTapsView& taps,
                    float* const* out) {
    int64_t lo = INT64_MAX, hi = INT64_MIN;
    for (int64_t o = 0; o < taps.outWidth; ++o) {
        if (taps.count[o] <= 0) continue;
        lo = std::min(lo, taps.first[o]);
        hi = std::max(hi, taps.first[o] + taps.count[o]);
    }
    thread_local std::vector<float> linear;
    linear.resize(size_t(std::max<int64_t>(hi, 0)) * 4);
    for (int i = 0; i < rows; ++i) {
        if (hi > lo) {
            const uint8_t* row = rgba + size_t(i) * stride + lo * 4;
            float* converted = linear.data() + lo * 4;
            if (scalar)
                linearColourPixelsWith(SimdBuild::Scalar, row, hi - lo, false, converted);
            else
                linearColourPixels(row, hi - lo, false, converted);
        }
        if (scalar)
            filterRowScalar(taps.weights, taps.stride, taps.first, taps.count, linear.data(), out[i], taps.outWidth);
        else
            filterRow(taps.weights, taps.stride, taps.first, taps.count, linear.data(), out[i], taps.outWidth);
    }
}

#ifdef VO_HAS_VBMI_BUILD

// Sixteen rows of sixteen 32-bit elements to sixteen columns, in place.
VO_VBMI_TARGET inline void transpose16(__m512i v[16]) {
    __m512i t[16], u[16];
    for (int i = 0; i < 8; ++i) {
        t[2 * i] = _mm512_unpacklo_epi32(v[2 * i], v[2 * i + 1]);
        t[2 * i + 1] = _mm512_unpackhi_epi32(v[2 * i], v[2 * i + 1]);
    }
    // Now within each 128-bit lane L of u[4i + j] lie rows 4i .. 4i + 3 of column 4L + j.
    for (int i = 0; i < 4; ++i) {
        u[4 * i] = _mm512_unpacklo_epi64(t[4 * i], t[4 * i + 2]);
        u[4 * i + 1] = _mm512_unpackhi_epi64(t[4 * i], t[4 * i + 2]);
        u[4 * i + 2] = _mm512_unpacklo_epi64(t[4 * i + 1], t[4 * i + 3]);
        u[4 * i + 3] = _mm512_unpackhi_epi64(t[4 * i + 1], t[4 * i + 3]);
    }
    for (int j = 0; j < 4; ++j) {
        const __m512i even01 = _mm512_shuffle_i32x4(u[j], u[4 + j], 0x88);  // lanes 0, 2 of each
        const __m512i odd01 = _mm512_shuffle_i32x4(u[j], u[4 + j], 0xDD);   // lanes 1, 3
        const __m512i even23 = _mm512_shuffle_i32x4(u[8 + j], u[12 + j], 0x88);
        const __m512i odd23 = _mm512_shuffle_i32x4(u[8 + j], u[12 + j], 0xDD);
        v[j] = _mm512_shuffle_i32x4(even01, even23, 0x88);
        v[4 + j] = _mm512_shuffle_i32x4(odd01, odd23, 0x88);
        v[8 + j] = _mm512_shuffle_i32x4(even01, even23, 0xDD);
        v[12 + j] = _mm512_shuffle_i32x4(odd01, odd23, 0xDD);
    }
}

// Converted columns, each as red, green and blue over the sixteen rows: 48 floats (three cache lines) a
// column, for columns [base, end) of the picture.
class ColumnWindow {
public:
    static constexpr int kFloatsPerColumn = 48;

    float* column(int64_t c) { return data_ + (c - base_) * kFloatsPerColumn; }
    [[nodiscard]] int64_t end() const { return end_; }

    // Makes room for sixteen more columns at end(), dropping those left of `keepFrom`.
    void makeRoom(int64_t keepFrom) {
        if (end_ + 16 - base_ <= capacity_) return;
        const int64_t kept = end_ - keepFrom;
        if (kept + 16 > capacity_) {
            reserve(kept + 16 + 32, keepFrom);
            return;
        }
        std::memmove(data_, column(keepFrom), size_t(kept) * kFloatsPerColumn * sizeof(float));
        base_ = keepFrom;
    }
    void start(int64_t at, int64_t capacity) {
        base_ = end_ = at;
        reserve(capacity, at);
    }
    void advance(int64_t to) { end_ = to; }

private:
    // Room for `capacity` columns, keeping [keepFrom, end_).
    void reserve(int64_t capacity, int64_t keepFrom) {
        const size_t floats = size_t(capacity) * kFloatsPerColumn + 16;
        if (floats <= storage_.size() && keepFrom == base_) {
            capacity_ = capacity;
            return;
        }
        std::vector<float> grown(std::max(floats, storage_.size()));
        float* data = grown.data() + (16 - (reinterpret_cast<uintptr_t>(grown.data()) / sizeof(float)) % 16) % 16;
        if (end_ > keepFrom)
            std::memcpy(data, column(keepFrom), size_t(end_ - keepFrom) * kFloatsPerColumn * sizeof(float));
        storage_.swap(grown);
        data_ = data;
        base_ = keepFrom;
        capacity_ = int64_t((storage_.size() - size_t(data_ - storage_.data())) / kFloatsPerColumn);
    }

    std::vector<float> storage_;
    float* data_ = nullptr;
    int64_t base_ = 0, end_ = 0, capacity_ = 0;
};

struct LookupTables {
    __m512i plane[4][4];  // byte plane j, table entries 64k .. 64k + 63
    __m512i channelOrder;
};

VO_VBMI_TARGET LookupTables loadLookupTables() {
    LookupTables t;
    const SrgbBytePlanes& planes = srgbBytePlanes();
    for (int j = 0; j < 4; ++j)
        for (int k = 0; k < 4; ++k) t.plane[j][k] = _mm512_load_si512(&planes.plane[j][64 * k]);
    // Unpacking bytes and then words interleaves within 128-bit lanes: result k, lane L, float d comes from
    // byte 16L + 4k + d. Moving channel k of row 4L + d there makes result k that channel over rows 0 .. 15.
    alignas(64) uint8_t order[64];
    for (int lane = 0; lane < 4; ++lane)
        for (int k = 0; k < 4; ++k)
            for (int d = 0; d < 4; ++d) order[16 * lane + 4 * k + d] = uint8_t(4 * (4 * lane + d) + k);
    t.channelOrder = _mm512_load_si512(order);
    return t;
}

// One column of sixteen RGBA pixels (one per row) to linear red, green and blue over the rows.
VO_VBMI_TARGET inline void convertColumn(const LookupTables& t, __m512i pixels, float* out) {
    const __m512i index = _mm512_permutexvar_epi8(t.channelOrder, pixels);
    const __mmask64 upper = _mm512_movepi8_mask(index);  // samples 128 and above
    __m512i byte[4];
    for (int j = 0; j < 4; ++j)
        byte[j] = _mm512_mask_blend_epi8(upper, _mm512_permutex2var_epi8(t.plane[j][0], index, t.plane[j][1]),
                                         _mm512_permutex2var_epi8(t.plane[j][2], index, t.plane[j][3]));
    const __m512i low01 = _mm512_unpacklo_epi8(byte[0], byte[1]), high01 = _mm512_unpackhi_epi8(byte[0], byte[1]);
    const __m512i low23 = _mm512_unpacklo_epi8(byte[2], byte[3]), high23 = _mm512_unpackhi_epi8(byte[2], byte[3]);
    _mm512_store_si512(out, _mm512_unpacklo_epi16(low01, low23));
    _mm512_store_si512(out + 16, _mm512_unpackhi_epi16(low01, low23));
    _mm512_store_si512(out + 32, _mm512_unpacklo_epi16(high01, high23));
}

constexpr int64_t kPrefetchColumns = 128;  // eight calls ahead

// Columns [c, min(c + 16, hi)) of the sixteen rows into the window.
VO_VBMI_TARGET void convertColumns(const LookupTables& t, const uint8_t* const* rows, int64_t c, int64_t hi,
                                   ColumnWindow& window) {
    const int m = int(std::min<int64_t>(16, hi - c));
    const __mmask16 valid = __mmask16((1u << m) - 1);
    __m512i v[16];
    for (int r = 0; r < 16; ++r) v[r] = _mm512_maskz_loadu_epi32(valid, rows[r] + c * 4);
    // Sixteen rows are more streams than the processor's prefetchers follow, and the rows were most
    // likely decoded on another core: ask for the columns a few calls ahead. (A prefetch past the end of a
    // row is harmless: it never faults.)
    for (int r = 0; r < 16; ++r) {
        const uintptr_t ahead = reinterpret_cast<uintptr_t>(rows[r]) + uintptr_t(c + kPrefetchColumns) * 4;
        _mm_prefetch(reinterpret_cast<const char*>(ahead), _MM_HINT_T0);
    }
    transpose16(v);
    for (int p = 0; p < m; ++p) convertColumn(t, v[p], window.column(c + p));
    window.advance(c + m);
}

// Four output pixels' red, green, blue and alpha over the rows (sixteen vectors of sixteen floats) into the
// rows, as `pixels` (at most four) RGBA pixels each from output pixel `at`.
VO_VBMI_TARGET void writeGroup(const float* staged, int pixels, int rows, int64_t at, float* const* out) {
    __m512i v[16];
    for (int i = 0; i < 16; ++i) v[i] = _mm512_load_si512(staged + 16 * i);
    transpose16(v);
    const __mmask16 mask = __mmask16((1u << (4 * pixels)) - 1);
    for (int r = 0; r < rows; ++r) _mm512_mask_storeu_ps(out[r] + at * 4, mask, _mm512_castsi512_ps(v[r]));
}

VO_VBMI_TARGET void vbmiFilterOpaqueRows(const uint8_t* rgba, size_t stride, int rows, const RowTapsView& taps,
                                         float* const* out) {
    const int64_t outWidth = taps.outWidth;
    // From each output pixel on, the leftmost column still to be read: the window keeps no column left of it.
    thread_local std::vector<int64_t> leftmost;
    thread_local ColumnWindow window;
    leftmost.resize(size_t(outWidth) + 1);
    leftmost[size_t(outWidth)] = INT64_MAX;
    int64_t hi = INT64_MIN;
    int widest = 0;
    for (int64_t o = outWidth - 1; o >= 0; --o) {
        int64_t from = leftmost[size_t(o) + 1];
        if (taps.count[o] > 0) {
            from = std::min(from, taps.first[o]);
            hi = std::max(hi, taps.first[o] + taps.count[o]);
            widest = std::max(widest, taps.count[o]);
        }
        leftmost[size_t(o)] = from;
    }
    const int64_t lo = outWidth > 0 ? leftmost[0] : INT64_MAX;
    if (hi > lo) window.start(lo, (widest + 15) / 16 * 16 + 48);

    const LookupTables tables = loadLookupTables();
    const uint8_t* rowStart[16];
    for (int r = 0; r < 16; ++r) rowStart[r] = rgba + size_t(std::min(r, rows - 1)) * stride;

    alignas(64) float staged[16 * 16];  // red, green, blue and alpha of up to four output pixels
    int64_t groupStart = 0;
    const __m512 zero = _mm512_setzero_ps();
    for (int64_t o = 0; o < outWidth; ++o) {
        const int n = taps.count[o];
        __m512 red = zero, green = zero, blue = zero;
        if (n > 0) {
            const int64_t end = taps.first[o] + n;
            while (window.end() < end) {
                window.makeRoom(std::min(leftmost[size_t(o)], window.end()));
                convertColumns(tables, rowStart, window.end(), hi, window);
            }
            const float* s = window.column(taps.first[o]);
            const float* w = taps.weights + o * taps.stride;
            // Two sets of sums, so that each multiply-add waits on one from two taps before.
            __m512 red1 = zero, green1 = zero, blue1 = zero;
            int k = 0;
            for (; k + 2 <= n; k += 2, s += 2 * ColumnWindow::kFloatsPerColumn) {
                const __m512 w0 = _mm512_set1_ps(w[k]), w1 = _mm512_set1_ps(w[k + 1]);
                red = _mm512_fmadd_ps(_mm512_load_ps(s), w0, red);
                green = _mm512_fmadd_ps(_mm512_load_ps(s + 16), w0, green);
                blue = _mm512_fmadd_ps(_mm512_load_ps(s + 32), w0, blue);
                red1 = _mm512_fmadd_ps(_mm512_load_ps(s + 48), w1, red1);
                green1 = _mm512_fmadd_ps(_mm512_load_ps(s + 64), w1, green1);
                blue1 = _mm512_fmadd_ps(_mm512_load_ps(s + 80), w1, blue1);
            }
            if (k < n) {
                const __m512 w0 = _mm512_set1_ps(w[k]);
                red = _mm512_fmadd_ps(_mm512_load_ps(s), w0, red);
                green = _mm512_fmadd_ps(_mm512_load_ps(s + 16), w0, green);
                blue = _mm512_fmadd_ps(_mm512_load_ps(s + 32), w0, blue);
            }
            red = _mm512_add_ps(red, red1), green = _mm512_add_ps(green, green1), blue = _mm512_add_ps(blue, blue1);
        }
        const int q = int(o - groupStart);
        _mm512_store_ps(staged + 64 * q, red);
        _mm512_store_ps(staged + 64 * q + 16, green);
        _mm512_store_ps(staged + 64 * q + 32, blue);
        _mm512_store_ps(staged + 64 * q + 48, _mm512_set1_ps(n > 0 ? taps.weightSums[o] : 0.0f));
        if (q == 3 || o == outWidth - 1) {
            writeGroup(staged, q + 1, rows, groupStart, out);
            groupStart = o + 1;
        }
    }
}
#endif

}  // namespace

bool opaqueRowsFilterIsFast() {
#ifdef VO_HAS_VBMI_BUILD
    return avx512Enabled() && cpuRunsVbmi();
#else
    return false;
#endif
}

bool filterOpaqueRowsWith(SimdBuild build, const uint8_t* rgba, size_t stride, int rows, const RowTapsView& taps,
                          float* const* out) {
    if (rows <= 0) return true;
    switch (build) {
        case SimdBuild::Scalar:
            filterRowByRow(true, rgba, stride, rows, taps, out);
            return true;
        case SimdBuild::Avx2:
            return false;
        case SimdBuild::Avx512:
#ifdef VO_HAS_VBMI_BUILD
            if (!cpuRunsVbmi()) return false;
            vbmiFilterOpaqueRows(rgba, stride, std::min(rows, kOpaqueBlockRows), taps, out);
            return true;
#else
            return false;
#endif
    }
    return false;
}

void filterOpaqueRows(const uint8_t* rgba, size_t stride, int rows, const RowTapsView& taps, float* const* out) {
#ifdef VO_HAS_VBMI_BUILD
    if (rows > 0 && opaqueRowsFilterIsFast())
        return vbmiFilterOpaqueRows(rgba, stride, std::min(rows, kOpaqueBlockRows), taps, out);
#endif
    if (rows > 0) filterRowByRow(false, rgba, stride, rows, taps, out);
}

}  // namespace voimg
