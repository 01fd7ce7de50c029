// SPDX-License-Identifier: MIT
// Builds and caches transforms to sRGB, and recognises profiles that are sRGB already.
#include "icc_transform_p.h"

#include <lcms2.h>

#include <cmath>
#include <cstring>
#include <list>
#include <mutex>
#include <string>

namespace voimg::detail {
namespace {

// A private lcms context keeps its (silenced) error log apart from any other lcms user in the process.
cmsContext lcmsContext() {
    static const cmsContext context = [] {
        cmsContext c = cmsCreateContext(nullptr, nullptr);
        cmsSetLogErrorHandlerTHR(c, [](cmsContext, cmsUInt32Number, const char*) {});
        return c;
    }();
    return context;
}

// lcms profile objects cache what they read, so each transform build gets its own (cheap) sRGB profile
// rather than sharing one between threads.
struct SrgbProfile {
    cmsHPROFILE handle = cmsCreate_sRGBProfileTHR(lcmsContext());
    ~SrgbProfile() {
        if (handle) cmsCloseProfile(handle);
    }
};

double srgbCurve(double x) { return x <= 0.04045 ? x / 12.92 : std::pow((x + 0.055) / 1.055, 2.4); }

// 0.002 is about half an 8-bit step; at 16 bits it stays far below the visible.
bool curveMatchesSrgb(const cmsToneCurve* curve) {
    if (curve == nullptr) return false;
    for (int i = 0; i <= 64; ++i) {
        const double x = i / 64.0;
        if (std::fabs(cmsEvalToneCurveFloat(curve, cmsFloat32Number(x)) - srgbCurve(x)) > 0.002) return false;
    }
    return true;
}

bool colorantMatches(cmsHPROFILE profile, cmsHPROFILE srgb, cmsTagSignature tag) {
    const auto* own = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, tag));
    const auto* ref = static_cast<const cmsCIEXYZ*>(cmsReadTag(srgb, tag));
    if (own == nullptr || ref == nullptr) return false;
    constexpr double kTolerance = 0.003;
    return std::fabs(own->X - ref->X) < kTolerance && std::fabs(own->Y - ref->Y) < kTolerance &&
           std::fabs(own->Z - ref->Z) < kTolerance;
}

bool isSrgbEquivalent(cmsHPROFILE profile, cmsHPROFILE srgb) {
    const cmsColorSpaceSignature space = cmsGetColorSpace(profile);
    if (cmsIsCLUT(profile, INTENT_PERCEPTUAL, LCMS_USED_AS_INPUT)) return false;
    if (space == cmsSigGrayData)
        return curveMatchesSrgb(static_cast<const cmsToneCurve*>(cmsReadTag(profile, cmsSigGrayTRCTag)));
    if (space != cmsSigRgbData || !cmsIsMatrixShaper(profile)) return false;
    return colorantMatches(profile, srgb, cmsSigRedColorantTag) &&
           colorantMatches(profile, srgb, cmsSigGreenColorantTag) &&
           colorantMatches(profile, srgb, cmsSigBlueColorantTag) &&
           curveMatchesSrgb(static_cast<const cmsToneCurve*>(cmsReadTag(profile, cmsSigRedTRCTag))) &&
           curveMatchesSrgb(static_cast<const cmsToneCurve*>(cmsReadTag(profile, cmsSigGreenTRCTag))) &&
           curveMatchesSrgb(static_cast<const cmsToneCurve*>(cmsReadTag(profile, cmsSigBlueTRCTag)));
}

bool spaceMatchesFormat(cmsHPROFILE profile, uint32_t format) {
    switch (T_COLORSPACE(format)) {
        case PT_RGB:
            return cmsGetColorSpace(profile) == cmsSigRgbData;
        case PT_GRAY:
            return cmsGetColorSpace(profile) == cmsSigGrayData;
        case PT_CMYK:
            return cmsGetColorSpace(profile) == cmsSigCmykData;
        default:
            return false;
    }
}

TransformPtr buildTransform(const uint8_t* icc, size_t size, uint32_t inFormat, uint32_t outFormat, bool skipIfSrgb) {
    if (size > UINT32_MAX) return nullptr;
    cmsHPROFILE profile = cmsOpenProfileFromMemTHR(lcmsContext(), icc, cmsUInt32Number(size));
    if (profile == nullptr) return nullptr;
    std::shared_ptr<ColourTransform> result;
    const SrgbProfile srgb;
    const cmsProfileClassSignature cls = cmsGetDeviceClass(profile);
    const bool usable = cls != cmsSigLinkClass && cls != cmsSigAbstractClass && cls != cmsSigNamedColorClass;
    if (usable && spaceMatchesFormat(profile, inFormat) && srgb.handle != nullptr &&
        !(skipIfSrgb && isSrgbEquivalent(profile, srgb.handle))) {
        cmsHTRANSFORM t = cmsCreateTransformTHR(lcmsContext(), profile, inFormat, srgb.handle, outFormat,
                                                INTENT_PERCEPTUAL, cmsFLAGS_NOCACHE);
        if (t != nullptr) {
            result = std::make_shared<ColourTransform>();
            result->lcms = t;
            result->bytesPerPixel = size_t(T_BYTES(outFormat)) * (T_CHANNELS(outFormat) + T_EXTRA(outFormat));
            addFastPath(*result, profile, srgb.handle, inFormat, outFormat);
        }
    }
    cmsCloseProfile(profile);
    return result;
}

// Small most-recently-used cache keyed by the profile bytes and both pixel formats. Negative results
// (unusable or sRGB-equivalent profiles) are cached too, since they cost as much to find out.
struct CacheEntry {
    std::string profile;
    uint32_t inFormat;
    uint32_t outFormat;
    bool skipIfSrgb;
    TransformPtr transform;
};

constexpr size_t kCacheCapacity = 8;

// Created on first use, so that programs that never convert a profile do no work for it at start-up.
struct Cache {
    std::mutex mutex;
    std::list<CacheEntry> entries;
};

Cache& transformCache() {
    static Cache cache;
    return cache;
}

}  // namespace

ColourTransform::~ColourTransform() {
    if (lcms != nullptr) cmsDeleteTransform(lcms);
}

TransformPtr srgbTransform(const uint8_t* icc, size_t size, uint32_t inFormat, uint32_t outFormat, bool skipIfSrgb) {
    if (icc == nullptr || size < 128) return nullptr;  // shorter than an ICC header
    const std::string_view key(reinterpret_cast<const char*>(icc), size);
    Cache& cache = transformCache();
    {
        const std::lock_guard lock(cache.mutex);
        for (auto it = cache.entries.begin(); it != cache.entries.end(); ++it) {
            if (it->inFormat == inFormat && it->outFormat == outFormat && it->skipIfSrgb == skipIfSrgb &&
                it->profile == key) {
                cache.entries.splice(cache.entries.begin(), cache.entries, it);
                return it->transform;
            }
        }
    }
    // Built outside the lock: two threads may race to build the same transform, which is harmless.
    TransformPtr transform = buildTransform(icc, size, inFormat, outFormat, skipIfSrgb);
    const std::lock_guard lock(cache.mutex);
    cache.entries.push_front(CacheEntry{std::string(key), inFormat, outFormat, skipIfSrgb, transform});
    if (cache.entries.size() > kCacheCapacity) cache.entries.pop_back();
    return transform;
}

}  // namespace voimg::detail
