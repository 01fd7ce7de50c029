// SPDX-License-Identifier: MIT
// Loading VoSystemInfo's snapshot: the profiler run, the output file, the sections kept, failures and
// the background load that reports to its target on the main thread.
#include <gtest/gtest.h>

#include <QObject>
#include <QThread>
#include <atomic>
#include <filesystem>
#include <stdexcept>

#include "Common/Foundation/VoException.h"
#include "System/VoSystemInfo.h"
#include "System/VoSystemInfo_p.h"
#include "system_test_support.h"

namespace vo {
namespace {

namespace fs = std::filesystem;
using test::profileXml;
using test::sectionXml;

const std::string kHardware =
    sectionXml("SPHardwareDataType", "<dict><key>number_processors</key><integer>4</integer></dict>");
const std::string kDisplays =
    sectionXml("SPDisplaysDataType", "<dict><key>sppci_model</key><string>ATY,Radeon</string></dict>");

class VoSystemInfoLoad : public ::testing::Test {
protected:
    void SetUp() override { VoSystemInfo::setSystemProfileFilePath(file_.string()); }
    void TearDown() override {
        VoSystemInfo::setTaskLauncher(nullptr);
        VoSystemInfo::setSystemProfileFilePath("");
        VoSystemInfo::setSystemProfilerPath("");
        detail::discardSystemProfile();
    }

