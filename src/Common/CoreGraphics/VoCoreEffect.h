// SPDX-License-Identifier: MIT
// VoCoreEffect: the base of every animated effect. Each effect runs its own timer thread that, while its
// surface animates, ticks at 1/fps (else once a second), asks animate() whether the picture changed and, if
// so, marks the effect for re-rendering; the surface's refresh machinery does the drawing. It also keeps a
// start time with an optional delay, a time factor for all of its clocks, the pulse curves effects use as
// animation phases, and a self-removal request (requestDeath).
//
// Time is the effect's clock (VoClock; the surface's clock when made, replaceable for tests) in seconds
// since 1970. Make effects with VoCoreElement::create<T>(surface, ...): the timer thread starts there and
// keeps the effect alive until its loop ends (after stopEffect(), removal from the surface or death).
#pragma once

#include <atomic>
#include <memory>

#include "Common/CoreGraphics/VoCoreElement.h"

namespace vo {

class VoClock;

class VoCoreEffect : public VoCoreElement {
public:
    inline static const std::string kNotImplementedName = "CoreEffect not implemented correctly";

    // Plain construction raises, as for every element.
    VoCoreEffect();
    // fps 0 (idle: one tick a second), time factor 1, not started. The clock is the surface's (the system
    // clock without a surface).
    explicit VoCoreEffect(std::shared_ptr<VoCoreSurface> surface);
    ~VoCoreEffect() override;

    // The clock of the timer thread and of the timing curves. Replace it only before create() has started
    // the thread, i.e. in a subclass constructor, or for the curves of an effect whose thread has ended.
    [[nodiscard]] std::shared_ptr<VoClock> clock() const { return clock_; }
    void setClock(std::shared_ptr<VoClock> clock) { clock_ = std::move(clock); }

    // The timer thread ends after its current sleep.
    void stopEffect() { stopAnimation_ = true; }
    [[nodiscard]] bool isStopped() const { return stopAnimation_.load(); }
    void removedFromSurface(VoCoreSurface* surface) override;
    // Called on the timer thread once per tick while the surface animates: YES when the picture changed.
    [[nodiscard]] virtual bool animate();
    // Abstract for effects: raises kNotImplementedName, "-(CIImage*)render method not implemented".
    [[nodiscard]] CIImage render() override;

    [[nodiscard]] float fps() const { return fps_.load(); }
    void setFps(float fps) { fps_ = fps; }
    [[nodiscard]] float timeFactor() const { return timeFactor_.load(); }
    void setTimeFactor(float factor) { timeFactor_ = factor; }

    // The effect's clock: start now, or after a delay; started = now strictly past the start.
    void startEffect();
    void startEffectWithDelay(double seconds);
    [[nodiscard]] bool effectDidStart() const;
    [[nodiscard]] double effectStart() const { return effectStart_.load(); }
    // now - start, unscaled; negative during a delay, the whole time since 1970 when never started.
    [[nodiscard]] double timeSinceEffectStart() const;

    // Ends the effect (once): tells the delegate effectCompleted (on the main thread, waiting), queues the
    // removal from the surface on the main thread, stops the timer thread. Any thread.
    void requestDeath();
    [[nodiscard]] bool deathRequested() const { return deathRequested_.load(); }

    // Triangle pulses on the absolute clock, t = now x timeFactor, in [0, 1] (1 -> 0 -> 1).
    [[nodiscard]] double pulse1Seconds() const;
    [[nodiscard]] double pulseHalfSeconds() const;
    [[nodiscard]] double pulse3Seconds() const;
    [[nodiscard]] double pulse1SecondsSecundary() const;  // phase + 0.3333
    [[nodiscard]] double pulse1SecondsTertiary() const;   // phase + 0.6667
    // One-shot ramps over the first N seconds of effect time x = (now - start) x timeFactor: frac(x / N)
    // for 0 <= x <= N, else -1.
    [[nodiscard]] double linearPulse1Seconds() const;
    [[nodiscard]] double linearPulse2Seconds() const;
    [[nodiscard]] double linearPulse3Seconds() const;

    // Timer threads of all effects that are still running (for tests and teardown).
    [[nodiscard]] static int runningThreads();

protected:
    void didInitialize() override;

private:
    static void animateThread(std::shared_ptr<VoCoreEffect> effect);
    [[nodiscard]] double now() const;
    [[nodiscard]] double linearPulse(double seconds) const;

    std::atomic<bool> stopAnimation_{false};
    std::atomic<bool> deathRequested_{false};
    std::atomic<bool> deathStarted_{false};  // lets only the first of concurrent requestDeath calls through
    std::atomic<float> fps_{0};
    std::atomic<double> effectStart_{0};
    std::atomic<float> timeFactor_{1.0f};
    std::shared_ptr<VoClock> clock_;
};

}  // namespace vo
