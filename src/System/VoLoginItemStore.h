// SPDX-License-Identifier: MIT
// The store behind VoLoginItems: the user's login items (applications started at log-in), each with a
// path and a name. The real store is the XDG autostart folder (VoAutostartStore); tests use fakes.
#pragma once

#include <string>

namespace vo {

class VoLoginItemStore {
public:
    virtual ~VoLoginItemStore() = default;

    // The path of every login item in list order, joined by ", " and followed by a line end; an empty
    // text when there are none.
    [[nodiscard]] virtual std::string listItemPaths() = 0;
    // Deletes every login item named `name` (an application's name, without extension).
    virtual void deleteItemNamed(const std::string& name) = 0;
    // Adds a login item for the application at `path` at the end of the list, not hidden.
    virtual void makeItemAtEnd(const std::string& path) = 0;
};

}  // namespace vo
