// SPDX-License-Identifier: MIT
// VoCoreSurface: a layered, animated rendering surface. It keeps elements (VoCoreElement) on numbered
// layers, composes their images into one picture per frame on the main thread, and decides when to redraw:
// at once, or, when throttled and animating, at most once per tick of its refresh thread.
//
// The surface is plain C++ over QtCore; the on-screen view it lives in (invalidation, the draw itself, the
// frame and window, the OpenGL pixel format and context) is a VoSurfaceHost. Make surfaces with the
// initWith... factories: they are always held by std::shared_ptr.
//
// Layers: numbers are signed 32-bit integers; lower numbers are composed first (underneath); within a layer
// the last-added element is on top. Elements are filed under their description() text.
//
// Ownership: the surface owns its elements through its layer tables and each element owns its surface.
// Owners call prepareEnd() before letting a surface go: it stops the refresh thread and removes every
// element (which stops their effects' timer threads), breaking the cycle. The delegate is not owned.
//
// Threads and locks: the main thread (the Qt event loop) handles layer changes and all drawing. renderLock,
// a recursive mutex, is held for a whole frame and around every change of the layer tables; elements and
// effects take it through requestSurfaceLock()/releaseSurfaceLock(). Effects' timer threads reach the
// surface only through setRequiresRendering() (setCoreElementNeedsDisplay -> setNeedsDisplayOnLayer ->
// setNeedsDisplayInternal) and animates(). The refresh thread's own mutex guards only its flags and is never
// held while taking renderLock. Delegate notices leave the lock by being posted to the main thread.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Common/CoreGraphics/VoCoreElement.h"
#include "Common/CoreGraphics/VoGeometry.h"
#include "Common/CoreGraphics/VoSurfaceHost.h"

namespace vo {

class VoClock;
class VoCoreSurface;
class VoCoreSurfaceRefreshThread;
class VoImageAccumulator;

// The surface delegate. Every operation is optional: an empty function is not called. Called on the main
// thread.
struct VoCoreSurfaceDelegate {
    // The last element was removed (posted, not waited for).
    std::function<void(VoCoreSurface* surface)> surfaceDidBecomeEmpty;
    // After every frame.
    std::function<void(VoCoreSurface* surface)> surfaceHasDrawn;
    // The selection changed.
    std::function<void(VoCoreSurface* surface, VoCoreElement* element)> surfaceDidSelectCoreElement;
    std::function<void(VoCoreSurface* surface, VoCoreElement* element)> surfaceDidDeselectCoreElement;
};

class VoCoreSurface : public std::enable_shared_from_this<VoCoreSurface> {
    struct Passkey {};

public:
    using ElementList = std::vector<std::shared_ptr<VoCoreElement>>;

    // Initialisers. The host is the view the surface draws in; useOpenGL is accepted and ignored (the
    // surface is always OpenGL-backed). The designated one asks the host for the pixel format
    // (Accelerated, NoRecovery, Depth 0, Stencil 0, Accum 0, ColorSize 16 when reducedColor else 32), falls
    // back to (Accelerated, NoRecovery, ColorSize 32) logging "reverting to reducedPixelFormat", then to the
    // default format logging "reverting to defaultPixelFormat". sourceSize width 0 = follow the view's size.
    [[nodiscard]] static std::shared_ptr<VoCoreSurface> initWithFrameSourceOriginSourceSizeReducedColorUseOpenGL(
        std::shared_ptr<VoSurfaceHost> host, const NSRect& frame, const NSPoint& sourceOrigin,
        const NSSize& sourceSize, bool reducedColor, bool useOpenGL);
    [[nodiscard]] static std::shared_ptr<VoCoreSurface> initWithFrameSourceOriginSourceSizeUseOpenGL(
        std::shared_ptr<VoSurfaceHost> host, const NSRect& frame, const NSPoint& sourceOrigin,
        const NSSize& sourceSize, bool useOpenGL);
    [[nodiscard]] static std::shared_ptr<VoCoreSurface> initWithFrameReducedColorUseOpenGL(
        std::shared_ptr<VoSurfaceHost> host, const NSRect& frame, bool reducedColor, bool useOpenGL);
    [[nodiscard]] static std::shared_ptr<VoCoreSurface> initWithFrameUseOpenGL(std::shared_ptr<VoSurfaceHost> host,
                                                                               const NSRect& frame, bool useOpenGL);
    [[nodiscard]] static std::shared_ptr<VoCoreSurface> initWithFrame(std::shared_ptr<VoSurfaceHost> host,
                                                                      const NSRect& frame);

