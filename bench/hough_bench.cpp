// Segment extraction against OpenCV's HoughLinesP.
//
// The map is what the detector feeds the transform: a 680 x 510 reduced
// photograph of a page in perspective on a textured table, with text
// strokes, a mug ring and a pen as clutter, through Canny and a 3 x 3
// dilation (thick edges, about a tenth of the pixels set). Both run with the
// detector's parameters (1 px, 2 degrees, 60 votes, 10 px, gap 2) on one
// thread, alternately inside one benchmark so that load from elsewhere on
// the machine affects both; the counters give their mean times in
// milliseconds, ours / OpenCV, the edge share and the segment counts.
#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "vision/detect/detector_internal.h"

namespace {

constexpr double kTwoDegrees = 0.034906585;

cv::Mat MakeEdgeMap() {
    cv::Mat photo(510, 680, CV_8UC1);
    cv::RNG noise(11);
    noise.fill(photo, cv::RNG::NORMAL, 95, 20);
    const std::vector<cv::Point> page = {{140, 55}, {70, 470}, {610, 490}, {555, 35}};
    cv::fillConvexPoly(photo, page, cv::Scalar(220));
    for (int r = 0; r < 16; ++r) {  // text lines, slanted with the page
        const int y = 100 + r * 22;
        for (int x = 150 + r * -3; x < 520; x += 31 + (r * 7 + x) % 13)
            cv::rectangle(photo, {x, y + (x - 150) / 40, 22, 7}, cv::Scalar(55), -1);
    }
    cv::circle(photo, {640, 120}, 30, cv::Scalar(40), 5);
    cv::line(photo, {20, 500}, {200, 420}, cv::Scalar(25), 6);
    cv::GaussianBlur(photo, photo, {5, 5}, 1.2);
    cv::Mat edges;
    cv::Canny(photo, edges, 40, 100);
    cv::dilate(edges, edges, cv::Mat::ones(3, 3, CV_8U));
    return edges;
}

double Milliseconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

void BM_HoughAgainstOpenCV(benchmark::State& state) {
    static const cv::Mat edges = MakeEdgeMap();
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
