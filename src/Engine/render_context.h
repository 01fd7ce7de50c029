// SPDX-License-Identifier: MIT
// Rendering image values into bitmaps.
//
// A render covers the pixel rectangle that encloses the requested rectangle intersected with the image's
// extent (edges within 1/1000 pixel of a whole number snap to it). The rectangle is cut into row tiles
// that the context's own threads render in parallel; each node pulls only the region its tile needs.
// Bitmap rows are stored top row (largest y) first.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "image.h"
#include "large_allocator.h"
#include "node.h"

namespace voimg {

class ThreadPool;

enum class BitmapFormat {
    Rgba8,               // sRGB, straight alpha: what PNG and most toolkits want
    Rgba8Premultiplied,  // sRGB-encoded colour multiplied by alpha (Qt's ARGB32_Premultiplied order aside)
    Rgb8OverBlack,       // sRGB of the premultiplied colour, no alpha: transparent areas come out black
    RgbaFloatLinear,     // the working values themselves: premultiplied linear floats
};

// Pixel storage: a bitmap is large and written once, so it is mapped as a large buffer, and resizing leaves
// its pixels to be written (assign sets them).
using BitmapBytes = std::vector<uint8_t, UninitialisedAllocator<uint8_t>>;
using BitmapFloats = std::vector<float, UninitialisedAllocator<float>>;

struct Bitmap {
    int width = 0;
    int height = 0;
    BitmapFormat format = BitmapFormat::Rgba8;
    BitmapBytes bytes;    // 8-bit formats
    BitmapFloats floats;  // RgbaFloatLinear

    [[nodiscard]] bool isEmpty() const { return width <= 0 || height <= 0; }
    [[nodiscard]] int channels() const { return format == BitmapFormat::Rgb8OverBlack ? 3 : 4; }
};

// Images larger than this many pixels are not rendered (an empty bitmap comes back).
inline constexpr int64_t kMaxRenderPixels = 600'000'000;

struct RenderRequest {
    Image image;
    Rect rect;
    BitmapFormat format = BitmapFormat::Rgba8;
};

class RenderContext {
public:
    // `threads` = 0 picks one worker per available core besides the caller.
    explicit RenderContext(size_t threads = 0);
    ~RenderContext();
    RenderContext(const RenderContext&) = delete;
    RenderContext& operator=(const RenderContext&) = delete;

    // The pixel rectangle a render of `rect` of `image` produces.
    [[nodiscard]] static PixelRect pixelGrid(const Image& image, const Rect& rect);

    // Renders `rect` of `image`; an empty bitmap for a missing image, an empty or infinite rectangle, or one
    // over kMaxRenderPixels.
    [[nodiscard]] Bitmap createBitmap(const Image& image, const Rect& rect, BitmapFormat format) const;

    // Renders several requests, each as createBitmap would. Requests that shrink the same file, not decoded
    // yet, are made together from one decode that streams through the file in rows on a thread of its own:
    // the file is read once, and memory does not grow with its size.
    //
    // `rowsFinal`, when given, is told as the rendering gets there that rows [0, rows) (top first) of the
    // bitmap of request `index` are final, so that they can be used before the others are made: the counts
    // grow from call to call and end with the bitmap's height (none for an empty bitmap). The calls for one
    // bitmap come one at a time, from a rendering thread; its pixels stay at the same address, in the
    // returned bitmap too.
    using RowsFinal = std::function<void(size_t index, const Bitmap& bitmap, int64_t rows)>;
    [[nodiscard]] std::vector<Bitmap> createBitmaps(const std::vector<RenderRequest>& requests,
                                                    const RowsFinal& rowsFinal = {}) const;

    // Renders one rectangle of the pixel grid into a caller's float buffer (row 0 = lowest row).
    void render(const Image& image, const TileView& out) const;

    // Renders `region` in row tiles on the context's threads and hands each finished tile to `consume`
    // (called concurrently, from any of the threads, once per tile; tiles do not overlap).
    void renderTiles(const Image& image, const PixelRect& region,
                     const std::function<void(const TileView&)>& consume) const;

    // Drop cached intermediate results / give back memory. The context stays usable.
    void clearCaches();
    void reclaimResources();

    [[nodiscard]] size_t threadCount() const;

private:
    std::unique_ptr<ThreadPool> pool_;
};

}  // namespace voimg
