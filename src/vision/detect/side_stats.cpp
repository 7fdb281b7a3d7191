// Side statistics of a line: the mean colour of the half image on each side
// of the segment and the difference between the two sides.
//
// The segment's first two points are mapped from work-image pixels to the
// detector's half image (integer arithmetic), and samples are spread evenly
// along it: QvVP_CalculateAver16 takes sixteen, at (2k + 1) / 32 of the
// segment for k = 0..15, QvVP_CalculateAver8 eight, at (2k + 1) / 16 for
// k = 0..7 (the centres of eight equal pieces, so both samplers cover the
// segment symmetrically and never sit on a corner, where the neighbouring
// side would pollute the means). At each sample the pixels two pixels away
// along the line's normal are read: (trunc(2a / b), 2) for a flat line,
// (2, trunc(2b / a)) for a steep one; sample - offset is side A (above /
// left), sample + offset side B. Pixels off the image are skipped. A side is
// valid when at least one pixel was read; the difference A - B is valid when
// both are.
#include <cmath>
#include <cstdlib>

#include "vision/detect/quad_internal.h"

namespace {

void Accumulate(const cv::Mat& half, int32_t x, int32_t y, SideAccumulator* acc) {
    if (x < 0 || y < 0 || x >= half.cols || y >= half.rows) return;
    const cv::Vec3b& px = half.at<cv::Vec3b>(y, x);
    for (int c = 0; c < 3; ++c) acc->sum[c] += px[c];
    ++acc->count;
}

void StoreSide(const SideAccumulator& acc, tem_SideStats* side) {
    side->valid = acc.count > 0 ? 1 : 0;
    for (int c = 0; c < 3; ++c)
        side->value[c] = acc.count > 0 ? static_cast<int32_t>(acc.sum[c] / acc.count) : 0;
}

int32_t TruncRatio(double num, double den) {
    const double v = num / den;
    if (!std::isfinite(v)) return 0;
    if (v > 1e6) return 1000000;
    if (v < -1e6) return -1000000;
    return static_cast<int32_t>(v);
}

// Samples at (2k + 1) / (2 * samples) of the segment, k = 0 .. samples - 1.
void CalculateAver(const tagNoteDetector* detector, tem_Line* line, int samples) {
    if (!line) return;
    line->sideA = tem_SideStats{};
    line->sideB = tem_SideStats{};
    line->sideDiff = tem_SideStats{};
    if (!detector || !line->points || !line->points->points || line->points->count < 2) return;
    const cv::Mat& half = detector->half;
    if (half.empty() || half.type() != CV_8UC3 || detector->width <= 0 || detector->height <= 0)
        return;

    const tem_Point p = line->points->points[0];
    const tem_Point q = line->points->points[1];
    const int64_t hw = detector->halfWidth, hh = detector->halfHeight;
    const int32_t x1 = static_cast<int32_t>(p.x * hw / detector->width);
    const int32_t y1 = static_cast<int32_t>(p.y * hh / detector->height);
    const int32_t x2 = static_cast<int32_t>(q.x * hw / detector->width);
    const int32_t y2 = static_cast<int32_t>(q.y * hh / detector->height);
    const int64_t dx = static_cast<int64_t>(x2) - x1;
    const int64_t dy = static_cast<int64_t>(y2) - y1;

    int32_t ox, oy;
    if (std::fabs(line->b) > std::fabs(line->a)) {
        ox = TruncRatio(2.0 * line->a, line->b);
        oy = 2;
    } else {
        ox = 2;
        oy = TruncRatio(2.0 * line->b, line->a);
    }

    SideAccumulator a{}, b{};
    const int64_t parts = 2 * samples;
    for (int k = 0; k < samples; ++k) {
        const int32_t sx = static_cast<int32_t>(x1 + dx * (2 * k + 1) / parts);
        const int32_t sy = static_cast<int32_t>(y1 + dy * (2 * k + 1) / parts);
        QvVP_GetAverGrey(half, sx, sy, ox, oy, &a, &b);
    }
    StoreSide(a, &line->sideA);
    StoreSide(b, &line->sideB);
    if (line->sideA.valid && line->sideB.valid) {
        line->sideDiff.valid = 1;
        for (int c = 0; c < 3; ++c)
            line->sideDiff.value[c] = line->sideA.value[c] - line->sideB.value[c];
    }
}

}  // namespace

void QvVP_GetAverGrey(const cv::Mat& half, int32_t x, int32_t y, int32_t ox, int32_t oy,
                      SideAccumulator* sideA, SideAccumulator* sideB) {
    if (half.empty() || half.type() != CV_8UC3 || !sideA || !sideB) return;
    Accumulate(half, x - ox, y - oy, sideA);
    Accumulate(half, x + ox, y + oy, sideB);
}

void QvVP_CalculateAver16(const tagNoteDetector* detector, tem_Line* line) {
    CalculateAver(detector, line, 16);
}

void QvVP_CalculateAver8(const tagNoteDetector* detector, tem_Line* line) {
    CalculateAver(detector, line, 8);
}
