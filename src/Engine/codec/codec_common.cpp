// SPDX-License-Identifier: MIT
// Size checks and pixel buffer helpers shared by all decoders.
#include "codec_p.h"

#include <climits>
#include <new>
#include <stdexcept>

namespace voimg::detail {

void setError(std::string* error, const std::string& message) {
    if (error) *error = message;
}

bool checkDimensions(uint64_t width, uint64_t height, uint64_t maxPixels, std::string* error) {
    if (width == 0 || height == 0) {
        setError(error, "image has no pixels");
        return false;
    }
    if (width > uint64_t(INT_MAX) || height > uint64_t(INT_MAX)) {
        setError(error, "image dimensions are out of range");
        return false;
    }
    // Both factors are below 2^31, so the product cannot overflow 64 bits.
    const uint64_t area = width * height;
    if (area > maxPixels) {
        setError(error, "image is too large (" + std::to_string(width) + " x " + std::to_string(height) + ")");
        return false;
    }
    if (area > SIZE_MAX / 8) {
        setError(error, "image is too large for this machine");
        return false;
    }
    return true;
}

bool allocatePixels(DecodedImage& image, int width, int height, bool sixteenBit, std::string* error) {
    image.width = width;
    image.height = height;
    image.sixteenBit = sixteenBit;
    try {
        image.pixels.resize(image.stride() * size_t(height));
    } catch (const std::bad_alloc&) {
        image.pixels.clear();
        setError(error, "out of memory for " + std::to_string(width) + " x " + std::to_string(height) + " pixels");
        return false;
    } catch (const std::length_error&) {
        image.pixels.clear();
        setError(error, "image is too large for this machine");
        return false;
    }
    return true;
}

void fillMissingRows(DecodedImage& image, int firstRow, int endRow) {
    firstRow = std::max(firstRow, 0);
    endRow = std::min(endRow, image.height);
    if (firstRow >= endRow) return;
    const size_t stride = image.stride();
    uint8_t* begin = image.pixels.data() + size_t(firstRow) * stride;
    const size_t bytes = size_t(endRow - firstRow) * stride;
    if (!image.sixteenBit) {
        for (size_t i = 0; i < bytes; i += 4) {
            begin[i] = begin[i + 1] = begin[i + 2] = 128;
            begin[i + 3] = 255;
        }
        return;
    }
    auto* samples = reinterpret_cast<uint16_t*>(begin);
    for (size_t i = 0; i < bytes / 2; i += 4) {
        samples[i] = samples[i + 1] = samples[i + 2] = 0x8080;
        samples[i + 3] = 0xffff;
    }
}

void unpremultiplyAlpha(DecodedImage& image) {
    const size_t count = size_t(image.width) * size_t(image.height);
    if (!image.sixteenBit) {
        uint8_t* p = image.pixels.data();
        for (size_t i = 0; i < count; ++i, p += 4) {
            const unsigned a = p[3];
            if (a == 255) continue;
            if (a == 0) {
                p[0] = p[1] = p[2] = 0;
                continue;
            }
            for (int c = 0; c < 3; ++c) p[c] = uint8_t(std::min(255u, (p[c] * 255u + a / 2) / a));
        }
        return;
    }
    auto* p = reinterpret_cast<uint16_t*>(image.pixels.data());
    for (size_t i = 0; i < count; ++i, p += 4) {
        const uint32_t a = p[3];
        if (a == 65535) continue;
        if (a == 0) {
            p[0] = p[1] = p[2] = 0;
            continue;
        }
        for (int c = 0; c < 3; ++c) p[c] = uint16_t(std::min<uint32_t>(65535u, (p[c] * 65535u + a / 2) / a));
    }
}

void setOpaque(uint8_t* rgba, size_t pixelCount) {
    for (size_t i = 0; i < pixelCount; ++i) rgba[i * 4 + 3] = 255;
}

}  // namespace voimg::detail
