// SPDX-License-Identifier: MIT
// Large baseline JPEGs are entropy-decoded by several threads that each start mid-stream: the result must
// equal a decoding from the start whatever the data, and must look like libjpeg's own reduced decoding.
#include "Engine/codec/codec_p.h"
#include "Engine/codec/jpeg_huffman_p.h"
#include "Engine/codec/jpeg_reduced_idct_p.h"
#include "Engine/codec/jpeg_split_rows_p.h"
#include "Engine/codec/jpeg_ycbcr_rows_p.h"
#include "Engine/codec/row_reader.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <thread>

using namespace votest;
using voimg::detail::SplitScanSettings;

namespace {

// A photograph-like picture: smooth shading with fine grain, so that the entropy data is dense.
Picture makeGrainy(int width, int height, int channels, uint32_t seed = 1) {
    Picture p{width, height, channels, std::vector<uint8_t>(size_t(width) * size_t(height) * size_t(channels))};
    uint32_t state = seed;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c) {
                state = state * 1664525u + 1013904223u;
                const double shade = 128 + 90 * std::sin(x * 0.013 * (c + 1) + y * 0.021 + c);
                p.samples[(size_t(y) * size_t(width) + size_t(x)) * size_t(channels) + size_t(c)] =
                    uint8_t(std::clamp(int(shade) + int(state >> 27) - 16, 0, 255));
            }
    return p;
}

struct Decoded {
    bool opened = false;
    int width = 0, height = 0;
    std::vector<uint8_t> rgba;
    voimg::detail::SplitScanStats stats;
};

Decoded splitDecode(const Bytes& jpeg, unsigned scale, SplitScanSettings settings, int blockRows = 5) {
    voimg::detail::MemorySource source(jpeg.data(), jpeg.size());
    Decoded out;
    auto rows = voimg::detail::openSplitJpegRows(source, scale, settings);
    if (!rows) return out;
    out.opened = true;
    out.width = rows->width(), out.height = rows->height();
    out.rgba.resize(size_t(out.width) * size_t(out.height) * 4);
    int row = 0;
    while (int got = rows->readRows(out.rgba.data() + size_t(row) * size_t(out.width) * 4,
                                    std::min(blockRows, out.height - row))) {
        row += got;
        if (row >= out.height) break;
    }
    EXPECT_EQ(row, out.height);
    EXPECT_EQ(rows->readRows(out.rgba.data(), 1), 0);  // nothing after the last row
    out.stats = rows->stats();
    return out;
}

SplitScanSettings serial() { return {1, 1, true}; }
// A thread per segment, each decoding its own: the statistics do not depend on timing.
SplitScanSettings speculative(int segments) { return {segments, segments, false}; }

double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i) sum += double(a[i] - b[i]) * double(a[i] - b[i]);
    const double mse = sum / double(a.size());
    return mse == 0 ? 99 : 10 * std::log10(255.0 * 255.0 / mse);
}

struct Layout {
    const char* name;
    JpegColour colour;
    int lumaH, lumaV;
};

const Layout kLayouts[] = {
    {"420", JpegColour::Rgb, 2, 2}, {"422", JpegColour::Rgb, 2, 1},   {"440", JpegColour::Rgb, 1, 2},
    {"444", JpegColour::Rgb, 1, 1}, {"grey", JpegColour::Grey, 1, 1},
};

Bytes grainyJpeg(const Layout& layout, int width = 611, int height = 433, int quality = 90) {
    JpegParams params;
    params.colour = layout.colour;
    params.lumaH = layout.lumaH, params.lumaV = layout.lumaV;
    params.quality = quality;
    return encodeJpeg(makeGrainy(width, height, layout.colour == JpegColour::Grey ? 1 : 3), params);
}

class SplitDecode : public ::testing::TestWithParam<std::tuple<Layout, unsigned>> {};

TEST_P(SplitDecode, SpeculativeSegmentsJoinAndEqualOneDecodingFromTheStart) {
    const auto [layout, scale] = GetParam();
    const Bytes jpeg = grainyJpeg(layout);
    const Decoded reference = splitDecode(jpeg, scale, serial());
    ASSERT_TRUE(reference.opened);
    EXPECT_EQ(reference.width, (611 + int(scale) - 1) / int(scale));
    EXPECT_EQ(reference.height, (433 + int(scale) - 1) / int(scale));

    const Decoded split = splitDecode(jpeg, scale, speculative(12));
    ASSERT_TRUE(split.opened);
    EXPECT_TRUE(split.rgba == reference.rgba);
    // Every segment's own decoding was taken up: the Huffman codes resynchronised inside each one.
    EXPECT_EQ(split.stats.segments, 12);
    EXPECT_EQ(split.stats.joined, 11);
    EXPECT_EQ(split.stats.passed, 0);
}

