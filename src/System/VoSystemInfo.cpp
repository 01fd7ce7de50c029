// SPDX-License-Identifier: MIT
// The hardware queries of VoSystemInfo: rules over the snapshot's sections.
#include "VoSystemInfo.h"

#include <QVariantList>

#include "Common/Foundation/VoException.h"
#include "System/VoValueText_p.h"

namespace vo {

using detail::components;
using detail::equalsIgnoringCase;
using detail::textValue;

namespace {

const QString kHardware = QStringLiteral("SPHardwareDataType");
const QString kDisplays = QStringLiteral("SPDisplaysDataType");

QVariantList items(const QVariantMap& profile, const QString& section) {
    return profile.value(section).toMap().value(QStringLiteral("_items")).toList();
}

// Item 0 of a section; an empty map stands for a missing section or an empty "_items".
QVariantMap firstItem(const QVariantMap& profile, const QString& section) {
    const QVariantList list = items(profile, section);
    return list.isEmpty() ? QVariantMap() : list.first().toMap();
}

std::optional<QString> hardwareText(const char* key) {
    const auto profile = VoSystemInfo::systemProfile();
    if (!profile) return std::nullopt;
    return textValue(firstItem(*profile, kHardware).value(QString::fromLatin1(key)));
}

std::optional<std::string> toStd(const std::optional<QString>& s) {
    if (!s) return std::nullopt;
    return s->toStdString();
}

bool cpuTypeContains(std::initializer_list<const char*> parts) {
    const std::optional<std::string> type = VoSystemInfo::cpuType();
    if (!type) return false;
    const QString upper = QString::fromStdString(*type).toUpper();
    for (const char* part : parts)
        if (!upper.contains(QString::fromLatin1(part))) return false;
    return true;
}

}  // namespace

int VoSystemInfo::numberOfCores() {
    const auto profile = systemProfile();
    if (!profile) return 0;
    return detail::intValue(firstItem(*profile, kHardware).value(QStringLiteral("number_processors")));
}

int VoSystemInfo::numberOfProcessors() {
    const auto profile = systemProfile();
    if (!profile) return 0;
    const QVariantMap item = firstItem(*profile, kHardware);
    const QVariant packages = item.value(QStringLiteral("packages"));
    if (packages.isValid() && !packages.isNull()) return detail::intValue(packages);
    return detail::intValue(item.value(QStringLiteral("number_processors")));
}

int VoSystemInfo::processorSpeed() {
    const QStringList words = components(hardwareText("current_processor_speed"), QStringLiteral(" "));
    if (words.isEmpty()) return 0;
    float speed = detail::floatValue(words[0]);
    // The unit is read whenever there is a first word: a speed without one is an index error.
    if (words.size() < 2)
        throw VoException("NSRangeException", "index 1 beyond bounds [0 .. 0] of current_processor_speed words");
    if (equalsIgnoringCase(words[1], QStringLiteral("GHz"))) speed *= 1000.0f;
    return detail::truncatedInt(speed);
}

std::optional<std::string> VoSystemInfo::cpuType() {
    if (!hasSystemProfile()) return std::nullopt;
    return toStd(hardwareText("cpu_type")).value_or("Unknown CPU type");
}

std::optional<std::string> VoSystemInfo::machineName() {
    if (!hasSystemProfile()) return std::nullopt;
    return toStd(hardwareText("machine_name")).value_or("Unknown machine name");
}

std::optional<std::string> VoSystemInfo::machineModel() { return toStd(hardwareText("machine_model")); }

bool VoSystemInfo::powerPC() { return cpuTypeContains({"POWERPC"}); }
bool VoSystemInfo::powerPCG3() { return cpuTypeContains({"POWERPC", "G3"}); }
bool VoSystemInfo::powerPCG4() { return cpuTypeContains({"POWERPC", "G4"}); }
bool VoSystemInfo::powerPCG5() { return cpuTypeContains({"POWERPC", "G5"}); }
bool VoSystemInfo::intel() { return cpuTypeContains({"INTEL"}); }

int VoSystemInfo::mainMemory() {
    const auto profile = systemProfile();
    if (!profile) return 0;
    const QVariantMap item = firstItem(*profile, kHardware);
    const QStringList words = components(textValue(item.value(QStringLiteral("physical_memory"))), QStringLiteral(" "));
    if (words.isEmpty()) return 0;
    float memory = detail::floatValue(words[0]);
    if (words.size() >= 2 && equalsIgnoringCase(words[1], QStringLiteral("GB"))) memory *= 1024.0f;
    return detail::truncatedInt(memory);
}

std::optional<std::string> VoSystemInfo::videoVendor() {
    const auto profile = systemProfile();
    if (!profile) return std::nullopt;
    const QVariantMap item = firstItem(*profile, kDisplays);
    const QStringList words =
        components(textValue(item.value(QStringLiteral("spdisplays_vendor"))), QStringLiteral(" "));
    if (words.isEmpty()) return std::nullopt;
    return words[0].toStdString();
}

std::optional<std::string> VoSystemInfo::videoModel() {
    const auto profile = systemProfile();
    if (!profile) return std::nullopt;
    if (items(*profile, kDisplays).isEmpty()) return "Unknown";
    const std::optional<QString> model = textValue(firstItem(*profile, kDisplays).value(QStringLiteral("sppci_model")));
    const QStringList pieces = components(model, QStringLiteral("ATY,"));
    if (pieces.size() >= 2) return pieces[1].toStdString();
    return toStd(model);
}

bool VoSystemInfo::videoMemoryIntegratedShared() {
    const auto profile = systemProfile();
    if (!profile) return false;
    return firstItem(*profile, kDisplays).value(QStringLiteral("spdisplays_vram")).toString() ==
           QStringLiteral("spdisplays_integrated_vram");
}

int VoSystemInfo::videoMemory() {
    const auto profile = systemProfile();
    if (!profile) return 0;
    const QVariantMap item = firstItem(*profile, kDisplays);
    if (item.isEmpty()) return 0;
    std::optional<QString> vram = textValue(item.value(QStringLiteral("spdisplays_vram")));
    if (!vram) vram = textValue(item.value(QStringLiteral("_spdisplays_vram")));
    if (vram == QStringLiteral("spdisplays_integrated_vram")) return 64;
    const QStringList words = components(vram, QStringLiteral(" "));
    if (words.isEmpty()) return 0;
    const int megabytes = detail::intValue(words[0]);
    if (words.size() >= 2 && equalsIgnoringCase(words[1], QStringLiteral("GB")))
        return int(std::uint32_t(megabytes) * 1024u);  // wraps like the platform's 32-bit arithmetic
    return megabytes;
}

bool VoSystemInfo::videoCoreImageSupported() {
    const auto profile = systemProfile();
    if (!profile) return false;
    if (isPostLeopard()) return true;
    for (const QVariant& entry : items(*profile, kDisplays)) {
        const QVariantMap item = entry.toMap();
        if (item.isEmpty()) continue;
        for (const QVariant& driver : item.value(QStringLiteral("spdisplays_ndrvs")).toList()) {
            const std::optional<QString> support =
                textValue(driver.toMap().value(QStringLiteral("spdisplays_coreimage")));
            if (!support) continue;
            if (equalsIgnoringCase(*support, QStringLiteral("spdisplays_supported")) ||
                equalsIgnoringCase(*support, QStringLiteral("spdisplays_hardware")) ||
                equalsIgnoringCase(*support, QStringLiteral("spdisplays_software")))
                return true;
        }
    }
    return false;
}

}  // namespace vo
