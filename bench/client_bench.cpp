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

#include "peak_memory.h"
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

void ClientPath12MPTime(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(RunPath());
}
BENCHMARK(ClientPath12MPTime)->Unit(benchmark::kMillisecond);

void ClientPath12MPPeakMemory(benchmark::State& state) {
    std::pair<double, double> peak{-1, -1};
    for (auto _ : state) {
        peak = benchsupport::PeakMB([] { return long(RunPath()); });
        if (peak.first < 0) {
            state.SkipWithError("measurement failed");
            break;
        }
    }
    state.counters["peak_MB"] = peak.first;
    state.counters["path_MB"] = peak.second;
    state.counters["limit_MB"] = 3.0 * kWidth * kHeight * 4 / 1e6;
}
BENCHMARK(ClientPath12MPPeakMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
