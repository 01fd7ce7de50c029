// SPDX-License-Identifier: MIT
// Format recognition from content and header-only size probing.
#include "test_support.h"

#include <gtest/gtest.h>

using namespace votest;

namespace {

void expectProbe(const TempDir& dir, const std::string& name, const Bytes& data, voimg::FileFormat format, int width,
                 int height) {
    ASSERT_FALSE(data.empty()) << name;
    const std::string path = dir.file(name);
    writeFile(path, data);
    std::string error;
    const auto info = voimg::probeImageFile(path, &error);
    ASSERT_TRUE(info) << name << ": " << error;
    EXPECT_EQ(info->format, format) << name;
    EXPECT_EQ(info->width, width) << name;
    EXPECT_EQ(info->height, height) << name;
    // Decoding agrees with the probe.
    const auto image = voimg::decodeImageFile(path, {}, &error);
    ASSERT_TRUE(image) << name << ": " << error;
    EXPECT_EQ(image->width, width) << name;
    EXPECT_EQ(image->height, height) << name;
}

TEST(Probe, EveryFormatByContent) {
    TempDir dir;
    const Picture rgb = makeQuadrants(37, 23), rgba = rgbToRgba(rgb);
    // Misleading names on purpose: only the content counts.
    expectProbe(dir, "a.png", encodeJpeg(rgb, JpegParams{}), voimg::FileFormat::Jpeg, 37, 23);
    JpegParams withIcc;
    withIcc.icc = readFile(kAdobeRgbProfile);
    expectProbe(dir, "b", encodeJpeg(rgb, withIcc), voimg::FileFormat::Jpeg, 37, 23);
    expectProbe(dir, "c.jpg", encodePng(37, 23, {rgb.samples.begin(), rgb.samples.end()}, PngParams{}),
                voimg::FileFormat::Png, 37, 23);
    TiffParams tiff;
    const std::vector<uint16_t> rgbSamples(rgb.samples.begin(), rgb.samples.end());
    expectProbe(dir, "d.gif", encodeTiff(dir.file("scratch.tif"), 37, 23, rgbSamples, tiff), voimg::FileFormat::Tiff,
                37, 23);
    expectProbe(dir, "e", encodeWebP(rgba, false), voimg::FileFormat::WebP, 37, 23);
    expectProbe(dir, "f", encodeWebP(rgba, true), voimg::FileFormat::WebP, 37, 23);
    expectProbe(dir, "g", webpWithIcc(encodeWebP(rgba, true), 37, 23, false, readFile(kAdobeRgbProfile)),
                voimg::FileFormat::WebP, 37, 23);
    expectProbe(dir, "h", animatedWebP(rgba, rgba), voimg::FileFormat::WebP, 37, 23);
    expectProbe(dir, "i", encodeGif(37, 23, std::vector<uint8_t>(37 * 23, 1), {0, 0, 0, 255, 255, 255}, GifParams{}),
                voimg::FileFormat::Gif, 37, 23);
    expectProbe(dir, "j", encodeBmp(37, 23, rgba.samples, BmpParams{}), voimg::FileFormat::Bmp, 37, 23);
    BmpParams topDown;
    topDown.topDown = true;
    expectProbe(dir, "k", encodeBmp(37, 23, rgba.samples, topDown), voimg::FileFormat::Bmp, 37, 23);
    if (haveHeifEncoder(false))
        expectProbe(dir, "l", encodeHeif(makeQuadrants(64, 48, 4), false, 8), voimg::FileFormat::Heif, 64, 48);
    if (haveHeifEncoder(true))
        expectProbe(dir, "m", encodeHeif(makeQuadrants(64, 48, 4), true, 8), voimg::FileFormat::Heif, 64, 48);
}

TEST(Probe, HeaderOnlyFilesStillProbe) {
    TempDir dir;
    const Bytes png = pngDeclaring(100000, 100000);
    writeFile(dir.file("huge.png"), png);
    std::string error;
    const auto info = voimg::probeImageFile(dir.file("huge.png"), &error);
    ASSERT_TRUE(info) << error;
    EXPECT_EQ(info->width, 100000);
    EXPECT_FALSE(voimg::decodeImageFile(dir.file("huge.png"), {}, &error));
}

TEST(Probe, UnknownContent) {
    TempDir dir;
    writeFile(dir.file("x.jpg"), {'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd'});
    std::string error;
    EXPECT_FALSE(voimg::probeImageFile(dir.file("x.jpg"), &error));
    EXPECT_NE(error.find("unrecognised"), std::string::npos);
}

}  // namespace
