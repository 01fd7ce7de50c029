// SPDX-License-Identifier: MIT
#include "surface_test_support.h"

#include <QCoreApplication>

#include <chrono>
#include <thread>

#include "Common/CoreGraphics/VoCoreSurfaceRefreshThread.h"
#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Common/Foundation/VoLog.h"

namespace vo::test {

void ensureApplication() {
    static int argc = 1;
    static char name[] = "vo_surface_tests";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance()) new QCoreApplication(argc, argv);  // lives until the process ends
}

void pumpEvents() {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
}

bool waitFor(const std::function<bool()>& condition, double timeoutSeconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return condition();
        pumpEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

LogCapture::LogCapture() {
    VoSetLogSink([this](const std::string& line) {
        std::string message = line;
        if (const size_t end = message.find("] "); end != std::string::npos) message.erase(0, end + 2);
        while (!message.empty() && message.back() == '\n') message.pop_back();
        std::lock_guard lock(mutex_);
        lines_.push_back(message);
    });
}

LogCapture::~LogCapture() { VoSetLogSink({}); }

std::vector<std::string> LogCapture::messages() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

bool LogCapture::contains(const std::string& message) const {
    for (const std::string& line : messages()) {
        if (line == message) return true;
    }
    return false;
}

CIImage squareImage(float size, float red) {
    return VoCoreUtils::emptyCoreImageWithExtentAndColor(CGRect{0, 0, size, size}, CIColor{red, 0, 0, 1});
}

CIImage CountingElement::render() {
    ++renders;
    return image;
}

void SurfaceTest::SetUp() { ensureApplication(); }

void SurfaceTest::TearDown() {
    for (const auto& surface : surfaces_) surface->prepareEnd();
    for (const auto& weak : effects_) {
        if (auto effect = weak.lock()) effect->stopEffect();
    }
    clock_->run();
    const bool ended = waitFor([] {
        return VoCoreEffect::runningThreads() == 0 && VoCoreSurfaceRefreshThread::runningThreads() == 0;
    }, 60);
    EXPECT_TRUE(ended) << "threads still running: " << VoCoreEffect::runningThreads() << " effect, "
                       << VoCoreSurfaceRefreshThread::runningThreads() << " refresh";
    pumpEvents();
    surfaces_.clear();
}

std::shared_ptr<VoCoreSurface> SurfaceTest::makeSurface(const NSRect& frame, bool systemClock) {
    auto host = std::make_shared<VoSurfaceHostHeadless>(frame);
    auto surface = VoCoreSurface::initWithFrame(host, frame);
    if (!systemClock) surface->setClock(clock_);
    surfaces_.push_back(surface);
    return surface;
}

std::shared_ptr<VoSurfaceHostHeadless> SurfaceTest::hostOf(const std::shared_ptr<VoCoreSurface>& surface) const {
    return std::static_pointer_cast<VoSurfaceHostHeadless>(surface->host());
}

}  // namespace vo::test
