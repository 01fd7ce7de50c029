// SPDX-License-Identifier: MIT
#include "VoRectUtils.h"

#include <cstdio>

#include "Common/Foundation/VoLog.h"

namespace vo {

NSRect VoRectUtils::mergeRectWithRect(const NSRect& a, const NSRect& b) {
    float x = a.origin.x, y = a.origin.y, w = a.size.width, h = a.size.height;
    if (b.origin.x < a.origin.x) {
        x = b.origin.x;
        w = a.origin.x + a.size.width - b.origin.x;
    }
    if (b.origin.y < a.origin.y) {
        y = b.origin.y;
        h = a.origin.y + a.size.height - b.origin.y;
    }
    if (x + w < b.origin.x + b.size.width) w = b.origin.x + b.size.width - x;
    if (y + h < b.origin.y + b.size.height) h = b.origin.y + b.size.height - y;
    return {{x, y}, {w, h}};
}

NSRect VoRectUtils::smallestRectOfAndRect(const NSRect& a, const NSRect& b) {
    return b.size.width * b.size.height <= a.size.width * a.size.height ? b : a;
}

NSRect VoRectUtils::largestRectOfAndRect(const NSRect& a, const NSRect& b) {
    return a.size.width * a.size.height <= b.size.width * b.size.height ? b : a;
}

bool VoRectUtils::rectIsEqualToRect(const NSRect& a, const NSRect& b) {
    return a.origin.x == b.origin.x && a.origin.y == b.origin.y && a.size.width == b.size.width &&
           a.size.height == b.size.height;
}

NSRect VoRectUtils::quadFrame(const NSRect& r) {
    return {{r.origin.x + r.size.width / 4, r.origin.y + r.size.height / 4}, {r.size.width / 2, r.size.height / 2}};
}

NSRect VoRectUtils::quadrupleFrame(const NSRect& r) {
    return {{r.origin.x - r.size.width / 2, r.origin.y - r.size.height / 2}, {2 * r.size.width, 2 * r.size.height}};
}

NSRect VoRectUtils::ninthFrame(const NSRect& r) {
    return {{r.origin.x + r.size.width / 9, r.origin.y + r.size.height / 9}, {r.size.width / 3, r.size.height / 3}};
}

NSRect VoRectUtils::nineTimesFrame(const NSRect& r) {
    return {{r.origin.x - r.size.width / 3, r.origin.y - r.size.height / 3}, {3 * r.size.width, 3 * r.size.height}};
}

NSRect VoRectUtils::fitRectIntoRectWithMinimalSpace(const NSRect& r, const NSRect& c, float s) {
    const float ratio = r.size.width / r.size.height;
    float w = r.size.width, h = r.size.height;
    if (c.size.width < w + s) {
        w = c.size.width - s;
        h = w / ratio;
    }
    if (c.size.height < h + s) {
        h = c.size.height - s;
        w = h * ratio;
    }
    return {{c.origin.x + c.size.width / 2 - w / 2, c.origin.y + c.size.height / 2 - h / 2}, {w, h}};
}

void VoRectUtils::debugRectWithName(const NSRect& r, const std::string& name) {
    char numbers[256];
    std::snprintf(numbers, sizeof numbers, "(%f,%f) %fx%f", double(r.origin.x), double(r.origin.y),
                  double(r.size.width), double(r.size.height));
    VoLog("Rect '" + name + "' " + numbers);
}

NSPoint VoRectUtils::center(const NSRect& r) {
    return {r.origin.x + r.size.width / 2, r.origin.y + r.size.height / 2};
}

NSRect VoRectUtils::fromCGRect(const CGRect& r) { return {{r.x, r.y}, {r.width, r.height}}; }

CGRect VoRectUtils::toCGRect(const NSRect& r) { return {r.origin.x, r.origin.y, r.size.width, r.size.height}; }

}  // namespace vo
