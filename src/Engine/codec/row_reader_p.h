// SPDX-License-Identifier: MIT
// The per-format row readers behind openRowReader.
#pragma once

#include "codec_p.h"

#include <cstring>

#include "file_source_p.h"
#include "row_reader.h"

namespace voimg::detail {

// Base for readers that fill rows themselves: paints the rows after a failure mid grey.
class StreamingRowReader : public RowReader {
protected:
    void setSize(int width, int height, bool sixteenBit, bool hasAlpha) {
        width_ = width, height_ = height, sixteenBit_ = sixteenBit, hasAlpha_ = hasAlpha;
    }
    // Paints `count` rows at `out` opaque mid grey.
    void fillGrey(uint8_t* out, int count) const {
        DecodedImage rows;
        rows.width = width_, rows.height = count, rows.sixteenBit = sixteenBit_;
        rows.pixels.resize(size_t(count) * stride());
        fillMissingRows(rows, 0, count);
        std::memcpy(out, rows.pixels.data(), rows.pixels.size());
    }
};

// Baseline JPEG from the file; progressive JPEG from memory, without the scans `finalReduction` makes
// irrelevant. Null when it cannot start (with `error`).
std::unique_ptr<RowReader> openJpegRowReader(std::unique_ptr<FileSource> file, const RowReadOptions& options,
                                             std::string* error);

// The common PNG (not interlaced; 8 or 16 bits; grey or RGB, with or without alpha; no transparency key or
// colour profile) with the unfiltering left to finishRows(). Null, with `file` untouched, for any other.
std::unique_ptr<RowReader> openInflatingPngRowReader(std::unique_ptr<FileSource>& file, const RowReadOptions& options);

// A module format's own row reader (TIFF strips), reading the file as it goes. Null with `error` empty
// (and `file` handed back) when the module reads this file whole only.
std::unique_ptr<RowReader> openModuleRowReader(FileFormat format, std::unique_ptr<FileSource>& file,
                                               const RowReadOptions& options, std::string* error);

// Non-interlaced PNG from the file. Null for interlaced files (the caller decodes those whole) and when it
// cannot start (with `error`; `error` stays empty for the interlaced case).
std::unique_ptr<RowReader> openPngRowReader(std::unique_ptr<FileSource> file, const RowReadOptions& options,
                                            std::string* error);

}  // namespace voimg::detail
