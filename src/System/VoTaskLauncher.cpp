// SPDX-License-Identifier: MIT
#include "VoTaskLauncher.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "Common/Foundation/VoException.h"

extern char** environ;

namespace vo {

namespace {

[[noreturn]] void throwNotAccessible() {
    throw VoException("NSInvalidArgumentException", "launch path not accessible");
}

// Both ends close on exec, so children started by other threads never inherit them; the dup2 into the
// child's standard stream clears the flag on the copy.
struct Pipe {
    int read = -1, write = -1;
    Pipe() {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) throw VoException("NSInvalidArgumentException", "cannot create pipe");
        read = fds[0];
        write = fds[1];
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        closeRead();
        closeWrite();
    }
    void closeRead() {
        if (read >= 0) ::close(read);
        read = -1;
    }
    void closeWrite() {
        if (write >= 0) ::close(write);
        write = -1;
    }
};

class FileActions {
public:
    FileActions() { posix_spawn_file_actions_init(&actions_); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
    posix_spawn_file_actions_t* get() { return &actions_; }

    // Connects the child's descriptor `fd` as `stream` says; `pipe` is used for Capture.
    void connect(int fd, const VoTaskStream& stream, Pipe* pipe) {
        switch (stream.kind) {
            case VoTaskStream::Kind::Inherit:
                break;
            case VoTaskStream::Kind::NullDevice:
                posix_spawn_file_actions_addopen(&actions_, fd, "/dev/null", O_WRONLY, 0);
                break;
            case VoTaskStream::Kind::File:
                posix_spawn_file_actions_addopen(&actions_, fd, stream.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                                 0644);
                break;
            case VoTaskStream::Kind::Capture:
                posix_spawn_file_actions_adddup2(&actions_, pipe->write, fd);
                break;
        }
    }

private:
    posix_spawn_file_actions_t actions_;
};

pid_t spawn(const VoTaskRequest& request, Pipe* out, Pipe* err) {
    // The launcher's own check: a path that is not an executable file never reaches the kernel.
    if (request.launchPath.empty() || ::access(request.launchPath.c_str(), X_OK) != 0) throwNotAccessible();
    FileActions actions;
    actions.connect(STDOUT_FILENO, request.standardOutput, out);
    actions.connect(STDERR_FILENO, request.standardError, err);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(request.launchPath.c_str()));
    for (const std::string& a : request.arguments) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, request.launchPath.c_str(), actions.get(), nullptr, argv.data(), environ) != 0)
        throwNotAccessible();
    return pid;
}

int waitForExit(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return WTERMSIG(status);
    return -1;
}

// Reads both pipes (either may be absent) until both reach their end, so that a child filling one of
// them never blocks while the other is being read.
void drain(Pipe* out, std::string* outText, Pipe* err, std::string* errText) {
    struct Source {
        Pipe* pipe;
        std::string* text;
    };
    Source sources[2] = {{out, outText}, {err, errText}};
    char buffer[16384];
    for (;;) {
        pollfd fds[2];
        Source* polled[2];
        nfds_t n = 0;
        for (Source& s : sources) {
            if (s.pipe && s.pipe->read >= 0) {
                fds[n] = {s.pipe->read, POLLIN, 0};
                polled[n++] = &s;
            }
        }
        if (n == 0) return;
        if (::poll(fds, n, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        for (nfds_t i = 0; i < n; ++i) {
            if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            const ssize_t got = ::read(fds[i].fd, buffer, sizeof buffer);
            if (got > 0) {
                polled[i]->text->append(buffer, size_t(got));
            } else if (got == 0 || errno != EINTR) {
                polled[i]->pipe->closeRead();
            }
        }
    }
}

class PosixTaskLauncher final : public VoTaskLauncher {
public:
    void launch(const VoTaskRequest& request) override {
        // Nothing is captured when nobody waits: a Capture stream would block the child on a full pipe.
        VoTaskRequest plain = request;
        if (plain.standardOutput.kind == VoTaskStream::Kind::Capture) plain.standardOutput = VoTaskStream::nullDevice();
        if (plain.standardError.kind == VoTaskStream::Kind::Capture) plain.standardError = VoTaskStream::nullDevice();
        const pid_t pid = spawn(plain, nullptr, nullptr);
        // The child is not waited for, but it must not stay a zombie.
        std::thread([pid] { waitForExit(pid); }).detach();
    }

    VoTaskResult launchAndWait(const VoTaskRequest& request) override {
        const bool captureOut = request.standardOutput.kind == VoTaskStream::Kind::Capture;
        const bool captureErr = request.standardError.kind == VoTaskStream::Kind::Capture;
        std::unique_ptr<Pipe> out = captureOut ? std::make_unique<Pipe>() : nullptr;
        std::unique_ptr<Pipe> err = captureErr ? std::make_unique<Pipe>() : nullptr;
        const pid_t pid = spawn(request, out.get(), err.get());
        // The parent's copies of the write ends must go, or the reads below never see their end.
        if (out) out->closeWrite();
        if (err) err->closeWrite();
        VoTaskResult result;
        drain(out.get(), &result.output, err.get(), &result.errorOutput);
        result.terminationStatus = waitForExit(pid);
        return result;
    }
};

}  // namespace

std::shared_ptr<VoTaskLauncher> VoTaskLauncher::standard() {
    static const std::shared_ptr<VoTaskLauncher> launcher = std::make_shared<PosixTaskLauncher>();
    return launcher;
}

}  // namespace vo
