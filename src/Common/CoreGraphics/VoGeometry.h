// SPDX-License-Identifier: MIT
// The toolkit's geometry types. The graphics forms (CGRect, CGPoint, CGSize) are the engine's; the
// windowing forms (NSRect, NSPoint, NSSize) have the same fields in the same order, all 32-bit floats,
// and convert field by field.
#pragma once

#include "Engine/geometry.h"
#include "Engine/image.h"

namespace vo {

using CGRect = voimg::Rect;
using CGPoint = voimg::Point;
using CGSize = voimg::Size;
using CIVector = voimg::Vector4;
using CIColor = voimg::Color;
using CIImage = voimg::Image;
// The transform object: m11, m12, m21, m22, tX, tY; appending B to A applies A first, then B.
using NSAffineTransform = voimg::AffineTransform;

struct NSPoint {
    float x = 0, y = 0;
    friend bool operator==(const NSPoint&, const NSPoint&) = default;
};
struct NSSize {
    float width = 0, height = 0;
    friend bool operator==(const NSSize&, const NSSize&) = default;
};
struct NSRect {
    NSPoint origin;
    NSSize size;
    friend bool operator==(const NSRect&, const NSRect&) = default;
};

// The graphics library's affine transform: x' = a*x + c*y + tx, y' = b*x + d*y + ty.
struct CGAffineTransform {
    float a = 0, b = 0, c = 0, d = 0, tx = 0, ty = 0;
    friend bool operator==(const CGAffineTransform&, const CGAffineTransform&) = default;
};

}  // namespace vo
