// SPDX-License-Identifier: MIT
// VoMultiMonitor over fake screen lists.
#include "System/VoMultiMonitor.h"

#include <gtest/gtest.h>

#include <map>

#include "Common/Foundation/VoException.h"
#include "System/VoDesktopPictureSource.h"

namespace vo {
namespace {

NSRect rect(float x, float y, float w, float h) { return {{x, y}, {w, h}}; }

VoScreen screen(std::uint32_t number, NSRect frame, std::optional<NSRect> visible = std::nullopt) {
    return {number, frame, visible.value_or(frame), "screen" + std::to_string(number)};
}

class FakeScreens final : public VoScreenSource {
public:
    std::vector<VoScreen> list;
    std::vector<VoScreen> screens() override { return list; }
};

class FakePictures final : public VoDesktopPictureSource {
public:
    std::map<std::uint32_t, std::string> paths;
    std::vector<size_t> positions;
    std::optional<std::string> desktopPicturePath(const VoScreen& s, size_t position) override {
        positions.push_back(position);
        const auto it = paths.find(s.screenNumber);
        if (it == paths.end()) return std::nullopt;
        return it->second;
    }
};

class VoMultiMonitorTest : public ::testing::Test {
protected:
    void SetUp() override { VoMultiMonitor::setScreenSource(screens_); }
    void TearDown() override {
        VoMultiMonitor::setScreenSource(nullptr);
        VoMultiMonitor::setDesktopPictureSource(nullptr);
    }
    std::shared_ptr<FakeScreens> screens_ = std::make_shared<FakeScreens>();
};

TEST_F(VoMultiMonitorTest, OneScreenArrangementString) {
    screens_->list = {screen(1, rect(0, 0, 1440, 900))};
    EXPECT_EQ(VoMultiMonitor::displaySetString(), "DisplaySet-1[0.000000,0.000000][1440.000000,900.000000]");
}

TEST_F(VoMultiMonitorTest, TwoScreenArrangementString) {
    screens_->list = {screen(69732800, rect(0, 0, 1440, 900)), screen(722475279, rect(1440, -180.5f, 1920, 1080))};
    EXPECT_EQ(VoMultiMonitor::displaySetString(),
              "DisplaySet-69732800[0.000000,0.000000][1440.000000,900.000000]"
              "-722475279[1440.000000,-180.500000][1920.000000,1080.000000]");
    // Any move, resize or renumbering gives another key.
    screens_->list[1].frame.origin.y = -180;
    const std::string moved = VoMultiMonitor::displaySetString();
    EXPECT_NE(moved.find("-722475279[1440.000000,-180.000000]"), std::string::npos);
}

TEST_F(VoMultiMonitorTest, NoScreens) {
    EXPECT_EQ(VoMultiMonitor::surface(), rect(0, 0, 0, 0));
    EXPECT_EQ(VoMultiMonitor::displaySetString(), "DisplaySet");
    EXPECT_EQ(VoMultiMonitor::screenWithRect(rect(0, 0, 10, 10)), std::nullopt);
    EXPECT_TRUE(VoMultiMonitor::wallPaperPerScreen().empty());
}

TEST_F(VoMultiMonitorTest, SmallestAndLargestOfNoScreensAreIndexErrors) {
    for (auto query :
         {&VoMultiMonitor::screenWithSmallestVisibleFrame, &VoMultiMonitor::screenWithLargestVisibleFrame}) {
        try {
            (void)query();
            ADD_FAILURE() << "expected an index error";
        } catch (const VoException& e) {
            EXPECT_EQ(e.name(), "NSRangeException");
        }
    }
}

TEST_F(VoMultiMonitorTest, SurfaceIsTheUnionOfTheFrames) {
    screens_->list = {screen(1, rect(0, 0, 1440, 900)), screen(2, rect(1440, -100, 1920, 1200))};
    EXPECT_EQ(VoMultiMonitor::surface(), rect(0, -100, 3360, 1200));
}

TEST_F(VoMultiMonitorTest, SurfaceAlwaysReachesTheOrigin) {
    // An arrangement lying wholly away from the origin still stretches to it.
    screens_->list = {screen(1, rect(100, 200, 800, 600))};
    EXPECT_EQ(VoMultiMonitor::surface(), rect(0, 0, 900, 800));
    screens_->list = {screen(1, rect(-2000, -1500, 800, 600))};
    EXPECT_EQ(VoMultiMonitor::surface(), rect(-2000, -1500, 2000, 1500));
}

TEST_F(VoMultiMonitorTest, SharedEdgeBelongsToTheScreenOnTheRight) {
    const VoScreen left = screen(1, rect(0, 0, 1440, 900)), right = screen(2, rect(1440, 0, 1280, 1024));
    screens_->list = {left, right};
    EXPECT_EQ(VoMultiMonitor::screenWithRect(rect(1440, 10, 50, 50)), right);
    EXPECT_EQ(VoMultiMonitor::screenWithRect(rect(1439.5f, 10, 50, 50)), left);
    EXPECT_EQ(VoMultiMonitor::screenWithRect(rect(0, 0, 1, 1)), left);              // left and bottom edges are inside
    EXPECT_EQ(VoMultiMonitor::screenWithRect(rect(100, 900, 1, 1)), std::nullopt);  // top edge is outside
    EXPECT_EQ(VoMultiMonitor::screenWithRect(rect(2720, 0, 1, 1)), std::nullopt);
}

TEST_F(VoMultiMonitorTest, OnlyTheOriginCountsNotTheOverlap) {
    const VoScreen left = screen(1, rect(0, 0, 1440, 900)), right = screen(2, rect(1440, 0, 1280, 1024));
    screens_->list = {left, right};
    // Almost wholly on the right screen, but its origin is on the left one.
    EXPECT_EQ(VoMultiMonitor::screenWithRect(rect(1430, 100, 1000, 500)), left);
    EXPECT_EQ(VoMultiMonitor::screenWithRect(rect(-10, 100, 500, 500)), std::nullopt);
}

TEST_F(VoMultiMonitorTest, SmallestAndLargestVisibleFrames) {
    const VoScreen a = screen(1, rect(0, 0, 1440, 900), rect(0, 0, 1440, 878));
    const VoScreen b = screen(2, rect(1440, 0, 2560, 1440));
    const VoScreen c = screen(3, rect(-1024, 0, 1024, 768));
    screens_->list = {a, b, c};
    EXPECT_EQ(VoMultiMonitor::screenWithSmallestVisibleFrame(), c);
    EXPECT_EQ(VoMultiMonitor::screenWithLargestVisibleFrame(), b);
    screens_->list = {b};
    EXPECT_EQ(VoMultiMonitor::screenWithSmallestVisibleFrame(), b);
    EXPECT_EQ(VoMultiMonitor::screenWithLargestVisibleFrame(), b);
}

TEST_F(VoMultiMonitorTest, TieOfAreasGoesToTheLaterScreenOfDifferentPositionOrShape) {
    const VoScreen a = screen(1, rect(0, 0, 1000, 500));
    const VoScreen moved = screen(2, rect(1000, 0, 1000, 500));   // same size, elsewhere
    const VoScreen shaped = screen(3, rect(2000, 0, 500, 1000));  // same area, other shape
    screens_->list = {a, moved};
    EXPECT_EQ(VoMultiMonitor::screenWithSmallestVisibleFrame(), moved);
    EXPECT_EQ(VoMultiMonitor::screenWithLargestVisibleFrame(), moved);
    screens_->list = {a, moved, shaped};
    EXPECT_EQ(VoMultiMonitor::screenWithSmallestVisibleFrame(), shaped);
    EXPECT_EQ(VoMultiMonitor::screenWithLargestVisibleFrame(), shaped);
}

TEST_F(VoMultiMonitorTest, IdenticalVisibleFramesKeepTheFirstScreen) {
    // Two screens mirroring the same area: of identical frames the first in list order is returned.
    const VoScreen a = screen(1, rect(0, 0, 1280, 1024)), b = screen(2, rect(0, 0, 1280, 1024));
    screens_->list = {a, b};
    EXPECT_EQ(VoMultiMonitor::screenWithSmallestVisibleFrame(), a);
    EXPECT_EQ(VoMultiMonitor::screenWithLargestVisibleFrame(), a);
}

TEST_F(VoMultiMonitorTest, WallPaperPairsOrTheScreenAlone) {
    auto pictures = std::make_shared<FakePictures>();
    pictures->paths = {{2, "/usr/share/backgrounds/b.jpg"}};
    VoMultiMonitor::setDesktopPictureSource(pictures);
    const VoScreen a = screen(1, rect(0, 0, 1440, 900)), b = screen(2, rect(1440, 0, 1280, 1024));
    screens_->list = {a, b};
    const std::vector<VoScreenWallPaper> papers = VoMultiMonitor::wallPaperPerScreen();
    ASSERT_EQ(papers.size(), 2u);
    EXPECT_EQ(papers[0].screen, a);
    EXPECT_EQ(papers[0].picturePath, std::nullopt);
    EXPECT_EQ(papers[1].screen, b);
    EXPECT_EQ(papers[1].picturePath, "/usr/share/backgrounds/b.jpg");
    EXPECT_EQ(pictures->positions, std::vector<size_t>({0, 1}));
}

}  // namespace
}  // namespace vo
