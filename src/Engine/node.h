// SPDX-License-Identifier: MIT
// The nodes of an image graph and the pixel buffers they render into.
//
// Pixel grid: pixel (i, j) covers [i, i+1) x [j, j+1) of the plane and is sampled at its centre. A node
// renders any rectangle of the grid on request; pixels outside its extent are transparent. Buffers hold
// premultiplied linear RGBA floats, row 0 being the lowest row (smallest y), as the plane is y-up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "geometry.h"

namespace voimg {

struct PixelRect {
    int64_t x = 0, y = 0, width = 0, height = 0;

    [[nodiscard]] bool isEmpty() const { return width <= 0 || height <= 0; }
    [[nodiscard]] int64_t maxX() const { return x + width; }
    [[nodiscard]] int64_t maxY() const { return y + height; }
    [[nodiscard]] int64_t area() const { return isEmpty() ? 0 : width * height; }
    friend bool operator==(const PixelRect&, const PixelRect&) = default;
};

[[nodiscard]] PixelRect intersect(const PixelRect& a, const PixelRect& b);

// A view of a float RGBA buffer covering `rect`.
struct TileView {
    PixelRect rect;
    float* data = nullptr;
    size_t stride = 0;  // floats from one row to the next

    [[nodiscard]] float* row(int64_t y) const { return data + size_t(y - rect.y) * stride; }
    [[nodiscard]] float* pixel(int64_t x, int64_t y) const { return row(y) + size_t(x - rect.x) * 4; }
    void clear() const;
};

// An owned float RGBA buffer. Its contents start undefined: every node fills all of what it renders.
class TileBuffer {
public:
    explicit TileBuffer(const PixelRect& rect);
    [[nodiscard]] const TileView& view() const { return view_; }

private:
    std::unique_ptr<float[]> storage_;
    TileView view_;
};

class Node {
public:
    explicit Node(const Rect& extent) : extent_(extent) {}
    virtual ~Node() = default;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    [[nodiscard]] const Rect& extent() const { return extent_; }
    // Fills all of `out` with this node's pixels. Called concurrently from the render threads.
    virtual void render(const TileView& out) const = 0;

private:
    Rect extent_;
};

using NodePtr = std::shared_ptr<const Node>;

// The smallest pixel rectangle that holds every pixel with a non-zero overlap with `r`. Edges within 1/1000
// pixel of a whole number are snapped to it, so float noise never adds a row or column. Infinite or
// non-finite rectangles give an empty result.
[[nodiscard]] PixelRect pixelRectEnclosing(const Rect& r);

// `r` limited to the pixels that `extent` touches (all of `r` for an infinite extent).
[[nodiscard]] PixelRect clipToExtent(const PixelRect& r, const Rect& extent);

// Fraction of the pixel span [i, i+1) covered by [lo, hi) (1D), with the same snapping as above.
[[nodiscard]] float spanCoverage(int64_t i, double lo, double hi);

}  // namespace voimg
