// The score of one page detection against its ground truth.
//
// Both quadrangles are taken into the page's own frame by the homography H
// that maps the true corners (top-left, bottom-left, bottom-right, top-right)
// onto the rectangle (0,0), (0,h), (w,h), (w,0) of the flat page's size; the
// score is the Jaccard index area(G' & S') / area(G' | S') there. Measuring
// in the page's frame weighs every part of the page the same, however
// foreshortened it is in the photograph. G' is that rectangle exactly (H
// maps G onto it by construction), so only S is mapped.
//
// A detection scores 0 when it cannot be compared as an area: a corner that
// H sends to or beyond the line at infinity (the detection reaches past the
// page's vanishing line, so its image in the page frame is not a bounded
// quadrangle), corners that do not enclose a convex quadrangle in the given
// order (crossed or folded), or an area that is practically zero. A convex
// quadrangle whose corners run the other way round (mirrored order) is
// scored by its area like any other, and flagged. Coordinates are
// continuous photograph pixels for both; the engine's integer corners are
// taken as they are.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "../src/vision/detect/geometry.h"

namespace scrivo_eval {

using Quad = std::array<cv::Point2d, 4>;  // top-left, bottom-left, bottom-right, top-right

struct Score {
    double jaccard = 0.0;
    bool mirrored = false;  // convex, but the corners run the other way round
    std::string problem;    // why the score is 0 although corners were given
};

// Twice the signed area (shoelace); negative for the engine's corner order
// in image coordinates (y down).
inline double SignedArea2(const Quad& q) {
    double s = 0.0;
    for (int i = 0; i < 4; ++i) {
        const cv::Point2d& a = q[i];
        const cv::Point2d& b = q[(i + 1) % 4];
        s += a.x * b.y - b.x * a.y;
    }
    return s;
}

// The homography from the true corners to the page rectangle; empty when the
// true corners are degenerate.
inline cv::Matx33d PageHomography(const Quad& truth, double pageW, double pageH, bool* ok) {
    const cv::Point2f src[4] = {truth[0], truth[1], truth[2], truth[3]};
    const cv::Point2f dst[4] = {{0.0f, 0.0f},
                                {0.0f, static_cast<float>(pageH)},
                                {static_cast<float>(pageW), static_cast<float>(pageH)},
                                {static_cast<float>(pageW), 0.0f}};
    cv::Mat h = cv::getPerspectiveTransform(src, dst);
    *ok = !h.empty() && cv::checkRange(h);
    return *ok ? cv::Matx33d(h) : cv::Matx33d::eye();
}

inline Score ScoreDetection(const Quad& truth, const Quad& detected, double pageW, double pageH) {
    Score score;
    if (!(pageW > 0.0 && pageH > 0.0)) {
        score.problem = "page size not positive";
        return score;
    }
    bool ok = false;
    const cv::Matx33d h = PageHomography(truth, pageW, pageH, &ok);
    if (!ok) {
        score.problem = "true corners degenerate";
        return score;
    }
    Quad mapped;
    for (int i = 0; i < 4; ++i) {
        const cv::Vec3d p = h * cv::Vec3d(detected[i].x, detected[i].y, 1.0);
        // The true page lies where the third coordinate is positive; a point
        // at or past its vanishing line has no finite image on that side.
        if (!(p[2] > 1e-12)) {
            score.problem = "detection crosses the page's vanishing line";
            return score;
        }
        mapped[i] = cv::Point2d(p[0] / p[2], p[1] / p[2]);
        // The overlap is computed in single precision: a corner this far out
        // belongs to a detection that has nothing to do with the page.
        const double far = 1e6 * std::max(pageW, pageH);
        if (!(std::abs(mapped[i].x) < far && std::abs(mapped[i].y) < far)) {
            score.problem = "detection reaches far beyond the page";
            return score;
        }
    }
    const double pageArea = pageW * pageH;
    const double area2 = SignedArea2(mapped);
    if (std::abs(area2) * 0.5 < 1e-9 * pageArea) {
        score.problem = "detection degenerate (no area)";
        return score;
    }
    if (!IsStrictlyConvexQuad(mapped)) {
        score.problem = "detected corners not a convex quadrangle in order";
        return score;
    }
    // The rectangle runs TL, BL, BR, TR with a negative signed area; give
    // the detection the same orientation.
    if (area2 > 0) {
        score.mirrored = true;
        std::swap(mapped[1], mapped[3]);
    }
    std::vector<cv::Point2f> g = {{0.0f, 0.0f},
                                  {0.0f, static_cast<float>(pageH)},
                                  {static_cast<float>(pageW), static_cast<float>(pageH)},
                                  {static_cast<float>(pageW), 0.0f}};
    std::vector<cv::Point2f> s(mapped.begin(), mapped.end());
    std::vector<cv::Point2f> overlap;
    const double inter =
        std::max(0.0, static_cast<double>(cv::intersectConvexConvex(g, s, overlap, true)));
    const double uni = pageArea + std::abs(area2) * 0.5 - inter;
    score.jaccard = uni > 0.0 ? std::clamp(inter / uni, 0.0, 1.0) : 0.0;
    return score;
}

}  // namespace scrivo_eval
