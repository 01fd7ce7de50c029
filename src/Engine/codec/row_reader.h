// SPDX-License-Identifier: MIT
// Reading a picture a few rows at a time, top row first, so that a caller that shrinks it never holds the
// whole picture: baseline JPEG, non-interlaced PNG and the common stripped TIFFs stream from the file with
// memory that does not grow with the picture. Progressive JPEG keeps its coefficients (the format needs
// them all before the first row), and the other formats are decoded whole and handed out row by row.
//
// Pixels follow the conventions of codec.h: RGBA, straight alpha, sRGB (profiles converted), 8 or 16 bits.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "codec.h"

namespace voimg {

struct RowReadOptions {
    // As DecodeOptions::scaleDenominator: JPEG decodes at 1/scaleDenominator, WebP scales while decoding.
    int scaleDenominator = 1;
    // How much the caller will shrink the full-resolution picture in the end (full height / output height
    // of the largest result). A progressive JPEG then skips the scans that carry only finer detail, and a
    // JPEG shrunk at least twofold after its decode repeats chroma samples rather than interpolating them.
    double finalReduction = 1;
    uint64_t maxPixels = kDefaultMaxPixels;
    // A baseline JPEG decoded at 1/2, 1/4 or 1/8 with at least this many bytes of compressed data is
    // decoded by several threads (on a machine with two cores or more).
    uint64_t splitJpegBytes = uint64_t(1) << 20;
};

class RowReader {
public:
    virtual ~RowReader() = default;

    [[nodiscard]] int width() const { return width_; }
    [[nodiscard]] int height() const { return height_; }
    [[nodiscard]] bool sixteenBit() const { return sixteenBit_; }
    [[nodiscard]] bool hasAlpha() const { return hasAlpha_; }
    // True when red, green and blue are equal in every row (a grey picture), which lets callers convert
    // one channel instead of three.
    [[nodiscard]] bool grey() const { return grey_; }
    [[nodiscard]] size_t stride() const { return size_t(width_) * (sixteenBit_ ? 8 : 4); }

    // Writes the next rows (at most `maxRows`, each rawStride() bytes) to `out` and returns how many; 0
    // once all height() rows were read. Rows the data cannot provide (a truncated or corrupt file) come out
    // opaque mid grey, as the whole-picture decoders paint them, so every row arrives.
    virtual int readRows(uint8_t* out, int maxRows) = 0;

    // A reader may leave part of its work for later, so that a caller can run it on another thread while
    // the next rows are read: readRows() then yields raw rows, and finishRows() turns them into pixels. It
    // must see every row read, in order, from one thread at a time. Returns where the `count` rows of
    // pixels are: `raw` itself when there was nothing left to do, else `scratch` (count * stride() bytes).
    [[nodiscard]] virtual size_t rawStride() const { return stride(); }
    // True when finishRows() has work to do.
    [[nodiscard]] virtual bool finishesRows() const { return false; }
    // True when reading keeps threads of the reader's own busy (a baseline JPEG split between threads).
    [[nodiscard]] virtual bool readsWithHelpers() const { return false; }
    virtual const uint8_t* finishRows(uint8_t* raw, int count, uint8_t* scratch) {
        (void)count, (void)scratch;
        return raw;
    }

protected:
    int width_ = 0;
    int height_ = 0;
    bool sixteenBit_ = false;
    bool hasAlpha_ = false;
    bool grey_ = false;
};

// Null with `error` set when the file cannot be read at all (missing, not an image, no image data).
[[nodiscard]] std::unique_ptr<RowReader> openRowReader(const std::string& path, const RowReadOptions& options,
                                                       std::string* error = nullptr);

}  // namespace voimg
