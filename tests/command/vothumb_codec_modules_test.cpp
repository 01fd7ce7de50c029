// SPDX-License-Identifier: MIT
// vothumb and the codec modules: the command starts without the libraries of the formats that live in
// modules, reads such a format through its module in the build tree, and treats a missing module like any
// other unreadable picture.
#include <gtest/gtest.h>

#include <cstdlib>

#include "command/vothumb_runner.h"
#include "support/test_images.h"

namespace vo::test {
namespace {

// Sets an environment variable for the children started while it lives.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::string& value) : name_(name) { ::setenv(name, value.c_str(), 1); }
    ~ScopedEnvironment() { ::unsetenv(name_); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* name_;
};

void put16(std::vector<uint8_t>& out, size_t at, uint32_t v) {
    out[at] = uint8_t(v);
    out[at + 1] = uint8_t(v >> 8);
}
void put32(std::vector<uint8_t>& out, size_t at, uint32_t v) {
    put16(out, at, v & 0xffff);
    put16(out, at + 2, v >> 16);
}

// An uncompressed little-endian 8-bit RGB TIFF in one strip, written byte by byte.
std::vector<uint8_t> rgbTiff(const Pixels& rgb) {
    struct Entry {
        uint16_t tag, type;  // type 3: SHORT, 4: LONG
        uint32_t count, value;
    };
    constexpr size_t kIfd = 8, kEntries = 9, kBits = kIfd + 2 + kEntries * 12 + 4, kData = kBits + 6;
    const uint32_t w = uint32_t(rgb.width), h = uint32_t(rgb.height), bytes = w * h * 3;
    const Entry entries[kEntries] = {
        {256, 3, 1, w}, {257, 3, 1, h}, {258, 3, 3, uint32_t(kBits)},
        {259, 3, 1, 1}, {262, 3, 1, 2}, {273, 4, 1, uint32_t(kData)},
        {277, 3, 1, 3}, {278, 3, 1, h}, {279, 4, 1, bytes},
    };
    std::vector<uint8_t> out(kData);
    out[0] = out[1] = 'I';
    put16(out, 2, 42);
    put32(out, 4, kIfd);
    put16(out, kIfd, kEntries);
    for (size_t i = 0; i < kEntries; ++i) {
        const size_t at = kIfd + 2 + i * 12;
        put16(out, at, entries[i].tag);
        put16(out, at + 2, entries[i].type);
        put32(out, at + 4, entries[i].count);
        put32(out, at + 8, entries[i].value);  // a single SHORT sits in the first two bytes, as here
    }
    for (size_t i = 0; i < 3; ++i) put16(out, kBits + i * 2, 8);
    out.insert(out.end(), rgb.data.begin(), rgb.data.end());
    return out;
}

// The formats whose libraries vothumb must not load before it meets such a file.
constexpr const char* kModuleLibraries[] = {"libtiff", "libwebp",  "libgif", "libheif",
                                            "libx265", "libde265", "libaom", "libdav1d"};

TEST(VothumbCodecModules, StartsWithoutTheModuleFormatLibraries) {
    // The dynamic loader lists every shared object the program needs and exits without running it.
    const ScopedEnvironment trace("LD_TRACE_LOADED_OBJECTS", "1");
    const ChildRun run = runVothumb({});
    ASSERT_TRUE(run.exited) << "ended by signal " << run.signal;
    ASSERT_NE(run.standardOutput.find("libc.so"), std::string::npos) << run.standardOutput;
    for (const char* library : kModuleLibraries)
        EXPECT_EQ(run.standardOutput.find(library), std::string::npos) << library << " in\n" << run.standardOutput;
}

TEST(VothumbCodecModules, ReadsATiffThroughItsModule) {
    TempDir dir;
    writeBytes(dir.file("in.tif"), rgbTiff(makeTestPicture(40, 30)));
    const ChildRun run = runVothumb({dir.file("in.tif"), dir.file("out")});
    ASSERT_TRUE(run.exited) << "ended by signal " << run.signal;
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(run.standardError.empty()) << run.standardError;
    EXPECT_EQ(readJpegFacts(dir.file("out-200.jpg")).width, 200);
    EXPECT_EQ(readJpegFacts(dir.file("out-600.jpg")).width, 800);
}

TEST(VothumbCodecModules, AMissingModuleMakesThePictureUnreadable) {
    TempDir dir, noModules;
    writeBytes(dir.file("in.tif"), rgbTiff(makeTestPicture(40, 30)));
    const ScopedEnvironment modules("VO_CODEC_DIR", noModules.path().string());
    const ChildRun run = runVothumb({dir.file("in.tif"), dir.file("out")});
    ASSERT_FALSE(run.timedOut);
    ASSERT_TRUE(run.exited) << "ended by signal " << run.signal;
    EXPECT_EQ(run.exitStatus, 0);
    // As for any unreadable picture: the empty image's two exports fail and nothing is written.
    EXPECT_EQ(countOccurrences(run.standardError, "problems writing JPEG file"), 2) << run.standardError;
    EXPECT_EQ(folderEntries(dir.path()), std::vector<std::string>{"in.tif"});
}

}  // namespace
}  // namespace vo::test
