// SPDX-License-Identifier: MIT
// Desktop pictures from the settings of each desktop, read through a fake launcher and fixture files.
#include "System/VoDesktopPictureSource.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "System/VoMultiMonitor.h"
#include "System/VoPlasmaWallpapers_p.h"
#include "system_test_support.h"

namespace vo {
namespace {

namespace fs = std::filesystem;
using Desktop = VoDesktopSettingsPictures::Desktop;

// Answers each command line (program and arguments joined by blanks) from a table; others fail.
std::shared_ptr<test::FakeTaskLauncher> settings(std::map<std::string, std::string> answers) {
    auto launcher = std::make_shared<test::FakeTaskLauncher>();
    launcher->onWait = [answers](const VoTaskRequest& r) {
        std::string line = r.launchPath;
        for (const std::string& a : r.arguments) line += " " + a;
        const auto it = answers.find(line);
        if (it == answers.end()) return VoTaskResult{1, {}, {}};
        return VoTaskResult{0, it->second, {}};
    };
    return launcher;
}

const VoScreen kMain{1, {{0, 0}, {1920, 1080}}, {{0, 0}, {1920, 1080}}, "HDMI-1"};
const VoScreen kSecond{2, {{1920, 0}, {1280, 1024}}, {{1920, 0}, {1280, 1024}}, "DP-2"};

TEST(VoDesktopSettingsPictures, DesktopNames) {
    EXPECT_EQ(VoDesktopSettingsPictures::desktopFromName("GNOME"), Desktop::Gnome);
    EXPECT_EQ(VoDesktopSettingsPictures::desktopFromName("ubuntu:GNOME"), Desktop::Gnome);
    EXPECT_EQ(VoDesktopSettingsPictures::desktopFromName("X-Cinnamon"), Desktop::Cinnamon);
    EXPECT_EQ(VoDesktopSettingsPictures::desktopFromName("MATE"), Desktop::Mate);
    EXPECT_EQ(VoDesktopSettingsPictures::desktopFromName("XFCE"), Desktop::Xfce);
    EXPECT_EQ(VoDesktopSettingsPictures::desktopFromName("KDE"), Desktop::Plasma);
    EXPECT_EQ(VoDesktopSettingsPictures::desktopFromName(""), Desktop::Unknown);
    EXPECT_EQ(VoDesktopSettingsPictures::desktopFromName("sway"), Desktop::Unknown);
}

TEST(VoDesktopSettingsPictures, GnomePictureUri) {
    auto launcher = settings({
        {"/usr/bin/gsettings get org.gnome.desktop.interface color-scheme", "'default'\n"},
        {"/usr/bin/gsettings get org.gnome.desktop.background picture-uri",
         "'file:///usr/share/backgrounds/gnome/adwaita%20light.jpg'\n"},
    });
    VoDesktopSettingsPictures source(Desktop::Gnome, launcher, "/nonexistent");
    EXPECT_EQ(source.desktopPicturePath(kMain, 0), "/usr/share/backgrounds/gnome/adwaita light.jpg");
    EXPECT_EQ(source.desktopPicturePath(kSecond, 1), "/usr/share/backgrounds/gnome/adwaita light.jpg");
    EXPECT_EQ(launcher->waited.at(0).standardOutput.kind, VoTaskStream::Kind::Capture);
}

TEST(VoDesktopSettingsPictures, GnomeDarkSchemePrefersTheDarkPicture) {
    auto launcher = settings({
        {"/usr/bin/gsettings get org.gnome.desktop.interface color-scheme", "'prefer-dark'\n"},
        {"/usr/bin/gsettings get org.gnome.desktop.background picture-uri", "'file:///light.jpg'\n"},
        {"/usr/bin/gsettings get org.gnome.desktop.background picture-uri-dark", "'file:///dark.jpg'\n"},
    });
    EXPECT_EQ(VoDesktopSettingsPictures(Desktop::Gnome, launcher, "/").desktopPicturePath(kMain, 0), "/dark.jpg");
}

TEST(VoDesktopSettingsPictures, EmptyOrRemoteSettingsGiveNothing) {
    auto launcher = settings({
        {"/usr/bin/gsettings get org.gnome.desktop.background picture-uri", "''\n"},
        {"/usr/bin/gsettings get org.cinnamon.desktop.background picture-uri", "'https://example.org/a.jpg'\n"},
    });
    EXPECT_EQ(VoDesktopSettingsPictures(Desktop::Gnome, launcher, "/").desktopPicturePath(kMain, 0), std::nullopt);
    EXPECT_EQ(VoDesktopSettingsPictures(Desktop::Cinnamon, launcher, "/").desktopPicturePath(kMain, 0), std::nullopt);
    // A desktop whose settings program fails (or is missing) has no picture either.
    EXPECT_EQ(VoDesktopSettingsPictures(Desktop::Mate, launcher, "/").desktopPicturePath(kMain, 0), std::nullopt);
}

TEST(VoDesktopSettingsPictures, MateFileName) {
    auto launcher = settings({{"/usr/bin/gsettings get org.mate.background picture-filename",
                               "'/usr/share/backgrounds/mate/nature/Wood.jpg'\n"}});
    EXPECT_EQ(VoDesktopSettingsPictures(Desktop::Mate, launcher, "/").desktopPicturePath(kMain, 0),
              "/usr/share/backgrounds/mate/nature/Wood.jpg");
}

TEST(VoDesktopSettingsPictures, XfceByMonitorNameThenPosition) {
    auto launcher = settings({
        {"/usr/bin/xfconf-query -c xfce4-desktop -p /backdrop/screen0/monitorHDMI-1/workspace0/last-image",
         "/home/me/main.png\n"},
        {"/usr/bin/xfconf-query -c xfce4-desktop -p /backdrop/screen0/monitor1/image-path", "/home/me/old.png\n"},
    });
    VoDesktopSettingsPictures source(Desktop::Xfce, launcher, "/");
    EXPECT_EQ(source.desktopPicturePath(kMain, 0), "/home/me/main.png");
    EXPECT_EQ(source.desktopPicturePath(kSecond, 1), "/home/me/old.png");
}

TEST(VoDesktopSettingsPictures, PlasmaPerScreenFromItsConfiguration) {
    test::TempDir config;
    const fs::path package = config.path() / "wallpapers" / "Next";
    test::writeFile(package / "contents/images/1920x1080.png", "x");
    test::writeFile(package / "contents/images/5120x2880.png", "x");
    test::writeFile(package / "contents/images/1280x1024.png", "x");
    test::writeFile(config.path() / "plasma-org.kde.plasma.desktop-appletsrc",
                    "[ActionPlugins][0]\nRightButton;NoModifier=org.kde.contextmenu\n\n"
                    "[Containments][1]\nactivityId=abc\nformfactor=0\nlastScreen=0\nplugin=org.kde.plasma.folder\n"
                    "wallpaperplugin=org.kde.image\n\n"
                    "[Containments][1][Wallpaper][org.kde.image][General]\nImage=file://" +
                        (config.path() / "photo one.jpg").string() +
                        "\n\n"
                        "[Containments][2]\nlastScreen=0\nplugin=org.kde.panel\n\n"
                        "[Containments][7]\nlastScreen=1\nplugin=org.kde.plasma.folder\n\n"
                        "[Containments][7][Wallpaper][org.kde.image][General]\nImage=" +
                        package.string() + "/\n");
    VoDesktopSettingsPictures source(Desktop::Plasma, nullptr, config.path());
    EXPECT_EQ(source.desktopPicturePath(kMain, 0), (config.path() / "photo one.jpg").string());
    EXPECT_EQ(source.desktopPicturePath(kSecond, 1), (package / "contents/images/5120x2880.png").string());
    EXPECT_EQ(source.desktopPicturePath(kSecond, 2), std::nullopt);
    EXPECT_EQ(VoDesktopSettingsPictures(Desktop::Plasma, nullptr, "/nonexistent").desktopPicturePath(kMain, 0),
              std::nullopt);
}

TEST(VoDesktopSettingsPictures, WallpaperPackageOrPlainFile) {
    EXPECT_EQ(detail::wallpaperPackageImage("/usr/share/backgrounds/a.jpg"), "/usr/share/backgrounds/a.jpg");
}

TEST(VoDesktopSettingsPictures, UnknownDesktopAsksNothing) {
    auto launcher = settings({});
    EXPECT_EQ(VoDesktopSettingsPictures(Desktop::Unknown, launcher, "/").desktopPicturePath(kMain, 0), std::nullopt);
    EXPECT_TRUE(launcher->waited.empty());
}

TEST(VoDesktopSettingsPictures, SessionWithoutADesktopGivesTheOneElementFallback) {
    // The test server runs no desktop: every screen comes back alone.
    test::ScopedEnv none("XDG_CURRENT_DESKTOP", std::nullopt);
    class OneScreen final : public VoScreenSource {
    public:
        std::vector<VoScreen> screens() override { return {kMain}; }
    };
    VoMultiMonitor::setScreenSource(std::make_shared<OneScreen>());
    const auto papers = VoMultiMonitor::wallPaperPerScreen();
    VoMultiMonitor::setScreenSource(nullptr);
    ASSERT_EQ(papers.size(), 1u);
    EXPECT_EQ(papers[0].screen, kMain);
    EXPECT_EQ(papers[0].picturePath, std::nullopt);
}

}  // namespace
}  // namespace vo
