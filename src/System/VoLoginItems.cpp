// SPDX-License-Identifier: MIT
#include "VoLoginItems.h"

#include <QString>
#include <QStringList>

#include "Common/Foundation/VoLog.h"
#include "System/VoAutostartStore.h"
#include "System/VoValueText_p.h"

namespace vo {

namespace {

std::shared_ptr<VoLoginItemStore> gStore;

std::shared_ptr<VoLoginItemStore> store() {
    if (gStore) return gStore;
    static const std::shared_ptr<VoLoginItemStore> autostart = std::make_shared<VoAutostartStore>();
    return autostart;
}

}  // namespace

std::optional<std::string> VoLoginItems::isLoginItem(const std::string& applicationName) {
    const std::string listing = store()->listItemPaths();
    if (listing.empty()) return std::nullopt;
    const QString text = QString::fromUtf8(listing.data(), qsizetype(listing.size())).trimmed();
    for (const QString& piece : text.split(QStringLiteral(", "), Qt::KeepEmptyParts)) {
        const std::string path = piece.trimmed().toStdString();
        if (detail::lastPathComponent(path) == applicationName) return path;
    }
    return std::nullopt;
}

void VoLoginItems::removeLoginItem(const std::string& applicationName) {
    std::string name = applicationName;
    if (detail::pathExtension(name) == "app") name.resize(name.size() - 4);
    VoLog("remove login item " + name);
    store()->deleteItemNamed(name);
}

void VoLoginItems::addLoginItem(const std::string& applicationPath) {
    VoLog("adding login item " + applicationPath);
    store()->makeItemAtEnd(applicationPath);
}

void VoLoginItems::setStore(std::shared_ptr<VoLoginItemStore> s) { gStore = std::move(s); }

}  // namespace vo
