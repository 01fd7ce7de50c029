// SPDX-License-Identifier: MIT
// Embedded ICC profiles are converted to sRGB: checked against lcms2 reference conversions with the same
// (perceptual) intent. Tolerances: +-1 at 8 bits, +-0.5% of full scale at 16 bits.
#include "test_support.h"

#include <gtest/gtest.h>
#include <lcms2.h>

#include <thread>

using namespace votest;

namespace {

Bytes requireProfile(const char* path) {
    Bytes profile = readFile(path);
    return profile;
}

TEST(ColourProfile, AdobeRgbJpegConvertsToSrgb) {
    const Bytes profile = requireProfile(kAdobeRgbProfile);
    if (profile.empty()) GTEST_SKIP() << "missing " << kAdobeRgbProfile;
    const Picture source = makeGradient(48, 32);
    JpegParams plain;
    plain.quality = 92;
    JpegParams tagged = plain;
    tagged.icc = profile;
    // Same pixels with and without the profile: the untagged decode is the input of the reference.
    const Bytes withIcc = encodeJpeg(source, tagged), withoutIcc = encodeJpeg(source, plain);
    std::string error;
    const auto raw = voimg::decodeImageMemory(withoutIcc.data(), withoutIcc.size(), {}, &error);
    const auto converted = voimg::decodeImageMemory(withIcc.data(), withIcc.size(), {}, &error);
    ASSERT_TRUE(raw && converted) << error;
    const size_t pixels = size_t(raw->width) * raw->height;
    const std::vector<uint8_t> want = lcmsToSrgb8(profile, raw->pixels.data(), pixels, TYPE_RGBA_8, TYPE_RGBA_8, 4);
    int changed = 0;
    for (size_t i = 0; i < pixels * 4; ++i) {
        if (i % 4 == 3) {
            ASSERT_EQ(converted->pixels[i], 255);
            continue;
        }
        ASSERT_NEAR(int(converted->pixels[i]), int(want[i]), 1) << "sample " << i;
        changed += converted->pixels[i] != raw->pixels[i];
    }
    EXPECT_GT(changed, int(pixels));  // Adobe RGB really differs from sRGB
}

TEST(ColourProfile, AdobeRgbPng16ConvertsToSrgbAtSixteenBits) {
    const Bytes profile = requireProfile(kAdobeRgbProfile);
    if (profile.empty()) GTEST_SKIP() << "missing " << kAdobeRgbProfile;
    const int width = 40, height = 24;
    std::vector<uint16_t> samples;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            samples.insert(samples.end(), {uint16_t(x * 1600 + 100), uint16_t(y * 2700 + 5),
                                           uint16_t((x * y * 97) & 0xffff), uint16_t(40000 + x)});
    PngParams params;
    params.colourType = 6;
    params.bitDepth = 16;
    params.icc = profile;
    const Bytes data = encodePng(width, height, samples, params);
    std::string error;
    const auto image = voimg::decodeImageMemory(data.data(), data.size(), {}, &error);
    ASSERT_TRUE(image) << error;
    ASSERT_TRUE(image->sixteenBit);
    const std::vector<uint16_t> want =
        lcmsToSrgb16(profile, samples.data(), size_t(width) * height, TYPE_RGBA_16, TYPE_RGBA_16, 4);
    for (int i = 0; i < width * height; ++i)
        for (int c = 0; c < 4; ++c) {
            const unsigned got = sampleAt(*image, i % width, i / width, c);
            if (c == 3) {
                ASSERT_EQ(got, samples[size_t(i) * 4 + 3]);  // alpha is never touched
            } else {
                ASSERT_NEAR(double(got), double(want[size_t(i) * 4 + c]), 0.005 * 65535) << i << " c" << c;
            }
        }
}

TEST(ColourProfile, SrgbProfileLeavesPixelsAlone) {
    const Bytes profile = readFile("/usr/share/color/icc/sRGB.icc");
    if (profile.empty()) GTEST_SKIP() << "no sRGB profile file";
    const Picture p = makeGradient(30, 20);
    PngParams params;
    params.icc = profile;
    const Bytes data = encodePng(30, 20, {p.samples.begin(), p.samples.end()}, params);
    const auto image = voimg::decodeImageMemory(data.data(), data.size());
    ASSERT_TRUE(image);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 30; ++x)
            for (int c = 0; c < 3; ++c) ASSERT_NEAR(int(sampleAt(*image, x, y, c)), int(p.at(x, y)[c]), 1);
}

