// SPDX-License-Identifier: MIT
#include "VoSystemUtils.h"

#include <unistd.h>

#include <chrono>
#include <thread>

#include "Common/Foundation/VoLog.h"
#include "System/VoKernel.h"
#include "System/VoTaskLauncher.h"

namespace vo {

namespace {

std::shared_ptr<VoTaskLauncher> gLauncher;
std::shared_ptr<VoKernel> gKernel;
VoSystemUtils::SleepFunction gSleep;

std::shared_ptr<VoTaskLauncher> launcher() { return gLauncher ? gLauncher : VoTaskLauncher::standard(); }
std::shared_ptr<VoKernel> kernel() { return gKernel ? gKernel : VoKernel::standard(); }

void sleepFor(double seconds) {
    if (gSleep) return gSleep(seconds);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

}  // namespace

void VoSystemUtils::renice(int priority) {
    VoTaskRequest task;
    task.launchPath = kRenicePath;
    task.arguments = {std::to_string(priority), "-p", std::to_string(::getpid())};
    launcher()->launch(task);
}

bool VoSystemUtils::restartCurrentApplication() { return false; }

bool VoSystemUtils::isAppRunning(const std::string& applicationName) {
    VoTaskRequest task;
    task.launchPath = kProcessMatchPath;
    task.arguments = {"-x", applicationName};
    task.standardOutput = VoTaskStream::nullDevice();
    task.standardError = VoTaskStream::nullDevice();
    return launcher()->launchAndWait(task).terminationStatus != 1;
}

void VoSystemUtils::killCurrentApp() {
    VoTaskRequest task;
    task.launchPath = kKillPath;
    task.arguments = {std::to_string(::getpid())};
    launcher()->launch(task);
}

int VoSystemUtils::numberOfCpus() { return kernel()->cpuCount().value_or(1); }

bool VoSystemUtils::executingIntel() { return true; }

void VoSystemUtils::waitTillLoadDropsBelowOrTime(float loadPerProcessor, double seconds) {
    const int cpus = numberOfCpus();
    double waited = 0.0;
    while (seconds > waited) {
        const std::optional<VoKernel::LoadAverage> record = kernel()->loadAverage();
        if (!record) {
            VoLog("Can't measure load");
            return;
        }
        const float load = float(record->ldavg[0]) / float(record->fscale);
        const float perProcessor = load / float(cpus);
        if (loadPerProcessor >= perProcessor) return;
        sleepFor(0.2);
        waited += 0.2;
    }
}

void VoSystemUtils::setTaskLauncher(std::shared_ptr<VoTaskLauncher> l) { gLauncher = std::move(l); }
void VoSystemUtils::setKernel(std::shared_ptr<VoKernel> k) { gKernel = std::move(k); }
void VoSystemUtils::setSleepFunction(SleepFunction sleep) { gSleep = std::move(sleep); }

}  // namespace vo
