// SPDX-License-Identifier: MIT
// Geometry: quality and retina, surface/physical bounds, point mapping, frame changes, reshape.
#include "surface_test_support.h"

namespace vo::test {
namespace {

class GeometryTest : public SurfaceTest {
protected:
    std::shared_ptr<VoCoreSurface> withSource(const NSRect& frame, const NSPoint& origin, const NSSize& size) {
        auto host = std::make_shared<VoSurfaceHostHeadless>(frame);
        auto surface = VoCoreSurface::initWithFrameSourceOriginSourceSizeUseOpenGL(host, frame, origin, size, true);
        surface->setClock(clock_);
        surfaces_.push_back(surface);
        return surface;
    }
};

TEST_F(GeometryTest, CompositionFollowsTheViewWithoutSourceSize) {
    auto surface = makeSurface(NSRect{{0, 0}, {400, 300}});
    EXPECT_EQ(surface->surfaceBounds(), (NSRect{{0, 0}, {400, 300}}));
    surface->setFrame(NSRect{{0, 0}, {640, 480}});
    EXPECT_EQ(surface->surfaceBounds(), (NSRect{{0, 0}, {640, 480}}));
}

TEST_F(GeometryTest, SourceSizeFixesTheComposition) {
    auto surface = withSource(NSRect{{0, 0}, {400, 300}}, NSPoint{}, NSSize{100, 80});
    EXPECT_EQ(surface->surfaceBounds(), (NSRect{{0, 0}, {100, 80}}));
    surface->setFrame(NSRect{{0, 0}, {640, 480}});
    EXPECT_EQ(surface->surfaceBounds(), (NSRect{{0, 0}, {100, 80}}));
}

TEST_F(GeometryTest, SurfaceBoundsFollowTheWindowScale) {
    auto surface = makeSurface(NSRect{{0, 0}, {400, 300}});
    hostOf(surface)->setWindowScale(2);
    EXPECT_EQ(surface->surfaceBounds(), (NSRect{{0, 0}, {800, 600}}));
}

TEST_F(GeometryTest, HalfQualityHalvesBoundsAndPoints) {
    auto surface = makeSurface(NSRect{{0, 0}, {400, 300}});
    surface->setCoreSurfaceQuality(1);
    EXPECT_EQ(surface->surfaceBounds(), (NSRect{{0, 0}, {200, 150}}));
    EXPECT_EQ(surface->surfaceQualityUpdatedPoint(NSPoint{100, 50}), (NSPoint{50, 25}));
    EXPECT_EQ(surface->surfaceQualityUpdatedPoint(NSPoint{100, 60}), (NSPoint{50, 30}));
}

TEST_F(GeometryTest, ThirdQualityAndRetina) {
    auto surface = makeSurface(NSRect{{0, 0}, {300, 150}});
    surface->setCoreSurfaceQuality(2);
    EXPECT_EQ(surface->surfaceBounds(), (NSRect{{0, 0}, {100, 50}}));
    EXPECT_EQ(surface->surfaceQualityUpdatedPoint(NSPoint{30, 9}), (NSPoint{10, 3}));
    surface->setRetina(true);  // only doubles at quality 0
    EXPECT_EQ(surface->surfaceBounds(), (NSRect{{0, 0}, {100, 50}}));
    surface->setCoreSurfaceQuality(0);
    EXPECT_EQ(surface->surfaceBounds(), (NSRect{{0, 0}, {600, 300}}));
    EXPECT_EQ(surface->surfaceQualityUpdatedPoint(NSPoint{3, 4}), (NSPoint{6, 8}));
}

TEST_F(GeometryTest, UnknownQualityLogsAndUsesTheUnscaledSize) {
    auto surface = makeSurface(NSRect{{5, 5}, {400, 300}});
    surface->setCoreSurfaceQuality(7);
    LogCapture log;
    EXPECT_EQ(surface->surfaceBounds(), (NSRect{{0, 0}, {400, 300}}));
    EXPECT_EQ(surface->physicalSurfaceBounds(), (NSRect{{0, 0}, {400, 300}}));
    EXPECT_EQ(surface->surfaceQualityUpdatedPoint(NSPoint{9, 8}), (NSPoint{9, 8}));
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"Failure to return surfaceBounds",
                                                        "Failure to return surfaceBounds",
                                                        "Failure to return surfaceQualityUpdatedPoint"}));
}

