// The plain Hough-line page scanner that the detection figures are set
// against: drawn pages, turned and foreshortened, and pictures without one.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "../../tools/eval_metric.h"
#include "../../tools/hough_baseline.h"

namespace {

using scrivo_eval::FindPageByHoughLines;
using scrivo_eval::Quad;

// A light page with lines of "print" on a darker, slightly uneven table,
// 1600 x 1200 pixels, R, G, B.
cv::Mat DrawPage(const Quad& page) {
    cv::Mat img(1200, 1600, CV_8UC3);
    cv::randu(img, cv::Scalar::all(70), cv::Scalar::all(100));
    cv::GaussianBlur(img, img, cv::Size(7, 7), 0);
    std::vector<cv::Point> outline;
    for (const cv::Point2d& p : page) outline.emplace_back(cvRound(p.x), cvRound(p.y));
    cv::fillConvexPoly(img, outline, cv::Scalar(225, 222, 215), cv::LINE_AA);
    // Print: short strokes along the page's own rows, inside its margins.
    for (double v = 0.12; v < 0.9; v += 0.05) {
        const cv::Point2d left = page[0] + (page[1] - page[0]) * v;
        const cv::Point2d right = page[3] + (page[2] - page[3]) * v;
        for (double u = 0.1; u < 0.85; u += 0.12) {
            const cv::Point2d a = left + (right - left) * u, b = left + (right - left) * (u + 0.09);
            cv::line(img, a, b, cv::Scalar(40, 40, 40), 3, cv::LINE_AA);
        }
    }
    return img;
}

double Jaccard(const Quad& truth, const Quad& found) {
    return scrivo_eval::ScoreDetection(truth, found, 1000.0, 1400.0).jaccard;
}

TEST(HoughBaseline, FindsDrawnPagesTurnedAndForeshortened) {
    const Quad upright = {{{420, 150}, {420, 1050}, {1150, 1050}, {1150, 150}}};
    const Quad slanted = {{{520, 140}, {300, 1080}, {1320, 1010}, {1130, 210}}};
    // Turned by about 35 degrees: neither orientation is near the image's axes.
    const Quad turned = {{{620, 120}, {230, 720}, {980, 1110}, {1360, 510}}};
    for (const Quad& page : {upright, slanted, turned}) {
        const std::optional<Quad> found = FindPageByHoughLines(DrawPage(page));
        ASSERT_TRUE(found.has_value());
        EXPECT_GT(Jaccard(page, *found), 0.95);
        // The corners come top-left first and run the same way as the truth's.
        EXPECT_FALSE(scrivo_eval::ScoreDetection(page, *found, 1000.0, 1400.0).mirrored);
        EXPECT_LT(cv::norm((*found)[0] - page[0]), 20.0);
    }
}

TEST(HoughBaseline, TakesGreyAndFourChannelPhotographs) {
    const Quad page = {{{520, 140}, {300, 1080}, {1320, 1010}, {1130, 210}}};
    const cv::Mat rgb = DrawPage(page);
    cv::Mat grey, rgba;
    cv::cvtColor(rgb, grey, cv::COLOR_RGB2GRAY);
    cv::cvtColor(rgb, rgba, cv::COLOR_RGB2RGBA);
    for (const cv::Mat& img : {grey, rgba}) {
        const std::optional<Quad> found = FindPageByHoughLines(img);
        ASSERT_TRUE(found.has_value());
        EXPECT_GT(Jaccard(page, *found), 0.95);
    }
}

TEST(HoughBaseline, FindsNoPageWithoutTwoSetsOfEdges) {
    EXPECT_FALSE(FindPageByHoughLines(cv::Mat(900, 1200, CV_8UC3, cv::Scalar::all(128))));
    // Stripes give lines of one orientation only: no quadrangle.
    cv::Mat stripes(900, 1200, CV_8UC3, cv::Scalar::all(60));
    for (int y = 100; y < 900; y += 150)
        cv::rectangle(stripes, cv::Rect(0, y, 1200, 60), cv::Scalar::all(200), cv::FILLED);
    EXPECT_FALSE(FindPageByHoughLines(stripes));
    // A page too small to be the document (a few percent of the frame).
    EXPECT_FALSE(
        FindPageByHoughLines(DrawPage({{{700, 500}, {700, 640}, {820, 640}, {820, 500}}})));
}

}  // namespace