TEST_P(SplitDecode, LooksLikeLibjpegsReducedDecoding) {
    const auto [layout, scale] = GetParam();
    const Bytes jpeg = grainyJpeg(layout);
    const Decoded split = splitDecode(jpeg, scale, speculative(6));
    const voimg::DecodedImage libjpeg = decodeOrFail(jpeg, int(scale));
    ASSERT_EQ(split.width, libjpeg.width);
    ASSERT_EQ(split.height, libjpeg.height);
    // Both are low-passed versions of the same blocks; the chroma interpolation and the reduced IDCTs
    // differ in detail only.
    EXPECT_GT(psnr(split.rgba, libjpeg.pixels), 30.0);
}

INSTANTIATE_TEST_SUITE_P(LayoutsAndScales, SplitDecode,
                         ::testing::Combine(::testing::ValuesIn(kLayouts), ::testing::Values(2u, 4u, 8u)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_by" +
                                    std::to_string(std::get<1>(info.param));
                         });

TEST(SplitDecodeTest, SharingTheWorkDynamicallyGivesTheSamePixels) {
    const Bytes jpeg = grainyJpeg(kLayouts[0], 1200, 800, 95);
    const Decoded reference = splitDecode(jpeg, 2, serial());
    for (const SplitScanSettings settings :
         {SplitScanSettings{2, 7, true}, SplitScanSettings{4, 31, true}, SplitScanSettings{1, 9, true}}) {
        const Decoded split = splitDecode(jpeg, 2, settings, 16);
        EXPECT_TRUE(split.rgba == reference.rgba) << settings.threads << " threads, " << settings.segments;
        EXPECT_LE(split.stats.joined + split.stats.passed, split.stats.segments - 1);
    }
}

TEST(SplitDecodeTest, OneThreadDecodesOnThroughEverySegment) {
    const Decoded split = splitDecode(grainyJpeg(kLayouts[0]), 4, SplitScanSettings{1, 9, true});
    EXPECT_EQ(split.stats.joined, 0);
    EXPECT_EQ(split.stats.absorbed, 8);
}

TEST(SplitDecodeTest, ATruncatedFileEndsInMidGreyRows) {
    const Bytes whole = grainyJpeg(kLayouts[0]);
    const Bytes truncated(whole.begin(), whole.begin() + std::ptrdiff_t(whole.size() * 6 / 10));
    const Decoded full = splitDecode(whole, 2, serial());
    const Decoded reference = splitDecode(truncated, 2, serial());
    const Decoded split = splitDecode(truncated, 2, speculative(8));
    ASSERT_TRUE(split.opened);
    EXPECT_TRUE(split.rgba == reference.rgba);
    const size_t stride = size_t(split.width) * 4;
    EXPECT_TRUE(std::equal(split.rgba.begin(), split.rgba.begin() + std::ptrdiff_t(stride), full.rgba.begin()))
        << "the first row is intact";
    const uint8_t* last = split.rgba.data() + (size_t(split.height) - 1) * stride;
    for (int x = 0; x < split.width; ++x) {
        EXPECT_EQ(last[x * 4], 128);
        EXPECT_EQ(last[x * 4 + 1], 128);
        EXPECT_EQ(last[x * 4 + 2], 128);
        EXPECT_EQ(last[x * 4 + 3], 255);
    }
}

TEST(SplitDecodeTest, CorruptDataDecodesAsItWouldFromTheStart) {
    const Bytes whole = grainyJpeg(kLayouts[0]);
    uint32_t state = 7;
    for (int trial = 0; trial < 12; ++trial) {
        Bytes damaged = whole;
        // Damage the entropy data (past the headers) in a few places, markers included.
        for (int hit = 0; hit < 1 + trial % 4; ++hit) {
            state = state * 1664525u + 1013904223u;
            const size_t at = 700 + size_t(state >> 8) % (damaged.size() - 800);
            damaged[at] = uint8_t(trial % 3 == 0 ? 0xFF : state >> 24);
            if (trial % 3 == 0) damaged[at + 1] = uint8_t(0xD0 + trial % 8);  // a stray marker ends the data
        }
        const Decoded reference = splitDecode(damaged, 4, serial());
        const Decoded split = splitDecode(damaged, 4, speculative(10));
        ASSERT_TRUE(reference.opened && split.opened) << trial;
        EXPECT_TRUE(split.rgba == reference.rgba) << "trial " << trial;
    }
}

