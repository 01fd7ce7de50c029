// SPDX-License-Identifier: MIT
#include "VoPlasmaWallpapers_p.h"

#include <QUrl>
#include <fstream>
#include <map>
#include <vector>

#include "System/VoValueText_p.h"

namespace vo::detail {

namespace fs = std::filesystem;

namespace {

// "[Containments][12][Wallpaper]" gives {"Containments", "12", "Wallpaper"}.
std::vector<std::string> groupPath(const std::string& header) {
    std::vector<std::string> parts;
    size_t i = 0;
    while (i < header.size() && header[i] == '[') {
        const size_t close = header.find(']', i);
        if (close == std::string::npos) break;
        parts.push_back(header.substr(i + 1, close - i - 1));
        i = close + 1;
    }
    return parts;
}

std::string localPath(const std::string& value) {
    if (value.rfind("file:", 0) == 0) return QUrl(QString::fromStdString(value)).toLocalFile().toStdString();
    return value;
}

}  // namespace

std::string wallpaperPackageImage(const std::string& path) {
    std::error_code ec;
    const fs::path images = fs::path(path) / "contents" / "images";
    if (!fs::is_directory(path, ec) || !fs::is_directory(images, ec)) return path;
    std::string best;
    long long bestArea = -1;
    for (const fs::directory_entry& e : fs::directory_iterator(images, ec)) {
        // Named by size: "1920x1080.png".
        const std::string stem = e.path().stem().string();
        const size_t x = stem.find('x');
        const long long area =
            x == std::string::npos ? 0 : (long long)intValue(stem.substr(0, x)) * intValue(stem.substr(x + 1));
        if (area > bestArea || (area == bestArea && e.path().string() < best)) {
            bestArea = area;
            best = e.path().string();
        }
    }
    return best.empty() ? path : best;
}

std::optional<std::string> plasmaWallpaper(const fs::path& appletsrc, size_t screen) {
    std::ifstream in(appletsrc);
    if (!in) return std::nullopt;
    std::map<long long, long long> lastScreen;  // containment -> screen
    std::map<long long, std::string> image;     // containment -> Image value
    std::vector<std::string> group;
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
            group = groupPath(line);
            continue;
        }
        if (group.size() < 2 || group[0] != "Containments") continue;
        const size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        const std::string key = line.substr(0, eq), value = line.substr(eq + 1);
        const long long id = intValue(group[1]);
        if (group.size() == 2 && key == "lastScreen") lastScreen[id] = intValue(value);
        if (group.size() == 5 && group[2] == "Wallpaper" && group[3] == "org.kde.image" && group[4] == "General" &&
            key == "Image")
            image[id] = value;
    }
    for (const auto& [id, value] : image) {
        const auto it = lastScreen.find(id);
        if (it == lastScreen.end() || it->second != (long long)screen || value.empty()) continue;
        const std::string path = localPath(value);
        if (!path.empty()) return wallpaperPackageImage(path);
    }
    return std::nullopt;
}

}  // namespace vo::detail
