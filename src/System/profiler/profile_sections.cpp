// SPDX-License-Identifier: MIT
// The hardware and software sections, the formats of speeds and sizes, and the assembled profile.
#include "profile_sections.h"

#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <QDateTime>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <set>

#include "profile_text_p.h"

namespace vo::profiler {

namespace {

using Blocks = std::vector<std::map<std::string, std::string>>;

// The leading decimal number of a text, whatever the process locale; 0 when there is none.
double number(const std::string& text) {
    double result = 0;
    const std::string t = trim(text);
    std::from_chars(t.data(), t.data() + t.size(), result);
    return result;
}

std::string value(const std::map<std::string, std::string>& block, const char* key) {
    const auto it = block.find(key);
    return it == block.end() ? std::string() : it->second;
}

// Firmware fills unused DMI fields with texts like these; they name nothing.
bool meaningful(const std::string& text) {
    static const std::set<std::string> placeholders = {"",
                                                       "To be filled by O.E.M.",
                                                       "To Be Filled By O.E.M.",
                                                       "System Product Name",
                                                       "System Version",
                                                       "Default string",
                                                       "Not Specified",
                                                       "Not Applicable",
                                                       "None",
                                                       "0123456789",
                                                       "Type1ProductConfigId",
                                                       "Unknown"};
    return !placeholders.count(text);
}

std::string cpuType(const Blocks& cpus) {
    // x86 and most ARM kernels: "model name"; older ARM: "Processor"; PowerPC: "cpu".
    for (const char* key : {"model name", "Processor", "cpu"}) {
        for (const auto& cpu : cpus) {
            std::string text = value(cpu, key);
            if (text.empty()) continue;
            // Collapse the runs of blanks some processors pad their brand string with.
            std::string collapsed;
            for (const char c : text)
                if (!(c == ' ' && !collapsed.empty() && collapsed.back() == ' ')) collapsed += c;
            return collapsed;
        }
    }
    return {};
}

// The processors listed; with core and package numbers, the distinct cores and packages.
void countProcessors(const Blocks& cpus, QVariantMap& item) {
    int logical = 0;
    bool topology = true;
    std::set<std::pair<std::string, std::string>> cores;
    std::set<std::string> packages;
    for (const auto& cpu : cpus) {
        if (!cpu.count("processor")) continue;
        ++logical;
        const std::string package = value(cpu, "physical id"), core = value(cpu, "core id");
        if (package.empty() || core.empty()) {
            topology = false;
            continue;
        }
        cores.insert({package, core});
        packages.insert(package);
    }
    if (logical == 0) return;
    item.insert("number_processors", topology ? int(cores.size()) : logical);
    if (topology) item.insert("packages", int(packages.size()));
}

std::optional<double> processorMegahertz(const std::filesystem::path& root, const Blocks& cpus) {
    // The rated frequency when the kernel knows it (kHz); else the current clock the kernel reports.
    for (const char* file : {"sys/devices/system/cpu/cpu0/cpufreq/base_frequency",
                             "sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq"}) {
        if (const auto line = readFirstLine(under(root, file))) {
            const double khz = number(*line);
            if (khz > 0) return khz / 1000.0;
        }
    }
    for (const auto& cpu : cpus) {
        const double mhz = number(value(cpu, "cpu MHz"));
        if (mhz > 0) return mhz;
    }
    return std::nullopt;
}

void machineNames(const std::filesystem::path& root, QVariantMap& item) {
    const std::string dmi = "sys/class/dmi/id/";
    const std::string product = readFirstLine(under(root, dmi + "product_name")).value_or("");
    const std::string version = readFirstLine(under(root, dmi + "product_version")).value_or("");
    if (meaningful(product)) {
        item.insert("machine_name", QString::fromStdString(product));
        item.insert("machine_model", QString::fromStdString(meaningful(version) ? product + " " + version : product));
        return;
    }
    // Boards without DMI (most ARM machines) name themselves in the device tree.
    if (const auto model = readFirstLine(under(root, "proc/device-tree/model")))
        item.insert("machine_name", QString::fromStdString(*model));
}

QVariantMap section(const std::string& dataType, QVariantList items) {
    QVariantMap s;
    s.insert("_dataType", QString::fromStdString(dataType));
    s.insert("_detailLevel", 0);
    s.insert("_items", items);
    s.insert("_timeStamp", QDateTime::currentDateTimeUtc());
    return s;
}

}  // namespace

std::vector<std::string> knownDataTypes() { return {"SPHardwareDataType", "SPDisplaysDataType", "SPSoftwareDataType"}; }

QVariantMap hardwareOverview(const std::filesystem::path& root) {
    QVariantMap item;
    item.insert("_name", "hardware_overview");
    machineNames(root, item);
    const Blocks cpus = colonBlocks(readFile(under(root, "proc/cpuinfo")).value_or(""));
    if (const std::string type = cpuType(cpus); !type.empty()) item.insert("cpu_type", QString::fromStdString(type));
    countProcessors(cpus, item);
    if (const auto mhz = processorMegahertz(root, cpus))
        item.insert("current_processor_speed", QString::fromStdString(formatProcessorSpeed(*mhz)));
    for (const auto& block : colonBlocks(readFile(under(root, "proc/meminfo")).value_or(""))) {
        if (const std::string total = value(block, "MemTotal"); !total.empty())
            item.insert("physical_memory",
                        QString::fromStdString(formatMemory(std::strtoull(total.c_str(), nullptr, 10))));
    }
    return item;
}

QVariantMap softwareOverview(const std::filesystem::path& root) {
    QVariantMap item;
    item.insert("_name", "os_overview");
    const auto release = keyValueLines(readFile(under(root, "etc/os-release")).value_or(""));
    if (const auto it = release.find("PRETTY_NAME"); it != release.end())
        item.insert("os_version", QString::fromStdString(it->second));
    if (utsname names{}; ::uname(&names) == 0)
        item.insert("kernel_version", QString::fromStdString(std::string(names.sysname) + " " + names.release));
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) == 0) item.insert("local_host_name", QString::fromLocal8Bit(host));
    if (const passwd* pw = ::getpwuid(::getuid())) {
        // "Full Name (login)", the full name being the first field of the GECOS entry.
        std::string full = pw->pw_gecos ? pw->pw_gecos : "";
        full = full.substr(0, full.find(','));
        item.insert("user_name",
                    QString::fromLocal8Bit(full.empty() ? pw->pw_name : (full + " (" + pw->pw_name + ")").c_str()));
    }
    return item;
}

