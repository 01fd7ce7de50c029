// SPDX-License-Identifier: MIT
// Construction: the initialisers, their defaults, pixel formats with their fallbacks and log lines.
#include "surface_test_support.h"

namespace vo::test {
namespace {

using Attributes = std::vector<int32_t>;
const Attributes kFull32 = {73, 72, 12, 0, 13, 0, 14, 0, 8, 32, 0};
const Attributes kFull16 = {73, 72, 12, 0, 13, 0, 14, 0, 8, 16, 0};
const Attributes kReduced = {73, 72, 8, 32, 0};
const Attributes kDouble = {73, 72, 5, 12, 0, 13, 0, 14, 0, 8, 32, 0};
const Attributes kDoubleReduced = {73, 72, 5, 8, 32, 0};
const NSRect kFrame{{10, 20}, {400, 300}};

class ConstructionTest : public SurfaceTest {
protected:
    void TearDown() override {
        for (auto& surface : made_) surface->prepareEnd();
        made_.clear();
        SurfaceTest::TearDown();
    }
    std::shared_ptr<VoSurfaceHostHeadless> host_ = std::make_shared<VoSurfaceHostHeadless>();
    std::vector<std::shared_ptr<VoCoreSurface>> made_;
    std::shared_ptr<VoCoreSurface> keep(std::shared_ptr<VoCoreSurface> s) {
        made_.push_back(s);
        return s;
    }
};

TEST_F(ConstructionTest, DefaultsAfterConstruction) {
    auto surface = keep(VoCoreSurface::initWithFrame(host_, kFrame));
    EXPECT_EQ(host_->attachedSurface(), surface.get());
    EXPECT_EQ(host_->frame(), kFrame);
    EXPECT_EQ(surface->coreSurfaceQuality(), 0);
    EXPECT_TRUE(surface->requiresFullRender());
    EXPECT_TRUE(surface->allowsFullCopy());
    EXPECT_FALSE(surface->throttle());
    EXPECT_FALSE(surface->usesDoubleBuffer());
    EXPECT_FALSE(surface->animates());
    EXPECT_FALSE(surface->retina());
    EXPECT_FALSE(surface->needsReshape());
    EXPECT_FALSE(surface->hasCoreContext());
    EXPECT_TRUE(surface->isOpaque());
    EXPECT_EQ(surface->sourceOrigin(), (NSPoint{0, 0}));
    EXPECT_EQ(surface->sourceSize(), (NSSize{0, 0}));
    EXPECT_EQ(surface->delegate(), nullptr);
    EXPECT_EQ(surface->trackingRectTag(), 0);
    EXPECT_TRUE(surface->layerNumbers().empty());
    surface->setUsesOpenGLTransparancy(true);
    EXPECT_FALSE(surface->isOpaque());
}

TEST_F(ConstructionTest, FullPixelFormatFirst) {
    LogCapture log;
    keep(VoCoreSurface::initWithFrame(host_, kFrame));
    EXPECT_EQ(host_->requestedPixelFormats(), (std::vector<Attributes>{kFull32}));
    EXPECT_EQ(host_->pixelFormat(), (VoPixelFormat{kFull32, false}));
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(ConstructionTest, ReducedColorAsksForSixteenBits) {
    keep(VoCoreSurface::initWithFrameReducedColorUseOpenGL(host_, kFrame, true, true));
    EXPECT_EQ(host_->requestedPixelFormats(), (std::vector<Attributes>{kFull16}));
}

TEST_F(ConstructionTest, FallsBackToReducedFormatWithLogLine) {
    LogCapture log;
    host_->failPixelFormat(kFull32);
    keep(VoCoreSurface::initWithFrame(host_, kFrame));
    EXPECT_EQ(host_->requestedPixelFormats(), (std::vector<Attributes>{kFull32, kReduced}));
    EXPECT_EQ(host_->pixelFormat(), (VoPixelFormat{kReduced, false}));
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"reverting to reducedPixelFormat"}));
}

