// SPDX-License-Identifier: MIT
#include "Common/CoreGraphics/VoSurfaceHost.h"

namespace vo {

VoSurfaceHost::~VoSurfaceHost() = default;

}  // namespace vo
