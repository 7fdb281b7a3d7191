// Refinement of the page's corners on the full-size photograph.
//
// The corners come from the evidence image, a few photograph pixels per
// pixel, so a side can be off by a few photograph pixels. Each side is
// looked at again on the photograph itself:
// 1. Profiles. At 48 points spread over the side (leaving the last 4 % at
//    either end to the corners), the colour is read across the side at
//    every photograph pixel within the band (bilinear), as Y and doubled
//    Cr and Cb. The channel in which the two ends of the mean profile
//    differ most is the side's channel: the page's step, in grey or in
//    tint.
// 2. Edge points. In each profile, the largest difference of neighbouring
//    values with the polarity of the mean step, placed at the sub-pixel peak
//    of a parabola; points whose step is under a third of the strongest
//    are dropped (print near the margin, shadows).
// 3. Lines. A total least-squares line through the points, then again with
//    the points more than 1.5 pixels off it dropped (twice). A folded or
//    curled sheet bends its sides: the two halves of a side are fitted on
//    their own as well, and when they disagree by more than a pixel and a
//    half at the far corner, each corner takes the half nearest to it.
// 4. Corners. Adjacent sides are intersected. A side with too few points
//    keeps its place (its old line meets the refitted neighbour), and a corner that would move
//    further than the band is wide keeps its place: refinement polishes, it does not search.
#include <algorithm>
#include <cmath>
#include <vector>

#include "vision/detect/geometry.h"
#include "vision/detect/page_find.h"

namespace {

constexpr int kPoints = 48;
constexpr double kEndShare = 0.04;
constexpr double kInlier = 1.5;
constexpr double kBend = 1.5;

struct Fit {
    bool ok = false;
    cv::Point2d n;  // unit normal
    double offset = 0.0;
};

void Colour(const cv::Mat& photo, double x, double y, double out[3]) {
    x -= 0.5;  // continuous coordinates to pixel centres
    y -= 0.5;
    const int x0 = static_cast<int>(std::floor(x)), y0 = static_cast<int>(std::floor(y));
    const double fx = x - x0, fy = y - y0;
    double rgb[3] = {0, 0, 0};
    for (int dy = 0; dy <= 1; ++dy)
        for (int dx = 0; dx <= 1; ++dx) {
            const int xi = std::clamp(x0 + dx, 0, photo.cols - 1);
            const int yi = std::clamp(y0 + dy, 0, photo.rows - 1);
            const double w = (dx ? fx : 1 - fx) * (dy ? fy : 1 - fy);
            const uint8_t* p = photo.ptr<uint8_t>(yi) + 3 * xi;
            for (int c = 0; c < 3; ++c) rgb[c] += w * p[c];
        }
    const double Y = 0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2];
    out[0] = Y;
    out[1] = 2.0 * 0.713 * (rgb[0] - Y);
    out[2] = 2.0 * 0.564 * (rgb[2] - Y);
}

Fit FitLine(const std::vector<cv::Point2d>& pts, const std::vector<double>& w) {
    Fit f;
    double sw = 0, sx = 0, sy = 0;
    for (size_t i = 0; i < pts.size(); ++i) {
        sw += w[i];
        sx += w[i] * pts[i].x;
        sy += w[i] * pts[i].y;
    }
    if (sw <= 0) return f;
    const double mx = sx / sw, my = sy / sw;
    double cxx = 0, cxy = 0, cyy = 0;
    for (size_t i = 0; i < pts.size(); ++i) {
        const double dx = pts[i].x - mx, dy = pts[i].y - my;
        cxx += w[i] * dx * dx;
        cxy += w[i] * dx * dy;
        cyy += w[i] * dy * dy;
    }
    const double theta = 0.5 * std::atan2(2.0 * cxy, cxx - cyy);
    f.n = {-std::sin(theta), std::cos(theta)};
    f.offset = f.n.x * mx + f.n.y * my;
    f.ok = true;
    return f;
}

// Robust fit: refits without the points more than kInlier off, twice.
Fit RobustFit(const std::vector<cv::Point2d>& pts, std::vector<double> w, size_t minPoints) {
    Fit f;
    for (int round = 0; round < 3; ++round) {
        size_t used = 0;
        for (double v : w) used += v > 0;
        if (used < minPoints) return Fit{};
        f = FitLine(pts, w);
        if (!f.ok) return f;
        for (size_t i = 0; i < pts.size(); ++i)
            if (std::abs(f.n.dot(pts[i]) - f.offset) > kInlier) w[i] = 0;
    }
    return f;
}

bool Intersect(const Fit& a, const Fit& b, cv::Point2d* p) {
    const double det = a.n.x * b.n.y - a.n.y * b.n.x;
    if (std::abs(det) < 1e-6) return false;
    p->x = (a.offset * b.n.y - a.n.y * b.offset) / det;
    p->y = (a.n.x * b.offset - a.offset * b.n.x) / det;
    return true;
}

// The refitted side a -> b: lines near a and near b (the same line unless
// the side bends).
struct SideFit {
    Fit nearA, nearB;
};

