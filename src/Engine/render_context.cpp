// SPDX-License-Identifier: MIT
#include "render_context.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>

#include "bitmap_rows_p.h"
#include "file_renditions_p.h"
#include "srgb.h"
#include "thread_pool.h"

namespace voimg {

namespace {
size_t defaultWorkers() {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    return cores - 1;
}

float clamp01(float v) { return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f; }

// linearToSrgb8 of the colour channels of `width` RGBA pixels, alpha dropped: the table indices of a run of
// pixels are computed a pixel per vector operation first, so that the lookups are all that is left per
// sample.
void encodeOverBlack(const float* src, int64_t width, uint8_t* bytes) {
    using Floats = float __attribute__((vector_size(16)));
    using Ints = int32_t __attribute__((vector_size(16)));
    const uint8_t* table = linearToSrgb8Table();
    constexpr int64_t kRun = 256;
    Ints index[kRun];
    const Floats zero = {0, 0, 0, 0}, one = {1, 1, 1, 1};
    const Floats steps = one * float(kLinearToSrgb8Steps), half = one * 0.5f;
    for (int64_t x0 = 0; x0 < width; x0 += kRun) {
        const int64_t n = std::min(kRun, width - x0);
        for (int64_t x = 0; x < n; ++x) {
            Floats v;
            std::memcpy(&v, src + (x0 + x) * 4, sizeof v);
            v = v > zero ? v : zero;  // NaN too
            v = v < one ? v : one;
            index[x] = __builtin_convertvector(v * steps + half, Ints);
        }
        for (int64_t x = 0; x < n; ++x, bytes += 3)
            bytes[0] = table[index[x][0]], bytes[1] = table[index[x][1]], bytes[2] = table[index[x][2]];
    }
}
}  // namespace

void convertRow(const float* src, int64_t width, const Bitmap& bitmap, uint8_t* bytes, float* floats) {
    switch (bitmap.format) {
        case BitmapFormat::RgbaFloatLinear:
            std::copy_n(src, size_t(width) * 4, floats);
            return;
        case BitmapFormat::Rgb8OverBlack:
            return encodeOverBlack(src, width, bytes);
        case BitmapFormat::Rgba8:
        case BitmapFormat::Rgba8Premultiplied: {
            const bool premultiplied = bitmap.format == BitmapFormat::Rgba8Premultiplied;
            const uint8_t* table = linearToSrgb8Table();
            for (int64_t x = 0; x < width; ++x, src += 4, bytes += 4) {
                const float a = clamp01(src[3]);
                const uint8_t alpha = uint8_t(std::lround(a * 255.0f));
                for (int k = 0; k < 3; ++k) {
                    const uint8_t straight = a > 0 ? linearToSrgb8(table, src[k] / a) : 0;
                    bytes[k] = premultiplied ? uint8_t((straight * alpha + 127) / 255) : straight;
                }
                bytes[3] = alpha;
            }
            return;
        }
    }
}

RenderContext::RenderContext(size_t threads)
    : pool_(std::make_unique<ThreadPool>(threads == 0 ? defaultWorkers() : threads - 1)) {}

RenderContext::~RenderContext() = default;

size_t RenderContext::threadCount() const { return pool_->workerCount() + 1; }

PixelRect RenderContext::pixelGrid(const Image& image, const Rect& rect) {
    if (image.isNull()) return {};
    return pixelRectEnclosing(intersect(rect, image.extent()));
}

void RenderContext::render(const Image& image, const TileView& out) const {
    if (image.isNull()) return out.clear();
    image.node()->render(out);
}

Bitmap RenderContext::createBitmap(const Image& image, const Rect& rect, BitmapFormat format) const {
    Bitmap bitmap;
    bitmap.format = format;
    const PixelRect grid = pixelGrid(image, rect);
    if (grid.isEmpty() || grid.area() > kMaxRenderPixels || grid.width > INT32_MAX || grid.height > INT32_MAX)
        return bitmap;
    bitmap.width = int(grid.width);
    bitmap.height = int(grid.height);
    const size_t rowValues = size_t(grid.width) * size_t(bitmap.channels());
    if (format == BitmapFormat::RgbaFloatLinear)
        bitmap.floats.resize(rowValues * size_t(grid.height));
    else
        bitmap.bytes.resize(rowValues * size_t(grid.height));

    renderTiles(image, grid, [&](const TileView& tile) {
        for (int64_t y = tile.rect.y; y < tile.rect.maxY(); ++y) {
            const size_t outRow = size_t(grid.maxY() - 1 - y);  // top row first
            convertRow(tile.row(y), grid.width, bitmap,
                       bitmap.bytes.empty() ? nullptr : &bitmap.bytes[outRow * rowValues],
                       bitmap.floats.empty() ? nullptr : &bitmap.floats[outRow * rowValues]);
        }
    });
    return bitmap;
}

std::vector<Bitmap> RenderContext::createBitmaps(const std::vector<RenderRequest>& requests,
                                                 const RowsFinal& rowsFinal) const {
    std::vector<Bitmap> bitmaps(requests.size());
    // Requests grouped by the file they shrink; the others render one by one.
    std::vector<const FileNode*> files;
    std::vector<std::vector<size_t>> members;
    std::vector<FileRendition> renditions(requests.size());
    for (size_t i = 0; i < requests.size(); ++i) {
        const RenderRequest& r = requests[i];
        const FileNode* file = nullptr;
        if (auto rendition = fileRenditionOf(r.image, r.rect, r.format, &file)) {
            renditions[i] = *rendition;
            const auto known = std::find(files.begin(), files.end(), file);
            if (known == files.end()) {
                files.push_back(file);
                members.push_back({i});
            } else {
                members[size_t(known - files.begin())].push_back(i);
            }
            continue;
        }
        bitmaps[i] = createBitmap(r.image, r.rect, r.format);
        if (rowsFinal && bitmaps[i].height > 0) rowsFinal(i, bitmaps[i], bitmaps[i].height);
    }
    for (size_t f = 0; f < files.size(); ++f) {
        std::vector<FileRendition> group;
        for (size_t i : members[f]) group.push_back(renditions[i]);
        RowsFinal groupRowsFinal;
        if (rowsFinal)
            groupRowsFinal = [&, f](size_t k, const Bitmap& bitmap, int64_t rows) {
                rowsFinal(members[f][k], bitmap, rows);
            };
        std::vector<Bitmap> made = renderFileRenditions(*files[f], group, groupRowsFinal);
        for (size_t k = 0; k < made.size(); ++k) bitmaps[members[f][k]] = std::move(made[k]);
    }
    return bitmaps;
}

void RenderContext::renderTiles(const Image& image, const PixelRect& region,
                                const std::function<void(const TileView&)>& consume) const {
    if (region.isEmpty()) return;
    // Row tiles of about 64K pixels, and enough of them to keep every thread busy.
    int64_t rows = std::clamp<int64_t>(65536 / region.width, 8, 256);
    const int64_t wanted = int64_t(threadCount()) * 2;
    if ((region.height + rows - 1) / rows < wanted) rows = std::max<int64_t>(1, (region.height + wanted - 1) / wanted);
    const size_t tiles = size_t((region.height + rows - 1) / rows);
    pool_->parallelFor(tiles, [&](size_t i) {
        const int64_t y0 = region.y + int64_t(i) * rows, y1 = std::min(region.maxY(), y0 + rows);
        TileBuffer tile({region.x, y0, region.width, y1 - y0});
        render(image, tile.view());
        consume(tile.view());
    });
}

void RenderContext::clearCaches() {}

void RenderContext::reclaimResources() {}

}  // namespace voimg
