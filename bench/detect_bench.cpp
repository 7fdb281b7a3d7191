// Page detection against a textbook contour detector: the fixed detector
// alone (DetectAgainstContours), and the whole verified page search of the
// engine (PageSearchAgainstContours).
//
// One 12-megapixel photograph of a page (synth-dev/0008.jpg, 4000 x 3000,
// an easy case) is decoded once into the three-channel R, G, B image the
// engine keeps. Each detector gets it the way the engine's page search does:
// reduced bilinearly so that the longer side is at most 2048 pixels (the
// engine's own search size), then searched; the reduction is part of the
// time. The contour detector is the classic one: grey, 5 x 5 Gaussian blur,
// Canny (75, 200), every contour, the largest-area contours first, and the
// first whose polygon approximation (2 % of its perimeter) has four points.
//
// Everything runs on one thread (OpenCV's own threading off). The
// BM_DetectAgainstContours pair runs both detectors alternately in each
// iteration, so that load from elsewhere on the machine affects both; its
// counters are their mean times in milliseconds, ours / contour, and whether
// each found a page. The repetitions' median is the figure to read.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <jpeglib.h>
#include <opencv2/imgproc.hpp>

#include "engine/client.h"
#include "support/libjpeg_ref.h"
#include "vision/detect/detector.h"

namespace {

struct Photo {
    cv::Mat image;  // R, G, B bytes, as the engine holds the photograph
    std::string error;
};

Photo LoadPhoto() {
    Photo photo;
    // The shared data lives beside the repository: <root>/../shared/data.
    std::string path = __FILE__;
    path = path.substr(0, path.rfind("/bench/")) + "/../shared/data/synth-dev/0008.jpg";
    std::vector<uint8_t> bytes;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        uint8_t buf[65536];
        for (size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;)
            bytes.insert(bytes.end(), buf, buf + n);
        std::fclose(f);
    }
    if (bytes.empty()) {
        photo.error = "cannot read " + path;
        return photo;
    }
    libjpeg_ref::Decoded d = libjpeg_ref::Decompress(bytes, JCS_RGB);
    if (!d.ok || d.components != 3) {
        photo.error = "cannot decode " + path;
        return photo;
    }
    photo.image = cv::Mat(d.height, d.width, CV_8UC3, d.pixels.data()).clone();
    return photo;
}

const Photo& SharedPhoto() {
    static const Photo photo = LoadPhoto();
    return photo;
}

// The engine's page-search reduction.
cv::Mat SearchImage(const cv::Mat& source) {
    const PageSearchSize size = GetPageSearchSize(source.cols, source.rows, false);
    if (!size.resize) return source;
    cv::Mat reduced;
    cv::resize(source, reduced, cv::Size(size.width, size.height), 0.0, 0.0, cv::INTER_LINEAR);
    return reduced;
}

bool DetectOurs(const cv::Mat& source) {
    const cv::Mat work = SearchImage(source);
    tem_Point corners[4] = {};
    int edgeCount = 0;
    const int found = GetQuotationSheetEdge(work, nullptr, corners, &edgeCount);
    benchmark::DoNotOptimize(corners);
    return found != 0;
}

bool DetectContours(const cv::Mat& source) {
    const cv::Mat work = SearchImage(source);
    cv::Mat grey, edges;
    cv::cvtColor(work, grey, cv::COLOR_RGB2GRAY);
    cv::GaussianBlur(grey, grey, cv::Size(5, 5), 0.0);
    cv::Canny(grey, edges, 75, 200);
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(edges, contours, cv::RETR_LIST, cv::CHAIN_APPROX_SIMPLE);
    std::vector<double> areas(contours.size());
    std::vector<size_t> order(contours.size());
    for (size_t i = 0; i < contours.size(); ++i) {
        areas[i] = cv::contourArea(contours[i]);
        order[i] = i;
    }
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return areas[a] > areas[b]; });
    std::vector<cv::Point> quad;
    for (size_t i : order) {
        cv::approxPolyDP(contours[i], quad, 0.02 * cv::arcLength(contours[i], true), true);
        if (quad.size() == 4) break;
    }
    benchmark::DoNotOptimize(quad.data());
    return quad.size() == 4;
}

double Milliseconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

// False (and the benchmark marked as failed) when the photograph is missing.
bool Ready(benchmark::State& state) {
    const Photo& photo = SharedPhoto();
    if (photo.image.empty()) {
        state.SkipWithError(photo.error.c_str());
        return false;
    }
    cv::setNumThreads(0);
    return true;
}

// The whole page search as the engine runs it: reduction, the detector's
// passes, the candidates' evidence and the refinement on the photograph.
bool SearchOurs(const cv::Mat& source) {
    const PageSearchAnswer a = SearchPageInPhotograph(source, false, nullptr, false);
    benchmark::DoNotOptimize(a.corners);
    return a.found;
}

// Ours and the contour detector alternately in each iteration.
void AgainstContours(benchmark::State& state, bool (*ours)(const cv::Mat&)) {
    if (!Ready(state)) return;
    const cv::Mat& source = SharedPhoto().image;
    double oursMs = 0.0, theirsMs = 0.0;
    bool oursFound = false, theirsFound = false;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        oursFound = ours(source);
        const auto t1 = std::chrono::steady_clock::now();
        theirsFound = DetectContours(source);
        const auto t2 = std::chrono::steady_clock::now();
        oursMs += Milliseconds(t1 - t0);
        theirsMs += Milliseconds(t2 - t1);
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["ours_ms"] = oursMs / n;
    state.counters["contour_ms"] = theirsMs / n;
    state.counters["ratio"] = theirsMs > 0.0 ? oursMs / theirsMs : 0.0;
    state.counters["ours_found"] = oursFound;
    state.counters["contour_found"] = theirsFound;
    cv::setNumThreads(-1);
}

void BM_DetectAgainstContours(benchmark::State& state) {
    AgainstContours(state, DetectOurs);
}

void BM_PageSearchAgainstContours(benchmark::State& state) {
    AgainstContours(state, SearchOurs);
}

// Each detector alone, for a profile or a quick look at one of them.
void BM_DetectAgainstContoursOursOnly(benchmark::State& state) {
    if (!Ready(state)) return;
    const cv::Mat& source = SharedPhoto().image;
    for (auto _ : state) benchmark::DoNotOptimize(DetectOurs(source));
    cv::setNumThreads(-1);
}

void BM_DetectAgainstContoursContourOnly(benchmark::State& state) {
    if (!Ready(state)) return;
    const cv::Mat& source = SharedPhoto().image;
    for (auto _ : state) benchmark::DoNotOptimize(DetectContours(source));
    cv::setNumThreads(-1);
}

}  // namespace

BENCHMARK(BM_DetectAgainstContours)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->MinTime(1.0)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_PageSearchAgainstContours)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->MinTime(1.0)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_DetectAgainstContoursOursOnly)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_DetectAgainstContoursContourOnly)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);