    VoCoreSurface(Passkey, std::shared_ptr<VoSurfaceHost> host, const NSPoint& sourceOrigin, const NSSize& sourceSize);
    // Teardown: stops the refresh thread, clears the surface of every element still listed, removes the
    // tracking area by its tag and detaches from the host.
    ~VoCoreSurface();
    VoCoreSurface(const VoCoreSurface&) = delete;
    VoCoreSurface& operator=(const VoCoreSurface&) = delete;

    [[nodiscard]] const std::shared_ptr<VoSurfaceHost>& host() const { return host_; }
    // The clock of the refresh thread and of effects made on this surface (the system clock by default).
    // Set it before animating or making effects.
    [[nodiscard]] std::shared_ptr<VoClock> clock() const { return clock_; }
    void setClock(std::shared_ptr<VoClock> clock) { clock_ = std::move(clock); }
    [[nodiscard]] VoCoreSurfaceDelegate* delegate() const { return delegate_.load(); }
    void setDelegate(VoCoreSurfaceDelegate* delegate) { delegate_.store(delegate); }

    // ---- Layers -------------------------------------------------------------------------------------
    // Takes the element out of wherever it is (with all that removal does), appends it on top of `layer`,
    // drops its caches and marks it for rendering.
    void addCoreElementOnLayer(const std::shared_ptr<VoCoreElement>& element, int32_t layer);
    // Puts the element on top of its layer (of every list holding it) and marks it for rendering.
    void moveCoreElementToTopOfLayer(const std::shared_ptr<VoCoreElement>& element);
    // Moves a listed element to another layer, keeping its selection without notifications; an element
    // that is not on the surface is left alone.
    void moveCoreElementToLayer(const std::shared_ptr<VoCoreElement>& element, int32_t layer);
    // Deselects it if selected, marks its layer dirty, takes it out (calling removedFromSurface), and posts
    // surfaceDidBecomeEmpty when it was the last element. Keeps the layer's settings. Null does nothing.
    void removeCoreElement(const std::shared_ptr<VoCoreElement>& element);
    // The entry point of effects that end (always reached on the main thread).
    void coreElementRequestRemoval(const std::shared_ptr<VoCoreElement>& element);
    // Removes every element and forgets every layer setting and discrete layer; no empty notice.
    void removeAllCoreElements();
    // The live list of a layer, bottom to top, or null. Takes no lock: callers off the main thread (or
    // racing with other threads) hold requestSurfaceLock() while they use the list.
    [[nodiscard]] const ElementList* coreElementsOnLayer(int32_t layer) const;

    // Per-layer settings: bookkeeping only; each change schedules a full redraw. Composition ignores them.
    void addDiscreteLayer(int32_t layer);
    [[nodiscard]] bool elementIsOnDiscreteLayer(const VoCoreElement* element) const;
    void setOpacityForLayer(float opacity, int32_t layer);
    void clearOpacityForLayer(int32_t layer);
    void setTransformForLayer(const NSAffineTransform& transform, int32_t layer);
    void clearTransformForLayer(int32_t layer);
    void replaceLayerOpacitiesAndTransforms(const std::map<int32_t, float>& opacities,
                                            const std::map<int32_t, NSAffineTransform>& transforms);

    // Dirty marking. An element on no layer marks layer 0.
    void setNeedsDisplayOnLayer(int32_t layer);
    void setCoreElementNeedsDisplay(const VoCoreElement* element);
    // The single redraw request: a full render next time; invalidate now, or on the refresh thread's next
    // tick when throttled and animating. Any thread.
    void setNeedsDisplayInternal();

    // Snapshots of the tables (taken under the lock), for inspection.
    [[nodiscard]] std::vector<int32_t> layerNumbers() const;
    [[nodiscard]] std::optional<int32_t> layerOfElement(const VoCoreElement* element) const;  // by identity key
    [[nodiscard]] size_t layerPerElementCount() const;
    [[nodiscard]] std::set<int32_t> dirtyLayers() const;
    [[nodiscard]] std::set<int32_t> discreteLayers() const;
    [[nodiscard]] std::map<int32_t, float> layerOpacities() const;
    [[nodiscard]] std::map<int32_t, NSAffineTransform> layerTransforms() const;
    [[nodiscard]] size_t layerCacheCount() const;

