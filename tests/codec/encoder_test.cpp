// SPDX-License-Identifier: MIT
// JPEG and PNG writers: stream structure, quantisation tables, round trips, atomic replacement.
#include "Engine/codec/chroma_planes_p.h"
#include "Engine/codec/jpeg_encoder_p.h"
#include "Engine/codec/luma_fit_p.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <cmath>
#include <cstring>
#include <random>

using namespace votest;

namespace {

// libjpeg's standard tables in natural (row-major) order.
constexpr unsigned kLuma[64] = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
                                14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
                                18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
                                49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr unsigned kChroma[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                                  24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                                  99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                  99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};
// Position in natural order of the k-th coefficient in zigzag (stream) order.
constexpr int kZigzag[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
                             41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
                             30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

unsigned scaled(unsigned base, int quality) {
    const int scale = quality < 50 ? 5000 / quality : 200 - quality * 2;
    return std::clamp<unsigned>((base * unsigned(scale) + 50) / 100, 1, 255);
}

struct Segment {
    uint8_t marker;
    Bytes payload;
};

std::vector<Segment> segmentsBeforeScan(const Bytes& jpeg) {
    std::vector<Segment> out;
    size_t pos = 2;
    while (pos + 4 <= jpeg.size() && jpeg[pos] == 0xFF) {
        const uint8_t marker = jpeg[pos + 1];
        const size_t length = size_t(jpeg[pos + 2]) << 8 | jpeg[pos + 3];
        out.push_back({marker, Bytes(jpeg.begin() + long(pos + 4), jpeg.begin() + long(pos + 2 + length))});
        if (marker == 0xDA) break;
        pos += 2 + length;
    }
    return out;
}

// Smooth colour ramps: what a thumbnail mostly consists of.
Picture smoothPicture(int width, int height) {
    Picture p{width, height, 3, {}};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            p.samples.insert(p.samples.end(), {uint8_t(40 + x * 2), uint8_t(200 - y * 2), uint8_t(60 + (x + y))});
    return p;
}

TEST(JpegWriter, BaselineFourTwoZeroStandardTables) {
    TempDir dir;
    const Picture p = smoothPicture(70, 50);
    const std::string path = dir.file("out.jpg");
    std::string error;
    ASSERT_TRUE(voimg::writeJpegFile(path, p.samples.data(), 70, 50, 85, &error)) << error;
    const Bytes jpeg = readFile(path);
    ASSERT_GT(jpeg.size(), 100u);
    EXPECT_EQ(jpeg[0], 0xFF);
    EXPECT_EQ(jpeg[1], 0xD8);
    EXPECT_EQ(jpeg[jpeg.size() - 2], 0xFF);
    EXPECT_EQ(jpeg[jpeg.size() - 1], 0xD9);

    bool sawJfif = false, sawSof0 = false;
    std::vector<std::pair<int, std::vector<unsigned>>> tables;
    for (const Segment& s : segmentsBeforeScan(jpeg)) {
        EXPECT_NE(s.marker, 0xE2) << "no ICC profile expected";
        EXPECT_TRUE(s.marker != 0xC1 && s.marker != 0xC2) << "not baseline";
        if (s.marker == 0xE0) sawJfif |= s.payload.size() >= 5 && std::memcmp(s.payload.data(), "JFIF", 5) == 0;
        if (s.marker == 0xDB)
            for (size_t i = 0; i + 65 <= s.payload.size(); i += 65) {
                EXPECT_EQ(s.payload[i] >> 4, 0) << "8-bit tables";
                tables.push_back({s.payload[i] & 15, std::vector<unsigned>(s.payload.begin() + long(i) + 1,
                                                                           s.payload.begin() + long(i) + 65)});
            }
        if (s.marker == 0xC0) {
            sawSof0 = true;
            ASSERT_EQ(s.payload.size(), 15u);
            EXPECT_EQ(s.payload[0], 8);
            EXPECT_EQ((s.payload[1] << 8) | s.payload[2], 50);
            EXPECT_EQ((s.payload[3] << 8) | s.payload[4], 70);
            ASSERT_EQ(s.payload[5], 3);
            EXPECT_EQ(s.payload[7], 0x22);   // Y 2x2
            EXPECT_EQ(s.payload[10], 0x11);  // Cb 1x1
            EXPECT_EQ(s.payload[13], 0x11);  // Cr 1x1
        }
    }
    EXPECT_TRUE(sawJfif);
    EXPECT_TRUE(sawSof0);
    ASSERT_EQ(tables.size(), 2u);
    for (const auto& [id, values] : tables) {
        const unsigned* base = id == 0 ? kLuma : kChroma;
        for (int k = 0; k < 64; ++k)
            EXPECT_EQ(values[size_t(k)], scaled(base[kZigzag[k]], 85)) << "table " << id << " #" << k;
    }

    const auto decoded = voimg::decodeImageFile(path, {}, &error);
    ASSERT_TRUE(decoded) << error;
    double total = 0;
    for (int y = 0; y < 50; ++y)
        for (int x = 0; x < 70; ++x)
            for (int c = 0; c < 3; ++c) total += std::abs(int(sampleAt(*decoded, x, y, c)) - int(p.at(x, y)[c]));
    EXPECT_LT(total / (70 * 50 * 3), 1.5);
}

// Squared error of a decoded JPEG against the RGB picture it was made from.
double squaredError(const voimg::DecodedImage& decoded, const Picture& p) {
    double total = 0;
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x)
            for (int c = 0; c < 3; ++c) {
                const double d = double(sampleAt(decoded, x, y, c)) - double(p.at(x, y)[c]);
                total += d * d;
            }
    return total;
}

TEST(JpegWriter, ColourEdgesComeBackCloserThanWithPlainChromaAveraging) {
    // Coloured blocks and stripes of every width: where 4:2:0 loses most.
    Picture p;
    p.width = 96, p.height = 64, p.channels = 3;
    p.samples.resize(size_t(p.width) * p.height * 3);
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x) {
            uint8_t* s = &p.samples[(size_t(y) * p.width + x) * 3];
            const bool band = (x / (1 + y / 8)) % 2 == 0;
            s[0] = band ? 220 : 30, s[1] = uint8_t(60 + x), s[2] = band ? 40 : 200;
        }
    TempDir dir;
    std::string error;
    ASSERT_TRUE(voimg::writeJpegFile(dir.file("ours.jpg"), p.samples.data(), p.width, p.height, 85, &error)) << error;
    JpegParams plain;
    plain.quality = 85;
    const Bytes averaged = encodeJpeg(p, plain);  // libjpeg's own 2x2 averaging, same tables
    const auto ours = voimg::decodeImageFile(dir.file("ours.jpg"), {}, &error);
    const auto theirs = voimg::decodeImageMemory(averaged.data(), averaged.size(), {}, &error);
    ASSERT_TRUE(ours && theirs) << error;
    EXPECT_LT(squaredError(*ours, p), 0.97 * squaredError(*theirs, p));
}

