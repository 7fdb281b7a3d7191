// The detection score of the evaluation tool: the Jaccard index in the
// page's own frame.
#include <gtest/gtest.h>

#include "../../tools/eval_metric.h"

namespace {

using scrivo_eval::Quad;
using scrivo_eval::ScoreDetection;

// A page photographed at a slant: the top edge is far away and short.
const Quad kSlanted = {{{812.5, 406.25}, {300.0, 2600.0}, {3700.0, 2610.5}, {3120.0, 380.0}}};
constexpr double kPageW = 1700.0;
constexpr double kPageH = 2200.0;

// Photograph points of page-frame points, through the inverse of the
// page homography, made from the rectangle to the photograph.
Quad FromPageFrame(const Quad& truth, const Quad& pagePoints) {
    const cv::Point2f rect[4] = {{0.0f, 0.0f},
                                 {0.0f, static_cast<float>(kPageH)},
                                 {static_cast<float>(kPageW), static_cast<float>(kPageH)},
                                 {static_cast<float>(kPageW), 0.0f}};
    const cv::Point2f photo[4] = {truth[0], truth[1], truth[2], truth[3]};
    const cv::Matx33d back(cv::getPerspectiveTransform(rect, photo));
    Quad out;
    for (int i = 0; i < 4; ++i) {
        const cv::Vec3d p = back * cv::Vec3d(pagePoints[i].x, pagePoints[i].y, 1.0);
        out[i] = cv::Point2d(p[0] / p[2], p[1] / p[2]);
    }
    return out;
}

Quad PageRect(double x0, double y0, double x1, double y1) {
    return {{{x0, y0}, {x0, y1}, {x1, y1}, {x1, y0}}};
}

TEST(DetectionScore, MeasuresOverlapInThePageFrame) {
    EXPECT_NEAR(ScoreDetection(kSlanted, kSlanted, kPageW, kPageH).jaccard, 1.0, 1e-6);

    // Shifted by half the page width: overlap w/2 x h, union 3/2 w x h.
    const Quad shifted = FromPageFrame(kSlanted, PageRect(kPageW / 2, 0, 1.5 * kPageW, kPageH));
    EXPECT_NEAR(ScoreDetection(kSlanted, shifted, kPageW, kPageH).jaccard, 1.0 / 3.0, 1e-4);

    // The far half of the page covers much less of the photograph than the
    // near half, yet both are half of the page.
    const Quad farHalf = FromPageFrame(kSlanted, PageRect(0, 0, kPageW, kPageH / 2));
    const Quad nearHalf = FromPageFrame(kSlanted, PageRect(0, kPageH / 2, kPageW, kPageH));
    EXPECT_NEAR(ScoreDetection(kSlanted, farHalf, kPageW, kPageH).jaccard, 0.5, 1e-4);
    EXPECT_NEAR(ScoreDetection(kSlanted, nearHalf, kPageW, kPageH).jaccard, 0.5, 1e-4);

    // A detection that contains the page: page area over detection area.
    const Quad larger = FromPageFrame(kSlanted, PageRect(-kPageW / 2, 0, kPageW, kPageH));
    EXPECT_NEAR(ScoreDetection(kSlanted, larger, kPageW, kPageH).jaccard, 2.0 / 3.0, 1e-4);

    // Integer corners a pixel or two off still score close to 1.
    Quad rounded;
    for (int i = 0; i < 4; ++i)
        rounded[i] = cv::Point2d(std::round(kSlanted[i].x) + 1, std::round(kSlanted[i].y) - 1);
    const double near = ScoreDetection(kSlanted, rounded, kPageW, kPageH).jaccard;
    EXPECT_GT(near, 0.99);
    EXPECT_LT(near, 1.0);
}

TEST(DetectionScore, CornerOrder) {
    // The same quadrangle with its corners running the other way scores by
    // its area, and is flagged.
    const Quad mirrored = {kSlanted[0], kSlanted[3], kSlanted[2], kSlanted[1]};
    const scrivo_eval::Score m = ScoreDetection(kSlanted, mirrored, kPageW, kPageH);
    EXPECT_NEAR(m.jaccard, 1.0, 1e-6);
    EXPECT_TRUE(m.mirrored);
    EXPECT_FALSE(ScoreDetection(kSlanted, kSlanted, kPageW, kPageH).mirrored);

    // Two corners swapped: a crossed outline encloses no convex area.
    const Quad crossed = {kSlanted[0], kSlanted[2], kSlanted[1], kSlanted[3]};
    const scrivo_eval::Score c = ScoreDetection(kSlanted, crossed, kPageW, kPageH);
    EXPECT_EQ(c.jaccard, 0.0);
    EXPECT_FALSE(c.problem.empty());
}

TEST(DetectionScore, UnusableDetectionsScoreZero) {
    const Quad point = {{{500, 500}, {500, 500}, {500, 500}, {500, 500}}};
    const Quad line = {{{100, 100}, {200, 200}, {300, 300}, {400, 400}}};
    const Quad zeros = {};
    for (const Quad& q : {point, line, zeros}) {
        const scrivo_eval::Score s = ScoreDetection(kSlanted, q, kPageW, kPageH);
        EXPECT_EQ(s.jaccard, 0.0);
        EXPECT_FALSE(s.problem.empty());
    }

    // Corners beyond the vanishing line of the slanted page (far above its
    // short top edge) have no bounded image in the page frame.
    const Quad pastHorizon = {{{800, -40000}, {300, 2600}, {3700, 2610}, {3100, -40000}}};
    const scrivo_eval::Score h = ScoreDetection(kSlanted, pastHorizon, kPageW, kPageH);
    EXPECT_EQ(h.jaccard, 0.0);
    EXPECT_FALSE(h.problem.empty());

    // A truth without area cannot be measured against.
    EXPECT_EQ(ScoreDetection(line, kSlanted, kPageW, kPageH).jaccard, 0.0);
    EXPECT_EQ(ScoreDetection(kSlanted, kSlanted, 0.0, kPageH).jaccard, 0.0);
}

}  // namespace
