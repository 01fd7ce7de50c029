// SPDX-License-Identifier: MIT
#include "VoCoreTextures.h"

#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Common/Foundation/VoBundle.h"

namespace vo {

namespace {
CIImage gShadingBallInstance;
CIImage gFiberInstance;

const CIImage& cached(CIImage& instance, const char* name) {
    if (instance.isNull()) instance = VoCoreTextures::bundleCIImageWithName(name);
    return instance;
}
}  // namespace

CIImage VoCoreTextures::bundleCIImageWithName(const std::string& name) {
    return VoCoreUtils::importImageFromUrl(VoBundle::mainBundle().resourcePath() + "/" + name);
}

CIImage VoCoreTextures::shadingBall() { return cached(gShadingBallInstance, "TextureShadingBall.png"); }

CIImage VoCoreTextures::fiber() { return cached(gFiberInstance, "TextureFiber.png"); }

void VoCoreTextures::dropCaches() {
    gShadingBallInstance = CIImage();
    gFiberInstance = CIImage();
}

}  // namespace vo
