// SPDX-License-Identifier: MIT
// Child processes started with a fixed program path and argument list, the way the system utilities
// run their external commands. The interface lets tests replace the real launcher with a fake one.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vo {

// Where a child's standard output or standard error goes.
struct VoTaskStream {
    enum class Kind {
        Inherit,     // the parent's own stream
        NullDevice,  // /dev/null
        File,        // the file at `path`, created or truncated, written from its start
        Capture,     // a pipe read to its end into VoTaskResult
    };
    Kind kind = Kind::Inherit;
    std::string path;

    [[nodiscard]] static VoTaskStream inherit() { return {}; }
    [[nodiscard]] static VoTaskStream nullDevice() { return {Kind::NullDevice, {}}; }
    [[nodiscard]] static VoTaskStream file(std::string path) { return {Kind::File, std::move(path)}; }
    [[nodiscard]] static VoTaskStream capture() { return {Kind::Capture, {}}; }
};

struct VoTaskRequest {
    std::string launchPath;              // absolute path of the program; no search along PATH
    std::vector<std::string> arguments;  // without the program name
    VoTaskStream standardOutput;
    VoTaskStream standardError;
};

struct VoTaskResult {
    // The exit code, or the signal number when a signal ended the child.
    int terminationStatus = 0;
    std::string output;       // captured standard output (VoTaskStream::capture only)
    std::string errorOutput;  // captured standard error (VoTaskStream::capture only)
};

class VoTaskLauncher {
public:
    virtual ~VoTaskLauncher() = default;

    // Starts the child and returns at once; the child is reaped in the background. Throws VoException
    // (name "NSInvalidArgumentException", reason "launch path not accessible") when it cannot start.
    virtual void launch(const VoTaskRequest& request) = 0;

    // Starts the child, reads captured streams to their end and waits for it to exit. Throws like
    // launch() when the child cannot start.
    virtual VoTaskResult launchAndWait(const VoTaskRequest& request) = 0;

    // The launcher that starts real processes (posix_spawn).
    [[nodiscard]] static std::shared_ptr<VoTaskLauncher> standard();
};

}  // namespace vo
