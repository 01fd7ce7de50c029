// SPDX-License-Identifier: MIT
#include "command/vothumb_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <stdexcept>

namespace vo::test {

namespace {
// Reads whatever is ready on `fd` into `into`; false once the other end is closed.
bool drain(int fd, std::string& into) {
    char buffer[4096];
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) into.append(buffer, size_t(n));
    return n > 0 || (n < 0 && errno == EINTR);
}
}  // namespace

ChildRun runVothumb(const std::vector<std::string>& arguments, int timeoutSeconds,
                    const std::string& workingDirectory) {
    // Everything the child needs is prepared before fork: after it only async-signal-safe calls are made.
    std::vector<std::string> strings{VOTHUMB_PATH};
    strings.insert(strings.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& s : strings) argv.push_back(s.data());
    argv.push_back(nullptr);

    int err[2], out[2];
    if (::pipe2(err, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = ::fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(err[1], STDERR_FILENO);
        if (!workingDirectory.empty() && ::chdir(workingDirectory.c_str()) != 0) ::_exit(126);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(err[1]);
    ::close(out[1]);

    ChildRun run;
    const auto deadline = start + std::chrono::seconds(timeoutSeconds);
    bool errOpen = true, outOpen = true;
    while (errOpen || outOpen) {
        using std::chrono::milliseconds;
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            run.timedOut = true;
            ::kill(pid, SIGKILL);
            break;
        }
        pollfd fds[2] = {{errOpen ? err[0] : -1, POLLIN, 0}, {outOpen ? out[0] : -1, POLLIN, 0}};
        if (::poll(fds, 2, int(std::min<long long>(left.count(), 1000))) < 0 && errno != EINTR) break;
        if (errOpen && fds[0].revents) errOpen = drain(err[0], run.standardError);
        if (outOpen && fds[1].revents) outOpen = drain(out[0], run.standardOutput);
    }
    ::close(err[0]);
    ::close(out[0]);

    // A child that closed its output may still be running: keep to the deadline while waiting for it too.
    int status = 0;
    rusage usage{};
    for (;;) {
        const pid_t done = ::wait4(pid, &status, run.timedOut ? 0 : WNOHANG, &usage);
        if (done == pid || (done < 0 && errno != EINTR)) break;
        if (done == 0 && std::chrono::steady_clock::now() >= deadline) {
            run.timedOut = true;
            ::kill(pid, SIGKILL);
        } else if (done == 0) {
            ::usleep(10000);
        }
    }
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.peakRssKb = usage.ru_maxrss;
    run.exited = WIFEXITED(status);
    if (run.exited) run.exitStatus = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) run.signal = WTERMSIG(status);
    return run;
}

int countOccurrences(const std::string& text, const std::string& needle) {
    int n = 0;
    for (size_t pos = text.find(needle); pos != std::string::npos; pos = text.find(needle, pos + needle.size())) ++n;
    return n;
}

std::vector<std::string> folderEntries(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace vo::test
