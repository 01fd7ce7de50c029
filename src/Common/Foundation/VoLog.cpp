// SPDX-License-Identifier: MIT
#include "VoLog.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>

extern char* program_invocation_short_name;

namespace vo {

namespace {
std::mutex& sinkMutex() {
    static std::mutex m;
    return m;
}
VoLogSink& sink() {
    static VoLogSink s;
    return s;
}
}  // namespace

std::string VoLogLine(std::string_view message) {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char stamp[64];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    char prefix[160];
    std::snprintf(prefix, sizeof prefix, "%s.%03d %s[%d:%ld] ", stamp, int(millis), program_invocation_short_name,
                  int(getpid()), long(syscall(SYS_gettid)));
    std::string line(prefix);
    line.append(message);
    line.push_back('\n');
    return line;
}

void VoLog(std::string_view message) {
    const std::string line = VoLogLine(message);
    std::lock_guard lock(sinkMutex());
    if (sink()) return sink()(line);
    // One write, so lines from several threads never interleave.
    size_t done = 0;
    while (done < line.size()) {
        const ssize_t n = ::write(STDERR_FILENO, line.data() + done, line.size() - done);
        if (n <= 0) break;
        done += size_t(n);
    }
}

VoLogSink VoSetLogSink(VoLogSink newSink) {
    std::lock_guard lock(sinkMutex());
    VoLogSink previous = std::move(sink());
    sink() = std::move(newSink);
    return previous;
}

}  // namespace vo
