// One sample across an edge: whether a gradient at the point, or one pixel
// either side of it along the normal, is aligned with the normal (the
// dominant gradient first, then the chroma gradient alone), how steep it
// is, and the mean colour of the two bands 3 to 6 pixels either side.
//
// Three pixels either side of the point absorb a line that is half a pixel
// off; the bands start beyond the edge's own blur and end before a page's
// margin is likely to hold print.
#include <algorithm>
#include <cmath>

#include "vision/detect/page_find.h"

namespace {

constexpr int kBandNear = 3;
constexpr int kBandFar = 6;

// The strongest aligned gradient along n among the three points, in Sobel
// units (signed), 0 when none is aligned.
int AlignedAlong(const cv::Mat& gxm, const cv::Mat& gym, cv::Point2d p, cv::Point2d n) {
    int best = 0;
    for (int off = -1; off <= 1; ++off) {
        const int x = static_cast<int>(std::floor(p.x + off * n.x));
        const int y = static_cast<int>(std::floor(p.y + off * n.y));
        if (x < 0 || y < 0 || x >= gxm.cols || y >= gxm.rows) continue;
        const int gx = gxm.at<int16_t>(y, x), gy = gym.at<int16_t>(y, x);
        const int m2 = gx * gx + gy * gy;
        if (m2 <= kGradientFloor2) continue;
        const double gn = gx * n.x + gy * n.y;
        if (gn * gn < kAlignedCos * kAlignedCos * m2) continue;
        if (std::abs(gn) > std::abs(best)) best = static_cast<int>(gn);
    }
    return best;
}

}  // namespace

EdgeSample SampleAcross(const EvidenceImage& ev, cv::Point2d p, cv::Point2d n) {
    EdgeSample s;
    int g = AlignedAlong(ev.gx, ev.gy, p, n);
    if (g == 0) g = AlignedAlong(ev.cgx, ev.cgy, p, n);
    s.edge = static_cast<int8_t>(g > 0 ? 1 : (g < 0 ? -1 : 0));
    s.step = static_cast<uint8_t>(std::min(255, std::abs(g) / 8));
    const cv::Point2d a = p + n * kBandFar, b = p - n * kBandFar;
    const double w = ev.width, h = ev.height;
    if (a.x < 0 || a.y < 0 || a.x >= w || a.y >= h || b.x < 0 || b.y < 0 || b.x >= w || b.y >= h)
        return s;
    s.bands = 1;
    int sp[3] = {}, sm[3] = {};
    for (int d = kBandNear; d <= kBandFar; ++d) {
        const uint8_t* pp = ev.ycc.ptr<uint8_t>(static_cast<int>(std::floor(p.y + n.y * d))) +
                            3 * static_cast<int>(std::floor(p.x + n.x * d));
        const uint8_t* pm = ev.ycc.ptr<uint8_t>(static_cast<int>(std::floor(p.y - n.y * d))) +
                            3 * static_cast<int>(std::floor(p.x - n.x * d));
        for (int c = 0; c < 3; ++c) {
            sp[c] += pp[c];
            sm[c] += pm[c];
        }
    }
    constexpr int kCount = kBandFar - kBandNear + 1;
    for (int c = 0; c < 3; ++c) {
        s.plus[c] = static_cast<uint8_t>((sp[c] + kCount / 2) / kCount);
        s.minus[c] = static_cast<uint8_t>((sm[c] + kCount / 2) / kCount);
    }
    return s;
}
