// Enhancement on a full A4 page at 300 dpi (2480 x 3508).
//
// BM_EconomicAgainstAdaptiveThreshold runs the ink-saving threshold
// (BinaryBlock, window 32, k = 0.1) and OpenCV's adaptive mean threshold
// (31 x 31) on the same grey page alternately in each iteration, so that
// load from elsewhere on the machine affects both; its counters are their
// mean times in milliseconds and ours / OpenCV. BM_EconomicTileByTile is
// the literal tile-by-tile rendering the one-pass version is checked
// against. BM_EnhanceMethod/N times the whole rendering by method N,
// including the luma/chroma split and join, of the page under uneven light
// (so method 3 takes its flattening route). OpenCV runs on one thread;
// method 3's per-pixel step uses the engine's task threads.
#include <benchmark/benchmark.h>

#include <chrono>

#include <opencv2/imgproc.hpp>

#include "vision/enhance/binarize.h"
#include "vision/enhance/enhance.h"
#include "vision/enhance/test_pages.h"

namespace {

const cv::Mat& ColourPage() {
    static const cv::Mat page = test_pages::TextPage(2480, 3508, 215, 50);
    return page;
}

// The same page photographed under light falling from 100 % to 60 %.
const cv::Mat& ShadedPage() {
    static const cv::Mat page = test_pages::Shaded(ColourPage(), 1.0, 0.6);
    return page;
}

const cv::Mat& GreyPage() {
    static const cv::Mat grey = test_pages::Luma(ColourPage());
    return grey;
}

double Milliseconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

void BM_EconomicAgainstAdaptiveThreshold(benchmark::State& state) {
    cv::setNumThreads(0);
    const cv::Mat& grey = GreyPage();
    cv::Mat ours(grey.size(), CV_8UC1), theirs(grey.size(), CV_8UC1);
    double oursMs = 0.0, theirsMs = 0.0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        BinaryBlock(grey, ours, tem_SauvolaPara{5, 0.1f});
        const auto t1 = std::chrono::steady_clock::now();
        cv::adaptiveThreshold(grey, theirs, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, 31,
                              10);
        const auto t2 = std::chrono::steady_clock::now();
        oursMs += Milliseconds(t1 - t0);
        theirsMs += Milliseconds(t2 - t1);
        benchmark::DoNotOptimize(ours.data);
        benchmark::DoNotOptimize(theirs.data);
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["ours_ms"] = oursMs / n;
    state.counters["opencv_ms"] = theirsMs / n;
    state.counters["ratio"] = oursMs / theirsMs;
}
BENCHMARK(BM_EconomicAgainstAdaptiveThreshold)->Unit(benchmark::kMillisecond);

void BM_EconomicTileByTile(benchmark::State& state) {
    const cv::Mat& grey = GreyPage();
    cv::Mat out(grey.size(), CV_8UC1);
    for (auto _ : state) {
        BinaryBlockReference(grey, out, tem_SauvolaPara{5, 0.1f});
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK(BM_EconomicTileByTile)->Unit(benchmark::kMillisecond);

void BM_EnhanceMethod(benchmark::State& state) {
    cv::setNumThreads(0);
    const cv::Mat& page = ShadedPage();
    const auto method = static_cast<tagVPEnhanceMethod>(state.range(0));
    for (auto _ : state) {
        cv::Mat out = EnhanceImage(page, method, nullptr);
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK(BM_EnhanceMethod)->Arg(2)->Arg(3)->Arg(4)->Arg(5)->Unit(benchmark::kMillisecond);

}  // namespace
