#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "page_edge_map.h"
#include "vision/detect/detector_internal.h"

namespace {

constexpr double kTwoDegrees = 0.034906585;

// The detector's call: 1 px, 2 degrees, 60 votes, 10 px long, gaps of 2.
std::vector<HoughSegment> Detect(const cv::Mat& edges, int threshold = 60, int minLength = 10) {
    return QvVP_HoughLines(edges, 1.0, kTwoDegrees, threshold, minLength, 2);
}

// Share of the side p-q covered by segments lying within `tol` px of its line.
double Coverage(const std::vector<HoughSegment>& segs, cv::Point2d p, cv::Point2d q,
                double tol = 2.5) {
    const cv::Point2d d = q - p;
    const double len = std::hypot(d.x, d.y);
    const cv::Point2d u = d / len;
    std::vector<char> covered(static_cast<size_t>(len) + 1, 0);
    for (const HoughSegment& s : segs) {
        const cv::Point2d a = cv::Point2d(s.x1, s.y1) - p, b = cv::Point2d(s.x2, s.y2) - p;
        if (std::fabs(a.cross(u)) > tol || std::fabs(b.cross(u)) > tol) continue;
        const double t0 = std::clamp(std::min(a.dot(u), b.dot(u)), 0.0, len);
        const double t1 = std::clamp(std::max(a.dot(u), b.dot(u)), 0.0, len);
        for (int t = static_cast<int>(std::ceil(t0)); t <= static_cast<int>(t1); ++t)
            covered[t] = 1;
    }
    return std::count(covered.begin(), covered.end(), 1) / static_cast<double>(covered.size());
}

// Pixels touched by the segments drawn one pixel wide.
int DrawnPixels(const std::vector<cv::Vec4i>& segs, cv::Size size) {
    cv::Mat canvas = cv::Mat::zeros(size, CV_8UC1);
    for (const cv::Vec4i& s : segs) cv::line(canvas, {s[0], s[1]}, {s[2], s[3]}, 255, 1);
    return cv::countNonZero(canvas);
}

std::vector<cv::Vec4i> AsVec(const std::vector<HoughSegment>& segs) {
    std::vector<cv::Vec4i> out;
    for (const HoughSegment& s : segs) out.emplace_back(s.x1, s.y1, s.x2, s.y2);
    return out;
}

}  // namespace

TEST(HoughLines, FindsEveryLineOfThickOutlines) {
    cv::Mat rect = cv::Mat::zeros(300, 400, CV_8UC1);
    cv::rectangle(rect, {50, 40}, {350, 260}, 255, 3);
    const std::vector<HoughSegment> found = Detect(rect);
    const cv::Point2d c[4] = {{50, 40}, {350, 40}, {350, 260}, {50, 260}};
    for (int i = 0; i < 4; ++i)
        EXPECT_GE(Coverage(found, c[i], c[(i + 1) % 4]), 0.9) << "side " << i;
    for (const HoughSegment& s : found) {  // nothing off the outline
        const bool onSide = std::min({std::abs(s.x1 - 50), std::abs(s.x1 - 350),
                                      std::abs(s.y1 - 40), std::abs(s.y1 - 260)}) <= 2;
        EXPECT_TRUE(onSide) << s.x1 << "," << s.y1 << " " << s.x2 << "," << s.y2;
    }

    cv::Mat diag = cv::Mat::zeros(300, 400, CV_8UC1);
    cv::line(diag, {30, 20}, {370, 250}, 255, 3);
    const std::vector<HoughSegment> slanted = Detect(diag);
    EXPECT_GE(Coverage(slanted, {30, 20}, {370, 250}), 0.9);
    EXPECT_DOUBLE_EQ(Coverage(slanted, {30, 20}, {370, 250}, 1e9),
                     Coverage(slanted, {30, 20}, {370, 250}));  // all on the line
}

TEST(HoughLines, LengthAndGapLimits) {
    cv::Mat shortLine = cv::Mat::zeros(100, 100, CV_8UC1);
    cv::line(shortLine, {40, 50}, {47, 50}, 255, 1);  // 8 px: votes enough, too short
    EXPECT_TRUE(Detect(shortLine, 5).empty());
    EXPECT_FALSE(Detect(shortLine, 5, 7).empty());  // spans 7

    // A gap of maxLineGap is bridged; a longer one leaves a segment on each
    // side (pieces of the left half may be lost once the right half has
    // withdrawn its votes, as the transform does).
    for (const int gap : {2, 5}) {
        cv::Mat broken = cv::Mat::zeros(100, 300, CV_8UC1);
        cv::line(broken, {20, 50}, {99, 50}, 255, 1);
        cv::line(broken, {100 + gap, 50}, {200, 50}, 255, 1);
        const std::vector<HoughSegment> found = Detect(broken, 20);
        int left = 0, right = 0, spanning = 0;
        for (const HoughSegment& s : found) {
            const int lo = std::min(s.x1, s.x2), hi = std::max(s.x1, s.x2);
            spanning += lo < 100 && hi >= 100 + gap;
            left += hi < 100;
            right += lo >= 100 + gap;
        }
        if (gap <= 2) {
            EXPECT_EQ(spanning, 1);
            EXPECT_GE(Coverage(found, {20, 50}, {200, 50}), 0.9);
        } else {
            EXPECT_EQ(spanning, 0);
            EXPECT_GT(left, 0);
            EXPECT_GT(right, 0);
        }
    }
}

