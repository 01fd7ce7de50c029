// SPDX-License-Identifier: MIT
#include <cmath>

#include "nodes_p.h"
#include "resample_p.h"

namespace voimg {

namespace {
bool isIntegerTranslation(const AffineTransform& t) {
    return t.m11 == 1 && t.m22 == 1 && t.m12 == 0 && t.m21 == 0 && t.tX == std::floor(t.tX) &&
           t.tY == std::floor(t.tY) && std::abs(t.tX) < 1e15f && std::abs(t.tY) < 1e15f;
}

void applyCoverage(const TileView& view, const Rect& e) {
    const double x0 = e.x, x1 = double(e.x) + e.width, y0 = e.y, y1 = double(e.y) + e.height;
    for (int64_t y = view.rect.y; y < view.rect.maxY(); ++y) {
        const float cy = spanCoverage(y, y0, y1);
        float* p = view.row(y);
        for (int64_t x = view.rect.x; x < view.rect.maxX(); ++x, p += 4) {
            const float c = cy * spanCoverage(x, x0, x1);
            if (c != 1.0f)
                for (int k = 0; k < 4; ++k) p[k] *= c;
        }
    }
}
}  // namespace

// The coarsest decode (1/1, 1/2, 1/4, 1/8) whose block averaging the final low-pass resample still hides.
// Scaled decoding averages gamma-encoded samples over 2, 4 or 8 pixels. Measured on finely textured
// photographs against a full decode: a 1/2 decode followed by a shrink of at most 0.5 stays above 47 dB
// PSNR; 1/4 and 1/8 need a shrink of at most 0.25 to stay above 41 dB (at 0.5 they fall to 36 dB).
int decodeReductionFor(const AffineTransform& t) {
    const double sx = std::hypot(double(t.m11), double(t.m12)), sy = std::hypot(double(t.m21), double(t.m22));
    const double most = std::max(sx, sy);
    int k = 1;
    while (k < 8 && most * (2 * k) <= (k == 1 ? 0.5 : 0.25)) k *= 2;
    return k;
}

void AffineNode::render(const TileView& out) const {
    const PixelRect inside = clipToExtent(out.rect, extent());
    if (!(inside == out.rect)) out.clear();
    if (inside.isEmpty()) return;
    const TileView view{inside, out.pixel(inside.x, inside.y), out.stride};

    // A constant colour stays the same colour under any transform.
    if (dynamic_cast<const ConstantColorNode*>(child_.get())) return child_->render(view);

    const Node* source = child_.get();
    AffineTransform t = transform_;
    std::shared_ptr<const BitmapNode> level;
    if (const auto* file = dynamic_cast<const FileNode*>(source)) {
        level = file->levelForReduction(decodeReductionFor(t));
        if (!level) return view.clear();
        const Rect full = file->extent(), reduced = level->extent();
        if (!(reduced == full))
            t = AffineTransform::scale(full.width / reduced.width, full.height / reduced.height).appending(t);
        source = level.get();
    }

    if (isIntegerTranslation(t)) {
        // Same pixel grid: let the source render straight into the output, shifted.
        const auto dx = int64_t(t.tX), dy = int64_t(t.tY);
        return source->render({{inside.x - dx, inside.y - dy, inside.width, inside.height}, view.data, view.stride});
    }
    if (t.isAxisAligned()) {
        resampleSeparable(*source, source->extent(), t, view);
    } else {
        return resampleGeneral(*source, source->extent(), t, view);
    }
    applyCoverage(view, extent());
}

}  // namespace voimg
