// SPDX-License-Identifier: MIT
// Shared pieces of the surface suite: the event loop, waiting helpers, log capture, elements and effects
// that count what the surface does to them, and a fixture that winds every thread down after each test.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Common/CoreGraphics/VoClockManual.h"
#include "Common/CoreGraphics/VoCoreEffect.h"
#include "Common/CoreGraphics/VoCoreElement.h"
#include "Common/CoreGraphics/VoCoreSurface.h"
#include "Common/CoreGraphics/VoSurfaceHostHeadless.h"

namespace vo::test {

// The process's QCoreApplication, made on first use (on the test thread, which is the main thread).
void ensureApplication();
// Runs the posted main-thread work.
void pumpEvents();
// Pumps events until `condition` holds or `timeoutSeconds` of real time pass; answers the condition.
bool waitFor(const std::function<bool()>& condition, double timeoutSeconds = 30.0);

// Captures log lines while alive.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    [[nodiscard]] std::vector<std::string> messages() const;  // lines without the prefix and the newline
    [[nodiscard]] bool contains(const std::string& message) const;

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

// A small opaque square image.
CIImage squareImage(float size = 4, float red = 1);

// An element that counts its renders and hooks; hit() answers `hits`.
class CountingElement : public VoCoreElement {
public:
    using VoCoreElement::VoCoreElement;
    CIImage render() override;
    bool hit(const NSPoint& point) override { return hits; }
    void mouseInStateChanged() override { ++mouseInChanges; }
    void dropHoveringStateChanged() override { ++dropHoveringChanges; }
    void selectedStateChanged() override { ++selectedChanges; }
    void removedFromSurface(VoCoreSurface* surface) override { ++removals; }
    void surfaceBoundsUpdated() override {
        ++boundsUpdates;
        VoCoreElement::surfaceBoundsUpdated();
    }

    bool hits = false;
    CIImage image = squareImage();
    std::atomic<int> renders{0}, mouseInChanges{0}, dropHoveringChanges{0}, selectedChanges{0}, removals{0},
        boundsUpdates{0};
};

// An element that transforms the picture beneath it.
class AdditiveElement : public VoCoreElement, public VoCoreAdditiveElementProtocol {
public:
    using VoCoreElement::VoCoreElement;
    CIImage renderOverImage(const CIImage& image) override {
        ++renders;
        return image;
    }
    std::atomic<int> renders{0};
};

// An effect whose animate() answers `changes` and counts its calls.
class CountingEffect : public VoCoreEffect {
public:
    using VoCoreEffect::VoCoreEffect;
    bool animate() override {
        ++animateCalls;
        return changes.load();
    }
    CIImage render() override {
        ++renders;
        return squareImage();
    }
    std::atomic<bool> changes{false};
    std::atomic<int> animateCalls{0}, renders{0};
};

// Makes surfaces on headless hosts, and after each test ends their threads and checks none is left.
class SurfaceTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A surface on a fresh headless host of `frame`, on the manual clock unless `systemClock`.
    std::shared_ptr<VoCoreSurface> makeSurface(const NSRect& frame = NSRect{{0, 0}, {400, 300}},
                                               bool systemClock = false);
    std::shared_ptr<VoSurfaceHostHeadless> hostOf(const std::shared_ptr<VoCoreSurface>& surface) const;

    std::shared_ptr<VoManualClock> clock_ = std::make_shared<VoManualClock>();
    std::vector<std::shared_ptr<VoCoreSurface>> surfaces_;
    std::vector<std::weak_ptr<VoCoreEffect>> effects_;

    template <class T = CountingEffect>
    std::shared_ptr<T> makeEffect(const std::shared_ptr<VoCoreSurface>& surface) {
        auto effect = VoCoreElement::create<T>(surface);
        effects_.push_back(effect);
        return effect;
    }
};

}  // namespace vo::test
