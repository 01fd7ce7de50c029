// SPDX-License-Identifier: MIT
#include "Common/CoreGraphics/VoCoreElement.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <typeinfo>
#include <utility>

#include "Common/CoreGraphics/VoCoreSurface.h"
#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Common/Foundation/VoException.h"

namespace vo {

namespace {

// The class name without the namespace, as the platform's description shows it.
std::string className(const std::type_info& type) {
    int status = 0;
    char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
    std::string name = status == 0 && demangled ? demangled : type.name();
    std::free(demangled);
    if (const auto colon = name.rfind("::"); colon != std::string::npos) name.erase(0, colon + 2);
    return name;
}

// Holds the surface lock of a surface that may be absent.
class SurfaceLock {
public:
    explicit SurfaceLock(VoCoreSurface* surface) : surface_(surface) {
        if (surface_) surface_->requestSurfaceLock();
    }
    ~SurfaceLock() {
        if (surface_) surface_->releaseSurfaceLock();
    }
    SurfaceLock(const SurfaceLock&) = delete;
    SurfaceLock& operator=(const SurfaceLock&) = delete;

private:
    VoCoreSurface* surface_;
};

}  // namespace

VoCoreElement::VoCoreElement() {
    throw VoException(kNotImplementedName,
                      "CoreElement objects should be initted using the -(id)initWithSurface:(CoreSurface*)_surface "
                      "method");
}

VoCoreElement::VoCoreElement(std::shared_ptr<VoCoreSurface> surface) : surface_(std::move(surface)) {}

VoCoreElement::~VoCoreElement() = default;

std::string VoCoreElement::description() const {
    char address[32];
    std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
    std::string description = "<";
    description.append(className(typeid(*this))).append(": ").append(address).append(">");
    return description;
}

std::shared_ptr<VoCoreSurface> VoCoreElement::surface() const {
    std::lock_guard lock(surfaceMutex_);
    return surface_;
}

void VoCoreElement::setSurface(std::shared_ptr<VoCoreSurface> surface) {
    std::shared_ptr<VoCoreSurface> old;
    {
        std::lock_guard lock(surfaceMutex_);
        old = std::exchange(surface_, std::move(surface));
    }
    // `old` is released here, outside the pointer's mutex: it may be the surface's last owner.
}

CIImage VoCoreElement::render() {
    throw VoException(kNotImplementedName, "-(CIImage*)render method not implemented");
}

CIImage VoCoreElement::renderElement() {
    // Checked before anything else, the lock included.
    if (dynamic_cast<VoCoreAdditiveElementProtocol*>(this) != nullptr) {
        throw VoException(kUsageName,
                          "-renderElement method may not be called for element implementing the "
                          "VoCoreAdditiveElementProtocol");
    }
    const std::shared_ptr<VoCoreSurface> surface = this->surface();
    if (!surface) return CIImage();
    SurfaceLock lock(surface.get());
    if (!requiresRendering_.load() && !cache_.isNull()) return cache_;
    CIImage rendered = render();
    cache_ = CIImage();
    // Later frames get the flattened copy; this one gets the render itself.
    if (doCache_.load()) cache_ = VoCoreUtils::flattenCoreImage(rendered);
    requiresRendering_ = false;
    return rendered;
}

void VoCoreElement::setRequiresRendering() {
    requiresRendering_ = true;
    if (const std::shared_ptr<VoCoreSurface> surface = this->surface()) surface->setCoreElementNeedsDisplay(this);
}

void VoCoreElement::surfaceBoundsUpdated() { setRequiresRendering(); }

void VoCoreElement::setDoCache(bool flag) {
    const std::shared_ptr<VoCoreSurface> surface = this->surface();
    SurfaceLock lock(surface.get());
    doCache_ = flag;
}

void VoCoreElement::dropCaches() {
    const std::shared_ptr<VoCoreSurface> surface = this->surface();
    SurfaceLock lock(surface.get());
    cache_ = CIImage();
}

bool VoCoreElement::hasCache() const {
    const std::shared_ptr<VoCoreSurface> surface = this->surface();
    SurfaceLock lock(surface.get());
    return !cache_.isNull();
}

bool VoCoreElement::hit(const NSPoint& point) { return false; }

void VoCoreElement::mouseIn() {
    if (!mouseIn_.exchange(true)) mouseInStateChanged();
}

void VoCoreElement::mouseOut() {
    if (mouseIn_.exchange(false)) mouseInStateChanged();
}

void VoCoreElement::dropHoveringIn() {
    if (!dropHovering_.exchange(true)) dropHoveringStateChanged();
}

void VoCoreElement::dropHoveringOut() {
    if (dropHovering_.exchange(false)) dropHoveringStateChanged();
}

void VoCoreElement::mouseDown(const NSPoint& point) {
    lastMouseDown_ = point;
    if (const std::shared_ptr<VoCoreSurface> surface = this->surface()) {
        surface->coreElementRequestSelection(shared_from_this());
    }
}

void VoCoreElement::setSelected(bool flag) {
    if (selected_.exchange(flag) != flag) selectedStateChanged();
}

}  // namespace vo
