// The ink-saving rendering: a local Sauvola-type threshold in integer
// arithmetic. Pixels above their threshold become white; the others keep
// their own grey.
#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

struct tem_SauvolaPara {
    int32_t n;  // the window is 2^n pixels on a side
    float k;    // the weight of the deviation, 0.05 ... 0.95
};

constexpr int kSquareRootTableSize = 16385;

// Entry i is the smallest whole number whose square is at least i.
void GetSquareRootTable(int32_t* table);

// The row kernels of the one-pass rendering: kAuto takes the fastest the
// processor has (the reference under SCRIVO_REFERENCE_KERNELS=1); every
// kernel gives the same bytes.
enum class BinarizeKernel { kAuto, kReference, kAvx2 };

// Whether this build and processor can run the kernel.
bool BinarizeKernelAvailable(BinarizeKernel kernel);

// Renders src into dst (both 8-bit one-channel, one size) as the tile loop
// of BinaryBlockReference would, in one pass, and paints a white margin of
// half a window around the page. False, with dst untouched, for a wrong
// pair of images or a kernel this processor cannot run.
bool BinaryBlock(const cv::Mat& src, cv::Mat& dst, tem_SauvolaPara para,
                 BinarizeKernel kernel = BinarizeKernel::kAuto);

// The same rendering computed literally, tile by tile through binarize6:
// the reference BinaryBlock is checked against.
void BinaryBlockReference(const cv::Mat& src, cv::Mat& dst, tem_SauvolaPara para);

// Thresholds one tile into `out` (rows and columns from half a window on);
// 1 when it ran, 0 when the parameters are refused (nothing written).
int binarize6(const cv::Mat& tile, cv::Mat& out, tem_SauvolaPara para, const int32_t* sqrtTable);
