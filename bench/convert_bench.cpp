// Engine image conversions on a 12-megapixel photograph (4000 x 3000).
//
// The live path of one capture: the decoded 32-bit bitmap becomes the
// 3-channel working copy, results go back into a 32-bit bitmap, and a
// rotation or a luma/chroma split may come in between. Buffers are made
// once, outside the timed loops; bytes processed count the source image.
#include <benchmark/benchmark.h>

#include <vector>

#include "engine/image.h"

namespace {

constexpr int kWidth = 4000;
constexpr int kHeight = 3000;

cv::Mat Photo() {
    cv::Mat m(kHeight, kWidth, CV_8UC3);
    cv::randu(m, 0, 256);
    return m;
}

void BM_RecordToWorkingImage(benchmark::State& state) {
    std::vector<uint8_t> rgba(static_cast<size_t>(kWidth) * kHeight * 4, 0x5A);
    tagVPImage rec = {0, 4, 8, kWidth, kWidth * 4, kHeight, rgba.data()};
    for (auto _ : state) benchmark::DoNotOptimize(CreateCvImageFromVPImage(&rec).data);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(rgba.size()));
}
BENCHMARK(BM_RecordToWorkingImage)->Unit(benchmark::kMillisecond);

void BM_WorkingImageToRecord(benchmark::State& state) {
    const cv::Mat img = Photo();
    std::vector<uint8_t> rgba(static_cast<size_t>(kWidth) * kHeight * 4);
    tagVPImage rec = {0, 4, 8, kWidth, kWidth * 4, kHeight, rgba.data()};
    for (auto _ : state) benchmark::DoNotOptimize(CopyCvImage2VPImageBuffer(img, &rec));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(img.total() * 3));
}
BENCHMARK(BM_WorkingImageToRecord)->Unit(benchmark::kMillisecond);

void BM_Rotate(benchmark::State& state) {
    const cv::Mat img = Photo();
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            RotateImageWithfixDegree(img, static_cast<tagVPRotateDegree>(state.range(0))).data);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(img.total() * 3));
}
BENCHMARK(BM_Rotate)->Arg(1)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond);

void BM_LumaChromaRoundTrip(benchmark::State& state) {
    const cv::Mat img = Photo();
    cv::Mat y, cr, cb, back;
    for (auto _ : state) {
        RGB24ToYCbCr(img, y, cr, cb);
        YCbCrToRGB24(back, y, cr, cb);
        benchmark::DoNotOptimize(back.data);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(img.total() * 3));
}
BENCHMARK(BM_LumaChromaRoundTrip)->Unit(benchmark::kMillisecond);

// The luma/chroma split and join on a 300 dpi A4 page (2480 x 3508), one
// benchmark per kernel so that the reference and the vector kernels compare
// within one run. The enhancement methods do a split and a join per page.
constexpr int kPageWidth = 2480;
constexpr int kPageHeight = 3508;

const char* KernelName(PlaneKernel kernel) {
    switch (kernel) {
        case PlaneKernel::kAuto:
            return "auto";
        case PlaneKernel::kReference:
            return "reference";
        case PlaneKernel::kPortable:
            return "portable";
        case PlaneKernel::kSse2:
            return "sse2";
        case PlaneKernel::kAvx2:
            return "avx2";
    }
    return "?";
}

// Arg: the PlaneKernel; false (and the run marked) when it cannot run here.
bool PageKernel(benchmark::State& state, PlaneKernel* kernel) {
    *kernel = static_cast<PlaneKernel>(state.range(0));
    state.SetLabel(KernelName(*kernel));
    if (PlaneKernelAvailable(*kernel)) return true;
    state.SkipWithError("kernel not available on this machine");
    return false;
}

cv::Mat Page() {
    cv::Mat m(kPageHeight, kPageWidth, CV_8UC3);
    cv::randu(m, 0, 256);
    return m;
}

void PageKernelArgs(benchmark::internal::Benchmark* b) {
    b->ArgName("kernel")->Unit(benchmark::kMillisecond);
    for (PlaneKernel k : {PlaneKernel::kReference, PlaneKernel::kPortable, PlaneKernel::kSse2,
                          PlaneKernel::kAvx2, PlaneKernel::kAuto}) {
        b->Arg(static_cast<int>(k));
    }
}

void BM_PageSplit(benchmark::State& state) {
    PlaneKernel kernel;
    if (!PageKernel(state, &kernel)) return;
    const cv::Mat page = Page();
    cv::Mat y, cr, cb;
    for (auto _ : state) {
        RGB24ToYCbCr(page, y, cr, cb, kernel);
        benchmark::DoNotOptimize(y.data);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.total() * 3));
}
BENCHMARK(BM_PageSplit)->Apply(PageKernelArgs);

void BM_PageLuma(benchmark::State& state) {
    PlaneKernel kernel;
    if (!PageKernel(state, &kernel)) return;
    const cv::Mat page = Page();
    cv::Mat y;
    for (auto _ : state) {
        RGB24ToY(page, y, kernel);
        benchmark::DoNotOptimize(y.data);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.total() * 3));
}
BENCHMARK(BM_PageLuma)->Apply(PageKernelArgs);

void BM_PageJoin(benchmark::State& state) {
    PlaneKernel kernel;
    if (!PageKernel(state, &kernel)) return;
    const cv::Mat page = Page();
    cv::Mat y, cr, cb, back;
    RGB24ToYCbCr(page, y, cr, cb);
    for (auto _ : state) {
        YCbCrToRGB24(back, y, cr, cb, kernel);
        benchmark::DoNotOptimize(back.data);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.total() * 3));
}
BENCHMARK(BM_PageJoin)->Apply(PageKernelArgs);

void BM_Yuv420ToRgb24(benchmark::State& state) {
    std::vector<uint8_t> yuv(static_cast<size_t>(kWidth) * kHeight * 3 / 2, 0x80);
    std::vector<uint8_t> rgb(static_cast<size_t>(Align4Row(kWidth)) * kHeight);
    for (auto _ : state) {
        benchmark::DoNotOptimize(YUV420toRGB24_convert(yuv.data(), rgb.data(), kWidth, kHeight));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(rgb.size()));
}
BENCHMARK(BM_Yuv420ToRgb24)->Unit(benchmark::kMillisecond);

}  // namespace
