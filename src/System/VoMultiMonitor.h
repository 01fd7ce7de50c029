// SPDX-License-Identifier: MIT
// VoMultiMonitor: questions about the attached screens: the rectangle covering all of them, the screen
// with the smallest or largest usable area, the screen under a rectangle, each screen's desktop picture
// and a text that identifies the present arrangement. All members are static and read the screen list
// anew on every call (main screen first); rectangles are global (see VoScreenSource.h).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "System/VoScreenSource.h"

namespace vo {

class VoDesktopPictureSource;

// One entry of wallPaperPerScreen(): the screen, and the path of its desktop picture when it has one.
struct VoScreenWallPaper {
    VoScreen screen;
    std::optional<std::string> picturePath;
};

class VoMultiMonitor {
public:
    // The zero rectangle merged with every screen's frame in list order (a plain union, so the result
    // always reaches to the origin).
    [[nodiscard]] static NSRect surface();
    // One pass over the list: a later screen replaces the best so far when the smaller (larger) of the
    // two visible frames differs from the best one's. A tie in area goes to the later screen unless its
    // visible frame is identical. Throws VoException "NSRangeException" when there are no screens.
    [[nodiscard]] static VoScreen screenWithSmallestVisibleFrame();
    [[nodiscard]] static VoScreen screenWithLargestVisibleFrame();
    // The first screen whose frame contains the rectangle's origin (left and bottom edges inside, right
    // and top edges outside); nothing if none does. Only the origin counts, not the overlap.
    [[nodiscard]] static std::optional<VoScreen> screenWithRect(const NSRect& rect);
    // Every screen in list order with its desktop picture, or without one when none is found.
    [[nodiscard]] static std::vector<VoScreenWallPaper> wallPaperPerScreen();
    // "DisplaySet" followed by "-NUMBER[x,y][width,height]" per screen (six decimals), usable as a
    // settings key: it changes whenever a screen is added, removed, renumbered, moved or resized.
    [[nodiscard]] static std::string displaySetString();

    // The sources used; null restores the real ones.
    static void setScreenSource(std::shared_ptr<VoScreenSource> source);
    static void setDesktopPictureSource(std::shared_ptr<VoDesktopPictureSource> source);
};

}  // namespace vo
