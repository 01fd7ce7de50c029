// SPDX-License-Identifier: MIT
// The JPEG writer's last step, for callers that make the colour planes themselves.
#pragma once

#include "chroma_planes_p.h"

#include <string>

namespace voimg::detail {

// Writes `planes` as a baseline 4:2:0 JPEG with the standard tables scaled to `quality` (1 to 100),
// replacing `path` only once the whole file is written.
[[nodiscard]] bool writeJpegPlanes(const std::string& path, const YccPlanes& planes, int quality, std::string* error);

}  // namespace voimg::detail