TEST(ColourProfile, GreyProfileOnGreyPng) {
    // A grey profile with gamma 1.0: mid greys get noticeably lighter in sRGB.
    cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
    cmsHPROFILE grey = cmsCreateGrayProfile(cmsD50_xyY(), linear);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(grey, nullptr, &size);
    Bytes profile(size);
    cmsSaveProfileToMem(grey, profile.data(), &size);
    cmsCloseProfile(grey);
    cmsFreeToneCurve(linear);

    std::vector<uint16_t> samples;
    for (int i = 0; i < 64; ++i) samples.push_back(uint16_t(i * 4));
    PngParams params;
    params.colourType = 0;
    params.icc = profile;
    const Bytes data = encodePng(16, 4, samples, params);
    const auto image = voimg::decodeImageMemory(data.data(), data.size());
    ASSERT_TRUE(image);
    std::vector<uint8_t> greys(samples.begin(), samples.end());
    const std::vector<uint8_t> want = lcmsToSrgb8(profile, greys.data(), greys.size(), TYPE_GRAY_8, TYPE_RGB_8, 3);
    for (int i = 0; i < 64; ++i)
        for (int c = 0; c < 3; ++c)
            ASSERT_NEAR(int(sampleAt(*image, i % 16, i / 16, c)), int(want[size_t(i) * 3 + c]), 1);
    EXPECT_GT(sampleAt(*image, 0, 2, 0), 140u);  // linear 128 is about sRGB 188

    // The same at 16 bits.
    std::vector<uint16_t> deep;
    for (uint16_t v : samples) deep.push_back(uint16_t(v * 257));
    params.bitDepth = 16;
    const Bytes deepData = encodePng(16, 4, deep, params);
    const auto deepImage = voimg::decodeImageMemory(deepData.data(), deepData.size());
    ASSERT_TRUE(deepImage && deepImage->sixteenBit);
    const std::vector<uint16_t> deepWant =
        lcmsToSrgb16(profile, deep.data(), deep.size(), TYPE_GRAY_16, TYPE_RGB_16, 3);
    for (int i = 0; i < 64; ++i)
        for (int c = 0; c < 3; ++c)
            ASSERT_NEAR(double(sampleAt(*deepImage, i % 16, i / 16, c)), double(deepWant[size_t(i) * 3 + c]),
                        0.005 * 65535);
}

TEST(ColourProfile, TiffWebPAndHeifProfilesAreHonoured) {
    const Bytes profile = requireProfile(kAdobeRgbProfile);
    if (profile.empty()) GTEST_SKIP() << "missing " << kAdobeRgbProfile;
    const Picture p = rgbToRgba(makeQuadrants(32, 32));
    const std::vector<uint8_t> want = lcmsToSrgb8(profile, p.samples.data(), 32 * 32, TYPE_RGBA_8, TYPE_RGBA_8, 4);
    TempDir dir;
    TiffParams tiff;
    tiff.samplesPerPixel = 4;
    tiff.alpha = true;
    tiff.icc = profile;
    std::vector<Bytes> files = {
        encodeTiff(dir.file("a.tif"), 32, 32, {p.samples.begin(), p.samples.end()}, tiff),
        webpWithIcc(encodeWebP(p, true), 32, 32, false, profile),
    };
    if (haveHeifEncoder(false)) files.push_back(encodeHeif(p, false, 8, profile));
    for (size_t f = 0; f < files.size(); ++f) {
        const auto image = voimg::decodeImageMemory(files[f].data(), files[f].size());
        ASSERT_TRUE(image) << "file " << f;
        const int tolerance = f < 2 ? 1 : 8;  // lossless formats exact, HEIC lossy
        for (int i = 0; i < 32 * 32; i += 37)
            for (int c = 0; c < 3; ++c)
                ASSERT_NEAR(int(sampleAt(*image, i % 32, i / 32, c)), int(want[size_t(i) * 4 + c]), tolerance)
                    << "file " << f << " pixel " << i;
    }
}

TEST(ColourProfile, ConcurrentDecodesShareTransformsSafely) {
    const Bytes adobe = readFile(kAdobeRgbProfile);
    if (adobe.empty()) GTEST_SKIP() << "missing " << kAdobeRgbProfile;
    JpegParams rgb;
    rgb.icc = adobe;
    JpegParams cmyk;
    cmyk.colour = JpegColour::Cmyk;
    const std::vector<Bytes> files = {encodeJpeg(makeGradient(64, 48), rgb),
                                      encodeJpeg(makeQuadrants(40, 40, 4), cmyk)};
    std::vector<std::vector<uint8_t>> expected;
    for (const Bytes& f : files) expected.push_back(voimg::decodeImageMemory(f.data(), f.size())->pixels);
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < 10; ++round) {
                const size_t which = size_t(t + round) % files.size();
                const auto image = voimg::decodeImageMemory(files[which].data(), files[which].size());
                mismatches[size_t(t)] += !image || image->pixels != expected[which];
            }
        });
    for (std::thread& thread : threads) thread.join();
    for (int t = 0; t < 4; ++t) EXPECT_EQ(mismatches[size_t(t)], 0) << "thread " << t;
}

}  // namespace
