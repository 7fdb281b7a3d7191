// Size of the straightened page.
//
// No camera model is involved: the page is as wide as its longer horizontal
// edge and as tall as its longer vertical edge, stretched by how unequal the
// opposite edges are. Unequal top and bottom edges mean the page leans about
// a horizontal axis, which foreshortens its height, so the horizontal ratio
// rH (capped at 2, snapped to 1 below 1.1) corrects the height by
// (1 + (rH - 1) / 2)^2, and the vertical ratio corrects the width likewise.
// The result is scaled down, keeping its aspect ratio, until it fits inside
// the photograph, then rounded: width to a multiple of 4, height to an even
// number. The padded size grows both to a multiple of 4; the engine reports
// it when it is plausible (non-zero, at most 5 times the photograph, and the
// third vertex off both axes) and the photograph's own size otherwise.
//
// A side of zero length gives the capped ratio when its opposite side is
// longer and ratio 1 when both are zero, so degenerate quadrangles still
// get a finite size (usually 0, which the plausibility rule rejects).
#include <algorithm>
#include <cmath>

#include "vision/rectify/rectify.h"

namespace {

constexpr double kMaxSideRatio = 2.0;
constexpr double kSnapSideRatio = 1.1;
constexpr int64_t kMaxScale = 5;

double Distance(const tem_Point& p, const tem_Point& q) {
    const double dx = static_cast<double>(p.x) - q.x;
    const double dy = static_cast<double>(p.y) - q.y;
    return std::sqrt(dx * dx + dy * dy);
}

// How unequal two opposite sides are, as the correction factor
// 1 + (ratio - 1) / 2 with the ratio capped and snapped.
double SideFactor(double a, double b) {
    const double longer = std::max(a, b);
    const double shorter = std::min(a, b);
    double ratio;
    if (shorter > 0.0) {
        ratio = longer / shorter;
    } else {
        ratio = longer > 0.0 ? kMaxSideRatio : 1.0;
    }
    if (ratio > kMaxSideRatio) {
        ratio = kMaxSideRatio;
    } else if (ratio < kSnapSideRatio) {
        ratio = 1.0;
    }
    return 1.0 + (ratio - 1.0) * 0.5;
}

int32_t RoundUpTo4(int32_t v) {
    return (v % 4 == 0) ? v : (v / 4 + 1) * 4;
}

bool PlausibleSize(const tem_Point quad[4], const cv::Mat& source, int32_t w, int32_t h) {
    const int64_t thirdXY = static_cast<int64_t>(quad[2].x) * quad[2].y;
    return thirdXY != 0 && h <= kMaxScale * source.rows && w <= kMaxScale * source.cols &&
           static_cast<int64_t>(w) * h != 0;
}

}  // namespace

int CalDstSize2(const tem_Point quad[4], const cv::Mat& source, int32_t* width, int32_t* height) {
    if (width != nullptr) *width = 0;
    if (height != nullptr) *height = 0;
    if (quad == nullptr || width == nullptr || height == nullptr || source.cols <= 0 ||
        source.rows <= 0) {
        return 0;
    }
    const double top = Distance(quad[0], quad[3]);
    const double bottom = Distance(quad[1], quad[2]);
    const double left = Distance(quad[0], quad[1]);
    const double right = Distance(quad[3], quad[2]);

    const double fH = SideFactor(top, bottom);
    const double fV = SideFactor(left, right);
    double rawHeight = fH * fH * std::max(left, right);
    double rawWidth = fV * fV * std::max(top, bottom);

    const double fit = std::max(rawWidth / source.cols, rawHeight / source.rows);
    if (fit > 1.0) {
        rawWidth /= fit;
        rawHeight /= fit;
    }
    // Both are now within the photograph's size, so they fit in int32.
    *width = static_cast<int32_t>(rawWidth + 0.5) / 4 * 4;
    *height = static_cast<int32_t>(rawHeight + 0.5) / 2 * 2;
    return 1;
}

int GetRectifiedQuadrangleSize3(const tem_Point quad[4], const cv::Mat& source, VpSize* size) {
    if (size == nullptr) return 0;
    int32_t w = 0;
    int32_t h = 0;
    const int ok = CalDstSize2(quad, source, &w, &h);
    size->width = RoundUpTo4(w);
    size->height = RoundUpTo4(h);
    return ok;
}

int GetRectifiedImageSizeWithVertex(const cv::Mat& source, const tagVPPoint quad[4], int32_t* width,
                                    int32_t* height) {
    int32_t w = source.cols;
    int32_t h = source.rows;
    if (quad != nullptr && source.cols > 0 && source.rows > 0) {
        tem_Point q[4];
        for (int i = 0; i < 4; ++i) q[i] = {quad[i].x, quad[i].y};
        // The vertices must admit a perspective matrix: the warp falls back
        // to the photograph when they do not, and the size must agree.
        cv::Mat matrix;
        VpSize padded{0, 0};
        if (MakeGeometryRectifyMatrix3(q, source, matrix) &&
            GetRectifiedQuadrangleSize3(q, source, &padded) &&
            PlausibleSize(q, source, padded.width, padded.height)) {
            w = padded.width;
            h = padded.height;
        }
    }
    if (width != nullptr) *width = w;
    if (height != nullptr) *height = h;
    return (width != nullptr && height != nullptr) ? 1 : 0;
}

bool RectifiedSizeIsPlausible(const tem_Point quad[4], const cv::Mat& source, int32_t w,
                              int32_t h) {
    return quad != nullptr && PlausibleSize(quad, source, w, h);
}
