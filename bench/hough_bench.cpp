// Segment extraction against OpenCV's HoughLinesP.
//
// The map is what the detector feeds the transform (page_edge_map.h: a
// 680 x 510 reduced photograph of a tilted page on a noisy table with text
// strokes and a ring, through Canny and a 3 x 3 dilation, about a tenth of
// the pixels set). Both run with the
// detector's parameters (1 px, 2 degrees, 60 votes, 10 px, gap 2) on one
// thread, alternately inside one benchmark so that load from elsewhere on
// the machine affects both; the counters give their mean times in
// milliseconds, ours / OpenCV, the edge share and the segment counts.
#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "vision/detect/detector_internal.h"
#include "vision/detect/page_edge_map.h"

namespace {

constexpr double kTwoDegrees = 0.034906585;

double Milliseconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

void BM_HoughAgainstOpenCV(benchmark::State& state) {
    static const cv::Mat edges = detect_test::PageEdgeMap();
    cv::setNumThreads(1);
    double oursMs = 0.0;
    double theirsMs = 0.0;
    size_t oursCount = 0;
    size_t theirsCount = 0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        const std::vector<HoughSegment> ours = QvVP_HoughLines(edges, 1.0, kTwoDegrees, 60, 10, 2);
        const auto t1 = std::chrono::steady_clock::now();
        std::vector<cv::Vec4i> theirs;
        cv::HoughLinesP(edges, theirs, 1.0, kTwoDegrees, 60, 10, 2);
        const auto t2 = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(ours.data());
        benchmark::DoNotOptimize(theirs.data());
        oursMs += Milliseconds(t1 - t0);
        theirsMs += Milliseconds(t2 - t1);
        oursCount = ours.size();
        theirsCount = theirs.size();
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["ours_ms"] = oursMs / n;
    state.counters["opencv_ms"] = theirsMs / n;
    state.counters["ratio"] = oursMs / theirsMs;
    state.counters["edge_share"] = cv::countNonZero(edges) / static_cast<double>(edges.total());
    state.counters["ours_segs"] = static_cast<double>(oursCount);
    state.counters["opencv_segs"] = static_cast<double>(theirsCount);
    cv::setNumThreads(-1);
}

}  // namespace

BENCHMARK(BM_HoughAgainstOpenCV)->UseManualTime()->Unit(benchmark::kMillisecond);
