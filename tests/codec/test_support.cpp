// SPDX-License-Identifier: MIT
// Temporary folders, file helpers, synthetic pictures and lcms2 reference conversions for the codec tests.
#include "test_support.h"

#include <gtest/gtest.h>

#include <lcms2.h>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <stdexcept>

namespace votest {

voimg::DecodedImage decodeOrFail(const Bytes& data, int scale) {
    voimg::DecodeOptions options;
    options.scaleDenominator = scale;
    std::string error;
    auto image = voimg::decodeImageMemory(data.data(), data.size(), options, &error);
    EXPECT_TRUE(image.has_value()) << error;
    return image ? std::move(*image) : voimg::DecodedImage{};
}

void writeFile(const std::string& path, const Bytes& data) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) throw std::runtime_error("cannot write " + path);
    if (!data.empty()) std::fwrite(data.data(), 1, data.size(), f);
    std::fclose(f);
}

Bytes readFile(const std::string& path) { return readFile(path.c_str()); }

Bytes readFile(const char* path) {
    Bytes data;
    FILE* f = std::fopen(path, "rb");
    if (f == nullptr) return data;
    uint8_t buffer[65536];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) data.insert(data.end(), buffer, buffer + n);
    std::fclose(f);
    return data;
}

bool fileExists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

std::vector<std::string> listFolder(const std::string& path) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(path.c_str());
    if (dir == nullptr) return names;
    while (const dirent* e = ::readdir(dir)) {
        const std::string name = e->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(dir);
    return names;
}

Picture makeQuadrants(int width, int height, int channels) {
    static constexpr uint8_t kColours[4][4] = {{200, 30, 40, 255}, {40, 180, 60, 200}, {30, 60, 190, 128},
                                               {170, 170, 170, 60}};
    Picture p{width, height, channels, std::vector<uint8_t>(size_t(width) * height * channels)};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int q = (x >= width / 2 ? 1 : 0) + (y >= height / 2 ? 2 : 0);
            uint8_t* s = p.samples.data() + (size_t(y) * width + x) * channels;
            for (int c = 0; c < channels; ++c) s[c] = channels == 1 ? kColours[q][1] : kColours[q][c];
        }
    return p;
}

Picture makeGradient(int width, int height, int channels) {
    Picture p{width, height, channels, std::vector<uint8_t>(size_t(width) * height * channels)};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint8_t* s = p.samples.data() + (size_t(y) * width + x) * channels;
            const uint8_t v[4] = {uint8_t(x * 255 / std::max(width - 1, 1)), uint8_t(y * 255 / std::max(height - 1, 1)),
                                  uint8_t((x * 7 + y * 3) & 255), uint8_t(255 - (x + y) % 200)};
            for (int c = 0; c < channels; ++c) s[c] = v[c];
        }
    return p;
}

Picture rgbToRgba(const Picture& rgb) {
    Picture p{rgb.width, rgb.height, 4, std::vector<uint8_t>(size_t(rgb.width) * rgb.height * 4)};
    for (size_t i = 0; i < size_t(rgb.width) * rgb.height; ++i) {
        for (int c = 0; c < 3; ++c) p.samples[i * 4 + c] = rgb.samples[i * rgb.channels + c];
        p.samples[i * 4 + 3] = 255;
    }
    return p;
}

unsigned sampleAt(const voimg::DecodedImage& image, int x, int y, int c) {
    const size_t index = (size_t(y) * image.width + x) * 4 + c;
    if (!image.sixteenBit) return image.pixels.at(index);
    uint16_t v;
    std::memcpy(&v, image.pixels.data() + index * 2, 2);
    return v;
}

namespace {

template <typename T>
std::vector<T> lcmsToSrgb(const Bytes& profile, const T* samples, size_t pixels, uint32_t inFormat, uint32_t outFormat,
                          size_t outChannels) {
    cmsHPROFILE in = cmsOpenProfileFromMem(profile.data(), cmsUInt32Number(profile.size()));
    cmsHPROFILE srgb = cmsCreate_sRGBProfile();
    std::vector<T> out(pixels * outChannels);
    cmsHTRANSFORM t = in ? cmsCreateTransform(in, inFormat, srgb, outFormat, INTENT_PERCEPTUAL, 0) : nullptr;
    if (t == nullptr) throw std::runtime_error("lcms reference transform failed");
    cmsDoTransform(t, samples, out.data(), cmsUInt32Number(pixels));
    cmsDeleteTransform(t);
    cmsCloseProfile(in);
    cmsCloseProfile(srgb);
    return out;
}

}  // namespace

std::vector<uint8_t> lcmsToSrgb8(const Bytes& profile, const uint8_t* samples, size_t pixels, uint32_t inFormat,
                                 uint32_t outFormat, size_t outChannels) {
    return lcmsToSrgb(profile, samples, pixels, inFormat, outFormat, outChannels);
}

std::vector<uint16_t> lcmsToSrgb16(const Bytes& profile, const uint16_t* samples, size_t pixels, uint32_t inFormat,
                                   uint32_t outFormat, size_t outChannels) {
    return lcmsToSrgb(profile, samples, pixels, inFormat, outFormat, outChannels);
}

}  // namespace votest
