// SPDX-License-Identifier: MIT
// Cached colour transforms from embedded profiles to sRGB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace voimg::detail {

// Converts pixels in place from one profile to sRGB. Built by srgbTransform(); immutable afterwards, so one
// object is shared by all threads (lcms transforms are created without their non-thread-safe pixel cache).
//
// Two 8-bit cases skip lcms's per-pixel pipeline, which is slow (about 13 ns a pixel): grey profiles use a
// 256-entry table filled by lcms itself, and matrix/TRC RGB profiles use per-channel tables around one 3x3
// matrix. The matrix path is checked against lcms on a grid of colours when built and dropped if any sample
// differs by more than one step.
class ColourTransform {
public:
    ColourTransform() = default;
    ColourTransform(const ColourTransform&) = delete;
    ColourTransform& operator=(const ColourTransform&) = delete;
    ~ColourTransform();

    void apply(uint8_t* pixels, size_t count) const;

    // Building blocks, filled in by the builders in icc_transform.cpp and icc_fast_paths.cpp.
    enum class Kind { Lcms, GreyTable8, MatrixShaper8 };
    Kind kind = Kind::Lcms;
    void* lcms = nullptr;  // cmsHTRANSFORM, always present
    size_t bytesPerPixel = 4;
    std::vector<uint8_t> greyTable;   // GreyTable8: sRGB value for each grey input
    std::vector<float> inputCurves;   // MatrixShaper8: 3 x 256 linear values
    float matrix[9] = {};             // MatrixShaper8: linear profile RGB -> linear sRGB, row-major
    std::vector<uint8_t> outputCurve;  // MatrixShaper8: linear -> encoded sRGB, kOutputSteps entries
    static constexpr int kOutputSteps = 16384;
};

using TransformPtr = std::shared_ptr<const ColourTransform>;

// Transform from the profile in `icc` to sRGB between the lcms pixel formats given (alpha, if any, is an
// extra channel left untouched). Null when the profile cannot be parsed, its colour space does not match
// `inFormat`, or `skipIfSrgb` is set and the profile is equivalent to sRGB (matrix/TRC with sRGB
// colorants and tone curves).
[[nodiscard]] TransformPtr srgbTransform(const uint8_t* icc, size_t size, uint32_t inFormat, uint32_t outFormat,
                                         bool skipIfSrgb);

// Sets up a fast path on `t` (which already holds its lcms transform) when the formats and profile allow.
// `profile` is a cmsHPROFILE, `srgb` the sRGB one.
void addFastPath(ColourTransform& t, void* profile, void* srgb, uint32_t inFormat, uint32_t outFormat);

}  // namespace voimg::detail
