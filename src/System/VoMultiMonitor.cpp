// SPDX-License-Identifier: MIT
#include "VoMultiMonitor.h"

#include <cstdio>

#include "Common/CoreGraphics/VoRectUtils.h"
#include "Common/Foundation/VoException.h"
#include "System/VoDesktopPictureSource.h"

namespace vo {

namespace {

std::shared_ptr<VoScreenSource> gScreens;
std::shared_ptr<VoDesktopPictureSource> gPictures;

std::vector<VoScreen> screens() { return (gScreens ? gScreens : VoScreenSource::standard())->screens(); }

// The platform's point-in-rectangle test, y up.
bool containsPoint(const NSRect& r, const NSPoint& p) {
    return p.x >= r.origin.x && p.x < r.origin.x + r.size.width && p.y >= r.origin.y &&
           p.y < r.origin.y + r.size.height;
}

template <typename Pick>
VoScreen bestScreen(Pick pick) {
    const std::vector<VoScreen> list = screens();
    // Reading the first screen of an empty list is an index error; no guard is made for it.
    if (list.empty()) throw VoException("NSRangeException", "index 0 beyond bounds for empty screen list");
    VoScreen best = list[0];
    NSRect r = best.visibleFrame;
    for (size_t i = 1; i < list.size(); ++i) {
        const NSRect f = list[i].visibleFrame;
        const NSRect m = pick(r, f);
        if (!VoRectUtils::rectIsEqualToRect(m, r)) {
            best = list[i];
            r = f;
        }
    }
    return best;
}

}  // namespace

NSRect VoMultiMonitor::surface() {
    NSRect all{{0, 0}, {0, 0}};
    for (const VoScreen& s : screens()) all = VoRectUtils::mergeRectWithRect(all, s.frame);
    return all;
}

VoScreen VoMultiMonitor::screenWithSmallestVisibleFrame() { return bestScreen(&VoRectUtils::smallestRectOfAndRect); }

VoScreen VoMultiMonitor::screenWithLargestVisibleFrame() { return bestScreen(&VoRectUtils::largestRectOfAndRect); }

std::optional<VoScreen> VoMultiMonitor::screenWithRect(const NSRect& rect) {
    for (const VoScreen& s : screens())
        if (containsPoint(s.frame, rect.origin)) return s;
    return std::nullopt;
}

std::vector<VoScreenWallPaper> VoMultiMonitor::wallPaperPerScreen() {
    const std::shared_ptr<VoDesktopPictureSource> pictures = gPictures ? gPictures : VoDesktopPictureSource::standard();
    std::vector<VoScreenWallPaper> result;
    const std::vector<VoScreen> list = screens();
    for (size_t i = 0; i < list.size(); ++i) result.push_back({list[i], pictures->desktopPicturePath(list[i], i)});
    return result;
}

std::string VoMultiMonitor::displaySetString() {
    std::string text = "DisplaySet";
    for (const VoScreen& s : screens()) {
        char part[320];
        std::snprintf(part, sizeof part, "-%u[%f,%f][%f,%f]", unsigned(s.screenNumber), double(s.frame.origin.x),
                      double(s.frame.origin.y), double(s.frame.size.width), double(s.frame.size.height));
        text += part;
    }
    return text;
}

void VoMultiMonitor::setScreenSource(std::shared_ptr<VoScreenSource> source) { gScreens = std::move(source); }
void VoMultiMonitor::setDesktopPictureSource(std::shared_ptr<VoDesktopPictureSource> source) {
    gPictures = std::move(source);
}

}  // namespace vo
