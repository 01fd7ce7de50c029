// SPDX-License-Identifier: MIT
// The screens of the running X display through Qt: coordinate conversion, screen numbers, and a real
// two-monitor arrangement made with xrandr on the test's X server.
#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QScreen>
#include <filesystem>

#include "System/VoMultiMonitor.h"
#include "System/VoQtScreenSource_p.h"
#include "System/VoTaskLauncher.h"
#include "system_test_support.h"

namespace vo {
namespace {

namespace fs = std::filesystem;

NSRect rect(float x, float y, float w, float h) { return {{x, y}, {w, h}}; }

TEST(VoQtScreenConversion, MainScreenStartsAtTheOrigin) {
    const QRect main(0, 0, 1440, 900);
    EXPECT_EQ(detail::globalRectFromQt(main, main), rect(0, 0, 1440, 900));
    // A panel of 28 pixels at the top leaves the visible frame below it.
    EXPECT_EQ(detail::globalRectFromQt(QRect(0, 28, 1440, 872), main), rect(0, 0, 1440, 872));
    // A dock of 60 pixels at the bottom raises its origin.
    EXPECT_EQ(detail::globalRectFromQt(QRect(0, 0, 1440, 840), main), rect(0, 60, 1440, 840));
}

TEST(VoQtScreenConversion, OtherScreensAroundTheMainOne) {
    const QRect main(1920, 200, 1440, 900);  // the main screen need not be at Qt's origin
    EXPECT_EQ(detail::globalRectFromQt(main, main), rect(0, 0, 1440, 900));
    // Left of it, top-aligned with Qt's origin: its bottom is 80 below the main screen's bottom.
    EXPECT_EQ(detail::globalRectFromQt(QRect(0, 0, 1920, 1180), main), rect(-1920, -80, 1920, 1180));
    // Above it (smaller Qt y) means a larger global y.
    EXPECT_EQ(detail::globalRectFromQt(QRect(1920, -880, 1920, 1080), main), rect(0, 900, 1920, 1080));
}

TEST(VoQtScreenConversion, ScreenNumbersAreStableAndDistinct) {
    const std::uint32_t a = detail::screenNumberFor("HDMI-1", "DEL", "U2715H", "ABC123");
    EXPECT_EQ(a, detail::screenNumberFor("HDMI-1", "DEL", "U2715H", "ABC123"));
    EXPECT_NE(a, detail::screenNumberFor("HDMI-2", "DEL", "U2715H", "ABC123"));
    EXPECT_NE(a, detail::screenNumberFor("HDMI-1", "DEL", "U2715H", "ABC124"));
    EXPECT_NE(detail::screenNumberFor("", "", "", ""), 0u);
}

// Runs xrandr on the test's display; its exit status.
int xrandr(std::vector<std::string> arguments) {
    return VoTaskLauncher::standard()
        ->launchAndWait({"/usr/bin/xrandr", std::move(arguments), VoTaskStream::capture(), VoTaskStream::capture()})
        .terminationStatus;
}

std::string listMonitors() {
    return VoTaskLauncher::standard()
        ->launchAndWait({"/usr/bin/xrandr", {"--listmonitors"}, VoTaskStream::capture(), VoTaskStream::nullDevice()})
        .output;
}

class VoQtScreensXvfb : public ::testing::Test {
protected:
    void SetUp() override {
        const char* display = std::getenv("DISPLAY");
        if (!display || !*display) GTEST_SKIP() << "no X display (the test command runs the suite under Xvfb)";
        if (!fs::exists("/usr/bin/xrandr")) GTEST_SKIP() << "xrandr is not installed (x11-xserver-utils)";
        ASSERT_TRUE(test::hasGuiApplication());
        VoMultiMonitor::setScreenSource(nullptr);
    }
    void TearDown() override {
        if (!created_) return;
        xrandr({"--delmonitor", "VoLeft"});
        xrandr({"--delmonitor", "VoRight"});
        // Back to the server's own arrangement, and Qt has seen it.
        EXPECT_EQ(listMonitors(), before_);
        test::processEventsUntil([this] { return QGuiApplication::screens().size() == screensBefore_; }, 10);
        EXPECT_EQ(QGuiApplication::screens().size(), screensBefore_);
    }

