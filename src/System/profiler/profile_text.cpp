// SPDX-License-Identifier: MIT
#include "profile_text_p.h"

#include <fstream>
#include <iterator>
#include <sstream>

namespace vo::profiler {

std::optional<std::string> readFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return std::nullopt;
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) return std::nullopt;
    return text;
}

std::optional<std::string> readFirstLine(const std::filesystem::path& file) {
    const std::optional<std::string> text = readFile(file);
    if (!text) return std::nullopt;
    // Device-tree strings end in a NUL rather than a line end.
    const std::string line = trim(text->substr(0, text->find_first_of(std::string("\n\0", 2))));
    if (line.empty()) return std::nullopt;
    return line;
}

std::string trim(const std::string& text) {
    const size_t b = text.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return "";
    const size_t e = text.find_last_not_of(" \t\r\n");
    return text.substr(b, e - b + 1);
}

std::vector<std::map<std::string, std::string>> colonBlocks(const std::string& text) {
    std::vector<std::map<std::string, std::string>> blocks(1);
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (trim(line).empty()) {
            if (!blocks.back().empty()) blocks.emplace_back();
            continue;
        }
        const size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        blocks.back()[trim(line.substr(0, colon))] = trim(line.substr(colon + 1));
    }
    if (blocks.back().empty()) blocks.pop_back();
    return blocks;
}

std::map<std::string, std::string> keyValueLines(const std::string& text) {
    std::map<std::string, std::string> values;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        const size_t eq = line.find('=');
        if (eq == std::string::npos || trim(line).rfind('#', 0) == 0) continue;
        std::string value = trim(line.substr(eq + 1));
        if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
            value = value.substr(1, value.size() - 2);
        values[trim(line.substr(0, eq))] = value;
    }
    return values;
}

std::filesystem::path under(const std::filesystem::path& root, const std::string& path) { return root / path; }

}  // namespace vo::profiler
