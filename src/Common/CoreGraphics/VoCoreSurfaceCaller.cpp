// SPDX-License-Identifier: MIT
#include "Common/CoreGraphics/VoCoreSurfaceCaller.h"

#include <execinfo.h>

#include <cstdlib>

namespace vo {

std::string callerFromStackSymbols(const std::vector<std::string>& symbols) {
    if (symbols.size() < 3) return "UNKNOWN";
    const std::string& line = symbols[2];
    const size_t dash = line.find('-');
    if (dash == std::string::npos) return "UNKNOWN";
    const std::string afterDash = line.substr(dash + 1);
    const size_t plus = afterDash.find('+');
    if (plus == std::string::npos) return "UNKNOWN";
    const std::string name = afterDash.substr(0, plus);
    const char* space = " \t\r\n\v\f";
    const size_t first = name.find_first_not_of(space);
    if (first == std::string::npos) return "";
    return name.substr(first, name.find_last_not_of(space) - first + 1);
}

// Not inlined, so that the frames are this function (0), the function that calls it (1) and that one's
// caller (2).
__attribute__((noinline)) std::string caller() {
    void* frames[8];
    const int count = backtrace(frames, 8);
    std::vector<std::string> symbols;
    if (char** lines = backtrace_symbols(frames, count)) {
        for (int i = 0; i < count; ++i) symbols.emplace_back(lines[i]);
        std::free(lines);
    }
    return callerFromStackSymbols(symbols);
}

}  // namespace vo