// The planes by their definition: JFIF's full-range conversion per pixel, 2x2 averages of the chroma of
// the pixels present, sharpened by [-a, 1 + 2a, -a] per axis with edges repeated, rounded, padded by
// repeating the last column and row.
voimg::detail::YccPlanes planesByDefinition(const std::vector<uint8_t>& rgb, int width, int height) {
    using voimg::detail::kChromaSharpening;
    auto at = [&](int x, int y) { return &rgb[(size_t(y) * size_t(width) + size_t(x)) * 3]; };
    auto toByte = [](double v) { return uint8_t(std::lround(std::clamp(v, 0.0, 255.0))); };
    voimg::detail::YccPlanes p;
    p.width = width, p.height = height;
    p.lumaStride = size_t((width + 15) / 16) * 16, p.lumaRows = size_t((height + 15) / 16) * 16;
    p.chromaStride = p.lumaStride / 2, p.chromaRows = p.lumaRows / 2;
    p.y.resize(p.lumaStride * p.lumaRows);
    for (size_t y = 0; y < p.lumaRows; ++y)
        for (size_t x = 0; x < p.lumaStride; ++x) {
            const uint8_t* c = at(std::min(int(x), width - 1), std::min(int(y), height - 1));
            p.y[y * p.lumaStride + x] = toByte(0.299 * c[0] + 0.587 * c[1] + 0.114 * c[2]);
        }
    const int hw = (width + 1) / 2, hh = (height + 1) / 2;
    std::vector<double> planes[2] = {std::vector<double>(size_t(hw * hh)), std::vector<double>(size_t(hw * hh))};
    for (int hy = 0; hy < hh; ++hy)
        for (int hx = 0; hx < hw; ++hx) {
            double cb = 0, cr = 0;
            int n = 0;
            for (int y = 2 * hy; y < std::min(2 * hy + 2, height); ++y)
                for (int x = 2 * hx; x < std::min(2 * hx + 2, width); ++x, ++n) {
                    const uint8_t* c = at(x, y);
                    cb += -0.168736 * c[0] - 0.331264 * c[1] + 0.5 * c[2] + 128;
                    cr += 0.5 * c[0] - 0.418688 * c[1] - 0.081312 * c[2] + 128;
                }
            planes[0][size_t(hy * hw + hx)] = cb / n, planes[1][size_t(hy * hw + hx)] = cr / n;
        }
    const double a = kChromaSharpening;
    voimg::detail::PlaneBytes* out[2] = {&p.cb, &p.cr};
    for (int k = 0; k < 2; ++k) {
        std::vector<double>& v = planes[k];
        std::vector<double> h(v.size());
        for (int y = 0; y < hh; ++y)
            for (int x = 0; x < hw; ++x)
                h[size_t(y * hw + x)] = (1 + 2 * a) * v[size_t(y * hw + x)] -
                                        a * v[size_t(y * hw + std::max(x - 1, 0))] -
                                        a * v[size_t(y * hw + std::min(x + 1, hw - 1))];
        out[k]->resize(p.chromaStride * p.chromaRows);
        for (size_t y = 0; y < p.chromaRows; ++y)
            for (size_t x = 0; x < p.chromaStride; ++x) {
                const int cx = std::min(int(x), hw - 1), cy = std::min(int(y), hh - 1);
                const double s = (1 + 2 * a) * h[size_t(cy * hw + cx)] - a * h[size_t(std::max(cy - 1, 0) * hw + cx)] -
                                 a * h[size_t(std::min(cy + 1, hh - 1) * hw + cx)];
                (*out[k])[y * p.chromaStride + x] = toByte(s);
            }
    }
    return p;
}

