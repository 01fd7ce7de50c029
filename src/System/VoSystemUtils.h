// SPDX-License-Identifier: MIT
// VoSystemUtils: small process-level services: lowering the running application's priority, asking
// whether another application runs, ending the running application, counting processors and waiting
// for the machine's load to fall.
//
// External commands run as child processes with fixed paths through a VoTaskLauncher; the processor
// count and load come from a VoKernel; the load wait sleeps through a replaceable function. Tests set
// their own sources; null restores the real ones. All members are static.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace vo {

class VoKernel;
class VoTaskLauncher;

class VoSystemUtils {
public:
    static constexpr const char* kRenicePath = "/usr/bin/renice";
    static constexpr const char* kKillPath = "/bin/kill";
    // Lists processes by exact name; exit status 1 means none matched.
    static constexpr const char* kProcessMatchPath = "/usr/bin/pgrep";

    // Starts renice with the priority, "-p" and the own process id; does not wait, ignores the outcome.
    // Throws the launcher's VoException when renice cannot be started.
    static void renice(int priority);
    // A placeholder: does nothing and answers false.
    [[nodiscard]] static bool restartCurrentApplication();
    // Runs pgrep -x NAME with its output discarded and waits: false only for exit status 1 (no such
    // process), true for every other status, its own errors included. Exceptions pass unchanged.
    [[nodiscard]] static bool isAppRunning(const std::string& applicationName);
    // Starts kill with the own process id (the default termination signal); does not wait.
    static void killCurrentApp();
    // Processors online; 1 when the kernel cannot tell.
    [[nodiscard]] static int numberOfCpus();
    // Always true.
    [[nodiscard]] static bool executingIntel();
    // Blocks until the one-minute load per processor is at most `loadPerProcessor` or `seconds` have been
    // slept, reading the load and sleeping 0.2 s in turn. The limit counts sleeps, not clock time: a
    // limit of 0 reads nothing, 0.5 reads at most three times. A failed read logs "Can't measure load"
    // and ends the wait.
    static void waitTillLoadDropsBelowOrTime(float loadPerProcessor, double seconds);

    using SleepFunction = std::function<void(double seconds)>;
    static void setTaskLauncher(std::shared_ptr<VoTaskLauncher> launcher);
    static void setKernel(std::shared_ptr<VoKernel> kernel);
    static void setSleepFunction(SleepFunction sleep);  // empty: sleep the calling thread
};

}  // namespace vo
