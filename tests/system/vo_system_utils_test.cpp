// SPDX-License-Identifier: MIT
// VoSystemUtils: the commands it starts, the load wait over an injected kernel and sleep, and the real
// commands on this machine.
#include "System/VoSystemUtils.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "Common/Foundation/VoException.h"
#include "system_test_support.h"

namespace vo {
namespace {

namespace fs = std::filesystem;

class VoSystemUtilsTest : public ::testing::Test {
protected:
    void SetUp() override {
        VoSystemUtils::setKernel(kernel_);
        VoSystemUtils::setSleepFunction([this](double s) { sleeps_.push_back(s); });
    }
    void TearDown() override {
        VoSystemUtils::setKernel(nullptr);
        VoSystemUtils::setSleepFunction({});
        VoSystemUtils::setTaskLauncher(nullptr);
    }
    std::shared_ptr<test::FakeKernel> kernel_ = std::make_shared<test::FakeKernel>();
    std::vector<double> sleeps_;
};

TEST_F(VoSystemUtilsTest, WaitWithLimitZeroReadsNothing) {
    kernel_->loads = {test::loadRecord(100)};
    VoSystemUtils::waitTillLoadDropsBelowOrTime(0.5f, 0.0);
    EXPECT_EQ(kernel_->loadReads, 0);
    EXPECT_TRUE(sleeps_.empty());
}

TEST_F(VoSystemUtilsTest, WaitWithLimitHalfASecondReadsAtMostThreeTimes) {
    kernel_->loads = {test::loadRecord(100)};  // never drops
    VoSystemUtils::waitTillLoadDropsBelowOrTime(0.5f, 0.5);
    EXPECT_EQ(kernel_->loadReads, 3);  // waited 0, 0.2, 0.4
    EXPECT_EQ(sleeps_, std::vector<double>({0.2, 0.2, 0.2}));
}

TEST_F(VoSystemUtilsTest, WaitCountsSleepsNotTheClock) {
    kernel_->loads = {test::loadRecord(100)};
    // The injected sleep takes no time at all, yet five sleeps of 0.2 s use up a limit of one second.
    VoSystemUtils::waitTillLoadDropsBelowOrTime(0.5f, 1.0);
    EXPECT_EQ(kernel_->loadReads, 5);
    EXPECT_EQ(sleeps_.size(), 5u);
}

TEST_F(VoSystemUtilsTest, ThresholdEqualToTheLoadPerProcessorEndsTheWait) {
    kernel_->cpus = 2;
    kernel_->loads = {test::loadRecord(1.5)};  // 0.75 per processor
    VoSystemUtils::waitTillLoadDropsBelowOrTime(0.75f, 10.0);
    EXPECT_EQ(kernel_->loadReads, 1);
    EXPECT_TRUE(sleeps_.empty());
    VoSystemUtils::waitTillLoadDropsBelowOrTime(0.74f, 0.3);
    EXPECT_EQ(kernel_->loadReads, 3);  // just above: the wait goes on
}

TEST_F(VoSystemUtilsTest, WaitEndsWhenTheLoadDrops) {
    kernel_->loads = {test::loadRecord(4), test::loadRecord(2), test::loadRecord(0.25)};
    VoSystemUtils::waitTillLoadDropsBelowOrTime(0.5f, 10.0);
    EXPECT_EQ(kernel_->loadReads, 3);
    EXPECT_EQ(sleeps_.size(), 2u);
}

TEST_F(VoSystemUtilsTest, FailedLoadReadIsLoggedAndEndsTheWait) {
    kernel_->loads = {std::nullopt};
    test::LogCapture log;
    VoSystemUtils::waitTillLoadDropsBelowOrTime(0.5f, 10.0);
    EXPECT_EQ(log.messages(), std::vector<std::string>({"Can't measure load"}));
    EXPECT_EQ(kernel_->loadReads, 1);
    EXPECT_TRUE(sleeps_.empty());
}

TEST_F(VoSystemUtilsTest, ProcessorCountFallsBackToOne) {
    kernel_->cpus = 6;
    EXPECT_EQ(VoSystemUtils::numberOfCpus(), 6);
    kernel_->cpus = std::nullopt;
    EXPECT_EQ(VoSystemUtils::numberOfCpus(), 1);
    VoSystemUtils::setKernel(nullptr);
    EXPECT_EQ(VoSystemUtils::numberOfCpus(), int(::sysconf(_SC_NPROCESSORS_ONLN)));
}

TEST_F(VoSystemUtilsTest, FixedAnswers) {
    EXPECT_TRUE(VoSystemUtils::executingIntel());
    EXPECT_FALSE(VoSystemUtils::restartCurrentApplication());
}

TEST_F(VoSystemUtilsTest, ReniceStartsReniceForTheOwnProcessWithoutWaiting) {
    auto launcher = std::make_shared<test::FakeTaskLauncher>();
    VoSystemUtils::setTaskLauncher(launcher);
    VoSystemUtils::renice(-5);
    ASSERT_EQ(launcher->launched.size(), 1u);
    EXPECT_TRUE(launcher->waited.empty());
    EXPECT_EQ(launcher->launched[0].launchPath, "/usr/bin/renice");
    EXPECT_EQ(launcher->launched[0].arguments, std::vector<std::string>({"-5", "-p", std::to_string(::getpid())}));
}

TEST_F(VoSystemUtilsTest, KillStartsKillForTheOwnProcessWithoutWaiting) {
    auto launcher = std::make_shared<test::FakeTaskLauncher>();
    VoSystemUtils::setTaskLauncher(launcher);
    VoSystemUtils::killCurrentApp();
    ASSERT_EQ(launcher->launched.size(), 1u);
    EXPECT_TRUE(launcher->waited.empty());
    EXPECT_EQ(launcher->launched[0].launchPath, "/bin/kill");
    EXPECT_EQ(launcher->launched[0].arguments, std::vector<std::string>({std::to_string(::getpid())}));
}

TEST_F(VoSystemUtilsTest, StartFailuresReachTheCaller) {
    auto launcher = std::make_shared<test::FakeTaskLauncher>();
    launcher->onLaunch = [](const VoTaskRequest&) {
        throw VoException("NSInvalidArgumentException", "launch path not accessible");
    };
    launcher->onWait = [](const VoTaskRequest&) -> VoTaskResult {
        throw VoException("NSInvalidArgumentException", "launch path not accessible");
    };
    VoSystemUtils::setTaskLauncher(launcher);
    EXPECT_THROW(VoSystemUtils::renice(1), VoException);
    EXPECT_THROW(VoSystemUtils::killCurrentApp(), VoException);
    // A missing process lister raises rather than answering "not running".
    EXPECT_THROW((void)VoSystemUtils::isAppRunning("Finder"), VoException);
}

TEST_F(VoSystemUtilsTest, AppIsRunningForEveryStatusButOne) {
    auto launcher = std::make_shared<test::FakeTaskLauncher>();
    int status = 0;
    launcher->onWait = [&](const VoTaskRequest&) { return VoTaskResult{status, {}, {}}; };
    VoSystemUtils::setTaskLauncher(launcher);
    EXPECT_TRUE(VoSystemUtils::isAppRunning("Finder"));
    ASSERT_EQ(launcher->waited.size(), 1u);
    EXPECT_EQ(launcher->waited[0].launchPath, "/usr/bin/pgrep");
    EXPECT_EQ(launcher->waited[0].arguments, std::vector<std::string>({"-x", "Finder"}));
    EXPECT_EQ(launcher->waited[0].standardOutput.kind, VoTaskStream::Kind::NullDevice);
    EXPECT_EQ(launcher->waited[0].standardError.kind, VoTaskStream::Kind::NullDevice);
    status = 1;
    EXPECT_FALSE(VoSystemUtils::isAppRunning("Finder"));
    for (int s : {2, 3, 127, 15}) {
        status = s;
        EXPECT_TRUE(VoSystemUtils::isAppRunning("Finder")) << "status " << s;
    }
}

// --- Real commands ------------------------------------------------------------------------------------

TEST(VoSystemUtilsReal, IsAppRunningFindsAProcessStartedHere) {
    test::TempDir dir;
    // A copy of sleep under a name nothing else on the machine uses (process names keep 15 characters).
    const std::string name = "vosys" + std::to_string(::getpid());
    const fs::path program = dir.path() / name;
    fs::copy_file("/bin/sleep", program);
    EXPECT_FALSE(VoSystemUtils::isAppRunning(name));
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::execl(program.c_str(), name.c_str(), "30", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    bool seen = false;
    for (int i = 0; i < 100 && !seen; ++i) {
        seen = VoSystemUtils::isAppRunning(name);
        if (!seen) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(seen);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_FALSE(VoSystemUtils::isAppRunning(name));
    EXPECT_FALSE(VoSystemUtils::isAppRunning(name.substr(0, name.size() - 1)));  // the name must match exactly
}

TEST(VoSystemUtilsReal, ReniceLowersTheOwnPriority) {
    errno = 0;
    const int before = ::getpriority(PRIO_PROCESS, 0);
    ASSERT_EQ(errno, 0);
    if (before >= 19) GTEST_SKIP() << "already at the lowest priority";
    const int target = std::min(before + 3, 19);
    VoSystemUtils::renice(target);
    // renice runs on its own: wait for its effect.
    int now = before;
    for (int i = 0; i < 250 && now != target; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        now = ::getpriority(PRIO_PROCESS, 0);
    }
    EXPECT_EQ(now, target);
}

TEST(VoSystemUtilsReal, WaitWithTheRunningKernelAndRealSleeps) {
    const auto start = std::chrono::steady_clock::now();
    VoSystemUtils::waitTillLoadDropsBelowOrTime(1e9f, 10.0);  // any load is below: one read, no sleep
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    const auto again = std::chrono::steady_clock::now();
    VoSystemUtils::waitTillLoadDropsBelowOrTime(-1.0f, 0.4);  // never low enough: two sleeps of 0.2 s
    const auto slept = std::chrono::steady_clock::now() - again;
    EXPECT_GE(slept, std::chrono::milliseconds(400));
    EXPECT_LT(slept, std::chrono::seconds(5));
}

TEST(VoSystemUtilsRealDeathTest, KillCurrentAppEndsTheProcessWithTheTerminationSignal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            VoSystemUtils::killCurrentApp();
            std::this_thread::sleep_for(std::chrono::seconds(20));
            std::_Exit(0);
        },
        ::testing::KilledBySignal(SIGTERM), "");
}

}  // namespace
}  // namespace vo
