// SPDX-License-Identifier: MIT
// The engine's built-in node kinds. Private to the engine: callers build graphs through Image and Filter.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "codec/codec.h"
#include "node.h"

namespace voimg {

// Every pixel one premultiplied linear colour; infinite extent.
class ConstantColorNode final : public Node {
public:
    explicit ConstantColorNode(const float premultipliedLinear[4]);
    void render(const TileView& out) const override;

private:
    float rgba_[4];
};

// The child's pixels inside `extent` (the child's extent intersected with the crop rectangle); pixels the
// extent covers only partly are scaled by the covered fraction.
class CropNode final : public Node {
public:
    CropNode(NodePtr child, const Rect& extent) : Node(extent), child_(std::move(child)) {}
    void render(const TileView& out) const override;
    [[nodiscard]] const NodePtr& child() const { return child_; }

private:
    NodePtr child_;
};

// Foreground over background: F + B x (1 - F.alpha).
class SourceOverNode final : public Node {
public:
    SourceOverNode(NodePtr foreground, NodePtr background);
    void render(const TileView& out) const override;

private:
    NodePtr foreground_, background_;
};

// Decoded pixels (sRGB, straight alpha, 8 or 16 bits) with extent (0, 0, width, height).
class BitmapNode final : public Node {
public:
    explicit BitmapNode(DecodedImage pixels);
    void render(const TileView& out) const override;
    [[nodiscard]] const DecodedImage& pixels() const { return pixels_; }

private:
    DecodedImage pixels_;
};

// A file decoded on first use. Renders at full resolution; a shrinking transform asks for a reduced
// level instead (levelForReduction), which formats with cheap scaled decoding provide.
class FileNode final : public Node {
public:
    FileNode(std::string path, const ImageInfo& info);
    void render(const TileView& out) const override;
    // The file decoded at 1/reduction of its size (reduction 1, 2, 4 or 8; formats without scaled decoding
    // give full size). The bitmap's own extent says what was decoded. Null when the header was readable but
    // the data is not: the picture is then transparent, and nothing of its declared size is allocated.
    [[nodiscard]] std::shared_ptr<const BitmapNode> levelForReduction(int reduction) const;
    [[nodiscard]] bool supportsReducedDecode() const;
    // The reductions decoded so far, finest first.
    [[nodiscard]] std::vector<int> decodedReductions() const;
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const ImageInfo& info() const { return info_; }

private:
    std::string path_;
    ImageInfo info_;
    mutable std::mutex mutex_;
    mutable std::map<int, std::shared_ptr<const BitmapNode>> levels_;
};

// The coarsest reduced decode (1, 2, 4 or 8) that a shrink by `t` still hides after its low-pass resample.
[[nodiscard]] int decodeReductionFor(const AffineTransform& t);

// The child seen through an affine transform: output pixel p samples the child at T^-1(p). The extent is
// given by the caller (the bounding box of the transformed child extent, computed step by step as the
// image was built), so folding successive transforms never changes a reported extent.
class AffineNode final : public Node {
public:
    AffineNode(NodePtr child, const AffineTransform& transform, const Rect& extent)
        : Node(extent), child_(std::move(child)), transform_(transform) {}
    void render(const TileView& out) const override;
    [[nodiscard]] const NodePtr& child() const { return child_; }
    [[nodiscard]] const AffineTransform& transform() const { return transform_; }

private:
    NodePtr child_;
    AffineTransform transform_;
};

}  // namespace voimg
