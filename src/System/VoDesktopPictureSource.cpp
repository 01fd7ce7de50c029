// SPDX-License-Identifier: MIT
#include "VoDesktopPictureSource.h"

#include <QString>
#include <QStringList>
#include <QUrl>
#include <cstdlib>

#include "System/VoAutostartStore.h"
#include "System/VoPlasmaWallpapers_p.h"
#include "System/VoTaskLauncher.h"

namespace vo {

namespace fs = std::filesystem;

namespace {

// The text of a gsettings string value ('...' with backslash escapes); a bare text is taken as it is.
std::string unquoteSetting(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    if (text.size() < 2 || (text.front() != '\'' && text.front() != '"') || text.back() != text.front()) return text;
    std::string out;
    for (size_t i = 1; i + 1 < text.size(); ++i) {
        if (text[i] == '\\' && i + 2 < text.size()) ++i;
        out += text[i];
    }
    return out;
}

// A file path from a setting holding a file URL or a path; nothing for other URLs and empty settings.
std::optional<std::string> pictureFromSetting(const std::string& value) {
    if (value.empty()) return std::nullopt;
    if (value[0] == '/') return value;
    const QUrl url(QString::fromStdString(value));
    if (!url.isLocalFile()) return std::nullopt;
    const std::string path = url.toLocalFile().toStdString();
    if (path.empty()) return std::nullopt;
    return path;
}

}  // namespace

std::shared_ptr<VoDesktopPictureSource> VoDesktopPictureSource::standard() {
    static const std::shared_ptr<VoDesktopPictureSource> source = std::make_shared<VoDesktopSettingsPictures>();
    return source;
}

VoDesktopSettingsPictures::VoDesktopSettingsPictures(Desktop desktop, std::shared_ptr<VoTaskLauncher> launcher,
                                                     fs::path configHome)
    : fixed_(true), desktop_(desktop), launcher_(std::move(launcher)), configHome_(std::move(configHome)) {}

VoDesktopSettingsPictures::Desktop VoDesktopSettingsPictures::desktopFromName(const std::string& currentDesktop) {
    for (const QString& name : QString::fromStdString(currentDesktop).split(u':', Qt::SkipEmptyParts)) {
        const QString n = name.toUpper();
        if (n == u"GNOME" || n == u"UNITY" || n == u"BUDGIE" || n == u"GNOME-CLASSIC" || n == u"GNOME-FLASHBACK")
            return Desktop::Gnome;
        if (n == u"X-CINNAMON" || n == u"CINNAMON") return Desktop::Cinnamon;
        if (n == u"MATE") return Desktop::Mate;
        if (n == u"XFCE") return Desktop::Xfce;
        if (n == u"KDE") return Desktop::Plasma;
    }
    return Desktop::Unknown;
}

std::optional<std::string> VoDesktopSettingsPictures::desktopPicturePath(const VoScreen& screen, size_t position) {
    Desktop desktop = desktop_;
    std::shared_ptr<VoTaskLauncher> launcher = launcher_;
    fs::path configHome = configHome_;
    if (!fixed_) {
        const char* current = std::getenv("XDG_CURRENT_DESKTOP");
        desktop = desktopFromName(current ? current : "");
        launcher = VoTaskLauncher::standard();
        configHome = VoAutostartStore::folder().parent_path();
    }

    // One setting read through a command; nothing when the command fails or cannot start.
    auto read = [&](const char* program, std::vector<std::string> arguments) -> std::string {
        VoTaskRequest task{program, std::move(arguments), VoTaskStream::capture(), VoTaskStream::nullDevice()};
        try {
            const VoTaskResult result = launcher->launchAndWait(task);
            return result.terminationStatus == 0 ? result.output : std::string();
        } catch (const std::exception&) {
            return {};
        }
    };
    auto gsetting = [&](const char* schema, const char* key) {
        return unquoteSetting(read(kGsettingsPath, {"get", schema, key}));
    };

    switch (desktop) {
        case Desktop::Gnome: {
            if (gsetting("org.gnome.desktop.interface", "color-scheme") == "prefer-dark") {
                if (auto dark = pictureFromSetting(gsetting("org.gnome.desktop.background", "picture-uri-dark")))
                    return dark;
            }
            return pictureFromSetting(gsetting("org.gnome.desktop.background", "picture-uri"));
        }
        case Desktop::Cinnamon:
            return pictureFromSetting(gsetting("org.cinnamon.desktop.background", "picture-uri"));
        case Desktop::Mate:
            return pictureFromSetting(gsetting("org.mate.background", "picture-filename"));
        case Desktop::Xfce: {
            const std::string index = std::to_string(position);
            for (const std::string& property : {"/backdrop/screen0/monitor" + screen.name + "/workspace0/last-image",
                                                "/backdrop/screen0/monitor" + index + "/workspace0/last-image",
                                                "/backdrop/screen0/monitor" + index + "/image-path"}) {
                if (auto path = pictureFromSetting(
                        unquoteSetting(read(kXfconfQueryPath, {"-c", "xfce4-desktop", "-p", property}))))
                    return path;
            }
            return std::nullopt;
        }
        case Desktop::Plasma:
            return detail::plasmaWallpaper(configHome / "plasma-org.kde.plasma.desktop-appletsrc", position);
        case Desktop::Unknown:
            break;
    }
    return std::nullopt;
}

}  // namespace vo
