// SPDX-License-Identifier: MIT
// Test TIFF files written with libtiff and GIF files written with giflib.
#include "test_support.h"

#include <gif_lib.h>
#include <tiffio.h>

#include <cstring>
#include <stdexcept>

namespace votest {
namespace {

// Packs `count` samples (taken every `step` from `src`) into bytes at `bits` per sample.
void packSamples(const uint16_t* src, size_t count, size_t step, int bits, uint8_t* out) {
    if (bits == 16) {
        for (size_t i = 0; i < count; ++i) {
            const uint16_t v = src[i * step];
            std::memcpy(out + i * 2, &v, 2);  // libtiff takes native byte order
        }
        return;
    }
    if (bits == 8) {
        for (size_t i = 0; i < count; ++i) out[i] = uint8_t(src[i * step]);
        return;
    }
    std::memset(out, 0, (count * bits + 7) / 8);
    for (size_t i = 0; i < count; ++i) {
        const size_t bit = i * bits;
        out[bit / 8] |= uint8_t(src[i * step] << (8 - bits - bit % 8));
    }
}

}  // namespace

Bytes encodeTiff(const std::string& scratchPath, int width, int height, const std::vector<uint16_t>& samples,
                 const TiffParams& params) {
    TIFF* tif = TIFFOpen(scratchPath.c_str(), "w");
    if (tif == nullptr) throw std::runtime_error("TIFFOpen failed");
    const int spp = params.samplesPerPixel;
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, uint32_t(width));
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, uint32_t(height));
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, uint16_t(params.bitsPerSample));
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, uint16_t(spp));
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, uint16_t(params.photometric));
    TIFFSetField(tif, TIFFTAG_COMPRESSION, uint16_t(params.compression));
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, params.planarSeparate ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    if (params.alpha) {
        const uint16_t extra[] = {EXTRASAMPLE_UNASSALPHA};
        TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, uint16_t(1), extra);
    }
    if (!params.colourMap.empty()) {
        const size_t n = params.colourMap.size() / 3;
        TIFFSetField(tif, TIFFTAG_COLORMAP, params.colourMap.data(), params.colourMap.data() + n,
                     params.colourMap.data() + 2 * n);
    }
    if (!params.icc.empty()) TIFFSetField(tif, TIFFTAG_ICCPROFILE, uint32_t(params.icc.size()), params.icc.data());
    const int planes = params.planarSeparate ? spp : 1;
    const int perPixel = params.planarSeparate ? 1 : spp;
    if (params.tiled) {
        constexpr int kTile = 16;
        TIFFSetField(tif, TIFFTAG_TILEWIDTH, uint32_t(kTile));
        TIFFSetField(tif, TIFFTAG_TILELENGTH, uint32_t(kTile));
        std::vector<uint8_t> tile(size_t(TIFFTileSize(tif)));
        std::vector<uint16_t> staging(size_t(kTile) * kTile * perPixel);
        for (int p = 0; p < planes; ++p)
            for (int ty = 0; ty < height; ty += kTile)
                for (int tx = 0; tx < width; tx += kTile) {
                    std::fill(staging.begin(), staging.end(), 0);
                    for (int y = ty; y < std::min(height, ty + kTile); ++y)
                        for (int x = tx; x < std::min(width, tx + kTile); ++x)
                            for (int k = 0; k < perPixel; ++k)
                                staging[(size_t(y - ty) * kTile + (x - tx)) * perPixel + k] =
                                    samples[(size_t(y) * width + x) * spp + (params.planarSeparate ? p : k)];
                    packSamples(staging.data(), staging.size(), 1, params.bitsPerSample, tile.data());
                    TIFFWriteTile(tif, tile.data(), uint32_t(tx), uint32_t(ty), 0, uint16_t(p));
                }
    } else {
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, uint32_t(7));  // several strips, last one short
        std::vector<uint8_t> row(size_t(TIFFScanlineSize(tif)) + 8);
        for (int p = 0; p < planes; ++p)
            for (int y = 0; y < height; ++y) {
                const uint16_t* src = samples.data() + size_t(y) * width * spp + (params.planarSeparate ? p : 0);
                const size_t step = params.planarSeparate ? size_t(spp) : 1;
                packSamples(src, size_t(width) * perPixel, step, params.bitsPerSample, row.data());
                if (TIFFWriteScanline(tif, row.data(), uint32_t(y), uint16_t(p)) < 0)
                    throw std::runtime_error("TIFFWriteScanline failed");
            }
    }
    TIFFClose(tif);
    return readFile(scratchPath);
}

namespace {

int appendToVector(GifFileType* gif, const GifByteType* data, int length) {
    auto* out = static_cast<Bytes*>(gif->UserData);
    out->insert(out->end(), data, data + length);
    return length;
}

}  // namespace

Bytes encodeGif(int width, int height, const std::vector<uint8_t>& indices, const std::vector<uint8_t>& palette,
                const GifParams& params) {
    Bytes out;
    int error = 0;
    GifFileType* gif = EGifOpen(&out, appendToVector, &error);
    if (gif == nullptr) throw std::runtime_error("EGifOpen failed");
    int size = 2;
    while (size < int(palette.size() / 3)) size *= 2;
    std::vector<GifColorType> colours(size_t(size), GifColorType{0, 0, 0});
    for (size_t i = 0; i * 3 + 2 < palette.size(); ++i)
        colours[i] = GifColorType{palette[i * 3], palette[i * 3 + 1], palette[i * 3 + 2]};
    ColorMapObject* map = GifMakeMapObject(size, colours.data());
    EGifSetGifVersion(gif, true);
    const int screenW = params.screenWidth ? params.screenWidth : width;
    const int screenH = params.screenHeight ? params.screenHeight : height;
    EGifPutScreenDesc(gif, screenW, screenH, 8, 0, map);
    const int frames = params.secondFrame ? 2 : 1;
    for (int f = 0; f < frames; ++f) {
        GraphicsControlBlock gcb{};
        gcb.TransparentColor = params.transparentIndex >= 0 ? params.transparentIndex : NO_TRANSPARENT_COLOR;
        gcb.DelayTime = 10;
        GifByteType ext[4];
        const size_t extLength = EGifGCBToExtension(&gcb, ext);
        EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, int(extLength), ext);
        EGifPutImageDesc(gif, params.left, params.top, width, height, params.interlaced, nullptr);
        std::vector<GifPixelType> line(static_cast<size_t>(width));
        // Interlaced frames are written in pass order: rows 0,8,.. then 4,12,.. then 2,6,.. then 1,3,..
        static constexpr int kStart[4] = {0, 4, 2, 1}, kStep[4] = {8, 8, 4, 2};
        for (int pass = 0; pass < (params.interlaced ? 4 : 1); ++pass)
            for (int y = params.interlaced ? kStart[pass] : 0; y < height; y += params.interlaced ? kStep[pass] : 1) {
                for (int x = 0; x < width; ++x)
                    line[size_t(x)] = GifPixelType(f == 0 ? indices[size_t(y) * width + x] : 1);
                EGifPutLine(gif, line.data(), width);
            }
    }
    EGifCloseFile(gif, &error);
    GifFreeMapObject(map);
    return out;
}

}  // namespace votest
