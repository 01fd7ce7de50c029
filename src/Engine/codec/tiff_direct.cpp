// SPDX-License-Identifier: MIT
// Direct TIFF reading of 8- and 16-bit RGB(A) and grey(+alpha): stripped or tiled, contiguous or planar
// samples, copied straight into the output without libtiff's RGBA packing (which would premultiply alpha
// and drop 16-bit precision).
//
// Strips are treated as full-width tiles so one loop covers both layouts. A block that fails to decode is
// painted opaque grey; the image counts as unreadable only if no block at all decoded.
#include "tiff_p.h"

#include <vector>

namespace voimg::detail {
namespace {

template <typename T>
constexpr T kMax = T(~T(0));

template <typename T>
T* pixelAt(DecodedImage& image, uint32_t x, uint32_t y) {
    return reinterpret_cast<T*>(image.pixels.data() + size_t(y) * image.stride()) + size_t(x) * 4;
}

template <typename T>
void paintGrey(DecodedImage& image, uint32_t x, uint32_t y, uint32_t cols, uint32_t rows) {
    for (uint32_t r = 0; r < rows; ++r) {
        T* px = pixelAt<T>(image, x, y + r);
        for (uint32_t c = 0; c < cols; ++c, px += 4) {
            px[0] = px[1] = px[2] = T(kMax<T> / 255 * 128);
            px[3] = kMax<T>;
        }
    }
}

template <typename T>
bool readDirect(TIFF* tif, DecodedImage& image, int alphaIndex, bool premultiplied) {
    uint16_t spp = 1, planar = PLANARCONFIG_CONTIG;
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
    const uint32_t width = uint32_t(image.width), height = uint32_t(image.height);
    const DirectSamples samples = DirectSamples::of(tif, alphaIndex);

    const bool tiled = TIFFIsTiled(tif);
    uint32_t blockW = width, blockH = height;
    if (tiled) {
        if (!TIFFGetField(tif, TIFFTAG_TILEWIDTH, &blockW) || !TIFFGetField(tif, TIFFTAG_TILELENGTH, &blockH))
            return false;
    } else {
        TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &blockH);
        blockH = std::min(blockH, height);
    }
    if (blockW == 0 || blockH == 0) return false;
    const bool separate = planar == PLANARCONFIG_SEPARATE && spp > 1;
    const uint32_t samplesInBlock = separate ? 1 : spp;
    const uint64_t blockBytes = tiled ? TIFFTileSize64(tif) : TIFFStripSize64(tif);
    const uint64_t blockNeed = uint64_t(blockW) * blockH * samplesInBlock * sizeof(T);
    // Tiles far larger than the image itself are a malformed header, not something worth allocating.
    const uint64_t imageBytes = uint64_t(width) * height * spp * sizeof(T);
    if (blockBytes < blockNeed || blockNeed > std::max<uint64_t>(imageBytes * 4, 64u << 20)) return false;
    std::vector<T> buffer(size_t(blockBytes / sizeof(T) + 1));

    if (alphaIndex < 0) {
        T* px = pixelAt<T>(image, 0, 0);
        for (size_t i = 0, n = size_t(width) * height; i < n; ++i) px[i * 4 + 3] = kMax<T>;
    }
    bool anyBlock = false;
    const int planes = separate ? samples.used : 1;
    for (int plane = 0; plane < planes; ++plane) {
        for (uint32_t by = 0; by < height; by += blockH) {
            for (uint32_t bx = 0; bx < width; bx += blockW) {
                const uint32_t rows = std::min(blockH, height - by), cols = std::min(blockW, width - bx);
                const tmsize_t got = tiled ? TIFFReadEncodedTile(tif, TIFFComputeTile(tif, bx, by, 0, uint16_t(plane)),
                                                                 buffer.data(), tmsize_t(blockBytes))
                                           : TIFFReadEncodedStrip(tif, TIFFComputeStrip(tif, by, uint16_t(plane)),
                                                                  buffer.data(), tmsize_t(blockBytes));
                const uint64_t needed = (uint64_t(blockW) * (rows - 1) + cols) * samplesInBlock * sizeof(T);
                if (got < 0 || uint64_t(got) < needed) {
                    paintGrey<T>(image, bx, by, cols, rows);
                    continue;
                }
                anyBlock = true;
                for (uint32_t r = 0; r < rows; ++r)
                    samples.copy<T>(buffer.data() + size_t(r) * blockW * samplesInBlock, samplesInBlock, cols,
                                    separate ? plane : -1, pixelAt<T>(image, bx, by + r));
            }
        }
    }
    if (anyBlock && alphaIndex >= 0 && premultiplied) unpremultiplyAlpha(image);
    return anyBlock;
}

}  // namespace

bool readTiffDirect(TIFF* tif, DecodedImage& image, int alphaIndex, bool premultiplied) {
    return image.sixteenBit ? readDirect<uint16_t>(tif, image, alphaIndex, premultiplied)
                            : readDirect<uint8_t>(tif, image, alphaIndex, premultiplied);
}

}  // namespace voimg::detail
