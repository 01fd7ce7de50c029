// SPDX-License-Identifier: MIT
#include "VoAutostartStore.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "System/VoDesktopEntry_p.h"
#include "System/VoValueText_p.h"

namespace vo {

namespace fs = std::filesystem;

namespace {

struct Item {
    fs::path file;
    std::string name;
    std::string path;
    long long position = -1;  // -1: not placed by us, listed first
};

std::vector<Item> readItems() {
    std::vector<Item> items;
    std::error_code ec;
    for (const fs::directory_entry& e : fs::directory_iterator(VoAutostartStore::folder(), ec)) {
        if (e.path().extension() != ".desktop") continue;
        const auto entry = detail::readDesktopEntry(e.path());
        if (!entry) continue;
        auto value = [&](const char* key) {
            const auto it = entry->find(key);
            return it == entry->end() ? std::string() : it->second;
        };
        if (value("Hidden") == "true") continue;
        Item item{e.path(), value("Name"), value("X-Vo-Path")};
        if (item.path.empty()) item.path = detail::execProgram(value("Exec"));
        if (const std::string position = value("X-Vo-Position"); !position.empty())
            item.position = std::max(0, detail::intValue(position));
        items.push_back(std::move(item));
    }
    std::sort(items.begin(), items.end(), [](const Item& a, const Item& b) {
        if (a.position != b.position) return a.position < b.position;
        return a.file.filename() < b.file.filename();
    });
    return items;
}

}  // namespace

fs::path VoAutostartStore::folder() {
    // As with every XDG base directory, a relative XDG_CONFIG_HOME is invalid and ignored.
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && config[0] == '/')
        return fs::path(config) / "autostart";
    const char* home = std::getenv("HOME");
    std::string homeDir = home && *home ? home : "";
    if (homeDir.empty()) {
        if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) homeDir = pw->pw_dir;
    }
    return fs::path(homeDir) / ".config" / "autostart";
}

std::string VoAutostartStore::itemName(const std::string& path) {
    std::string name = detail::lastPathComponent(path);
    if (detail::pathExtension(name) == "app") name.resize(name.size() - 4);
    return name;
}

std::string VoAutostartStore::listItemPaths() {
    std::string text;
    for (const Item& item : readItems()) {
        if (!text.empty()) text += ", ";
        text += item.path;
    }
    if (!text.empty()) text += '\n';
    return text;
}

void VoAutostartStore::deleteItemNamed(const std::string& name) {
    for (const Item& item : readItems()) {
        std::error_code ignored;
        if (item.name == name) fs::remove(item.file, ignored);
    }
}

void VoAutostartStore::makeItemAtEnd(const std::string& path) {
    const std::string name = itemName(path);
    const fs::path dir = folder();
    std::error_code ec;
    fs::create_directories(dir, ec);
    // A name that cannot be a file name ("", ".", "..") still gets an entry file.
    const std::string stem = name.empty() || name == "." || name == ".." ? "login-item" : name;
    const fs::path file = dir / (stem + ".desktop");

    long long last = 0;
    for (const Item& item : readItems())
        if (item.file != file) last = std::max(last, item.position);

    const std::string contents =
        "[Desktop Entry]\n"
        "Type=Application\n"
        "Version=1.0\n"
        "Name=" +
        detail::escapeDesktopValue(name.empty() ? stem : name) +
        "\n"
        "Exec=" +
        detail::escapeDesktopValue(detail::quoteExecArgument(path)) +
        "\n"
        "Hidden=false\n"
        "X-Vo-Path=" +
        detail::escapeDesktopValue(path) +
        "\n"
        "X-Vo-Position=" +
        std::to_string(last + 1) + "\n";
    // Written beside the entry and renamed into place, so a reader never sees half an entry.
    const fs::path temporary = dir / ("." + stem + ".desktop.tmp");
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << contents;
        if (!out.flush()) return;
    }
    fs::rename(temporary, file, ec);
    if (ec) fs::remove(temporary, ec);
}

}  // namespace vo