SideFit RefineSide(const cv::Mat& photo, cv::Point2d a, cv::Point2d b, double band) {
    SideFit out;
    const double len = std::hypot(b.x - a.x, b.y - a.y);
    if (len < 8.0) return out;
    const cv::Point2d u = (b - a) / len, n(-u.y, u.x);
    const int half = std::max(2, static_cast<int>(std::ceil(band)));
    const int width = 2 * half + 1;
    std::vector<double> prof(static_cast<size_t>(kPoints) * width * 3);
    double mean[3][2] = {};
    for (int k = 0; k < kPoints; ++k) {
        const double t = len * (kEndShare + (1 - 2 * kEndShare) * (k + 0.5) / kPoints);
        const cv::Point2d c = a + u * t;
        for (int j = 0; j < width; ++j) {
            double col[3];
            const cv::Point2d p = c + n * static_cast<double>(j - half);
            Colour(photo, p.x, p.y, col);
            for (int ch = 0; ch < 3; ++ch)
                prof[(static_cast<size_t>(k) * width + j) * 3 + ch] = col[ch];
        }
        for (int ch = 0; ch < 3; ++ch) {
            mean[ch][0] += prof[(static_cast<size_t>(k) * width) * 3 + ch];
            mean[ch][1] += prof[(static_cast<size_t>(k) * width + width - 1) * 3 + ch];
        }
    }
    int channel = 0;
    double step = 0.0;
    for (int ch = 0; ch < 3; ++ch) {
        const double d = (mean[ch][1] - mean[ch][0]) / kPoints;
        if (std::abs(d) > std::abs(step)) {
            step = d;
            channel = ch;
        }
    }
    if (std::abs(step) < 2.0) return out;
    const double sign = step > 0 ? 1.0 : -1.0;
    std::vector<cv::Point2d> pts(kPoints);
    std::vector<double> strength(kPoints, 0.0);
    double strongest = 0.0;
    for (int k = 0; k < kPoints; ++k) {
        const double* row = &prof[static_cast<size_t>(k) * width * 3];
        int best = -1;
        double bestD = 0.0;
        for (int j = 0; j + 1 < width; ++j) {
            const double d = sign * (row[(j + 1) * 3 + channel] - row[j * 3 + channel]);
            if (d > bestD) {
                bestD = d;
                best = j;
            }
        }
        if (best < 0) continue;
        // Differences at j - 1, j, j + 1 (the step between j and j + 1 lies
        // at j + 0.5) give the peak's sub-pixel place.
        double shift = 0.0;
        if (best > 0 && best + 2 < width) {
            const double dl = sign * (row[best * 3 + channel] - row[(best - 1) * 3 + channel]);
            const double dr =
                sign * (row[(best + 2) * 3 + channel] - row[(best + 1) * 3 + channel]);
            const double den = dl - 2 * bestD + dr;
            if (den < 0) shift = std::clamp(0.5 * (dl - dr) / den, -0.5, 0.5);
        }
        const double t = len * (kEndShare + (1 - 2 * kEndShare) * (k + 0.5) / kPoints);
        pts[k] = a + u * t + n * (best + 0.5 + shift - half);
        strength[k] = bestD;
        strongest = std::max(strongest, bestD);
    }
    std::vector<double> w(kPoints, 0.0);
    for (int k = 0; k < kPoints; ++k) w[k] = strength[k] >= strongest / 3 ? 1.0 : 0.0;
    const Fit whole = RobustFit(pts, w, kPoints * 2 / 5);
    if (!whole.ok) return out;
    out.nearA = out.nearB = whole;
    std::vector<double> wa(w), wb(w);
    for (int k = 0; k < kPoints; ++k) (k < kPoints / 2 ? wb : wa)[k] = 0.0;
    const Fit fa = RobustFit(pts, wa, kPoints / 5), fb = RobustFit(pts, wb, kPoints / 5);
    if (fa.ok && fb.ok) {
        // How far the half fitted near a strays from the other half at b.
        const double strayB = std::abs(fa.n.dot(b) - fa.offset) - std::abs(fb.n.dot(b) - fb.offset);
        const double strayA = std::abs(fb.n.dot(a) - fb.offset) - std::abs(fa.n.dot(a) - fa.offset);
        if (std::max(std::abs(strayA), std::abs(strayB)) > kBend) {
            out.nearA = fa;
            out.nearB = fb;
        }
    }
    return out;
}

}  // namespace

Quad2d RefinePageCorners(const cv::Mat& photo, const Quad2d& q, double band) {
    if (photo.empty() || photo.type() != CV_8UC3 || band <= 0) return q;
    SideFit sides[4];
    for (int s = 0; s < 4; ++s) sides[s] = RefineSide(photo, q[s], q[(s + 1) % 4], band);
    auto through = [&](int s) {  // the side as it was
        const cv::Point2d a = q[s], b = q[(s + 1) % 4];
        Fit f;
        const double len = std::hypot(b.x - a.x, b.y - a.y);
        if (len <= 0) return f;
        f.n = {-(b.y - a.y) / len, (b.x - a.x) / len};
        f.offset = f.n.dot(a);
        f.ok = true;
        return f;
    };
    Quad2d out = q;
    for (int c = 0; c < 4; ++c) {
        // Corner c joins side c - 1 (ending at c) and side c (starting at c).
        const int sb = (c + 3) % 4, sa = c;
        if (!sides[sb].nearB.ok && !sides[sa].nearA.ok) continue;
        const Fit before = sides[sb].nearB.ok ? sides[sb].nearB : through(sb);
        const Fit after = sides[sa].nearA.ok ? sides[sa].nearA : through(sa);
        cv::Point2d p;
        if (before.ok && after.ok && Intersect(before, after, &p) &&
            std::hypot(p.x - q[c].x, p.y - q[c].y) <= 2.0 * band)
            out[c] = p;
    }
    return IsStrictlyConvexQuad(out) ? out : q;
}