    bool created_ = false;
    std::string before_;
    qsizetype screensBefore_ = 0;
};

TEST_F(VoQtScreensXvfb, OneScreenOfTheServer) {
    const std::vector<VoScreen> list = VoScreenSource::standard()->screens();
    ASSERT_EQ(list.size(), size_t(QGuiApplication::screens().size()));
    ASSERT_FALSE(list.empty());
    const QScreen* primary = QGuiApplication::primaryScreen();
    EXPECT_EQ(list[0].name, primary->name().toStdString());
    EXPECT_EQ(list[0].frame, rect(0, 0, float(primary->geometry().width()), float(primary->geometry().height())));
    EXPECT_NE(list[0].screenNumber, 0u);
    EXPECT_EQ(list[0].screenNumber, VoScreenSource::standard()->screens()[0].screenNumber);
}

TEST_F(VoQtScreensXvfb, TwoMonitorsMadeWithXrandr) {
    before_ = listMonitors();
    screensBefore_ = QGuiApplication::screens().size();
    const QRect root = QGuiApplication::primaryScreen()->virtualGeometry();
    if (root.width() < 1280 || root.height() < 1024) GTEST_SKIP() << "the X screen is smaller than 1280x1024";

    // Left: 640x1024 on the server's output (the main screen); right: 640x600 at the top, beside it.
    created_ = true;
    ASSERT_EQ(xrandr({"--setmonitor", "VoLeft", "640/169x1024/271+0+0", "screen"}), 0);
    ASSERT_EQ(xrandr({"--setmonitor", "VoRight", "640/169x600/159+640+0", "none"}), 0);
    ASSERT_TRUE(test::processEventsUntil([] { return QGuiApplication::screens().size() == 2; }, 10)) << listMonitors();

    const std::vector<VoScreen> list = VoScreenSource::standard()->screens();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].name, "VoLeft");
    EXPECT_EQ(list[1].name, "VoRight");
    EXPECT_EQ(list[0].frame, rect(0, 0, 640, 1024));
    // Qt puts the right monitor at y 0 from the top; globally its bottom lies 424 above the main one's.
    EXPECT_EQ(list[1].frame, rect(640, 424, 640, 600));
    EXPECT_EQ(list[0].visibleFrame, list[0].frame);  // no panels without a window manager
    EXPECT_NE(list[0].screenNumber, list[1].screenNumber);

    const std::string expected = "DisplaySet-" + std::to_string(list[0].screenNumber) +
                                 "[0.000000,0.000000][640.000000,1024.000000]-" + std::to_string(list[1].screenNumber) +
                                 "[640.000000,424.000000][640.000000,600.000000]";
    EXPECT_EQ(VoMultiMonitor::displaySetString(), expected);
    EXPECT_EQ(VoMultiMonitor::surface(), rect(0, 0, 1280, 1024));
    EXPECT_EQ(VoMultiMonitor::screenWithRect(rect(640, 500, 10, 10))->name, "VoRight");
    EXPECT_EQ(VoMultiMonitor::screenWithRect(rect(639, 500, 10, 10))->name, "VoLeft");
    EXPECT_EQ(VoMultiMonitor::screenWithRect(rect(700, 100, 10, 10)), std::nullopt);  // below the right one
    EXPECT_EQ(VoMultiMonitor::screenWithSmallestVisibleFrame().name, "VoRight");
    EXPECT_EQ(VoMultiMonitor::screenWithLargestVisibleFrame().name, "VoLeft");

    // The same monitors give the same numbers on the next reading.
    EXPECT_EQ(VoMultiMonitor::displaySetString(), expected);
}

}  // namespace
}  // namespace vo
