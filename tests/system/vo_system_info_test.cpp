// SPDX-License-Identifier: MIT
// The hardware queries of VoSystemInfo over profiles fed through a fake profiler.
#include "System/VoSystemInfo.h"

#include <gtest/gtest.h>

#include "Common/Foundation/VoException.h"
#include "System/VoSystemInfo_p.h"
#include "system_test_support.h"

namespace vo {
namespace {

using test::profileXml;
using test::sectionXml;

std::string hardwareItem(const std::string& keys) { return "<dict>" + keys + "</dict>"; }
std::string key(const std::string& k, const std::string& v) { return "<key>" + k + "</key><string>" + v + "</string>"; }
std::string intKey(const std::string& k, int v) {
    return "<key>" + k + "</key><integer>" + std::to_string(v) + "</integer>";
}

class VoSystemInfoQueries : public ::testing::Test {
protected:
    void SetUp() override {
        VoSystemInfo::setSystemProfileFilePath((dir_.path() / "profile.xml").string());
        kernel_->release = "15.6.0";
        VoSystemInfo::setKernel(kernel_);
    }
    void TearDown() override {
        VoSystemInfo::setTaskLauncher(nullptr);
        VoSystemInfo::setKernel(nullptr);
        VoSystemInfo::setSystemProfileFilePath("");
        detail::discardSystemProfile();
    }
    // Loads a profile whose hardware item holds `hardwareKeys` and whose display items are `displays`.
    void load(const std::string& hardwareKeys, const std::string& displays = "") {
        loadXml(profileXml({sectionXml("SPHardwareDataType", hardwareItem(hardwareKeys)),
                            sectionXml("SPDisplaysDataType", displays)}));
    }
    void loadXml(const std::string& xml) {
        VoSystemInfo::setTaskLauncher(test::profilerWriting(xml));
        VoSystemInfo::loadSystemProfile({});
    }

