// SPDX-License-Identifier: MIT
// The attached screens as VoMultiMonitor sees them, and the source that lists them.
//
// Rectangles are in global coordinates: the origin is the lower left corner of the main screen and y
// grows upwards; other screens lie around it (a screen above the main one has a positive y).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Common/CoreGraphics/VoGeometry.h"

namespace vo {

struct VoScreen {
    // Identifies the screen, stable across runs while its name and identity do not change (the
    // "NSScreenNumber" entry of the screen's device description).
    std::uint32_t screenNumber = 0;
    NSRect frame;         // the whole screen
    NSRect visibleFrame;  // the part not taken by panels and docks
    std::string name;     // the windowing system's name of the screen (an output or monitor name)

    friend bool operator==(const VoScreen&, const VoScreen&) = default;
};

class VoScreenSource {
public:
    virtual ~VoScreenSource() = default;
    // The screens, the main screen first.
    [[nodiscard]] virtual std::vector<VoScreen> screens() = 0;

    // The screens of the running QGuiApplication; none without one. Call it on the main thread.
    [[nodiscard]] static std::shared_ptr<VoScreenSource> standard();
};

}  // namespace vo
