// SPDX-License-Identifier: MIT
// The graphics section: one item per DRM graphics device, with the displays connected to it.
#include <QVariantList>
#include <QVariantMap>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>

#include "profile_sections.h"
#include "profile_text_p.h"

namespace vo::profiler {

namespace fs = std::filesystem;

namespace {

// Short vendor names, so that the first word of the vendor text is the vendor.
const std::map<unsigned, const char*>& vendorNames() {
    static const std::map<unsigned, const char*> names = {
        {0x1002, "AMD"},     {0x102b, "Matrox"},    {0x10de, "NVIDIA"}, {0x1234, "QEMU"},
        {0x13b5, "ARM"},     {0x1414, "Microsoft"}, {0x15ad, "VMware"}, {0x1a03, "ASPEED"},
        {0x1af4, "Red Hat"}, {0x5143, "Qualcomm"},  {0x8086, "Intel"},  {0x80ee, "VirtualBox"},
    };
    return names;
}

std::string hex4(unsigned id) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%04x", id);
    return text;
}

std::optional<unsigned> hexId(const fs::path& file) {
    const auto line = readFirstLine(file);
    if (!line) return std::nullopt;
    try {
        return unsigned(std::stoul(*line, nullptr, 16));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Vendor and device names from the PCI ID list when it is installed.
struct PciNames {
    std::string vendor, device;
};
PciNames pciNames(const fs::path& root, unsigned vendor, unsigned device) {
    for (const char* list : {"usr/share/misc/pci.ids", "usr/share/hwdata/pci.ids"}) {
        std::ifstream in(under(root, list));
        if (!in) continue;
        PciNames names;
        const std::string vendorKey = hex4(vendor).substr(2), deviceKey = hex4(device).substr(2);
        bool inVendor = false;
        std::string line;
        while (std::getline(in, line)) {
            if (line.empty() || line[0] == '#') continue;
            if (line[0] != '\t') {
                if (inVendor) break;
                if (line.rfind(vendorKey + "  ", 0) == 0) {
                    inVendor = true;
                    names.vendor = trim(line.substr(6));
                }
            } else if (inVendor && line.size() > 1 && line[1] != '\t' && line.rfind("\t" + deviceKey + "  ", 0) == 0) {
                names.device = trim(line.substr(7));
                break;
            }
        }
        return names;
    }
    return {};
}

// The monitor name of an EDID block (display descriptor 0xFC), if it has one.
std::string edidName(const fs::path& file) {
    const std::string edid = readFile(file).value_or("");
    if (edid.size() < 128) return {};
    for (size_t d = 54; d + 18 <= 126; d += 18) {
        if (edid[d] != 0 || edid[d + 1] != 0 || edid[d + 2] != 0 || std::uint8_t(edid[d + 3]) != 0xFC) continue;
        std::string name = edid.substr(d + 5, 13);
        name = name.substr(0, name.find('\n'));
        return trim(name);
    }
    return {};
}

QVariantList connectedDisplays(const fs::path& drm, const std::string& card) {
    std::vector<fs::path> connectors;
    std::error_code ec;
    for (const fs::directory_entry& e : fs::directory_iterator(drm, ec))
        if (e.path().filename().string().rfind(card + "-", 0) == 0) connectors.push_back(e.path());
    std::sort(connectors.begin(), connectors.end());
    QVariantList displays;
    for (const fs::path& c : connectors) {
        if (readFirstLine(c / "status").value_or("") != "connected") continue;
        const std::string connector = c.filename().string().substr(card.size() + 1);
        const std::string name = edidName(c / "edid");
        QVariantMap display;
        display.insert("_name", QString::fromStdString(name.empty() ? connector : name));
        display.insert("spdisplays_connector", QString::fromStdString(connector));
        // The first mode listed is the preferred one: "1920x1080".
        if (const auto mode = readFirstLine(c / "modes"); mode && mode->find('x') != std::string::npos) {
            const size_t x = mode->find('x');
            display.insert("spdisplays_resolution",
                           QString::fromStdString(mode->substr(0, x) + " x " + mode->substr(x + 1)));
        }
        // The toolkit renders its images on the processor, so every display can show them.
        display.insert("spdisplays_coreimage", "spdisplays_supported");
        displays.append(display);
    }
    return displays;
}

QVariantMap graphicsDevice(const fs::path& root, const fs::path& drm, const std::string& card) {
    const fs::path device = drm / card / "device";
    const auto uevent = keyValueLines(readFile(device / "uevent").value_or(""));
    std::string driver = uevent.count("DRIVER") ? uevent.at("DRIVER") : "";
    if (driver.empty()) {
        std::error_code ec;
        driver = fs::read_symlink(device / "driver", ec).filename().string();
    }
    const std::optional<unsigned> vendorId = hexId(device / "vendor");
    const std::optional<unsigned> deviceId = hexId(device / "device");

    QVariantMap item;
    std::string vendor, model;
    if (vendorId) {
        const PciNames names = pciNames(root, *vendorId, deviceId.value_or(0));
        const auto known = vendorNames().find(*vendorId);
        const std::string vendorName = known != vendorNames().end() ? known->second : names.vendor;
        vendor = (vendorName.empty() ? "" : vendorName + " ") + "(" + hex4(*vendorId) + ")";
        model = !names.device.empty() ? names.device
                                      : (vendorName.empty() ? "" : vendorName + " ") +
                                            (driver.empty() ? hex4(deviceId.value_or(0)) : driver);
    } else {
        // A graphics block of a system on a chip: only its driver names it.
        model = driver.empty() ? card : driver;
    }
    item.insert("_name", QString::fromStdString(model));
    item.insert("sppci_model", QString::fromStdString(model));
    if (!vendor.empty()) item.insert("spdisplays_vendor", QString::fromStdString(vendor));
    if (const auto vram = readFirstLine(device / "mem_info_vram_total"))
        item.insert("spdisplays_vram",
                    QString::fromStdString(formatVideoMemory(std::strtoull(vram->c_str(), nullptr, 10))));
    else if (vendorId == 0x8086u)
        item.insert("spdisplays_vram", "spdisplays_integrated_vram");
    if (deviceId) item.insert("spdisplays_device-id", QString::fromStdString(hex4(*deviceId)));
    if (vendorId) item.insert("spdisplays_vendor-id", QString::fromStdString(hex4(*vendorId)));
    const QVariantList displays = connectedDisplays(drm, card);
    if (!displays.isEmpty()) item.insert("spdisplays_ndrvs", displays);
    return item;
}

}  // namespace

QVariantList graphicsDevices(const fs::path& root) {
    const fs::path drm = under(root, "sys/class/drm");
    std::vector<std::pair<int, std::string>> cards;
    std::error_code ec;
    for (const fs::directory_entry& e : fs::directory_iterator(drm, ec)) {
        const std::string name = e.path().filename().string();
        if (name.size() <= 4 || name.rfind("card", 0) != 0) continue;
        if (!std::all_of(name.begin() + 4, name.end(), [](char c) { return c >= '0' && c <= '9'; })) continue;
        cards.push_back({std::stoi(name.substr(4)), name});
    }
    std::sort(cards.begin(), cards.end());
    QVariantList items;
    for (const auto& [number, card] : cards) items.append(graphicsDevice(root, drm, card));
    return items;
}

}  // namespace vo::profiler
