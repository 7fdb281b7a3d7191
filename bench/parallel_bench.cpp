// Row-stripe work through the parallel task engine against one thread.
//
// The work is what the image routes hand the engine: 18 stripes of rows of
// a 3000 x 4000 one-byte image, each row smoothed horizontally with a 1-2-1
// kernel and mapped through a 256-entry tone table into a second image (the
// table lookups keep it from being a pure memory copy). The engine is
// measured both as the routes use it (created and stopped around every
// operation) and kept alive. Wall-clock time is reported, as the work runs
// on other threads. Both images are allocated once, outside the timed loops.
//
// The workers' real-time priority matters here: with the privilege, a
// waking worker pre-empts a normally scheduled caller that is still queueing
// stripes, and with as many workers as cores the stripes then largely run
// one after another. Compare a run without the privilege (the workers fall
// back to the normal policy) or with the caller itself at real-time
// priority (chrt -r 99).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "scrivo/parallel.h"

namespace {

constexpr int kWidth = 3000;
constexpr int kHeight = 4000;
constexpr int kStripes = 18;

struct RowJob {
    const uint8_t* table;
    const uint8_t* src;
    uint8_t* dst;
    int first;
    int last;
};

void SmoothRows(const RowJob& job) {
    for (int y = job.first; y < job.last; ++y) {
        const uint8_t* s = job.src + static_cast<size_t>(y) * kWidth;
        uint8_t* d = job.dst + static_cast<size_t>(y) * kWidth;
        const uint8_t* t = job.table;
        d[0] = t[(3 * s[0] + s[1] + 2) >> 2];
        for (int x = 1; x < kWidth - 1; ++x) d[x] = t[(s[x - 1] + 2 * s[x] + s[x + 1] + 2) >> 2];
        d[kWidth - 1] = t[(s[kWidth - 2] + 3 * s[kWidth - 1] + 2) >> 2];
    }
}

void* SmoothTask(void* arg) {
    SmoothRows(*static_cast<const RowJob*>(arg));
    return nullptr;
}

struct Images {
    std::array<uint8_t, 256> table;
    std::vector<uint8_t> src, dst;
    std::array<RowJob, kStripes> jobs;
    Images() : src(static_cast<size_t>(kWidth) * kHeight), dst(src.size()) {
        for (size_t i = 0; i < src.size(); ++i)
            src[i] = static_cast<uint8_t>(i * 2654435761u >> 24);
        const int s = (kHeight + kStripes - 1) / kStripes;
        for (int i = 0; i < kStripes; ++i) {
            jobs[i] = {table.data(), src.data(), dst.data(), std::min(i * s, kHeight),
                       std::min((i + 1) * s, kHeight)};
        }
    }
};

Images& SharedImages() {
    static Images images;
    return images;
}

bool RunStripes(MCVHandle engine, std::array<RowJob, kStripes>& jobs) {
    std::array<int32_t, kStripes> ids{};
    for (int i = 0; i < kStripes; ++i) {
        ids[i] = mcvAddTask(engine, SmoothTask, &jobs[i]);
        if (ids[i] < 0) return false;
    }
    for (int32_t id : ids) mcvWaitTask(engine, id);
    return true;
}

void Finish(benchmark::State& state, Images& images) {
    benchmark::DoNotOptimize(images.dst.data());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kWidth * kHeight);
}

void BM_StripesSingleThread(benchmark::State& state) {
    Images& images = SharedImages();
    for (auto _ : state) {
        for (const RowJob& job : images.jobs) SmoothRows(job);
        benchmark::ClobberMemory();
    }
    Finish(state, images);
}

void BM_StripesEnginePerOperation(benchmark::State& state) {
    Images& images = SharedImages();
    for (auto _ : state) {
        MCVHandle engine = mcvParallelInit(nullptr, kStripes);
        const bool ran = engine != nullptr && RunStripes(engine, images.jobs);
        mcvParallelUninit(engine);
        if (!ran) {
            state.SkipWithError("the engine did not run the stripes");
            break;
        }
        benchmark::ClobberMemory();
    }
    Finish(state, images);
}

void BM_StripesEngineKept(benchmark::State& state) {
    Images& images = SharedImages();
    MCVHandle engine = mcvParallelInit(nullptr, kStripes);
    if (engine == nullptr) {
        state.SkipWithError("the engine did not start");
        return;
    }
    state.counters["workers"] = mcvParallelEngineCores(engine);
    for (auto _ : state) {
        if (!RunStripes(engine, images.jobs)) {
            state.SkipWithError("the queue refused a stripe");
            break;
        }
        benchmark::ClobberMemory();
    }
    mcvParallelUninit(engine);
    Finish(state, images);
}

}  // namespace

BENCHMARK(BM_StripesSingleThread)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_StripesEnginePerOperation)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_StripesEngineKept)->Unit(benchmark::kMillisecond)->UseRealTime();