TEST(SplitDecodeTest, TinyPicturesInManySegmentsDecodeAsFromTheStart) {
    // Segments of a few dozen bytes: a speculative decoding may take longer to meet the truth than there
    // are MCUs left, and must still be followed to the scan's end.
    for (const Layout& layout : {kLayouts[0], kLayouts[3]})
        for (const int size : {24, 40, 57})
            for (const int segments : {2, 5, 9, 16}) {
                const Bytes jpeg = grainyJpeg(layout, size, size * 5 / 6, 98);
                const Decoded reference = splitDecode(jpeg, 4, serial(), 3);
                for (const SplitScanSettings settings : {SplitScanSettings{2, segments, true}, speculative(segments)}) {
                    const Decoded split = splitDecode(jpeg, 4, settings, 3);
                    EXPECT_TRUE(split.rgba == reference.rgba)
                        << layout.name << " " << size << " px, " << segments << " segments";
                }
            }
}

TEST(SplitDecodeTest, OnlyPlainSequentialFilesAtAReducedSizeAreTaken) {
    const Picture picture = makeGrainy(320, 240, 3);
    const auto opens = [](const Bytes& jpeg, unsigned scale) {
        voimg::detail::MemorySource source(jpeg.data(), jpeg.size());
        return voimg::detail::openSplitJpegRows(source, scale, {2, 4, true}) != nullptr;
    };
    JpegParams plain;
    EXPECT_TRUE(opens(encodeJpeg(picture, plain), 2));
    EXPECT_FALSE(opens(encodeJpeg(picture, plain), 1));  // nothing to gain at full size
    JpegParams progressive;
    progressive.progressive = true;
    EXPECT_FALSE(opens(encodeJpeg(picture, progressive), 2));
    JpegParams restarts;
    restarts.restartRows = 1;
    EXPECT_FALSE(opens(encodeJpeg(picture, restarts), 2));
    JpegParams cmyk;
    cmyk.colour = JpegColour::Cmyk;
    Picture four = makeGrainy(320, 240, 4);
    EXPECT_FALSE(opens(encodeJpeg(four, cmyk), 2));
    const Bytes notJpeg(1000, 0x42);
    EXPECT_FALSE(opens(notJpeg, 2));
}

TEST(SplitDecodeTest, TheRowReaderUsesItForLargeFilesWithTheSameResult) {
    if (std::thread::hardware_concurrency() < 2) GTEST_SKIP() << "one core: files are decoded on one thread";
    TempDir dir;
    const std::string path = dir.file("large.jpg");
    const Bytes jpeg = grainyJpeg(kLayouts[0], 1500, 1000, 95);
    writeFile(path, jpeg);
    voimg::RowReadOptions options;
    options.scaleDenominator = 4;
    options.splitJpegBytes = 0;
    std::string error;
    const auto reader = voimg::openRowReader(path, options, &error);
    ASSERT_TRUE(reader) << error;
    std::vector<uint8_t> rows(size_t(reader->height()) * reader->stride());
    int row = 0;
    while (int got = reader->readRows(rows.data() + size_t(row) * reader->stride(), 16)) row += got;
    ASSERT_EQ(row, reader->height());
    EXPECT_TRUE(rows == splitDecode(jpeg, 4, serial()).rgba);
}

TEST(ReducedIdctTest, VectorCodeGivesTheScalarReferencesSamples) {
    uint32_t state = 5;
    const auto next = [&state] { return state = state * 1664525u + 1013904223u; };
    const int sizes[][4] = {{8, 8, 4, 4}, {4, 4, 4, 4}, {8, 4, 4, 4}, {4, 8, 4, 4},
                            {2, 2, 2, 2}, {1, 1, 1, 1}, {4, 2, 4, 2}};
    for (const auto& size : sizes) {
        const auto vector = voimg::detail::reducedIdctFor(size[0], size[1], size[2], size[3], true);
        const auto scalar = voimg::detail::reducedIdctFor(size[0], size[1], size[2], size[3], false);
        ASSERT_TRUE(vector && scalar);
        for (int trial = 0; trial < 50; ++trial) {
            int16_t coefficients[64] = {};
            float quant[64];
            for (int i = 0; i < 64; ++i) quant[i] = float(1 + next() % 30);
            for (int i = 1; i < size[2] * size[3]; ++i) coefficients[i] = int16_t(int(next() % 201) - 100);
            const int32_t dc = int32_t(next());  // any DC share, as after a wrong start
            int16_t a[64], b[64];
            vector(coefficients, quant, dc, a, 8);
            scalar(coefficients, quant, dc, b, 8);
            for (int y = 0; y < size[1]; ++y)
                for (int x = 0; x < size[0]; ++x) ASSERT_EQ(a[y * 8 + x], b[y * 8 + x]) << size[0] << "x" << size[1];
        }
    }
    // A flat block keeps its level whatever the output size: DC 80 with quantiser 1 is 10 levels, 80 eighths.
    for (const int n : {1, 2, 4, 8}) {
        const int16_t coefficients[64] = {};
        const float quant[64] = {};
        int16_t out[64];
        voimg::detail::reducedIdctFor(n, n, n == 8 ? 4 : n, n == 8 ? 4 : n, false)(coefficients, quant, 80, out, 8);
        EXPECT_EQ(out[0], 80);
        EXPECT_EQ(out[(n - 1) * 8 + n - 1], 80);
    }
}

