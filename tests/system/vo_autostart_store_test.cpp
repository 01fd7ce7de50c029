// SPDX-License-Identifier: MIT
// The XDG autostart folder as the login-item store, in a temporary config home.
#include "System/VoAutostartStore.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "System/VoLoginItems.h"
#include "System/VoTaskLauncher.h"
#include "system_test_support.h"

namespace vo {
namespace {

namespace fs = std::filesystem;

class VoAutostartStoreTest : public ::testing::Test {
protected:
    void TearDown() override { VoLoginItems::setStore(nullptr); }
    fs::path autostart() const { return home_.path() / "autostart"; }
    // desktop-file-validate's verdict on an entry: empty when it is valid.
    static std::string validate(const fs::path& file) {
        const VoTaskResult r = VoTaskLauncher::standard()->launchAndWait(
            {"/usr/bin/desktop-file-validate", {file.string()}, VoTaskStream::capture(), VoTaskStream::capture()});
        return r.terminationStatus == 0 ? r.output : "status " + std::to_string(r.terminationStatus) + ": " + r.output;
    }

    test::TempDir home_;
    test::ScopedEnv config_{"XDG_CONFIG_HOME", home_.path().string()};
};

TEST_F(VoAutostartStoreTest, FolderFollowsTheConfigHome) {
    EXPECT_EQ(VoAutostartStore::folder(), autostart());
    test::ScopedEnv unset("XDG_CONFIG_HOME", std::nullopt);
    test::ScopedEnv home("HOME", "/home/someone");
    EXPECT_EQ(VoAutostartStore::folder(), fs::path("/home/someone/.config/autostart"));
    test::ScopedEnv relative("XDG_CONFIG_HOME", "relative/config");  // not absolute: ignored
    EXPECT_EQ(VoAutostartStore::folder(), fs::path("/home/someone/.config/autostart"));
}

TEST_F(VoAutostartStoreTest, ItemNames) {
    EXPECT_EQ(VoAutostartStore::itemName("/Applications/B.app"), "B");
    EXPECT_EQ(VoAutostartStore::itemName("/usr/bin/xterm"), "xterm");
    EXPECT_EQ(VoAutostartStore::itemName("/opt/tool.sh"), "tool.sh");
}

TEST_F(VoAutostartStoreTest, AddingWritesAValidEntryPlacedLast) {
    if (!fs::exists("/usr/bin/desktop-file-validate")) GTEST_SKIP() << "desktop-file-validate is not installed";
    VoLoginItems::addLoginItem("/Applications/A.app");
    VoLoginItems::addLoginItem("/usr/bin/xterm");
    const fs::path a = autostart() / "A.desktop", x = autostart() / "xterm.desktop";
    ASSERT_TRUE(fs::exists(a));
    ASSERT_TRUE(fs::exists(x));
    EXPECT_EQ(validate(a), "");
    EXPECT_EQ(validate(x), "");
    const std::string text = test::readFile(a);
    EXPECT_NE(text.find("Name=A\n"), std::string::npos);
    EXPECT_NE(text.find("Exec=\"/Applications/A.app\"\n"), std::string::npos);
    EXPECT_NE(text.find("Hidden=false\n"), std::string::npos);
    VoAutostartStore store;
    EXPECT_EQ(store.listItemPaths(), "/Applications/A.app, /usr/bin/xterm\n");
}

TEST_F(VoAutostartStoreTest, ListingFindsAndRemovalDeletesThroughTheLoginItems) {
    VoLoginItems::addLoginItem("/Applications/A.app");
    VoLoginItems::addLoginItem("/Applications/B.app");
    EXPECT_EQ(VoLoginItems::isLoginItem("B.app"), "/Applications/B.app");
    EXPECT_EQ(VoLoginItems::isLoginItem("B"), std::nullopt);
    VoLoginItems::removeLoginItem("B.app");
    EXPECT_FALSE(fs::exists(autostart() / "B.desktop"));
    EXPECT_EQ(VoLoginItems::isLoginItem("B.app"), std::nullopt);
    EXPECT_EQ(VoLoginItems::isLoginItem("A.app"), "/Applications/A.app");
    VoLoginItems::removeLoginItem("A");
    EXPECT_EQ(VoAutostartStore().listItemPaths(), "");
}

TEST_F(VoAutostartStoreTest, AddingAgainMovesTheItemToTheEnd) {
    VoAutostartStore store;
    store.makeItemAtEnd("/opt/one");
    store.makeItemAtEnd("/opt/two");
    store.makeItemAtEnd("/opt/three");
    store.makeItemAtEnd("/srv/one");  // same name: replaces the first entry, now last
    EXPECT_EQ(store.listItemPaths(), "/opt/two, /opt/three, /srv/one\n");
}

TEST_F(VoAutostartStoreTest, EntriesOfOtherProgramsComeFirstAndHiddenOnesAreSkipped) {
    test::writeFile(autostart() / "zz-tracker.desktop",
                    "[Desktop Entry]\nType=Application\nName=Tracker\nName[de]=Verfolger\n"
                    "Exec=\"/usr/lib/tracker/tracker miner\" --start %U\n");
    test::writeFile(autostart() / "nm-applet.desktop",
                    "# a comment\n[Desktop Entry]\nType=Application\nName=Network\nExec=nm-applet\n"
                    "[Desktop Action new]\nExec=other\n");
    test::writeFile(autostart() / "removed.desktop",
                    "[Desktop Entry]\nType=Application\nName=Gone\nExec=/bin/gone\nHidden=true\n");
    test::writeFile(autostart() / "notes.txt", "[Desktop Entry]\nExec=/bin/not-an-entry\n");
    VoAutostartStore store;
    store.makeItemAtEnd("/Applications/Mine.app");
    EXPECT_EQ(store.listItemPaths(), "nm-applet, /usr/lib/tracker/tracker miner, /Applications/Mine.app\n");
    store.deleteItemNamed("Tracker");  // deleted by its name, whoever wrote it
    EXPECT_FALSE(fs::exists(autostart() / "zz-tracker.desktop"));
}

TEST_F(VoAutostartStoreTest, AwkwardPathsRoundTrip) {
    if (!fs::exists("/usr/bin/desktop-file-validate")) GTEST_SKIP() << "desktop-file-validate is not installed";
    VoAutostartStore store;
    const std::string awkward = "/opt/My \"Quoted\" $HOME `cmd` 100% back\\slash.app";
    store.makeItemAtEnd(awkward);
    store.makeItemAtEnd(" /leading blank");
    EXPECT_EQ(validate(autostart() / "My \"Quoted\" $HOME `cmd` 100% back\\slash.desktop"), "");
    EXPECT_EQ(store.listItemPaths(), awkward + ",  /leading blank\n");
}

TEST_F(VoAutostartStoreTest, MissingFolderListsNothing) {
    VoAutostartStore store;
    EXPECT_EQ(store.listItemPaths(), "");
    store.deleteItemNamed("anything");
    EXPECT_FALSE(fs::exists(autostart()));
}

}  // namespace
}  // namespace vo
