// SPDX-License-Identifier: MIT
// VoSurfaceHostHeadless: a host without a screen, for tests and benchmarks. It records what the surface
// asks of it (invalidations, pixel formats, viewport and projection, flushes, drawn images), draws by
// calling the surface's drawRect() when asked, and can be told which pixel-format attribute lists fail so
// that the surface's fallbacks can be exercised.
#pragma once

#include <atomic>
#include <mutex>
#include <set>
#include <vector>

#include "Common/CoreGraphics/VoSurfaceHost.h"

namespace vo {

class VoSurfaceHostHeadless : public VoSurfaceHost {
public:
    struct Projection {
        double left = 0, right = 0, bottom = 0, top = 0, zNear = 0, zFar = 0;
        friend bool operator==(const Projection&, const Projection&) = default;
    };
    struct Viewport {
        int x = 0, y = 0, width = 0, height = 0;
        friend bool operator==(const Viewport&, const Viewport&) = default;
    };

    explicit VoSurfaceHostHeadless(const NSRect& frame = NSRect{{0, 0}, {400, 300}});

    // Configuration by the test.
    void failPixelFormat(const std::vector<int32_t>& attributes);  // createPixelFormat gives nothing for it
    void setInWindow(bool flag) { inWindow_ = flag; }
    void setHidden(bool flag) { hidden_ = flag; }
    void setWindowVisible(bool flag) { windowVisible_ = flag; }
    void setHasOpenGLContext(bool flag) { hasContext_ = flag; }
    void setOpenGLContextIsCurrent(bool flag) { contextCurrent_ = flag; }
    // Window coordinates = view coordinates x this factor (1 by default).
    void setWindowScale(float scale) { windowScale_ = scale; }

    // What was recorded.
    [[nodiscard]] int invalidations() const { return invalidations_.load(); }
    [[nodiscard]] bool needsDisplay() const { return needsDisplay_.load(); }
    [[nodiscard]] int draws() const { return draws_.load(); }
    [[nodiscard]] int flushBufferCount() const { return flushBuffers_.load(); }
    [[nodiscard]] int glFlushCount() const { return glFlushes_.load(); }
    [[nodiscard]] std::vector<std::vector<int32_t>> requestedPixelFormats() const;
    [[nodiscard]] std::optional<VoPixelFormat> pixelFormat() const;  // the one in use
    [[nodiscard]] std::vector<std::optional<VoPixelFormat>> pixelFormatHistory() const;
    [[nodiscard]] int clearGLContextCount() const;
    [[nodiscard]] std::optional<Viewport> viewport() const;
    [[nodiscard]] std::optional<Projection> projection() const;  // nothing after an identity without ortho
    [[nodiscard]] int identityProjectionCount() const;
    [[nodiscard]] std::optional<bool> wantsBestResolution() const;
    [[nodiscard]] std::vector<std::pair<int32_t, int32_t>> contextParameters() const;
    [[nodiscard]] int trackingRectsAdded() const;
    [[nodiscard]] std::vector<int32_t> trackingRectsRemoved() const;
    [[nodiscard]] bool acceptsMouseMovedEvents() const;
    [[nodiscard]] bool hasDrawingContext() const;
    [[nodiscard]] int drawingContextsCreated() const;
    [[nodiscard]] int drawingContextCacheClears() const;
    [[nodiscard]] CIImage lastDrawnImage() const;
    [[nodiscard]] CGRect lastDrawInRect() const;
    void resetRecords();

    // VoSurfaceHost.
    std::optional<VoPixelFormat> createPixelFormat(const std::vector<int32_t>& attributes) override;
    VoPixelFormat defaultPixelFormat() override;
    void initWithFramePixelFormat(const NSRect& frame, const VoPixelFormat& format) override;
    void setPixelFormat(const std::optional<VoPixelFormat>& format) override;
    void clearGLContext() override;
    void setNeedsDisplay(bool flag) override;
    void displayIfNeeded() override;
    void display() override;
    NSRect frame() const override;
    void setFrame(const NSRect& frame) override;
    NSSize frameSizeInWindow() const override;
    NSRect boundsInWindow() const override;
    NSRect bounds() const override;
    bool isInWindow() const override { return inWindow_; }
    bool isHidden() const override { return hidden_; }
    bool windowIsVisible() const override { return windowVisible_; }
    bool hasOpenGLContext() const override { return hasContext_; }
    bool openGLContextIsCurrent() const override { return contextCurrent_; }
    void setWantsBestResolutionOpenGLSurface(bool flag) override;
    void setViewport(int x, int y, int width, int height) override;
    void loadIdentityProjection() override;
    void orthographicProjection(double left, double right, double bottom, double top, double zNear,
                                double zFar) override;
    void loadIdentityModelView() override;
    void setContextParameter(int32_t parameter, int32_t value) override;
    void flushBuffer() override { ++flushBuffers_; }
    void glFlush() override { ++glFlushes_; }
    void createDrawingContext() override;
    void clearDrawingContextCaches() override;
    void releaseDrawingContext() override;
    void drawImage(const CIImage& image, const CGRect& inRect, const CGRect& fromRect) override;
    int32_t addTrackingRect(const NSRect& rect, bool assumeInside) override;
    void removeTrackingRect(int32_t tag) override;
    void setAcceptsMouseMovedEvents(bool flag) override;

private:
    mutable std::mutex mutex_;  // guards everything below that is not atomic
    NSRect frame_;
    float windowScale_ = 1;
    bool inWindow_ = true, hidden_ = false, windowVisible_ = true;
    bool hasContext_ = true, contextCurrent_ = true;
    std::set<std::vector<int32_t>> failing_;
    std::vector<std::vector<int32_t>> requested_;
    std::optional<VoPixelFormat> format_;
    std::vector<std::optional<VoPixelFormat>> formatHistory_;
    int clearGLContexts_ = 0;
    std::optional<Viewport> viewport_;
    std::optional<Projection> projection_;
    int identityProjections_ = 0;
    std::optional<bool> bestResolution_;
    std::vector<std::pair<int32_t, int32_t>> parameters_;
    int trackingAdded_ = 0;
    std::vector<int32_t> trackingRemoved_;
    bool mouseMoved_ = false;
    bool drawingContext_ = false;
    int contextsCreated_ = 0, contextClears_ = 0;
    CIImage lastImage_;
    CGRect lastInRect_;
    std::atomic<bool> needsDisplay_{false};
    std::atomic<int> invalidations_{0}, draws_{0}, flushBuffers_{0}, glFlushes_{0};
};

}  // namespace vo
