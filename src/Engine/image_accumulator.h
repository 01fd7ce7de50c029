// SPDX-License-Identifier: MIT
// A pixel buffer over a fixed extent that images are rendered into, and whose contents are an image.
//
// The extent is made integral (the enclosing pixel rectangle). Pixels are stored premultiplied, in R, G, B,
// A order: Rgba16 as 16-bit unsigned normalised linear values, RgbaFloat as linear floats, Rgba8 as 8-bit
// sRGB-encoded values (encoding keeps dark tones from banding). `image()` is a snapshot: later writes do
// not change an image already handed out (the buffer is copied on the next write while one is alive).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "image.h"
#include "node.h"

namespace voimg {

enum class AccumulatorFormat { Rgba8, Rgba16, RgbaFloat };

class ImageAccumulator {
public:
    ImageAccumulator(const Rect& extent, AccumulatorFormat format);
    virtual ~ImageAccumulator();
    ImageAccumulator(const ImageAccumulator&) = delete;
    ImageAccumulator& operator=(const ImageAccumulator&) = delete;

    [[nodiscard]] Rect extent() const;
    [[nodiscard]] AccumulatorFormat format() const { return format_; }
    // Replaces the whole contents with `image` (transparent where it has no pixels).
    void setImage(const Image& image);
    // Replaces only the pixels that touch `dirty`; the rest stays.
    void setImageDirtyRect(const Image& image, const Rect& dirty);
    [[nodiscard]] Image image() const;
    // Everything transparent.
    void clear();

    struct Buffer;

private:
    void write(const Image& image, const PixelRect& region);
    Buffer& writableBuffer();

    PixelRect pixels_;
    AccumulatorFormat format_;
    std::shared_ptr<Buffer> buffer_;
};

}  // namespace voimg
