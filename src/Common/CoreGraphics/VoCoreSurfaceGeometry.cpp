// SPDX-License-Identifier: MIT
// VoCoreSurface: quality and retina settings, the mapping between view, surface and physical coordinates,
// frame changes and the viewport set-up.
#include "Common/CoreGraphics/VoCoreSurface.h"
#include "Common/CoreGraphics/VoImageAccumulator.h"
#include "Common/Foundation/VoLog.h"

namespace vo {

namespace {

// The divisor of each quality level: full, half and third resolution; 0 for an unknown level.
float qualityDivisor(int32_t quality) {
    switch (quality) {
        case 0: return 1;
        case 1: return 2;
        case 2: return 3;
        default: return 0;
    }
}

}  // namespace

void VoCoreSurface::setCoreSurfaceQuality(int32_t quality) {
    std::lock_guard lock(renderLock_);
    if (quality == surfaceQuality_.load()) return;
    surfaceQuality_ = quality;
    dropCaches();
    for (const std::shared_ptr<VoCoreElement>& element : allElementsLocked()) {
        element->dropCaches();
        element->setRequiresRendering();
    }
    setNeedsDisplayInternal();
    needsReshape_ = true;
}

void VoCoreSurface::setCoreComposeMode(int32_t mode) {
    if (mode == composeMode_) return;
    composeMode_ = mode;
    setNeedsDisplayInternal();
}

void VoCoreSurface::setRetina(bool flag) {
    if (flag == retina_.load()) return;
    retina_ = flag;
    needsReshape_ = true;
    host_->setNeedsDisplay(true);
}

NSSize VoCoreSurface::frameSizeInWindow() const { return host_->frameSizeInWindow(); }

NSRect VoCoreSurface::surfaceBounds() const {
    const NSSize size = sourceSize_.width > 0 ? sourceSize_ : frameSizeInWindow();
    switch (surfaceQuality_.load()) {
        case 0:
            if (retina_.load()) return {{0, 0}, {size.width * 2, size.height * 2}};
            return {{0, 0}, size};
        case 1: return {{0, 0}, {size.width / 2, size.height / 2}};
        case 2: return {{0, 0}, {size.width / 3, size.height / 3}};
        default:
            VoLog("Failure to return surfaceBounds");
            return {{0, 0}, size};
    }
}

NSRect VoCoreSurface::physicalSurfaceBounds() const {
    const NSSize size = frameSizeInWindow();
    const int32_t quality = surfaceQuality_.load();
    const float s = qualityDivisor(quality);
    if (s == 0) {
        VoLog("Failure to return surfaceBounds");
        return {{0, 0}, size};
    }
    NSPoint origin{0, 0};
    if (sourceSize_.width > 0) origin = host_->frame().origin;
    origin.x += sourceOrigin_.x / s;
    origin.y += sourceOrigin_.y / s;
    if (quality == 0) {
        if (retina_.load()) return {origin, {size.width * 2, size.height * 2}};
        return {origin, size};
    }
    return {origin, {size.width / s, size.height / s}};
}

NSPoint VoCoreSurface::surfaceQualityUpdatedPoint(const NSPoint& point) const {
    switch (surfaceQuality_.load()) {
        case 0:
            if (retina_.load()) return {point.x * 2, point.y * 2};
            return point;
        case 1: return {point.x / 2, point.y / 2};
        case 2: return {point.x / 3, point.y / 3};
        default:
            VoLog("Failure to return surfaceQualityUpdatedPoint");
            return point;
    }
}

void VoCoreSurface::setFrame(const NSRect& frame) {
    const NSRect old = host_->frame();
    if (old.size.width != frame.size.width || old.size.height != frame.size.height) {
        dropCaches();
        host_->setFrame(frame);
        dropCaches();
        // dropCaches keeps the layer caches when cleaning is disabled; a new size cannot use them anyway.
        if (disableCleaningLayers_) {
            std::lock_guard lock(renderLock_);
            layerCache_.clear();
        }
        clean();
        needsReshape_ = true;
    } else {
        host_->setFrame(frame);
    }
    std::vector<std::shared_ptr<VoCoreElement>> elements;
    {
        std::lock_guard lock(renderLock_);
        elements = allElementsLocked();
    }
    for (const std::shared_ptr<VoCoreElement>& element : elements) element->surfaceBoundsUpdated();
    setNeedsDisplayInternal();
    requiresFullRender_ = true;
    host_->setNeedsDisplay(true);
}

void VoCoreSurface::reshape() {
    const bool visible = host_->isInWindow() && !host_->isHidden() && host_->windowIsVisible();
    // Off screen, only the first set-up (before any drawing context exists) goes ahead.
    if (!visible && hasCoreContext()) return;
    if (host_->hasOpenGLContext()) {
        if (!host_->openGLContextIsCurrent()) return;
        const int32_t quality = surfaceQuality_.load();
        const bool retina = retina_.load();
        host_->setWantsBestResolutionOpenGLSurface(retina && quality == 0);
        const NSRect r = host_->boundsInWindow();
        if (retina && quality == 0) {
            host_->setViewport(0, 0, static_cast<int>(2 * r.size.width), static_cast<int>(2 * r.size.height));
        } else {
            host_->setViewport(0, 0, static_cast<int>(r.size.width), static_cast<int>(r.size.height));
        }
        host_->loadIdentityProjection();
        // An unknown quality sets no projection.
        const float s = qualityDivisor(quality);
        if (s != 0) {
            double w = r.size.width, h = r.size.height;
            if (quality == 0 && retina) {
                w *= 2;
                h *= 2;
            } else {
                w /= s;
                h /= s;
            }
            host_->orthographicProjection(0, w, 0, h, -1, 1);
        }
        host_->loadIdentityModelView();
        if (useOpenGLTransparancy_) host_->setContextParameter(kVoOpenGLCPSurfaceOpacity, 0);
        host_->setContextParameter(kVoOpenGLCPSwapInterval, 1);
        needsReshape_ = false;
    }
    // The tracking area. Its tag is not kept, so trackingRectTag stays 0 and earlier areas stay in place.
    if (trackingRectTag_ != 0) host_->removeTrackingRect(trackingRectTag_);
    if (!disableInteraction_) {
        (void)host_->addTrackingRect(host_->bounds(), true);
        // Input handling adds the pointer-entered notice for the current event here.
        host_->setAcceptsMouseMovedEvents(true);
    }
}

}  // namespace vo