TEST_F(ConstructionTest, FallsBackToDefaultFormatWithLogLine) {
    LogCapture log;
    host_->failPixelFormat(kFull16);
    host_->failPixelFormat(kReduced);
    keep(VoCoreSurface::initWithFrameReducedColorUseOpenGL(host_, kFrame, true, false));
    EXPECT_EQ(host_->requestedPixelFormats(), (std::vector<Attributes>{kFull16, kReduced}));
    EXPECT_TRUE(host_->pixelFormat()->isDefault);
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"reverting to defaultPixelFormat"}));
}

TEST_F(ConstructionTest, InitialisersForwardTheirArguments) {
    auto a = keep(VoCoreSurface::initWithFrameSourceOriginSourceSizeUseOpenGL(host_, kFrame, NSPoint{5, 6},
                                                                                NSSize{100, 50}, false));
    EXPECT_EQ(a->sourceOrigin(), (NSPoint{5, 6}));
    EXPECT_EQ(a->sourceSize(), (NSSize{100, 50}));
    EXPECT_EQ(host_->requestedPixelFormats().back(), kFull32);
    auto host2 = std::make_shared<VoSurfaceHostHeadless>();
    auto b = keep(VoCoreSurface::initWithFrameUseOpenGL(host2, kFrame, true));
    EXPECT_EQ(b->sourceSize(), (NSSize{0, 0}));
    EXPECT_EQ(host2->frame(), kFrame);
}

TEST_F(ConstructionTest, DoubleBufferingOffStillAsksForDoubleBufferedFormatAndFlushesPlainly) {
    auto surface = keep(VoCoreSurface::initWithFrame(host_, kFrame));
    host_->resetRecords();
    surface->setUsesDoubleBuffering(false);
    EXPECT_EQ(host_->clearGLContextCount(), 1);
    EXPECT_EQ(host_->requestedPixelFormats(), (std::vector<Attributes>{kDouble}));
    const auto history = host_->pixelFormatHistory();
    ASSERT_EQ(history.size(), 2u);
    EXPECT_FALSE(history[0].has_value()) << "the format is cleared first";
    EXPECT_EQ(history[1], (VoPixelFormat{kDouble, false}));
    EXPECT_FALSE(surface->usesDoubleBuffer());
    surface->display();
    EXPECT_EQ(host_->glFlushCount(), 1);
    EXPECT_EQ(host_->flushBufferCount(), 0);
}

TEST_F(ConstructionTest, DoubleBufferingOnFlushesBySwap) {
    auto surface = keep(VoCoreSurface::initWithFrame(host_, kFrame));
    surface->setUsesDoubleBuffering(true);
    EXPECT_TRUE(surface->usesDoubleBuffer());
    surface->display();
    EXPECT_EQ(host_->flushBufferCount(), 1);
    EXPECT_EQ(host_->glFlushCount(), 0);
}

TEST_F(ConstructionTest, DoubleBufferingFallbacks) {
    auto surface = keep(VoCoreSurface::initWithFrame(host_, kFrame));
    host_->failPixelFormat(kDouble);
    {
        LogCapture log;
        surface->setUsesDoubleBuffering(true);
        EXPECT_EQ(host_->pixelFormat(), (VoPixelFormat{kDoubleReduced, false}));
        EXPECT_TRUE(surface->usesDoubleBuffer());
        EXPECT_EQ(log.messages(), (std::vector<std::string>{"reverting to reducedPixelFormat"}));
    }
    host_->failPixelFormat(kDoubleReduced);
    LogCapture log;
    surface->setUsesDoubleBuffering(true);
    EXPECT_TRUE(host_->pixelFormat()->isDefault);
    EXPECT_FALSE(surface->usesDoubleBuffer()) << "the default format is not double-buffered";
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"reverting to defaultPixelFormat"}));
}

TEST_F(ConstructionTest, TeardownDetachesFromTheHost) {
    {
        auto surface = VoCoreSurface::initWithFrame(host_, kFrame);
        surface->setClock(clock_);
        surface->setAnimates(true);
        surface->display();
        EXPECT_TRUE(host_->hasDrawingContext());
    }
    EXPECT_EQ(host_->attachedSurface(), nullptr);
    EXPECT_FALSE(host_->hasDrawingContext());
    EXPECT_EQ(host_->trackingRectsRemoved(), (std::vector<int32_t>{0}));
}

}  // namespace
}  // namespace vo::test
