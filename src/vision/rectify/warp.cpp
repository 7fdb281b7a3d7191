// Perspective warp of the photograph onto the straightened page: set-up,
// row bands and the rectify entry points (the per-pixel arithmetic is in
// warp_kernel.cpp).
//
// Set-up: the perspective matrix (photograph -> page) is converted to
// double and inverted by SVD, and the inverse fixed as WarpFixedMatrix:
// rows 0 and 1 times 8192 into int32, row 2 times 2^28 into int64,
// truncated toward zero (saturated when out of range, NaN as 0, so a
// degenerate matrix still gives a defined, if black, result).
//
// WarpPerspectiveCrossBorder splits the output into 18 bands of
// (H + 17) / 18 rows, one task record each (from the platform allocator,
// zeroed), run by the parallel task engine; bands write disjoint rows and
// only read the photograph, so nothing is locked. When the engine cannot
// start, the records are freed and 1 is returned with the output unfilled;
// when the records cannot be allocated, the engine is shut down and 1 is
// returned likewise: the callers expect 1 either way. A band the engine's
// queue refuses is run on the calling thread instead of being lost.
// WarpPerspectiveCrossBorderFast (nearest neighbour, for animation frames)
// runs on the calling thread.
//
// The rectify path sizes the page (rect_size.cpp), builds the matrix onto
// the unpadded size (homography.cpp) and warps into the padded size, whose
// extra rows sample the photograph below the page's bottom edge. Vertices
// without a matrix or with an implausible size give a copy of the photograph.
#include <algorithm>
#include <cstdint>
#include <limits>

#include "pixel/large_image.h"
#include "scrivo/parallel.h"
#include "scrivo/platform.h"
#include "vision/rectify/rectify.h"

