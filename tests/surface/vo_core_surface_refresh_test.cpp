// SPDX-License-Identifier: MIT
// Redraw scheduling: throttling, the refresh thread's ticks and coalescing, the animation switch, the lock.
#include <thread>

#include "Common/CoreGraphics/VoClock.h"
#include "Common/CoreGraphics/VoCoreSurfaceCaller.h"
#include "Common/CoreGraphics/VoCoreSurfaceRefreshThread.h"
#include "surface_test_support.h"

namespace vo::test {
namespace {

constexpr double kTick = VoCoreSurfaceRefreshThread::kTickSeconds;

class RefreshTest : public SurfaceTest {};

TEST_F(RefreshTest, UnthrottledRequestsInvalidateAtOnce) {
    auto surface = makeSurface();
    auto host = hostOf(surface);
    surface->setAnimates(true);
    const int before = host->invalidations();
    for (int i = 0; i < 3; ++i) surface->setNeedsDisplayInternal();
    EXPECT_EQ(host->invalidations() - before, 3);
    EXPECT_TRUE(host->needsDisplay());
    EXPECT_TRUE(surface->requiresFullRender());
}

TEST_F(RefreshTest, ThrottledWithoutAnimationInvalidatesDirectly) {
    auto surface = makeSurface();
    auto host = hostOf(surface);
    surface->setThrottle(true);
    ASSERT_FALSE(surface->animates());
    const int before = host->invalidations();
    surface->setNeedsDisplayInternal();
    EXPECT_EQ(host->invalidations() - before, 1);
}

TEST_F(RefreshTest, TenThrottledRequestsInOneTickGiveOneDraw) {
    auto surface = makeSurface();
    auto host = hostOf(surface);
    surface->setThrottle(true);
    surface->setAnimates(true);
    ASSERT_TRUE(clock_->settle(1));
    const int invalidations = host->invalidations();
    for (int i = 0; i < 10; ++i) {
        surface->setNeedsDisplayInternal();
        clock_->advance(0.001);  // ten requests within 10 ms, all inside one tick
    }
    EXPECT_EQ(host->invalidations(), invalidations) << "nothing is invalidated before the tick";
    ASSERT_TRUE(clock_->advanceAndSettle(kTick, 1));
    pumpEvents();
    EXPECT_EQ(host->draws(), 1);
    EXPECT_EQ(surface->refreshThread()->refreshes(), 1);
    // Nothing more was asked: the next ticks draw nothing.
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(clock_->advanceAndSettle(kTick, 1));
    pumpEvents();
    EXPECT_EQ(host->draws(), 1);
}

TEST_F(RefreshTest, EachTickDrawsAtMostOnce) {
    auto surface = makeSurface();
    auto host = hostOf(surface);
    surface->setThrottle(true);
    surface->setAnimates(true);
    ASSERT_TRUE(clock_->settle(1));
    for (int tick = 0; tick < 5; ++tick) {
        surface->setNeedsDisplayInternal();
        surface->setNeedsDisplayInternal();
        ASSERT_TRUE(clock_->advanceAndSettle(kTick, 1));
        pumpEvents();
    }
    EXPECT_EQ(host->draws(), 5);
    EXPECT_EQ(surface->refreshThread()->refreshes(), 5);
}

TEST_F(RefreshTest, RequestWhileInactiveIsDropped) {
    auto surface = makeSurface();
    auto host = hostOf(surface);
    surface->setThrottle(true);
    surface->setAnimates(true);
    ASSERT_TRUE(clock_->settle(1));
    surface->viewWillMoveToWindow();
    EXPECT_FALSE(surface->refreshThread()->isActive());
    surface->setNeedsDisplayInternal();
    EXPECT_TRUE(surface->refreshThread()->shouldRefresh());
    ASSERT_TRUE(clock_->advanceAndSettle(kTick, 1));
    EXPECT_FALSE(surface->refreshThread()->shouldRefresh()) << "cleared, not kept for later";
    surface->viewDidMoveToWindow();
    EXPECT_TRUE(surface->refreshThread()->isActive());
    ASSERT_TRUE(clock_->advanceAndSettle(kTick, 1));
    pumpEvents();
    EXPECT_EQ(host->draws(), 0);
    EXPECT_EQ(surface->refreshThread()->refreshes(), 0);
}

TEST_F(RefreshTest, MovingToNoWindowKeepsTheThreadInactive) {
    auto surface = makeSurface();
    surface->setAnimates(true);
    surface->viewWillMoveToWindow();
    hostOf(surface)->setInWindow(false);
    surface->viewDidMoveToWindow();
    EXPECT_FALSE(surface->refreshThread()->isActive());
}

TEST_F(RefreshTest, SetAnimatesTwiceMakesOneThreadAndStopsItOnce) {
    auto surface = makeSurface();
    surface->setAnimates(true);
    const auto first = surface->refreshThread();
    surface->setAnimates(true);
    EXPECT_EQ(surface->refreshThread(), first);
    ASSERT_TRUE(clock_->settle(1));
    EXPECT_EQ(VoCoreSurfaceRefreshThread::runningThreads(), 1);
    EXPECT_TRUE(first->isActive());
    surface->setAnimates(false);
    EXPECT_TRUE(first->isStopped());
    EXPECT_EQ(surface->refreshThread(), nullptr);
    surface->setAnimates(false);
    EXPECT_EQ(surface->refreshThread(), nullptr);
    clock_->advance(kTick);
    EXPECT_TRUE(waitFor([] { return VoCoreSurfaceRefreshThread::runningThreads() == 0; }));
}

TEST_F(RefreshTest, AnimatesIsNoBeforeTheOldThreadHasEnded) {
    auto surface = makeSurface();
    surface->setAnimates(true);
    ASSERT_TRUE(clock_->settle(1));
    std::weak_ptr<VoCoreSurfaceRefreshThread> weak = surface->refreshThread();
    surface->setAnimates(false);
    EXPECT_FALSE(surface->animates());
    // The thread is still asleep, and keeps its object alive.
    EXPECT_EQ(clock_->sleepers(), 1);
    EXPECT_EQ(VoCoreSurfaceRefreshThread::runningThreads(), 1);
    EXPECT_FALSE(weak.expired());
    ASSERT_TRUE(clock_->advanceAndSettle(kTick, 0));
    EXPECT_TRUE(waitFor([&] { return weak.expired(); }));
}

TEST_F(RefreshTest, TicksAreSpacedByTheTickLength) {
    auto surface = makeSurface();
    surface->setAnimates(true);
    ASSERT_TRUE(clock_->settle(1));
    const long ticks = surface->refreshThread()->ticks();
    ASSERT_TRUE(clock_->advanceAndSettle(kTick / 2, 1));
    EXPECT_EQ(surface->refreshThread()->ticks(), ticks);
    ASSERT_TRUE(clock_->advanceAndSettle(kTick / 2, 1));
    EXPECT_EQ(surface->refreshThread()->ticks(), ticks + 1);
}

TEST_F(RefreshTest, RefreshThreadNeverWaitsForTheRenderLock) {
    auto surface = makeSurface();
    surface->setThrottle(true);
    surface->setAnimates(true);
    ASSERT_TRUE(clock_->settle(1));
    surface->requestSurfaceLock();
    surface->setNeedsDisplayInternal();
    const bool ticked = clock_->advanceAndSettle(kTick, 1);
    surface->releaseSurfaceLock();
    EXPECT_TRUE(ticked);
    EXPECT_EQ(surface->refreshThread()->refreshes(), 1);
}

TEST_F(RefreshTest, SurfaceLockIsRecursiveAndSharedWithTheTables) {
    auto surface = makeSurface();
    surface->requestSurfaceLock();
    surface->requestSurfaceLock();
    // Table changes on this thread go through while it holds the lock.
    auto e = VoCoreElement::create<CountingElement>(surface);
    surface->addCoreElementOnLayer(e, 1);
    std::atomic<bool> added{false};
    std::thread other([&] {
        surface->addCoreElementOnLayer(VoCoreElement::create<CountingElement>(surface), 2);
        added = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(added) << "another thread waits for the lock";
    surface->releaseSurfaceLock();
    EXPECT_FALSE(added);
    surface->releaseSurfaceLock();
    other.join();
    EXPECT_TRUE(added);
    EXPECT_EQ(surface->layerNumbers(), (std::vector<int32_t>{1, 2}));
}

TEST_F(RefreshTest, PrepareEndStopsAnimationAndRemovesEverything) {
    auto surface = makeSurface();
    surface->setAnimates(true);
    auto effect = makeEffect(surface);
    auto element = VoCoreElement::create<CountingElement>(surface);
    surface->addCoreElementOnLayer(effect, 1);
    surface->addCoreElementOnLayer(element, 2);
    surface->prepareEnd();
    EXPECT_FALSE(surface->animates());
    EXPECT_TRUE(surface->layerNumbers().empty());
    EXPECT_TRUE(effect->isStopped());
    EXPECT_EQ(element->removals, 1);
}

TEST_F(RefreshTest, SurfaceGoesAwayOnceItsOwnersHaveLetGo) {
    std::weak_ptr<VoCoreSurface> weak;
    {
        auto host = std::make_shared<VoSurfaceHostHeadless>();
        auto surface = VoCoreSurface::initWithFrame(host, NSRect{{0, 0}, {100, 100}});
        surface->setClock(clock_);
        weak = surface;
        surface->setAnimates(true);
        auto effect = makeEffect(surface);
        surface->addCoreElementOnLayer(effect, 1);
        surface->addCoreElementOnLayer(VoCoreElement::create<CountingElement>(surface), 1);
        surface->prepareEnd();
        EXPECT_EQ(host->attachedSurface(), surface.get());
    }
    // The effect's thread still holds the effect, which holds the surface, until its sleep ends.
    clock_->run();
    EXPECT_TRUE(waitFor([&] { return weak.expired(); }));
}

TEST_F(RefreshTest, RealThreadsDrawAnAnimatedEffectOnTheMainThread) {
    auto surface = makeSurface(NSRect{{0, 0}, {64, 64}}, true);
    auto host = hostOf(surface);
    surface->setThrottle(true);
    surface->setAnimates(true);
    auto effect = makeEffect(surface);
    effect->changes = true;
    effect->setFps(60);
    surface->addCoreElementOnLayer(effect, 1);
    EXPECT_TRUE(waitFor([&] { return host->draws() >= 3 && effect->renders >= 3; }, 60));
    const auto refresh = surface->refreshThread();
    EXPECT_LE(refresh->refreshes(), refresh->ticks());
}

TEST(CallerTest, ParsesTheMethodName) {
    EXPECT_EQ(callerFromStackSymbols({"0 a", "1 b", "2   vo  0x00001234 -[VoCoreSurface drawRect:] + 312"}),
              "[VoCoreSurface drawRect:]");
    EXPECT_EQ(callerFromStackSymbols({"0 a", "1 b", "2 vo 0x1 -  [X y]  \n+ 1"}), "[X y]");
}

TEST(CallerTest, UnknownWithoutDashOrPlusOrEnoughLines) {
    EXPECT_EQ(callerFromStackSymbols({}), "UNKNOWN");
    EXPECT_EQ(callerFromStackSymbols({"0 a", "1 b"}), "UNKNOWN");
    EXPECT_EQ(callerFromStackSymbols({"0 a", "1 b", "2 vo 0x1 +[VoCoreUtils scaleImage:] + 12"}), "UNKNOWN");
    EXPECT_EQ(callerFromStackSymbols({"0 a", "1 b", "2 vo 0x1 main + 12"}), "UNKNOWN");
    EXPECT_EQ(callerFromStackSymbols({"0 a", "1 b", "2 vo 0x1 -[X y]"}), "UNKNOWN");
}

TEST(CallerTest, RunsOnTheRealStack) {
    // Symbol lines of this platform name no methods that way; whatever comes back, the call is safe.
    const std::string name = caller();
    EXPECT_LT(name.size(), 4096u);
}

}  // namespace
}  // namespace vo::test
