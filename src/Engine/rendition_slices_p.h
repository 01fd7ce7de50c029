// SPDX-License-Identifier: MIT
// The part of a rendition one thread computes: a range of its output columns, resized row by row from a
// source grid (the decoded picture, or a larger rendition of it), written to the rendition's bitmap and
// optionally passed on to smaller renditions made from these rows.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "geometry.h"
#include "node.h"
#include "render_context.h"
#include "stream_resizer_p.h"

namespace voimg {

struct RenditionSlice {
    std::unique_ptr<StreamResizer> resizer;
    int64_t begin = 0, end = 0;            // output columns computed
    int64_t writeBegin = 0, writeEnd = 0;  // of those, the ones this slice writes to the bitmap
    std::vector<float> coverage;           // per written column
    bool wholeCoverage = true;             // every written column's coverage is 1
    std::vector<float> scaled;             // one written row after coverage
    // Slices of smaller renditions fed with every computed row (before coverage), and the whole-width row
    // they read it from (only columns [begin, end) are valid).
    std::vector<RenditionSlice*> cascades;
    std::vector<float> fullRow;
    // Told after each output row is written (the number of rows written so far), when set.
    std::function<void(int64_t rows)> rowsWritten;
};

struct SliceTarget {
    // Source pixel coordinates (origin at the source's lower left corner, y up, one unit a pixel) to output
    // coordinates; axis-aligned.
    AffineTransform sourceToOutput;
    int64_t sourceWidth = 0, sourceHeight = 0;
    PixelRect grid;  // the output pixels
    Rect coverage;   // output pixels partly inside are scaled by the covered fraction
    Bitmap* bitmap = nullptr;
};

// Sets `slice` up to compute output columns [begin, end) (relative to the grid) and write [writeBegin,
// writeEnd) of them. The slice must stay where it is afterwards: its resizer refers to it.
void makeRenditionSlice(RenditionSlice& slice, const SliceTarget& target, int64_t begin, int64_t end,
                        int64_t writeBegin, int64_t writeEnd);

// Flushes the slice and then the slices it feeds.
void finishRenditionSlice(RenditionSlice& slice);

}  // namespace voimg
