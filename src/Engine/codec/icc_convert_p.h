// SPDX-License-Identifier: MIT
// Colour management for decoders: embedded ICC profiles to sRGB, and CMYK to sRGB.
//
// Rendering intent is perceptual (for matrix/TRC profiles lcms falls back to relative colorimetric, which is
// what they define anyway). Transforms are cached by profile content, so a folder of photos sharing one
// camera profile builds its transform once.
#pragma once

#include "codec_p.h"
#include "icc_transform_p.h"

#include <memory>

namespace voimg::detail {

// How the samples of an RGBA buffer are to be read by a profile.
enum class IccLayout {
    Rgb,         // R, G, B (alpha untouched)
    GreyInRgba,  // the grey value sits in R (G and B are overwritten by the conversion, alpha untouched)
};

// Converts `image` in place from `icc` to sRGB at the image's own depth. Does nothing when the profile is
// unreadable, does not describe the layout's colour space, or is equivalent to sRGB already.
void convertToSrgb(DecodedImage& image, const uint8_t* icc, size_t iccSize, IccLayout layout);

// The same conversion for runs of pixels, for decoders that produce a picture a few rows at a time.
class IccToSrgb {
public:
    IccToSrgb(const uint8_t* icc, size_t iccSize, IccLayout layout, bool sixteenBit);
    void convert(uint8_t* pixels, size_t pixelCount) const;
    // False when there is nothing to do (no usable profile, or one equivalent to sRGB).
    [[nodiscard]] bool converts() const { return transform_ != nullptr; }

private:
    TransformPtr transform_;
};

// Where the standard CMYK profile is looked for at run time.
[[nodiscard]] const char* standardCmykProfilePath();

// Turns runs of 8-bit CMYK pixels into opaque 8-bit sRGB RGBA in place.
class CmykToSrgb {
public:
    // `icc`: the file's CMYK profile, or nullptr for the standard one (and the naive formula when that file
    // is missing). `inverted`: samples are stored as 255 - ink, as Adobe applications write them.
    CmykToSrgb(const uint8_t* icc, size_t iccSize, bool inverted);

    void convert(uint8_t* pixels, size_t pixelCount) const;

    // True when an ICC transform (embedded or standard profile) is used rather than the naive formula.
    [[nodiscard]] bool usesProfile() const { return transform_ != nullptr; }

private:
    TransformPtr transform_;
    bool inverted_;
};

}  // namespace voimg::detail
