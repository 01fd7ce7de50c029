// SPDX-License-Identifier: MIT
// VoSurfaceHost: what the windowing layer provides to a VoCoreSurface. The surface holds the logic (layers,
// redraw scheduling, geometry); the host is the on-screen view it lives in: invalidation, the draw on
// request, the frame and the window, the OpenGL pixel format and context, the viewport and projection
// calls, the flush and the pointer tracking area.
//
// Threads: setNeedsDisplay() may be called from any thread (the refresh thread invalidates from its own
// thread); everything else is called on the main thread. A host calls the attached surface's drawRect() on
// the main thread when it draws.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "Common/CoreGraphics/VoGeometry.h"

namespace vo {

class VoCoreSurface;

// The OpenGL pixel-format attribute codes the surface asks for (the windowing layer's values).
enum VoOpenGLPixelFormatAttribute : int32_t {
    kVoOpenGLPFADoubleBuffer = 5,
    kVoOpenGLPFAColorSize = 8,
    kVoOpenGLPFADepthSize = 12,
    kVoOpenGLPFAStencilSize = 13,
    kVoOpenGLPFAAccumSize = 14,
    kVoOpenGLPFANoRecovery = 72,
    kVoOpenGLPFAAccelerated = 73,
};

// OpenGL context parameters the surface sets.
enum VoOpenGLContextParameter : int32_t {
    kVoOpenGLCPSwapInterval = 222,
    kVoOpenGLCPSurfaceOpacity = 236,
};

// A pixel format the host created: the attribute list it was made from (terminated by 0), or the view
// class's default format.
struct VoPixelFormat {
    std::vector<int32_t> attributes;
    bool isDefault = false;
    friend bool operator==(const VoPixelFormat&, const VoPixelFormat&) = default;
};

class VoSurfaceHost {
public:
    virtual ~VoSurfaceHost();

    // The surface drawn in this host (not owned); set by the surface while it exists, null afterwards.
    void attachSurface(VoCoreSurface* surface) { surface_.store(surface); }
    [[nodiscard]] VoCoreSurface* attachedSurface() const { return surface_.load(); }

    // Pixel formats. createPixelFormat gives nothing when the list cannot be satisfied; the default format
    // always exists. initWithFramePixelFormat sets the view up once, at the surface's construction.
    [[nodiscard]] virtual std::optional<VoPixelFormat> createPixelFormat(const std::vector<int32_t>& attributes) = 0;
    [[nodiscard]] virtual VoPixelFormat defaultPixelFormat() = 0;
    virtual void initWithFramePixelFormat(const NSRect& frame, const VoPixelFormat& format) = 0;
    // Nothing = no pixel format.
    virtual void setPixelFormat(const std::optional<VoPixelFormat>& format) = 0;
    virtual void clearGLContext() = 0;

    // Redraw: mark the view invalid (any thread); draw now if invalid; draw now in any case (main thread).
    virtual void setNeedsDisplay(bool flag) = 0;
    virtual void displayIfNeeded() = 0;
    virtual void display() = 0;

    // The view's frame (in its superview), its size and bounds converted to window coordinates.
    [[nodiscard]] virtual NSRect frame() const = 0;
    virtual void setFrame(const NSRect& frame) = 0;
    [[nodiscard]] virtual NSSize frameSizeInWindow() const = 0;
    [[nodiscard]] virtual NSRect boundsInWindow() const = 0;
    [[nodiscard]] virtual NSRect bounds() const = 0;

    // The window and visibility, as reshape checks them.
    [[nodiscard]] virtual bool isInWindow() const = 0;
    [[nodiscard]] virtual bool isHidden() const = 0;
    [[nodiscard]] virtual bool windowIsVisible() const = 0;

    // The OpenGL context and the calls reshape and the draw make through it.
    [[nodiscard]] virtual bool hasOpenGLContext() const = 0;
    [[nodiscard]] virtual bool openGLContextIsCurrent() const = 0;
    virtual void setWantsBestResolutionOpenGLSurface(bool flag) = 0;
    virtual void setViewport(int x, int y, int width, int height) = 0;
    // Projection = identity; then an orthographic projection multiplied in; model-view = identity.
    virtual void loadIdentityProjection() = 0;
    virtual void orthographicProjection(double left, double right, double bottom, double top, double zNear,
                                        double zFar) = 0;
    virtual void loadIdentityModelView() = 0;
    virtual void setContextParameter(int32_t parameter, int32_t value) = 0;
    // Flush by buffer swap, or by a plain flush.
    virtual void flushBuffer() = 0;
    virtual void glFlush() = 0;

    // The drawing context: made on the first draw, its caches cleared by clean(), released when the
    // surface drops its caches. drawImage draws `image`'s `fromRect` into `inRect` of the view.
    virtual void createDrawingContext() = 0;
    virtual void clearDrawingContextCaches() = 0;
    virtual void releaseDrawingContext() = 0;
    virtual void drawImage(const CIImage& image, const CGRect& inRect, const CGRect& fromRect) = 0;

    // Pointer tracking: add an area over `rect` (returns its tag), remove one by tag; mouse-moved events.
    virtual int32_t addTrackingRect(const NSRect& rect, bool assumeInside) = 0;
    virtual void removeTrackingRect(int32_t tag) = 0;
    virtual void setAcceptsMouseMovedEvents(bool flag) = 0;

protected:
    [[nodiscard]] VoCoreSurface* surface() const { return surface_.load(); }

private:
    std::atomic<VoCoreSurface*> surface_{nullptr};
};

}  // namespace vo
