// Page warp against OpenCV's warpPerspective.
//
// A 4000 x 3000 photograph (smooth gradients with fine texture, so the
// bilinear reads are not all cache-friendly repeats) holds a tilted page
// quadrangle, which straightens to 3000 x 2200. Both warps use the same
// perspective matrix and output size: ours as the rectify path runs it
// (18 row bands, on the task engine or all on the calling thread), OpenCV's
// with INTER_LINEAR and a black constant border at the same thread count.
// The two are timed alternately inside one benchmark so that load from
// elsewhere on the machine affects both; the counters give their mean
// times in milliseconds and ours / OpenCV. BM_WarpKernel compares the
// kernels chosen at run time; BM_WarpNearest is the animation-frame warp.
//
// BM_RectifyPeakMemory rectifies the page end to end (size, matrix, new
// output image) once per iteration and reports the growth of the process's
// peak resident size; run it alone (--benchmark_filter=PeakMemory) so that
// nothing else has raised the peak before.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <opencv2/imgproc.hpp>

#include "scrivo/parallel.h"
#include "vision/rectify/rectify.h"

namespace {

constexpr int kPhotoWidth = 4000;
constexpr int kPhotoHeight = 3000;
const tagVPPoint kPage[4] = {{560, 450}, {480, 2560}, {3480, 2600}, {3420, 400}};

cv::Mat MakePhoto() {
    cv::Mat photo(kPhotoHeight, kPhotoWidth, CV_8UC3);
    for (int y = 0; y < photo.rows; ++y) {
        uint8_t* p = photo.ptr<uint8_t>(y);
        for (int x = 0; x < photo.cols; ++x) {
            const uint32_t h =
                (static_cast<uint32_t>(x) * 2654435761u) ^ (static_cast<uint32_t>(y) * 40503u);
            p[3 * x + 0] = static_cast<uint8_t>((x >> 4) + (h >> 28));
            p[3 * x + 1] = static_cast<uint8_t>((y >> 4) + (h >> 27 & 15));
            p[3 * x + 2] = static_cast<uint8_t>(((x + y) >> 5) + (h >> 26 & 15));
        }
    }
    return photo;
}

struct Scene {
    cv::Mat photo = MakePhoto();
    cv::Mat matrix;
    cv::Size size;
    Scene() {
        tem_Point q[4];
        for (int i = 0; i < 4; ++i) q[i] = {kPage[i].x, kPage[i].y};
        MakeGeometryRectifyMatrix3(q, photo, matrix);
        VpSize padded{};
        GetRectifiedQuadrangleSize3(q, photo, &padded);
        size = cv::Size(padded.width, padded.height);
    }
};

Scene& SharedScene() {
    static Scene scene;
    return scene;
}

double Milliseconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

// state.range(0): thread count, 1 (everything on the calling thread) or 2.
void BM_WarpAgainstOpenCV(benchmark::State& state) {
    Scene& scene = SharedScene();
    const bool serial = state.range(0) == 1;
    cv::setNumThreads(static_cast<int>(state.range(0)));
    cv::Mat ours(scene.size, CV_8UC3);
    cv::Mat theirs(scene.size, CV_8UC3);
    double oursMs = 0.0;
    double theirsMs = 0.0;
    for (auto _ : state) {
        auto t0 = std::chrono::steady_clock::now();
        if (serial) {
            WarpPerspectiveCrossBorderSerial(scene.photo, ours, scene.matrix);
        } else {
            WarpPerspectiveCrossBorder(scene.photo, ours, scene.matrix);
        }
        auto t1 = std::chrono::steady_clock::now();
        cv::warpPerspective(scene.photo, theirs, scene.matrix, scene.size, cv::INTER_LINEAR,
                            cv::BORDER_CONSTANT, cv::Scalar::all(0));
        auto t2 = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(ours.data);
        benchmark::DoNotOptimize(theirs.data);
        oursMs += Milliseconds(t1 - t0);
        theirsMs += Milliseconds(t2 - t1);
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["ours_ms"] = oursMs / n;
    state.counters["opencv_ms"] = theirsMs / n;
    state.counters["ratio"] = oursMs / theirsMs;
    state.counters["out_w"] = scene.size.width;
    state.counters["out_h"] = scene.size.height;
    cv::setNumThreads(-1);
}

// The bilinear rows on the calling thread with the processor's widest
// kernel (0) and with the build's baseline kernel (1, SSE2 on x86-64).
void BM_WarpKernel(benchmark::State& state) {
    Scene& scene = SharedScene();
    WarpFixedMatrix m;
    MakeWarpFixedMatrix(scene.matrix, &m);
    const WarpKernel kernel = state.range(0) == 0 ? WarpKernel::kBest : WarpKernel::kBaseline;
    cv::Mat out(scene.size, CV_8UC3);
    for (auto _ : state) {
        WarpRows(scene.photo, out, m, 0, out.rows, WarpSampling::kBilinear, kernel);
        benchmark::DoNotOptimize(out.data);
    }
}

void BM_WarpNearest(benchmark::State& state) {
    Scene& scene = SharedScene();
    cv::Mat out(scene.size, CV_8UC3);
    for (auto _ : state) {
        WarpPerspectiveCrossBorderFast(scene.photo, out, scene.matrix);
        benchmark::DoNotOptimize(out.data);
    }
}

long PeakResidentKb() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void BM_RectifyPeakMemory(benchmark::State& state) {
    Scene& scene = SharedScene();
    const long before = PeakResidentKb();
    for (auto _ : state) {
        cv::Mat page = PerspectiveRectifyAndCutImage(scene.photo, kPage);
        benchmark::DoNotOptimize(page.data);
    }
    state.counters["peak_before_MB"] = before / 1024.0;
    state.counters["peak_growth_MB"] = (PeakResidentKb() - before) / 1024.0;
    state.counters["photo_MB"] = scene.photo.total() * 3 / 1048576.0;
}

}  // namespace

BENCHMARK(BM_WarpAgainstOpenCV)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->MinTime(2.0);
BENCHMARK(BM_WarpKernel)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WarpNearest)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RectifyPeakMemory)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