QVariantList profile(const std::vector<std::string>& dataTypes, const std::filesystem::path& root) {
    const std::vector<std::string> wanted = dataTypes.empty() ? knownDataTypes() : dataTypes;
    QVariantList sections;
    for (const std::string& type : wanted) {
        if (type == "SPHardwareDataType")
            sections.append(section(type, {hardwareOverview(root)}));
        else if (type == "SPDisplaysDataType")
            sections.append(section(type, graphicsDevices(root)));
        else if (type == "SPSoftwareDataType")
            sections.append(section(type, {softwareOverview(root)}));
    }
    return sections;
}

std::string formatProcessorSpeed(double megahertz) {
    const long long mhz = std::llround(megahertz);
    char text[64];
    if (mhz < 1000) {
        std::snprintf(text, sizeof text, "%lld MHz", mhz);
        return text;
    }
    std::snprintf(text, sizeof text, "%.2f", double(mhz) / 1000.0);
    std::string number = text;
    while (number.back() == '0') number.pop_back();
    if (number.back() == '.') number.pop_back();
    return number + " GHz";
}

std::string formatMemory(unsigned long long kilobytes) {
    const unsigned long long megabytes = kilobytes / 1024;
    char text[64];
    if (megabytes >= 1024)
        std::snprintf(text, sizeof text, "%llu GB", (unsigned long long)std::llround(double(megabytes) / 1024.0));
    else
        std::snprintf(text, sizeof text, "%llu MB", megabytes);
    return text;
}

std::string formatVideoMemory(unsigned long long bytes) {
    const unsigned long long megabytes = bytes / (1024 * 1024);
    char text[64];
    if (megabytes >= 1024 && megabytes % 1024 == 0)
        std::snprintf(text, sizeof text, "%llu GB", megabytes / 1024);
    else
        std::snprintf(text, sizeof text, "%llu MB", megabytes);
    return text;
}

}  // namespace vo::profiler
