// SPDX-License-Identifier: MIT
// vothumb's argument check: too few arguments stop the run with a log line and status 255; more are ignored.
#include <gtest/gtest.h>

#include <regex>

#include "command/vothumb_runner.h"
#include "support/test_images.h"

namespace vo::test {
namespace {

// The platform log's line: date, time with milliseconds, process name, [process id:thread id], message.
const std::regex kExpectingLine(
    R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} vothumb\[\d+:\d+\] Expecting 2 parameters$)");

void expectArgumentError(const ChildRun& run) {
    ASSERT_FALSE(run.timedOut);
    ASSERT_TRUE(run.exited) << "ended by signal " << run.signal;
    EXPECT_EQ(run.exitStatus, 255);
    EXPECT_EQ(countOccurrences(run.standardError, "Expecting 2 parameters"), 1) << run.standardError;
    EXPECT_TRUE(run.standardOutput.empty());
}

TEST(VothumbArguments, NoArgumentIsAnError) {
    expectArgumentError(runVothumb({}));
}

TEST(VothumbArguments, OneArgumentIsAnErrorAndWritesNothing) {
    TempDir dir;
    writeJpeg(dir.file("in.jpg"), makeTestPicture(60, 40));
    const ChildRun run = runVothumb({dir.file("in.jpg")});
    expectArgumentError(run);
    EXPECT_EQ(folderEntries(dir.path()), std::vector<std::string>{"in.jpg"});
}

TEST(VothumbArguments, ErrorLineHasThePlatformLogFormat) {
    const ChildRun run = runVothumb({"only-one"});
    ASSERT_FALSE(run.standardError.empty());
    ASSERT_EQ(run.standardError.back(), '\n');
    const std::string line = run.standardError.substr(0, run.standardError.size() - 1);
    EXPECT_EQ(line.find('\n'), std::string::npos) << "expected one line, got: " << run.standardError;
    EXPECT_TRUE(std::regex_match(line, kExpectingLine)) << line;
}

TEST(VothumbArguments, TwoArgumentsWriteBothFilesAndNothingElse) {
    TempDir dir;
    writeJpeg(dir.file("in.jpg"), makeTestPicture(60, 40));
    const ChildRun run = runVothumb({dir.file("in.jpg"), dir.file("out")});
    ASSERT_TRUE(run.exited);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(run.standardError.empty()) << run.standardError;
    EXPECT_TRUE(run.standardOutput.empty());
    EXPECT_EQ(folderEntries(dir.path()), (std::vector<std::string>{"in.jpg", "out-200.jpg", "out-600.jpg"}));
}

TEST(VothumbArguments, ThirdArgumentIsIgnored) {
    TempDir dir;
    writeJpeg(dir.file("in.jpg"), makeTestPicture(60, 40));
    const ChildRun run = runVothumb({dir.file("in.jpg"), dir.file("out"), dir.file("extra")});
    ASSERT_TRUE(run.exited);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(run.standardError.empty()) << run.standardError;
    EXPECT_EQ(folderEntries(dir.path()), (std::vector<std::string>{"in.jpg", "out-200.jpg", "out-600.jpg"}));
    EXPECT_EQ(readJpegFacts(dir.file("out-200.jpg")).height, 150);
    EXPECT_EQ(readJpegFacts(dir.file("out-600.jpg")).height, 600);
}

TEST(VothumbArguments, RelativePathsResolveAgainstTheWorkingDirectory) {
    TempDir dir;
    writeJpeg(dir.file("in.jpg"), makeTestPicture(60, 40));
    const ChildRun run = runVothumb({"in.jpg", "thumb"}, 60, dir.path());
    ASSERT_TRUE(run.exited);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(readJpegFacts(dir.file("thumb-200.jpg")).width, 225);
    EXPECT_EQ(readJpegFacts(dir.file("thumb-600.jpg")).width, 900);
}

}  // namespace
}  // namespace vo::test