TEST(YcbcrRowsTest, VectorCodeGivesTheScalarReferencesPixels) {
    uint32_t state = 9;
    const auto sample = [&state] {
        state = state * 1664525u + 1013904223u;
        return int16_t(int(state >> 16) % 3000 - 1500);
    };
    const int width = 37;
    std::vector<int16_t> y(width), cb(width), cr(width);
    for (int trial = 0; trial < 40; ++trial) {
        for (int x = 0; x < width; ++x) y[size_t(x)] = sample(), cb[size_t(x)] = sample(), cr[size_t(x)] = sample();
        std::vector<uint8_t> row(size_t(width) * 4);
        voimg::detail::ycbcrRowToRgba(y.data(), cb.data(), cr.data(), width, row.data());
        for (int x = 0; x < width; ++x) {
            uint8_t expected[4];
            voimg::detail::ycbcrToRgbaScalar(y[size_t(x)], cb[size_t(x)], cr[size_t(x)], expected);
            ASSERT_TRUE(std::equal(expected, expected + 4, row.data() + size_t(x) * 4)) << "pixel " << x;
        }
    }
    // Mid grey (0 eighths from the centre) is RGB 128.
    const int16_t zero = 0;
    uint8_t grey[4];
    voimg::detail::ycbcrToRgbaScalar(zero, zero, zero, grey);
    EXPECT_EQ(grey[0], 128);
    EXPECT_EQ(grey[1], 128);
    EXPECT_EQ(grey[2], 128);
    EXPECT_EQ(grey[3], 255);
}

TEST(HuffmanTableTest, DecodesCanonicalCodesAndRejectsOverfullOnes) {
    // Code lengths 2, 2, 3, 3, 3, 4, 4: codes 00, 01, 100, 101, 110, 1110, 1111 would use the all-ones code.
    const uint8_t counts[16] = {0, 2, 3, 2};
    const uint8_t symbols[7] = {10, 11, 20, 21, 22, 30, 31};
    voimg::detail::HuffmanDecodeTable table;
    EXPECT_FALSE(table.build(counts, symbols, false));

    const uint8_t tooMany[16] = {3};  // three codes of one bit
    EXPECT_FALSE(table.build(tooMany, symbols, true));

    const uint8_t valid[16] = {0, 2, 3, 1};  // 00, 01, 100, 101, 110, 1110
    ASSERT_TRUE(table.build(valid, symbols, false));
    // 01 | 110 | 1110 | 00 | 101, then zeros.
    const uint8_t data[16] = {0b01110111, 0b00010100};
    voimg::detail::EntropyBits bits;
    bits.reset(data, data + 8);
    ASSERT_TRUE(bits.refill());
    EXPECT_EQ(voimg::detail::decodeSymbol(bits, table), 11);
    EXPECT_EQ(voimg::detail::decodeSymbol(bits, table), 22);
    EXPECT_EQ(voimg::detail::decodeSymbol(bits, table), 30);
    EXPECT_EQ(voimg::detail::decodeSymbol(bits, table), 10);
    EXPECT_EQ(voimg::detail::decodeSymbol(bits, table), 21);
}

TEST(HuffmanTableTest, ExtendsCoefficientValuesAsJpegCodesThem) {
    EXPECT_EQ(voimg::detail::extendCoefficient(0b1, 1), 1);
    EXPECT_EQ(voimg::detail::extendCoefficient(0b0, 1), -1);
    EXPECT_EQ(voimg::detail::extendCoefficient(0b10, 2), 2);
    EXPECT_EQ(voimg::detail::extendCoefficient(0b01, 2), -2);
    EXPECT_EQ(voimg::detail::extendCoefficient(0b000, 3), -7);
    EXPECT_EQ(voimg::detail::extendCoefficient(0x7FF, 11), 2047);
}

}  // namespace
