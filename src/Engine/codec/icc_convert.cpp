// SPDX-License-Identifier: MIT
// Applies colour transforms to decoded pixels: embedded profiles to sRGB, CMYK to sRGB.
#include "icc_convert_p.h"

#include "icc_transform_p.h"

#include <lcms2.h>

#include <cstdio>
#include <vector>

namespace voimg::detail {
namespace {

// The standard CMYK profile's bytes, loaded once; empty when the file is not installed.
const std::vector<uint8_t>& standardCmykProfile() {
    static const std::vector<uint8_t> bytes = [] {
        std::vector<uint8_t> data;
        FILE* f = std::fopen(standardCmykProfilePath(), "rb");
        if (f == nullptr) return data;
        uint8_t buffer[65536];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0 && data.size() < (64u << 20))
            data.insert(data.end(), buffer, buffer + n);
        std::fclose(f);
        return data;
    }();
    return bytes;
}

}  // namespace

const char* standardCmykProfilePath() { return "/usr/share/color/icc/ghostscript/default_cmyk.icc"; }

IccToSrgb::IccToSrgb(const uint8_t* icc, size_t iccSize, IccLayout layout, bool sixteenBit) {
    if (icc == nullptr || iccSize == 0) return;
    const uint32_t bytes = sixteenBit ? 2 : 1;
    // Alpha is left alone: the output format names it as an extra channel and the transform runs in place
    // without cmsFLAGS_COPY_ALPHA, so lcms never writes it.
    const uint32_t outFormat = sixteenBit ? TYPE_RGBA_16 : TYPE_RGBA_8;
    const uint32_t inFormat =
        layout == IccLayout::Rgb ? outFormat : COLORSPACE_SH(PT_GRAY) | CHANNELS_SH(1) | BYTES_SH(bytes) | EXTRA_SH(3);
    transform_ = srgbTransform(icc, iccSize, inFormat, outFormat, true);
}

void IccToSrgb::convert(uint8_t* pixels, size_t pixelCount) const {
    if (transform_) transform_->apply(pixels, pixelCount);
}

void convertToSrgb(DecodedImage& image, const uint8_t* icc, size_t iccSize, IccLayout layout) {
    if (icc == nullptr || iccSize == 0 || image.pixels.empty()) return;
    IccToSrgb(icc, iccSize, layout, image.sixteenBit)
        .convert(image.pixels.data(), size_t(image.width) * size_t(image.height));
}

CmykToSrgb::CmykToSrgb(const uint8_t* icc, size_t iccSize, bool inverted) : inverted_(inverted) {
    const uint32_t inFormat = inverted ? TYPE_CMYK_8_REV : TYPE_CMYK_8;
    if (icc != nullptr && iccSize != 0) transform_ = srgbTransform(icc, iccSize, inFormat, TYPE_RGBA_8, false);
    if (!transform_) {
        const std::vector<uint8_t>& standard = standardCmykProfile();
        if (!standard.empty())
            transform_ = srgbTransform(standard.data(), standard.size(), inFormat, TYPE_RGBA_8, false);
    }
}

void CmykToSrgb::convert(uint8_t* pixels, size_t pixelCount) const {
    if (transform_) {
        transform_->apply(pixels, pixelCount);
        setOpaque(pixels, pixelCount);
        return;
    }
    // Without any profile: R = 255 (1 - C)(1 - K) and so on, on the stored samples.
    for (size_t i = 0; i < pixelCount; ++i) {
        uint8_t* p = pixels + i * 4;
        unsigned c = p[0], m = p[1], y = p[2], k = p[3];
        if (!inverted_) {
            c = 255 - c;
            m = 255 - m;
            y = 255 - y;
            k = 255 - k;
        }
        p[0] = uint8_t((c * k + 127) / 255);
        p[1] = uint8_t((m * k + 127) / 255);
        p[2] = uint8_t((y * k + 127) / 255);
        p[3] = 255;
    }
}

}  // namespace voimg::detail
