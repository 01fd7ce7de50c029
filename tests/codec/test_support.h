// SPDX-License-Identifier: MIT
// Helpers for the codec tests: temporary folders, synthetic pictures, and writers that produce test files
// with the format libraries directly (so the decoders are checked against independent encoders).
#pragma once

#include "Engine/codec/codec.h"
#include "support/test_images.h"

#include <cstdint>
#include <string>
#include <vector>

namespace votest {

using Bytes = std::vector<uint8_t>;

// A fresh folder under /tmp, removed with its content on destruction.
using vo::test::TempDir;

// Decodes from memory at 1/scale; a failure fails the test (with the decoder's message) and gives an empty
// image.
voimg::DecodedImage decodeOrFail(const Bytes& data, int scale = 1);

void writeFile(const std::string& path, const Bytes& data);
Bytes readFile(const std::string& path);
Bytes readFile(const char* path);
[[nodiscard]] bool fileExists(const std::string& path);
std::vector<std::string> listFolder(const std::string& path);

// Interleaved 8-bit samples, `channels` per pixel.
struct Picture {
    int width = 0, height = 0, channels = 0;
    std::vector<uint8_t> samples;
    [[nodiscard]] const uint8_t* at(int x, int y) const { return samples.data() + (size_t(y) * width + x) * channels; }
};

// Four flat quadrants (red, green, blue, light grey), easy for lossy codecs to keep.
Picture makeQuadrants(int width, int height, int channels = 3);
// A smooth gradient with detail; with 4 channels the alpha varies too.
Picture makeGradient(int width, int height, int channels = 3);
Picture rgbToRgba(const Picture& rgb);

// Reads sample `c` of pixel (x, y) of a decoded image (either depth).
unsigned sampleAt(const voimg::DecodedImage& image, int x, int y, int c);

// --- JPEG (libjpeg) ---
enum class JpegColour { Rgb, Grey, Cmyk, Ycck };
// One scan of a progressive script: the components it holds, its spectral band and bit positions.
struct JpegScan {
    std::vector<int> components;
    int ss, se, ah, al;
};

struct JpegParams {
    JpegColour colour = JpegColour::Rgb;
    int lumaH = 2, lumaV = 2;  // luma sampling factors; chroma is 1x1
    bool progressive = false;
    std::vector<JpegScan> scans;  // a progressive file's scan script; empty: libjpeg's standard one
    int restartRows = 0;
    int quality = 95;
    bool adobeMarker = true;  // for CMYK/YCCK
    Bytes icc;
};
// `picture` carries 1 (grey), 3 (RGB) or 4 (CMYK) channels matching params.colour.
Bytes encodeJpeg(const Picture& picture, const JpegParams& params);
// Raw libjpeg decode without colour conversion of CMYK (4 channels) or RGB (3 channels); subsampled chroma
// is interpolated, or else its samples repeated.
Picture decodeJpegRaw(const Bytes& jpeg, bool interpolateChroma = true);

// --- PNG (libpng) ---
struct PngParams {
    int colourType = 2;  // PNG colour type: 0 grey, 2 RGB, 3 palette, 4 grey+alpha, 6 RGBA
    int bitDepth = 8;
    bool interlaced = false;
    std::vector<uint8_t> palette;  // RGB triples
    std::vector<uint8_t> paletteAlpha;
    int greyTrns = -1;  // tRNS grey key, or -1
    Bytes icc;
};
// `samples` holds width*height*channels values at params.bitDepth (palette: indices).
Bytes encodePng(int width, int height, const std::vector<uint16_t>& samples, const PngParams& params);
// A PNG that only has a valid IHDR declaring the given size, then a tiny IDAT and IEND.
Bytes pngDeclaring(uint32_t width, uint32_t height);

// --- TIFF (libtiff) ---
struct TiffParams {
    int bitsPerSample = 8;
    int samplesPerPixel = 3;
    int photometric = 2;  // PHOTOMETRIC_RGB
    bool alpha = false;   // last sample is unassociated alpha
    bool planarSeparate = false;
    bool tiled = false;
    int compression = 1;  // COMPRESSION_NONE
    std::vector<uint16_t> colourMap;  // for palette images: 3 * 2^bits entries
    Bytes icc;
};
Bytes encodeTiff(const std::string& scratchPath, int width, int height, const std::vector<uint16_t>& samples,
                 const TiffParams& params);

// --- WebP (libwebp), containers assembled by hand ---
Bytes encodeWebP(const Picture& rgba, bool lossless, int quality = 90);
Bytes webpWithIcc(const Bytes& simpleWebP, int width, int height, bool alpha, const Bytes& icc);
// Two frames: the first covers the canvas, the second is different.
Bytes animatedWebP(const Picture& first, const Picture& second);

// --- GIF (giflib) ---
struct GifParams {
    int transparentIndex = -1;
    bool interlaced = false;
    int screenWidth = 0, screenHeight = 0;  // 0: the frame size
    int left = 0, top = 0;
    bool secondFrame = false;
};
// `indices` are palette indices; `palette` RGB triples (padded to a power of two by the writer).
Bytes encodeGif(int width, int height, const std::vector<uint8_t>& indices, const std::vector<uint8_t>& palette,
                const GifParams& params);

// --- HEIF/AVIF (libheif); empty when no encoder for the format is available ---
Bytes encodeHeif(const Picture& rgba, bool avif, int bitDepth, const Bytes& icc = {});
bool haveHeifEncoder(bool avif);

// --- BMP (written by hand) ---
struct BmpParams {
    int bitsPerPixel = 24;
    int infoSize = 40;       // 12, 40, 108, 124
    int compression = 0;     // 0 BI_RGB, 3 BI_BITFIELDS
    bool topDown = false;
    uint32_t masks[4] = {};  // R, G, B, A for BITFIELDS
    std::vector<uint8_t> palette;  // RGB triples
};
// `pixels` is RGBA (used for 16/24/32 bpp) or indices (1/4/8 bpp), top row first.
Bytes encodeBmp(int width, int height, const std::vector<uint8_t>& pixels, const BmpParams& params);

// --- lcms2 references ---
// Converts interleaved samples from `profile` to sRGB with the decoder's intent; format names as lcms TYPE_*.
std::vector<uint8_t> lcmsToSrgb8(const Bytes& profile, const uint8_t* samples, size_t pixels, uint32_t inFormat,
                                 uint32_t outFormat, size_t outChannels);
std::vector<uint16_t> lcmsToSrgb16(const Bytes& profile, const uint16_t* samples, size_t pixels, uint32_t inFormat,
                                   uint32_t outFormat, size_t outChannels);

inline constexpr const char* kAdobeRgbProfile = "/usr/share/color/icc/compatibleWithAdobeRGB1998.icc";
inline constexpr const char* kCmykProfile = "/usr/share/color/icc/ghostscript/default_cmyk.icc";

}  // namespace votest
