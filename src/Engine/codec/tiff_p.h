// SPDX-License-Identifier: MIT
// libtiff plumbing shared by the TIFF probe and decoder.
#pragma once

#include "codec_p.h"
#include "row_reader.h"

#include <tiffio.h>

#include <algorithm>

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

// Where the stored samples of a directly readable directory go in RGBA: the samples used, the channels
// each one feeds (bit mask: 1 red, 2 green, 4 blue, 8 alpha; grey feeds 7), and whether grey is inverted.
struct DirectSamples {
    int used = 0;
    uint8_t channels[4] = {};
    bool invert = false;

    static DirectSamples of(TIFF* tif, int alphaIndex) {
        uint16_t spp = 1, photometric = PHOTOMETRIC_MINISBLACK;
        TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
        TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
        const bool grey = photometric != PHOTOMETRIC_RGB;
        DirectSamples d;
        d.invert = photometric == PHOTOMETRIC_MINISWHITE;
        d.used = std::min<int>(spp, std::max(grey ? 1 : 3, alphaIndex + 1));
        for (int s = 0; s < d.used; ++s) d.channels[s] = s == alphaIndex ? 8 : grey ? 7 : uint8_t(1u << s);
        return d;
    }

    // Copies `cols` pixels of `samplesInBlock` samples each (sample `plane` alone when planes are stored
    // separately, else plane < 0) into RGBA pixels.
    template <typename T>
    void copy(const T* src, uint32_t samplesInBlock, uint32_t cols, int plane, T* dst) const {
        for (uint32_t c = 0; c < cols; ++c, src += samplesInBlock, dst += 4) {
            for (uint32_t k = 0; k < samplesInBlock; ++k) {
                const int s = plane >= 0 ? plane : int(k);
                if (s >= used) continue;
                T v = src[k];
                if (invert && s == 0) v = T(T(~T(0)) - v);
                for (int ch = 0; ch < 4; ++ch)
                    if (channels[s] & (1u << ch)) dst[ch] = v;
            }
        }
    }
};

// Decodes an 8- or 16-bit unsigned RGB(A) or grey(+alpha) directory (strips or tiles, either planar
// configuration) into an image already sized to the directory at the matching depth. `alphaIndex` is the
// sample holding alpha, or -1; `premultiplied` tells whether that alpha is associated. False when nothing
// could be read.
[[nodiscard]] bool readTiffDirect(TIFF* tif, DecodedImage& image, int alphaIndex, bool premultiplied);

// The directory's sample layout, as the decoders need it.
struct TiffLayout {
    uint16_t bitsPerSample = 1, samplesPerPixel = 1, planar = PLANARCONFIG_CONTIG, sampleFormat = SAMPLEFORMAT_UINT;
    uint16_t photometric = PHOTOMETRIC_MINISBLACK, inkSet = INKSET_CMYK;
    int alphaIndex = -1;  // the sample holding alpha, or -1
    bool premultiplied = false;
};
[[nodiscard]] TiffLayout readTiffLayout(TIFF* tif);

// Reading a TIFF one strip at a time straight from `source` (module entry point): 8- or 16-bit RGB(A) or
// grey strips with contiguous samples and straight alpha; null with `error` empty for other layouts.
RowReader* openTiffRows(ByteSource& source, const DecodeOptions& options, std::string* error);

}  // namespace voimg::detail
