// SPDX-License-Identifier: MIT
// Loading VoSystemInfo's snapshot: run the profiler into a file, read the file back, keep the sections.
#include <QCoreApplication>
#include <QMetaObject>
#include <mutex>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Common/Foundation/VoException.h"
#include "Common/Foundation/VoLog.h"
#include "System/VoKernel.h"
#include "System/VoPropertyList_p.h"
#include "System/VoSystemInfo.h"
#include "System/VoSystemInfo_p.h"
#include "System/VoTaskLauncher.h"

namespace vo {

namespace {

constexpr const char* kDefaultProfileFile = "/tmp/VoSystemProfile.xml";
constexpr const char* kProfilerName = "vo_system_profiler";

// Replaced wholesale by each load, possibly on a loader thread while the main thread reads it.
// The snapshot, replaced whole by a load on any thread and read from others. A mutex rather than
// std::atomic<std::shared_ptr>: the latter's internal lock is invisible to ThreadSanitizer in GCC 12.
class ProfileSnapshot {
public:
    void store(std::shared_ptr<const QVariantMap> profile) {
        std::lock_guard lock(mutex_);
        profile_.swap(profile);
    }
    [[nodiscard]] std::shared_ptr<const QVariantMap> load() const {
        std::lock_guard lock(mutex_);
        return profile_;
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const QVariantMap> profile_;
} gProfile;

std::string gProfilerPath;
std::string gProfileFilePath;
std::shared_ptr<VoTaskLauncher> gLauncher;
std::shared_ptr<VoKernel> gKernel;

std::string defaultProfilerPath() {
    if (const char* path = std::getenv("VO_SYSTEM_PROFILER"); path && *path) return path;
    std::error_code ec;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec) return kProfilerName;
    return (self.parent_path() / kProfilerName).string();
}

// Performs the selector on the target on the main thread, without waiting for it.
void tellTarget(const QPointer<QObject>& target, const QByteArray& selector) {
    QCoreApplication* app = QCoreApplication::instance();
    if (!app) {
        // Without an application there is no main event loop; the target's own thread gets the call.
        if (target) QMetaObject::invokeMethod(target.data(), selector.constData(), Qt::QueuedConnection);
        return;
    }
    QMetaObject::invokeMethod(
        app,
        [target, selector] {
            if (target) QMetaObject::invokeMethod(target.data(), selector.constData(), Qt::DirectConnection);
        },
        Qt::QueuedConnection);
}

}  // namespace

namespace detail {

std::shared_ptr<VoKernel> systemInfoKernel() { return gKernel ? gKernel : VoKernel::standard(); }
std::shared_ptr<VoTaskLauncher> systemInfoTaskLauncher() { return gLauncher ? gLauncher : VoTaskLauncher::standard(); }
void discardSystemProfile() { gProfile.store(nullptr); }

}  // namespace detail

void VoSystemInfo::loadSystemProfile(const VoSystemProfileRequest& request) {
    const std::string file = systemProfileFilePath();
    try {
        VoTaskRequest task;
        task.launchPath = systemProfilerPath();
        task.arguments = {"-xml"};
        if (request.systemAndDisplayOnly) {
            task.arguments.push_back("SPHardwareDataType");
            task.arguments.push_back("SPDisplaysDataType");
        }
        // The output file is created (or emptied) before the run, so a profiler that writes nothing
        // leaves an empty file rather than the previous load's.
        if (!std::ofstream(file, std::ios::trunc))
            throw VoException("NSInvalidArgumentException", "cannot open " + file + " for writing");
        task.standardOutput = VoTaskStream::file(file);
        detail::systemInfoTaskLauncher()->launchAndWait(task);
    } catch (const VoException& e) {
        VoLog(e.description());
    }

    gProfile.store(nullptr);
    const std::optional<QVariant> root = detail::propertyListFromFile(file);
    std::error_code ignored;
    std::filesystem::remove(file, ignored);

    QVariantMap sections;
    if (root && root->typeId() == QMetaType::QVariantList) {
        for (const QVariant& element : root->toList()) {
            if (element.typeId() != QMetaType::QVariantMap) continue;
            const QVariantMap section = element.toMap();
            const QVariant name = section.value(QStringLiteral("_dataType"));
            if (!name.isValid() || name.isNull()) continue;
            sections.insert(name.toString(), section);  // a later section of the same name wins
        }
    }
    gProfile.store(std::make_shared<const QVariantMap>(std::move(sections)));

    if (request.target) tellTarget(request.target, request.selector);
}

void VoSystemInfo::preloadSystemProfileWithDoneSelectorSystemAndDisplayOnly(QObject* target, const char* selector,
                                                                            bool systemAndDisplayOnly) {
    VoSystemProfileRequest request;
    request.systemAndDisplayOnly = systemAndDisplayOnly;
    if (!target) return loadSystemProfile(request);
    request.target = target;
    request.selector = selector ? QByteArray(selector) : QByteArray();
    std::thread([request] { loadSystemProfile(request); }).detach();
}

void VoSystemInfo::preloadSystemProfileWithDoneSelector(QObject* target, const char* selector) {
    preloadSystemProfileWithDoneSelectorSystemAndDisplayOnly(target, selector, false);
}

bool VoSystemInfo::hasSystemProfile() { return gProfile.load() != nullptr; }

std::shared_ptr<const QVariantMap> VoSystemInfo::systemProfile() { return gProfile.load(); }

std::string VoSystemInfo::systemProfilerPath() { return gProfilerPath.empty() ? defaultProfilerPath() : gProfilerPath; }
void VoSystemInfo::setSystemProfilerPath(std::string path) { gProfilerPath = std::move(path); }

std::string VoSystemInfo::systemProfileFilePath() {
    return gProfileFilePath.empty() ? kDefaultProfileFile : gProfileFilePath;
}
void VoSystemInfo::setSystemProfileFilePath(std::string path) { gProfileFilePath = std::move(path); }

void VoSystemInfo::setTaskLauncher(std::shared_ptr<VoTaskLauncher> launcher) { gLauncher = std::move(launcher); }
void VoSystemInfo::setKernel(std::shared_ptr<VoKernel> kernel) { gKernel = std::move(kernel); }

}  // namespace vo
