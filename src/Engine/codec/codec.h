// SPDX-License-Identifier: MIT
// Image file decoding and encoding for the engine.
//
// Conventions for every function here:
// - Decoded pixels are always RGBA, straight (not premultiplied) alpha, encoded in sRGB: embedded ICC
//   profiles are converted to sRGB while decoding (lcms2), CMYK without a profile goes through the
//   standard CMYK profile, grey becomes R = G = B, images without alpha get A = max.
// - Depth is 8 bits per sample, or 16 bits (native-endian uint16_t) for sources with more than 8 bits.
// - Rows are stored top row first, tightly packed (stride = width * 4 * bytesPerSample).
// - No EXIF orientation is applied.
// - Failure never throws and never aborts: the result is empty and `error` says why in one line.
// - A file whose declared size exceeds DecodeOptions::maxPixels counts as unreadable; nothing of that
//   size is allocated.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace voimg {

enum class FileFormat { Unknown, Jpeg, Png, Tiff, WebP, Gif, Heif, Bmp };

struct DecodedImage {
    int width = 0;
    int height = 0;
    bool sixteenBit = false;      // false: uint8_t samples; true: uint16_t samples
    bool hasAlpha = false;        // the file carries transparency (an alpha channel, tRNS, GIF key colour)
    std::vector<uint8_t> pixels;  // width * height * 4 samples

    [[nodiscard]] size_t bytesPerPixel() const { return sixteenBit ? 8 : 4; }
    [[nodiscard]] size_t stride() const { return size_t(width) * bytesPerPixel(); }
};

// Generous default cap on decoded pixels: 24000 x 24000 still decodes, 100000 x 100000 does not.
inline constexpr uint64_t kDefaultMaxPixels = 600'000'000ULL;

struct DecodeOptions {
    // Decode at 1/scaleDenominator of the size where the format can do so cheaply (JPEG DCT scaling:
    // 1, 2, 4 or 8; WebP scaled decoding). Other formats ignore it. Callers read the actual size from
    // the result.
    int scaleDenominator = 1;
    uint64_t maxPixels = kDefaultMaxPixels;
};

struct ImageInfo {
    FileFormat format = FileFormat::Unknown;
    int width = 0;  // full-resolution size as declared by the file header
    int height = 0;
};

// Reads only as much of the file as needed to learn the format and size.
[[nodiscard]] std::optional<ImageInfo> probeImageFile(const std::string& path, std::string* error = nullptr);

// Decodes a whole file (first frame of animations). Format is recognised from the content, not the name.
[[nodiscard]] std::optional<DecodedImage> decodeImageFile(const std::string& path, const DecodeOptions& options = {},
                                                          std::string* error = nullptr);

// Same from memory (used by fuzz targets and tests).
[[nodiscard]] std::optional<DecodedImage> decodeImageMemory(const uint8_t* data, size_t size,
                                                            const DecodeOptions& options = {},
                                                            std::string* error = nullptr);

// Encoders write complete files atomically: the data goes to a temporary file in the destination's folder
// which is renamed over the destination only on success, so a failure never leaves a partial or empty file.

// Baseline JPEG, 4:2:0, standard tables scaled to `quality` (1..100). `rgb` holds width*height*3 bytes,
// top row first, sRGB.
[[nodiscard]] bool writeJpegFile(const std::string& path, const uint8_t* rgb, int width, int height, int quality,
                                 std::string* error = nullptr);

// The same JPEG written while its picture is being made: rowsReady(n) says that rows [0, n) of `rgb` are
// final (n grows from call to call), and the writer encodes every band of rows they allow; finish() once
// the picture is complete replaces the destination. A writer dropped unfinished leaves no file behind.
// One thread at a time; `rgb` must stay where it is until finish().
class JpegStreamWriter {
public:
    // Null (with `error` set) when the picture is invalid or the destination cannot be created.
    [[nodiscard]] static std::unique_ptr<JpegStreamWriter> open(const std::string& path, const uint8_t* rgb, int width,
                                                                int height, int quality, std::string* error = nullptr);
    ~JpegStreamWriter();
    JpegStreamWriter(const JpegStreamWriter&) = delete;
    JpegStreamWriter& operator=(const JpegStreamWriter&) = delete;

    void rowsReady(int rows);
    [[nodiscard]] bool finish(std::string* error = nullptr);

private:
    JpegStreamWriter();
    struct State;
    std::unique_ptr<State> state_;
};

// 8-bit RGBA PNG with straight alpha. `rgba` holds width*height*4 bytes, top row first, sRGB.
[[nodiscard]] bool writePngFile(const std::string& path, const uint8_t* rgba, int width, int height,
                                std::string* error = nullptr);

}  // namespace voimg
