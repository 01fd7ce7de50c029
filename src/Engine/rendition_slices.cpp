// SPDX-License-Identifier: MIT
#include "rendition_slices_p.h"

#include "bitmap_rows_p.h"

namespace voimg {

void makeRenditionSlice(RenditionSlice& slice, const SliceTarget& target, int64_t begin, int64_t end,
                        int64_t writeBegin, int64_t writeEnd) {
    const AffineTransform inv = target.sourceToOutput.inverted();
    const PixelRect grid = target.grid;
    const ResizeAxis x{inv.m11, double(inv.tX) + double(inv.m11) * double(grid.x + begin), end - begin,
                       target.sourceWidth};
    // Rows run top first on both sides: output row R is grid row grid.maxY()-1-R, source row j is source
    // row sourceHeight-1-j counted from the bottom.
    const ResizeAxis y{inv.m22, double(target.sourceHeight) - double(inv.m22) * double(grid.maxY()) - double(inv.tY),
                       grid.height, target.sourceHeight};
    slice.begin = begin, slice.end = end, slice.writeBegin = writeBegin, slice.writeEnd = writeEnd;
    slice.coverage.resize(size_t(writeEnd - writeBegin));
    const double x0 = target.coverage.x, x1 = double(target.coverage.x) + target.coverage.width;
    slice.wholeCoverage = true;
    for (int64_t i = writeBegin; i < writeEnd; ++i) {
        slice.coverage[size_t(i - writeBegin)] = spanCoverage(grid.x + i, x0, x1);
        slice.wholeCoverage = slice.wholeCoverage && slice.coverage[size_t(i - writeBegin)] == 1.0f;
    }
    slice.scaled.resize(size_t(writeEnd - writeBegin) * 4);
    slice.fullRow.clear();

    Bitmap& bitmap = *target.bitmap;
    const double y0 = target.coverage.y, y1 = double(target.coverage.y) + target.coverage.height;
    const size_t rowValues = size_t(bitmap.width) * size_t(bitmap.channels());
    slice.resizer = std::make_unique<StreamResizer>(
        x, y, [&slice, &bitmap, grid, y0, y1, rowValues](int64_t row, const float* rgba) {
            if (!slice.cascades.empty()) {
                // Smaller renditions read whole rows; a slice of all the columns has one already.
                const float* row = rgba;
                if (slice.begin > 0 || slice.end < grid.width) {
                    if (slice.fullRow.empty()) slice.fullRow.resize(size_t(grid.width) * 4);
                    std::copy_n(rgba, size_t(slice.end - slice.begin) * 4, &slice.fullRow[size_t(slice.begin) * 4]);
                    row = slice.fullRow.data();
                }
                for (RenditionSlice* cascade : slice.cascades) cascade->resizer->pushRow(row);
            }
            if (slice.writeEnd <= slice.writeBegin) return;
            const float cy = spanCoverage(grid.maxY() - 1 - row, y0, y1);
            const float* in = rgba + (slice.writeBegin - slice.begin) * 4;
            const float* scaled = in;  // as it is where every pixel is covered whole
            if (cy != 1.0f || !slice.wholeCoverage) {
                float* out = slice.scaled.data();
                for (size_t i = 0; i < slice.coverage.size(); ++i) {
                    const float c = cy * slice.coverage[i];
                    for (size_t k = 0; k < 4; ++k) out[i * 4 + k] = in[i * 4 + k] * c;
                }
                scaled = out;
            }
            const size_t at = size_t(row) * rowValues + size_t(slice.writeBegin) * size_t(bitmap.channels());
            convertRow(scaled, int64_t(slice.coverage.size()), bitmap,
                       bitmap.bytes.empty() ? nullptr : &bitmap.bytes[at],
                       bitmap.floats.empty() ? nullptr : &bitmap.floats[at]);
            if (slice.rowsWritten) slice.rowsWritten(row + 1);
        });
}

void finishRenditionSlice(RenditionSlice& slice) {
    slice.resizer->finish();
    for (RenditionSlice* cascade : slice.cascades) finishRenditionSlice(*cascade);
}

}  // namespace voimg
