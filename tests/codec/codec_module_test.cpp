// SPDX-License-Identifier: MIT
// Codec modules: TIFF, WebP, GIF and HEIF decode through modules found next to the test binary (every
// other codec test covers that); here, a missing module must give a clear failure and nothing worse, and
// VO_CODEC_DIR must be the only place looked at when it is set.
//
// The engine loads each module once per process, so every check runs in a fresh process (gtest re-executes
// the binary for the test alone) with VO_CODEC_DIR set before the first decode.
#include "test_support.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <thread>

using namespace votest;

namespace {

struct ModuleFormat {
    const char* label;  // as the engine names the format in messages
    Bytes head;         // enough of a file to be recognised as the format
};

Bytes ascii(const char* text, size_t length) { return Bytes(text, text + length); }

std::vector<ModuleFormat> moduleFormats() {
    return {
        {"TIFF", ascii("II*\0\x08\0\0\0\0\0\0\0\0\0\0\0", 16)},
        {"WebP", ascii("RIFF\x24\0\0\0WEBPVP8 \x18\0\0\0\0\0\0\0\0\0\0\0", 28)},
        {"GIF", ascii("GIF89a\x04\0\x03\0\0\0\0;", 14)},
        {"HEIF", ascii("\0\0\0\x18"
                       "ftypheic\0\0\0\0mif1heic",
                       24)},
    };
}

bool startsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

// Reports a failed check of the child process on its standard error, where the death test shows it.
bool check(bool ok, const std::string& what) {
    if (!ok) std::fprintf(stderr, "failed: %s\n", what.c_str());
    return ok;
}

// Every module format fails to decode and, where the module reads the header, to probe, with the message
// naming the format's support as not installed.
bool missingModulesFailCleanly() {
    TempDir empty;
    ::setenv("VO_CODEC_DIR", empty.path().c_str(), 1);
    bool ok = true;
    for (const ModuleFormat& format : moduleFormats()) {
        const std::string expected = std::string(format.label) + " support is not installed";
        std::string error;
        const auto image = voimg::decodeImageMemory(format.head.data(), format.head.size(), {}, &error);
        ok &= check(!image.has_value(), std::string(format.label) + " decoded without its module");
        ok &= check(startsWith(error, expected), std::string(format.label) + " decode said: " + error);
        ok &= check(error.find(empty.path().string()) != std::string::npos,
                    std::string(format.label) + " message does not name the folder searched: " + error);

        const std::string path = empty.file("picture");
        writeFile(path, format.head);
        error.clear();
        const auto info = voimg::probeImageFile(path, &error);
        ::unlink(path.c_str());
        if (std::string(format.label) == "TIFF" || std::string(format.label) == "HEIF") {
            ok &= check(!info.has_value(), std::string(format.label) + " probed without its module");
            ok &= check(startsWith(error, expected), std::string(format.label) + " probe said: " + error);
        }
        // The failure is remembered: asking again gives the same answer without crashing.
        error.clear();
        ok &= check(!voimg::decodeImageMemory(format.head.data(), format.head.size(), {}, &error).has_value() &&
                        startsWith(error, expected),
                    std::string(format.label) + " second decode said: " + error);
    }
    // The engine's own formats need no module.
    const Bytes bmp = encodeBmp(2, 2, std::vector<uint8_t>(16, 200), BmpParams{});
    std::string error;
    ok &= check(voimg::decodeImageMemory(bmp.data(), bmp.size(), {}, &error).has_value(), "BMP: " + error);
    return ok;
}

// The folder of the modules this binary was built with: <folder of the binary>/../lib/vo.
std::string builtModuleFolder() {
    char exe[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0) return {};
    const std::string path(exe, size_t(n));
    return path.substr(0, path.rfind('/')) + "/../lib/vo";
}

bool overrideFolderIsUsed() {
    ::setenv("VO_CODEC_DIR", builtModuleFolder().c_str(), 1);
    const Bytes gif = encodeGif(3, 2, {0, 1, 0, 1, 0, 1}, {255, 0, 0, 0, 0, 255}, GifParams{});
    std::string error;
    const auto image = voimg::decodeImageMemory(gif.data(), gif.size(), {}, &error);
    return check(image.has_value() && image->width == 3 && image->height == 2, "GIF from VO_CODEC_DIR: " + error);
}

// Threads that all meet a module format at the same moment: one of them loads the module, the others wait
// for it, and every decode succeeds.
bool firstUseFromManyThreads() {
    const Bytes gif = encodeGif(3, 2, {0, 1, 0, 1, 0, 1}, {255, 0, 0, 0, 0, 255}, GifParams{});
    TempDir scratch;
    const Bytes tiff = encodeTiff(scratch.file("scratch.tif"), 3, 2, std::vector<uint16_t>(18, 90), TiffParams{});
    std::atomic<int> waiting{8}, decoded{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            const Bytes& data = t % 2 ? gif : tiff;
            waiting.fetch_sub(1);
            while (waiting.load() > 0) std::this_thread::yield();
            if (voimg::decodeImageMemory(data.data(), data.size()).has_value()) decoded.fetch_add(1);
        });
    }
    for (std::thread& thread : threads) thread.join();
    return check(decoded.load() == 8, std::to_string(decoded.load()) + " of 8 decodes succeeded");
}

}  // namespace

TEST(CodecModulesDeathTest, FirstUseFromManyThreadsAtOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(firstUseFromManyThreads() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(CodecModulesDeathTest, MissingModulesGiveAClearFailure) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(missingModulesFailCleanly() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(CodecModulesDeathTest, ModulesAreLoadedFromVoCodecDir) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(overrideFolderIsUsed() ? 0 : 1), testing::ExitedWithCode(0), "");
}
