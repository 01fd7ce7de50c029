// SPDX-License-Identifier: MIT
// Layers: adding, moving and removing elements, dirty layers, per-layer settings, the selection.
#include "surface_test_support.h"

namespace vo::test {
namespace {

class LayersTest : public SurfaceTest {
protected:
    std::shared_ptr<CountingElement> element() { return VoCoreElement::create<CountingElement>(surface_); }
    std::vector<VoCoreElement*> listOf(int32_t layer) {
        std::vector<VoCoreElement*> out;
        if (const auto* list = surface_->coreElementsOnLayer(layer)) {
            for (const auto& e : *list) out.push_back(e.get());
        }
        return out;
    }
    void SetUp() override {
        SurfaceTest::SetUp();
        surface_ = makeSurface();
    }
    std::shared_ptr<VoCoreSurface> surface_;
};

TEST_F(LayersTest, AddingToAnotherLayerMovesTheElement) {
    auto e = element();
    surface_->addCoreElementOnLayer(e, 3);
    EXPECT_EQ(listOf(3), (std::vector<VoCoreElement*>{e.get()}));
    surface_->display();
    ASSERT_TRUE(surface_->dirtyLayers().empty());
    surface_->addCoreElementOnLayer(e, 5);
    EXPECT_EQ(surface_->coreElementsOnLayer(3), nullptr);
    EXPECT_EQ(listOf(5), (std::vector<VoCoreElement*>{e.get()}));
    EXPECT_EQ(surface_->layerNumbers(), (std::vector<int32_t>{5}));
    EXPECT_EQ(surface_->layerOfElement(e.get()), 5);
    EXPECT_EQ(surface_->dirtyLayers(), (std::set<int32_t>{3, 5}));
    EXPECT_EQ(e->removals, 1);
}

TEST_F(LayersTest, AddingTwiceToTheSameLayerLeavesOneOnTop) {
    auto e = element(), f = element();
    surface_->addCoreElementOnLayer(e, 1);
    surface_->addCoreElementOnLayer(f, 1);
    surface_->addCoreElementOnLayer(e, 1);
    EXPECT_EQ(listOf(1), (std::vector<VoCoreElement*>{f.get(), e.get()}));
    EXPECT_EQ(surface_->layerPerElementCount(), 2u);
}

TEST_F(LayersTest, AddingDropsCachesAndMarksForRendering) {
    auto e = element();
    (void)e->renderElement();
    ASSERT_TRUE(e->hasCache());
    surface_->addCoreElementOnLayer(e, 2);
    EXPECT_FALSE(e->hasCache());
    EXPECT_TRUE(e->requiresRendering());
    EXPECT_EQ(surface_->dirtyLayers(), (std::set<int32_t>{2}));
    EXPECT_TRUE(surface_->requiresFullRender());
}

TEST_F(LayersTest, ReaddingAnEffectStopsItsThread) {
    auto effect = makeEffect(surface_);
    surface_->addCoreElementOnLayer(effect, 1);
    EXPECT_FALSE(effect->isStopped());
    surface_->addCoreElementOnLayer(effect, 1);
    EXPECT_TRUE(effect->isStopped());
}

TEST_F(LayersTest, LayersAreOrderedByNumberAndElementsBottomToTop) {
    auto a = element(), b = element(), c = element();
    surface_->addCoreElementOnLayer(a, 10);
    surface_->addCoreElementOnLayer(b, -4);
    surface_->addCoreElementOnLayer(c, 10);
    EXPECT_EQ(surface_->layerNumbers(), (std::vector<int32_t>{-4, 10}));
    EXPECT_EQ(listOf(10), (std::vector<VoCoreElement*>{a.get(), c.get()}));
    surface_->moveCoreElementToTopOfLayer(a);
    EXPECT_EQ(listOf(10), (std::vector<VoCoreElement*>{c.get(), a.get()}));
}

TEST_F(LayersTest, MoveToTopOfAnElementOnNoLayerOnlyMarksIt) {
    auto e = element();
    (void)e->renderElement();
    surface_->moveCoreElementToTopOfLayer(e);
    EXPECT_TRUE(e->requiresRendering());
    EXPECT_TRUE(surface_->layerNumbers().empty());
    EXPECT_EQ(surface_->dirtyLayers(), (std::set<int32_t>{0}));
}

TEST_F(LayersTest, MovingAnElementNotOnTheSurfaceDoesNothing) {
    auto e = element();
    surface_->moveCoreElementToLayer(e, 4);
    EXPECT_TRUE(surface_->layerNumbers().empty());
    EXPECT_EQ(e->removals, 0);
    EXPECT_FALSE(surface_->layerOfElement(e.get()).has_value());
}

TEST_F(LayersTest, MovingTheSelectedElementKeepsTheSelectionQuietly) {
    int selects = 0, deselects = 0;
    VoCoreSurfaceDelegate delegate;
    delegate.surfaceDidSelectCoreElement = [&](VoCoreSurface*, VoCoreElement*) { ++selects; };
    delegate.surfaceDidDeselectCoreElement = [&](VoCoreSurface*, VoCoreElement*) { ++deselects; };
    surface_->setDelegate(&delegate);
    auto e = element();
    surface_->addCoreElementOnLayer(e, 1);
    ASSERT_TRUE(surface_->coreElementRequestSelection(e));
    ASSERT_EQ(e->selectedChanges, 1);
    surface_->moveCoreElementToLayer(e, 6);
    EXPECT_EQ(surface_->selectedElement(), e);
    EXPECT_TRUE(e->isSelected());
    EXPECT_EQ(e->selectedChanges, 1);
    EXPECT_EQ(selects, 1);
    EXPECT_EQ(deselects, 0);
    EXPECT_EQ(listOf(6), (std::vector<VoCoreElement*>{e.get()}));
    surface_->setDelegate(nullptr);
}

TEST_F(LayersTest, RemovingTheSelectedElementDeselectsIt) {
    int deselects = 0;
    VoCoreSurfaceDelegate delegate;
    delegate.surfaceDidDeselectCoreElement = [&](VoCoreSurface*, VoCoreElement*) { ++deselects; };
    surface_->setDelegate(&delegate);
    auto e = element();
    surface_->addCoreElementOnLayer(e, 1);
    ASSERT_TRUE(surface_->coreElementRequestSelection(e));
    surface_->removeCoreElement(e);
    EXPECT_EQ(surface_->selectedElement(), nullptr);
    EXPECT_FALSE(e->isSelected());
    EXPECT_EQ(deselects, 1);
    surface_->setDelegate(nullptr);
}

TEST_F(LayersTest, SelectingTheSelectedElementAnswersYesQuietly) {
    auto e = element(), f = element();
    surface_->addCoreElementOnLayer(e, 1);
    surface_->addCoreElementOnLayer(f, 1);
    EXPECT_TRUE(surface_->coreElementRequestSelection(e));
    EXPECT_TRUE(surface_->coreElementRequestSelection(e));
    EXPECT_EQ(e->selectedChanges, 1);
    EXPECT_TRUE(surface_->coreElementRequestSelection(f));
    EXPECT_FALSE(e->isSelected());
    EXPECT_TRUE(f->isSelected());
    EXPECT_FALSE(surface_->coreElementRequestSelection(nullptr));
    EXPECT_FALSE(f->isSelected());
    surface_->setDisableInteraction(true);
    EXPECT_FALSE(surface_->coreElementRequestSelection(e));
    EXPECT_FALSE(e->isSelected());
}

TEST_F(LayersTest, RemovingTheLastElementPostsEmptyOnce) {
    auto e = element(), f = element();
    surface_->addCoreElementOnLayer(e, 1);
    surface_->addCoreElementOnLayer(f, 2);
    pumpEvents();
    int empties = 0;
    VoCoreSurfaceDelegate delegate;
    delegate.surfaceDidBecomeEmpty = [&](VoCoreSurface* s) {
        EXPECT_EQ(s, surface_.get());
        ++empties;
    };
    surface_->setDelegate(&delegate);
    surface_->removeCoreElement(e);
    pumpEvents();
    EXPECT_EQ(empties, 0);
    surface_->removeCoreElement(f);
    EXPECT_EQ(empties, 0) << "posted, not sent";
    pumpEvents();
    EXPECT_EQ(empties, 1);
    EXPECT_EQ(e->removals, 1);
    EXPECT_EQ(f->removals, 1);
    surface_->setDelegate(nullptr);
}

TEST_F(LayersTest, MovingTheOnlyElementPostsEmpty) {
    auto e = element();
    surface_->addCoreElementOnLayer(e, 1);
    pumpEvents();
    int empties = 0;
    VoCoreSurfaceDelegate delegate;
    delegate.surfaceDidBecomeEmpty = [&](VoCoreSurface*) { ++empties; };
    surface_->setDelegate(&delegate);
    surface_->moveCoreElementToLayer(e, 2);
    pumpEvents();
    // Once by the move's removal, once by the add's own removal step, which also finds the surface empty.
    EXPECT_EQ(empties, 2);
    EXPECT_EQ(listOf(2), (std::vector<VoCoreElement*>{e.get()}));
    surface_->setDelegate(nullptr);
}

TEST_F(LayersTest, AddingToAnEmptySurfacePostsEmptyFromItsRemovalStep) {
    int empties = 0;
    VoCoreSurfaceDelegate delegate;
    delegate.surfaceDidBecomeEmpty = [&](VoCoreSurface*) { ++empties; };
    surface_->setDelegate(&delegate);
    surface_->addCoreElementOnLayer(element(), 1);
    pumpEvents();
    EXPECT_EQ(empties, 1);
    surface_->setDelegate(nullptr);
}

TEST_F(LayersTest, RemoveAllPostsNothingAndForgetsSettings) {
    auto e = element(), f = element();
    surface_->addCoreElementOnLayer(e, 1);
    surface_->addCoreElementOnLayer(f, 2);
    surface_->setOpacityForLayer(0.5f, 1);
    surface_->setTransformForLayer(NSAffineTransform::translation(1, 2), 2);
    surface_->addDiscreteLayer(1);
    pumpEvents();
    int empties = 0;
    VoCoreSurfaceDelegate delegate;
    delegate.surfaceDidBecomeEmpty = [&](VoCoreSurface*) { ++empties; };
    surface_->setDelegate(&delegate);
    surface_->removeAllCoreElements();
    pumpEvents();
    EXPECT_EQ(empties, 0);
    EXPECT_TRUE(surface_->layerNumbers().empty());
    EXPECT_EQ(surface_->layerPerElementCount(), 0u);
    EXPECT_TRUE(surface_->layerOpacities().empty());
    EXPECT_TRUE(surface_->layerTransforms().empty());
    EXPECT_TRUE(surface_->discreteLayers().empty());
    EXPECT_TRUE(surface_->dirtyLayers().empty());
    EXPECT_TRUE(surface_->requiresFullRender());
    EXPECT_EQ(e->removals, 1);
    EXPECT_EQ(f->removals, 1);
    surface_->setDelegate(nullptr);
}

TEST_F(LayersTest, RemoveKeepsLayerSettings) {
    auto e = element();
    surface_->addCoreElementOnLayer(e, 1);
    surface_->setOpacityForLayer(0.25f, 1);
    surface_->addDiscreteLayer(1);
    surface_->removeCoreElement(e);
    EXPECT_EQ(surface_->layerOpacities(), (std::map<int32_t, float>{{1, 0.25f}}));
    EXPECT_EQ(surface_->discreteLayers(), (std::set<int32_t>{1}));
    auto f = element();
    surface_->addCoreElementOnLayer(f, 1);
    EXPECT_TRUE(surface_->elementIsOnDiscreteLayer(f.get()));
}

TEST_F(LayersTest, RemovingNothingOrAnUnlistedElementIsHarmless) {
    surface_->removeCoreElement(nullptr);
    auto e = element(), f = element();
    surface_->addCoreElementOnLayer(e, 1);
    surface_->removeCoreElement(f);
    EXPECT_EQ(listOf(1), (std::vector<VoCoreElement*>{e.get()}));
    EXPECT_EQ(f->removals, 0);
}

TEST_F(LayersTest, NeedsDisplayForAnElementOnNoLayerMarksLayerZero) {
    auto e = element();
    surface_->setCoreElementNeedsDisplay(e.get());
    EXPECT_EQ(surface_->dirtyLayers(), (std::set<int32_t>{0}));
}

TEST_F(LayersTest, ElementOnNoLayerIsNotOnADiscreteLayer) {
    surface_->addDiscreteLayer(0);
    auto e = element();
    EXPECT_FALSE(surface_->elementIsOnDiscreteLayer(e.get()));
    surface_->addCoreElementOnLayer(e, 0);
    EXPECT_TRUE(surface_->elementIsOnDiscreteLayer(e.get()));
    surface_->addCoreElementOnLayer(e, 3);
    EXPECT_FALSE(surface_->elementIsOnDiscreteLayer(e.get()));
}

TEST_F(LayersTest, LayerSettingsScheduleRedraws) {
    auto host = hostOf(surface_);
    surface_->display();
    const int before = host->invalidations();
    surface_->setOpacityForLayer(0.5f, 3);
    surface_->clearOpacityForLayer(3);
    surface_->setTransformForLayer(NSAffineTransform::scale(2, 2), 3);
    surface_->clearTransformForLayer(3);
    EXPECT_EQ(host->invalidations() - before, 4);
    EXPECT_TRUE(surface_->requiresFullRender());
    EXPECT_TRUE(surface_->layerOpacities().empty());
    EXPECT_TRUE(surface_->layerTransforms().empty());
    surface_->addDiscreteLayer(9);
    EXPECT_EQ(surface_->dirtyLayers(), (std::set<int32_t>{9}));
}

TEST_F(LayersTest, ReplaceOpacitiesAndTransformsReplacesBothTables) {
    surface_->setOpacityForLayer(0.5f, 1);
    surface_->setTransformForLayer(NSAffineTransform::scale(2, 2), 1);
    surface_->replaceLayerOpacitiesAndTransforms({{4, 0.75f}, {5, 0.1f}}, {{6, NSAffineTransform::translation(3, 4)}});
    EXPECT_EQ(surface_->layerOpacities(), (std::map<int32_t, float>{{4, 0.75f}, {5, 0.1f}}));
    EXPECT_EQ(surface_->layerTransforms(),
              (std::map<int32_t, NSAffineTransform>{{6, NSAffineTransform::translation(3, 4)}}));
}

TEST_F(LayersTest, ElementsAreFiledUnderTheirDescription) {
    class Named : public CountingElement {
    public:
        using CountingElement::CountingElement;
        std::string description() const override { return name; }
        std::string name;
    };
    auto a = VoCoreElement::create<Named>(surface_);
    auto b = VoCoreElement::create<Named>(surface_);
    a->name = "same";
    b->name = "same";
    surface_->addCoreElementOnLayer(a, 1);
    surface_->addCoreElementOnLayer(b, 2);
    // One key for both: the reverse index holds the last one's layer.
    EXPECT_EQ(surface_->layerPerElementCount(), 1u);
    EXPECT_EQ(surface_->layerOfElement(a.get()), 2);
}

TEST_F(LayersTest, CoreElementRequestRemovalRemoves) {
    auto e = element();
    surface_->addCoreElementOnLayer(e, 1);
    surface_->coreElementRequestRemoval(e);
    EXPECT_TRUE(surface_->layerNumbers().empty());
}

}  // namespace
}  // namespace vo::test
