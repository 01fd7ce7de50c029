// SPDX-License-Identifier: MIT
// VoCoreUtils: conversions, placement transforms and their applying twins, solid and empty images.
#include "VoCoreUtils.h"

#include <algorithm>
#include <cmath>

#include "Common/Foundation/VoLog.h"
#include "Engine/filter.h"

namespace vo {

namespace {
// The twins apply their transform through the named filter, as any caller of the engine would.
CIImage applyAffineFilter(const CIImage& image, const NSAffineTransform& transform) {
    const auto filter = voimg::Filter::filterWithName("CIAffineTransform");
    filter->setValue(image, "inputImage");
    filter->setValue(transform, "inputTransform");
    return std::get<CIImage>(filter->valueForKey("outputImage"));
}

CGRect extentOf(const CIImage& image) { return image.extent(); }
}  // namespace

CGRect VoCoreUtils::coreRectFromNSRect(const NSRect& r) { return {r.origin.x, r.origin.y, r.size.width, r.size.height}; }

NSRect VoCoreUtils::rectFromCoreRect(const CGRect& r) { return {{r.x, r.y}, {r.width, r.height}}; }

CIVector VoCoreUtils::coreVectorFromCGRect(const CGRect& r) { return {r.x, r.y, r.width, r.height}; }

CIVector VoCoreUtils::coreVectorFromNSRect(const NSRect& r) { return coreVectorFromCGRect(coreRectFromNSRect(r)); }

CGRect VoCoreUtils::coreRectFromVector(const CIVector& v) { return {v.x, v.y, v.z, v.w}; }

CGAffineTransform VoCoreUtils::fromNSTransform(const NSAffineTransform* t) {
    if (!t) return {};
    return {t->m11, t->m12, t->m21, t->m22, t->tX, t->tY};
}

CGRect VoCoreUtils::unionRectWithRect(const CGRect& a, const CGRect& b) {
    if (a.width == 0 && b.width == 0) return {0, 0, 0, 0};
    if (a.width == 0) return b;
    if (b.width == 0) return a;
    const float x = std::min(a.x, b.x), y = std::min(a.y, b.y);
    return {x, y, std::max(a.x + a.width, b.x + b.width) - x, std::max(a.y + a.height, b.y + b.height) - y};
}

NSAffineTransform VoCoreUtils::transformForMoveImageByXByY(const CIImage&, float x, float y) {
    return NSAffineTransform::translation(x, y);
}

CIImage VoCoreUtils::moveImageByXByY(const CIImage& image, float x, float y) {
    return applyAffineFilter(image, transformForMoveImageByXByY(image, x, y));
}

NSAffineTransform VoCoreUtils::transformForMoveImageToOrigin(const CIImage& image) {
    const CGRect e = extentOf(image);
    return NSAffineTransform::translation(-e.x, -e.y);
}

CIImage VoCoreUtils::moveImageToOrigin(const CIImage& image) {
    return applyAffineFilter(image, transformForMoveImageToOrigin(image));
}

NSAffineTransform VoCoreUtils::transformForMoveImageCenterToOrigin(const CIImage& image) {
    const CGRect e = extentOf(image);
    return NSAffineTransform::translation(-e.x - e.width / 2, -e.y - e.height / 2);
}

CIImage VoCoreUtils::moveImageCenterToOrigin(const CIImage& image) {
    return applyAffineFilter(image, transformForMoveImageCenterToOrigin(image));
}

NSAffineTransform VoCoreUtils::transformForScaleImageBy(const CIImage&, float scale) {
    return NSAffineTransform::scale(scale, scale);
}

CIImage VoCoreUtils::scaleImageBy(const CIImage& image, float scale) {
    return applyAffineFilter(image, transformForScaleImageBy(image, scale));
}

NSAffineTransform VoCoreUtils::transformForFlipImageVertically(const CIImage&, bool vertically) {
    return vertically ? NSAffineTransform::scale(1, -1) : NSAffineTransform::scale(-1, 1);
}

CIImage VoCoreUtils::flipVertically(const CIImage& image, bool vertically) {
    return moveImageToOrigin(applyAffineFilter(image, transformForFlipImageVertically(image, vertically)));
}

NSAffineTransform VoCoreUtils::transformForScaleImageInRectFillFactor(const CIImage& image, const CGRect& r,
                                                                      float f) {
    const CGRect e = extentOf(image);
    const float hRatio = r.height / e.height;
    const float wRatio = r.width / e.width;
    float small = std::min(wRatio, hRatio), large = std::max(wRatio, hRatio);
    if (std::isnan(wRatio)) small = large = hRatio;
    const float s = f > 1.0f ? large * f : (1.0f - f) * small + f * large;

    const NSAffineTransform t1 = transformForMoveImageToOrigin(image);
    const CIImage i1 = moveImageToOrigin(image);
    const NSAffineTransform t2 = transformForScaleImageBy(i1, s);
    const CIImage i2 = scaleImageBy(i1, s);
    const CGRect e2 = extentOf(i2);
    const float dx = (r.width - e2.width) / 2 + r.x;
    const float dy = (r.height - e2.height) / 2 + r.y;
    const NSAffineTransform t3 = NSAffineTransform::translation(dx, dy);
    return NSAffineTransform::identity().appending(t1).appending(t2).appending(t3);
}

CIImage VoCoreUtils::scaleImageInRectFillFactorCrop(const CIImage& image, const CGRect& rect, float fillFactor,
                                                    bool crop) {
    const NSAffineTransform t = transformForScaleImageInRectFillFactor(image, rect, fillFactor);
    const CIImage placed = transformImageWithTransform(image, &t);
    return crop ? cropImageToRect(placed, rect) : placed;
}

NSAffineTransform VoCoreUtils::transformForScaleImageInRectFill(const CIImage& image, const CGRect& rect, bool fill) {
    return transformForScaleImageInRectFillFactor(image, rect, fill ? 1.0f : 0.0f);
}

CIImage VoCoreUtils::scaleImageInRectFillCrop(const CIImage& image, const CGRect& rect, bool fill, bool crop) {
    return scaleImageInRectFillFactorCrop(image, rect, fill ? 1.0f : 0.0f, crop);
}

CIImage VoCoreUtils::rotateImageBy(const CIImage& image, float degrees) {
    return applyAffineFilter(image, NSAffineTransform::rotationDegrees(degrees));
}

CIImage VoCoreUtils::imageWithColor(const CIColor& color) {
    const auto filter = voimg::Filter::filterWithName("CIConstantColorGenerator");
    filter->setDefaults();
    filter->setValue(color, "inputColor");
    return std::get<CIImage>(filter->valueForKey("outputImage"));
}

CIImage VoCoreUtils::emptyCoreImageWithExtentAndColor(const CGRect& extent, const CIColor& color) {
    return CIImage::withColor(color).croppedTo(extent);
}

CIImage VoCoreUtils::emptyCoreImageWithExtent(const CGRect& extent) {
    return emptyCoreImageWithExtentAndColor(extent, {0, 0, 0, 0});
}

CIImage VoCoreUtils::emptyCoreImage() { return emptyCoreImageWithExtent({0, 0, 0, 0}); }

CIImage VoCoreUtils::transformImageWithTransform(const CIImage& image, const NSAffineTransform* transform) {
    if (image.isNull()) VoLog("transformImage image is null");
    if (!transform) VoLog("composeImage transform is null");
    const auto filter = voimg::Filter::filterWithName("CIAffineTransform");
    filter->setValue(image, "inputImage");
    if (transform) filter->setValue(*transform, "inputTransform");
    return std::get<CIImage>(filter->valueForKey("outputImage"));
}

CIImage VoCoreUtils::scaleImageToFitInRect(const CIImage& image, const CGRect& rect) {
    return scaleImageInRectFillCrop(image, rect, false, true);
}

CIImage VoCoreUtils::scaleImageToFillRect(const CIImage& image, const CGRect& rect) {
    return scaleImageInRectFillCrop(image, rect, true, true);
}

CIImage VoCoreUtils::cropImageToRect(const CIImage& image, const CGRect& rect) {
    const auto filter = voimg::Filter::filterWithName("CICrop");
    filter->setValue(coreVectorFromCGRect(rect), "inputRectangle");
    filter->setValue(image, "inputImage");
    return std::get<CIImage>(filter->valueForKey("outputImage"));
}

}  // namespace vo
