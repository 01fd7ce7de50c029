// SPDX-License-Identifier: MIT
// A folder of the toolkit's resource files.
//
// The main bundle's resource folder is found relative to the binary the toolkit is linked into:
// <binary dir>/../share/vo/resources (the layout of both the build tree and an installation). The
// environment variable VO_RESOURCE_DIR overrides it.
#pragma once

#include <string>

namespace vo {

class VoBundle {
public:
    explicit VoBundle(std::string resourcePath) : resourcePath_(std::move(resourcePath)) {}

    [[nodiscard]] static const VoBundle& mainBundle();
    [[nodiscard]] const std::string& resourcePath() const { return resourcePath_; }

private:
    std::string resourcePath_;
};

}  // namespace vo
