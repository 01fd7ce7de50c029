// SPDX-License-Identifier: MIT
// Internals shared by the decoders: byte sources, size checks, pixel buffer helpers and the per-format entry
// points that the public functions dispatch to.
#pragma once

#include "codec.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace voimg::detail {

// Random access to encoded bytes, either a memory block or a file read on demand (probing never reads more
// of a file than the header parsers ask for).
class ByteSource {
public:
    virtual ~ByteSource() = default;
    [[nodiscard]] virtual uint64_t size() const = 0;
    // Copies up to `length` bytes starting at `offset`; returns how many were copied (fewer at the end).
    virtual size_t readAt(uint64_t offset, void* out, size_t length) = 0;
    // The whole content when it is in memory, else nullptr.
    [[nodiscard]] virtual const uint8_t* memory() const { return nullptr; }

    // True when exactly `length` bytes could be read.
    bool readExact(uint64_t offset, void* out, size_t length) { return readAt(offset, out, length) == length; }
};

class MemorySource final : public ByteSource {
public:
    MemorySource(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    [[nodiscard]] uint64_t size() const override { return size_; }
    size_t readAt(uint64_t offset, void* out, size_t length) override {
        if (offset >= size_) return 0;
        const size_t n = std::min<uint64_t>(length, size_ - offset);
        if (n != 0) std::memcpy(out, data_ + offset, n);
        return n;
    }
    [[nodiscard]] const uint8_t* memory() const override { return data_; }

private:
    const uint8_t* data_;
    size_t size_;
};

// Number of leading bytes sniffFormat() looks at.
inline constexpr size_t kSniffBytes = 32;
[[nodiscard]] FileFormat sniffFormat(const uint8_t* head, size_t size);

void setError(std::string* error, const std::string& message);

// Accepts a declared size only when both sides are positive, fit an int and the area stays within maxPixels
// (and within what a byte count can address at 16 bits per sample).
[[nodiscard]] bool checkDimensions(uint64_t width, uint64_t height, uint64_t maxPixels, std::string* error);

// Sizes `image` to width x height; pixels start zeroed (transparent black). Reports allocation failure.
[[nodiscard]] bool allocatePixels(DecodedImage& image, int width, int height, bool sixteenBit, std::string* error);

// Paints rows [firstRow, endRow) opaque mid grey: the documented filler for parts of a truncated file that
// never arrived.
void fillMissingRows(DecodedImage& image, int firstRow, int endRow);

// Converts premultiplied samples to straight alpha in place.
void unpremultiplyAlpha(DecodedImage& image);

// Sets every alpha sample of an 8-bit RGBA run to 255 (after conversions that leave alpha undefined).
void setOpaque(uint8_t* rgba, size_t pixelCount);

[[nodiscard]] constexpr bool hostIsLittleEndian() { return std::endian::native == std::endian::little; }

// Per-format decoders. `data` holds the complete file.
using DecodeResult = std::optional<DecodedImage>;
DecodeResult decodeJpeg(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error);
DecodeResult decodePng(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error);
DecodeResult decodeTiff(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error);
DecodeResult decodeWebP(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error);
DecodeResult decodeGif(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error);
DecodeResult decodeHeif(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error);
DecodeResult decodeBmp(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error);

// Header-only size probes for formats whose containers need their library to parse.
[[nodiscard]] bool probeTiff(ByteSource& source, ImageInfo& info);
[[nodiscard]] bool probeHeif(ByteSource& source, ImageInfo& info);

}  // namespace voimg::detail
