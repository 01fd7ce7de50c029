// SPDX-License-Identifier: MIT
// Row-by-row reading gives the same pixels as decoding the whole picture, for every kind of file, and a
// damaged file gives its good rows followed by grey ones.
#include "test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "Engine/codec/row_reader.h"

using namespace votest;

namespace {

// Reads every row, finishing each block as a caller on another thread would.
voimg::DecodedImage readAll(voimg::RowReader& reader, int blockRows = 7) {
    voimg::DecodedImage image;
    image.width = reader.width(), image.height = reader.height(), image.sixteenBit = reader.sixteenBit();
    image.hasAlpha = reader.hasAlpha();
    image.pixels.resize(size_t(image.height) * reader.stride());
    std::vector<uint8_t> raw(size_t(blockRows) * reader.rawStride()), scratch(size_t(blockRows) * reader.stride());
    int row = 0;
    while (int got = reader.readRows(raw.data(), blockRows)) {
        const uint8_t* pixels = reader.finishRows(raw.data(), got, scratch.data());
        std::memcpy(image.pixels.data() + size_t(row) * reader.stride(), pixels, size_t(got) * reader.stride());
        row += got;
        if (row > image.height) break;
    }
    EXPECT_EQ(row, image.height);
    return image;
}

struct Files {
    TempDir dir;
    std::string write(const std::string& name, const Bytes& data) {
        const std::string path = dir.file(name);
        writeFile(path, data);
        return path;
    }
};

void expectSameAsWholeDecode(const std::string& path, int scale = 1, double finalReduction = 1) {
    std::string error;
    voimg::DecodeOptions whole;
    whole.scaleDenominator = scale;
    const auto expected = voimg::decodeImageFile(path, whole, &error);
    ASSERT_TRUE(expected) << error;
    voimg::RowReadOptions options;
    options.scaleDenominator = scale;
    options.finalReduction = finalReduction;
    const auto reader = voimg::openRowReader(path, options, &error);
    ASSERT_TRUE(reader) << error;
    const voimg::DecodedImage got = readAll(*reader);
    EXPECT_EQ(got.width, expected->width);
    EXPECT_EQ(got.height, expected->height);
    EXPECT_EQ(got.sixteenBit, expected->sixteenBit);
    EXPECT_EQ(got.hasAlpha, expected->hasAlpha);
    EXPECT_TRUE(got.pixels == expected->pixels) << path;
}

std::vector<uint16_t> samplesOf(const Picture& p) { return {p.samples.begin(), p.samples.end()}; }

TEST(RowReader, BaselineJpegMatchesTheWholeDecodeAtEveryScale) {
    Files files;
    const std::string path = files.write("a.jpg", encodeJpeg(makeGradient(203, 157), {}));
    for (int scale : {1, 2, 4, 8}) expectSameAsWholeDecode(path, scale);
}

TEST(RowReader, GreyCmykRestartAndProgressiveJpegsMatchTheWholeDecode) {
    Files files;
    JpegParams grey;
    grey.colour = JpegColour::Grey;
    expectSameAsWholeDecode(files.write("g.jpg", encodeJpeg(makeGradient(90, 70, 1), grey)));
    JpegParams cmyk;
    cmyk.colour = JpegColour::Cmyk;
    expectSameAsWholeDecode(files.write("c.jpg", encodeJpeg(makeGradient(90, 70, 4), cmyk)));
    JpegParams restart;
    restart.restartRows = 1;
    expectSameAsWholeDecode(files.write("r.jpg", encodeJpeg(makeGradient(300, 100), restart)), 2);
    JpegParams progressive;
    progressive.progressive = true;
    // Without a final reduction every scan is decoded.
    expectSameAsWholeDecode(files.write("p.jpg", encodeJpeg(makeGradient(256, 192), progressive)), 2);
}

TEST(RowReader, JpegWithAProfileIsConvertedAsTheWholeDecodeConvertsIt) {
    const Bytes profile = readFile(kAdobeRgbProfile);
    if (profile.empty()) GTEST_SKIP() << "missing " << kAdobeRgbProfile;
    Files files;
    JpegParams tagged;
    tagged.icc = profile;
    expectSameAsWholeDecode(files.write("icc.jpg", encodeJpeg(makeGradient(64, 48), tagged)));
}

TEST(RowReader, JpegShrunkTwofoldAfterItsDecodeRepeatsChromaSamples) {
    Files files;
    const Bytes jpeg = encodeJpeg(makeGradient(96, 64), {});  // 4:2:0
    const std::string path = files.write("s.jpg", jpeg);
    const Picture interpolated = decodeJpegRaw(jpeg, true), repeated = decodeJpegRaw(jpeg, false);
    ASSERT_NE(interpolated.samples, repeated.samples);
    auto rgbOfRows = [&](double finalReduction) {
        std::string error;
        voimg::RowReadOptions options;
        options.finalReduction = finalReduction;
        const auto reader = voimg::openRowReader(path, options, &error);
        EXPECT_TRUE(reader) << error;
        if (!reader) return std::vector<uint8_t>{};
        const voimg::DecodedImage rows = readAll(*reader);
        std::vector<uint8_t> rgb;
        for (size_t i = 0; i < rows.pixels.size(); i += 4) rgb.insert(rgb.end(), &rows.pixels[i], &rows.pixels[i + 3]);
        return rgb;
    };
    EXPECT_EQ(rgbOfRows(1.9), interpolated.samples);
    EXPECT_EQ(rgbOfRows(2.0), repeated.samples);
    EXPECT_EQ(rgbOfRows(8.0), repeated.samples);
    // What counts is the shrink left after a reduced decode.
    expectSameAsWholeDecode(path, 2, 3.9);
}

TEST(RowReader, ProgressiveJpegShrunkALotStaysCloseToTheFullDecode) {
    Files files;
    JpegParams progressive;
    progressive.progressive = true;
    progressive.quality = 92;
    const std::string path = files.write("p.jpg", encodeJpeg(makeGradient(640, 480), progressive));
    std::string error;
    voimg::RowReadOptions options;
    options.scaleDenominator = 4;
    options.finalReduction = 16;
    const auto reader = voimg::openRowReader(path, options, &error);
    ASSERT_TRUE(reader) << error;
    const voimg::DecodedImage reduced = readAll(*reader);
    voimg::DecodeOptions whole;
    whole.scaleDenominator = 4;
    const auto full = voimg::decodeImageFile(path, whole, &error);
    ASSERT_TRUE(full) << error;
    ASSERT_EQ(reduced.pixels.size(), full->pixels.size());
    double squared = 0;
    for (size_t i = 0; i < full->pixels.size(); ++i) {
        const double d = double(reduced.pixels[i]) - double(full->pixels[i]);
        squared += d * d;
    }
    const double psnr = 10 * std::log10(255.0 * 255.0 / std::max(1e-9, squared / double(full->pixels.size())));
    EXPECT_GT(psnr, 30.0);
}

TEST(RowReader, EveryCommonPngLayoutMatchesTheWholeDecode) {
    Files files;
    const int width = 61, height = 37;
    for (int colourType : {0, 2, 4, 6}) {
        for (int depth : {8, 16}) {
            const int channels = colourType == 0 ? 1 : colourType == 2 ? 3 : colourType == 4 ? 2 : 4;
            std::vector<uint16_t> samples;
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    for (int c = 0; c < channels; ++c)
                        samples.push_back(uint16_t(((x * 37 + y * 11 + c * 101) * (depth == 16 ? 257 : 1)) %
                                                   (depth == 16 ? 65536 : 256)));
            PngParams params;
            params.colourType = colourType;
            params.bitDepth = depth;
            expectSameAsWholeDecode(files.write("p" + std::to_string(colourType) + "_" + std::to_string(depth) + ".png",
                                                encodePng(width, height, samples, params)));
        }
    }
}

TEST(RowReader, GreyPngsSayTheirRowsAreGrey) {
    Files files;
    const int width = 19, height = 11;
    for (int colourType : {0, 2, 4, 6}) {
        const int channels = colourType == 0 ? 1 : colourType == 2 ? 3 : colourType == 4 ? 2 : 4;
        std::vector<uint16_t> samples;
        for (int i = 0; i < width * height * channels; ++i) samples.push_back(uint16_t(i * 7 % 256));
        PngParams params;
        params.colourType = colourType;
        const std::string path =
            files.write("g" + std::to_string(colourType) + ".png", encodePng(width, height, samples, params));
        std::string error;
        const auto reader = voimg::openRowReader(path, {}, &error);
        ASSERT_TRUE(reader) << error;
        const bool grey = colourType == 0 || colourType == 4;
        EXPECT_EQ(reader->grey(), grey) << colourType;
        const voimg::DecodedImage image = readAll(*reader);
        bool equal = true;
        for (size_t i = 0; i < image.pixels.size(); i += 4)
            equal &= image.pixels[i] == image.pixels[i + 1] && image.pixels[i] == image.pixels[i + 2];
        EXPECT_EQ(equal, grey) << colourType;
    }
}

TEST(RowReader, PalettedTransparentInterlacedAndProfiledPngsMatchTheWholeDecode) {
    Files files;
    const int width = 40, height = 30;
    std::vector<uint16_t> indices;
    for (int i = 0; i < width * height; ++i) indices.push_back(uint16_t(i % 4));
    PngParams palette;
    palette.colourType = 3;
    palette.palette = {255, 0, 0, 0, 255, 0, 0, 0, 255, 9, 9, 9};
    palette.paletteAlpha = {255, 128, 0, 255};
    expectSameAsWholeDecode(files.write("pal.png", encodePng(width, height, indices, palette)));

    const Picture grey = makeGradient(width, height, 1);
    PngParams keyed;
    keyed.colourType = 0;
    keyed.greyTrns = grey.samples[5];
    expectSameAsWholeDecode(files.write("key.png", encodePng(width, height, samplesOf(grey), keyed)));

    const Picture rgba = makeGradient(width, height, 4);
    PngParams interlaced;
    interlaced.colourType = 6;
    interlaced.interlaced = true;
    expectSameAsWholeDecode(files.write("adam7.png", encodePng(width, height, samplesOf(rgba), interlaced)));

    const Bytes profile = readFile(kAdobeRgbProfile);
    if (profile.empty()) return;
    PngParams profiled;
    profiled.colourType = 2;
    profiled.icc = profile;
    const Picture rgb = makeGradient(width, height, 3);
    expectSameAsWholeDecode(files.write("icc.png", encodePng(width, height, samplesOf(rgb), profiled)));
}

TEST(RowReader, OtherFormatsAreDecodedWholeAndHandedOutInRows) {
    Files files;
    expectSameAsWholeDecode(files.write("a.webp", encodeWebP(makeGradient(50, 40, 4), true)));
}

TEST(RowReader, TiffStripsMatchTheWholeDecodeForEveryLayout) {
    Files files;
    const int width = 45, height = 37;
    struct Case {
        int bits, spp, photometric;
        bool alpha, tiled, planar;
        int compression;
    };
    // RGB, RGBA, grey, grey+alpha, 16-bit, LZW: streamed; tiled and planar: decoded whole.
    const Case cases[] = {{8, 3, 2, false, false, false, 1},  {8, 4, 2, true, false, false, 5},
                          {8, 1, 1, false, false, false, 1},  {8, 2, 1, true, false, false, 1},
                          {16, 3, 2, false, false, false, 5}, {8, 1, 0, false, false, false, 1},
                          {8, 3, 2, false, true, false, 1},   {8, 3, 2, false, false, true, 1}};
    int n = 0;
    for (const Case& c : cases) {
        std::vector<uint16_t> samples;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                for (int k = 0; k < c.spp; ++k)
                    samples.push_back(uint16_t(((x * 5 + y * 3 + k * 50) % 256) * (c.bits == 16 ? 257 : 1)));
        TiffParams params;
        params.bitsPerSample = c.bits, params.samplesPerPixel = c.spp, params.photometric = c.photometric;
        params.alpha = c.alpha, params.tiled = c.tiled, params.planarSeparate = c.planar;
        params.compression = c.compression;
        const std::string name = "t" + std::to_string(n++) + ".tif";
        expectSameAsWholeDecode(
            files.write(name, encodeTiff(files.dir.file("scratch.tif"), width, height, samples, params)));
    }
}

TEST(RowReader, DamagedTiffStripsComeOutGreyAsInTheWholeDecode) {
    Files files;
    const Picture picture = makeGradient(60, 40, 3);
    TiffParams params;       // strips of 7 rows, written before the directory
    params.compression = 5;  // LZW
    Bytes tiff = encodeTiff(files.dir.file("scratch.tif"), 60, 40, samplesOf(picture), params);
    for (size_t i = tiff.size() * 2 / 10; i < tiff.size() * 4 / 10; ++i) tiff[i] = 0xFF;
    const std::string path = files.write("damaged.tif", tiff);
    expectSameAsWholeDecode(path);
    std::string error;
    const auto reader = voimg::openRowReader(path, {}, &error);
    ASSERT_TRUE(reader) << error;
    const voimg::DecodedImage image = readAll(*reader);
    EXPECT_EQ(image.pixels[0], picture.samples[0]);
    int greyRows = 0;
    for (int y = 0; y < image.height; ++y) {
        bool grey = true;
        for (int i = 0; i < image.width * 4; ++i)
            grey &= image.pixels[size_t(y) * image.width * 4 + size_t(i)] == (i % 4 == 3 ? 255 : 128);
        greyRows += grey;
    }
    EXPECT_GT(greyRows, 0);
}

// Rows of `image` equal those of `reference` up to `rows`, and the last row is opaque mid grey.
void expectGoodRowsThenGrey(const voimg::DecodedImage& image, const Picture& reference, int rows) {
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < image.width; ++x)
            for (int c = 0; c < 3; ++c)
                ASSERT_EQ(image.pixels[(size_t(y) * image.width + x) * 4 + c], reference.at(x, y)[c]) << "row " << y;
    const uint8_t* last = &image.pixels[(size_t(image.height - 1) * image.width) * 4];
    EXPECT_EQ(last[0], 128);
    EXPECT_EQ(last[1], 128);
    EXPECT_EQ(last[3], 255);
}

