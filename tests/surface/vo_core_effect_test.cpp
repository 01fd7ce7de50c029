// SPDX-License-Identifier: MIT
// Effects: the timer thread (on the manual clock), start and delay, the pulse curves, death.
#include <QCoreApplication>
#include <QThread>

#include <cmath>

#include "Common/CoreGraphics/VoCoreSurfaceMainThread.h"
#include "Common/Foundation/VoException.h"
#include "surface_test_support.h"

namespace vo::test {
namespace {

class EffectTest : public SurfaceTest {};

TEST_F(EffectTest, PlainConstructionRaisesAsForElements) {
    class Plain : public VoCoreEffect {
    public:
        Plain() : VoCoreEffect() {}
    };
    try {
        auto effect = VoCoreElement::create<Plain>();
        FAIL() << "no exception";
    } catch (const VoException& e) {
        EXPECT_EQ(e.name(), "CoreElement not implemented correctly");
    }
}

TEST_F(EffectTest, RenderIsAbstract) {
    auto effect = makeEffect<VoCoreEffect>(makeSurface());
    try {
        (void)effect->render();
        FAIL() << "no exception";
    } catch (const VoException& e) {
        EXPECT_EQ(e.name(), "CoreEffect not implemented correctly");
        EXPECT_EQ(e.reason(), "-(CIImage*)render method not implemented");
    }
}

TEST_F(EffectTest, InitialState) {
    auto effect = makeEffect(makeSurface());
    EXPECT_EQ(effect->fps(), 0.0f);
    EXPECT_EQ(effect->timeFactor(), 1.0f);
    EXPECT_EQ(effect->effectStart(), 0.0);
    EXPECT_FALSE(effect->effectDidStart());
    EXPECT_FALSE(effect->isStopped());
    EXPECT_FALSE(effect->deathRequested());
    EXPECT_EQ(effect->clock(), clock_);
    EXPECT_TRUE(clock_->settle(1));  // its thread is running, asleep
}

TEST_F(EffectTest, IdleEffectStillAnimatesOnceASecondWhileSurfaceAnimates) {
    auto surface = makeSurface();
    surface->setAnimates(true);
    auto effect = makeEffect(surface);
    ASSERT_TRUE(clock_->settle(2));  // the effect's and the refresh thread
    ASSERT_TRUE(clock_->advanceAndSettle(0.5, 2));
    EXPECT_EQ(effect->animateCalls, 0);
    ASSERT_TRUE(clock_->advanceAndSettle(0.5, 2));
    EXPECT_EQ(effect->animateCalls, 1);
    ASSERT_TRUE(clock_->advanceAndSettle(1.0, 2));
    EXPECT_EQ(effect->animateCalls, 2);
}

TEST_F(EffectTest, AnimateIsNotCalledWhileSurfaceDoesNotAnimate) {
    auto surface = makeSurface();
    auto effect = makeEffect(surface);
    effect->setFps(30);
    ASSERT_TRUE(clock_->settle(1));
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(clock_->advanceAndSettle(1.0, 1));
    EXPECT_EQ(effect->animateCalls, 0);
}

TEST_F(EffectTest, TicksAtFpsWhileAnimating) {
    auto surface = makeSurface();
    surface->setAnimates(true);
    auto effect = makeEffect(surface);
    effect->setFps(30);
    ASSERT_TRUE(clock_->settle(2));
    ASSERT_TRUE(clock_->advanceAndSettle(1.0, 2));  // the first sleep was taken at fps 0
    const int base = effect->animateCalls;
    for (int i = 0; i < 10; ++i) ASSERT_TRUE(clock_->advanceAndSettle(1.0 / 30 + 1e-7, 2));
    EXPECT_EQ(effect->animateCalls - base, 10);
}

TEST_F(EffectTest, ChangedEffectMarksItsLayerDirty) {
    auto surface = makeSurface();
    surface->setAnimates(true);
    auto effect = makeEffect(surface);
    surface->addCoreElementOnLayer(effect, 4);
    surface->display();
    ASSERT_TRUE(surface->dirtyLayers().empty());
    ASSERT_TRUE(clock_->settle(2));
    ASSERT_TRUE(clock_->advanceAndSettle(1.0, 2));
    EXPECT_TRUE(surface->dirtyLayers().empty()) << "animate answered NO and nothing was stale";
    effect->changes = true;
    ASSERT_TRUE(clock_->advanceAndSettle(1.0, 2));
    EXPECT_EQ(surface->dirtyLayers(), (std::set<int32_t>{4}));
    EXPECT_TRUE(effect->requiresRendering());
}

TEST_F(EffectTest, StaleEffectIsMarkedEvenWhenAnimateAnswersNo) {
    auto surface = makeSurface();
    surface->setAnimates(true);
    auto effect = makeEffect(surface);  // never rendered, so stale; on no layer, so it marks layer 0
    ASSERT_TRUE(effect->requiresRendering());
    ASSERT_TRUE(surface->dirtyLayers().empty());
    ASSERT_TRUE(clock_->settle(2));
    ASSERT_TRUE(clock_->advanceAndSettle(1.0, 2));
    EXPECT_EQ(effect->animateCalls, 1) << "animate is asked before requiresRendering is looked at";
    EXPECT_EQ(surface->dirtyLayers(), (std::set<int32_t>{0}));
}

TEST_F(EffectTest, StopEndsTheThreadAfterItsSleepAndReleasesTheEffect) {
    auto surface = makeSurface();
    auto effect = makeEffect(surface);
    std::weak_ptr<CountingEffect> weak = effect;
    effect.reset();
    ASSERT_TRUE(clock_->settle(1));
    EXPECT_FALSE(weak.expired()) << "the thread keeps the effect alive";
    if (auto alive = weak.lock()) alive->stopEffect();
    ASSERT_TRUE(clock_->advanceAndSettle(1.0, 0));
    EXPECT_TRUE(waitFor([&] { return weak.expired(); }));
}

TEST_F(EffectTest, RemovalFromSurfaceStopsTheThread) {
    auto surface = makeSurface();
    auto effect = makeEffect(surface);
    surface->addCoreElementOnLayer(effect, 1);
    EXPECT_FALSE(effect->isStopped());
    surface->removeCoreElement(effect);
    EXPECT_TRUE(effect->isStopped());
    ASSERT_TRUE(clock_->advanceAndSettle(1.0, 0));
}

TEST_F(EffectTest, StartAndDidStart) {
    auto effect = makeEffect(makeSurface());
    EXPECT_FALSE(effect->effectDidStart());
    // Never started: the whole time since 1970.
    EXPECT_EQ(effect->timeSinceEffectStart(), clock_->now());
    effect->startEffect();
    EXPECT_EQ(effect->effectStart(), clock_->now());
    EXPECT_FALSE(effect->effectDidStart()) << "start equal to now is not started";
    clock_->advance(0.001);
    EXPECT_TRUE(effect->effectDidStart());
    EXPECT_NEAR(effect->timeSinceEffectStart(), 0.001, 1e-6);
}

TEST_F(EffectTest, DelayedStartKeepsRampsOff) {
    auto effect = makeEffect(makeSurface());
    effect->startEffectWithDelay(1.5);
    EXPECT_NEAR(effect->timeSinceEffectStart(), -1.5, 1e-9);
    for (double t : {0.0, 0.75, 1.4999}) {
        clock_->setNow(1.0e9 + t);
        EXPECT_FALSE(effect->effectDidStart()) << t;
        EXPECT_EQ(effect->linearPulse1Seconds(), -1.0) << t;
        EXPECT_EQ(effect->linearPulse2Seconds(), -1.0) << t;
        EXPECT_EQ(effect->linearPulse3Seconds(), -1.0) << t;
    }
    // At the end of the delay the ramps start at 0, but the effect has not started yet (strictly later).
    clock_->setNow(1.0e9 + 1.5);
    EXPECT_FALSE(effect->effectDidStart());
    EXPECT_EQ(effect->linearPulse1Seconds(), 0.0);
    clock_->setNow(1.0e9 + 1.75);
    EXPECT_TRUE(effect->effectDidStart());
    EXPECT_NEAR(effect->linearPulse1Seconds(), 0.25, 1e-6);
    EXPECT_NEAR(effect->linearPulse2Seconds(), 0.125, 1e-6);
    EXPECT_NEAR(effect->linearPulse3Seconds(), 0.25 / 3, 1e-6);
}

TEST_F(EffectTest, LinearPulseEndpoints) {
    auto effect = makeEffect(makeSurface());
    effect->startEffect();
    const double start = clock_->now();
    clock_->setNow(start + 2.0);
    EXPECT_EQ(effect->linearPulse2Seconds(), 0.0);
    clock_->setNow(start + 2.0001);
    EXPECT_EQ(effect->linearPulse2Seconds(), -1.0);
    clock_->setNow(start - 0.0001);
    EXPECT_EQ(effect->linearPulse2Seconds(), -1.0);
    clock_->setNow(start + 1.0);
    EXPECT_EQ(effect->linearPulse1Seconds(), 0.0);
    EXPECT_EQ(effect->linearPulse2Seconds(), 0.5);
    clock_->setNow(start + 3.0);
    EXPECT_EQ(effect->linearPulse3Seconds(), 0.0);
    clock_->setNow(start + 0.5);
    EXPECT_EQ(effect->linearPulse1Seconds(), 0.5);
}

TEST_F(EffectTest, PeriodicPulsesFollowTheAbsoluteClock) {
    auto effect = makeEffect(makeSurface());
    clock_->setNow(1.0e9);  // a whole second, and a multiple of 3
    EXPECT_EQ(effect->pulse1Seconds(), 1.0);
    EXPECT_EQ(effect->pulseHalfSeconds(), 1.0);
    const double third = 1.0e9 / 3.0;
    EXPECT_NEAR(effect->pulse3Seconds(), std::fabs(1.0 - 2.0 * (third - std::floor(third))), 1e-9);
    EXPECT_NEAR(effect->pulse1SecondsSecundary(), std::fabs(1.0 - 2.0 * 0.3333), 1e-6);
    EXPECT_NEAR(effect->pulse1SecondsTertiary(), std::fabs(1.0 - 2.0 * 0.6667), 1e-6);
    clock_->setNow(1.0e9 + 0.5);
    EXPECT_NEAR(effect->pulse1Seconds(), 0.0, 1e-6);
    EXPECT_NEAR(effect->pulseHalfSeconds(), 1.0, 1e-6);
    clock_->setNow(1.0e9 + 0.25);
    EXPECT_NEAR(effect->pulse1Seconds(), 0.5, 1e-6);
    EXPECT_NEAR(effect->pulseHalfSeconds(), 0.0, 1e-6);
    clock_->setNow(999999999.0 + 1.5);  // 999999999 is a multiple of 3
    EXPECT_NEAR(effect->pulse3Seconds(), 0.0, 1e-6);
}

TEST_F(EffectTest, TimeFactorTwoHalvesPeriodsAndRamps) {
    auto effect = makeEffect(makeSurface());
    effect->setTimeFactor(2);
    clock_->setNow(1.0e9 + 0.25);
    EXPECT_NEAR(effect->pulse1Seconds(), 0.0, 1e-6);  // the middle of a 0.5 s period
    clock_->setNow(1.0e9 + 0.125);
    EXPECT_NEAR(effect->pulseHalfSeconds(), 0.0, 1e-6);
    clock_->setNow(999999999.0 + 0.75);
    EXPECT_NEAR(effect->pulse3Seconds(), 0.0, 1e-6);
    clock_->setNow(1.0e9);
    effect->startEffect();
    clock_->setNow(1.0e9 + 0.25);
    EXPECT_NEAR(effect->linearPulse1Seconds(), 0.5, 1e-9);
    clock_->setNow(1.0e9 + 0.5);
    EXPECT_EQ(effect->linearPulse1Seconds(), 0.0);
    clock_->setNow(1.0e9 + 0.5001);
    EXPECT_EQ(effect->linearPulse1Seconds(), -1.0);
    clock_->setNow(1.0e9 + 1.0);
    EXPECT_EQ(effect->linearPulse2Seconds(), 0.0);
    clock_->setNow(1.0e9 + 1.5);
    EXPECT_EQ(effect->linearPulse3Seconds(), 0.0);
    clock_->setNow(1.0e9 + 1.5001);
    EXPECT_EQ(effect->linearPulse3Seconds(), -1.0);
}

TEST_F(EffectTest, SecondRequestDeathDoesNothing) {
    auto surface = makeSurface();
    auto effect = makeEffect(surface);
    surface->addCoreElementOnLayer(effect, 1);
    int completed = 0;
    VoCoreElementDelegate delegate;
    delegate.effectCompleted = [&](VoCoreEffect* e) {
        EXPECT_EQ(e, effect.get());
        ++completed;
    };
    effect->setDelegate(&delegate);
    pumpEvents();
    const long before = VoCoreSurfaceMainThread::tasksRun();
    effect->requestDeath();
    effect->requestDeath();
    EXPECT_EQ(completed, 1);
    EXPECT_EQ(VoCoreSurfaceMainThread::pendingTasks(), 1u) << "one removal queued";
    EXPECT_TRUE(effect->deathRequested());
    EXPECT_TRUE(effect->isStopped());
    // The removal is queued, not done.
    EXPECT_EQ(surface->layerNumbers(), (std::vector<int32_t>{1}));
    pumpEvents();
    EXPECT_EQ(VoCoreSurfaceMainThread::tasksRun() - before, 2) << "the delegate call and the removal";
    EXPECT_TRUE(surface->layerNumbers().empty());
}

TEST_F(EffectTest, DeathRequestedFromTheTimerThreadWaitsForTheDelegateOnTheMainThread) {
    class DyingEffect : public CountingEffect {
    public:
        using CountingEffect::CountingEffect;
        bool animate() override {
            requestDeath();
            return true;
        }
    };
    auto surface = makeSurface();
    surface->setAnimates(true);
    auto effect = makeEffect<DyingEffect>(surface);
    surface->addCoreElementOnLayer(effect, 1);
    std::atomic<bool> onMain{false};
    std::atomic<int> completed{0};
    VoCoreElementDelegate delegate;
    delegate.effectCompleted = [&](VoCoreEffect*) {
        onMain = QThread::currentThread() == QCoreApplication::instance()->thread();
        ++completed;
    };
    effect->setDelegate(&delegate);
    ASSERT_TRUE(clock_->settle(2));
    clock_->advance(1.0);
    ASSERT_TRUE(waitFor([&] { return surface->layerNumbers().empty(); }));
    EXPECT_EQ(completed, 1);
    EXPECT_TRUE(onMain);
    EXPECT_TRUE(effect->deathRequested());
    // Dead effects are not marked any more, and the thread ends.
    ASSERT_TRUE(clock_->advanceAndSettle(1.0, 1));
    EXPECT_TRUE(waitFor([] { return VoCoreEffect::runningThreads() == 0; }));
}

}  // namespace
}  // namespace vo::test
