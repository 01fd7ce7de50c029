// SPDX-License-Identifier: MIT
// Where VoMultiMonitor finds each screen's desktop picture.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "System/VoScreenSource.h"

namespace vo {

class VoTaskLauncher;

class VoDesktopPictureSource {
public:
    virtual ~VoDesktopPictureSource() = default;
    // The file path of the picture shown on `screen`, the `position`-th screen of the list (0 = main).
    [[nodiscard]] virtual std::optional<std::string> desktopPicturePath(const VoScreen& screen, size_t position) = 0;

    // VoDesktopSettingsPictures for the running session.
    [[nodiscard]] static std::shared_ptr<VoDesktopPictureSource> standard();
};

// The picture from the running desktop's settings:
// - GNOME (and Unity, Budgie): gsettings org.gnome.desktop.background picture-uri, or picture-uri-dark
//   when the colour scheme prefers dark; Cinnamon: org.cinnamon.desktop.background picture-uri;
//   MATE: org.mate.background picture-filename. One picture for every screen.
// - Xfce: xfconf-query, channel xfce4-desktop, /backdrop/screen0/monitorNAME/workspace0/last-image, else
//   the same under the screen's position, else monitorPOSITION/image-path.
// - KDE Plasma: the wallpaper image of the desktop containment on that screen in
//   plasma-org.kde.plasma.desktop-appletsrc; a wallpaper package folder gives its largest image.
// Other desktops, and settings that name no local file, give nothing.
class VoDesktopSettingsPictures final : public VoDesktopPictureSource {
public:
    enum class Desktop { Unknown, Gnome, Cinnamon, Mate, Xfce, Plasma };
    static constexpr const char* kGsettingsPath = "/usr/bin/gsettings";
    static constexpr const char* kXfconfQueryPath = "/usr/bin/xfconf-query";

    // The session's desktop ($XDG_CURRENT_DESKTOP), the real launcher and the user's config folder, all
    // looked up anew on every call.
    VoDesktopSettingsPictures() = default;
    // Fixed answers, for tests.
    VoDesktopSettingsPictures(Desktop desktop, std::shared_ptr<VoTaskLauncher> launcher,
                              std::filesystem::path configHome);

    [[nodiscard]] std::optional<std::string> desktopPicturePath(const VoScreen& screen, size_t position) override;

    // The desktop named by an XDG_CURRENT_DESKTOP value (a colon-separated list, first known name wins).
    [[nodiscard]] static Desktop desktopFromName(const std::string& currentDesktop);

private:
    bool fixed_ = false;
    Desktop desktop_ = Desktop::Unknown;
    std::shared_ptr<VoTaskLauncher> launcher_;
    std::filesystem::path configHome_;
};

}  // namespace vo
