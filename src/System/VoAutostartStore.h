// SPDX-License-Identifier: MIT
// The login-item store of a freedesktop session: one desktop entry per item in the user's autostart
// folder, $XDG_CONFIG_HOME/autostart (default ~/.config/autostart), looked up anew on every call.
//
// An item's name is its path's last component without an "app" extension; its entry file is
// "NAME.desktop" with Name=NAME, Exec set to the quoted path, X-Vo-Path set to the path and
// X-Vo-Position giving its place in the list. Entries written by other programs count as items too
// (their path is the program of their Exec line) and come first, in file-name order; entries marked
// Hidden=true are deleted ones and are skipped.
#pragma once

#include <filesystem>

#include "System/VoLoginItemStore.h"

namespace vo {

class VoAutostartStore final : public VoLoginItemStore {
public:
    [[nodiscard]] std::string listItemPaths() override;
    void deleteItemNamed(const std::string& name) override;
    // Replaces an item of the same name. Creates the folder when needed.
    void makeItemAtEnd(const std::string& path) override;

    // The autostart folder for the current environment.
    [[nodiscard]] static std::filesystem::path folder();
    // The item name for an application path ("/opt/B.app" gives "B", "/usr/bin/xterm" gives "xterm").
    [[nodiscard]] static std::string itemName(const std::string& path);
};

}  // namespace vo
