// SPDX-License-Identifier: MIT
// JPEG decoding: sampling layouts, progressive, restart intervals, grey, CMYK/YCCK, DCT-scaled sizes.
#include "test_support.h"

#include <gtest/gtest.h>
#include <lcms2.h>

#include <cmath>

using namespace votest;

namespace {

// Centres of the four flat quadrants of makeQuadrants().
void expectQuadrantColours(const voimg::DecodedImage& image, const Picture& source, int tolerance) {
    for (const auto& [fx, fy] : {std::pair{0.25, 0.25}, {0.75, 0.25}, {0.25, 0.75}, {0.75, 0.75}}) {
        const int x = int(image.width * fx), y = int(image.height * fy);
        const uint8_t* want = source.at(int(source.width * fx), int(source.height * fy));
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(int(sampleAt(image, x, y, c)), int(want[source.channels == 1 ? 0 : c]), tolerance)
                << "pixel " << x << "," << y << " channel " << c;
        EXPECT_EQ(sampleAt(image, x, y, 3), 255u);
    }
}


struct Sampling {
    const char* name;
    int h, v;
};

class JpegSamplingTest : public ::testing::TestWithParam<Sampling> {};

TEST_P(JpegSamplingTest, DecodesFlatColours) {
    const Picture source = makeQuadrants(96, 64);
    JpegParams params;
    params.lumaH = GetParam().h;
    params.lumaV = GetParam().v;
    const voimg::DecodedImage image = decodeOrFail(encodeJpeg(source, params));
    ASSERT_EQ(image.width, 96);
    ASSERT_EQ(image.height, 64);
    EXPECT_FALSE(image.sixteenBit);
    EXPECT_FALSE(image.hasAlpha);
    expectQuadrantColours(image, source, 4);
}

INSTANTIATE_TEST_SUITE_P(Layouts, JpegSamplingTest,
                         ::testing::Values(Sampling{"s444", 1, 1}, Sampling{"s422", 2, 1}, Sampling{"s420", 2, 2},
                                           Sampling{"s411", 4, 1}, Sampling{"s440", 1, 2}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(JpegDecode, Progressive) {
    const Picture source = makeQuadrants(80, 48);
    JpegParams params;
    params.progressive = true;
    expectQuadrantColours(decodeOrFail(encodeJpeg(source, params)), source, 4);
}

TEST(JpegDecode, RestartMarkers) {
    const Picture source = makeQuadrants(64, 64);
    JpegParams params;
    params.restartRows = 1;
    const Bytes data = encodeJpeg(source, params);
    bool sawRestart = false;
    for (size_t i = 0; i + 1 < data.size(); ++i) sawRestart |= data[i] == 0xFF && data[i + 1] == 0xD0;
    EXPECT_TRUE(sawRestart);
    expectQuadrantColours(decodeOrFail(data), source, 4);
}

TEST(JpegDecode, GreyBecomesEqualRgb) {
    const Picture source = makeQuadrants(64, 64, 1);
    JpegParams params;
    params.colour = JpegColour::Grey;
    const voimg::DecodedImage image = decodeOrFail(encodeJpeg(source, params));
    expectQuadrantColours(image, source, 3);
    EXPECT_EQ(sampleAt(image, 5, 5, 0), sampleAt(image, 5, 5, 2));
}

// Expected sRGB for CMYK samples: the standard profile when installed, else the naive formula.
std::vector<uint8_t> expectedFromCmyk(const Picture& cmyk, const Bytes& profile) {
    const size_t pixels = size_t(cmyk.width) * cmyk.height;
    if (!profile.empty()) return lcmsToSrgb8(profile, cmyk.samples.data(), pixels, TYPE_CMYK_8, TYPE_RGB_8, 3);
    std::vector<uint8_t> out;
    for (size_t i = 0; i < cmyk.samples.size(); i += 4)
        for (int c = 0; c < 3; ++c)
            out.push_back(uint8_t(std::lround((255 - cmyk.samples[i + c]) * (255 - cmyk.samples[i + 3]) / 255.0)));
    return out;
}

Picture makeCmykQuadrants() {
    Picture p = makeQuadrants(64, 64, 4);  // flat CMYK values per quadrant
    for (size_t i = 0; i < p.samples.size(); i += 4) p.samples[i + 3] = uint8_t(p.samples[i + 3] / 4);  // light K
    return p;
}

void checkCmyk(const Bytes& jpeg, const Bytes& profile, bool storedInverted) {
    Picture raw = decodeJpegRaw(jpeg);
    if (storedInverted)
        for (auto& s : raw.samples) s = uint8_t(255 - s);
    const std::vector<uint8_t> want = expectedFromCmyk(raw, profile);
    const voimg::DecodedImage image = decodeOrFail(jpeg);
    ASSERT_EQ(image.width, raw.width);
    for (int y = 0; y < image.height; y += 7)
        for (int x = 0; x < image.width; x += 5) {
            for (int c = 0; c < 3; ++c)
                ASSERT_NEAR(int(sampleAt(image, x, y, c)), int(want[(size_t(y) * raw.width + x) * 3 + c]), 1)
                    << x << "," << y;
            ASSERT_EQ(sampleAt(image, x, y, 3), 255u);
        }
}

TEST(JpegDecode, CmykWithoutProfileUsesStandardProfile) {
    const Picture cmyk = makeCmykQuadrants();
    JpegParams params;
    params.colour = JpegColour::Cmyk;
    params.adobeMarker = false;
    checkCmyk(encodeJpeg(cmyk, params), readFile(kCmykProfile), false);
}

TEST(JpegDecode, AdobeInvertedCmyk) {
    Picture cmyk = makeCmykQuadrants();
    for (auto& s : cmyk.samples) s = uint8_t(255 - s);  // Adobe applications store 255 - ink
    JpegParams params;
    params.colour = JpegColour::Cmyk;
    checkCmyk(encodeJpeg(cmyk, params), readFile(kCmykProfile), true);
}

TEST(JpegDecode, AdobeYcck) {
    Picture cmyk = makeCmykQuadrants();
    for (auto& s : cmyk.samples) s = uint8_t(255 - s);
    JpegParams params;
    params.colour = JpegColour::Ycck;
    checkCmyk(encodeJpeg(cmyk, params), readFile(kCmykProfile), true);
}

TEST(JpegDecode, CmykWithEmbeddedProfile) {
    const Bytes profile = readFile(kCmykProfile);
    if (profile.empty()) GTEST_SKIP() << "no CMYK profile installed at " << kCmykProfile;
    JpegParams params;
    params.colour = JpegColour::Cmyk;
    params.adobeMarker = false;
    params.icc = profile;
    checkCmyk(encodeJpeg(makeCmykQuadrants(), params), profile, false);
}

TEST(JpegDecode, DctScaledSizes) {
    const Bytes data = encodeJpeg(makeQuadrants(100, 75), JpegParams{});
    // Requested reduction -> libjpeg's reduction actually used (1, 2, 4 or 8), output ceil(size / N).
    const std::pair<int, int> cases[] = {{1, 1}, {2, 2}, {3, 2}, {4, 4}, {5, 4}, {7, 4}, {8, 8}, {16, 8}, {0, 1}};
    for (const auto& [requested, used] : cases) {
        const voimg::DecodedImage image = decodeOrFail(data, requested);
        EXPECT_EQ(image.width, (100 + used - 1) / used) << "scale " << requested;
        EXPECT_EQ(image.height, (75 + used - 1) / used) << "scale " << requested;
        EXPECT_EQ(image.pixels.size(), image.stride() * size_t(image.height));
    }
    expectQuadrantColours(decodeOrFail(data, 8), makeQuadrants(100, 75), 6);
}

}  // namespace
