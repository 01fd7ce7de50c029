// SPDX-License-Identifier: MIT
// The wallpaper of each screen as KDE Plasma records it in its desktop configuration.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace vo::detail {

// The wallpaper image of the first containment (by number) whose lastScreen is `screen` and that has an
// "[Containments][N][Wallpaper][org.kde.image][General]" Image entry, from the file `appletsrc`.
// A file URL is turned into a path; a wallpaper package folder into its largest image.
[[nodiscard]] std::optional<std::string> plasmaWallpaper(const std::filesystem::path& appletsrc, size_t screen);

// The image of a wallpaper package folder (contents/images/WIDTHxHEIGHT.ext) with the most pixels; a
// file path is returned unchanged.
[[nodiscard]] std::string wallpaperPackageImage(const std::string& path);

}  // namespace vo::detail