    test::TempDir dir_;
    fs::path file_ = dir_.path() / "VoSystemProfile.xml";
};

TEST_F(VoSystemInfoLoad, DefaultOutputFileIsInTmp) {
    VoSystemInfo::setSystemProfileFilePath("");
    EXPECT_EQ(VoSystemInfo::systemProfileFilePath(), "/tmp/VoSystemProfile.xml");
}

TEST_F(VoSystemInfoLoad, DefaultProfilerLivesBesideTheExecutable) {
    test::ScopedEnv unset("VO_SYSTEM_PROFILER", std::nullopt);
    EXPECT_EQ(fs::path(VoSystemInfo::systemProfilerPath()),
              fs::read_symlink("/proc/self/exe").parent_path() / "vo_system_profiler");
    EXPECT_TRUE(fs::exists(VoSystemInfo::systemProfilerPath()));
    test::ScopedEnv set("VO_SYSTEM_PROFILER", "/opt/vo/bin/profiler");
    EXPECT_EQ(VoSystemInfo::systemProfilerPath(), "/opt/vo/bin/profiler");
    VoSystemInfo::setSystemProfilerPath("/somewhere/else");
    EXPECT_EQ(VoSystemInfo::systemProfilerPath(), "/somewhere/else");
}

TEST_F(VoSystemInfoLoad, FullProfileAsksForXmlAlone) {
    auto launcher = test::profilerWriting(profileXml({kHardware}));
    VoSystemInfo::setTaskLauncher(launcher);
    VoSystemInfo::setSystemProfilerPath("/opt/profiler");
    VoSystemInfo::loadSystemProfile({});
    ASSERT_EQ(launcher->waited.size(), 1u);
    EXPECT_EQ(launcher->waited[0].launchPath, "/opt/profiler");
    EXPECT_EQ(launcher->waited[0].arguments, std::vector<std::string>({"-xml"}));
    EXPECT_EQ(launcher->waited[0].standardOutput.kind, VoTaskStream::Kind::File);
    EXPECT_EQ(launcher->waited[0].standardOutput.path, file_.string());
}

TEST_F(VoSystemInfoLoad, SystemAndDisplayOnlyAsksForTheTwoSections) {
    auto launcher = test::profilerWriting(profileXml({kHardware}));
    VoSystemInfo::setTaskLauncher(launcher);
    VoSystemInfo::preloadSystemProfileWithDoneSelectorSystemAndDisplayOnly(nullptr, nullptr, true);
    ASSERT_EQ(launcher->waited.size(), 1u);
    EXPECT_EQ(launcher->waited[0].arguments,
              std::vector<std::string>({"-xml", "SPHardwareDataType", "SPDisplaysDataType"}));
    EXPECT_TRUE(VoSystemInfo::hasSystemProfile());  // without a target the load ran on this thread
    VoSystemInfo::preloadSystemProfileWithDoneSelector(nullptr, nullptr);
    EXPECT_EQ(launcher->waited.back().arguments, std::vector<std::string>({"-xml"}));
}

TEST_F(VoSystemInfoLoad, OutputFileIsEmptiedBeforeTheRunAndDeletedAfterIt) {
    test::writeFile(file_, "stale contents of an earlier run");
    auto launcher = std::make_shared<test::FakeTaskLauncher>();
    std::string seen = "unset";
    launcher->onWait = [&](const VoTaskRequest&) {
        seen = test::readFile(file_);
        return VoTaskResult{};
    };
    VoSystemInfo::setTaskLauncher(launcher);
    VoSystemInfo::loadSystemProfile({});
    EXPECT_EQ(seen, "");
    EXPECT_FALSE(fs::exists(file_));
}

TEST_F(VoSystemInfoLoad, SectionsAreKeyedByDataTypeAndALaterOneWins) {
    const std::string second =
        sectionXml("SPHardwareDataType", "<dict><key>number_processors</key><integer>16</integer></dict>");
    const std::string unnamed = "<dict><key>_items</key><array/></dict>";
    VoSystemInfo::setTaskLauncher(test::profilerWriting(profileXml({kHardware, unnamed, kDisplays, second})));
    VoSystemInfo::loadSystemProfile({});
    const auto profile = VoSystemInfo::systemProfile();
    ASSERT_TRUE(profile);
    EXPECT_EQ(profile->keys(), QStringList({"SPDisplaysDataType", "SPHardwareDataType"}));
    EXPECT_EQ(VoSystemInfo::numberOfCores(), 16);
    EXPECT_EQ(VoSystemInfo::videoModel(), "Radeon");
}

TEST_F(VoSystemInfoLoad, ALaterLoadReplacesTheSnapshotWholesale) {
    VoSystemInfo::setTaskLauncher(test::profilerWriting(profileXml({kHardware, kDisplays})));
    VoSystemInfo::loadSystemProfile({});
    const auto first = VoSystemInfo::systemProfile();
    VoSystemInfo::setTaskLauncher(test::profilerWriting(profileXml({kHardware})));
    VoSystemInfo::loadSystemProfile({});
    const auto second = VoSystemInfo::systemProfile();
    EXPECT_NE(first, second);
    EXPECT_EQ(first->size(), 2);  // a reader's copy stays whole
    EXPECT_EQ(second->size(), 1);
    EXPECT_EQ(VoSystemInfo::videoModel(), "Unknown");
}

TEST_F(VoSystemInfoLoad, EmptyRunLeavesAnEmptySnapshotAndTheFallbacks) {
    VoSystemInfo::setTaskLauncher(std::make_shared<test::FakeTaskLauncher>());  // writes nothing
    VoSystemInfo::loadSystemProfile({});
    ASSERT_TRUE(VoSystemInfo::hasSystemProfile());
    EXPECT_TRUE(VoSystemInfo::systemProfile()->isEmpty());
    EXPECT_EQ(VoSystemInfo::numberOfCores(), 0);
    EXPECT_EQ(VoSystemInfo::cpuType(), "Unknown CPU type");
    EXPECT_EQ(VoSystemInfo::machineName(), "Unknown machine name");
    EXPECT_EQ(VoSystemInfo::videoModel(), "Unknown");
}

TEST_F(VoSystemInfoLoad, OutputThatIsNotAnArrayOfSectionsGivesAnEmptySnapshot) {
    VoSystemInfo::setTaskLauncher(test::profilerWriting("this is not a property list"));
    VoSystemInfo::loadSystemProfile({});
    ASSERT_TRUE(VoSystemInfo::hasSystemProfile());
    EXPECT_TRUE(VoSystemInfo::systemProfile()->isEmpty());
    VoSystemInfo::setTaskLauncher(test::profilerWriting(
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>_dataType</key><string>x</string></dict></plist>"));
    VoSystemInfo::loadSystemProfile({});
    EXPECT_TRUE(VoSystemInfo::systemProfile()->isEmpty());
}

TEST_F(VoSystemInfoLoad, LauncherExceptionIsLoggedAndTheLoadGoesOn) {
    auto launcher = std::make_shared<test::FakeTaskLauncher>();
    launcher->onWait = [](const VoTaskRequest&) -> VoTaskResult {
        throw VoException("NSInvalidArgumentException", "launch path not accessible");
    };
    VoSystemInfo::setTaskLauncher(launcher);
    test::LogCapture log;
    VoSystemInfo::loadSystemProfile({});
    EXPECT_EQ(log.messages(), std::vector<std::string>({"launch path not accessible"}));
    EXPECT_TRUE(VoSystemInfo::hasSystemProfile());
    EXPECT_FALSE(fs::exists(file_));
}

TEST_F(VoSystemInfoLoad, MissingProfilerProgramIsLoggedByTheRealLauncher) {
    VoSystemInfo::setSystemProfilerPath((dir_.path() / "no-such-profiler").string());
    test::LogCapture log;
    VoSystemInfo::loadSystemProfile({});
    EXPECT_EQ(log.messages(), std::vector<std::string>({"launch path not accessible"}));
    ASSERT_TRUE(VoSystemInfo::hasSystemProfile());
    EXPECT_TRUE(VoSystemInfo::systemProfile()->isEmpty());
}

TEST_F(VoSystemInfoLoad, OtherExceptionsReachTheCaller) {
    auto launcher = std::make_shared<test::FakeTaskLauncher>();
    launcher->onWait = [](const VoTaskRequest&) -> VoTaskResult { throw std::runtime_error("out of descriptors"); };
    VoSystemInfo::setTaskLauncher(launcher);
    EXPECT_THROW(VoSystemInfo::loadSystemProfile({}), std::runtime_error);
}

TEST_F(VoSystemInfoLoad, EarlierSnapshotStaysWhileTheProfilerRuns) {
    VoSystemInfo::setTaskLauncher(test::profilerWriting(profileXml({kHardware})));
    VoSystemInfo::loadSystemProfile({});
    auto launcher = test::profilerWriting(profileXml({kDisplays}));
    bool hadProfileDuringRun = false;
    auto write = launcher->onWait;
    launcher->onWait = [&](const VoTaskRequest& r) {
        hadProfileDuringRun = VoSystemInfo::hasSystemProfile();
        return write(r);
    };
    VoSystemInfo::setTaskLauncher(launcher);
    VoSystemInfo::loadSystemProfile({});
    EXPECT_TRUE(hadProfileDuringRun);
    EXPECT_EQ(VoSystemInfo::systemProfile()->keys(), QStringList({"SPDisplaysDataType"}));
}

// A completion target: records on which thread, and with what snapshot, it was told.
class ProfileReceiver : public QObject {
    Q_OBJECT
public:
    std::atomic<int> calls{0};
    bool onMainThread = false;
    bool hadProfile = false;
    int cores = -1;

public slots:
    void profileLoaded() {
        onMainThread = QThread::currentThread() == QCoreApplication::instance()->thread();
        hadProfile = VoSystemInfo::hasSystemProfile();
        cores = VoSystemInfo::numberOfCores();
        ++calls;
    }
};

TEST_F(VoSystemInfoLoad, BackgroundLoadReportsToItsTargetOnTheMainThread) {
    test::testApplication();
    auto launcher = test::profilerWriting(profileXml({kHardware}));
    std::atomic<bool> ranOnMainThread{true};
    auto write = launcher->onWait;
    launcher->onWait = [&, write](const VoTaskRequest& r) {
        ranOnMainThread = QThread::currentThread() == QCoreApplication::instance()->thread();
        return write(r);
    };
    VoSystemInfo::setTaskLauncher(launcher);
    ProfileReceiver receiver;
    VoSystemInfo::preloadSystemProfileWithDoneSelectorSystemAndDisplayOnly(&receiver, "profileLoaded", true);
    // The message is posted, not sent: it arrives only through the main thread's events.
    ASSERT_TRUE(test::processEventsUntil([&] { return receiver.calls > 0; }, 30));
    EXPECT_FALSE(ranOnMainThread);
    EXPECT_TRUE(receiver.onMainThread);
    EXPECT_TRUE(receiver.hadProfile);
    EXPECT_EQ(receiver.cores, 4);
    EXPECT_EQ(launcher->waited.at(0).arguments,
              std::vector<std::string>({"-xml", "SPHardwareDataType", "SPDisplaysDataType"}));
    test::processEventsUntil([] { return false; }, 0.1);
    EXPECT_EQ(receiver.calls, 1);
}

TEST_F(VoSystemInfoLoad, CompletionIsSkippedWhenTheTargetIsGone) {
    test::testApplication();
    VoSystemInfo::setTaskLauncher(test::profilerWriting(profileXml({kHardware})));
    auto* receiver = new ProfileReceiver;
    VoSystemInfo::preloadSystemProfileWithDoneSelector(receiver, "profileLoaded");
    delete receiver;
    // The load itself still completes.
    EXPECT_TRUE(test::processEventsUntil([] { return VoSystemInfo::numberOfCores() == 4; }, 30));
    test::processEventsUntil([] { return false; }, 0.1);
}

}  // namespace
}  // namespace vo

#include "vo_system_info_load_test.moc"
