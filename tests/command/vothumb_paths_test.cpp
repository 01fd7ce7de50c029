// SPDX-License-Identifier: MIT
// vothumb's output paths: the prefix is used as given, whatever it contains, and a destination that cannot
// be created is only logged.
#include <gtest/gtest.h>

#include <filesystem>

#include "command/vothumb_runner.h"
#include "support/test_images.h"

namespace vo::test {
namespace {

ChildRun runChecked(const std::vector<std::string>& arguments) {
    ChildRun run = runVothumb(arguments);
    EXPECT_FALSE(run.timedOut) << "still running after 60 s";
    EXPECT_TRUE(run.exited) << "ended by signal " << run.signal;
    EXPECT_EQ(run.exitStatus, 0);
    return run;
}

void expectThumbnails(const std::string& prefix, int smallWidth) {
    const JpegFacts small = readJpegFacts(prefix + "-200.jpg");
    EXPECT_EQ(small.width, smallWidth);
    EXPECT_EQ(small.height, 150);
    const JpegFacts large = readJpegFacts(prefix + "-600.jpg");
    EXPECT_EQ(large.width, smallWidth * 4);
    EXPECT_EQ(large.height, 600);
}

TEST(VothumbPaths, MissingOutputFolderIsLoggedForEachRendition) {
    TempDir dir;
    writeJpeg(dir.file("in.jpg"), makeTestPicture(60, 40));
    const ChildRun run = runChecked({dir.file("in.jpg"), dir.file("missing/out")});
    EXPECT_EQ(countOccurrences(run.standardError, "problems creating image destination"), 2) << run.standardError;
    EXPECT_EQ(countOccurrences(run.standardError, "problems writing JPEG file"), 0) << run.standardError;
    EXPECT_EQ(folderEntries(dir.path()), std::vector<std::string>{"in.jpg"});
}

TEST(VothumbPaths, DestinationMessageIsFollowedByAnEmptyLine) {
    TempDir dir;
    writeJpeg(dir.file("in.jpg"), makeTestPicture(60, 40));
    const ChildRun run = runChecked({dir.file("in.jpg"), dir.file("missing/out")});
    // The message carries its own line break, so each log line is followed by an empty one.
    EXPECT_EQ(countOccurrences(run.standardError, "problems creating image destination\n\n"), 2) << run.standardError;
}

TEST(VothumbPaths, OutputNamesThatAreFoldersAreLogged) {
    TempDir dir;
    writeJpeg(dir.file("in.jpg"), makeTestPicture(60, 40));
    std::filesystem::create_directory(dir.file("out-200.jpg"));
    const ChildRun run = runChecked({dir.file("in.jpg"), dir.file("out")});
    // Only the small rendition's destination is a folder; the large one is written.
    EXPECT_EQ(countOccurrences(run.standardError, "problems creating image destination"), 1) << run.standardError;
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("out-200.jpg")));
    EXPECT_EQ(readJpegFacts(dir.file("out-600.jpg")).height, 600);
}

TEST(VothumbPaths, SpacesAndNonAsciiCharactersInBothPaths) {
    TempDir dir;
    const std::string folder = dir.file("dir with space");
    std::filesystem::create_directory(folder);
    const std::string input = folder + "/ünïcødé 写真.jpg";
    writeJpeg(input, makeTestPicture(60, 40));
    const ChildRun run = runChecked({input, folder + "/ünïcødé 写真"});
    EXPECT_TRUE(run.standardError.empty()) << run.standardError;
    expectThumbnails(folder + "/ünïcødé 写真", 225);
    const std::vector<std::string> expected{"ünïcødé 写真-200.jpg", "ünïcødé 写真-600.jpg", "ünïcødé 写真.jpg"};
    EXPECT_EQ(folderEntries(folder), expected);
}

TEST(VothumbPaths, PrefixThatIsAFolderWritesBesideIt) {
    TempDir dir;
    writeJpeg(dir.file("in.jpg"), makeTestPicture(60, 40));
    std::filesystem::create_directory(dir.file("xyz"));
    const ChildRun run = runChecked({dir.file("in.jpg"), dir.file("xyz")});
    EXPECT_TRUE(run.standardError.empty()) << run.standardError;
    expectThumbnails(dir.file("xyz"), 225);
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("xyz")));
}

TEST(VothumbPaths, PrefixEndingInASlashNamesFilesInsideTheFolder) {
    TempDir dir;
    writeJpeg(dir.file("in.jpg"), makeTestPicture(60, 40));
    std::filesystem::create_directory(dir.file("xyz"));
    const ChildRun run = runChecked({dir.file("in.jpg"), dir.file("xyz/")});
    EXPECT_TRUE(run.standardError.empty()) << run.standardError;
    expectThumbnails(dir.file("xyz/"), 225);
}

TEST(VothumbPaths, ExistingOutputsAreReplaced) {
    TempDir dir;
    writeJpeg(dir.file("in.jpg"), makeTestPicture(60, 40));
    writeBytes(dir.file("out-200.jpg"), {'o', 'l', 'd'});
    writeBytes(dir.file("out-600.jpg"), {'o', 'l', 'd'});
    const ChildRun run = runChecked({dir.file("in.jpg"), dir.file("out")});
    EXPECT_TRUE(run.standardError.empty()) << run.standardError;
    expectThumbnails(dir.file("out"), 225);
}

TEST(VothumbPaths, InputIsReadFromItsContentNotItsName) {
    TempDir dir;
    writePng(dir.file("really-a-png.jpg"), makeTestPicture(60, 40, 3));
    const ChildRun run = runChecked({dir.file("really-a-png.jpg"), dir.file("out")});
    EXPECT_TRUE(run.standardError.empty()) << run.standardError;
    expectThumbnails(dir.file("out"), 225);
}

}  // namespace
}  // namespace vo::test
