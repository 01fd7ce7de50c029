// SPDX-License-Identifier: MIT
// The profiler program: its real output on this machine through the loader, its sections over a fake
// /proc and /sys tree, its formats and its command line.
#include <gtest/gtest.h>

#include <QDateTime>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "System/VoPropertyList_p.h"
#include "System/VoSystemInfo.h"
#include "System/VoSystemInfo_p.h"
#include "System/VoTaskLauncher.h"
#include "System/profiler/profile_sections.h"
#include "system_test_support.h"

namespace vo {
namespace {

namespace fs = std::filesystem;

// --- The real profiler on this machine -------------------------------------------------------------------

struct ProcFacts {
    int logical = 0;
    std::set<std::pair<std::string, std::string>> cores;
    std::string modelName;
    long long memTotalKb = 0;
};

std::string trimmed(std::string s) {
    s.erase(0, s.find_first_not_of(" \t"));
    s.erase(s.find_last_not_of(" \t") + 1);
    return s;
}

ProcFacts procFacts() {
    ProcFacts facts;
    std::ifstream cpuinfo("/proc/cpuinfo");
    std::string line, physical, core;
    while (std::getline(cpuinfo, line)) {
        const size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        const std::string k = trimmed(line.substr(0, colon)), v = trimmed(line.substr(colon + 1));
        if (k == "processor") ++facts.logical;
        if (k == "model name" && facts.modelName.empty()) facts.modelName = v;
        if (k == "physical id") physical = v;
        if (k == "core id") facts.cores.insert({physical, v});
    }
    std::ifstream meminfo("/proc/meminfo");
    std::string name;
    while (meminfo >> name) {
        if (name == "MemTotal:") {
            meminfo >> facts.memTotalKb;
            break;
        }
        std::getline(meminfo, line);
    }
    return facts;
}

class VoSystemProfilerReal : public ::testing::Test {
protected:
    void SetUp() override { VoSystemInfo::setSystemProfileFilePath((dir_.path() / "profile.xml").string()); }
    void TearDown() override {
        VoSystemInfo::setSystemProfileFilePath("");
        detail::discardSystemProfile();
    }
    test::TempDir dir_;
};

TEST_F(VoSystemProfilerReal, OutputParsesAndAgreesWithProc) {
    test::ScopedEnv unset("VO_SYSTEM_PROFILER", std::nullopt);
    VoSystemInfo::preloadSystemProfileWithDoneSelectorSystemAndDisplayOnly(nullptr, nullptr, true);
    ASSERT_TRUE(VoSystemInfo::hasSystemProfile());
    const auto profile = VoSystemInfo::systemProfile();
    EXPECT_EQ(profile->keys(), QStringList({"SPDisplaysDataType", "SPHardwareDataType"}));
    EXPECT_FALSE(fs::exists(VoSystemInfo::systemProfileFilePath()));

    const ProcFacts facts = procFacts();
    ASSERT_GT(facts.logical, 0);
    const int cores = facts.cores.empty() ? facts.logical : int(facts.cores.size());
    EXPECT_EQ(VoSystemInfo::numberOfCores(), cores);
    EXPECT_GE(VoSystemInfo::numberOfProcessors(), 1);
    EXPECT_LE(VoSystemInfo::numberOfProcessors(), cores);
    // Whole gigabytes: within half a gigabyte of what the kernel counts.
    ASSERT_GT(facts.memTotalKb, 0);
    EXPECT_NEAR(VoSystemInfo::mainMemory(), double(facts.memTotalKb) / 1024.0, 512.0);
    if (!facts.modelName.empty()) {
        std::string collapsed;
        for (char c : facts.modelName)
            if (!(c == ' ' && !collapsed.empty() && collapsed.back() == ' ')) collapsed += c;
        EXPECT_EQ(VoSystemInfo::cpuType(), collapsed);
        EXPECT_EQ(VoSystemInfo::intel(), QString::fromStdString(collapsed).toUpper().contains("INTEL"));
    }
    EXPECT_GT(VoSystemInfo::processorSpeed(), 0);
    EXPECT_TRUE(VoSystemInfo::machineName().has_value());
    EXPECT_TRUE(VoSystemInfo::videoModel().has_value());
}

TEST_F(VoSystemProfilerReal, FullProfileHasEverySectionItKnows) {
    VoSystemInfo::setSystemProfilerPath(VO_SYSTEM_PROFILER_PATH);
    VoSystemInfo::loadSystemProfile({});
    VoSystemInfo::setSystemProfilerPath("");
    const auto profile = VoSystemInfo::systemProfile();
    ASSERT_TRUE(profile);
    EXPECT_EQ(profile->keys(), QStringList({"SPDisplaysDataType", "SPHardwareDataType", "SPSoftwareDataType"}));
    const QVariantMap software = profile->value("SPSoftwareDataType").toMap().value("_items").toList().value(0).toMap();
    EXPECT_TRUE(software.value("kernel_version").toString().contains(QString::fromStdString([] {
        std::string joined;
        for (const auto& p : VoSystemInfo::darwinKernelVerion()) joined += (joined.empty() ? "" : ".") + p;
        return joined;
    }())));
}

VoTaskResult runProfiler(std::vector<std::string> arguments) {
    return VoTaskLauncher::standard()->launchAndWait(
        {VO_SYSTEM_PROFILER_PATH, std::move(arguments), VoTaskStream::capture(), VoTaskStream::capture()});
}

TEST(VoSystemProfilerProgram, CommandLine) {
    const VoTaskResult list = runProfiler({"-listDataTypes"});
    EXPECT_EQ(list.terminationStatus, 0);
    EXPECT_EQ(list.output, "SPHardwareDataType\nSPDisplaysDataType\nSPSoftwareDataType\n");

    const VoTaskResult bad = runProfiler({"-bogus"});
    EXPECT_EQ(bad.terminationStatus, 1);
    EXPECT_NE(bad.errorOutput.find("usage:"), std::string::npos);

    const VoTaskResult text = runProfiler({"SPHardwareDataType"});
    EXPECT_EQ(text.terminationStatus, 0);
    EXPECT_EQ(text.output.rfind("SPHardwareDataType:\n", 0), 0u);
    EXPECT_NE(text.output.find("physical_memory: "), std::string::npos);

    // Unknown data types are skipped; the known one is still written.
    const VoTaskResult xml = runProfiler({"-xml", "SPNoSuchDataType", "SPSoftwareDataType"});
    EXPECT_EQ(xml.terminationStatus, 0);
    const auto root = detail::propertyListFromBytes(xml.output);
    ASSERT_TRUE(root);
    const QVariantList sections = root->toList();
    ASSERT_EQ(sections.size(), 1);
    EXPECT_EQ(sections[0].toMap().value("_dataType"), "SPSoftwareDataType");
    EXPECT_EQ(sections[0].toMap().value("_timeStamp").typeId(), QMetaType::QDateTime);
}

// --- The sections over a fake machine --------------------------------------------------------------------

const char* kIntelCpuinfo =
    "processor\t: 0\nvendor_id\t: GenuineIntel\nmodel name\t: Intel(R) Core(TM)   i7-8700 CPU @ 3.20GHz\n"
    "physical id\t: 0\ncore id\t\t: 0\ncpu MHz\t\t: 799.987\n\n"
    "processor\t: 1\nmodel name\t: Intel(R) Core(TM)   i7-8700 CPU @ 3.20GHz\nphysical id\t: 0\ncore id\t\t: 1\n\n"
    "processor\t: 2\nmodel name\t: Intel(R) Core(TM)   i7-8700 CPU @ 3.20GHz\nphysical id\t: 0\ncore id\t\t: 0\n\n"
    "processor\t: 3\nmodel name\t: Intel(R) Core(TM)   i7-8700 CPU @ 3.20GHz\nphysical id\t: 0\ncore id\t\t: 1\n\n";

class VoSystemProfilerSections : public ::testing::Test {
protected:
    void file(const std::string& path, const std::string& text) { test::writeFile(dir_.path() / path, text); }
    const fs::path& root() const { return dir_.path(); }
    test::TempDir dir_;
};

TEST_F(VoSystemProfilerSections, HardwareFromCpuinfoMeminfoAndDmi) {
    file("proc/cpuinfo", kIntelCpuinfo);
    file("proc/meminfo", "MemTotal:       16318480 kB\nMemFree:         1000 kB\n");
    file("sys/devices/system/cpu/cpu0/cpufreq/base_frequency", "3200000\n");
    file("sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", "4600000\n");
    file("sys/class/dmi/id/product_name", "OptiPlex 7060\n");
    file("sys/class/dmi/id/product_version", "Not Specified\n");
    const QVariantMap item = profiler::hardwareOverview(root());
    EXPECT_EQ(item.value("cpu_type"), "Intel(R) Core(TM) i7-8700 CPU @ 3.20GHz");
    EXPECT_EQ(item.value("number_processors"), 2);  // four threads on two cores
    EXPECT_EQ(item.value("packages"), 1);
    EXPECT_EQ(item.value("current_processor_speed"), "3.2 GHz");  // the rated clock, not the boost
    EXPECT_EQ(item.value("physical_memory"), "16 GB");
    EXPECT_EQ(item.value("machine_name"), "OptiPlex 7060");
    EXPECT_EQ(item.value("machine_model"), "OptiPlex 7060");
}

TEST_F(VoSystemProfilerSections, HardwareFallbacks) {
    // No topology, no frequency files, no DMI: processors counted, the kernel's clock, the device tree.
    file("proc/cpuinfo",
         "processor\t: 0\nProcessor\t: ARMv7 Processor rev 4 (v7l)\ncpu MHz\t: 800\n\nprocessor\t: 1\n\n");
    file("proc/meminfo", "MemTotal:         524288 kB\n");
    file("proc/device-tree/model", std::string("Raspberry Pi 3 Model B Rev 1.2\0", 31));
    const QVariantMap item = profiler::hardwareOverview(root());
    EXPECT_EQ(item.value("cpu_type"), "ARMv7 Processor rev 4 (v7l)");
    EXPECT_EQ(item.value("number_processors"), 2);
    EXPECT_FALSE(item.contains("packages"));
    EXPECT_EQ(item.value("current_processor_speed"), "800 MHz");
    EXPECT_EQ(item.value("physical_memory"), "512 MB");
    EXPECT_EQ(item.value("machine_name"), "Raspberry Pi 3 Model B Rev 1.2");
    EXPECT_FALSE(item.contains("machine_model"));
}

TEST_F(VoSystemProfilerSections, NothingKnownLeavesTheKeysOut) {
    const QVariantMap item = profiler::hardwareOverview(root());
    EXPECT_EQ(item.keys(), QStringList({"_name"}));
    EXPECT_TRUE(profiler::graphicsDevices(root()).isEmpty());
}

std::string edidNamed(const std::string& name) {
    std::string edid(128, '\0');
    const size_t d = 72;  // the second descriptor
    edid[d + 3] = char(0xFC);
    std::string text = name + "\n";
    text.resize(13, ' ');
    edid.replace(d + 5, 13, text);
    return edid;
}

TEST_F(VoSystemProfilerSections, GraphicsDevicesWithTheirConnectedDisplays) {
    // card1: a discrete AMD board with its memory size; card0: Intel graphics sharing main memory.
    file("sys/class/drm/card0/device/vendor", "0x8086\n");
    file("sys/class/drm/card0/device/device", "0x3e92\n");
    file("sys/class/drm/card0/device/uevent", "DRIVER=i915\nPCI_ID=8086:3E92\n");
    file("sys/class/drm/card0-HDMI-A-1/status", "connected\n");
    file("sys/class/drm/card0-HDMI-A-1/modes", "2560x1440\n1920x1080\n");
    file("sys/class/drm/card0-HDMI-A-1/edid", edidNamed("DELL U2715H"));
    file("sys/class/drm/card0-DP-1/status", "disconnected\n");
    file("sys/class/drm/card1/device/vendor", "0x1002\n");
    file("sys/class/drm/card1/device/device", "0x73bf\n");
    file("sys/class/drm/card1/device/uevent", "DRIVER=amdgpu\n");
    file("sys/class/drm/card1/device/mem_info_vram_total", "17163091968\n");
    file("sys/class/drm/card1-DP-2/status", "connected\n");
    file("sys/class/drm/card1-DP-2/modes", "3840x2160\n");
    file("sys/class/drm/renderD128/dev", "226:128\n");
    file("usr/share/misc/pci.ids",
         "# comment\n1002  Advanced Micro Devices, Inc. [AMD/ATI]\n\t73bf  Navi 21 [Radeon RX 6800/6800 XT / 6900 XT]\n"
         "\t\t1002 0e3a  Radeon RX 6900 XT\n8086  Intel Corporation\n\t3e91  CoffeeLake-S GT2\n");
    const QVariantList items = profiler::graphicsDevices(root());
    ASSERT_EQ(items.size(), 2);

    const QVariantMap intel = items[0].toMap();
    EXPECT_EQ(intel.value("spdisplays_vendor"), "Intel (0x8086)");
    EXPECT_EQ(intel.value("sppci_model"), "Intel i915");  // not in the ID list: vendor and driver
    EXPECT_EQ(intel.value("spdisplays_vram"), "spdisplays_integrated_vram");
    const QVariantList intelDisplays = intel.value("spdisplays_ndrvs").toList();
    ASSERT_EQ(intelDisplays.size(), 1);
    EXPECT_EQ(intelDisplays[0].toMap().value("_name"), "DELL U2715H");
    EXPECT_EQ(intelDisplays[0].toMap().value("spdisplays_connector"), "HDMI-A-1");
    EXPECT_EQ(intelDisplays[0].toMap().value("spdisplays_resolution"), "2560 x 1440");
    EXPECT_EQ(intelDisplays[0].toMap().value("spdisplays_coreimage"), "spdisplays_supported");

    const QVariantMap amd = items[1].toMap();
    EXPECT_EQ(amd.value("spdisplays_vendor"), "AMD (0x1002)");
    EXPECT_EQ(amd.value("sppci_model"), "Navi 21 [Radeon RX 6800/6800 XT / 6900 XT]");
    EXPECT_EQ(amd.value("spdisplays_vram"), "16368 MB");
    EXPECT_EQ(amd.value("spdisplays_ndrvs").toList().value(0).toMap().value("_name"), "DP-2");
}

TEST_F(VoSystemProfilerSections, GraphicsFactsReadBackThroughTheQueries) {
    file("sys/class/drm/card0/device/vendor", "0x8086\n");
    file("sys/class/drm/card0/device/device", "0x3e92\n");
    file("proc/meminfo", "MemTotal:       8000000 kB\n");
    const std::string xml = detail::xmlPropertyList(profiler::profile({}, root()));
    test::TempDir dir;
    VoSystemInfo::setSystemProfileFilePath((dir.path() / "p.xml").string());
    VoSystemInfo::setTaskLauncher(test::profilerWriting(xml));
    VoSystemInfo::loadSystemProfile({});
    EXPECT_EQ(VoSystemInfo::videoVendor(), "Intel");
    EXPECT_TRUE(VoSystemInfo::videoMemoryIntegratedShared());
    EXPECT_EQ(VoSystemInfo::videoMemory(), 64);
    EXPECT_EQ(VoSystemInfo::mainMemory(), 8192);
    EXPECT_EQ(VoSystemInfo::cpuType(), "Unknown CPU type");
    VoSystemInfo::setTaskLauncher(nullptr);
    VoSystemInfo::setSystemProfileFilePath("");
    detail::discardSystemProfile();
}

TEST(VoSystemProfilerFormats, SpeedsAndSizes) {
    EXPECT_EQ(profiler::formatProcessorSpeed(2596.122), "2.6 GHz");
    EXPECT_EQ(profiler::formatProcessorSpeed(2660), "2.66 GHz");
    EXPECT_EQ(profiler::formatProcessorSpeed(3000), "3 GHz");
    EXPECT_EQ(profiler::formatProcessorSpeed(800), "800 MHz");
    EXPECT_EQ(profiler::formatProcessorSpeed(999.6), "1 GHz");
    EXPECT_EQ(profiler::formatMemory(16ull * 1024 * 1024), "16 GB");
    EXPECT_EQ(profiler::formatMemory(24684092), "24 GB");
    EXPECT_EQ(profiler::formatMemory(512 * 1024), "512 MB");
    EXPECT_EQ(profiler::formatVideoMemory(8ull << 30), "8 GB");
    EXPECT_EQ(profiler::formatVideoMemory(1536ull << 20), "1536 MB");
}

}  // namespace
}  // namespace vo
