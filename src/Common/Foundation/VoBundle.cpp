// SPDX-License-Identifier: MIT
#include "VoBundle.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

namespace vo {

namespace {
std::string locateResources() {
    if (const char* dir = std::getenv("VO_RESOURCE_DIR"); dir && *dir) return dir;
    Dl_info info{};
    // The object this function lives in: the shared library, or the executable it was linked into.
    if (dladdr(reinterpret_cast<void*>(&locateResources), &info) && info.dli_fname) {
        std::error_code ec;
        // A relative name (the executable itself, as started) is resolved through the kernel instead.
        const std::string name = std::string(info.dli_fname).find('/') == 0 ? info.dli_fname : "/proc/self/exe";
        const auto binary = std::filesystem::canonical(name, ec);
        if (!ec) return (binary.parent_path().parent_path() / "share" / "vo" / "resources").string();
    }
    return "share/vo/resources";
}
}  // namespace

const VoBundle& VoBundle::mainBundle() {
    static const VoBundle bundle(locateResources());
    return bundle;
}

}  // namespace vo
