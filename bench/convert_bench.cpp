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
