// Peak memory of one run of a piece of work, measured in a forked child: the
// child resets its peak resident size (clear_refs 5), runs the work and
// reports VmRSS before and VmHWM after through a pipe, so neither earlier
// work of the benchmark process nor its allocator's leftovers count.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <utility>

namespace benchsupport {

inline long StatusKiB(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const size_t n = std::strlen(field);
    while (std::getline(status, line))
        if (line.compare(0, n, field) == 0) return std::stol(line.substr(n + 1));
    return -1;
}

// {peak, peak above the start} in MB (10^6 bytes) of one run of `work`,
// which returns a positive number when it did its job; {-1, -1} when the
// work failed or nothing could be measured.
inline std::pair<double, double> PeakMB(const std::function<long()>& work) {
    int fds[2];
    if (pipe(fds) != 0) return {-1, -1};
    const pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        if (FILE* f = std::fopen("/proc/self/clear_refs", "w")) {
            std::fputs("5", f);
            std::fclose(f);
        }
        long r[3];
        r[1] = StatusKiB("VmRSS:");
        r[0] = work();
        r[2] = StatusKiB("VmHWM:");
        _exit(write(fds[1], r, sizeof r) == ssize_t(sizeof r) ? 0 : 1);
    }
    close(fds[1]);
    long r[3] = {0, 0, 0};
    const ssize_t got = child > 0 ? read(fds[0], r, sizeof r) : -1;
    close(fds[0]);
    if (child > 0) waitpid(child, nullptr, 0);
    if (got != ssize_t(sizeof r) || r[0] <= 0) return {-1, -1};
    return {double(r[2]) * 1024 / 1e6, double(r[2] - r[1]) * 1024 / 1e6};
}

}  // namespace benchsupport
