// SPDX-License-Identifier: MIT
// Hostile and broken input: missing files, directories, empty and garbage files, truncation, absurd
// declared sizes, unusual paths.
#include "test_support.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace votest;

namespace {

long maxRssKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void expectCleanFailure(const std::string& path, const char* expectedWord = nullptr) {
    std::string error;
    EXPECT_FALSE(voimg::decodeImageFile(path, {}, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    if (expectedWord) {
        EXPECT_NE(error.find(expectedWord), std::string::npos) << error;
    }
    std::string probeError;
    EXPECT_FALSE(voimg::probeImageFile(path, &probeError));
    EXPECT_FALSE(probeError.empty());
}

TEST(BadInput, MissingFile) { expectCleanFailure("/nonexistent/folder/picture.jpg", "No such file"); }

TEST(BadInput, Directory) {
    TempDir dir;
    expectCleanFailure(dir.path(), "directory");
}

TEST(BadInput, Fifo) {
    TempDir dir;
    ASSERT_EQ(::mkfifo(dir.file("pipe.jpg").c_str(), 0600), 0);
    expectCleanFailure(dir.file("pipe.jpg"), "regular");
}

TEST(BadInput, ZeroByteFile) {
    TempDir dir;
    writeFile(dir.file("empty.png"), {});
    expectCleanFailure(dir.file("empty.png"), "empty");
}

TEST(BadInput, GarbageWithJpegName) {
    TempDir dir;
    Bytes garbage;
    for (int i = 0; i < 5000; ++i) garbage.push_back(uint8_t(i * 131 + 7));
    writeFile(dir.file("photo.jpg"), garbage);
    expectCleanFailure(dir.file("photo.jpg"), "unrecognised");
}

TEST(BadInput, JpegHeaderThenGarbage) {
    Bytes data = encodeJpeg(makeQuadrants(32, 32), JpegParams{});
    data.resize(40);  // inside the headers
    std::string error;
    EXPECT_FALSE(voimg::decodeImageMemory(data.data(), data.size(), {}, &error));
    EXPECT_FALSE(error.empty());
}

TEST(BadInput, UnreadableFile) {
    if (::geteuid() == 0) GTEST_SKIP() << "root reads files regardless of permissions";
    TempDir dir;
    writeFile(dir.file("secret.png"), encodePng(2, 2, std::vector<uint16_t>(12, 9), PngParams{}));
    ::chmod(dir.file("secret.png").c_str(), 0);
    expectCleanFailure(dir.file("secret.png"), "Permission");
}

TEST(BadInput, TruncatedJpegKeepsTopRows) {
    const Picture source = makeQuadrants(256, 256);
    JpegParams params;
    params.quality = 90;
    const Bytes full = encodeJpeg(source, params);
    const Bytes cut(full.begin(), full.begin() + long(full.size() * 6 / 10));
    std::string error;
    const auto image = voimg::decodeImageMemory(cut.data(), cut.size(), {}, &error);
    ASSERT_TRUE(image) << error;
    ASSERT_EQ(image->width, 256);
    ASSERT_EQ(image->height, 256);
    EXPECT_NEAR(int(sampleAt(*image, 64, 20, 0)), 200, 4);  // top-left quadrant arrived
    // The last rows never arrived: libjpeg pads them with mid grey.
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(int(sampleAt(*image, 200, 250, c)), 128, 2);
    EXPECT_EQ(sampleAt(*image, 200, 250, 3), 255u);

    const Bytes headersOnly(full.begin(), full.begin() + 700);  // cut right after the scan header
    EXPECT_FALSE(voimg::decodeImageMemory(headersOnly.data(), headersOnly.size(), {}, &error));
}

TEST(BadInput, TruncatedProgressiveJpegStillDecodes) {
    JpegParams params;
    params.progressive = true;
    const Bytes full = encodeJpeg(makeQuadrants(128, 128), params);
    const Bytes cut(full.begin(), full.begin() + long(full.size() / 2));
    std::string error;
    const auto image = voimg::decodeImageMemory(cut.data(), cut.size(), {}, &error);
    ASSERT_TRUE(image) << error;
    EXPECT_NEAR(int(sampleAt(*image, 100, 100, 0)), 170, 12);  // coarse scans cover the whole picture
}

TEST(BadInput, TruncatedPngKeepsTopRows) {
    const Picture p = makeGradient(64, 64, 4);
    PngParams params;
    params.colourType = 6;
    const Bytes full = encodePng(64, 64, {p.samples.begin(), p.samples.end()}, params);
    const Bytes cut(full.begin(), full.begin() + long(full.size() / 2));
    std::string error;
    const auto image = voimg::decodeImageMemory(cut.data(), cut.size(), {}, &error);
    ASSERT_TRUE(image) << error;
    for (int c = 0; c < 4; ++c) EXPECT_EQ(sampleAt(*image, 10, 2, c), p.at(10, 2)[c]);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(sampleAt(*image, 10, 63, c), 128u);
    EXPECT_EQ(sampleAt(*image, 10, 63, 3), 255u);

    const Bytes noRows(full.begin(), full.begin() + 60);  // signature, IHDR and the start of IDAT
    EXPECT_FALSE(voimg::decodeImageMemory(noRows.data(), noRows.size(), {}, &error));
}

void expectFastRejection(const Bytes& data, const char* what) {
    const long rssBefore = maxRssKiB();
    const auto start = std::chrono::steady_clock::now();
    std::string error;
    EXPECT_FALSE(voimg::decodeImageMemory(data.data(), data.size(), {}, &error)) << what;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 0.5) << what;
    EXPECT_LT(maxRssKiB() - rssBefore, 64 * 1024) << what << ": memory peak grew";
    EXPECT_NE(error.find("too large"), std::string::npos) << what << ": " << error;
}

TEST(BadInput, HugeDeclaredSizesFailFast) {
    expectFastRejection(pngDeclaring(100000, 100000), "PNG 100000 x 100000");
    // JPEG sizes are 16-bit; 65500 x 65500 is past the default pixel cap all the same.
    Bytes jpeg = encodeJpeg(makeQuadrants(16, 16), JpegParams{});
    for (size_t i = 2; i + 8 < jpeg.size(); ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0) {
            jpeg[i + 5] = jpeg[i + 7] = 0xFF;
            jpeg[i + 6] = jpeg[i + 8] = 0xDC;
            break;
        }
    expectFastRejection(jpeg, "JPEG 65500 x 65500");
    BmpParams bmp;
    Bytes bigBmp = encodeBmp(2, 2, std::vector<uint8_t>(16, 50), bmp);
    bigBmp[18] = 0xA0, bigBmp[19] = 0x86, bigBmp[20] = 0x01;  // width 100000
    bigBmp[22] = 0xA0, bigBmp[23] = 0x86, bigBmp[24] = 0x01;  // height 100000
    expectFastRejection(bigBmp, "BMP 100000 x 100000");
}

TEST(BadInput, PixelCapFromOptions) {
    const Bytes data = encodeJpeg(makeQuadrants(64, 64), JpegParams{});
    voimg::DecodeOptions options;
    options.maxPixels = 64 * 64 - 1;
    std::string error;
    EXPECT_FALSE(voimg::decodeImageMemory(data.data(), data.size(), options, &error));
    options.maxPixels = 64 * 64;
    EXPECT_TRUE(voimg::decodeImageMemory(data.data(), data.size(), options, &error)) << error;
}

TEST(BadInput, NonAsciiAndSpacesInPaths) {
    TempDir dir;
    const std::string folder = dir.file("Bilder mit Ümläuten");
    ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
    const std::string path = folder + "/фото 1 (copy).jpg";
    writeFile(path, encodeJpeg(makeQuadrants(40, 30), JpegParams{}));
    std::string error;
    const auto image = voimg::decodeImageFile(path, {}, &error);
    ASSERT_TRUE(image) << error;
    EXPECT_EQ(image->width, 40);
    const auto info = voimg::probeImageFile(path, &error);
    ASSERT_TRUE(info) << error;
    EXPECT_EQ(info->format, voimg::FileFormat::Jpeg);
}

TEST(BadInput, NullAndEmptyMemory) {
    std::string error;
    EXPECT_FALSE(voimg::decodeImageMemory(nullptr, 0, {}, &error));
    EXPECT_FALSE(error.empty());
    const uint8_t one = 0xFF;
    EXPECT_FALSE(voimg::decodeImageMemory(&one, 1, {}, &error));
}

}  // namespace
