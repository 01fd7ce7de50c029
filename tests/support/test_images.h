// SPDX-License-Identifier: MIT
// Helpers shared by the tests: temporary folders, generated image files, and reading back what was written.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vo::test {

// A fresh empty folder under /tmp, removed with its contents when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    // A path object, so both `dir.path() / "name"` and passing it where a string is wanted work.
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    [[nodiscard]] std::string file(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

// 8-bit pixels, top row first, `channels` samples per pixel.
struct Pixels {
    int width = 0, height = 0, channels = 0;
    std::vector<uint8_t> data;
    [[nodiscard]] const uint8_t* at(int x, int y) const { return &data[(size_t(y) * width + x) * channels]; }
};

// A smooth, colourful test picture (gradients plus a few hard edges) of the given size.
[[nodiscard]] Pixels makeTestPicture(int width, int height, int channels = 3);
[[nodiscard]] Pixels makeSolid(int width, int height, uint8_t r, uint8_t g, uint8_t b);

// Baseline 4:2:0 JPEG of the pixels (3 channels) at the quality given.
void writeJpeg(const std::string& path, const Pixels& pixels, int quality = 95);
// PNG of the pixels (3 or 4 channels, 8-bit).
void writePng(const std::string& path, const Pixels& pixels);
void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes);
[[nodiscard]] std::vector<uint8_t> readBytes(const std::string& path);
[[nodiscard]] bool fileExists(const std::string& path);

// Decodes a JPEG or PNG into 8-bit pixels (3 channels for JPEG, 4 for PNG) with the plain libraries.
[[nodiscard]] Pixels readJpeg(const std::string& path);
[[nodiscard]] Pixels readPng(const std::string& path);

// Facts from a JPEG's markers.
struct JpegFacts {
    bool baseline = false;      // SOF0
    bool progressive = false;   // SOF2
    int width = 0, height = 0;
    std::vector<std::pair<int, int>> sampling;  // (h, v) per component
    std::vector<std::vector<uint16_t>> quantTables;  // in zig-zag order as stored, indexed by table id
};
[[nodiscard]] JpegFacts readJpegFacts(const std::string& path);
// libjpeg's standard luminance (0) or chrominance (1) table scaled to a quality, in zig-zag order.
[[nodiscard]] std::vector<uint16_t> standardQuantTable(int which, int quality);

}  // namespace vo::test