TEST(JpegWriter, ColourPlanesFollowTheirDefinitionToTheNearestLevel) {
    std::mt19937 random(8);
    for (const auto& [w, h] : std::vector<std::pair<int, int>>{{1, 1}, {2, 3}, {17, 9}, {40, 33}, {64, 48}}) {
        std::vector<uint8_t> rgb(size_t(w) * size_t(h) * 3);
        for (uint8_t& v : rgb) v = uint8_t(random());
        const voimg::detail::YccPlanes got = voimg::detail::makeYccPlanes(rgb.data(), w, h);
        const voimg::detail::YccPlanes want = planesByDefinition(rgb, w, h);
        ASSERT_EQ(got.lumaStride, want.lumaStride);
        ASSERT_EQ(got.lumaRows, want.lumaRows);
        ASSERT_EQ(got.chromaStride, want.chromaStride);
        ASSERT_EQ(got.chromaRows, want.chromaRows);
        // Fixed point and float both round to the nearest level; they may part on values within a hair of
        // a half.
        auto expectClose = [&](const voimg::detail::PlaneBytes& a, const voimg::detail::PlaneBytes& b,
                               const char* plane) {
            ASSERT_EQ(a.size(), b.size());
            int off = 0;
            for (size_t i = 0; i < a.size(); ++i) {
                ASSERT_LE(std::abs(int(a[i]) - int(b[i])), 1) << plane << " " << w << "x" << h << " at " << i;
                off += a[i] != b[i];
            }
            EXPECT_LE(off, int(a.size() / 50) + 1) << plane << " " << w << "x" << h;
        };
        expectClose(got.y, want.y, "Y");
        expectClose(got.cb, want.cb, "Cb");
        expectClose(got.cr, want.cr, "Cr");
    }
}