    test::TempDir dir_;
    std::shared_ptr<test::FakeKernel> kernel_ = std::make_shared<test::FakeKernel>();
};

TEST_F(VoSystemInfoQueries, FixtureProfileAnswersEveryQuery) {
    loadXml(test::readFile(std::string(VO_SYSTEM_FIXTURES) + "/profile_hardware_displays.xml"));
    ASSERT_TRUE(VoSystemInfo::hasSystemProfile());
    EXPECT_EQ(VoSystemInfo::numberOfCores(), 2);
    EXPECT_EQ(VoSystemInfo::numberOfProcessors(), 1);
    EXPECT_EQ(VoSystemInfo::processorSpeed(), 2600);
    EXPECT_EQ(VoSystemInfo::cpuType(), "Intel Core 2 Duo");
    EXPECT_EQ(VoSystemInfo::machineName(), "MacBook Pro");
    EXPECT_EQ(VoSystemInfo::machineModel(), "MacBookPro5,1");
    EXPECT_TRUE(VoSystemInfo::intel());
    EXPECT_FALSE(VoSystemInfo::powerPC());
    EXPECT_EQ(VoSystemInfo::mainMemory(), 16384);
    EXPECT_EQ(VoSystemInfo::videoVendor(), "ATI");
    EXPECT_EQ(VoSystemInfo::videoModel(), "RadeonX1600");
    EXPECT_EQ(VoSystemInfo::videoMemory(), 256);
    EXPECT_FALSE(VoSystemInfo::videoMemoryIntegratedShared());
    EXPECT_TRUE(VoSystemInfo::videoCoreImageSupported());
}

TEST_F(VoSystemInfoQueries, WithoutSnapshotEveryQueryAnswersZeroOrNothing) {
    detail::discardSystemProfile();
    ASSERT_FALSE(VoSystemInfo::hasSystemProfile());
    EXPECT_EQ(VoSystemInfo::systemProfile(), nullptr);
    EXPECT_EQ(VoSystemInfo::numberOfCores(), 0);
    EXPECT_EQ(VoSystemInfo::numberOfProcessors(), 0);
    EXPECT_EQ(VoSystemInfo::processorSpeed(), 0);
    EXPECT_EQ(VoSystemInfo::cpuType(), std::nullopt);
    EXPECT_EQ(VoSystemInfo::machineName(), std::nullopt);
    EXPECT_EQ(VoSystemInfo::machineModel(), std::nullopt);
    EXPECT_FALSE(VoSystemInfo::powerPC());
    EXPECT_FALSE(VoSystemInfo::intel());
    EXPECT_EQ(VoSystemInfo::mainMemory(), 0);
    EXPECT_EQ(VoSystemInfo::videoVendor(), std::nullopt);
    EXPECT_EQ(VoSystemInfo::videoModel(), std::nullopt);
    EXPECT_EQ(VoSystemInfo::videoMemory(), 0);
    EXPECT_FALSE(VoSystemInfo::videoMemoryIntegratedShared());
    EXPECT_FALSE(VoSystemInfo::videoCoreImageSupported());
}

TEST_F(VoSystemInfoQueries, PhysicalMemoryInGigabytesAndMegabytes) {
    load(key("physical_memory", "16 GB"));
    EXPECT_EQ(VoSystemInfo::mainMemory(), 16384);
    load(key("physical_memory", "512 MB"));
    EXPECT_EQ(VoSystemInfo::mainMemory(), 512);
    load(key("physical_memory", "1.5 gb"));  // the unit is matched without regard to case
    EXPECT_EQ(VoSystemInfo::mainMemory(), 1536);
    load(key("physical_memory", "8"));  // no unit: megabytes, and no index error
    EXPECT_EQ(VoSystemInfo::mainMemory(), 8);
    load(key("machine_name", "x"));  // no memory key
    EXPECT_EQ(VoSystemInfo::mainMemory(), 0);
}

TEST_F(VoSystemInfoQueries, MainMemoryIsZeroWhenTheHardwareItemsAreEmpty) {
    loadXml(profileXml({sectionXml("SPHardwareDataType", "")}));
    EXPECT_EQ(VoSystemInfo::mainMemory(), 0);
    EXPECT_EQ(VoSystemInfo::numberOfCores(), 0);
}

TEST_F(VoSystemInfoQueries, ProcessorSpeedInGigahertzAndMegahertz) {
    load(key("current_processor_speed", "2.6 GHz"));
    EXPECT_EQ(VoSystemInfo::processorSpeed(), 2600);
    load(key("current_processor_speed", "800 MHz"));
    EXPECT_EQ(VoSystemInfo::processorSpeed(), 800);
    load(key("current_processor_speed", "2.66 ghz"));
    EXPECT_EQ(VoSystemInfo::processorSpeed(), 2660);
    load(key("current_processor_speed", "1.83 GHz"));  // float arithmetic, truncated
    EXPECT_EQ(VoSystemInfo::processorSpeed(), 1830);
    load(key("machine_name", "x"));  // no speed: no words, 0
    EXPECT_EQ(VoSystemInfo::processorSpeed(), 0);
}

TEST_F(VoSystemInfoQueries, ProcessorSpeedWithoutUnitIsAnIndexError) {
    load(key("current_processor_speed", "2600"));
    try {
        (void)VoSystemInfo::processorSpeed();
        FAIL() << "expected an index error";
    } catch (const VoException& e) {
        EXPECT_EQ(e.name(), "NSRangeException");
    }
}

TEST_F(VoSystemInfoQueries, ProcessorCountPrefersPackages) {
    load(intKey("number_processors", 8) + intKey("packages", 2));
    EXPECT_EQ(VoSystemInfo::numberOfCores(), 8);
    EXPECT_EQ(VoSystemInfo::numberOfProcessors(), 2);
    load(intKey("number_processors", 4));
    EXPECT_EQ(VoSystemInfo::numberOfProcessors(), 4);
    load(key("number_processors", "6 cores"));  // a text reads as its leading integer
    EXPECT_EQ(VoSystemInfo::numberOfCores(), 6);
}

TEST_F(VoSystemInfoQueries, TextFallbacks) {
    load(key("physical_memory", "1 GB"));
    EXPECT_EQ(VoSystemInfo::cpuType(), "Unknown CPU type");
    EXPECT_EQ(VoSystemInfo::machineName(), "Unknown machine name");
    EXPECT_EQ(VoSystemInfo::machineModel(), std::nullopt);
    EXPECT_FALSE(VoSystemInfo::intel());
}

TEST_F(VoSystemInfoQueries, PowerPcGenerations) {
    load(key("cpu_type", "PowerPC G5 (3.0)"));
    EXPECT_TRUE(VoSystemInfo::powerPC());
    EXPECT_TRUE(VoSystemInfo::powerPCG5());
    EXPECT_FALSE(VoSystemInfo::powerPCG4());
    EXPECT_FALSE(VoSystemInfo::powerPCG3());
    EXPECT_FALSE(VoSystemInfo::intel());
    load(key("cpu_type", "powerpc g4 (1.2)"));  // upper-cased before the test
    EXPECT_TRUE(VoSystemInfo::powerPCG4());
    load(key("cpu_type", "G3 something"));  // a generation without "PowerPC" does not count
    EXPECT_FALSE(VoSystemInfo::powerPCG3());
    load(key("cpu_type", "Intel(R) Xeon(R) CPU"));
    EXPECT_TRUE(VoSystemInfo::intel());
}

TEST_F(VoSystemInfoQueries, RadeonModelLosesItsAtyPrefix) {
    load("", "<dict>" + key("sppci_model", "ATY,RadeonX1600") + "</dict>");
    EXPECT_EQ(VoSystemInfo::videoModel(), "RadeonX1600");
}

TEST_F(VoSystemInfoQueries, ModelWithoutAtyPrefixIsUnchanged) {
    load("", "<dict>" + key("sppci_model", "NVIDIA GeForce 9400M") + "</dict>");
    EXPECT_EQ(VoSystemInfo::videoModel(), "NVIDIA GeForce 9400M");
    load("", "<dict>" + key("spdisplays_vendor", "x") + "</dict>");  // an item without a model
    EXPECT_EQ(VoSystemInfo::videoModel(), std::nullopt);
}

TEST_F(VoSystemInfoQueries, VideoModelIsUnknownWithoutDisplayItems) {
    load(key("cpu_type", "x"));
    EXPECT_EQ(VoSystemInfo::videoModel(), "Unknown");
    loadXml(profileXml({sectionXml("SPHardwareDataType", "")}));  // no display section at all
    EXPECT_EQ(VoSystemInfo::videoModel(), "Unknown");
    EXPECT_EQ(VoSystemInfo::videoVendor(), std::nullopt);
    EXPECT_EQ(VoSystemInfo::videoMemory(), 0);
    EXPECT_FALSE(VoSystemInfo::videoMemoryIntegratedShared());
}

TEST_F(VoSystemInfoQueries, IntegratedVideoMemoryIs64AndShared) {
    load("", "<dict>" + key("spdisplays_vram", "spdisplays_integrated_vram") + "</dict>");
    EXPECT_EQ(VoSystemInfo::videoMemory(), 64);
    EXPECT_TRUE(VoSystemInfo::videoMemoryIntegratedShared());
}

TEST_F(VoSystemInfoQueries, VideoMemoryUnitsAndTheSecondKey) {
    load("", "<dict>" + key("spdisplays_vram", "2 GB") + "</dict>");
    EXPECT_EQ(VoSystemInfo::videoMemory(), 2048);
    load("", "<dict>" + key("_spdisplays_vram", "128 MB") + "</dict>");
    EXPECT_EQ(VoSystemInfo::videoMemory(), 128);
    EXPECT_FALSE(VoSystemInfo::videoMemoryIntegratedShared());  // reads only the first key
    load("", "<dict>" + key("sppci_model", "x") + "</dict>");
    EXPECT_EQ(VoSystemInfo::videoMemory(), 0);
}

TEST_F(VoSystemInfoQueries, VideoVendorIsTheFirstWord) {
    load("", "<dict>" + key("spdisplays_vendor", "NVIDIA (0x10de)") + "</dict>");
    EXPECT_EQ(VoSystemInfo::videoVendor(), "NVIDIA");
    load("", "<dict>" + key("sppci_model", "x") + "</dict>");
    EXPECT_EQ(VoSystemInfo::videoVendor(), std::nullopt);
}

TEST_F(VoSystemInfoQueries, CoreImageSupportAfterLeopardNeedsNoDisplays) {
    kernel_->release = "10.8.0";  // 10.6
    load(key("cpu_type", "x"));
    EXPECT_TRUE(VoSystemInfo::videoCoreImageSupported());
}

TEST_F(VoSystemInfoQueries, CoreImageSupportOnTigerWalksEveryDisplayItem) {
    kernel_->release = "8.11.1";  // 10.4
    auto ndrvs = [](const std::string& support) {
        return "<dict><key>spdisplays_ndrvs</key><array><dict>" + key("_name", "LCD") +
               (support.empty() ? "" : key("spdisplays_coreimage", support)) + "</dict></array></dict>";
    };
    load("", ndrvs(""));
    EXPECT_FALSE(VoSystemInfo::videoCoreImageSupported());
    // The second item, the value matched without regard to case.
    load("", ndrvs("spdisplays_not_supported") + "<dict/>" + ndrvs("SPDISPLAYS_HARDWARE"));
    EXPECT_TRUE(VoSystemInfo::videoCoreImageSupported());
    load("", ndrvs("spdisplays_software"));
    EXPECT_TRUE(VoSystemInfo::videoCoreImageSupported());
    load("", ndrvs("spdisplays_supported"));
    EXPECT_TRUE(VoSystemInfo::videoCoreImageSupported());
}

}  // namespace
}  // namespace vo
