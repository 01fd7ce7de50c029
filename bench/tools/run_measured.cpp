// SPDX-License-Identifier: MIT
// run_measured COMMAND [ARG ...]
//
// Runs COMMAND (its standard output goes to /dev/null, its standard error is inherited) and prints
// "SECONDS MAXRSS_KB STATUS CPU_SECONDS" on one line: wall time from fork to wait4, the peak resident set
// from wait4's ru_maxrss, the exit status (128 + signal number when killed by a signal; 127 when it cannot
// start), and the processor time of all its threads, user and system (wait4's ru_utime + ru_stime).
//
// Why a launcher of its own: Linux carries the resident set of the process that forks into the child's
// peak (fork copies the counters; vfork and posix_spawn share the parent's memory until exec, whose
// high-water mark is kept). Launched from Python, every tool would show at least the interpreter's ~17 MB.
// This program is linked statically and touches almost no memory, so what it adds stays near 1 MB.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: run_measured COMMAND [ARG ...]\n");
        return 2;
    }
    timespec start{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    const pid_t child = fork();
    if (child < 0) {
        std::perror("fork");
        return 2;
    }
    if (child == 0) {
        const int null = open("/dev/null", O_WRONLY);
        if (null >= 0) dup2(null, STDOUT_FILENO);
        execvp(argv[1], argv + 1);
        std::perror(argv[1]);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) < 0) {
        std::perror("wait4");
        return 2;
    }
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    const double seconds = double(end.tv_sec - start.tv_sec) + double(end.tv_nsec - start.tv_nsec) * 1e-9;
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    const double cpu = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                       double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
    std::printf("%.6f %ld %d %.6f\n", seconds, usage.ru_maxrss, code, cpu);
    return 0;
}
