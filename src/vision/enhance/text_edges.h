// The edge map the text-block search traces: Canny edges of a grey image
// grown by a 3 x 3 dilation, made in one sweep of rolling row buffers.
#pragma once

#include <opencv2/core.hpp>

// The gradient row kernels: kAuto takes the fastest the processor has (the
// reference under SCRIVO_REFERENCE_KERNELS=1); every kernel gives the same
// bytes.
enum class EdgeKernel { kAuto, kReference, kAvx2 };

// Whether this build and processor can run the kernel.
bool EdgeKernelAvailable(EdgeKernel kernel);

// The bytes of cv::Canny(grey, e, low, high, 3) (L1 gradient) followed by
// cv::dilate(e, e, 3 x 3 rectangle): 255 on an edge pixel or beside one,
// else 0, in a newly made image. False, with `edges` untouched, for an
// image that is not 8-bit one-channel, an image whose map with a border
// would pass 2^31 bytes, or a kernel this processor cannot run.
bool DilatedTextEdges(const cv::Mat& grey, int low, int high, cv::Mat& edges,
                      EdgeKernel kernel = EdgeKernel::kAuto);
