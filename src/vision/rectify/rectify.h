// Rectification: the size of the straightened page and the perspective warp.
#pragma once

#include <opencv2/core.hpp>

#include "scrivo/engine.h"
#include "vision/detect/geometry.h"

// Size estimation. CalDstSize2 and GetRectifiedQuadrangleSize3 return 1, or 0
// (with zero sizes) for null arguments or an empty source.
int CalDstSize2(const tem_Point quad[4], const cv::Mat& source, int32_t* width, int32_t* height);
int GetRectifiedQuadrangleSize3(const tem_Point quad[4], const cv::Mat& source, VpSize* size);
// The padded size when the vertices admit a perspective matrix and the size
// is plausible, else the source's own size. Always writes both outputs (the
// non-null ones) and returns 1 when both were given.
int GetRectifiedImageSizeWithVertex(const cv::Mat& source, const tagVPPoint quad[4], int32_t* width,
                                    int32_t* height);
// The plausibility rule shared by the size query and the rectify path:
// third vertex off both axes, non-zero area, at most 5 times the source.
bool RectifiedSizeIsPlausible(const tem_Point quad[4], const cv::Mat& source, int32_t w, int32_t h);

// Perspective matrices (3 x 3, CV_64F) mapping the quadrangle onto
// (0,0), (0,h), (w,h), (w,0). Return 1, or 0 with the matrix empty when the
// vertices admit no perspective matrix (coincident or collinear points, a
// zero-sized output).
int MakeGeometryRectifyMatrix3(const tem_Point quad[4], const cv::Mat& source, cv::Mat& matrix);
int MakeGeometryRectifyMatrix4(const tem_Point quad[4], int32_t w, int32_t h, cv::Mat& matrix);

// Warps. The image functions return an empty image only when memory is short
// or the source is empty or not CV_8UC3.
cv::Mat PerspectiveRectifyAndCutImage(const cv::Mat& source, const tagVPPoint quad[4]);
int PerspectiveRectifyAndCutImageAnimation(const cv::Mat& source, cv::Mat& target,
                                           const tagVPPoint quad[4]);
cv::Mat GeometryRectifyWithVanishingPoint(const cv::Mat& source, const cv::Mat& matrix, int32_t w,
                                          int32_t h);
// Bilinear, 18 row bands on the task engine. target must be allocated.
// Both warps return 1 (also when the task engine could not start and the
// target is left as it was), and 0 only for unusable arguments: source or
// target empty or not CV_8UC3, matrix not 3 x 3.
int WarpPerspectiveCrossBorder(const cv::Mat& source, cv::Mat& target, const cv::Mat& matrix);
// Nearest neighbour, on the calling thread. target must be allocated.
int WarpPerspectiveCrossBorderFast(const cv::Mat& source, cv::Mat& target, const cv::Mat& matrix);

// Internals of the warps, visible for tests and benchmarks.
//
// The inverse matrix (output -> photograph) in fixed point: rows 0 and 1
// with 13 fraction bits, row 2 with 28, truncated toward zero (saturated
// when out of range).
struct WarpFixedMatrix {
    int32_t a00, a01, a02;
    int32_t a10, a11, a12;
    int64_t a20, a21, a22;
};
// Inverts matrix (any depth, 3 x 3) by SVD and fixes it; false when matrix
// is not 3 x 3.
bool MakeWarpFixedMatrix(const cv::Mat& matrix, WarpFixedMatrix* fixed);
enum class WarpSampling { kBilinear, kNearest };
// kBest: the widest vector code the processor has; kBaseline: the code for
// the build's baseline instruction set (also tested on wider processors).
enum class WarpKernel { kBest, kBaseline };
// Output rows [firstRow, endRow) of target from source (both CV_8UC3).
// The reference is the definition of the arithmetic, pixel by pixel; the
// other is the kernel the warps run and gives identical bytes.
void WarpRowsReference(const cv::Mat& source, cv::Mat& target, const WarpFixedMatrix& m,
                       int32_t firstRow, int32_t endRow, WarpSampling sampling);
void WarpRows(const cv::Mat& source, cv::Mat& target, const WarpFixedMatrix& m, int32_t firstRow,
              int32_t endRow, WarpSampling sampling, WarpKernel kernel = WarpKernel::kBest);
// Rows [first, end) of band index (0..17) of an output `height` rows high.
void WarpBandRows(int32_t height, int32_t index, int32_t* first, int32_t* end);
constexpr int32_t kWarpBands = 18;
// WarpPerspectiveCrossBorder with its 18 bands run one after another on the
// calling thread (for single-thread comparisons).
int WarpPerspectiveCrossBorderSerial(const cv::Mat& source, cv::Mat& target, const cv::Mat& matrix);
