// SPDX-License-Identifier: MIT
// VoCoreUtils: class-level operations on immutable image values.
//
// Conventions for every operation here:
// - Images are values (CIImage); every operation returns a new one and changes nothing in place.
// - The missing image (a default-constructed CIImage) is tolerated everywhere: its extent counts as all
//   zero and filters given no image give no image. Nothing raises and nothing returns a status; only the
//   operations that say so write a log line through VoLog.
// - The plane is y-up; transforms are built by appending (A then B).
#pragma once

#include <memory>
#include <string>

#include "Common/CoreGraphics/VoGeometry.h"
#include "Common/Foundation/VoBundle.h"
#include "Engine/render_context.h"

namespace vo {

class VoCoreCompositionFilter;

// The windowing library's picture object: rendered sRGB pixels with straight alpha.
using NSImage = voimg::Bitmap;

class VoCoreUtils {
public:
    // Conversions between the rectangle, vector and transform types.
    [[nodiscard]] static CGRect coreRectFromNSRect(const NSRect& rect);
    [[nodiscard]] static NSRect rectFromCoreRect(const CGRect& rect);
    [[nodiscard]] static CIVector coreVectorFromCGRect(const CGRect& rect);
    [[nodiscard]] static CIVector coreVectorFromNSRect(const NSRect& rect);
    [[nodiscard]] static CGRect coreRectFromVector(const CIVector& vector);
    // (a, b, c, d, tx, ty) = (m11, m12, m21, m22, tX, tY); a missing transform gives all zeros.
    [[nodiscard]] static CGAffineTransform fromNSTransform(const NSAffineTransform* transform);
    // Union in which only the widths decide emptiness (a width-5, height-0 rectangle takes part).
    [[nodiscard]] static CGRect unionRectWithRect(const CGRect& a, const CGRect& b);

    // Transform producers and the twins that apply them through the "CIAffineTransform" filter.
    [[nodiscard]] static NSAffineTransform transformForMoveImageByXByY(const CIImage& image, float x, float y);
    [[nodiscard]] static CIImage moveImageByXByY(const CIImage& image, float x, float y);
    [[nodiscard]] static NSAffineTransform transformForMoveImageToOrigin(const CIImage& image);
    [[nodiscard]] static CIImage moveImageToOrigin(const CIImage& image);
    [[nodiscard]] static NSAffineTransform transformForMoveImageCenterToOrigin(const CIImage& image);
    [[nodiscard]] static CIImage moveImageCenterToOrigin(const CIImage& image);
    [[nodiscard]] static NSAffineTransform transformForScaleImageBy(const CIImage& image, float scale);
    [[nodiscard]] static CIImage scaleImageBy(const CIImage& image, float scale);
    // Vertically: scale (1, -1); otherwise (-1, 1). flipVertically then moves the result to the origin.
    [[nodiscard]] static NSAffineTransform transformForFlipImageVertically(const CIImage& image, bool vertically);
    [[nodiscard]] static CIImage flipVertically(const CIImage& image, bool vertically);
    // Placement in `rect`: fill factor 0 fits the whole image inside, 1 covers the rectangle, values between
    // blend the two scales, values above 1 enlarge beyond covering. Centred in the rectangle; not rounded.
    [[nodiscard]] static NSAffineTransform transformForScaleImageInRectFillFactor(const CIImage& image,
                                                                                  const CGRect& rect, float fillFactor);
    [[nodiscard]] static CIImage scaleImageInRectFillFactorCrop(const CIImage& image, const CGRect& rect,
                                                                float fillFactor, bool crop);
    [[nodiscard]] static NSAffineTransform transformForScaleImageInRectFill(const CIImage& image, const CGRect& rect,
                                                                            bool fill);
    [[nodiscard]] static CIImage scaleImageInRectFillCrop(const CIImage& image, const CGRect& rect, bool fill,
                                                          bool crop);
    // Rotation about the plane's origin, degrees, counter-clockwise.
    [[nodiscard]] static CIImage rotateImageBy(const CIImage& image, float degrees);

    // Solid-colour and empty images.
    [[nodiscard]] static CIImage imageWithColor(const CIColor& color);
    [[nodiscard]] static CIImage emptyCoreImageWithExtentAndColor(const CGRect& extent, const CIColor& color);
    [[nodiscard]] static CIImage emptyCoreImageWithExtent(const CGRect& extent);
    [[nodiscard]] static CIImage emptyCoreImage();

    // Logs "transformImage image is null" / "composeImage transform is null" for missing arguments and goes
    // on regardless; a missing transform leaves the filter's default (identity).
    [[nodiscard]] static CIImage transformImageWithTransform(const CIImage& image, const NSAffineTransform* transform);
    [[nodiscard]] static CIImage scaleImageToFitInRect(const CIImage& image, const CGRect& rect);
    [[nodiscard]] static CIImage scaleImageToFillRect(const CIImage& image, const CGRect& rect);
    [[nodiscard]] static CIImage cropImageToRect(const CIImage& image, const CGRect& rect);

