// SPDX-License-Identifier: MIT
// The facts vo_system_profiler reports, gathered from the kernel's files, in the sections and keys the
// system utilities read:
// - "SPHardwareDataType": one item with "machine_name", "machine_model" (DMI or device tree),
//   "cpu_type", "number_processors" (cores), "packages", "current_processor_speed" ("2.6 GHz"),
//   "physical_memory" ("16 GB") from /proc/cpuinfo, /sys and /proc/meminfo;
// - "SPDisplaysDataType": one item per graphics device (/sys/class/drm) with "sppci_model",
//   "spdisplays_vendor", "spdisplays_vram" and "spdisplays_ndrvs", its connected displays;
// - "SPSoftwareDataType": one item with "os_version", "kernel_version", "local_host_name", "user_name".
// Keys whose facts cannot be found are left out, so readers fall back to their defaults.
//
// Every file is read below `root` ("/" normally; a fake tree in tests).
#pragma once

#include <QVariantList>
#include <QVariantMap>
#include <filesystem>
#include <string>
#include <vector>

namespace vo::profiler {

// The data types this profiler knows, in the order it writes them.
[[nodiscard]] std::vector<std::string> knownDataTypes();

[[nodiscard]] QVariantMap hardwareOverview(const std::filesystem::path& root);
[[nodiscard]] QVariantList graphicsDevices(const std::filesystem::path& root);
[[nodiscard]] QVariantMap softwareOverview(const std::filesystem::path& root);

// The sections for `dataTypes` (every known one when empty; unknown names are skipped), each a
// dictionary with "_dataType", "_detailLevel", "_items" and "_timeStamp".
[[nodiscard]] QVariantList profile(const std::vector<std::string>& dataTypes, const std::filesystem::path& root);

// "2.6 GHz" for 2596 MHz (two decimals at most), "800 MHz" below 1000 MHz.
[[nodiscard]] std::string formatProcessorSpeed(double megahertz);
// Memory from kilobytes: whole gigabytes from 1 GB on ("24 GB"), else megabytes ("512 MB").
[[nodiscard]] std::string formatMemory(unsigned long long kilobytes);
// Video memory from bytes: "8 GB" for whole gigabytes, else megabytes ("1536 MB").
[[nodiscard]] std::string formatVideoMemory(unsigned long long bytes);

}  // namespace vo::profiler
