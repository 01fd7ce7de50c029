// SPDX-License-Identifier: MIT
// TIFF decoding with libtiff (first directory only).
//
// 8- and 16-bit RGB and grey are copied directly at their depth (see tiff_direct.cpp). 8-bit contiguous
// CMYK goes through the colour-managed CMYK conversion. Everything else libtiff's RGBA reader understands
// (lower depths, palette, YCbCr, JPEG-compressed YCbCr, ...) comes out as 8-bit RGBA. Rows are returned in storage
// order: like EXIF orientation, the Orientation tag is not applied.
#include "codec_module_p.h"
#include "icc_convert_p.h"
#include "tiff_p.h"

#include <vector>

namespace voimg::detail {
namespace {

// libtiff's RGBA reader: packed ABGR words (R in the low byte), with alpha always premultiplied.
bool readRgba8(TIFF* tif, DecodedImage& image, std::string* error) {
    char message[1024] = {};
    TIFFRGBAImage reader{};
    if (!TIFFRGBAImageOK(tif, message) || !TIFFRGBAImageBegin(&reader, tif, 1, message)) {
        setError(error, std::string("unsupported TIFF: ") + message);
        return false;
    }
    reader.req_orientation = reader.orientation;  // storage order, no flipping
    auto* raster = reinterpret_cast<uint32_t*>(image.pixels.data());
    const int ok = TIFFRGBAImageGet(&reader, raster, uint32_t(image.width), uint32_t(image.height));
    const bool alpha = reader.alpha != 0;
    TIFFRGBAImageEnd(&reader);
    if (!ok) {
        setError(error, "invalid TIFF image data");
        return false;
    }
    if constexpr (!hostIsLittleEndian()) {
        for (size_t i = 0, n = size_t(image.width) * size_t(image.height); i < n; ++i)
            raster[i] = __builtin_bswap32(raster[i]);
    }
    image.hasAlpha = alpha;
    if (alpha) unpremultiplyAlpha(image);
    return true;
}

bool readCmyk8(TIFF* tif, const TiffLayout& layout, DecodedImage& image, const CmykToSrgb& converter,
               std::string* error) {
    const tmsize_t scanline = TIFFScanlineSize(tif);
    if (scanline < tmsize_t(image.width) * layout.samplesPerPixel) {
        setError(error, "invalid TIFF layout");
        return false;
    }
    std::vector<uint8_t> row(static_cast<size_t>(scanline));
    for (int y = 0; y < image.height; ++y) {
        uint8_t* out = image.pixels.data() + size_t(y) * image.stride();
        if (TIFFReadScanline(tif, row.data(), uint32_t(y), 0) < 0) {
            if (y == 0) {
                setError(error, "invalid TIFF image data");
                return false;
            }
            fillMissingRows(image, y, image.height);
            return true;
        }
        for (int x = 0; x < image.width; ++x)
            std::memcpy(out + size_t(x) * 4, row.data() + size_t(x) * layout.samplesPerPixel, 4);
        converter.convert(out, size_t(image.width));
    }
    return true;
}

}  // namespace

TiffLayout readTiffLayout(TIFF* tif) {
    TiffLayout l;
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &l.bitsPerSample);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &l.samplesPerPixel);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &l.planar);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &l.sampleFormat);
    TIFFGetFieldDefaulted(tif, TIFFTAG_INKSET, &l.inkSet);
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &l.photometric);
    uint16_t extraCount = 0;
    uint16_t* extraTypes = nullptr;
    const int colourSamples = l.photometric == PHOTOMETRIC_RGB ? 3 : l.photometric == PHOTOMETRIC_SEPARATED ? 4 : 1;
    if (TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extraTypes) && extraCount > 0 && extraTypes &&
        l.samplesPerPixel > colourSamples &&
        (extraTypes[0] == EXTRASAMPLE_ASSOCALPHA || extraTypes[0] == EXTRASAMPLE_UNASSALPHA)) {
        l.alphaIndex = colourSamples;
        l.premultiplied = extraTypes[0] == EXTRASAMPLE_ASSOCALPHA;
    }
    return l;
}

DecodeResult decodeTiff(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error) {
    MemorySource source(data, size);
    TiffReader reader;
    // Single allocations (strip buffers) may reach the size of the whole image at 16 bits per sample.
    const uint64_t maxAlloc = options.maxPixels > (UINT64_MAX >> 4) ? UINT64_MAX : options.maxPixels * 8;
    if (!openTiff(reader, source, std::max<uint64_t>(maxAlloc, 64u << 20))) {
        setError(error, "invalid TIFF header");
        return std::nullopt;
    }
    TIFF* tif = reader.tif;
    uint32_t width = 0, height = 0;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &height);
    if (!checkDimensions(width, height, options.maxPixels, error)) return std::nullopt;
    const TiffLayout layout = readTiffLayout(tif);
    uint32_t iccSize = 0;
    void* iccData = nullptr;
    if (!TIFFGetField(tif, TIFFTAG_ICCPROFILE, &iccSize, &iccData)) iccData = nullptr;
    const auto* icc = static_cast<const uint8_t*>(iccData);

    const bool grey = layout.photometric == PHOTOMETRIC_MINISBLACK || layout.photometric == PHOTOMETRIC_MINISWHITE;
    const bool direct = (layout.bitsPerSample == 8 || layout.bitsPerSample == 16) &&
                        layout.sampleFormat == SAMPLEFORMAT_UINT &&
                        ((layout.photometric == PHOTOMETRIC_RGB && layout.samplesPerPixel >= 3) || grey);
    const bool deep = direct && layout.bitsPerSample == 16;
    const bool cmyk = layout.photometric == PHOTOMETRIC_SEPARATED && layout.inkSet == INKSET_CMYK &&
                      layout.bitsPerSample == 8 && layout.samplesPerPixel >= 4 && layout.alphaIndex < 0 &&
                      layout.planar == PLANARCONFIG_CONTIG && !TIFFIsTiled(tif);

    DecodedImage image;
    if (!allocatePixels(image, int(width), int(height), deep, error)) return std::nullopt;
    if (direct) {
        if (!readTiffDirect(tif, image, layout.alphaIndex, layout.premultiplied)) {
            setError(error, "invalid TIFF image data");
            return std::nullopt;
        }
        image.hasAlpha = layout.alphaIndex >= 0;
    } else if (cmyk) {
        const CmykToSrgb converter(icc, iccSize, false);
        if (!readCmyk8(tif, layout, image, converter, error)) return std::nullopt;
        return image;  // the CMYK profile, if any, has been applied
    } else if (!readRgba8(tif, image, error)) {
        return std::nullopt;
    }
    if (icc != nullptr && layout.photometric != PHOTOMETRIC_SEPARATED)
        convertToSrgb(image, icc, iccSize, grey ? IccLayout::GreyInRgba : IccLayout::Rgb);
    return image;
}

}  // namespace voimg::detail

// This decoder is built as a codec module.
VO_CODEC_MODULE_WITH_ROWS(voimg::FileFormat::Tiff, voimg::detail::decodeTiff, voimg::detail::probeTiff,
                          voimg::detail::openTiffRows)
