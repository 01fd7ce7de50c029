// SPDX-License-Identifier: MIT
#include <QGuiApplication>
#include <QScreen>

#include "System/VoQtScreenSource_p.h"
#include "System/VoScreenSource.h"

namespace vo {

namespace detail {

NSRect globalRectFromQt(const QRect& rect, const QRect& mainGeometry) {
    const int mainBottom = mainGeometry.y() + mainGeometry.height();
    return {{float(rect.x() - mainGeometry.x()), float(mainBottom - (rect.y() + rect.height()))},
            {float(rect.width()), float(rect.height())}};
}

std::uint32_t screenNumberFor(const QString& name, const QString& manufacturer, const QString& model,
                              const QString& serialNumber) {
    const QByteArray identity = (name + u'\n' + manufacturer + u'\n' + model + u'\n' + serialNumber).toUtf8();
    std::uint32_t hash = 2166136261u;
    for (const char c : identity) {
        hash ^= std::uint8_t(c);
        hash *= 16777619u;
    }
    return hash == 0 ? 1 : hash;
}

}  // namespace detail

namespace {

class QtScreenSource final : public VoScreenSource {
public:
    std::vector<VoScreen> screens() override {
        if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance())) return {};
        QScreen* primary = QGuiApplication::primaryScreen();
        if (!primary) return {};
        QList<QScreen*> list = QGuiApplication::screens();
        list.removeAll(primary);
        list.prepend(primary);
        const QRect main = primary->geometry();
        std::vector<VoScreen> result;
        for (QScreen* s : list) {
            VoScreen screen;
            screen.screenNumber = detail::screenNumberFor(s->name(), s->manufacturer(), s->model(), s->serialNumber());
            screen.frame = detail::globalRectFromQt(s->geometry(), main);
            screen.visibleFrame = detail::globalRectFromQt(s->availableGeometry(), main);
            screen.name = s->name().toStdString();
            result.push_back(std::move(screen));
        }
        return result;
    }
};

}  // namespace

std::shared_ptr<VoScreenSource> VoScreenSource::standard() {
    static const std::shared_ptr<VoScreenSource> source = std::make_shared<QtScreenSource>();
    return source;
}

}  // namespace vo