TEST(RowReader, TruncatedPngGivesTheRowsThatArrivedThenGrey) {
    Files files;
    const Picture picture = makeGradient(300, 200, 3);
    PngParams params;
    Bytes png = encodePng(300, 200, samplesOf(picture), params);
    png.resize(png.size() * 2 / 3);
    std::string error;
    const auto reader = voimg::openRowReader(files.write("cut.png", png), {}, &error);
    ASSERT_TRUE(reader) << error;
    const voimg::DecodedImage image = readAll(*reader);
    expectGoodRowsThenGrey(image, picture, 20);
}

TEST(RowReader, CorruptPngDataGivesGreyFromTheDamageOn) {
    Files files;
    const Picture picture = makeGradient(300, 200, 3);
    Bytes png = encodePng(300, 200, samplesOf(picture), {});
    // Overwrite the second half of the compressed data with bits that are no valid deflate data.
    for (size_t i = png.size() / 2; i + 20 < png.size(); ++i) png[i] = 0xFF;
    std::string error;
    const auto reader = voimg::openRowReader(files.write("bad.png", png), {}, &error);
    ASSERT_TRUE(reader) << error;
    const voimg::DecodedImage image = readAll(*reader);
    expectGoodRowsThenGrey(image, picture, 10);
}

TEST(RowReader, TruncatedJpegMatchesTheWholeDecodesGreyPadding) {
    Files files;
    Bytes jpeg = encodeJpeg(makeGradient(320, 240), {});
    jpeg.resize(jpeg.size() / 2);
    expectSameAsWholeDecode(files.write("cut.jpg", jpeg));
}

