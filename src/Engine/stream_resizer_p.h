// SPDX-License-Identifier: MIT
// Shrinking a picture that arrives one row at a time, top row first, keeping only the rows still needed.
//
// Each incoming row (premultiplied linear RGBA floats) is first averaged over `box` x `box` blocks when the
// shrink is large (a cheap box filter that leaves at least a 2.5-fold shrink to the proper filter), then
// filtered horizontally to the output width with the separable resampler's taps; the filtered rows wait in
// a ring just deep enough for the vertical filter, which emits each output row as soon as its last source
// row has arrived. Memory: a few source rows plus `taps` output-width rows, whatever the picture's height.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "resample_taps_p.h"

namespace voimg {

struct ResizeAxis {
    // Source coordinate of output coordinate c (both in pixels, along the axis) is a * c + b.
    double a = 1, b = 0;
    int64_t outCount = 0;  // output pixels 0 .. outCount-1
    int64_t srcCount = 0;  // source pixels 0 .. srcCount-1
};

class StreamResizer {
public:
    // Receives each output row once, in order: index (0 = first) and outCount(x) RGBA floats.
    using Emit = std::function<void(int64_t row, const float* rgba)>;

    StreamResizer(const ResizeAxis& x, const ResizeAxis& y, Emit emit);

    // The box factor chosen for a shrink by `scale` (< 1): 1 unless the shrink is at least fivefold.
    [[nodiscard]] static int boxFactorFor(double scale);

    // The source columns the output needs (a resizer for a slice of the output columns reads only part of
    // each row); empty when none.
    [[nodiscard]] int64_t sourceBegin() const { return sourceBegin_; }
    [[nodiscard]] int64_t sourceEnd() const { return sourceEnd_; }

    // The next source row (x.srcCount RGBA floats, of which only [sourceBegin, sourceEnd) are read).
    void pushRow(const float* rgba);
    // The same with the row's columns already averaged in runs of boxX() (the last run may be shorter):
    // boxedWidth() pixels, of which only [boxedBegin, boxedEnd) are read.
    void pushBoxedRow(const float* boxed);
    // After the last source row: emits whatever is left (rows the picture's end left without sources).
    void finish();

    // Without boxing either way, the horizontal pass can run apart from the rest, on another thread and
    // ahead of time: filterSourceRow() makes a row (outWidth() RGBA floats) from a source row, and
    // pushFilteredRow() takes it in as if pushRow() had made it.
    [[nodiscard]] bool filtersSeparately() const { return boxX_ == 1 && boxY_ == 1; }
    [[nodiscard]] int64_t outWidth() const { return outWidth_; }
    void filterSourceRow(const float* rgba, float* out) const { filterHorizontally(rgba, out); }
    void pushFilteredRow(const float* filtered);
    // The same for up to kOpaqueBlockRows opaque 8-bit RGBA rows at once (opaque_rows_filter_p.h), which is
    // far cheaper than converting and filtering them one by one.
    void filterOpaqueSourceRows(const uint8_t* rgba, size_t stride, int rows, float* const* out) const;
    // Filtered rows can also be written straight into the ring, `rows` at a time at most, once room is
    // made for them (before the first row): rowAhead(i) is where the i-th next row goes, and
    // takeRowsAhead(n) takes the next n of them in as pushFilteredRow() would.
    void makeRoomForRowsAhead(int rows);
    [[nodiscard]] float* rowAhead(int i);
    void takeRowsAhead(int rows);

    [[nodiscard]] int boxX() const { return boxX_; }
    [[nodiscard]] int boxY() const { return boxY_; }
    [[nodiscard]] int64_t boxedWidth() const { return boxedWidth_; }
    [[nodiscard]] int64_t boxedBegin() const { return boxedBegin_; }
    [[nodiscard]] int64_t boxedEnd() const { return boxedEnd_; }

private:
    void takeBoxedRow(const float* row);
    void filterHorizontally(const float* boxed, float* out) const;
    float* ringRow(int64_t row);
    void emitReadyRows();
    void emitRow(int64_t o);

    ResizeAxis x_, y_;
    Emit emit_;
    int boxX_ = 1, boxY_ = 1;
    int64_t boxedWidth_ = 0, boxedHeight_ = 0;
    AxisTaps xTaps_, yTaps_;
    std::vector<float> xWeightSums_;  // per output column, the sum of its weights
    int64_t outWidth_ = 0;
    int64_t boxedBegin_ = 0, boxedEnd_ = 0, sourceBegin_ = 0, sourceEnd_ = 0;

    std::vector<float> boxAccumulator_;  // sum of the column-boxed rows of the current box row
    int rowsInBox_ = 0;
    std::vector<float> boxedRow_;  // one row of box averages

    std::vector<float> ring_;  // filtered rows, ringRows_ of them, indexed by boxed row modulo ringRows_
    int64_t ringRows_ = 0;
    int rowsAhead_ = 0;        // of those, room for rows written ahead
    int64_t rowsArrived_ = 0;  // boxed rows filtered so far
    int64_t nextOut_ = 0;
    int64_t sourceRows_ = 0;
    std::vector<float> outRow_;
    std::vector<const float*> rowPointers_;
    std::vector<float> rowWeights_;
    std::vector<float> share_;  // output row shareFor_'s sum over its source rows before shareEnd_
    int64_t shareFor_ = -1, shareEnd_ = 0;
};

}  // namespace voimg
