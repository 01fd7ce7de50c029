// SPDX-License-Identifier: MIT
// VoCoreUtils: composition of a foreground over a background, and flattening through an accumulator.
#include "Common/CoreGraphics/VoCoreCompositionFilter.h"
#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Common/CoreGraphics/VoImageAccumulator.h"
#include "Common/Foundation/VoLog.h"

namespace vo {

CIImage VoCoreUtils::composeImageOverImageWithFactorTransformWithinBoundsReuseFilter(
    const CIImage& image, const CIImage& background, float factor, const NSAffineTransform* transform,
    const CGRect& bounds, VoCoreCompositionFilter* reuseFilter) {
    if (image.isNull()) VoLog("composeImage image is null");
    if (background.isNull()) VoLog("composeImage backgroundImage is null");
    if (double(factor) == 1.0 && !transform) return image.isNull() ? CIImage() : image.compositedOver(background);
    if (image.isNull()) return background;
    if (background.isNull()) return image;
    if (background.extent().width == 0 && factor == 1.0f && (!transform || transform->isIdentity())) return image;

    const CIVector boundsVector = coreVectorFromCGRect(bounds);
    const bool hasBounds = bounds.width > 0;
    if (reuseFilter) {
        reuseFilter->updateImageWithInputImageBackgroundImageFactorTransformBounds(
            image, background, factor, transform, hasBounds ? &boundsVector : nullptr);
        return reuseFilter->outputImage();
    }
    VoCoreCompositionFilter filter;
    filter.setValue(image, "inputImage");
    filter.setValue(background, "inputBackgroundImage");
    filter.setValue(double(factor), "inputFactor");
    if (transform) filter.setValue(*transform, "inputTransform");
    if (hasBounds) filter.setValue(boundsVector, "inputBounds");
    return std::get<CIImage>(filter.valueForKey("outputImage"));
}

CIImage VoCoreUtils::composeImageOverImageWithFactorTransformWithinBounds(const CIImage& image,
                                                                          const CIImage& background, float factor,
                                                                          const NSAffineTransform* transform,
                                                                          const CGRect& bounds) {
    return composeImageOverImageWithFactorTransformWithinBoundsReuseFilter(image, background, factor, transform,
                                                                           bounds, nullptr);
}

CIImage VoCoreUtils::composeImageOverImageWithFactorTransform(const CIImage& image, const CIImage& background,
                                                              float factor, const NSAffineTransform* transform) {
    return composeImageOverImageWithFactorTransformWithinBounds(image, background, factor, transform, {0, 0, 0, 0});
}

CIImage VoCoreUtils::composeImageOverImageWithFactor(const CIImage& image, const CIImage& background, float factor) {
    return composeImageOverImageWithFactorTransform(image, background, factor, nullptr);
}

CIImage VoCoreUtils::composeImageOverImage(const CIImage& image, const CIImage& background) {
    return composeImageOverImageWithFactor(image, background, 1.0f);
}

CIImage VoCoreUtils::composeImageOverImageWithFilter(const CIImage& image, const CIImage& background,
                                                     const std::string& filterName) {
    if (image.isNull()) VoLog("composeImage image is null");
    if (background.isNull()) {
        VoLog("composeImage backgroundImage is null");
        return image;
    }
    const auto filter = voimg::Filter::filterWithName(filterName);
    if (!filter) return CIImage();
    filter->setDefaults();
    filter->setValue(image, "inputImage");
    filter->setValue(background, "inputBackgroundImage");
    return std::get<CIImage>(filter->valueForKey("outputImage"));
}

CIImage VoCoreUtils::flattenCoreImageForChooser(const CIImage& image) {
    if (image.isNull()) return CIImage::emptyImage();
    VoImageAccumulator accumulator(image.extent(), voimg::AccumulatorFormat::Rgba16);
    accumulator.setImage(image);
    return accumulator.image();
}

}  // namespace vo
