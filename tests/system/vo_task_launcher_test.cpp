// SPDX-License-Identifier: MIT
// The real task launcher: streams, exit statuses, start failures, and not waiting.
#include "System/VoTaskLauncher.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "Common/Foundation/VoException.h"
#include "system_test_support.h"

namespace vo {
namespace {

namespace fs = std::filesystem;

VoTaskResult shell(const std::string& script, VoTaskStream out = VoTaskStream::capture(),
                   VoTaskStream err = VoTaskStream::capture()) {
    return VoTaskLauncher::standard()->launchAndWait({"/bin/sh", {"-c", script}, std::move(out), std::move(err)});
}

TEST(VoTaskLauncher, CapturesBothStreamsAndTheExitStatus) {
    const VoTaskResult r = shell("echo out; echo err >&2; exit 3");
    EXPECT_EQ(r.output, "out\n");
    EXPECT_EQ(r.errorOutput, "err\n");
    EXPECT_EQ(r.terminationStatus, 3);
}

TEST(VoTaskLauncher, LargeOutputOnBothStreamsDoesNotBlock) {
    const VoTaskResult r = shell("head -c 300000 /dev/zero; head -c 200000 /dev/zero >&2; head -c 100000 /dev/zero");
    EXPECT_EQ(r.output.size(), 400000u);
    EXPECT_EQ(r.errorOutput.size(), 200000u);
}

TEST(VoTaskLauncher, FileOutputIsTruncatedFirst) {
    test::TempDir dir;
    const fs::path file = dir.path() / "out.txt";
    test::writeFile(file, "a much longer earlier content\n");
    EXPECT_EQ(shell("echo new", VoTaskStream::file(file.string())).terminationStatus, 0);
    EXPECT_EQ(test::readFile(file), "new\n");
}

TEST(VoTaskLauncher, NullDeviceDiscards) {
    const VoTaskResult r = shell("echo gone; echo gone >&2", VoTaskStream::nullDevice(), VoTaskStream::nullDevice());
    EXPECT_EQ(r.output, "");
    EXPECT_EQ(r.errorOutput, "");
}

TEST(VoTaskLauncher, SignalEndsWithTheSignalNumber) { EXPECT_EQ(shell("kill -TERM $$").terminationStatus, 15); }

TEST(VoTaskLauncher, MissingProgramIsALaunchError) {
    for (const char* path : {"/nonexistent/program", "", "/etc/hostname"}) {
        try {
            VoTaskLauncher::standard()->launchAndWait({path, {}, {}, {}});
            ADD_FAILURE() << path;
        } catch (const VoException& e) {
            EXPECT_EQ(e.name(), "NSInvalidArgumentException");
            EXPECT_EQ(e.reason(), "launch path not accessible");
        }
        EXPECT_THROW(VoTaskLauncher::standard()->launch({path, {}, {}, {}}), VoException);
    }
}

TEST(VoTaskLauncher, LaunchDoesNotWait) {
    test::TempDir dir;
    const fs::path marker = dir.path() / "done";
    const auto start = std::chrono::steady_clock::now();
    VoTaskLauncher::standard()->launch({"/bin/sh", {"-c", "sleep 0.5; touch '" + marker.string() + "'"}, {}, {}});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(400));
    EXPECT_FALSE(fs::exists(marker));
    for (int i = 0; i < 500 && !fs::exists(marker); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(fs::exists(marker));
}

TEST(VoTaskLauncher, ArgumentsArePassedVerbatim) {
    const VoTaskResult r = VoTaskLauncher::standard()->launchAndWait(
        {"/usr/bin/printf", {"[%s]", "two words", "$HOME", "*"}, VoTaskStream::capture(), {}});
    EXPECT_EQ(r.output, "[two words][$HOME][*]");
}

}  // namespace
}  // namespace vo
