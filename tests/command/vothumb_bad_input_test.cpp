// SPDX-License-Identifier: MIT
// vothumb on inputs that are not readable pictures: it must neither crash nor hang, and exits with 0. An
// unreadable input becomes the empty image, whose two exports fail: two log lines, no files at all.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <tuple>

#include "command/vothumb_runner.h"
#include "support/test_images.h"

namespace vo::test {
namespace {

ChildRun runChecked(const std::string& input, const std::string& prefix) {
    ChildRun run = runVothumb({input, prefix});
    EXPECT_FALSE(run.timedOut) << "still running after 60 s";
    EXPECT_TRUE(run.exited) << "ended by signal " << run.signal;
    EXPECT_EQ(run.exitStatus, 0);
    return run;
}

// The empty image was exported twice: two failed writes logged and nothing left behind.
void expectEmptyImageRun(const ChildRun& run, const TempDir& dir, const std::string& prefixName) {
    EXPECT_EQ(countOccurrences(run.standardError, "problems writing JPEG file"), 2) << run.standardError;
    EXPECT_FALSE(fileExists(dir.file(prefixName + "-200.jpg")));
    EXPECT_FALSE(fileExists(dir.file(prefixName + "-600.jpg")));
}

// A picture decoded in part may give thumbnails; when it does they have the full-size geometry.
void expectNothingOrWholeThumbnails(const TempDir& dir, const std::string& prefixName, int smallWidth) {
    for (const auto& [suffix, width, height] :
         {std::tuple{"-200.jpg", smallWidth, 150}, std::tuple{"-600.jpg", smallWidth * 4, 600}}) {
        const std::string path = dir.file(prefixName + suffix);
        if (!fileExists(path)) continue;
        const JpegFacts facts = readJpegFacts(path);
        EXPECT_EQ(facts.width, width) << path;
        EXPECT_EQ(facts.height, height) << path;
    }
}

std::vector<uint8_t> validJpegBytes(const TempDir& dir, int width, int height) {
    writeJpeg(dir.file("whole.jpg"), makeTestPicture(width, height));
    std::vector<uint8_t> bytes = readBytes(dir.file("whole.jpg"));
    std::filesystem::remove(dir.file("whole.jpg"));
    return bytes;
}

TEST(VothumbBadInput, MissingFile) {
    TempDir dir;
    const ChildRun run = runChecked(dir.file("nothing.jpg"), dir.file("out"));
    expectEmptyImageRun(run, dir, "out");
    EXPECT_TRUE(folderEntries(dir.path()).empty());
}

TEST(VothumbBadInput, FileInsideAFolderThatDoesNotExist) {
    TempDir dir;
    const ChildRun run = runChecked(dir.file("no/such/folder/photo.jpg"), dir.file("out"));
    expectEmptyImageRun(run, dir, "out");
}

TEST(VothumbBadInput, FolderInsteadOfFile) {
    TempDir dir;
    std::filesystem::create_directory(dir.file("pictures.jpg"));
    const ChildRun run = runChecked(dir.file("pictures.jpg"), dir.file("out"));
    expectEmptyImageRun(run, dir, "out");
}

TEST(VothumbBadInput, ZeroByteFile) {
    TempDir dir;
    writeBytes(dir.file("empty.jpg"), {});
    const ChildRun run = runChecked(dir.file("empty.jpg"), dir.file("out"));
    expectEmptyImageRun(run, dir, "out");
}

TEST(VothumbBadInput, GarbageNamedJpeg) {
    TempDir dir;
    std::vector<uint8_t> garbage(5000);
    for (size_t i = 0; i < garbage.size(); ++i) garbage[i] = uint8_t((i * 7919 + 13) % 251);
    writeBytes(dir.file("garbage.jpg"), garbage);
    const ChildRun run = runChecked(dir.file("garbage.jpg"), dir.file("out"));
    expectEmptyImageRun(run, dir, "out");
}

TEST(VothumbBadInput, JpegMarkersWithoutAFrame) {
    TempDir dir;
    writeBytes(dir.file("markers.jpg"), {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x04, 'J', 'F', 0xFF, 0xD9});
    const ChildRun run = runChecked(dir.file("markers.jpg"), dir.file("out"));
    expectEmptyImageRun(run, dir, "out");
}

TEST(VothumbBadInput, TruncatedJpeg) {
    TempDir dir;
    std::vector<uint8_t> bytes = validJpegBytes(dir, 300, 200);
    bytes.resize(bytes.size() / 2);
    writeBytes(dir.file("half.jpg"), bytes);
    runChecked(dir.file("half.jpg"), dir.file("out"));
    expectNothingOrWholeThumbnails(dir, "out", 225);
}

TEST(VothumbBadInput, JpegCutRightAfterItsHeader) {
    TempDir dir;
    std::vector<uint8_t> bytes = validJpegBytes(dir, 300, 200);
    // Keep everything up to and including the start-of-scan marker's segment, and no picture data.
    for (size_t i = 2; i + 3 < bytes.size(); ++i) {
        if (bytes[i] == 0xFF && bytes[i + 1] == 0xDA) {
            bytes.resize(i + 2 + (size_t(bytes[i + 2]) << 8 | bytes[i + 3]));
            break;
        }
    }
    writeBytes(dir.file("header.jpg"), bytes);
    runChecked(dir.file("header.jpg"), dir.file("out"));
    expectNothingOrWholeThumbnails(dir, "out", 225);
}

TEST(VothumbBadInput, TruncatedPng) {
    TempDir dir;
    writePng(dir.file("whole.png"), makeTestPicture(300, 200, 4));
    std::vector<uint8_t> bytes = readBytes(dir.file("whole.png"));
    std::filesystem::remove(dir.file("whole.png"));
    bytes.resize(bytes.size() / 2);
    writeBytes(dir.file("half.png"), bytes);
    runChecked(dir.file("half.png"), dir.file("out"));
    expectNothingOrWholeThumbnails(dir, "out", 225);
}

TEST(VothumbBadInput, PngSignatureOnly) {
    TempDir dir;
    writeBytes(dir.file("sig.png"), {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'});
    const ChildRun run = runChecked(dir.file("sig.png"), dir.file("out"));
    expectEmptyImageRun(run, dir, "out");
}

TEST(VothumbBadInput, UnreadablePermissions) {
    if (::geteuid() == 0) GTEST_SKIP() << "root reads files whatever their permissions";
    TempDir dir;
    writeJpeg(dir.file("secret.jpg"), makeTestPicture(60, 40));
    ASSERT_EQ(::chmod(dir.file("secret.jpg").c_str(), 0), 0);
    const ChildRun run = runChecked(dir.file("secret.jpg"), dir.file("out"));
    expectEmptyImageRun(run, dir, "out");
}

TEST(VothumbBadInput, PathThroughAFileInsteadOfAFolder) {
    TempDir dir;
    writeJpeg(dir.file("photo.jpg"), makeTestPicture(60, 40));
    // "photo.jpg/inner.jpg" cannot be opened whoever runs the test, root included.
    const ChildRun run = runChecked(dir.file("photo.jpg/inner.jpg"), dir.file("out"));
    expectEmptyImageRun(run, dir, "out");
}

}  // namespace
}  // namespace vo::test