    // ---- Selection ----------------------------------------------------------------------------------
    // Under the surface lock: select `element` (null deselects). Answers whether it is now selected.
    bool coreElementRequestSelection(const std::shared_ptr<VoCoreElement>& element);
    bool _coreElementRequestSelection(const std::shared_ptr<VoCoreElement>& element);
    void surfaceDidSelectCoreElement(VoCoreElement* element);
    void surfaceDidDeselectCoreElement(VoCoreElement* element);
    [[nodiscard]] std::shared_ptr<VoCoreElement> selectedElement() const;
    void setDisableInteraction(bool flag) { disableInteraction_ = flag; }
    [[nodiscard]] bool disableInteraction() const { return disableInteraction_; }

    // ---- Lock, redraw scheduling, animation --------------------------------------------------------------
    void requestSurfaceLock() const { renderLock_.lock(); }
    void releaseSurfaceLock() const { renderLock_.unlock(); }
    // YES starts a refresh thread (once); NO stops it (once). animates() is YES exactly while one is kept.
    void setAnimates(bool flag);
    [[nodiscard]] bool animates() const { return animates_.load(); }
    [[nodiscard]] std::shared_ptr<VoCoreSurfaceRefreshThread> refreshThread() const;
    void setThrottle(bool flag) { throttle_ = flag; }
    [[nodiscard]] bool throttle() const { return throttle_.load(); }
    // The host tells the surface when it moves between windows.
    void viewWillMoveToWindow();
    void viewDidMoveToWindow();
    // Stops animating and removes every element: call before releasing the surface.
    void prepareEnd();

    // ---- Rendering --------------------------------------------------------------------------------
    // Composes and draws one frame; main thread only (elsewhere raises NSInternalInconsistencyException,
    // "should only be called on main thread"). Called by the host.
    void drawRect(const NSRect& rect);
    // Draws now, through the host.
    void display();
    [[nodiscard]] bool requiresFullRender() const { return requiresFullRender_.load(); }
    // nil = an empty image the size of surfaceBounds.
    void setBackgroundImage(const CIImage& image);
    // Forgets the elements' caches (when alsoElements), the layer caches (unless disableCleaningLayers),
    // the last frame, and then the drawing context and base image.
    void dropCaches(bool alsoElements);
    void dropCaches() { dropCaches(true); }
    void clean();
    [[nodiscard]] CIImage lastRenderImage() const;
    // Mean of the last five frame rates; 0 when the last frame started more than a second ago.
    [[nodiscard]] float fps() const;

    // ---- Construction, configuration, geometry -----------------------------------------------------------
    void setAllowsFullCopy(bool flag) { allowsFullCopy_ = flag; }
    [[nodiscard]] bool allowsFullCopy() const { return allowsFullCopy_; }
    void setUsesOpenGLTransparancy(bool flag) { useOpenGLTransparancy_ = flag; }
    [[nodiscard]] bool isOpaque() const { return !useOpenGLTransparancy_; }
    void setUse64BitLayering(bool flag) { use64BitLayering_ = flag; }
    void setPreventFlattening(bool flag) { preventFlattening_ = flag; }
    [[nodiscard]] bool preventFlattening() const { return preventFlattening_; }
    void setSynchronousDelegateCalls(bool flag) { synchronousDelegateCalls_ = flag; }
    void setDisableSingleDiscreteOptimization(bool flag) { disableSingleDiscreteOptimization_ = flag; }
    void setDisableCleaningLayers(bool flag) { disableCleaningLayers_ = flag; }
    [[nodiscard]] bool disableCleaningLayers() const { return disableCleaningLayers_; }
    // Asks for a double-buffered pixel format whatever the flag; the flag only chooses how frames are
    // flushed (swap or plain flush).
    void setUsesDoubleBuffering(bool flag);
    [[nodiscard]] bool usesDoubleBuffer() const { return doubleBuffering_; }
    [[nodiscard]] bool hasCoreContext() const;