    // Composition. Missing images are logged ("composeImage image is null", "composeImage backgroundImage is
    // null") and tolerated. Factor 1.0 without a transform is plain source-over; otherwise a
    // VoCoreCompositionFilter (the given one, reused, or a fresh one) lays the foreground, moved by the
    // transform and faded by the factor, over the background. Bounds of width <= 0 mean no bounds.
    [[nodiscard]] static CIImage composeImageOverImageWithFactorTransformWithinBoundsReuseFilter(
        const CIImage& image, const CIImage& background, float factor, const NSAffineTransform* transform,
        const CGRect& bounds, VoCoreCompositionFilter* reuseFilter);
    [[nodiscard]] static CIImage composeImageOverImageWithFactorTransformWithinBounds(
        const CIImage& image, const CIImage& background, float factor, const NSAffineTransform* transform,
        const CGRect& bounds);
    [[nodiscard]] static CIImage composeImageOverImageWithFactorTransform(const CIImage& image,
                                                                          const CIImage& background, float factor,
                                                                          const NSAffineTransform* transform);
    [[nodiscard]] static CIImage composeImageOverImageWithFactor(const CIImage& image, const CIImage& background,
                                                                 float factor);
    [[nodiscard]] static CIImage composeImageOverImage(const CIImage& image, const CIImage& background);
    // Composes with a named engine filter taking "inputImage" and "inputBackgroundImage".
    [[nodiscard]] static CIImage composeImageOverImageWithFilter(const CIImage& image, const CIImage& background,
                                                                 const std::string& filterName);

    // Import and export. Paths are file-system paths; relative ones resolve against the current directory.
    [[nodiscard]] static CIImage importImageFromUrl(const std::string& path);
    // Renders the image over its whole extent and writes a JPEG (quality 0.0 means 0.85) or, when
    // transparant, a PNG with alpha. Failures are only logged: "problems creating image destination\n"
    // when the file cannot be created, "problems writing JPEG file\n" when encoding or writing fails
    // (also for PNG). A failed export leaves no file behind.
    static void exportImageToURLTransparantQuality(const CIImage& image, const std::string& path, bool transparant,
                                                   float quality);
    static void exportImageToURLTransparant(const CIImage& image, const std::string& path, bool transparant);
    static void exportImageToURL(const CIImage& image, const std::string& path);
    static void exportTransparantImageToURL(const CIImage& image, const std::string& path);
    // Exports each image to its path as exportImageToURL does, in order. Images that shrink the same file
    // are rendered together from one decode of it that streams through the file, so a thumbnailer making
    // several sizes reads the file once and never holds the whole picture.
    static void exportImagesToURLs(const std::vector<std::pair<CIImage, std::string>>& images);
    // The process-wide export context: null until the first export, then the same one for ever.
    [[nodiscard]] static const voimg::RenderContext* sharedExportContext();

    // A picture of the image's pixels with their transparency; 10 x 10 transparent for a missing image or
    // one of zero width. Never null.
    [[nodiscard]] static std::shared_ptr<NSImage> imageFromCoreImage(const CIImage& image);
    [[nodiscard]] static CIImage flattenCoreImage(const CIImage& image);
    [[nodiscard]] static CIImage _old_flattenCoreImage(const CIImage& image);
    // The image passed once through a 16-bit accumulator of its extent: the same picture with its filter
    // chain cut. The empty image for a missing one.
    [[nodiscard]] static CIImage flattenCoreImageForChooser(const CIImage& image);

    // Resource loaders: "<resource folder>/<name>"; null / the missing image when unreadable.
    [[nodiscard]] static std::shared_ptr<NSImage> bundleImageWithName(const VoBundle& bundle, const std::string& name);
    [[nodiscard]] static CIImage bundleCIImageWithName(const VoBundle& bundle, const std::string& name);
    [[nodiscard]] static std::shared_ptr<NSImage> bundleImageWithName(const std::string& name);
    [[nodiscard]] static CIImage bundleCIImageWithName(const std::string& name);

    // The whole desktop, from the provider the windowing layer installs; without one (no window server)
    // the empty image. The display identifier is ignored.
    using ScreenshotProvider = CIImage (*)();
    static void setScreenshotProvider(ScreenshotProvider provider);
    [[nodiscard]] static CIImage screenshot(unsigned displayIdentifier);
    [[nodiscard]] static CIImage screenshot();

    // The default lossy quality of export.
    static constexpr double kDefaultQuality = 0.85;
};

}  // namespace vo
