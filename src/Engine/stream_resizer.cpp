// SPDX-License-Identifier: MIT
#include "stream_resizer_p.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "opaque_rows_filter_p.h"
#include "stream_resizer_kernels_p.h"

namespace voimg {
namespace {

// One premultiplied RGBA pixel in a 128-bit register; the compiler keeps the four channels together.
using Pixel = float __attribute__((vector_size(16)));

inline Pixel load(const float* p) {
    Pixel v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void store(float* p, Pixel v) { std::memcpy(p, &v, sizeof v); }

AxisTaps tapsOnBoxedGrid(const ResizeAxis& axis, int box, int64_t boxedCount) {
    const double scale = 1.0 / std::abs(axis.a);
    // On the boxed grid a source coordinate s lies at s / box.
    return AxisTaps::build(0, axis.outCount, axis.a / box, axis.b / box, ResampleKernel::forScale(scale * box), 0,
                           boxedCount);
}

}  // namespace

int StreamResizer::boxFactorFor(double scale) {
    const double reduction = scale > 0 ? 1.0 / scale : 1.0;
    return reduction >= 5.0 ? int(std::floor(reduction / 2.5)) : 1;
}

StreamResizer::StreamResizer(const ResizeAxis& x, const ResizeAxis& y, Emit emit)
    : x_(x), y_(y), emit_(std::move(emit)) {
    boxX_ = boxFactorFor(std::abs(1.0 / x.a));
    boxY_ = boxFactorFor(std::abs(1.0 / y.a));
    boxedWidth_ = (x.srcCount + boxX_ - 1) / boxX_;
    boxedHeight_ = (y.srcCount + boxY_ - 1) / boxY_;
    xTaps_ = tapsOnBoxedGrid(x, boxX_, boxedWidth_);
    xTaps_.padToMultipleOf(4, 0, boxedWidth_);  // the SIMD filters take four taps at a time
    xWeightSums_.assign(size_t(x.outCount), 0.0f);
    for (int64_t o = 0; o < x.outCount; ++o)
        for (int k = 0; k < xTaps_.count[size_t(o)]; ++k)
            xWeightSums_[size_t(o)] += xTaps_.weights[size_t(o) * size_t(xTaps_.stride) + size_t(k)];
    yTaps_ = tapsOnBoxedGrid(y, boxY_, boxedHeight_);
    outWidth_ = x.outCount;
    if (xTaps_.hi > xTaps_.lo) {
        boxedBegin_ = xTaps_.lo, boxedEnd_ = xTaps_.hi;
        sourceBegin_ = boxedBegin_ * boxX_;
        sourceEnd_ = std::min<int64_t>(boxedEnd_ * boxX_, x.srcCount);
    }

    // Deep enough for every output row: when row o is emitted, the newest filtered row is the last one any
    // row up to o needs, and the oldest one o needs is first[o].
    int64_t newest = -1;
    ringRows_ = 1;
    for (int64_t o = 0; o < y.outCount; ++o) {
        if (yTaps_.count[size_t(o)] == 0) continue;
        newest = std::max(newest, yTaps_.first[size_t(o)] + yTaps_.count[size_t(o)] - 1);
        ringRows_ = std::max(ringRows_, newest - yTaps_.first[size_t(o)] + 1);
    }
    if (boxY_ > 1) boxAccumulator_.assign(size_t(boxedWidth_) * 4, 0.0f);
    if (boxX_ > 1) boxedRow_.resize(size_t(boxedWidth_) * 4);
    outRow_.resize(size_t(outWidth_) * 4);
}

void StreamResizer::pushRow(const float* rgba) {
    if (boxX_ == 1) return pushBoxedRow(rgba);
    // Average runs of boxX_ pixels; the last run may be shorter.
    for (int64_t b = boxedBegin_; b < boxedEnd_; ++b) {
        const int64_t begin = b * boxX_, end = std::min<int64_t>(begin + boxX_, x_.srcCount);
        Pixel sum = load(rgba + begin * 4);
        for (int64_t i = begin + 1; i < end; ++i) sum += load(rgba + i * 4);
        store(&boxedRow_[size_t(b) * 4], sum * (1.0f / float(end - begin)));
    }
    pushBoxedRow(boxedRow_.data());
}

void StreamResizer::pushBoxedRow(const float* boxed) {
    ++sourceRows_;
    if (boxY_ == 1) return takeBoxedRow(boxed);
    // Rows are summed after the columns are boxed, on the narrower row, and only where this resizer reads.
    float* acc = boxAccumulator_.data() + boxedBegin_ * 4;
    const float* in = boxed + boxedBegin_ * 4;
    const size_t n = size_t(boxedEnd_ - boxedBegin_) * 4;
    if (rowsInBox_ == 0) {
        std::memcpy(acc, in, n * sizeof(float));
    } else {
        for (size_t i = 0; i < n; ++i) acc[i] += in[i];
    }
    if (++rowsInBox_ < boxY_ && sourceRows_ < y_.srcCount) return;
    const float inverse = 1.0f / float(rowsInBox_);
    for (size_t i = 0; i < n; ++i) acc[i] *= inverse;
    rowsInBox_ = 0;
    takeBoxedRow(boxAccumulator_.data());
}

void StreamResizer::pushFilteredRow(const float* filtered) {
    ++sourceRows_;
    std::copy_n(filtered, size_t(outWidth_) * 4, ringRow(rowsArrived_));
    ++rowsArrived_;
    emitReadyRows();
}

void StreamResizer::filterOpaqueSourceRows(const uint8_t* rgba, size_t stride, int rows, float* const* out) const {
    const RowTapsView taps{xTaps_.weights.data(), xTaps_.stride,       xTaps_.first.data(),
                           xTaps_.count.data(),   xWeightSums_.data(), outWidth_};
    filterOpaqueRows(rgba, stride, rows, taps, out);
}

void StreamResizer::makeRoomForRowsAhead(int rows) {
    if (rows <= rowsAhead_ || rowsArrived_ > 0) return;
    // Row r + i (r the rows arrived) overwrites row r + i - ringRows_, which no output row needs any more
    // when the ring has room for `rows` beyond what the vertical filter needs.
    ringRows_ += rows - rowsAhead_;
    rowsAhead_ = rows;
    ring_ = {};
}

float* StreamResizer::rowAhead(int i) { return ringRow(rowsArrived_ + i); }

// The ring is made when the first row arrives: a worker that writes whole blocks into it asks for a deeper
// one once the resizer is set up, and making it with the resizer would make it twice.
float* StreamResizer::ringRow(int64_t row) {
    if (ring_.empty()) ring_.resize(size_t(ringRows_) * size_t(outWidth_) * 4);
    return ring_.data() + size_t(row % ringRows_) * size_t(outWidth_) * 4;
}

void StreamResizer::takeRowsAhead(int rows) {
    for (int i = 0; i < rows; ++i) {
        ++sourceRows_;
        ++rowsArrived_;
        emitReadyRows();
    }
}

void StreamResizer::takeBoxedRow(const float* row) {
    float* slot = ringRow(rowsArrived_);
    filterHorizontally(row, slot);
    ++rowsArrived_;
    emitReadyRows();
}

void StreamResizer::filterHorizontally(const float* boxed, float* out) const {
    filterRow(xTaps_.weights.data(), xTaps_.stride, xTaps_.first.data(), xTaps_.count.data(), boxed, out, outWidth_);
}

void StreamResizer::emitReadyRows() {
    while (nextOut_ < y_.outCount) {
        const int count = yTaps_.count[size_t(nextOut_)];
        if (count > 0 && yTaps_.first[size_t(nextOut_)] + count > rowsArrived_) return;
        emitRow(nextOut_++);
    }
}

// Output rows come in pairs where their taps overlap: the first one's pass over its rows also sums the
// second's share of them (most of its rows, for a shrink), into share_; the second then adds its remaining
// rows to that. The vertical pass is bound by reading the rows, and this reads the shared ones once.
void StreamResizer::emitRow(int64_t o) {
    const int count = yTaps_.count[size_t(o)];
    const float* weights = &yTaps_.weights[size_t(o) * size_t(yTaps_.stride)];
    const int64_t first = yTaps_.first[size_t(o)];
    if (count == 0) {
        std::fill_n(outRow_.data(), outRow_.size(), 0.0f);
    } else if (shareFor_ == o) {
        // The share and the rows it lacks.
        const int done = int(shareEnd_ - first);
        rowPointers_.assign(1, share_.data());
        rowWeights_.assign(1, 1.0f);
        for (int k = done; k < count; ++k) {
            rowPointers_.push_back(ringRow(first + k));
            rowWeights_.push_back(weights[k]);
        }
        sumRows(rowPointers_.data(), rowWeights_.data(), int(rowPointers_.size()), outRow_.data(), outWidth_ * 4);
    } else {
        rowPointers_.resize(size_t(count));
        for (int k = 0; k < count; ++k) rowPointers_[size_t(k)] = ringRow(first + k);
        const int64_t next = o + 1;
        const int64_t skip = next < y_.outCount ? yTaps_.first[size_t(next)] - first : count;
        const int nextCount = next < y_.outCount ? yTaps_.count[size_t(next)] : 0;
        // Worth it when the next row shares a few of these rows and needs all the rows from there on.
        if (nextCount > 0 && skip >= 0 && skip + 2 <= count && count - skip <= nextCount) {
            if (share_.empty()) share_.resize(outRow_.size());
            sumRowsAndShare(rowPointers_.data(), weights, count, int(skip),
                            &yTaps_.weights[size_t(next) * size_t(yTaps_.stride)], outRow_.data(), share_.data(),
                            outWidth_ * 4);
            shareFor_ = next, shareEnd_ = first + count;
        } else {
            sumRows(rowPointers_.data(), weights, count, outRow_.data(), outWidth_ * 4);
        }
    }
    emit_(o, outRow_.data());
}

void StreamResizer::finish() {
    if (rowsInBox_ > 0) {
        // A picture that ended inside a box row (fewer rows than announced): average what came.
        const float inverse = 1.0f / float(rowsInBox_);
        for (int64_t i = boxedBegin_ * 4; i < boxedEnd_ * 4; ++i) boxAccumulator_[size_t(i)] *= inverse;
        rowsInBox_ = 0;
        takeBoxedRow(boxAccumulator_.data());
    }
    // Rows whose sources never arrived come out transparent.
    while (nextOut_ < y_.outCount) {
        if (yTaps_.count[size_t(nextOut_)] > 0 &&
            yTaps_.first[size_t(nextOut_)] + yTaps_.count[size_t(nextOut_)] > rowsArrived_) {
            std::fill_n(outRow_.data(), outRow_.size(), 0.0f);
            emit_(nextOut_++, outRow_.data());
            continue;
        }
        emitRow(nextOut_++);
    }
}

}  // namespace voimg
