// SPDX-License-Identifier: MIT
#include "Common/CoreGraphics/VoCoreEffect.h"

#include <cmath>
#include <thread>

#include "Common/CoreGraphics/VoClock.h"
#include "Common/CoreGraphics/VoCoreSurface.h"
#include "Common/CoreGraphics/VoCoreSurfaceMainThread.h"
#include "Common/Foundation/VoException.h"

namespace vo {

namespace {

std::atomic<int> gRunningThreads{0};

double frac(double x) { return x - std::floor(x); }

}  // namespace

VoCoreEffect::VoCoreEffect() : VoCoreElement() {}

VoCoreEffect::VoCoreEffect(std::shared_ptr<VoCoreSurface> surface)
    : VoCoreElement(surface), clock_(surface ? surface->clock() : VoClock::systemClock()) {}

// The timer thread holds the effect until its loop ends, so by now it has ended or never ran.
VoCoreEffect::~VoCoreEffect() { stopEffect(); }

void VoCoreEffect::didInitialize() {
    VoCoreElement::didInitialize();
    stopAnimation_ = false;
    gRunningThreads.fetch_add(1);
    std::thread(&VoCoreEffect::animateThread, std::static_pointer_cast<VoCoreEffect>(shared_from_this())).detach();
    timeFactor_ = 1.0f;
}

int VoCoreEffect::runningThreads() { return gRunningThreads.load(); }

void VoCoreEffect::animateThread(std::shared_ptr<VoCoreEffect> effect) {
    const std::shared_ptr<VoClock> clock = effect->clock_;
    for (;;) {
        // The surface is looked up afresh each time and not held across the sleep.
        const float fps = effect->fps();
        bool animating = false;
        if (std::shared_ptr<VoCoreSurface> surface = effect->surface()) animating = surface->animates();
        const double now = clock->now();
        // fps != 0 is also true for a NaN, as intended.
        clock->sleepUntil(fps != 0 && animating ? now + 1.0 / fps : now + 1.0);
        if (effect->stopAnimation_.load()) break;
        if (effect->deathRequested_.load()) continue;
        const std::shared_ptr<VoCoreSurface> surface = effect->surface();
        // animate() runs on every tick while the surface animates, before requiresRendering is looked at.
        if (surface && surface->animates() && (effect->animate() || effect->requiresRendering())) {
            effect->setRequiresRendering();
        }
    }
    // Let the effect go before counting the thread out, so a waiter that sees the count drop also sees the
    // effect released.
    effect.reset();
    gRunningThreads.fetch_sub(1);
}

void VoCoreEffect::removedFromSurface(VoCoreSurface* surface) { stopEffect(); }

bool VoCoreEffect::animate() { return false; }

CIImage VoCoreEffect::render() { throw VoException(kNotImplementedName, "-(CIImage*)render method not implemented"); }

double VoCoreEffect::now() const { return clock_->now(); }

void VoCoreEffect::startEffect() { effectStart_ = now(); }

void VoCoreEffect::startEffectWithDelay(double seconds) { effectStart_ = now() + seconds; }

bool VoCoreEffect::effectDidStart() const {
    const double start = effectStart_.load();
    return start > 0 && now() > start;
}

double VoCoreEffect::timeSinceEffectStart() const { return now() - effectStart_.load(); }

void VoCoreEffect::requestDeath() {
    if (deathRequested_.load() || deathStarted_.exchange(true)) return;
    std::shared_ptr<VoCoreEffect> self = std::static_pointer_cast<VoCoreEffect>(shared_from_this());
    if (VoCoreElementDelegate* delegate = this->delegate(); delegate && delegate->effectCompleted) {
        VoCoreSurfaceMainThread::perform([delegate, self] { delegate->effectCompleted(self.get()); }, true);
    }
    if (std::shared_ptr<VoCoreSurface> surface = this->surface()) {
        // The queued call keeps both alive until it has run, as a queued call to an object does.
        VoCoreSurfaceMainThread::perform(
            [surface, self] { surface->coreElementRequestRemoval(self); }, false);
    }
    stopEffect();
    deathRequested_ = true;
}

double VoCoreEffect::pulse1Seconds() const { return std::fabs(1.0 - 2.0 * frac(now() * timeFactor())); }

double VoCoreEffect::pulseHalfSeconds() const { return std::fabs(1.0 - 2.0 * frac(2.0 * now() * timeFactor())); }

double VoCoreEffect::pulse3Seconds() const { return std::fabs(1.0 - 2.0 * frac(now() * timeFactor() / 3.0)); }

double VoCoreEffect::pulse1SecondsSecundary() const {
    return std::fabs(1.0 - 2.0 * frac(now() * timeFactor() + 0.3333));
}

double VoCoreEffect::pulse1SecondsTertiary() const {
    return std::fabs(1.0 - 2.0 * frac(now() * timeFactor() + 0.6667));
}

double VoCoreEffect::linearPulse(double seconds) const {
    const double x = (now() - effectStart_.load()) * timeFactor();
    if (x > seconds || 0 > x) return -1.0;
    return frac(x / seconds);
}

double VoCoreEffect::linearPulse1Seconds() const { return linearPulse(1.0); }
double VoCoreEffect::linearPulse2Seconds() const { return linearPulse(2.0); }
double VoCoreEffect::linearPulse3Seconds() const { return linearPulse(3.0); }

}  // namespace vo