namespace {

bool UsableImage(const cv::Mat& image) {
    return !image.empty() && image.type() == CV_8UC3;
}

int32_t Fix32(double v) {
    if (!(v == v)) return 0;
    if (v >= 2147483647.0) return std::numeric_limits<int32_t>::max();
    if (v <= -2147483648.0) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(v);
}

int64_t Fix64(double v) {
    if (!(v == v)) return 0;
    if (v >= 9223372036854775808.0) return std::numeric_limits<int64_t>::max();
    if (v <= -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(v);
}

struct WarpTask {
    const cv::Mat* source;
    cv::Mat* target;
    int32_t a00, a01, a02;
    int32_t a10, a11, a12;
    int64_t a20, a21, a22;
    int32_t firstRow;
    int32_t endRow;
    int32_t index;
};

void* mtThreadWarpFun(void* argument) {
    const WarpTask* t = static_cast<const WarpTask*>(argument);
    const WarpFixedMatrix m{t->a00, t->a01, t->a02, t->a10, t->a11, t->a12, t->a20, t->a21, t->a22};
    WarpRows(*t->source, *t->target, m, t->firstRow, t->endRow, WarpSampling::kBilinear);
    return nullptr;
}

void FillTasks(const cv::Mat& source, cv::Mat& target, const WarpFixedMatrix& m, WarpTask* tasks) {
    for (int32_t i = 0; i < kWarpBands; ++i) {
        WarpTask& t = tasks[i];
        t.source = &source;
        t.target = &target;
        t.a00 = m.a00;
        t.a01 = m.a01;
        t.a02 = m.a02;
        t.a10 = m.a10;
        t.a11 = m.a11;
        t.a12 = m.a12;
        t.a20 = m.a20;
        t.a21 = m.a21;
        t.a22 = m.a22;
        WarpBandRows(target.rows, i, &t.firstRow, &t.endRow);
        t.index = i;
    }
}

bool PrepareWarp(const cv::Mat& source, const cv::Mat& target, const cv::Mat& matrix,
                 WarpFixedMatrix* m) {
    return UsableImage(source) && UsableImage(target) && MakeWarpFixedMatrix(matrix, m);
}

enum class BandRunner { kEngine, kCallingThread };

int WarpBands(const cv::Mat& source, cv::Mat& target, const cv::Mat& matrix, BandRunner runner) {
    WarpFixedMatrix m;
    if (!PrepareWarp(source, target, matrix, &m)) return 0;
    MCVHandle engine = nullptr;
    if (runner == BandRunner::kEngine) engine = mcvParallelInit(nullptr, kWarpBands);
    auto* tasks = static_cast<WarpTask*>(MMemAlloc(nullptr, sizeof(WarpTask) * kWarpBands));
    if (runner == BandRunner::kEngine && engine == nullptr) {
        MMemFree(nullptr, tasks);
        return 1;
    }
    if (tasks == nullptr) {
        if (engine != nullptr) mcvParallelUninit(engine);
        return 1;
    }
    MMemSet(tasks, 0, sizeof(WarpTask) * kWarpBands);
    FillTasks(source, target, m, tasks);
    if (engine == nullptr) {
        for (int32_t i = 0; i < kWarpBands; ++i) mtThreadWarpFun(&tasks[i]);
    } else {
        int32_t ids[kWarpBands];
        for (int32_t i = 0; i < kWarpBands; ++i) {
            ids[i] = mcvAddTask(engine, mtThreadWarpFun, &tasks[i]);
            // A refused band is done here rather than left unfilled.
            if (ids[i] < 0) mtThreadWarpFun(&tasks[i]);
        }
        for (int32_t i = 0; i < kWarpBands; ++i) {
            if (ids[i] >= 0) mcvWaitTask(engine, ids[i]);
        }
        mcvParallelUninit(engine);
    }
    MMemFree(nullptr, tasks);
    return 1;
}

tem_Point ToPoint(const tagVPPoint& p) {
    return {p.x, p.y};
}

}  // namespace

bool MakeWarpFixedMatrix(const cv::Mat& matrix, WarpFixedMatrix* fixed) {
    if (fixed == nullptr || matrix.rows != 3 || matrix.cols != 3 || matrix.channels() != 1) {
        return false;
    }
    try {
        cv::Mat forward;
        matrix.convertTo(forward, CV_64F, 1.0, 0.0);
        cv::Mat inverse;
        cv::invert(forward, inverse, cv::DECOMP_SVD);
        const auto at = [&](int r, int c) { return inverse.at<double>(r, c); };
        *fixed = {Fix32(at(0, 0) * 8192.0),      Fix32(at(0, 1) * 8192.0),
                  Fix32(at(0, 2) * 8192.0),      Fix32(at(1, 0) * 8192.0),
                  Fix32(at(1, 1) * 8192.0),      Fix32(at(1, 2) * 8192.0),
                  Fix64(at(2, 0) * 268435456.0), Fix64(at(2, 1) * 268435456.0),
                  Fix64(at(2, 2) * 268435456.0)};
    } catch (const cv::Exception&) {
        return false;
    }
    return true;
}

void WarpBandRows(int32_t height, int32_t index, int32_t* first, int32_t* end) {
    const int32_t band = (std::max(height, 0) + kWarpBands - 1) / kWarpBands;
    const int64_t begin = int64_t{index} * band;
    *first = static_cast<int32_t>(std::min<int64_t>(begin, height));
    *end = static_cast<int32_t>(std::min<int64_t>(begin + band, height));
    if (*first < 0) *first = 0;
    if (*end < *first) *end = *first;
}

int WarpPerspectiveCrossBorder(const cv::Mat& source, cv::Mat& target, const cv::Mat& matrix) {
    return WarpBands(source, target, matrix, BandRunner::kEngine);
}

int WarpPerspectiveCrossBorderSerial(const cv::Mat& source, cv::Mat& target,
                                     const cv::Mat& matrix) {
    return WarpBands(source, target, matrix, BandRunner::kCallingThread);
}

int WarpPerspectiveCrossBorderFast(const cv::Mat& source, cv::Mat& target, const cv::Mat& matrix) {
    WarpFixedMatrix m;
    if (!PrepareWarp(source, target, matrix, &m)) return 0;
    WarpRows(source, target, m, 0, target.rows, WarpSampling::kNearest);
    return 1;
}

cv::Mat PerspectiveRectifyAndCutImage(const cv::Mat& source, const tagVPPoint quad[4]) {
    if (!UsableImage(source) || quad == nullptr) return cv::Mat();
    try {
        const tem_Point q[4] = {ToPoint(quad[0]), ToPoint(quad[1]), ToPoint(quad[2]),
                                ToPoint(quad[3])};
        cv::Mat matrix;
        VpSize size{0, 0};
        if (MakeGeometryRectifyMatrix3(q, source, matrix) &&
            GetRectifiedQuadrangleSize3(q, source, &size) &&
            RectifiedSizeIsPlausible(q, source, size.width, size.height)) {
            cv::Mat out(size.height, size.width, source.type());
            WarpPerspectiveCrossBorder(source, out, matrix);
            return out;
        }
        return source.clone();
    } catch (...) {
        return cv::Mat();
    }
}

int PerspectiveRectifyAndCutImageAnimation(const cv::Mat& source, cv::Mat& target,
                                           const tagVPPoint quad[4]) {
    if (!UsableImage(source) || !UsableImage(target) || quad == nullptr) return 0;
    if (int64_t{quad[2].x} * quad[2].y == 0 || target.rows > int64_t{5} * source.rows ||
        target.cols > int64_t{5} * source.cols) {
        return 0;
    }
    const tem_Point q[4] = {ToPoint(quad[0]), ToPoint(quad[1]), ToPoint(quad[2]), ToPoint(quad[3])};
    cv::Mat matrix;
    if (!MakeGeometryRectifyMatrix4(q, target.cols, target.rows, matrix)) return 0;
    return WarpPerspectiveCrossBorderFast(source, target, matrix);
}

cv::Mat GeometryRectifyWithVanishingPoint(const cv::Mat& source, const cv::Mat& matrix, int32_t w,
                                          int32_t h) {
    if (!UsableImage(source) || w <= 0 || h <= 0) return cv::Mat();
    try {
        cv::Mat out;
        scrivo::pixel::CreateLarge(out, h, w, source.type());
        if (!WarpPerspectiveCrossBorder(source, out, matrix)) return cv::Mat();
        return out;
    } catch (...) {
        return cv::Mat();
    }
}