TEST(JpegWriter, OddAndTinySizesRoundTrip) {
    TempDir dir;
    for (const auto& [w, h] : std::vector<std::pair<int, int>>{{1, 1}, {2, 1}, {1, 3}, {17, 9}, {33, 31}}) {
        const Picture p = smoothPicture(w, h);
        const std::string path = dir.file("s.jpg");
        std::string error;
        ASSERT_TRUE(voimg::writeJpegFile(path, p.samples.data(), w, h, 90, &error)) << error;
        const auto decoded = voimg::decodeImageFile(path, {}, &error);
        ASSERT_TRUE(decoded) << error;
        EXPECT_EQ(decoded->width, w);
        EXPECT_EQ(decoded->height, h);
        EXPECT_LT(squaredError(*decoded, p) / (w * h * 3), 25.0) << w << "x" << h;
    }
}

// A picture large enough for the writer's helper thread, with detail in every band.
Picture detailedPicture(int width, int height) {
    Picture p{width, height, 3, {}};
    std::mt19937 random(11);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            p.samples.insert(p.samples.end(), {uint8_t((x * 3 + y) & 255), uint8_t(128 + 100 * std::sin(y * 0.1)),
                                               uint8_t(random() & 255)});
    return p;
}

TEST(JpegStreamWriter, RowsToldInStepsGiveTheFileWrittenWhole) {
    TempDir dir;
    for (const auto& [w, h] : std::vector<std::pair<int, int>>{{1, 1}, {17, 9}, {600, 450}}) {
        const Picture p = detailedPicture(w, h);
        const std::string whole = dir.file("whole" + std::to_string(w) + ".jpg");
        const std::string steps = dir.file("steps" + std::to_string(w) + ".jpg");
        std::string error;
        ASSERT_TRUE(voimg::writeJpegFile(whole, p.samples.data(), w, h, 85, &error)) << error;
        auto writer = voimg::JpegStreamWriter::open(steps, p.samples.data(), w, h, 85, &error);
        ASSERT_TRUE(writer) << error;
        // Uneven steps, some repeated or smaller than before: only growth counts.
        for (int rows = 0; rows < h; rows += 7) {
            writer->rowsReady(rows);
            writer->rowsReady(rows / 2);
        }
        EXPECT_FALSE(fileExists(steps));  // not before finish
        writer->rowsReady(h);
        ASSERT_TRUE(writer->finish(&error)) << error;
        EXPECT_EQ(readFile(steps), readFile(whole)) << w << "x" << h;
    }
}

TEST(JpegStreamWriter, PlanesKeptBandByBandGiveTheFileOfWholePlanes) {
    TempDir dir;
    // Heights of whole bands and of partly padded ones, one band and many; widths odd and even.
    for (const auto& [w, h] : std::vector<std::pair<int, int>>{{16, 160}, {33, 121}, {45, 50}, {3, 200}, {64, 9}}) {
        const Picture p = detailedPicture(w, h);
        voimg::detail::YccPlanes planes = voimg::detail::makeYccPlanes(p.samples.data(), w, h);
        voimg::detail::fitLumaToDecodedChroma(planes, p.samples.data(), 85);
        const std::string whole = dir.file("whole.jpg"), banded = dir.file("banded.jpg");
        std::string error;
        ASSERT_TRUE(voimg::detail::writeJpegPlanes(whole, planes, 85, &error)) << error;
        auto writer = voimg::JpegStreamWriter::open(banded, p.samples.data(), w, h, 85, &error);
        ASSERT_TRUE(writer) << error;
        for (int rows = 1; rows <= h; ++rows) writer->rowsReady(rows);  // each band as soon as it can be
        ASSERT_TRUE(writer->finish(&error)) << error;
        EXPECT_EQ(readFile(banded), readFile(whole)) << w << "x" << h;
    }
}

