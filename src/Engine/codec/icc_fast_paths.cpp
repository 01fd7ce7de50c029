// SPDX-License-Identifier: MIT
// Applying colour transforms, with table-driven fast paths for the common 8-bit cases.
#include "icc_transform_p.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace voimg::detail {
namespace {

constexpr uint32_t kGreyInRgba8 = COLORSPACE_SH(PT_GRAY) | CHANNELS_SH(1) | BYTES_SH(1) | EXTRA_SH(3);

// lcms counts pixels in 32 bits; rows are tightly packed, so an image is one run converted in slices.
void lcmsInPlace(void* transform, uint8_t* pixels, size_t count, size_t bytesPerPixel) {
    constexpr size_t kSlice = size_t(1) << 24;
    for (size_t done = 0; done < count; done += kSlice) {
        uint8_t* p = pixels + done * bytesPerPixel;
        cmsDoTransform(transform, p, p, cmsUInt32Number(std::min(kSlice, count - done)));
    }
}

void buildGreyTable(ColourTransform& t) {
    uint8_t probe[256 * 4] = {};
    for (int v = 0; v < 256; ++v) probe[v * 4] = uint8_t(v);
    cmsDoTransform(t.lcms, probe, probe, 256);
    t.greyTable.resize(256 * 3);
    for (int v = 0; v < 256; ++v) std::memcpy(&t.greyTable[size_t(v) * 3], probe + v * 4, 3);
    t.kind = ColourTransform::Kind::GreyTable8;
}

bool readColorants(cmsHPROFILE profile, double m[9]) {
    const cmsTagSignature tags[3] = {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag};
    for (int c = 0; c < 3; ++c) {
        const auto* xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, tags[c]));
        if (xyz == nullptr) return false;
        m[c] = xyz->X, m[3 + c] = xyz->Y, m[6 + c] = xyz->Z;  // column c holds the colorant
    }
    return true;
}

bool invert3x3(const double m[9], double out[9]) {
    const double det = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
                       m[2] * (m[3] * m[7] - m[4] * m[6]);
    if (std::fabs(det) < 1e-9) return false;
    out[0] = (m[4] * m[8] - m[5] * m[7]) / det, out[1] = (m[2] * m[7] - m[1] * m[8]) / det;
    out[2] = (m[1] * m[5] - m[2] * m[4]) / det, out[3] = (m[5] * m[6] - m[3] * m[8]) / det;
    out[4] = (m[0] * m[8] - m[2] * m[6]) / det, out[5] = (m[2] * m[3] - m[0] * m[5]) / det;
    out[6] = (m[3] * m[7] - m[4] * m[6]) / det, out[7] = (m[1] * m[6] - m[0] * m[7]) / det;
    out[8] = (m[0] * m[4] - m[1] * m[3]) / det;
    return true;
}

void applyMatrixShaper(const ColourTransform& t, uint8_t* pixels, size_t count) {
    const float* curves = t.inputCurves.data();
    const float* m = t.matrix;
    const uint8_t* out = t.outputCurve.data();
    constexpr float kScale = float(ColourTransform::kOutputSteps - 1);
    for (size_t i = 0; i < count; ++i, pixels += 4) {
        const float r = curves[pixels[0]], g = curves[256 + pixels[1]], b = curves[512 + pixels[2]];
        for (int c = 0; c < 3; ++c) {
            const float v = std::clamp(m[c * 3] * r + m[c * 3 + 1] * g + m[c * 3 + 2] * b, 0.0f, 1.0f);
            pixels[c] = out[int(v * kScale + 0.5f)];
        }
    }
}

bool buildMatrixShaper(ColourTransform& t, cmsHPROFILE profile, cmsHPROFILE srgb) {
    double source[9], target[9], targetInverse[9];
    if (!readColorants(profile, source) || !readColorants(srgb, target) || !invert3x3(target, targetInverse))
        return false;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            double sum = 0;
            for (int k = 0; k < 3; ++k) sum += targetInverse[r * 3 + k] * source[k * 3 + c];
            t.matrix[r * 3 + c] = float(sum);
        }
    const cmsTagSignature trcs[3] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
    t.inputCurves.resize(3 * 256);
    for (int c = 0; c < 3; ++c) {
        const auto* curve = static_cast<const cmsToneCurve*>(cmsReadTag(profile, trcs[c]));
        if (curve == nullptr) return false;
        for (int v = 0; v < 256; ++v)
            t.inputCurves[size_t(c) * 256 + size_t(v)] = cmsEvalToneCurveFloat(curve, cmsFloat32Number(v / 255.0));
    }
    t.outputCurve.resize(ColourTransform::kOutputSteps);
    for (int k = 0; k < ColourTransform::kOutputSteps; ++k) {
        const double linear = k / double(ColourTransform::kOutputSteps - 1);
        const double encoded = linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
        t.outputCurve[size_t(k)] = uint8_t(std::lround(std::clamp(encoded, 0.0, 1.0) * 255));
    }
    // Check against lcms on an 8 x 8 x 8 grid of colours before trusting the tables.
    uint8_t viaLcms[512 * 4], viaTables[512 * 4];
    for (int i = 0; i < 512; ++i) {
        const uint8_t rgb[3] = {uint8_t((i & 7) * 255 / 7), uint8_t((i >> 3 & 7) * 255 / 7), uint8_t((i >> 6) * 255 / 7)};
        for (int c = 0; c < 3; ++c) viaLcms[i * 4 + c] = viaTables[i * 4 + c] = rgb[c];
        viaLcms[i * 4 + 3] = viaTables[i * 4 + 3] = 255;
    }
    cmsDoTransform(t.lcms, viaLcms, viaLcms, 512);
    applyMatrixShaper(t, viaTables, 512);
    for (int i = 0; i < 512 * 4; ++i)
        if (std::abs(int(viaLcms[i]) - int(viaTables[i])) > 1) return false;
    t.kind = ColourTransform::Kind::MatrixShaper8;
    return true;
}

}  // namespace

void addFastPath(ColourTransform& t, void* profile, void* srgb, uint32_t inFormat, uint32_t outFormat) {
    if (outFormat != TYPE_RGBA_8) return;
    if (inFormat == kGreyInRgba8) {
        buildGreyTable(t);
        return;
    }
    if (inFormat == TYPE_RGBA_8 && cmsIsMatrixShaper(profile) &&
        !cmsIsCLUT(profile, INTENT_PERCEPTUAL, LCMS_USED_AS_INPUT) && !buildMatrixShaper(t, profile, srgb)) {
        t.inputCurves.clear();
        t.outputCurve.clear();
    }
}

void ColourTransform::apply(uint8_t* pixels, size_t count) const {
    switch (kind) {
    case Kind::GreyTable8:
        for (size_t i = 0; i < count; ++i, pixels += 4) std::memcpy(pixels, &greyTable[size_t(pixels[0]) * 3], 3);
        return;
    case Kind::MatrixShaper8:
        applyMatrixShaper(*this, pixels, count);
        return;
    case Kind::Lcms:
        lcmsInPlace(lcms, pixels, count, bytesPerPixel);
        return;
    }
}

}  // namespace voimg::detail