// The visiting order depends only on the edge points, so the same points give
// the same segments: on a second run, through a strided view, and on a map so
// large that the accumulator switches to 32-bit counts.
TEST(HoughLines, SameSegmentsWhateverTheLayout) {
    const cv::Mat edges = detect_test::PageEdgeMap();
    const std::vector<cv::Vec4i> first = AsVec(Detect(edges));
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(first, AsVec(Detect(edges)));
    cv::Mat wide = cv::Mat::zeros(edges.rows, edges.cols + 13, CV_8UC1);
    cv::Mat view = wide(cv::Rect(0, 0, edges.cols, edges.rows));
    edges.copyTo(view);
    EXPECT_EQ(first, AsVec(Detect(view)));
    cv::Mat huge = cv::Mat::zeros(9000, 2000, CV_8UC1);
    edges.copyTo(huge(cv::Rect(0, 0, edges.cols, edges.rows)));
    EXPECT_EQ(first, AsVec(Detect(huge)));
}

TEST(HoughLines, RejectsBadInput) {
    const cv::Mat edges = detect_test::PageEdgeMap();
    EXPECT_TRUE(Detect(cv::Mat()).empty());
    EXPECT_TRUE(Detect(cv::Mat::zeros(50, 50, CV_8UC1)).empty());
    EXPECT_TRUE(Detect(cv::Mat(50, 50, CV_8UC3, cv::Scalar::all(255))).empty());
    EXPECT_TRUE(Detect(cv::Mat(50, 50, CV_16UC1, cv::Scalar(255))).empty());
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double rho : {0.0, -1.0, nan})
        EXPECT_TRUE(QvVP_HoughLines(edges, rho, 0.03, 60, 10, 2).empty());
    for (const double theta : {0.0, -0.1, 7.0, nan, 1e-12})
        EXPECT_TRUE(QvVP_HoughLines(edges, 1.0, theta, 60, 10, 2).empty());
    EXPECT_FALSE(QvVP_HoughLines(edges, 1.0, kTwoDegrees, -5, 10, -3).empty());  // odd but valid
}

TEST(HoughLines, AgreesWithOpenCvOnAPageEdgeMap) {
    const cv::Mat edges = detect_test::PageEdgeMap();
    std::vector<cv::Vec4i> reference;
    cv::HoughLinesP(edges, reference, 1.0, kTwoDegrees, 60, 10, 2);
    const std::vector<HoughSegment> ours = Detect(edges);
    const double refPixels = DrawnPixels(reference, edges.size());
    ASSERT_GT(refPixels, 1000);
    EXPECT_NEAR(DrawnPixels(AsVec(ours), edges.size()) / refPixels, 1.0, 0.15);
    EXPECT_NEAR(static_cast<double>(ours.size()) / reference.size(), 1.0, 0.25);
    // The page's four borders are found.
    const cv::Point2d c[4] = {{120, 60}, {90, 450}, {590, 470}, {560, 40}};
    for (int i = 0; i < 4; ++i) EXPECT_GE(Coverage(ours, c[i], c[(i + 1) % 4], 3.5), 0.9) << i;
}

// Segments are sorted by steepness: 45 degrees exactly is horizontal (the
// truncated pi of the angle convention must not tip it over), anything
// steeper is vertical.
TEST(HoughLines, FortyFiveDegreesIsHorizontal) {
    auto sort = [](cv::Point p, cv::Point q) {
        cv::Mat edges = cv::Mat::zeros(300, 300, CV_8UC1);
        cv::line(edges, p, q, 255, 3);
        std::unique_ptr<temp_LineSet, void (*)(temp_LineSet*)> h(CreatLineSet(), DeleteLineSet);
        std::unique_ptr<temp_LineSet, void (*)(temp_LineSet*)> v(CreatLineSet(), DeleteLineSet);
        GetLineFromHoughList2(edges, {{p.x, p.y, q.x, q.y}}, 1.0f, h.get(), v.get(), 0);
        return std::make_pair(h->count, v->count);
    };
    EXPECT_EQ(sort({50, 50}, {250, 250}), std::make_pair(1, 0));
    EXPECT_EQ(sort({50, 250}, {250, 50}), std::make_pair(1, 0));
    EXPECT_EQ(sort({50, 50}, {248, 250}), std::make_pair(0, 1));
}