TEST(JpegStreamWriter, BandedPlanesHoldAWindowOfRows) {
    const voimg::detail::YccPlanes planes = voimg::detail::sizedYccPlanes(50, 300, true);
    EXPECT_EQ(planes.lumaRows, 304u);
    EXPECT_EQ(planes.y.size(), planes.lumaStride * voimg::detail::kBandedLumaRows);
    EXPECT_EQ(planes.cb.size(), planes.chromaStride * voimg::detail::kBandedChromaRows);
    EXPECT_EQ(planes.cr.size(), planes.cb.size());
    // A row shares its storage with the rows a window away; rows past the padding read as the last.
    EXPECT_EQ(planes.lumaRow(17), planes.lumaRow(1));
    EXPECT_NE(planes.lumaRow(17), planes.lumaRow(16));
    EXPECT_EQ(planes.cbRow(8 + voimg::detail::kBandedChromaRows), planes.cbRow(8));
    EXPECT_EQ(planes.lumaRow(1000), planes.lumaRow(303));
    // A picture shorter than a window keeps all its rows.
    const voimg::detail::YccPlanes small = voimg::detail::sizedYccPlanes(50, 5, true);
    EXPECT_EQ(small.y.size(), small.lumaStride * 16);
    EXPECT_EQ(small.cb.size(), small.chromaStride * 8);
}

TEST(JpegStreamWriter, FinishWritesWhatWasNotToldYet) {
    TempDir dir;
    const Picture p = detailedPicture(64, 48);
    auto writer = voimg::JpegStreamWriter::open(dir.file("a.jpg"), p.samples.data(), 64, 48, 85);
    ASSERT_TRUE(writer);
    writer->rowsReady(20);
    ASSERT_TRUE(writer->finish());
    ASSERT_TRUE(voimg::writeJpegFile(dir.file("b.jpg"), p.samples.data(), 64, 48, 85));
    EXPECT_EQ(readFile(dir.file("a.jpg")), readFile(dir.file("b.jpg")));
}

TEST(JpegStreamWriter, AnUnfinishedWriterLeavesNoFileAndTheOldOneAlone) {
    TempDir dir;
    const std::string path = dir.file("thumb.jpg");
    writeFile(path, {1, 2, 3});
    const Picture p = detailedPicture(300, 200);
    {
        auto writer = voimg::JpegStreamWriter::open(path, p.samples.data(), 300, 200, 85);
        ASSERT_TRUE(writer);
        writer->rowsReady(150);
    }
    EXPECT_EQ(readFile(path), (Bytes{1, 2, 3}));
    EXPECT_EQ(listFolder(dir.path()).size(), 1u);  // no temporary file either
}

