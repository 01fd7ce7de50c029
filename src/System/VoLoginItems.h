// SPDX-License-Identifier: MIT
// VoLoginItems: lists, adds and removes the user's login items. Each operation blocks until the store
// has done its work; failures of the store are not reported (a failing listing finds nothing).
// All members are static.
#pragma once

#include <memory>
#include <optional>
#include <string>

namespace vo {

class VoLoginItemStore;

class VoLoginItems {
public:
    // The full path of the first login item whose last path component equals `applicationName` exactly
    // (case and extension included: "B" does not match "/Applications/B.app"), or nothing. The listing
    // is split at ", ", so a path that itself contains ", " is never found whole.
    [[nodiscard]] static std::optional<std::string> isLoginItem(const std::string& applicationName);
    // Deletes the login item named `applicationName`, with an "app" extension cut off first ("B.app"
    // addresses the item B). Logs "remove login item NAME" with the adjusted name.
    static void removeLoginItem(const std::string& applicationName);
    // Adds the application at `applicationPath` at the end of the list, not hidden. Logs
    // "adding login item PATH".
    static void addLoginItem(const std::string& applicationPath);

    // The store used; null restores the XDG autostart folder.
    static void setStore(std::shared_ptr<VoLoginItemStore> store);
};

}  // namespace vo
