// SPDX-License-Identifier: MIT
// Small helpers for engine tests: images made from code, and pixel access to rendered bitmaps.
#pragma once

#include <cstdint>
#include <functional>

#include "Engine/codec/codec.h"
#include "Engine/image.h"
#include "Engine/render_context.h"

namespace voimg::test {

// An 8-bit image of the given size whose pixel (x, y) (y counted from the top row) is f(x, y).
inline Image makeImage(int width, int height, const std::function<void(int, int, uint8_t*)>& f) {
    DecodedImage d;
    d.width = width;
    d.height = height;
    d.pixels.resize(size_t(width) * size_t(height) * 4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) f(x, y, &d.pixels[(size_t(y) * size_t(width) + size_t(x)) * 4]);
    return Image::withDecodedImage(std::move(d));
}

inline Image makeSolidImage(int width, int height, uint8_t r, uint8_t g, uint8_t b, uint8_t a = 255) {
    return makeImage(width, height, [=](int, int, uint8_t* p) { p[0] = r, p[1] = g, p[2] = b, p[3] = a; });
}

// Pixel (x, y) of a 4-channel 8-bit bitmap, y counted from the top row.
inline const uint8_t* pixelAt(const Bitmap& b, int x, int y) {
    return &b.bytes[(size_t(y) * size_t(b.width) + size_t(x)) * size_t(b.channels())];
}

inline const float* floatPixelAt(const Bitmap& b, int x, int y) {
    return &b.floats[(size_t(y) * size_t(b.width) + size_t(x)) * 4];
}

}  // namespace voimg::test
