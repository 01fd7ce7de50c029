// SPDX-License-Identifier: MIT
// Small readers for the kernel's text files.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vo::profiler {

// The whole file, or nothing when it cannot be read.
[[nodiscard]] std::optional<std::string> readFile(const std::filesystem::path& file);
// The first line of the file without surrounding blanks; nothing when unreadable or empty.
[[nodiscard]] std::optional<std::string> readFirstLine(const std::filesystem::path& file);
[[nodiscard]] std::string trim(const std::string& text);
// "key : value" blocks separated by empty lines, as in /proc/cpuinfo.
[[nodiscard]] std::vector<std::map<std::string, std::string>> colonBlocks(const std::string& text);
// "KEY=value" lines, quotes removed, as in os-release and uevent files.
[[nodiscard]] std::map<std::string, std::string> keyValueLines(const std::string& text);
// A path below root: root / "proc/cpuinfo".
[[nodiscard]] std::filesystem::path under(const std::filesystem::path& root, const std::string& path);

}  // namespace vo::profiler
