// The capture path on a 12-megapixel (4000 x 3000) photograph: create the
// client from an RGBA record, size a slightly skewed page, rectify it into
// an RGBA record of that size.
//
// ClientPath12MPTime times the path. ClientPath12MPPeakMemory runs it once
// in a forked child, which resets its peak resident size (clear_refs 5)
// before starting, and reports the child's VmHWM as counters in MB (10^6
// bytes): peak_MB is the whole process, path_MB the part above the
// resident size just before the path. As in the bridge, the decoded RGBA
// photograph is freed once the client holds its working copy. The target
// is a peak below three times the photograph's RGBA size (3 x 48 MB).
#include <benchmark/benchmark.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "scrivo/engine.h"

namespace {

constexpr int kWidth = 4000;
constexpr int kHeight = 3000;

// Returns 1 when the page was rectified.
int RunPath() {
    VPHandle handle = nullptr;
    {
        std::vector<uint8_t> photo(size_t(kWidth) * kHeight * 4);
        for (size_t i = 0; i < photo.size(); ++i) photo[i] = uint8_t(i ^ (i >> 13));
        tagVPImage record = {VP_FORMAT_RGB, 4, 8, kWidth, kWidth * 4, kHeight, photo.data()};
        handle = VPCreateDocuviaClient(&record);
    }
    if (handle == nullptr) return 0;
    tagVPPoint quad[4] = {{120, 90}, {60, 2930}, {3950, 2960}, {3880, 40}};
    int32_t w = 0, h = 0;
    int ok = 0;
    if (VPGetRectifiedImageSize(handle, quad, &w, &h)) {
        std::vector<uint8_t> pixels(size_t(w) * h * 4);
        tagVPImage out = {VP_FORMAT_RGB, 4, 8, w, w * 4, h, pixels.data()};
        tagVPImage* pout = &out;
        ok = int(VPRectifyVertexArea(handle, quad, &pout));
    }
    VPReleaseDocuviaClient(&handle);
    return ok;
}

long StatusKiB(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const size_t n = std::strlen(field);
    while (std::getline(status, line)) {
        if (line.compare(0, n, field) == 0) return std::stol(line.substr(n + 1));
    }
    return -1;
}

void ClientPath12MPTime(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(RunPath());
}
BENCHMARK(ClientPath12MPTime)->Unit(benchmark::kMillisecond);

void ClientPath12MPPeakMemory(benchmark::State& state) {
    long result[3] = {0, -1, -1};  // rectified, baseline KiB, peak KiB
    for (auto _ : state) {
        int fds[2];
        if (pipe(fds) != 0) {
            state.SkipWithError("pipe failed");
            break;
        }
        const pid_t child = fork();
        if (child == 0) {
            close(fds[0]);
            if (FILE* f = std::fopen("/proc/self/clear_refs", "w")) {
                std::fputs("5", f);
                std::fclose(f);
            }
            long r[3];
            r[1] = StatusKiB("VmRSS:");
            r[0] = RunPath();
            r[2] = StatusKiB("VmHWM:");
            ssize_t written = write(fds[1], r, sizeof r);
            _exit(written == ssize_t(sizeof r) ? 0 : 1);
        }
        close(fds[1]);
        const ssize_t got = child > 0 ? read(fds[0], result, sizeof result) : -1;
        close(fds[0]);
        if (child > 0) waitpid(child, nullptr, 0);
        if (got != ssize_t(sizeof result) || result[0] != 1) {
            state.SkipWithError("measurement failed");
            break;
        }
    }
    const double mb = 1024.0 / 1e6;
    state.counters["peak_MB"] = double(result[2]) * mb;
    state.counters["path_MB"] = double(result[2] - result[1]) * mb;
    state.counters["limit_MB"] = 3.0 * kWidth * kHeight * 4 / 1e6;
}
BENCHMARK(ClientPath12MPPeakMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
