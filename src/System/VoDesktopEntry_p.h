// SPDX-License-Identifier: MIT
// Reading and writing the "[Desktop Entry]" group of a freedesktop desktop entry file: string escapes
// (\s \n \t \r \\) and the quoting of an Exec argument.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace vo::detail {

// The unlocalised keys of the "[Desktop Entry]" group with their values unescaped; nothing when the
// file cannot be read or has no such group.
[[nodiscard]] std::optional<std::map<std::string, std::string>> readDesktopEntry(const std::filesystem::path& file);

// A string value as written in a desktop entry: backslashes, line ends, tabs and a leading blank escaped.
[[nodiscard]] std::string escapeDesktopValue(const std::string& value);
[[nodiscard]] std::string unescapeDesktopValue(const std::string& value);

// One Exec argument, double-quoted, with ", `, $ and \ escaped and % doubled (before the string escape).
[[nodiscard]] std::string quoteExecArgument(const std::string& argument);
// The program of an Exec value (already string-unescaped): its first argument, unquoted.
[[nodiscard]] std::string execProgram(const std::string& exec);

}  // namespace vo::detail