    // Quality: 0 full, 1 half, 2 third resolution. A change drops every cache and flags a reshape.
    void setCoreSurfaceQuality(int32_t quality);
    [[nodiscard]] int32_t coreSurfaceQuality() const { return surfaceQuality_.load(); }
    void setCoreComposeMode(int32_t mode);
    [[nodiscard]] int32_t coreComposeMode() const { return composeMode_; }
    // Twice the pixel density at quality 0.
    void setRetina(bool flag);
    [[nodiscard]] bool retina() const { return retina_.load(); }
    [[nodiscard]] NSPoint sourceOrigin() const { return sourceOrigin_; }
    [[nodiscard]] NSSize sourceSize() const { return sourceSize_; }

    // The logical composition rectangle, origin (0, 0).
    [[nodiscard]] NSRect surfaceBounds() const;
    // The view's part of the composition in window coordinates.
    [[nodiscard]] NSRect physicalSurfaceBounds() const;
    // A view point in surface coordinates.
    [[nodiscard]] NSPoint surfaceQualityUpdatedPoint(const NSPoint& point) const;

    // A new frame: caches dropped when the size changes, elements told, full redraw.
    void setFrame(const NSRect& frame);
    // The context is reconfigured only by reshape().
    void update() {}
    // Viewport and projection for the current size, quality and retina setting; the pointer tracking area.
    void reshape();
    [[nodiscard]] bool needsReshape() const { return needsReshape_.load(); }
    [[nodiscard]] int32_t trackingRectTag() const { return trackingRectTag_; }

private:
    friend class VoCoreSurfaceRefreshThread;

    [[nodiscard]] std::vector<std::shared_ptr<VoCoreElement>> allElementsLocked() const;
    void postSurfaceDidBecomeEmpty();
    // The size the composition is built on before the quality scale.
    [[nodiscard]] NSSize frameSizeInWindow() const;
    static bool choosePixelFormat(VoSurfaceHost& host, const std::vector<int32_t>& full,
                                                const std::vector<int32_t>& reduced, VoPixelFormat* chosen);

    std::shared_ptr<VoSurfaceHost> host_;
    std::shared_ptr<VoClock> clock_;
    mutable std::recursive_mutex renderLock_;

    // Layer tables, guarded by renderLock_.
    std::map<int32_t, ElementList> coreElements_;
    std::unordered_map<std::string, int32_t> layerPerElement_;
    std::set<int32_t> dirtyLayers_;
    std::map<int32_t, std::shared_ptr<VoImageAccumulator>> layerCache_;
    std::set<int32_t> discreteLayers_;
    std::map<int32_t, NSAffineTransform> layerTransform_;
    std::map<int32_t, float> layerOpacity_;
    std::map<int32_t, CIImage> layerFilters_;

    // Frame state, guarded by renderLock_.
    bool coreContext_ = false;  // the host's drawing context exists
    CIImage coreSurface_;
    CIImage backgroundImage_;
    bool backgroundFlattened_ = false;
    std::optional<double> lastRender_;
    std::array<float, 5> fps_{};
    CIImage lastRenderImage_;
    bool doRenderSnapShot_ = false;
    CIImage renderSnapShot_;

    NSPoint sourceOrigin_;
    NSSize sourceSize_;
    std::atomic<bool> throttle_{false};
    std::atomic<bool> needsReshape_{false};
    std::atomic<bool> requiresFullRender_{true};
    bool hidesCursor_ = false;
    bool acceptFileNameDrop_ = false;
    bool disableInteraction_ = false;
    bool useOpenGLTransparancy_ = false;
    bool use64BitLayering_ = false;
    bool preventFlattening_ = false;
    bool synchronousDelegateCalls_ = false;
    bool allowsFullCopy_ = true;
    bool doubleBuffering_ = false;
    bool disableSingleDiscreteOptimization_ = false;
    bool disableCleaningLayers_ = false;
    uint32_t currentOperation_ = 0;
    VoCoreElement* dropElement_ = nullptr;

    mutable std::mutex refreshThreadMutex_;  // guards the pointer; a leaf lock
    std::shared_ptr<VoCoreSurfaceRefreshThread> refreshThread_;
    std::atomic<bool> animates_{false};

    std::atomic<int32_t> surfaceQuality_{0};
    int32_t composeMode_ = 0;
    int32_t trackingRectTag_ = 0;  // never assigned: reshape does not keep the tag it gets
    std::shared_ptr<VoCoreElement> mouseOverElement_, mouseDownElement_, selectedElement_;
    std::atomic<VoCoreSurfaceDelegate*> delegate_{nullptr};
    std::atomic<bool> retina_{false};
};

}  // namespace vo
