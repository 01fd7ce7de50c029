// SPDX-License-Identifier: MIT
// Elements: construction errors, the render cache, pointer/selection flags and hooks.
#include <chrono>
#include <future>
#include <thread>

#include "Common/Foundation/VoException.h"
#include "surface_test_support.h"

namespace vo::test {
namespace {

class ElementTest : public SurfaceTest {};

class PlainElement : public VoCoreElement {
public:
    PlainElement() : VoCoreElement() {}
    using VoCoreElement::VoCoreElement;
};

TEST_F(ElementTest, PlainConstructionRaises) {
    try {
        auto element = VoCoreElement::create<PlainElement>();
        FAIL() << "no exception";
    } catch (const VoException& e) {
        EXPECT_EQ(e.name(), "CoreElement not implemented correctly");
        EXPECT_EQ(e.reason(),
                  "CoreElement objects should be initted using the -(id)initWithSurface:(CoreSurface*)_surface method");
    }
}

TEST_F(ElementTest, BaseRenderRaises) {
    auto element = VoCoreElement::create<PlainElement>(makeSurface());
    try {
        (void)element->render();
        FAIL() << "no exception";
    } catch (const VoException& e) {
        EXPECT_EQ(e.name(), "CoreElement not implemented correctly");
        EXPECT_EQ(e.reason(), "-(CIImage*)render method not implemented");
    }
}

TEST_F(ElementTest, InitialState) {
    auto surface = makeSurface();
    auto element = VoCoreElement::create<CountingElement>(surface);
    EXPECT_EQ(element->surface(), surface);
    EXPECT_TRUE(element->requiresRendering());
    EXPECT_TRUE(element->doCache());
    EXPECT_FALSE(element->hasCache());
    EXPECT_FALSE(element->isSelected());
    EXPECT_FALSE(element->isMouseIn());
    EXPECT_FALSE(element->isDropHovering());
    EXPECT_EQ(element->lastMouseDown(), (NSPoint{0, 0}));
    EXPECT_EQ(element->delegate(), nullptr);
    // Made, not added.
    EXPECT_TRUE(surface->layerNumbers().empty());
}

TEST_F(ElementTest, DescriptionNamesClassAndAddress) {
    auto element = VoCoreElement::create<CountingElement>(makeSurface());
    const std::string description = element->description();
    EXPECT_EQ(description.rfind("<CountingElement: 0x", 0), 0u) << description;
    EXPECT_EQ(description.back(), '>');
    auto other = VoCoreElement::create<CountingElement>(element->surface());
    EXPECT_NE(other->description(), description);
}

TEST_F(ElementTest, CachedRenderIsReusedUntilRenderingIsRequired) {
    auto element = VoCoreElement::create<CountingElement>(makeSurface());
    const CIImage first = element->renderElement();
    // The render itself, not the flattened copy.
    EXPECT_EQ(first, element->image);
    EXPECT_EQ(element->renders, 1);
    EXPECT_FALSE(element->requiresRendering());
    EXPECT_TRUE(element->hasCache());
    const CIImage second = element->renderElement();
    EXPECT_EQ(element->renders, 1);
    EXPECT_FALSE(second.isNull());
    EXPECT_EQ(second.extent(), element->image.extent());
    element->setRequiresRendering();
    (void)element->renderElement();
    EXPECT_EQ(element->renders, 2);
}

TEST_F(ElementTest, DropCachesForcesRenderEvenWhenNotRequired) {
    auto element = VoCoreElement::create<CountingElement>(makeSurface());
    (void)element->renderElement();
    ASSERT_FALSE(element->requiresRendering());
    element->dropCaches();
    EXPECT_FALSE(element->hasCache());
    (void)element->renderElement();
    EXPECT_EQ(element->renders, 2);
}

TEST_F(ElementTest, WithoutCachingEveryRenderElementRenders) {
    auto element = VoCoreElement::create<CountingElement>(makeSurface());
    element->setDoCache(false);
    for (int i = 0; i < 3; ++i) (void)element->renderElement();
    EXPECT_EQ(element->renders, 3);
    EXPECT_FALSE(element->hasCache());
}

TEST_F(ElementTest, SetDoCacheKeepsAnExistingCache) {
    auto element = VoCoreElement::create<CountingElement>(makeSurface());
    (void)element->renderElement();
    element->setDoCache(false);
    EXPECT_TRUE(element->hasCache());
    (void)element->renderElement();  // not required, cache present: the cache
    EXPECT_EQ(element->renders, 1);
}

TEST_F(ElementTest, RenderElementWithoutSurfaceReturnsNothing) {
    auto element = VoCoreElement::create<CountingElement>(makeSurface());
    element->setSurface(nullptr);
    EXPECT_TRUE(element->renderElement().isNull());
    EXPECT_EQ(element->renders, 0);
    EXPECT_TRUE(element->requiresRendering());
}

TEST_F(ElementTest, RenderElementOnAdditiveElementRaisesBeforeTakingTheLock) {
    auto surface = makeSurface();
    auto element = VoCoreElement::create<AdditiveElement>(surface);
    // Another thread holds the surface lock: taking it would block this test.
    std::promise<void> locked, release;
    std::thread holder([&] {
        surface->requestSurfaceLock();
        locked.set_value();
        release.get_future().wait();
        surface->releaseSurfaceLock();
    });
    locked.get_future().wait();
    try {
        (void)element->renderElement();
        ADD_FAILURE() << "no exception";
    } catch (const VoException& e) {
        EXPECT_EQ(e.name(), "CoreElement usage implemented correctly");
        EXPECT_EQ(e.reason(),
                  "-renderElement method may not be called for element implementing the VoCoreAdditiveElementProtocol");
    }
    release.set_value();
    holder.join();
}

TEST_F(ElementTest, MouseInAndOutFireOnRealChangesOnly) {
    auto element = VoCoreElement::create<CountingElement>(makeSurface());
    element->mouseOut();
    EXPECT_EQ(element->mouseInChanges, 0);
    element->mouseIn();
    element->mouseIn();
    EXPECT_EQ(element->mouseInChanges, 1);
    EXPECT_TRUE(element->isMouseIn());
    element->mouseOut();
    element->mouseOut();
    EXPECT_EQ(element->mouseInChanges, 2);
    EXPECT_FALSE(element->isMouseIn());
}

TEST_F(ElementTest, DropHoveringFiresOnRealChangesOnly) {
    auto element = VoCoreElement::create<CountingElement>(makeSurface());
    element->dropHoveringOut();
    element->dropHoveringIn();
    element->dropHoveringIn();
    EXPECT_EQ(element->dropHoveringChanges, 1);
    EXPECT_TRUE(element->isDropHovering());
    element->dropHoveringOut();
    EXPECT_EQ(element->dropHoveringChanges, 2);
}

TEST_F(ElementTest, SetSelectedWithCurrentValueFiresNothing) {
    auto element = VoCoreElement::create<CountingElement>(makeSurface());
    element->setSelected(false);
    EXPECT_EQ(element->selectedChanges, 0);
    element->setSelected(true);
    element->setSelected(true);
    EXPECT_EQ(element->selectedChanges, 1);
    EXPECT_TRUE(element->isSelected());
}

TEST_F(ElementTest, ElementWithoutHitOverrideIsNeverHit) {
    auto element = VoCoreElement::create<PlainElement>(makeSurface());
    EXPECT_FALSE(element->hit(NSPoint{0, 0}));
    EXPECT_FALSE(element->hit(NSPoint{10, 10}));
    EXPECT_FALSE(element->hit(NSPoint{-1e9f, 1e9f}));
}

TEST_F(ElementTest, MouseDownStoresPointAndAsksForSelection) {
    auto surface = makeSurface();
    auto element = VoCoreElement::create<CountingElement>(surface);
    surface->addCoreElementOnLayer(element, 1);
    element->mouseDown(NSPoint{3, 4});
    EXPECT_EQ(element->lastMouseDown(), (NSPoint{3, 4}));
    EXPECT_EQ(surface->selectedElement(), element);
    EXPECT_TRUE(element->isSelected());
}

TEST_F(ElementTest, SetRequiresRenderingMarksItsLayerDirty) {
    auto surface = makeSurface();
    auto element = VoCoreElement::create<CountingElement>(surface);
    surface->addCoreElementOnLayer(element, 7);
    surface->display();
    ASSERT_TRUE(surface->dirtyLayers().empty());
    const int invalidations = hostOf(surface)->invalidations();
    element->setRequiresRendering();
    EXPECT_EQ(surface->dirtyLayers(), (std::set<int32_t>{7}));
    EXPECT_GT(hostOf(surface)->invalidations(), invalidations);
}

TEST_F(ElementTest, SurfaceBoundsUpdatedAsksForRendering) {
    auto element = VoCoreElement::create<CountingElement>(makeSurface());
    (void)element->renderElement();
    element->surfaceBoundsUpdated();
    EXPECT_TRUE(element->requiresRendering());
}

}  // namespace
}  // namespace vo::test
