// SPDX-License-Identifier: MIT
// The release queries of VoSystemInfo over fixed kernel releases, and over the running kernel.
#include <sys/utsname.h>

#include <gtest/gtest.h>

#include "System/VoSystemInfo.h"
#include "system_test_support.h"

namespace vo {
namespace {

class VoSystemInfoRelease : public ::testing::Test {
protected:
    void SetUp() override { VoSystemInfo::setKernel(kernel_); }
    void TearDown() override { VoSystemInfo::setKernel(nullptr); }
    std::shared_ptr<test::FakeKernel> kernel_ = std::make_shared<test::FakeKernel>();
};

TEST_F(VoSystemInfoRelease, KernelFifteenSixIsElCapitan) {
    kernel_->release = "15.6.0";
    EXPECT_EQ(VoSystemInfo::darwinKernelVerion(), std::vector<std::string>({"15", "6", "0"}));
    EXPECT_EQ(VoSystemInfo::osMajorVersion(), 10);
    EXPECT_EQ(VoSystemInfo::osMinorVersion(), 11);
    EXPECT_EQ(VoSystemInfo::osRevision(), 6);
    EXPECT_EQ(VoSystemInfo::osRevisionFix(), 0);
    EXPECT_TRUE(VoSystemInfo::isElCapitan());
    EXPECT_TRUE(VoSystemInfo::isPostYosemite());
    EXPECT_TRUE(VoSystemInfo::isPreSierra());
    EXPECT_TRUE(VoSystemInfo::isPostLeopard());
    EXPECT_FALSE(VoSystemInfo::isSierra());
}

TEST_F(VoSystemInfoRelease, KernelSixteenAloneIsSierra) {
    kernel_->release = "16";
    EXPECT_EQ(VoSystemInfo::darwinKernelVerion(), std::vector<std::string>({"16"}));
    EXPECT_EQ(VoSystemInfo::osMinorVersion(), 12);
    EXPECT_EQ(VoSystemInfo::osRevision(), 0);
    EXPECT_EQ(VoSystemInfo::osRevisionFix(), 0);
    EXPECT_TRUE(VoSystemInfo::isSierra());
    EXPECT_FALSE(VoSystemInfo::isPreSierra());
    EXPECT_FALSE(VoSystemInfo::isElCapitan());
}

TEST_F(VoSystemInfoRelease, EveryReleaseTestMatchesItsMinorVersion) {
    struct Row {
        const char* release;
        int minor;
        bool (*test)();
    };
    const Row rows[] = {
        {"6.8", 2, &VoSystemInfo::isJaguar},          {"7.9.0", 3, &VoSystemInfo::isPanther},
        {"8.11.1", 4, &VoSystemInfo::isTiger},        {"9.8.0", 5, &VoSystemInfo::isLeopard},
        {"10.8.0", 6, &VoSystemInfo::isSnowLeopard},  {"11.4.2", 7, &VoSystemInfo::isLion},
        {"12.6.0", 8, &VoSystemInfo::isMountainLion}, {"13.4.0", 9, &VoSystemInfo::isMavericks},
        {"14.5.0", 10, &VoSystemInfo::isYosemite},    {"15.6.0", 11, &VoSystemInfo::isElCapitan},
        {"16.7.0", 12, &VoSystemInfo::isSierra},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.release);
        kernel_->release = row.release;
        EXPECT_EQ(VoSystemInfo::osMinorVersion(), row.minor);
        for (const Row& other : rows) EXPECT_EQ(other.test(), other.minor == row.minor) << other.release;
        EXPECT_EQ(VoSystemInfo::isPreJaguar(), row.minor < 2);
        EXPECT_EQ(VoSystemInfo::isPostLeopard(), row.minor > 5);
        EXPECT_EQ(VoSystemInfo::isPostSnowLeopard(), row.minor > 6);
        EXPECT_EQ(VoSystemInfo::isPostYosemite(), row.minor > 10);
        EXPECT_EQ(VoSystemInfo::isPreSierra(), row.minor < 12);
    }
}

TEST_F(VoSystemInfoRelease, OldKernelsArePreJaguar) {
    kernel_->release = "5.5";
    EXPECT_EQ(VoSystemInfo::osMinorVersion(), 1);
    EXPECT_TRUE(VoSystemInfo::isPreJaguar());
    EXPECT_FALSE(VoSystemInfo::isPostLeopard());
}

TEST_F(VoSystemInfoRelease, UnreadableReleaseHasNoParts) {
    kernel_->release = std::nullopt;
    EXPECT_TRUE(VoSystemInfo::darwinKernelVerion().empty());
    EXPECT_EQ(VoSystemInfo::osMajorVersion(), 10);
    EXPECT_EQ(VoSystemInfo::osMinorVersion(), 0);
    EXPECT_EQ(VoSystemInfo::osRevision(), 0);
    EXPECT_EQ(VoSystemInfo::osRevisionFix(), 0);
    EXPECT_TRUE(VoSystemInfo::isPreJaguar());
}

TEST_F(VoSystemInfoRelease, PartsReadTheirLeadingNumber) {
    kernel_->release = "6.1.0-18-amd64";
    EXPECT_EQ(VoSystemInfo::darwinKernelVerion(), std::vector<std::string>({"6", "1", "0-18-amd64"}));
    EXPECT_EQ(VoSystemInfo::osMinorVersion(), 2);
    EXPECT_EQ(VoSystemInfo::osRevision(), 1);
    EXPECT_EQ(VoSystemInfo::osRevisionFix(), 0);
    kernel_->release = "";  // one empty part: 0 - 4
    EXPECT_EQ(VoSystemInfo::osMinorVersion(), -4);
    EXPECT_TRUE(VoSystemInfo::isPreJaguar());
}

TEST_F(VoSystemInfoRelease, TheReleaseIsReadAnewOnEveryCall) {
    kernel_->release = "15.0.0";
    EXPECT_TRUE(VoSystemInfo::isElCapitan());
    kernel_->release = "16.0.0";
    EXPECT_TRUE(VoSystemInfo::isSierra());
}

TEST(VoSystemInfoRunningKernel, ReleaseIsTheKernelsOwn) {
    VoSystemInfo::setKernel(nullptr);
    utsname names{};
    ASSERT_EQ(::uname(&names), 0);
    std::string joined;
    for (const std::string& part : VoSystemInfo::darwinKernelVerion()) joined += (joined.empty() ? "" : ".") + part;
    EXPECT_EQ(joined, names.release);
    EXPECT_EQ(VoSystemInfo::osMinorVersion(), std::atoi(names.release) - 4);
}

}  // namespace
}  // namespace vo