TEST(RowReader, FilesWithoutImageDataFailWithAMessage) {
    Files files;
    Bytes jpeg = encodeJpeg(makeGradient(320, 240), {});
    size_t sos = 0;
    for (size_t i = 0; i + 1 < jpeg.size(); ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xDA) sos = i;
    jpeg.resize(sos + 14);
    std::string error;
    EXPECT_FALSE(voimg::openRowReader(files.write("nodata.jpg", jpeg), {}, &error));
    EXPECT_EQ(error, "truncated JPEG: no image data");

    EXPECT_FALSE(voimg::openRowReader(files.write("declared.png", pngDeclaring(50, 50)), {}, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(voimg::openRowReader(files.dir.file("missing.png"), {}, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(voimg::openRowReader(files.write("text.png", Bytes{'h', 'e', 'l', 'l', 'o'}), {}, &error));
    EXPECT_FALSE(error.empty());
}

TEST(RowReader, DeclaredSizesBeyondTheCapFailBeforeAllocating) {
    Files files;
    voimg::RowReadOptions options;
    options.maxPixels = 1000;
    std::string error;
    EXPECT_FALSE(voimg::openRowReader(files.write("big.png", pngDeclaring(100, 100)), options, &error));
    EXPECT_FALSE(voimg::openRowReader(files.write("big.jpg", encodeJpeg(makeGradient(100, 100), {})), options, &error));
    EXPECT_FALSE(error.empty());
}

}  // namespace
