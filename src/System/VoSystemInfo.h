// SPDX-License-Identifier: MIT
// VoSystemInfo: facts about the machine (processor, memory, graphics) and the operating-system release.
//
// The hardware answers come from one snapshot of the system profiler, taken by a load, parsed into a
// dictionary from data-type name ("SPHardwareDataType", "SPDisplaysDataType", ...) to that section, and
// kept for the life of the process. The profiler is a program of the toolkit (vo_system_profiler) that
// writes an XML property list to a file; each load writes, reads and deletes that file.
//
// Every hardware query answers 0, false or nothing while there is no snapshot. With a snapshot, a
// missing section or key reads as 0 for numbers and nothing for texts unless a fallback text is named.
// Queries read item 0 of the section's "_items" array.
//
// The release answers come from the kernel's release text, read anew on every call. The major version
// is always 10 and the minor version is the first number of the release minus 4, so that a kernel
// release of 15.6.0 reads as 10.11.6.
//
// All members are static. Loads run on the calling thread or on a detached thread; the snapshot is
// replaced atomically, but the settings and sources are plain statics: set them before loading.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QVariantMap>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vo {

class VoKernel;
class VoTaskLauncher;

// What one load does: the profiler sections to ask for, and whom to tell when it is done.
struct VoSystemProfileRequest {
    // true: only "SPHardwareDataType" and "SPDisplaysDataType"; false: every section the profiler knows.
    bool systemAndDisplayOnly = false;
    // When set, `selector` (the name of a slot or invokable method without arguments) is performed on
    // the target on the main thread after the load, without waiting. Skipped if the target is gone.
    QPointer<QObject> target;
    QByteArray selector;
};

class VoSystemInfo {
public:
    // --- Loading -------------------------------------------------------------------------------------
    // Runs the profiler (output to systemProfileFilePath(), created or truncated first), reads the file
    // back as an array of sections, deletes it and makes the sections the new snapshot. A VoException
    // from the run is logged and the load goes on; any other exception reaches the caller. A failed or
    // empty run leaves an empty snapshot (present, with no sections).
    static void loadSystemProfile(const VoSystemProfileRequest& request);
    // With a target: loads on a new detached thread, then performs the selector on the main thread.
    // Without one: loads on the calling thread and returns when done.
    static void preloadSystemProfileWithDoneSelectorSystemAndDisplayOnly(QObject* target, const char* selector,
                                                                         bool systemAndDisplayOnly);
    // The same for the full profile.
    static void preloadSystemProfileWithDoneSelector(QObject* target, const char* selector);
    [[nodiscard]] static bool hasSystemProfile();
    // The snapshot, or null before the first load has finished.
    [[nodiscard]] static std::shared_ptr<const QVariantMap> systemProfile();

    // --- Hardware ("SPHardwareDataType" item 0 unless noted) -----------------------------------------
    // "number_processors".
    [[nodiscard]] static int numberOfCores();
    // "packages", else "number_processors".
    [[nodiscard]] static int numberOfProcessors();
    // "current_processor_speed" in MHz ("2.6 GHz" gives 2600). A speed without a unit raises VoException
    // "NSRangeException": the unit is read without a check.
    [[nodiscard]] static int processorSpeed();
    // "cpu_type", or "Unknown CPU type".
    [[nodiscard]] static std::optional<std::string> cpuType();
    // "machine_name", or "Unknown machine name".
    [[nodiscard]] static std::optional<std::string> machineName();
    // "machine_model", or nothing.
    [[nodiscard]] static std::optional<std::string> machineModel();
    // Tests of cpuType() in upper case: contains "POWERPC" (and "G3", "G4", "G5"); contains "INTEL".
    [[nodiscard]] static bool powerPC();
    [[nodiscard]] static bool powerPCG3();
    [[nodiscard]] static bool powerPCG4();
    [[nodiscard]] static bool powerPCG5();
    [[nodiscard]] static bool intel();
    // "physical_memory" in MB ("16 GB" gives 16384); 0 when there is no item.
    [[nodiscard]] static int mainMemory();

    // --- Graphics ("SPDisplaysDataType" item 0) -------------------------------------------------------
    // First word of "spdisplays_vendor"; nothing when there is no item.
    [[nodiscard]] static std::optional<std::string> videoVendor();
    // "sppci_model" with an "ATY," prefix cut off; "Unknown" when there is no item.
    [[nodiscard]] static std::optional<std::string> videoModel();
    // "spdisplays_vram" is "spdisplays_integrated_vram".
    [[nodiscard]] static bool videoMemoryIntegratedShared();
    // "spdisplays_vram" (else "_spdisplays_vram") in MB; 64 for integrated memory; 0 when there is no item.
    [[nodiscard]] static int videoMemory();
    // true on releases after 10.5; else whether any display entry ("spdisplays_ndrvs" of any item) has a
    // "spdisplays_coreimage" of "spdisplays_supported", "spdisplays_hardware" or "spdisplays_software".
    [[nodiscard]] static bool videoCoreImageSupported();

    // --- Release ---------------------------------------------------------------------------------------
    // The kernel release split at "." ("15.6.0" gives "15", "6", "0"); empty when it cannot be read.
    [[nodiscard]] static std::vector<std::string> darwinKernelVerion();
    [[nodiscard]] static int osMajorVersion();      // always 10
    [[nodiscard]] static int osMinorVersion();      // first release number minus 4; 0 without one
    [[nodiscard]] static int osRevision();          // second release number; 0 without one
    [[nodiscard]] static int osRevisionFix();       // third release number; 0 without one
    [[nodiscard]] static bool isPreJaguar();        // major < 10 or minor < 2
    [[nodiscard]] static bool isJaguar();           // 10.2
    [[nodiscard]] static bool isPanther();          // 10.3
    [[nodiscard]] static bool isTiger();            // 10.4
    [[nodiscard]] static bool isLeopard();          // 10.5
    [[nodiscard]] static bool isPostLeopard();      // major > 10 or minor > 5
    [[nodiscard]] static bool isSnowLeopard();      // 10.6
    [[nodiscard]] static bool isPostSnowLeopard();  // major > 10 or minor > 6
    [[nodiscard]] static bool isLion();             // 10.7
    [[nodiscard]] static bool isMountainLion();     // 10.8
    [[nodiscard]] static bool isMavericks();        // 10.9
    [[nodiscard]] static bool isYosemite();         // 10.10
    [[nodiscard]] static bool isPostYosemite();     // major = 10 and minor > 10
    [[nodiscard]] static bool isElCapitan();        // 10.11
    [[nodiscard]] static bool isPreSierra();        // major = 10 and minor < 12
    [[nodiscard]] static bool isSierra();           // 10.12

    // --- Settings and sources --------------------------------------------------------------------------
    // The profiler program. Default: $VO_SYSTEM_PROFILER, else vo_system_profiler beside the running
    // executable (the build tree's bin folder and an installation's both hold it there).
    [[nodiscard]] static std::string systemProfilerPath();
    static void setSystemProfilerPath(std::string path);  // empty: the default
    // The profiler's output file. Default "/tmp/VoSystemProfile.xml".
    [[nodiscard]] static std::string systemProfileFilePath();
    static void setSystemProfileFilePath(std::string path);  // empty: the default
    // The launcher that runs the profiler and the kernel that answers the release; null: the real ones.
    static void setTaskLauncher(std::shared_ptr<VoTaskLauncher> launcher);
    static void setKernel(std::shared_ptr<VoKernel> kernel);
};

}  // namespace vo
