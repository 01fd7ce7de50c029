// SPDX-License-Identifier: MIT
// libtiff plumbing shared by the TIFF probe and decoder.
#pragma once

#include "codec_p.h"

#include <tiffio.h>

namespace voimg::detail {

// An open TIFF over a ByteSource. The source must outlive the reader.
struct TiffReader {
    ByteSource* source = nullptr;
    uint64_t position = 0;  // read position of libtiff's client I/O
    TIFF* tif = nullptr;

    TiffReader() = default;
    TiffReader(const TiffReader&) = delete;
    TiffReader& operator=(const TiffReader&) = delete;
    ~TiffReader() {
        if (tif) TIFFClose(tif);
    }
};

// Opens a TIFF with libtiff's messages silenced and single allocations capped at `maxAlloc` bytes.
// False when the header is unreadable.
[[nodiscard]] bool openTiff(TiffReader& reader, ByteSource& source, uint64_t maxAlloc);

// Decodes an 8- or 16-bit unsigned RGB(A) or grey(+alpha) directory (strips or tiles, either planar
// configuration) into an image already sized to the directory at the matching depth. `alphaIndex` is the
// sample holding alpha, or -1; `premultiplied` tells whether that alpha is associated. False when nothing
// could be read.
[[nodiscard]] bool readTiffDirect(TIFF* tif, DecodedImage& image, int alphaIndex, bool premultiplied);

}  // namespace voimg::detail
