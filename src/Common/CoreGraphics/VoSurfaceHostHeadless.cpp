// SPDX-License-Identifier: MIT
#include "Common/CoreGraphics/VoSurfaceHostHeadless.h"

#include "Common/CoreGraphics/VoCoreSurface.h"

namespace vo {

VoSurfaceHostHeadless::VoSurfaceHostHeadless(const NSRect& frame) : frame_(frame) {}

void VoSurfaceHostHeadless::failPixelFormat(const std::vector<int32_t>& attributes) {
    std::lock_guard lock(mutex_);
    failing_.insert(attributes);
}

std::vector<std::vector<int32_t>> VoSurfaceHostHeadless::requestedPixelFormats() const {
    std::lock_guard lock(mutex_);
    return requested_;
}
std::optional<VoPixelFormat> VoSurfaceHostHeadless::pixelFormat() const {
    std::lock_guard lock(mutex_);
    return format_;
}
std::vector<std::optional<VoPixelFormat>> VoSurfaceHostHeadless::pixelFormatHistory() const {
    std::lock_guard lock(mutex_);
    return formatHistory_;
}
int VoSurfaceHostHeadless::clearGLContextCount() const {
    std::lock_guard lock(mutex_);
    return clearGLContexts_;
}
std::optional<VoSurfaceHostHeadless::Viewport> VoSurfaceHostHeadless::viewport() const {
    std::lock_guard lock(mutex_);
    return viewport_;
}
std::optional<VoSurfaceHostHeadless::Projection> VoSurfaceHostHeadless::projection() const {
    std::lock_guard lock(mutex_);
    return projection_;
}
int VoSurfaceHostHeadless::identityProjectionCount() const {
    std::lock_guard lock(mutex_);
    return identityProjections_;
}
std::optional<bool> VoSurfaceHostHeadless::wantsBestResolution() const {
    std::lock_guard lock(mutex_);
    return bestResolution_;
}
std::vector<std::pair<int32_t, int32_t>> VoSurfaceHostHeadless::contextParameters() const {
    std::lock_guard lock(mutex_);
    return parameters_;
}
int VoSurfaceHostHeadless::trackingRectsAdded() const {
    std::lock_guard lock(mutex_);
    return trackingAdded_;
}
std::vector<int32_t> VoSurfaceHostHeadless::trackingRectsRemoved() const {
    std::lock_guard lock(mutex_);
    return trackingRemoved_;
}
bool VoSurfaceHostHeadless::acceptsMouseMovedEvents() const {
    std::lock_guard lock(mutex_);
    return mouseMoved_;
}
bool VoSurfaceHostHeadless::hasDrawingContext() const {
    std::lock_guard lock(mutex_);
    return drawingContext_;
}
int VoSurfaceHostHeadless::drawingContextsCreated() const {
    std::lock_guard lock(mutex_);
    return contextsCreated_;
}
int VoSurfaceHostHeadless::drawingContextCacheClears() const {
    std::lock_guard lock(mutex_);
    return contextClears_;
}
CIImage VoSurfaceHostHeadless::lastDrawnImage() const {
    std::lock_guard lock(mutex_);
    return lastImage_;
}
CGRect VoSurfaceHostHeadless::lastDrawInRect() const {
    std::lock_guard lock(mutex_);
    return lastInRect_;
}

void VoSurfaceHostHeadless::resetRecords() {
    std::lock_guard lock(mutex_);
    requested_.clear();
    formatHistory_.clear();
    clearGLContexts_ = 0;
    viewport_.reset();
    projection_.reset();
    identityProjections_ = 0;
    bestResolution_.reset();
    parameters_.clear();
    trackingAdded_ = 0;
    trackingRemoved_.clear();
    contextsCreated_ = contextClears_ = 0;
    invalidations_ = draws_ = flushBuffers_ = glFlushes_ = 0;
}

std::optional<VoPixelFormat> VoSurfaceHostHeadless::createPixelFormat(const std::vector<int32_t>& attributes) {
    std::lock_guard lock(mutex_);
    requested_.push_back(attributes);
    if (failing_.count(attributes)) return std::nullopt;
    return VoPixelFormat{attributes, false};
}

VoPixelFormat VoSurfaceHostHeadless::defaultPixelFormat() { return VoPixelFormat{{}, true}; }

void VoSurfaceHostHeadless::initWithFramePixelFormat(const NSRect& frame, const VoPixelFormat& format) {
    std::lock_guard lock(mutex_);
    frame_ = frame;
    format_ = format;
    formatHistory_.push_back(format);
}

void VoSurfaceHostHeadless::setPixelFormat(const std::optional<VoPixelFormat>& format) {
    std::lock_guard lock(mutex_);
    format_ = format;
    formatHistory_.push_back(format);
}

void VoSurfaceHostHeadless::clearGLContext() {
    std::lock_guard lock(mutex_);
    ++clearGLContexts_;
}

void VoSurfaceHostHeadless::setNeedsDisplay(bool flag) {
    if (flag) ++invalidations_;
    needsDisplay_ = flag;
}

void VoSurfaceHostHeadless::displayIfNeeded() {
    if (needsDisplay_.load()) display();
}

void VoSurfaceHostHeadless::display() {
    needsDisplay_ = false;
    ++draws_;
    if (VoCoreSurface* s = surface()) s->drawRect(bounds());
}

NSRect VoSurfaceHostHeadless::frame() const {
    std::lock_guard lock(mutex_);
    return frame_;
}
void VoSurfaceHostHeadless::setFrame(const NSRect& frame) {
    std::lock_guard lock(mutex_);
    frame_ = frame;
}
NSSize VoSurfaceHostHeadless::frameSizeInWindow() const {
    std::lock_guard lock(mutex_);
    return {frame_.size.width * windowScale_, frame_.size.height * windowScale_};
}
NSRect VoSurfaceHostHeadless::boundsInWindow() const {
    std::lock_guard lock(mutex_);
    return {{0, 0}, {frame_.size.width * windowScale_, frame_.size.height * windowScale_}};
}
NSRect VoSurfaceHostHeadless::bounds() const {
    std::lock_guard lock(mutex_);
    return {{0, 0}, frame_.size};
}

void VoSurfaceHostHeadless::setWantsBestResolutionOpenGLSurface(bool flag) {
    std::lock_guard lock(mutex_);
    bestResolution_ = flag;
}
void VoSurfaceHostHeadless::setViewport(int x, int y, int width, int height) {
    std::lock_guard lock(mutex_);
    viewport_ = Viewport{x, y, width, height};
}
void VoSurfaceHostHeadless::loadIdentityProjection() {
    std::lock_guard lock(mutex_);
    ++identityProjections_;
    projection_.reset();
}
void VoSurfaceHostHeadless::orthographicProjection(double left, double right, double bottom, double top,
                                                   double zNear, double zFar) {
    std::lock_guard lock(mutex_);
    projection_ = Projection{left, right, bottom, top, zNear, zFar};
}
void VoSurfaceHostHeadless::loadIdentityModelView() {}
void VoSurfaceHostHeadless::setContextParameter(int32_t parameter, int32_t value) {
    std::lock_guard lock(mutex_);
    parameters_.emplace_back(parameter, value);
}

void VoSurfaceHostHeadless::createDrawingContext() {
    std::lock_guard lock(mutex_);
    drawingContext_ = true;
    ++contextsCreated_;
}
void VoSurfaceHostHeadless::clearDrawingContextCaches() {
    std::lock_guard lock(mutex_);
    ++contextClears_;
}
void VoSurfaceHostHeadless::releaseDrawingContext() {
    std::lock_guard lock(mutex_);
    drawingContext_ = false;
}
void VoSurfaceHostHeadless::drawImage(const CIImage& image, const CGRect& inRect, const CGRect& fromRect) {
    std::lock_guard lock(mutex_);
    lastImage_ = image;
    lastInRect_ = inRect;
}

int32_t VoSurfaceHostHeadless::addTrackingRect(const NSRect& rect, bool assumeInside) {
    std::lock_guard lock(mutex_);
    return ++trackingAdded_;
}
void VoSurfaceHostHeadless::removeTrackingRect(int32_t tag) {
    std::lock_guard lock(mutex_);
    trackingRemoved_.push_back(tag);
}
void VoSurfaceHostHeadless::setAcceptsMouseMovedEvents(bool flag) {
    std::lock_guard lock(mutex_);
    mouseMoved_ = flag;
}

}  // namespace vo
