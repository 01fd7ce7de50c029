// SPDX-License-Identifier: MIT
// Constant colour, crop, source-over, bitmap and file nodes.
#include <algorithm>
#include <cstring>
#include <vector>

#include "nodes_p.h"
#include "srgb.h"

namespace voimg {

ConstantColorNode::ConstantColorNode(const float premultipliedLinear[4]) : Node(kInfiniteRect) {
    std::copy_n(premultipliedLinear, 4, rgba_);
}

void ConstantColorNode::render(const TileView& out) const {
    for (int64_t y = out.rect.y; y < out.rect.maxY(); ++y) {
        float* p = out.row(y);
        for (int64_t x = 0; x < out.rect.width; ++x, p += 4) std::copy_n(rgba_, 4, p);
    }
}

void CropNode::render(const TileView& out) const {
    const PixelRect inside = clipToExtent(out.rect, extent());
    if (inside.isEmpty()) return out.clear();
    if (!(inside == out.rect)) out.clear();
    child_->render({inside, out.pixel(inside.x, inside.y), out.stride});

    // Scale the border pixels by the part of them the crop keeps of what the child covers: a child whose
    // own extent already covers a pixel partly has accounted for that, and cropping to a rectangle that
    // contains the child's extent changes nothing.
    const Rect& e = extent();
    const Rect& c = child_->extent();
    const bool childInfinite = c.isInfinite();
    auto keptFraction = [](int64_t i, double lo, double hi, double childLo, double childHi, bool infinite) {
        const float kept = spanCoverage(i, lo, hi);
        if (infinite) return kept;
        const float had = spanCoverage(i, childLo, childHi);
        return had > 0 ? std::min(1.0f, kept / had) : kept;
    };
    const double x0 = e.x, x1 = double(e.x) + e.width, y0 = e.y, y1 = double(e.y) + e.height;
    const double cx0 = c.x, cx1 = double(c.x) + c.width, cy0 = c.y, cy1 = double(c.y) + c.height;
    std::vector<float> cx(size_t(inside.width));
    bool partialX = false;
    for (int64_t x = inside.x; x < inside.maxX(); ++x) {
        cx[size_t(x - inside.x)] = keptFraction(x, x0, x1, cx0, cx1, childInfinite);
        partialX |= cx[size_t(x - inside.x)] != 1.0f;
    }
    for (int64_t y = inside.y; y < inside.maxY(); ++y) {
        const float cy = keptFraction(y, y0, y1, cy0, cy1, childInfinite);
        if (cy == 1.0f && !partialX) continue;
        float* p = out.pixel(inside.x, y);
        for (int64_t x = 0; x < inside.width; ++x, p += 4) {
            const float f = cx[size_t(x)] * cy;
            for (int k = 0; k < 4; ++k) p[k] *= f;
        }
    }
}

SourceOverNode::SourceOverNode(NodePtr foreground, NodePtr background)
    : Node(unite(foreground->extent(), background->extent())),
      foreground_(std::move(foreground)),
      background_(std::move(background)) {}

void SourceOverNode::render(const TileView& out) const {
    background_->render(out);
    const PixelRect region = clipToExtent(out.rect, foreground_->extent());
    if (region.isEmpty()) return;
    TileBuffer fg(region);
    foreground_->render(fg.view());
    for (int64_t y = region.y; y < region.maxY(); ++y) {
        const float* s = fg.view().row(y);
        float* d = out.pixel(region.x, y);
        for (int64_t x = 0; x < region.width; ++x, s += 4, d += 4) {
            const float keep = 1.0f - s[3];
            for (int k = 0; k < 4; ++k) d[k] = s[k] + d[k] * keep;
        }
    }
}

BitmapNode::BitmapNode(DecodedImage pixels)
    : Node({0, 0, float(pixels.width), float(pixels.height)}), pixels_(std::move(pixels)) {}

namespace {
template <typename Sample>
void convertRows(const DecodedImage& img, const PixelRect& r, const TileView& out, const float* toLinear,
                 float alphaScale) {
    for (int64_t y = r.y; y < r.maxY(); ++y) {
        // Plane row y is bitmap row (height - 1 - y): bitmaps are stored top row first.
        const auto* s = reinterpret_cast<const Sample*>(img.pixels.data() + size_t(img.height - 1 - y) * img.stride()) +
                        size_t(r.x) * 4;
        float* d = out.pixel(r.x, y);
        for (int64_t x = 0; x < r.width; ++x, s += 4, d += 4) {
            const float a = float(s[3]) * alphaScale;
            d[0] = toLinear[s[0]] * a;
            d[1] = toLinear[s[1]] * a;
            d[2] = toLinear[s[2]] * a;
            d[3] = a;
        }
    }
}
}  // namespace

void BitmapNode::render(const TileView& out) const {
    const PixelRect r = intersect(out.rect, {0, 0, pixels_.width, pixels_.height});
    if (!(r == out.rect)) out.clear();
    if (r.isEmpty()) return;
    if (pixels_.sixteenBit)
        convertRows<uint16_t>(pixels_, r, out, srgbToLinear16Table(), 1.0f / 65535.0f);
    else
        convertRows<uint8_t>(pixels_, r, out, srgbToLinear8Table(), 1.0f / 255.0f);
}

FileNode::FileNode(std::string path, const ImageInfo& info)
    : Node({0, 0, float(info.width), float(info.height)}), path_(std::move(path)), info_(info) {}

bool FileNode::supportsReducedDecode() const {
    return info_.format == FileFormat::Jpeg || info_.format == FileFormat::WebP;
}

std::shared_ptr<const BitmapNode> FileNode::levelForReduction(int reduction) const {
    if (!supportsReducedDecode()) reduction = 1;
    std::lock_guard lock(mutex_);
    // Any level at least as fine as the one asked for will do; the finest wins, as it was paid for already.
    for (const auto& [level, node] : levels_)
        if (level <= reduction) return node;
    DecodeOptions options;
    options.scaleDenominator = reduction;
    std::optional<DecodedImage> decoded = decodeImageFile(path_, options);
    // A failure is remembered too, so the file is not decoded again for every tile.
    auto node = decoded ? std::make_shared<const BitmapNode>(std::move(*decoded)) : nullptr;
    levels_[reduction] = node;
    return node;
}

std::vector<int> FileNode::decodedReductions() const {
    std::lock_guard lock(mutex_);
    std::vector<int> reductions;
    for (const auto& level : levels_) reductions.push_back(level.first);
    return reductions;
}

void FileNode::render(const TileView& out) const {
    const auto level = levelForReduction(1);
    if (level)
        level->render(out);
    else
        out.clear();
}

}  // namespace voimg
