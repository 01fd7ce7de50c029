// SPDX-License-Identifier: MIT
#include "image_accumulator.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "render_context.h"
#include "srgb.h"

namespace voimg {

struct ImageAccumulator::Buffer {
    PixelRect rect;
    AccumulatorFormat format;
    std::vector<uint8_t> bytes;  // rows from the lowest up

    [[nodiscard]] size_t bytesPerSample() const {
        return format == AccumulatorFormat::Rgba8 ? 1 : format == AccumulatorFormat::Rgba16 ? 2 : 4;
    }
    [[nodiscard]] size_t rowBytes() const { return size_t(rect.width) * 4 * bytesPerSample(); }
    [[nodiscard]] uint8_t* row(int64_t y) { return &bytes[size_t(y - rect.y) * rowBytes()]; }
    [[nodiscard]] const uint8_t* row(int64_t y) const { return &bytes[size_t(y - rect.y) * rowBytes()]; }

    void store(const float* src, int64_t x0, int64_t y, int64_t n) {
        uint8_t* dst = row(y) + size_t(x0 - rect.x) * 4 * bytesPerSample();
        switch (format) {
        case AccumulatorFormat::RgbaFloat:
            std::memcpy(dst, src, size_t(n) * 4 * sizeof(float));
            return;
        case AccumulatorFormat::Rgba16: {
            auto* d = reinterpret_cast<uint16_t*>(dst);
            for (int64_t i = 0; i < n * 4; ++i)
                d[i] = uint16_t(std::lround(std::clamp(src[i], 0.0f, 1.0f) * 65535.0f));
            return;
        }
        case AccumulatorFormat::Rgba8:
            for (int64_t i = 0; i < n * 4; ++i)
                dst[i] = (i % 4 == 3) ? uint8_t(std::lround(std::clamp(src[i], 0.0f, 1.0f) * 255.0f))
                                      : linearToSrgb8(src[i]);
            return;
        }
    }

    void load(float* dst, int64_t x0, int64_t y, int64_t n) const {
        const uint8_t* src = row(y) + size_t(x0 - rect.x) * 4 * bytesPerSample();
        switch (format) {
        case AccumulatorFormat::RgbaFloat:
            std::memcpy(dst, src, size_t(n) * 4 * sizeof(float));
            return;
        case AccumulatorFormat::Rgba16: {
            const auto* s = reinterpret_cast<const uint16_t*>(src);
            for (int64_t i = 0; i < n * 4; ++i) dst[i] = float(s[i]) * (1.0f / 65535.0f);
            return;
        }
        case AccumulatorFormat::Rgba8: {
            const float* table = srgbToLinear8Table();
            for (int64_t i = 0; i < n * 4; ++i) dst[i] = (i % 4 == 3) ? float(src[i]) * (1.0f / 255.0f) : table[src[i]];
            return;
        }
        }
    }
};

namespace {
RenderContext& accumulatorContext() {
    static RenderContext context;
    return context;
}

// The accumulated pixels as an image node.
class AccumulatorNode final : public Node {
public:
    explicit AccumulatorNode(std::shared_ptr<const ImageAccumulator::Buffer> buffer)
        : Node({float(buffer->rect.x), float(buffer->rect.y), float(buffer->rect.width), float(buffer->rect.height)}),
          buffer_(std::move(buffer)) {}

    void render(const TileView& out) const override {
        const PixelRect inside = intersect(out.rect, buffer_->rect);
        if (!(inside == out.rect)) out.clear();
        for (int64_t y = inside.y; y < inside.maxY(); ++y) buffer_->load(out.pixel(inside.x, y), inside.x, y, inside.width);
    }

private:
    std::shared_ptr<const ImageAccumulator::Buffer> buffer_;
};
}  // namespace

ImageAccumulator::ImageAccumulator(const Rect& extent, AccumulatorFormat format)
    : pixels_(pixelRectEnclosing(extent)), format_(format), buffer_(std::make_shared<Buffer>()) {
    buffer_->rect = pixels_;
    buffer_->format = format;
    buffer_->bytes.assign(buffer_->rowBytes() * size_t(std::max<int64_t>(pixels_.height, 0)), 0);
}

ImageAccumulator::~ImageAccumulator() = default;

Rect ImageAccumulator::extent() const {
    return {float(pixels_.x), float(pixels_.y), float(pixels_.width), float(pixels_.height)};
}

ImageAccumulator::Buffer& ImageAccumulator::writableBuffer() {
    // An image handed out shares the buffer: copy before writing, so that image keeps its pixels.
    if (buffer_.use_count() > 1) buffer_ = std::make_shared<Buffer>(*buffer_);
    return *buffer_;
}

void ImageAccumulator::write(const Image& image, const PixelRect& region) {
    if (region.isEmpty()) return;
    Buffer& buffer = writableBuffer();
    accumulatorContext().renderTiles(image, region, [&](const TileView& tile) {
        for (int64_t y = tile.rect.y; y < tile.rect.maxY(); ++y) buffer.store(tile.row(y), tile.rect.x, y, tile.rect.width);
    });
}

void ImageAccumulator::setImage(const Image& image) { write(image, pixels_); }

void ImageAccumulator::setImageDirtyRect(const Image& image, const Rect& dirty) {
    write(image, intersect(pixels_, pixelRectEnclosing(dirty)));
}

Image ImageAccumulator::image() const { return Image(std::make_shared<AccumulatorNode>(buffer_)); }

void ImageAccumulator::clear() {
    Buffer& buffer = writableBuffer();
    std::fill(buffer.bytes.begin(), buffer.bytes.end(), uint8_t(0));
}

}  // namespace voimg
