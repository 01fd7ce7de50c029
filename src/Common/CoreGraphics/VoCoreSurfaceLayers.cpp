// SPDX-License-Identifier: MIT
// VoCoreSurface: layer bookkeeping (which element lies on which layer, in which order), per-layer
// settings, dirty layers, and the selection that removals and moves keep consistent.
#include <algorithm>

#include "Common/CoreGraphics/VoCoreSurface.h"
#include "Common/CoreGraphics/VoCoreSurfaceMainThread.h"
#include "Common/CoreGraphics/VoImageAccumulator.h"

namespace vo {

void VoCoreSurface::addCoreElementOnLayer(const std::shared_ptr<VoCoreElement>& element, int32_t layer) {
    std::lock_guard lock(renderLock_);
    // Keeps the element alive while it is out of every list.
    const std::shared_ptr<VoCoreElement> keep = element;
    removeCoreElement(keep);
    ElementList& list = coreElements_[layer];
    if (list.empty()) list.reserve(10);
    list.push_back(keep);
    layerPerElement_[keep->description()] = layer;
    keep->dropCaches();
    keep->setRequiresRendering();
}

void VoCoreSurface::moveCoreElementToTopOfLayer(const std::shared_ptr<VoCoreElement>& element) {
    std::lock_guard lock(renderLock_);
    for (auto& [layer, list] : coreElements_) {
        const auto it = std::find(list.begin(), list.end(), element);
        if (it == list.end()) continue;
        list.erase(std::remove(list.begin(), list.end(), element), list.end());
        list.push_back(element);
    }
    element->setRequiresRendering();
}

void VoCoreSurface::moveCoreElementToLayer(const std::shared_ptr<VoCoreElement>& element, int32_t layer) {
    std::lock_guard lock(renderLock_);
    if (!element || !layerPerElement_.count(element->description())) return;
    // The selection is taken aside without notifications so that the removal does not deselect it.
    const bool wasSelected = selectedElement_ == element;
    if (wasSelected) selectedElement_.reset();
    const std::shared_ptr<VoCoreElement> keep = element;
    removeCoreElement(keep);
    addCoreElementOnLayer(keep, layer);
    if (wasSelected) selectedElement_ = keep;
}

void VoCoreSurface::removeCoreElement(const std::shared_ptr<VoCoreElement>& element) {
    if (!element) return;
    std::lock_guard lock(renderLock_);
    if (selectedElement_ == element) coreElementRequestSelection(nullptr);
    const std::string key = element->description();
    if (const auto it = layerPerElement_.find(key); it != layerPerElement_.end()) {
        setNeedsDisplayOnLayer(it->second);
    }
    layerPerElement_.erase(key);
    for (auto it = coreElements_.begin(); it != coreElements_.end(); ++it) {
        ElementList& list = it->second;
        if (std::find(list.begin(), list.end(), element) == list.end()) continue;
        // The hook runs while the list still holds the element.
        element->removedFromSurface(this);
        list.erase(std::remove(list.begin(), list.end(), element), list.end());
        if (list.empty()) coreElements_.erase(it);
        break;
    }
    if (coreElements_.empty()) postSurfaceDidBecomeEmpty();
    setNeedsDisplayInternal();
}

void VoCoreSurface::postSurfaceDidBecomeEmpty() {
    VoCoreSurfaceDelegate* delegate = delegate_.load();
    if (!delegate || !delegate->surfaceDidBecomeEmpty) return;
    // Posted, not waited for: the notice leaves the lock. The weak reference skips it when the surface is
    // gone by then.
    std::weak_ptr<VoCoreSurface> weak = weak_from_this();
    VoCoreSurfaceMainThread::perform(
        [weak, delegate] {
            if (std::shared_ptr<VoCoreSurface> surface = weak.lock()) delegate->surfaceDidBecomeEmpty(surface.get());
        },
        false);
}

void VoCoreSurface::coreElementRequestRemoval(const std::shared_ptr<VoCoreElement>& element) {
    removeCoreElement(element);
}

std::vector<std::shared_ptr<VoCoreElement>> VoCoreSurface::allElementsLocked() const {
    std::vector<std::shared_ptr<VoCoreElement>> all;
    for (const auto& [layer, list] : coreElements_) all.insert(all.end(), list.begin(), list.end());
    return all;
}

void VoCoreSurface::removeAllCoreElements() {
    std::lock_guard lock(renderLock_);
    if (selectedElement_) coreElementRequestSelection(nullptr);
    // A snapshot: the hooks may call back into the surface.
    for (const std::shared_ptr<VoCoreElement>& element : allElementsLocked()) {
        element->dropCaches();
        element->removedFromSurface(this);
    }
    coreElements_.clear();
    layerPerElement_.clear();
    discreteLayers_.clear();
    dirtyLayers_.clear();
    if (!disableCleaningLayers_) layerCache_.clear();
    layerTransform_.clear();
    layerOpacity_.clear();
    layerFilters_.clear();
    requiresFullRender_ = true;
    setNeedsDisplayInternal();
}

const VoCoreSurface::ElementList* VoCoreSurface::coreElementsOnLayer(int32_t layer) const {
    const auto it = coreElements_.find(layer);
    return it == coreElements_.end() ? nullptr : &it->second;
}

void VoCoreSurface::addDiscreteLayer(int32_t layer) {
    {
        std::lock_guard lock(renderLock_);
        discreteLayers_.insert(layer);
    }
    setNeedsDisplayOnLayer(layer);
    setNeedsDisplayInternal();
}

bool VoCoreSurface::elementIsOnDiscreteLayer(const VoCoreElement* element) const {
    std::lock_guard lock(renderLock_);
    for (const auto& [layer, list] : coreElements_) {
        const bool listed = std::any_of(list.begin(), list.end(), [&](const auto& e) { return e.get() == element; });
        if (listed) return discreteLayers_.count(layer) > 0;
    }
    return false;
}

void VoCoreSurface::setOpacityForLayer(float opacity, int32_t layer) {
    {
        std::lock_guard lock(renderLock_);
        layerOpacity_[layer] = opacity;
    }
    setNeedsDisplayInternal();
}

void VoCoreSurface::clearOpacityForLayer(int32_t layer) {
    {
        std::lock_guard lock(renderLock_);
        layerOpacity_.erase(layer);
    }
    setNeedsDisplayInternal();
}

void VoCoreSurface::setTransformForLayer(const NSAffineTransform& transform, int32_t layer) {
    {
        std::lock_guard lock(renderLock_);
        layerTransform_[layer] = transform;
    }
    setNeedsDisplayInternal();
}

void VoCoreSurface::clearTransformForLayer(int32_t layer) {
    {
        std::lock_guard lock(renderLock_);
        layerTransform_.erase(layer);
    }
    setNeedsDisplayInternal();
}

void VoCoreSurface::replaceLayerOpacitiesAndTransforms(const std::map<int32_t, float>& opacities,
                                                       const std::map<int32_t, NSAffineTransform>& transforms) {
    {
        std::lock_guard lock(renderLock_);
        layerTransform_ = transforms;
        layerOpacity_ = opacities;
    }
    setNeedsDisplayInternal();
}

void VoCoreSurface::setNeedsDisplayOnLayer(int32_t layer) {
    std::lock_guard lock(renderLock_);
    dirtyLayers_.insert(layer);
    setNeedsDisplayInternal();
}

void VoCoreSurface::setCoreElementNeedsDisplay(const VoCoreElement* element) {
    // The lookup is made under the lock too: timer threads reach here while the main thread changes the
    // tables. An element on no layer reads as layer 0.
    std::lock_guard lock(renderLock_);
    const auto it = layerPerElement_.find(element->description());
    setNeedsDisplayOnLayer(it == layerPerElement_.end() ? 0 : it->second);
}

std::vector<int32_t> VoCoreSurface::layerNumbers() const {
    std::lock_guard lock(renderLock_);
    std::vector<int32_t> numbers;
    for (const auto& [layer, list] : coreElements_) numbers.push_back(layer);
    return numbers;
}

std::optional<int32_t> VoCoreSurface::layerOfElement(const VoCoreElement* element) const {
    std::lock_guard lock(renderLock_);
    const auto it = layerPerElement_.find(element->description());
    if (it == layerPerElement_.end()) return std::nullopt;
    return it->second;
}

size_t VoCoreSurface::layerPerElementCount() const {
    std::lock_guard lock(renderLock_);
    return layerPerElement_.size();
}

std::set<int32_t> VoCoreSurface::dirtyLayers() const {
    std::lock_guard lock(renderLock_);
    return dirtyLayers_;
}

std::set<int32_t> VoCoreSurface::discreteLayers() const {
    std::lock_guard lock(renderLock_);
    return discreteLayers_;
}

std::map<int32_t, float> VoCoreSurface::layerOpacities() const {
    std::lock_guard lock(renderLock_);
    return layerOpacity_;
}

std::map<int32_t, NSAffineTransform> VoCoreSurface::layerTransforms() const {
    std::lock_guard lock(renderLock_);
    return layerTransform_;
}

size_t VoCoreSurface::layerCacheCount() const {
    std::lock_guard lock(renderLock_);
    return layerCache_.size();
}

bool VoCoreSurface::coreElementRequestSelection(const std::shared_ptr<VoCoreElement>& element) {
    std::lock_guard lock(renderLock_);
    return _coreElementRequestSelection(element);
}

bool VoCoreSurface::_coreElementRequestSelection(const std::shared_ptr<VoCoreElement>& element) {
    if (disableInteraction_) return false;
    if (selectedElement_ == element) return true;  // also nil while nothing is selected
    if (std::shared_ptr<VoCoreElement> old = std::move(selectedElement_)) {
        selectedElement_.reset();
        old->setSelected(false);
        surfaceDidDeselectCoreElement(old.get());
    }
    if (!element) return false;
    selectedElement_ = element;
    element->setSelected(true);
    surfaceDidSelectCoreElement(element.get());
    return true;
}

void VoCoreSurface::surfaceDidSelectCoreElement(VoCoreElement* element) {
    VoCoreSurfaceDelegate* delegate = delegate_.load();
    if (delegate && delegate->surfaceDidSelectCoreElement) delegate->surfaceDidSelectCoreElement(this, element);
}

void VoCoreSurface::surfaceDidDeselectCoreElement(VoCoreElement* element) {
    VoCoreSurfaceDelegate* delegate = delegate_.load();
    if (delegate && delegate->surfaceDidDeselectCoreElement) delegate->surfaceDidDeselectCoreElement(this, element);
}

std::shared_ptr<VoCoreElement> VoCoreSurface::selectedElement() const {
    std::lock_guard lock(renderLock_);
    return selectedElement_;
}

}  // namespace vo
