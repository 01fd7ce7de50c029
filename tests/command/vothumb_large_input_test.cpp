// SPDX-License-Identifier: MIT
// vothumb on very large pictures: a real 24000 x 24000 JPEG is thumbnailed within reasonable memory; files
// that only declare absurd sizes are refused quickly without allocating them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

// jpeglib.h needs FILE and size_t declared before it.
#include <jpeglib.h>

#include "command/vothumb_runner.h"
#include "support/test_images.h"

namespace vo::test {
namespace {

// Writes a flat-colour JPEG of any size row by row, so the picture never has to be held in memory.
void writeFlatJpeg(const std::string& path, int width, int height, uint8_t r, uint8_t g, uint8_t b) {
    struct Closer {
        void operator()(std::FILE* f) const { std::fclose(f); }
    };
    std::unique_ptr<std::FILE, Closer> file(std::fopen(path.c_str(), "wb"));
    ASSERT_NE(file, nullptr);
    jpeg_compress_struct cinfo{};
    jpeg_error_mgr err{};
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, file.get());
    cinfo.image_width = JDIMENSION(width);
    cinfo.image_height = JDIMENSION(height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, 90, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    std::vector<uint8_t> row(size_t(width) * 3);
    for (size_t i = 0; i < row.size(); i += 3) row[i] = r, row[i + 1] = g, row[i + 2] = b;
    JSAMPROW rows[1] = {row.data()};
    while (cinfo.next_scanline < cinfo.image_height) jpeg_write_scanlines(&cinfo, rows, 1);
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
}

void appendBigEndian(std::vector<uint8_t>& bytes, uint32_t value, int count) {
    for (int i = count - 1; i >= 0; --i) bytes.push_back(uint8_t(value >> (8 * i)));
}

// The CRC of PNG chunks (ISO 3309 polynomial, reflected).
uint32_t pngCrc(const uint8_t* data, size_t size) {
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return crc ^ 0xFFFFFFFFu;
}

void appendPngChunk(std::vector<uint8_t>& bytes, const char* type, const std::vector<uint8_t>& body) {
    appendBigEndian(bytes, uint32_t(body.size()), 4);
    const size_t start = bytes.size();
    bytes.insert(bytes.end(), type, type + 4);
    bytes.insert(bytes.end(), body.begin(), body.end());
    appendBigEndian(bytes, pngCrc(&bytes[start], bytes.size() - start), 4);
}

// A JPEG header declaring width x height (65535 at most: the field has 16 bits) and nothing after it.
std::vector<uint8_t> jpegHeaderDeclaring(int width, int height) {
    std::vector<uint8_t> bytes;
    bytes.reserve(100);
    bytes.insert(bytes.end(), {0xFF, 0xD8, 0xFF, 0xDB, 0x00, 0x43, 0x00});
    for (int i = 0; i < 64; ++i) bytes.push_back(1);  // one flat quantisation table
    bytes.insert(bytes.end(), {0xFF, 0xC0, 0x00, 0x11, 0x08});
    appendBigEndian(bytes, uint32_t(height), 2);
    appendBigEndian(bytes, uint32_t(width), 2);
    bytes.insert(bytes.end(), {0x03, 0x01, 0x22, 0x00, 0x02, 0x11, 0x00, 0x03, 0x11, 0x00, 0xFF, 0xD9});
    return bytes;
}

// A PNG declaring width x height with a few bytes of picture data.
std::vector<uint8_t> pngDeclaring(uint32_t width, uint32_t height) {
    std::vector<uint8_t> bytes{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> header;
    appendBigEndian(header, width, 4);
    appendBigEndian(header, height, 4);
    header.insert(header.end(), {8, 2, 0, 0, 0});  // 8-bit RGB, no interlacing
    appendPngChunk(bytes, "IHDR", header);
    appendPngChunk(bytes, "IDAT", {0x78, 0x9C, 0x63, 0x00, 0x00, 0x00, 0x01, 0x00, 0x01});
    appendPngChunk(bytes, "IEND", {});
    return bytes;
}

// Files that declare an enormous picture are refused like unreadable ones: quickly, in little memory, with
// the empty image's two failed writes and no files.
void expectRefusedQuickly(const std::string& input, const TempDir& dir) {
    const ChildRun run = runVothumb({input, dir.file("out")}, 60);
    ASSERT_FALSE(run.timedOut) << "still running after 60 s";
    ASSERT_TRUE(run.exited) << "ended by signal " << run.signal;
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_LT(run.seconds, 10.0);
    EXPECT_LT(run.peakRssKb, 200L * 1024) << "peak resident memory in KiB";
    ::testing::Test::RecordProperty("peakRssKiB", std::to_string(run.peakRssKb));
    EXPECT_EQ(countOccurrences(run.standardError, "problems writing JPEG file"), 2) << run.standardError;
    EXPECT_FALSE(fileExists(dir.file("out-200.jpg")));
    EXPECT_FALSE(fileExists(dir.file("out-600.jpg")));
}

TEST(VothumbLargeInput, JpegDeclaringTheLargestSizeItCanIsRefused) {
    TempDir dir;
    writeBytes(dir.file("huge.jpg"), jpegHeaderDeclaring(65535, 65535));
    expectRefusedQuickly(dir.file("huge.jpg"), dir);
}

TEST(VothumbLargeInput, PngDeclaring100000By100000IsRefused) {
    TempDir dir;
    writeBytes(dir.file("huge.png"), pngDeclaring(100000, 100000));
    expectRefusedQuickly(dir.file("huge.png"), dir);
}

TEST(VothumbLargeInput, PngDeclaringAWidthBeyondTheFormatsLimitIsRefused) {
    TempDir dir;
    writeBytes(dir.file("wider.png"), pngDeclaring(0x80000000u, 1));
    expectRefusedQuickly(dir.file("wider.png"), dir);
}

// Takes a few seconds: the 576-megapixel picture is encoded here, then decoded by vothumb.
TEST(VothumbLargeInput, Jpeg24000By24000IsThumbnailed) {
    TempDir dir;
    writeFlatJpeg(dir.file("big.jpg"), 24000, 24000, 200, 120, 40);
    const ChildRun run = runVothumb({dir.file("big.jpg"), dir.file("big")}, 120);
    ASSERT_FALSE(run.timedOut) << "still running after 120 s";
    ASSERT_TRUE(run.exited) << "ended by signal " << run.signal;
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(run.standardError.empty()) << run.standardError;
    EXPECT_LT(run.peakRssKb, 1536L * 1024) << "peak resident memory in KiB";
    RecordProperty("peakRssKiB", std::to_string(run.peakRssKb));
    RecordProperty("seconds", std::to_string(run.seconds));

    for (const auto& [suffix, side] : {std::pair{"-200.jpg", 150}, std::pair{"-600.jpg", 600}}) {
        const std::string path = dir.file(std::string("big") + suffix);
        const JpegFacts facts = readJpegFacts(path);
        EXPECT_EQ(facts.width, side) << path;
        EXPECT_EQ(facts.height, side) << path;
        // A flat picture stays flat: every pixel within a few codes of the colour.
        const Pixels pixels = readJpeg(path);
        for (int y = 0; y < pixels.height; y += 7) {
            for (int x = 0; x < pixels.width; x += 7) {
                EXPECT_NEAR(pixels.at(x, y)[0], 200, 3) << path << " at " << x << "," << y;
                EXPECT_NEAR(pixels.at(x, y)[1], 120, 3) << path << " at " << x << "," << y;
                EXPECT_NEAR(pixels.at(x, y)[2], 40, 3) << path << " at " << x << "," << y;
            }
        }
    }
}

}  // namespace
}  // namespace vo::test
