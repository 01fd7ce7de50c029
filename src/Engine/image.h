// SPDX-License-Identifier: MIT
// Immutable, lazily evaluated image values.
//
// An Image is a cheap handle to a shared, immutable node of an image graph. Nothing is computed when an
// image is made; pixels are produced only when a RenderContext renders a rectangle of it. Every operation
// returns a new value. A default-constructed Image is the missing image: it allocates nothing, its extent
// is the zero rectangle and operations on it give the missing image again.
//
// Working values are RGBA, premultiplied alpha, 32-bit float, linear light (linear sRGB primaries).
// Outside its extent an image reads as transparent black.
#pragma once

#include <memory>
#include <string>

#include "geometry.h"

namespace voimg {

class Node;
struct DecodedImage;

// A colour as the caller gives it: unpremultiplied, sRGB-encoded components in [0, 1] (not clamped).
struct Color {
    float red = 0, green = 0, blue = 0, alpha = 1;
    friend bool operator==(const Color&, const Color&) = default;
};

class Image {
public:
    Image() = default;
    explicit Image(std::shared_ptr<const Node> node) : node_(std::move(node)) {}

    [[nodiscard]] bool isNull() const { return node_ == nullptr; }
    explicit operator bool() const { return node_ != nullptr; }
    // The zero rectangle for the missing image.
    [[nodiscard]] Rect extent() const;

    // A transparent image with an empty extent: an image that is there but shows nothing.
    [[nodiscard]] static Image emptyImage();
    // An infinite image of one colour.
    [[nodiscard]] static Image withColor(const Color& color);
    // An image of decoded pixels (sRGB, straight alpha) with extent (0, 0, width, height).
    [[nodiscard]] static Image withDecodedImage(DecodedImage pixels);
    // An image of a file, or the missing image when the file is not a readable image. Only the header is read
    // now; the pixels are decoded on first render, at the lowest resolution that render needs.
    [[nodiscard]] static Image withContentsOfFile(const std::string& path);

    // The part of this image inside `rect`; pixels are not moved.
    [[nodiscard]] Image croppedTo(const Rect& rect) const;
    // This image with output pixel p taken from T^-1(p); shrinking filters with a proper low-pass kernel.
    [[nodiscard]] Image transformed(const AffineTransform& transform) const;
    // Source-over: this image laid over `background`. A missing operand gives the other one.
    [[nodiscard]] Image compositedOver(const Image& background) const;

    [[nodiscard]] const std::shared_ptr<const Node>& node() const { return node_; }
    friend bool operator==(const Image& a, const Image& b) { return a.node_ == b.node_; }

private:
    std::shared_ptr<const Node> node_;
};

}  // namespace voimg
