// SPDX-License-Identifier: MIT
// VoCoreSurface: drawing a frame, the background, the caches and the frame statistics.
//
// The frame composition here is a minimal placeholder: it composes every layer from the lowest number up
// with source-over and hands the picture to the host. The layer caches (image accumulators), the reuse of
// the last frame, snapshots and the flattened copy of the last frame come with the full frame composition;
// the lock, context, reshape, flush, statistics and delegate steps around it are already in place.
#include "Common/CoreGraphics/VoClock.h"
#include "Common/CoreGraphics/VoCoreSurface.h"
#include "Common/CoreGraphics/VoCoreSurfaceMainThread.h"
#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Common/CoreGraphics/VoImageAccumulator.h"
#include "Common/Foundation/VoException.h"

namespace vo {

void VoCoreSurface::drawRect(const NSRect& rect) {
    if (!VoCoreSurfaceMainThread::isMainThread()) {
        throw VoException("NSInternalInconsistencyException", "should only be called on main thread");
    }
    const double frameStart = clock_->now();
    {
        std::lock_guard lock(renderLock_);
        const CGRect bounds = VoCoreUtils::coreRectFromNSRect(surfaceBounds());
        if (!coreContext_) {
            host_->createDrawingContext();
            coreContext_ = true;
            // The base of every frame: fully transparent over the composition rectangle.
            coreSurface_ = VoCoreUtils::emptyCoreImageWithExtentAndColor(bounds, CIColor{0, 0, 0, 0});
        }
        if (needsReshape_.load()) {
            requiresFullRender_ = true;
            reshape();
        }
        if (backgroundImage_.isNull()) backgroundImage_ = VoCoreUtils::emptyCoreImageWithExtent(bounds);
        CIImage image = VoCoreUtils::composeImageOverImage(backgroundImage_, coreSurface_);

        // Placeholder composition (see the top of this file).
        for (const auto& [layer, list] : coreElements_) {
            const ElementList elements = list;  // hooks may change the tables
            for (const std::shared_ptr<VoCoreElement>& element : elements) {
                if (auto* additive = dynamic_cast<VoCoreAdditiveElementProtocol*>(element.get())) {
                    image = additive->renderOverImage(image);
                } else if (CIImage rendered = element->renderElement(); !rendered.isNull()) {
                    image = VoCoreUtils::composeImageOverImage(rendered, image);
                }
            }
        }
        dirtyLayers_.clear();

        const int32_t quality = surfaceQuality_.load();
        const float s = quality == 1 ? 2.0f : quality == 2 ? 3.0f : 1.0f;
        CGRect destination = bounds;
        destination.x -= sourceOrigin_.x / s;
        destination.y -= sourceOrigin_.y / s;
        host_->drawImage(image, destination, bounds);
        requiresFullRender_ = false;
        if (doRenderSnapShot_) {
            renderSnapShot_ = image;
            doRenderSnapShot_ = false;
        }
        if (doubleBuffering_) {
            host_->flushBuffer();
        } else {
            host_->glFlush();
        }
        // Statistics, kept with the frame state under the lock.
        if (lastRender_) {
            const double dt = frameStart - *lastRender_;
            for (size_t i = 0; i + 1 < fps_.size(); ++i) fps_[i] = fps_[i + 1];
            fps_[fps_.size() - 1] = static_cast<float>(1.0 / dt);
        }
        lastRender_ = frameStart;
    }
    VoCoreSurfaceDelegate* delegate = delegate_.load();
    if (delegate && delegate->surfaceHasDrawn) {
        std::weak_ptr<VoCoreSurface> weak = weak_from_this();
        VoCoreSurfaceMainThread::perform(
            [weak, delegate] {
                if (std::shared_ptr<VoCoreSurface> surface = weak.lock()) delegate->surfaceHasDrawn(surface.get());
            },
            synchronousDelegateCalls_);
    }
}

void VoCoreSurface::display() { host_->display(); }

void VoCoreSurface::setBackgroundImage(const CIImage& image) {
    const CIImage background =
        image.isNull() ? VoCoreUtils::emptyCoreImageWithExtent(VoCoreUtils::coreRectFromNSRect(surfaceBounds()))
                       : image;
    {
        std::lock_guard lock(renderLock_);
        backgroundFlattened_ = false;
        backgroundImage_ = background;
        requiresFullRender_ = true;
    }
    setNeedsDisplayInternal();
}

void VoCoreSurface::dropCaches(bool alsoElements) {
    {
        std::lock_guard lock(renderLock_);
        if (alsoElements) {
            // Highest layer first, top element first.
            for (auto layer = coreElements_.rbegin(); layer != coreElements_.rend(); ++layer) {
                const ElementList elements = layer->second;
                for (auto element = elements.rbegin(); element != elements.rend(); ++element) (*element)->dropCaches();
            }
        }
        if (!disableCleaningLayers_) layerCache_.clear();
        layerFilters_.clear();
        lastRenderImage_ = CIImage();
        clean();
    }
    // The context and the base image go last; the next frame rebuilds them.
    std::lock_guard lock(renderLock_);
    coreSurface_ = CIImage();
    if (coreContext_) host_->releaseDrawingContext();
    coreContext_ = false;
}

void VoCoreSurface::clean() {
    std::lock_guard lock(renderLock_);
    if (coreContext_) host_->clearDrawingContextCaches();
}

CIImage VoCoreSurface::lastRenderImage() const {
    std::lock_guard lock(renderLock_);
    return lastRenderImage_;
}

float VoCoreSurface::fps() const {
    std::lock_guard lock(renderLock_);
    if (lastRender_ && clock_->now() - *lastRender_ > 1.0) return 0;
    float sum = 0;
    for (float sample : fps_) sum += sample;
    return sum / 5.0f;
}

}  // namespace vo