TEST_F(GeometryTest, PhysicalBoundsAlwaysUseTheViewSize) {
    auto plain = makeSurface(NSRect{{10, 20}, {400, 300}});
    EXPECT_EQ(plain->physicalSurfaceBounds(), (NSRect{{0, 0}, {400, 300}}));
    plain->setCoreSurfaceQuality(1);
    EXPECT_EQ(plain->physicalSurfaceBounds(), (NSRect{{0, 0}, {200, 150}}));

    auto sourced = withSource(NSRect{{10, 20}, {400, 300}}, NSPoint{60, 30}, NSSize{100, 100});
    EXPECT_EQ(sourced->physicalSurfaceBounds(), (NSRect{{70, 50}, {400, 300}}));
    sourced->setCoreSurfaceQuality(2);
    EXPECT_EQ(sourced->physicalSurfaceBounds(), (NSRect{{30, 30}, {400.0f / 3, 100}}));
    sourced->setCoreSurfaceQuality(0);
    sourced->setRetina(true);
    EXPECT_EQ(sourced->physicalSurfaceBounds(), (NSRect{{70, 50}, {800, 600}}));
}

TEST_F(GeometryTest, SameQualityDoesNothing) {
    auto surface = makeSurface();
    auto e = VoCoreElement::create<CountingElement>(surface);
    surface->addCoreElementOnLayer(e, 1);
    surface->display();
    (void)e->renderElement();
    ASSERT_TRUE(e->hasCache());
    const int invalidations = hostOf(surface)->invalidations();
    surface->setCoreSurfaceQuality(0);
    EXPECT_TRUE(e->hasCache());
    EXPECT_FALSE(e->requiresRendering());
    EXPECT_FALSE(surface->needsReshape());
    EXPECT_TRUE(hostOf(surface)->hasDrawingContext());
    EXPECT_EQ(hostOf(surface)->invalidations(), invalidations);
}

TEST_F(GeometryTest, NewQualityDropsEveryCacheAndFlagsReshape) {
    auto surface = makeSurface();
    auto e = VoCoreElement::create<CountingElement>(surface);
    surface->addCoreElementOnLayer(e, 1);
    surface->display();
    (void)e->renderElement();
    surface->setCoreSurfaceQuality(1);
    EXPECT_FALSE(e->hasCache());
    EXPECT_TRUE(e->requiresRendering());
    EXPECT_TRUE(surface->needsReshape());
    EXPECT_FALSE(hostOf(surface)->hasDrawingContext());
    EXPECT_EQ(surface->dirtyLayers(), (std::set<int32_t>{1}));
    // The next frame reshapes.
    surface->display();
    EXPECT_FALSE(surface->needsReshape());
}

TEST_F(GeometryTest, RetinaChangeFlagsReshapeAndInvalidates) {
    auto surface = makeSurface();
    const int invalidations = hostOf(surface)->invalidations();
    surface->setRetina(false);
    EXPECT_EQ(hostOf(surface)->invalidations(), invalidations);
    surface->setRetina(true);
    EXPECT_TRUE(surface->needsReshape());
    EXPECT_EQ(hostOf(surface)->invalidations(), invalidations + 1);
}

TEST_F(GeometryTest, FrameSizeChangeDropsCachesAndTellsElements) {
    auto surface = makeSurface(NSRect{{0, 0}, {400, 300}});
    auto e = VoCoreElement::create<CountingElement>(surface);
    surface->addCoreElementOnLayer(e, 1);
    surface->display();
    (void)e->renderElement();
    surface->setFrame(NSRect{{0, 0}, {500, 300}});
    EXPECT_FALSE(e->hasCache());
    EXPECT_EQ(e->boundsUpdates, 1);
    EXPECT_TRUE(surface->needsReshape());
    EXPECT_TRUE(surface->requiresFullRender());
    EXPECT_FALSE(hostOf(surface)->hasDrawingContext());
    EXPECT_EQ(hostOf(surface)->frame(), (NSRect{{0, 0}, {500, 300}}));
}

TEST_F(GeometryTest, FrameMoveKeepsCachesButTellsElements) {
    auto surface = makeSurface(NSRect{{0, 0}, {400, 300}});
    auto e = VoCoreElement::create<CountingElement>(surface);
    surface->addCoreElementOnLayer(e, 1);
    surface->display();
    (void)e->renderElement();
    const int invalidations = hostOf(surface)->invalidations();
    surface->setFrame(NSRect{{30, 40}, {400, 300}});
    EXPECT_TRUE(e->hasCache()) << "the element's own cache; it only asks for rendering";
    EXPECT_EQ(e->boundsUpdates, 1);
    EXPECT_FALSE(surface->needsReshape());
    EXPECT_TRUE(hostOf(surface)->hasDrawingContext());
    EXPECT_GT(hostOf(surface)->invalidations(), invalidations);
    EXPECT_EQ(hostOf(surface)->frame().origin, (NSPoint{30, 40}));
}