TEST(JpegStreamWriter, BadPicturesAndDestinationsAreRefusedAtOnce) {
    TempDir dir;
    const Picture p = makeGradient(8, 8);
    std::string error;
    EXPECT_FALSE(voimg::JpegStreamWriter::open(dir.file("a.jpg"), nullptr, 8, 8, 85, &error));
    EXPECT_EQ(error, "invalid image for JPEG output");
    EXPECT_FALSE(voimg::JpegStreamWriter::open(dir.file("a.jpg"), p.samples.data(), 0, 8, 85));
    error.clear();
    EXPECT_FALSE(voimg::JpegStreamWriter::open(dir.file("no/such/folder/a.jpg"), p.samples.data(), 8, 8, 85, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(listFolder(dir.path()).empty());
}

TEST(PngWriter, RoundTripsRgbaExactly) {
    TempDir dir;
    const Picture p = makeGradient(33, 21, 4);
    const std::string path = dir.file("out.png");
    std::string error;
    ASSERT_TRUE(voimg::writePngFile(path, p.samples.data(), 33, 21, &error)) << error;
    const auto decoded = voimg::decodeImageFile(path, {}, &error);
    ASSERT_TRUE(decoded) << error;
    EXPECT_FALSE(decoded->sixteenBit);
    EXPECT_TRUE(decoded->hasAlpha);
    EXPECT_EQ(decoded->pixels, p.samples);
}

TEST(Writers, ReplaceExistingFileAndLeaveNoTemporaries) {
    TempDir dir;
    const std::string path = dir.file("thumb.png");
    writeFile(path, {1, 2, 3});
    const Picture p = makeGradient(8, 8, 4);
    ASSERT_TRUE(voimg::writePngFile(path, p.samples.data(), 8, 8));
    ASSERT_TRUE(voimg::writeJpegFile(dir.file("thumb.jpg"), makeGradient(8, 8).samples.data(), 8, 8, 80));
    EXPECT_EQ(listFolder(dir.path()).size(), 2u);
    EXPECT_TRUE(voimg::decodeImageFile(path));
}

TEST(Writers, FailedWritesLeaveNoFile) {
    TempDir dir;
    const Picture rgba = makeGradient(8, 8, 4), rgb = makeGradient(8, 8);
    std::string error;
    const std::string missing = dir.file("no/such/folder/out.jpg");
    EXPECT_FALSE(voimg::writeJpegFile(missing, rgb.samples.data(), 8, 8, 80, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(voimg::writePngFile(dir.file("no/out.png"), rgba.samples.data(), 8, 8, &error));
    EXPECT_FALSE(fileExists(missing));

    const std::string folder = dir.file("target");
    ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
    error.clear();
    EXPECT_FALSE(voimg::writePngFile(folder, rgba.samples.data(), 8, 8, &error));
    EXPECT_NE(error.find("directory"), std::string::npos) << error;
    EXPECT_FALSE(voimg::writeJpegFile(folder + "/", rgb.samples.data(), 8, 8, 80, &error));
    EXPECT_TRUE(listFolder(folder).empty());
    EXPECT_EQ(listFolder(dir.path()).size(), 1u);  // only the folder itself, no temporary files

    EXPECT_FALSE(voimg::writeJpegFile(dir.file("bad.jpg"), nullptr, 8, 8, 80, &error));
    EXPECT_FALSE(voimg::writePngFile(dir.file("bad.png"), rgba.samples.data(), 0, 8, &error));
    EXPECT_EQ(listFolder(dir.path()).size(), 1u);
}

TEST(Writers, ReadOnlyFolder) {
    if (::geteuid() == 0) GTEST_SKIP() << "root writes into read-only folders regardless of permissions";
    TempDir dir;
    const std::string folder = dir.file("locked");
    ASSERT_EQ(::mkdir(folder.c_str(), 0555), 0);
    std::string error;
    EXPECT_FALSE(voimg::writePngFile(folder + "/x.png", makeGradient(4, 4, 4).samples.data(), 4, 4, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(listFolder(folder).empty());
}

TEST(Writers, FolderRefusingNewFilesEvenForRoot) {
    // /proc accepts no new files from anyone, which checks the creation failure path when running as root.
    std::string error;
    EXPECT_FALSE(voimg::writePngFile("/proc/vo-test.png", makeGradient(4, 4, 4).samples.data(), 4, 4, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(voimg::writeJpegFile("/proc/vo-test.jpg", makeGradient(4, 4).samples.data(), 4, 4, 80, &error));
    EXPECT_FALSE(fileExists("/proc/vo-test.jpg"));
}

}  // namespace
