// SPDX-License-Identifier: MIT
// Cached lcms2 transforms from embedded profiles to sRGB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace voimg::detail {

// Owns an lcms2 cmsHTRANSFORM. Cached transforms are shared between threads, so they are built without
// lcms's per-transform pixel cache (which is not thread-safe).
using TransformPtr = std::shared_ptr<void>;

// Transform from the profile in `icc` to sRGB between the lcms pixel formats given. Null when the profile
// cannot be parsed, its colour space does not match `inFormat`, or `skipIfSrgb` is set and the profile is
// equivalent to sRGB (matrix/TRC with sRGB colorants and tone curves).
[[nodiscard]] TransformPtr srgbTransform(const uint8_t* icc, size_t size, uint32_t inFormat, uint32_t outFormat,
                                         bool skipIfSrgb);

}  // namespace voimg::detail
