// SPDX-License-Identifier: MIT
#include "Common/CoreGraphics/VoRectUtils.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "Common/Foundation/VoLog.h"

namespace vo {
namespace {

NSRect rect(float x, float y, float w, float h) { return {{x, y}, {w, h}}; }

TEST(VoRectUtils, QuarterNinthAndNineTimesFrames) {
    EXPECT_EQ(VoRectUtils::quadFrame(rect(0, 0, 100, 80)), rect(25, 20, 50, 40));
    EXPECT_EQ(VoRectUtils::quadrupleFrame(rect(10, 10, 100, 80)), rect(-40, -30, 200, 160));
    EXPECT_EQ(VoRectUtils::ninthFrame(rect(0, 0, 90, 90)), rect(10, 10, 30, 30));
    EXPECT_EQ(VoRectUtils::nineTimesFrame(rect(0, 0, 30, 30)), rect(-10, -10, 90, 90));
}

TEST(VoRectUtils, FitKeepsTheRatioAndLeavesTheSpaceOncePerAxis) {
    EXPECT_EQ(VoRectUtils::fitRectIntoRectWithMinimalSpace(rect(0, 0, 400, 200), rect(0, 0, 300, 300), 20),
              rect(10, 80, 280, 140));
    // Already fitting: never enlarged, only centred.
    EXPECT_EQ(VoRectUtils::fitRectIntoRectWithMinimalSpace(rect(5, 5, 40, 20), rect(0, 0, 300, 300), 20),
              rect(130, 140, 40, 20));
    // Too tall: the height test runs after the width test.
    EXPECT_EQ(VoRectUtils::fitRectIntoRectWithMinimalSpace(rect(0, 0, 100, 400), rect(0, 0, 300, 300), 20),
              rect(115, 10, 70, 280));
}

TEST(VoRectUtils, SmallestAndLargestPreferTheSecondOnATie) {
    const NSRect a = rect(0, 0, 10, 20), b = rect(5, 5, 20, 10), big = rect(0, 0, 100, 100);
    EXPECT_EQ(VoRectUtils::smallestRectOfAndRect(a, b), b);
    EXPECT_EQ(VoRectUtils::largestRectOfAndRect(a, b), b);
    EXPECT_EQ(VoRectUtils::smallestRectOfAndRect(big, a), a);
    EXPECT_EQ(VoRectUtils::smallestRectOfAndRect(a, big), a);
    EXPECT_EQ(VoRectUtils::largestRectOfAndRect(big, a), big);
    EXPECT_EQ(VoRectUtils::largestRectOfAndRect(a, big), big);
}

TEST(VoRectUtils, MergeHasNoSpecialCaseForEmptyRectangles) {
    EXPECT_EQ(VoRectUtils::mergeRectWithRect(rect(10, 10, 5, 5), rect(0, 0, 0, 0)), rect(0, 0, 15, 15));
    EXPECT_EQ(VoRectUtils::mergeRectWithRect(rect(0, 0, 10, 10), rect(20, -5, 10, 10)), rect(0, -5, 30, 15));
}

TEST(VoRectUtils, EqualityIsExactAndNaNIsNeverEqual) {
    EXPECT_TRUE(VoRectUtils::rectIsEqualToRect(rect(1, 2, 3, 4), rect(1, 2, 3, 4)));
    EXPECT_FALSE(VoRectUtils::rectIsEqualToRect(rect(1, 2, 3, 4), rect(1, 2, 3, 4.0001f)));
    EXPECT_FALSE(VoRectUtils::rectIsEqualToRect(rect(NAN, 2, 3, 4), rect(NAN, 2, 3, 4)));
}

TEST(VoRectUtils, DebugRectLogsOneLine) {
    std::vector<std::string> lines;
    const VoLogSink previous = VoSetLogSink([&](const std::string& line) { lines.push_back(line); });
    VoRectUtils::debugRectWithName(rect(1, 2, 3, 4), "x");
    VoSetLogSink(previous);
    ASSERT_EQ(lines.size(), 1u);
    const std::string expected = "Rect 'x' (1.000000,2.000000) 3.000000x4.000000\n";
    ASSERT_GE(lines[0].size(), expected.size());
    EXPECT_EQ(lines[0].substr(lines[0].size() - expected.size()), expected);
}

TEST(VoRectUtils, CentreAndConversions) {
    EXPECT_EQ(VoRectUtils::center(rect(10, 20, 30, 40)), (NSPoint{25, 40}));
    EXPECT_EQ(VoRectUtils::toCGRect(rect(1, 2, 3, 4)), (CGRect{1, 2, 3, 4}));
    EXPECT_EQ(VoRectUtils::fromCGRect(CGRect{1, 2, 3, 4}), rect(1, 2, 3, 4));
}

}  // namespace
}  // namespace vo
