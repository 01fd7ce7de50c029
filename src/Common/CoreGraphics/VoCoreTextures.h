// SPDX-License-Identifier: MIT
// VoCoreTextures: the toolkit's two texture pictures, read from its resource folder on first use and kept
// until dropCaches. A texture that cannot be read stays uncached, so the next request tries again.
#pragma once

#include <string>

#include "Common/CoreGraphics/VoGeometry.h"

namespace vo {

class VoCoreTextures {
public:
    // The image of "<resource folder>/<name>", or the missing image.
    [[nodiscard]] static CIImage bundleCIImageWithName(const std::string& name);
    // "TextureShadingBall.png": a lit sphere on transparency.
    [[nodiscard]] static CIImage shadingBall();
    // "TextureFiber.png": a fine fibre pattern.
    [[nodiscard]] static CIImage fiber();
    static void dropCaches();
};

}  // namespace vo
