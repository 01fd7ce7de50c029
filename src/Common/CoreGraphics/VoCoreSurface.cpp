// SPDX-License-Identifier: MIT
// VoCoreSurface: construction, pixel formats, teardown.
#include "Common/CoreGraphics/VoCoreSurface.h"

#include "Common/CoreGraphics/VoClock.h"
#include "Common/CoreGraphics/VoCoreSurfaceMainThread.h"
#include "Common/CoreGraphics/VoCoreSurfaceRefreshThread.h"
#include "Common/CoreGraphics/VoImageAccumulator.h"
#include "Common/Foundation/VoLog.h"

namespace vo {

std::shared_ptr<VoCoreSurface> VoCoreSurface::initWithFrameSourceOriginSourceSizeReducedColorUseOpenGL(
    std::shared_ptr<VoSurfaceHost> host, const NSRect& frame, const NSPoint& sourceOrigin, const NSSize& sourceSize,
    bool reducedColor, bool useOpenGL) {
    const std::vector<int32_t> full = {kVoOpenGLPFAAccelerated, kVoOpenGLPFANoRecovery,
                                       kVoOpenGLPFADepthSize, 0,
                                       kVoOpenGLPFAStencilSize, 0,
                                       kVoOpenGLPFAAccumSize, 0,
                                       kVoOpenGLPFAColorSize, reducedColor ? 16 : 32,
                                       0};
    const std::vector<int32_t> reduced = {kVoOpenGLPFAAccelerated, kVoOpenGLPFANoRecovery, kVoOpenGLPFAColorSize, 32,
                                          0};
    VoPixelFormat format;
    choosePixelFormat(*host, full, reduced, &format);
    host->initWithFramePixelFormat(frame, format);
    auto surface = std::make_shared<VoCoreSurface>(Passkey{}, host, sourceOrigin, sourceSize);
    host->attachSurface(surface.get());
    return surface;
}

std::shared_ptr<VoCoreSurface> VoCoreSurface::initWithFrameSourceOriginSourceSizeUseOpenGL(
    std::shared_ptr<VoSurfaceHost> host, const NSRect& frame, const NSPoint& sourceOrigin, const NSSize& sourceSize,
    bool useOpenGL) {
    return initWithFrameSourceOriginSourceSizeReducedColorUseOpenGL(std::move(host), frame, sourceOrigin, sourceSize,
                                                                    false, useOpenGL);
}

std::shared_ptr<VoCoreSurface> VoCoreSurface::initWithFrameReducedColorUseOpenGL(std::shared_ptr<VoSurfaceHost> host,
                                                                                 const NSRect& frame,
                                                                                 bool reducedColor, bool useOpenGL) {
    return initWithFrameSourceOriginSourceSizeReducedColorUseOpenGL(std::move(host), frame, NSPoint{}, NSSize{},
                                                                    reducedColor, useOpenGL);
}

std::shared_ptr<VoCoreSurface> VoCoreSurface::initWithFrameUseOpenGL(std::shared_ptr<VoSurfaceHost> host,
                                                                     const NSRect& frame, bool useOpenGL) {
    return initWithFrameSourceOriginSourceSizeUseOpenGL(std::move(host), frame, NSPoint{}, NSSize{}, useOpenGL);
}

std::shared_ptr<VoCoreSurface> VoCoreSurface::initWithFrame(std::shared_ptr<VoSurfaceHost> host,
                                                            const NSRect& frame) {
    return initWithFrameUseOpenGL(std::move(host), frame, false);
}

VoCoreSurface::VoCoreSurface(Passkey, std::shared_ptr<VoSurfaceHost> host, const NSPoint& sourceOrigin,
                             const NSSize& sourceSize)
    : host_(std::move(host)), clock_(VoClock::systemClock()), sourceOrigin_(sourceOrigin), sourceSize_(sourceSize) {
    VoCoreSurfaceMainThread::prepare();
}

bool VoCoreSurface::choosePixelFormat(VoSurfaceHost& host, const std::vector<int32_t>& full,
                                      const std::vector<int32_t>& reduced, VoPixelFormat* chosen) {
    if (std::optional<VoPixelFormat> format = host.createPixelFormat(full)) {
        *chosen = *format;
        return true;
    }
    if (std::optional<VoPixelFormat> format = host.createPixelFormat(reduced)) {
        VoLog("reverting to reducedPixelFormat");
        *chosen = *format;
        return true;
    }
    VoLog("reverting to defaultPixelFormat");
    *chosen = host.defaultPixelFormat();
    return false;
}

void VoCoreSurface::setUsesDoubleBuffering(bool flag) {
    host_->clearGLContext();
    host_->setPixelFormat(std::nullopt);
    doubleBuffering_ = flag;
    // Double-buffered in both cases: the flag only decides how frames are flushed.
    const std::vector<int32_t> full = {kVoOpenGLPFAAccelerated, kVoOpenGLPFANoRecovery, kVoOpenGLPFADoubleBuffer,
                                       kVoOpenGLPFADepthSize, 0,
                                       kVoOpenGLPFAStencilSize, 0,
                                       kVoOpenGLPFAAccumSize, 0,
                                       kVoOpenGLPFAColorSize, 32,
                                       0};
    const std::vector<int32_t> reduced = {kVoOpenGLPFAAccelerated, kVoOpenGLPFANoRecovery, kVoOpenGLPFADoubleBuffer,
                                          kVoOpenGLPFAColorSize, 32, 0};
    VoPixelFormat format;
    if (!choosePixelFormat(*host_, full, reduced, &format)) doubleBuffering_ = false;
    host_->setPixelFormat(format);
}

bool VoCoreSurface::hasCoreContext() const {
    std::lock_guard lock(renderLock_);
    return coreContext_;
}

VoCoreSurface::~VoCoreSurface() {
    setAnimates(false);
    {
        std::lock_guard lock(renderLock_);
        // Elements still listed here do not own the surface (or it would not be going away); make sure none
        // keeps a pointer to it.
        for (const std::shared_ptr<VoCoreElement>& element : allElementsLocked()) element->setSurface(nullptr);
        coreElements_.clear();
        layerPerElement_.clear();
        layerCache_.clear();
        mouseOverElement_.reset();
        mouseDownElement_.reset();
        selectedElement_.reset();
    }
    host_->removeTrackingRect(trackingRectTag_);
    if (coreContext_) host_->releaseDrawingContext();
    if (host_->attachedSurface() == this) host_->attachSurface(nullptr);
}

}  // namespace vo
