// SPDX-License-Identifier: MIT
// VoCoreElement: the base class of everything drawn on a VoCoreSurface, and VoCoreAdditiveElementProtocol,
// the interface of elements that transform the picture composed beneath them instead of producing one.
//
// An element belongs to one surface and lies on one numbered layer of it. It defines the life cycle, the
// render cache, the pointer/selection/drop flags and empty hooks for subclasses; it draws nothing itself.
//
// Ownership: an element owns (shares) its surface and the surface owns its elements; the surface's
// prepareEnd() and teardown break that cycle. Elements are always held by std::shared_ptr: make them with
// VoCoreElement::create<T>(...), which also finishes their set-up (an effect starts its timer thread there).
// The delegate is not owned.
//
// Threads: renderElement() runs on the drawing (main) thread; the cache and the doCache/requiresRendering
// decision are guarded by the surface's recursive lock (requestSurfaceLock/releaseSurfaceLock). The flags
// are single atomic bytes read and written without a lock, so timer threads may set them.
//
// Programming errors raise VoException with the texts below; nothing in the toolkit catches them.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "Common/CoreGraphics/VoGeometry.h"

namespace vo {

class VoCoreSurface;
class VoCoreEffect;

// Elements that transform the picture beneath them. Such an element is never asked for renderElement();
// the surface hands it the image composed so far and continues with the answer. Conforming classes also
// derive from VoCoreElement and keep all of its behaviour.
class VoCoreAdditiveElementProtocol {
public:
    virtual ~VoCoreAdditiveElementProtocol() = default;
    [[nodiscard]] virtual CIImage renderOverImage(const CIImage& image) = 0;
};

// The element delegate. Every operation is optional: an empty function is not called.
struct VoCoreElementDelegate {
    // Sent by an effect that requests its death, on the main thread.
    std::function<void(VoCoreEffect* effect)> effectCompleted;
};

class VoCoreElement : public std::enable_shared_from_this<VoCoreElement> {
public:
    inline static const std::string kNotImplementedName = "CoreElement not implemented correctly";
    inline static const std::string kUsageName = "CoreElement usage implemented correctly";

    // Plain construction is a programming error: raises kNotImplementedName, "CoreElement objects should be
    // initted using the -(id)initWithSurface:(CoreSurface*)_surface method".
    VoCoreElement();
    // Stores the surface; requiresRendering YES, doCache YES, debug NO. Does not add the element to the
    // surface (the caller does, with addCoreElementOnLayer).
    explicit VoCoreElement(std::shared_ptr<VoCoreSurface> surface);
    virtual ~VoCoreElement();
    VoCoreElement(const VoCoreElement&) = delete;
    VoCoreElement& operator=(const VoCoreElement&) = delete;

    // Makes an element held by a shared pointer and finishes its set-up (didInitialize()).
    template <class T, class... Args>
    [[nodiscard]] static std::shared_ptr<T> create(Args&&... args) {
        std::shared_ptr<T> element = std::make_shared<T>(std::forward<Args>(args)...);
        static_cast<VoCoreElement&>(*element).didInitialize();
        return element;
    }

    // The identity key the surface files the element under: "<ClassName: 0xADDRESS>" unless overridden.
    // Overrides must stay unique per element.
    [[nodiscard]] virtual std::string description() const;

    [[nodiscard]] std::shared_ptr<VoCoreSurface> surface() const;
    void setSurface(std::shared_ptr<VoCoreSurface> surface);  // null allowed
    // Not owned.
    void setDelegate(VoCoreElementDelegate* delegate) { delegate_.store(delegate); }
    [[nodiscard]] VoCoreElementDelegate* delegate() const { return delegate_.load(); }
    void setDebugMode(bool flag) { debug_ = flag; }

    // Rendering. render() is abstract (the base raises kNotImplementedName, "-(CIImage*)render method not
    // implemented"); renderElement() is the surface's entry point: the cached flattened copy of the last
    // render while nothing asked for re-rendering, else a fresh render(). Nothing without a surface.
    [[nodiscard]] virtual CIImage render();
    [[nodiscard]] CIImage renderElement();
    // Marks the element stale and asks the surface to redraw its layer. Any thread.
    void setRequiresRendering();
    [[nodiscard]] bool requiresRendering() const { return requiresRendering_.load(); }
    // Called when the surface's frame changes; the base asks for re-rendering.
    virtual void surfaceBoundsUpdated();
    // Under the surface lock. setDoCache keeps an existing cache; dropCaches forgets it.
    void setDoCache(bool flag);
    [[nodiscard]] bool doCache() const { return doCache_.load(); }
    void dropCaches();
    [[nodiscard]] bool hasCache() const;

    // Hit testing and pointer state, called by the surface. The base hit() answers NO.
    [[nodiscard]] virtual bool hit(const NSPoint& point);
    void mouseIn();
    void mouseOut();
    [[nodiscard]] bool isMouseIn() const { return mouseIn_.load(); }
    void dropHoveringIn();
    void dropHoveringOut();
    [[nodiscard]] bool isDropHovering() const { return dropHovering_.load(); }
    // Stores the point and asks the surface to select the element.
    virtual void mouseDown(const NSPoint& point);
    [[nodiscard]] NSPoint lastMouseDown() const { return lastMouseDown_; }

    // Selection: a real change fires selectedStateChanged().
    void setSelected(bool flag);
    [[nodiscard]] bool isSelected() const { return selected_.load(); }

    // Hooks, empty in the base.
    virtual void mouseInStateChanged() {}
    virtual void dropHoveringStateChanged() {}
    virtual void mouseUp() {}
    virtual void mouseDragged(const NSPoint& point) {}
    virtual void selectedStateChanged() {}
    // Called by the surface after taking the element out of its layers.
    virtual void removedFromSurface(VoCoreSurface* surface) {}

protected:
    // Runs once, right after create() has made the element; the base does nothing.
    virtual void didInitialize() {}
    [[nodiscard]] bool debugMode() const { return debug_; }

private:
    bool debug_ = false;
    std::atomic<bool> doCache_{true};
    std::atomic<bool> requiresRendering_{true};
    CIImage cache_;  // guarded by the surface lock
    mutable std::mutex surfaceMutex_;  // guards the pointer itself: timer threads read it
    std::shared_ptr<VoCoreSurface> surface_;
    std::atomic<bool> selected_{false};
    std::atomic<bool> mouseIn_{false};
    std::atomic<bool> dropHovering_{false};
    NSPoint lastMouseDown_;
    std::atomic<VoCoreElementDelegate*> delegate_{nullptr};
};

}  // namespace vo
