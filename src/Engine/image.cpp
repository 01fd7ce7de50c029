// SPDX-License-Identifier: MIT
#include "image.h"

#include "codec/codec.h"
#include "nodes_p.h"
#include "srgb.h"

namespace voimg {

Rect Image::extent() const { return node_ ? node_->extent() : kZeroRect; }

Image Image::emptyImage() { return withColor({0, 0, 0, 0}).croppedTo(kZeroRect); }

Image Image::withColor(const Color& c) {
    const float a = c.alpha;
    const float rgba[4] = {float(srgbDecode(c.red)) * a, float(srgbDecode(c.green)) * a,
                           float(srgbDecode(c.blue)) * a, a};
    return Image(std::make_shared<ConstantColorNode>(rgba));
}

Image Image::withDecodedImage(DecodedImage pixels) {
    if (pixels.width <= 0 || pixels.height <= 0) return {};
    return Image(std::make_shared<BitmapNode>(std::move(pixels)));
}

Image Image::withContentsOfFile(const std::string& path) {
    const std::optional<ImageInfo> info = probeImageFile(path);
    if (!info || info->width <= 0 || info->height <= 0) return {};
    if (uint64_t(info->width) * uint64_t(info->height) > kDefaultMaxPixels) return {};
    return Image(std::make_shared<FileNode>(path, *info));
}

Image Image::croppedTo(const Rect& rect) const {
    if (!node_) return {};
    const Rect extent = intersect(node_->extent(), rect);
    // Successive crops read the same pixels: keep one crop over the original child.
    if (const auto* crop = dynamic_cast<const CropNode*>(node_.get()))
        return Image(std::make_shared<CropNode>(crop->child(), extent));
    return Image(std::make_shared<CropNode>(node_, extent));
}

Image Image::transformed(const AffineTransform& t) const {
    if (!node_) return {};
    const Rect extent = t.applyToRect(node_->extent());
    // Successive transforms fold into one resample; the extent stays the one computed step by step.
    if (const auto* affine = dynamic_cast<const AffineNode*>(node_.get()))
        return Image(std::make_shared<AffineNode>(affine->child(), affine->transform().appending(t), extent));
    // A crop commutes with an axis-aligned transform: move the crop outside so transforms can fold.
    if (const auto* crop = dynamic_cast<const CropNode*>(node_.get()); crop && t.isAxisAligned()) {
        const Image inner = Image(crop->child()).transformed(t);
        return Image(std::make_shared<CropNode>(inner.node(), extent));
    }
    return Image(std::make_shared<AffineNode>(node_, t, extent));
}

Image Image::compositedOver(const Image& background) const {
    if (!node_) return background;
    if (!background.node_) return *this;
    return Image(std::make_shared<SourceOverNode>(node_, background.node_));
}

}  // namespace voimg
