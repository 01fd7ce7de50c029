// SPDX-License-Identifier: MIT
// VoRectUtils: pure functions on windowing rectangles (origin lower left, y up, 32-bit floats).
// All arithmetic is in 32-bit floats, in the order written in each function.
#pragma once

#include <string>

#include "Common/CoreGraphics/VoGeometry.h"

namespace vo {

class VoRectUtils {
public:
    // Bounding box of both, with no special case for empty rectangles: an empty b at (0, 0) still
    // stretches the result to the origin.
    [[nodiscard]] static NSRect mergeRectWithRect(const NSRect& a, const NSRect& b);
    // b when its area is at most a's (a tie returns b), else a.
    [[nodiscard]] static NSRect smallestRectOfAndRect(const NSRect& a, const NSRect& b);
    // b when a's area is at most b's (a tie returns b), else a.
    [[nodiscard]] static NSRect largestRectOfAndRect(const NSRect& a, const NSRect& b);
    // All four fields exactly equal; NaN never equals.
    [[nodiscard]] static bool rectIsEqualToRect(const NSRect& a, const NSRect& b);
    // Half size, centred.
    [[nodiscard]] static NSRect quadFrame(const NSRect& r);
    // Double size, centred.
    [[nodiscard]] static NSRect quadrupleFrame(const NSRect& r);
    // A third of the size, the origin moved inwards by a ninth of the size (not centred).
    [[nodiscard]] static NSRect ninthFrame(const NSRect& r);
    // Three times the size, the origin moved outwards by a third of the size (not centred).
    [[nodiscard]] static NSRect nineTimesFrame(const NSRect& r);
    // r with its aspect ratio kept, shrunk (never enlarged) to leave `space` once per axis inside c, and
    // centred in c. The width test runs before the height test.
    [[nodiscard]] static NSRect fitRectIntoRectWithMinimalSpace(const NSRect& r, const NSRect& c, float space);
    // Logs "Rect '<name>' (x,y) wxh" with six decimals.
    static void debugRectWithName(const NSRect& r, const std::string& name);
    [[nodiscard]] static NSPoint center(const NSRect& r);
    [[nodiscard]] static NSRect fromCGRect(const CGRect& r);
    [[nodiscard]] static CGRect toCGRect(const NSRect& r);
};

}  // namespace vo