TEST_F(GeometryTest, ReshapeSetsViewportAndProjectionPerQuality) {
    auto surface = makeSurface(NSRect{{0, 0}, {400, 300}});
    auto host = hostOf(surface);
    using P = VoSurfaceHostHeadless::Projection;
    using V = VoSurfaceHostHeadless::Viewport;
    surface->reshape();
    EXPECT_EQ(host->viewport(), (V{0, 0, 400, 300}));
    EXPECT_EQ(host->projection(), (P{0, 400, 0, 300, -1, 1}));
    EXPECT_EQ(host->wantsBestResolution(), false);
    surface->setCoreSurfaceQuality(1);
    surface->reshape();
    EXPECT_EQ(host->viewport(), (V{0, 0, 400, 300}));
    EXPECT_EQ(host->projection(), (P{0, 200, 0, 150, -1, 1}));
    surface->setCoreSurfaceQuality(2);
    surface->reshape();
    EXPECT_EQ(host->projection(), (P{0, 400.0 / 3, 0, 100, -1, 1}));
    surface->setCoreSurfaceQuality(0);
    surface->setRetina(true);
    surface->reshape();
    EXPECT_EQ(host->viewport(), (V{0, 0, 800, 600}));
    EXPECT_EQ(host->projection(), (P{0, 800, 0, 600, -1, 1}));
    EXPECT_EQ(host->wantsBestResolution(), true);
    EXPECT_FALSE(surface->needsReshape());
    surface->setCoreSurfaceQuality(5);
    surface->reshape();
    EXPECT_FALSE(host->projection().has_value()) << "an unknown quality sets no projection";
}

TEST_F(GeometryTest, ReshapeSetsContextParameters) {
    auto surface = makeSurface();
    auto host = hostOf(surface);
    surface->reshape();
    using Params = std::vector<std::pair<int32_t, int32_t>>;
    EXPECT_EQ(host->contextParameters(), (Params{{222, 1}}));
    surface->setUsesOpenGLTransparancy(true);
    surface->reshape();
    EXPECT_EQ(host->contextParameters(), (Params{{222, 1}, {236, 0}, {222, 1}}));
}

TEST_F(GeometryTest, ReshapeOffScreenOnlyBeforeTheFirstDraw) {
    auto surface = makeSurface();
    auto host = hostOf(surface);
    host->setHidden(true);
    surface->reshape();
    EXPECT_TRUE(host->viewport().has_value()) << "first set-up";
    surface->display();
    host->resetRecords();
    surface->reshape();
    EXPECT_FALSE(host->viewport().has_value());
    EXPECT_EQ(host->trackingRectsAdded(), 0);
    host->setHidden(false);
    host->setWindowVisible(false);
    surface->reshape();
    EXPECT_FALSE(host->viewport().has_value());
    host->setWindowVisible(true);
    surface->reshape();
    EXPECT_TRUE(host->viewport().has_value());
}

TEST_F(GeometryTest, ReshapeWithAContextThatIsNotCurrentDoesNothing) {
    auto surface = makeSurface();
    auto host = hostOf(surface);
    host->setOpenGLContextIsCurrent(false);
    surface->reshape();
    EXPECT_FALSE(host->viewport().has_value());
    EXPECT_EQ(host->trackingRectsAdded(), 0);
}

TEST_F(GeometryTest, ReshapeWithoutContextStillInstallsTracking) {
    auto surface = makeSurface();
    auto host = hostOf(surface);
    host->setHasOpenGLContext(false);
    surface->setRetina(true);
    surface->reshape();
    EXPECT_FALSE(host->viewport().has_value());
    EXPECT_TRUE(surface->needsReshape());
    EXPECT_EQ(host->trackingRectsAdded(), 1);
    EXPECT_TRUE(host->acceptsMouseMovedEvents());
}

TEST_F(GeometryTest, TrackingTagIsNeverKept) {
    auto surface = makeSurface();
    auto host = hostOf(surface);
    surface->reshape();
    surface->reshape();
    EXPECT_EQ(host->trackingRectsAdded(), 2);
    EXPECT_TRUE(host->trackingRectsRemoved().empty());
    EXPECT_EQ(surface->trackingRectTag(), 0);
    surface->setDisableInteraction(true);
    surface->reshape();
    EXPECT_EQ(host->trackingRectsAdded(), 2);
}

TEST_F(GeometryTest, MovingIntoAWindowReshapes) {
    auto surface = makeSurface();
    surface->viewWillMoveToWindow();
    surface->viewDidMoveToWindow();
    EXPECT_TRUE(hostOf(surface)->viewport().has_value());
}

TEST_F(GeometryTest, DrawShiftsTheDestinationBySourceOrigin) {
    auto surface = withSource(NSRect{{0, 0}, {400, 300}}, NSPoint{40, 20}, NSSize{0, 0});
    surface->setCoreSurfaceQuality(1);
    surface->display();
    EXPECT_EQ(hostOf(surface)->lastDrawInRect(), (CGRect{-20, -10, 200, 150}));
}

}  // namespace
}  // namespace vo::test
