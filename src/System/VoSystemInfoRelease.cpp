// SPDX-License-Identifier: MIT
// The release queries of VoSystemInfo: version arithmetic over the kernel's release text.
#include "System/VoKernel.h"
#include "System/VoSystemInfo.h"
#include "System/VoSystemInfo_p.h"
#include "System/VoValueText_p.h"

namespace vo {

namespace {

// The release parts, read anew on each call; the major version never looks at them.
int part(size_t index) {
    const std::vector<std::string> parts = VoSystemInfo::darwinKernelVerion();
    return parts.size() > index ? detail::intValue(parts[index]) : 0;
}

}  // namespace

std::vector<std::string> VoSystemInfo::darwinKernelVerion() {
    const std::optional<std::string> release = detail::systemInfoKernel()->osRelease();
    if (!release) return {};
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t dot = release->find('.', start);
        parts.push_back(release->substr(start, dot == std::string::npos ? std::string::npos : dot - start));
        if (dot == std::string::npos) break;
        start = dot + 1;
    }
    return parts;
}

int VoSystemInfo::osMajorVersion() {
    (void)darwinKernelVerion();
    return 10;
}

int VoSystemInfo::osMinorVersion() {
    const std::vector<std::string> parts = darwinKernelVerion();
    if (parts.empty()) return 0;
    return detail::intValue(parts[0]) - 4;
}

int VoSystemInfo::osRevision() { return part(1); }
int VoSystemInfo::osRevisionFix() { return part(2); }

// Each test asks for both versions every time, as written; the "post" and "pre" tests differ in whether
// they require major = 10, which cannot matter while major is fixed at 10.
bool VoSystemInfo::isPreJaguar() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major < 10 || minor < 2;
}
bool VoSystemInfo::isJaguar() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor == 2;
}
bool VoSystemInfo::isPanther() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor == 3;
}
bool VoSystemInfo::isTiger() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor == 4;
}
bool VoSystemInfo::isLeopard() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor == 5;
}
bool VoSystemInfo::isPostLeopard() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major > 10 || minor > 5;
}
bool VoSystemInfo::isSnowLeopard() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor == 6;
}
bool VoSystemInfo::isPostSnowLeopard() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major > 10 || minor > 6;
}
bool VoSystemInfo::isLion() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor == 7;
}
bool VoSystemInfo::isMountainLion() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor == 8;
}
bool VoSystemInfo::isMavericks() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor == 9;
}
bool VoSystemInfo::isYosemite() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor == 10;
}
bool VoSystemInfo::isPostYosemite() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor > 10;
}
bool VoSystemInfo::isElCapitan() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor == 11;
}
bool VoSystemInfo::isPreSierra() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor < 12;
}
bool VoSystemInfo::isSierra() {
    const int major = osMajorVersion(), minor = osMinorVersion();
    return major == 10 && minor == 12;
}

}  // namespace vo
