// SPDX-License-Identifier: MIT
// 16-bit TIFF reading: RGB(A) and grey(+alpha), stripped or tiled, contiguous or planar samples.
//
// Strips are treated as full-width tiles so one loop covers both layouts. A block that fails to decode is
// painted opaque grey; the image counts as unreadable only if no block at all decoded.
#include "tiff_p.h"

#include <vector>

namespace voimg::detail {
namespace {

constexpr uint16_t kGrey = 0x8080;

void paintGrey(DecodedImage& image, uint32_t x, uint32_t y, uint32_t cols, uint32_t rows) {
    for (uint32_t r = 0; r < rows; ++r) {
        auto* px = reinterpret_cast<uint16_t*>(image.pixels.data() + size_t(y + r) * image.stride()) + size_t(x) * 4;
        for (uint32_t c = 0; c < cols; ++c, px += 4) {
            px[0] = px[1] = px[2] = kGrey;
            px[3] = 0xffff;
        }
    }
}

}  // namespace

bool readTiff16(TIFF* tif, DecodedImage& image, int alphaIndex, bool premultiplied) {
    uint16_t spp = 1, planar = PLANARCONFIG_CONTIG, photometric = PHOTOMETRIC_MINISBLACK;
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
    const uint32_t width = uint32_t(image.width), height = uint32_t(image.height);
    const bool grey = photometric != PHOTOMETRIC_RGB;
    const bool invert = photometric == PHOTOMETRIC_MINISWHITE;

    // Which RGBA channels each stored sample feeds (bit mask), for the samples we use.
    const int used = std::min<int>(spp, std::max(grey ? 1 : 3, alphaIndex + 1));
    uint8_t channels[4] = {};
    for (int s = 0; s < used; ++s) channels[s] = s == alphaIndex ? 8 : grey ? 7 : uint8_t(1u << s);

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
    const uint64_t blockNeed = uint64_t(blockW) * blockH * samplesInBlock * 2;
    // Tiles far larger than the image itself are a malformed header, not something worth allocating.
    const uint64_t imageBytes = uint64_t(width) * height * spp * 2;
    if (blockBytes < blockNeed || blockNeed > std::max<uint64_t>(imageBytes * 4, 64u << 20)) return false;
    std::vector<uint16_t> buffer(size_t(blockBytes / 2 + 1));

    if (alphaIndex < 0) {
        auto* px = reinterpret_cast<uint16_t*>(image.pixels.data());
        for (size_t i = 0, n = size_t(width) * height; i < n; ++i) px[i * 4 + 3] = 0xffff;
    }
    bool anyBlock = false;
    const int planes = separate ? used : 1;
    for (int plane = 0; plane < planes; ++plane) {
        for (uint32_t by = 0; by < height; by += blockH) {
            for (uint32_t bx = 0; bx < width; bx += blockW) {
                const uint32_t rows = std::min(blockH, height - by), cols = std::min(blockW, width - bx);
                const tmsize_t got =
                    tiled ? TIFFReadEncodedTile(tif, TIFFComputeTile(tif, bx, by, 0, uint16_t(plane)), buffer.data(),
                                                tmsize_t(blockBytes))
                          : TIFFReadEncodedStrip(tif, TIFFComputeStrip(tif, by, uint16_t(plane)), buffer.data(),
                                                 tmsize_t(blockBytes));
                if (got < tmsize_t(uint64_t(blockW) * samplesInBlock * 2 * (rows - 1) + cols * samplesInBlock * 2)) {
                    paintGrey(image, bx, by, cols, rows);
                    continue;
                }
                anyBlock = true;
                for (uint32_t r = 0; r < rows; ++r) {
                    const uint16_t* src = buffer.data() + size_t(r) * blockW * samplesInBlock;
                    auto* dst = reinterpret_cast<uint16_t*>(image.pixels.data() + size_t(by + r) * image.stride()) +
                                size_t(bx) * 4;
                    for (uint32_t c = 0; c < cols; ++c, src += samplesInBlock, dst += 4) {
                        for (uint32_t k = 0; k < samplesInBlock; ++k) {
                            const int s = separate ? plane : int(k);
                            if (s >= used) continue;
                            uint16_t v = src[k];
                            if (invert && s == 0) v = uint16_t(0xffff - v);
                            for (int ch = 0; ch < 4; ++ch)
                                if (channels[s] & (1u << ch)) dst[ch] = v;
                        }
                    }
                }
            }
        }
    }
    if (anyBlock && alphaIndex >= 0 && premultiplied) unpremultiplyAlpha(image);
    return anyBlock;
}

}  // namespace voimg::detail
