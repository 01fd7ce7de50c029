// SPDX-License-Identifier: MIT
// Helpers for the system-environment tests: the process's Qt application, temporary folders, log
// capture, environment overrides, and fake task launchers and kernels.
#pragma once

#include <QCoreApplication>
#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Common/Foundation/VoLog.h"
#include "System/VoKernel.h"
#include "System/VoTaskLauncher.h"
#include "support/test_images.h"  // TempDir

namespace vo::test {

// The process's one application: a QGuiApplication when a display is reachable ($DISPLAY), else a
// QCoreApplication. Created on first use and never destroyed.
QCoreApplication* testApplication();
// The application when it is a QGuiApplication, else null (no display).
bool hasGuiApplication();

// Runs the application's events until `done` holds or `seconds` pass; answers `done()`.
bool processEventsUntil(const std::function<bool()>& done, double seconds);


// Sets (or with nullopt unsets) an environment variable while alive.
class ScopedEnv {
public:
    ScopedEnv(const char* name, std::optional<std::string> value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string name_;
    std::optional<std::string> previous_;
};

// Collects the messages logged while alive (the text after the line prefix, without the line end).
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    [[nodiscard]] std::vector<std::string> messages() const;

private:
    VoLogSink previous_;
    std::vector<std::string> lines_;
};

std::string readFile(const std::filesystem::path& file);
void writeFile(const std::filesystem::path& file, const std::string& text);

// Records every request; launchAndWait answers through `onWait` (default: status 0, no output) and
// launch() through `onLaunch` (default: nothing).
class FakeTaskLauncher final : public VoTaskLauncher {
public:
    std::function<VoTaskResult(const VoTaskRequest&)> onWait;
    std::function<void(const VoTaskRequest&)> onLaunch;
    std::vector<VoTaskRequest> launched;  // launch()
    std::vector<VoTaskRequest> waited;    // launchAndWait()

    void launch(const VoTaskRequest& request) override;
    VoTaskResult launchAndWait(const VoTaskRequest& request) override;
};

// A launcher that plays the profiler: it writes `xml` into the request's output file.
std::shared_ptr<FakeTaskLauncher> profilerWriting(std::string xml);

// Fixed kernel answers; load reads are taken from `loads` in turn (the last one repeats) and counted.
class FakeKernel final : public VoKernel {
public:
    std::optional<std::string> release;
    std::optional<int> cpus = 1;
    std::deque<std::optional<LoadAverage>> loads;
    int loadReads = 0;

    std::optional<std::string> osRelease() override { return release; }
    std::optional<int> cpuCount() override { return cpus; }
    std::optional<LoadAverage> loadAverage() override;
};

// A load record of `average` with the kernel's usual scale.
VoKernel::LoadAverage loadRecord(double average);

// The text of an XML property list of sections, each given as its inner XML.
std::string profileXml(const std::vector<std::string>& sections);
// A section dictionary with a "_dataType" and the given "_items" inner XML.
std::string sectionXml(const std::string& dataType, const std::string& items);

}  // namespace vo::test
