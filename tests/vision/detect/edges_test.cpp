#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "vision/detect/detector_internal.h"

namespace {

void Derivatives(const cv::Mat& plane, cv::Mat& dx, cv::Mat& dy) {
    cv::Sobel(plane, dx, CV_16S, 1, 0, 3);
    cv::Sobel(plane, dy, CV_16S, 0, 1, 3);
}

cv::Mat HorizontalStroke(int length, int width = 200, int height = 100) {
    cv::Mat m = cv::Mat::zeros(height, width, CV_8UC1);
    cv::line(m, cv::Point(10, 50), cv::Point(10 + length - 1, 50), 255, 1);
    return m;
}

}  // namespace

TEST(EdgeThresholds, FollowTheChromaPlanesGradients) {
    int high = 0, low = 0;
    // A flat plane with one colour step: 90 % of the pixels have no
    // gradient, so the pair falls back to 25 / 15.
    cv::Mat step(120, 160, CV_8UC1, cv::Scalar(128));
    step(cv::Rect(80, 0, 80, 120)).setTo(140);
    cv::Mat dx, dy;
    Derivatives(step, dx, dy);
    QvVP_GetCannyTH_Cb(dx, dy, &high, &low);
    EXPECT_EQ(high, 25);
    EXPECT_EQ(low, 15);

    // Noisy chroma: the high threshold is the 90 % point of |dx| + |dy|,
    // the low one 60 % of it.
    cv::Mat noisy(120, 160, CV_8UC1);
    cv::RNG rng(7);
    rng.fill(noisy, cv::RNG::NORMAL, 128, 12);
    Derivatives(noisy, dx, dy);
    QvVP_GetCannyTH_Cr(dx, dy, &high, &low);
    std::vector<int> sums;
    for (int y = 1; y < 119; ++y)
        for (int x = 1; x < 159; ++x)
            sums.push_back(std::abs(dx.at<int16_t>(y, x)) + std::abs(dy.at<int16_t>(y, x)));
    std::sort(sums.begin(), sums.end());
    // 90 % of all pixels (borders included) must be counted among the inner
    // ones, so the quantile sits a little above 90 % of the inner pixels.
    const size_t reach = static_cast<size_t>(120 * 160 * 90 / 100);
    EXPECT_EQ(high, std::min(sums[reach - 1], 599) + 1);
    EXPECT_EQ(low, high * 60 / 100);

    // A 4 x 4 plane has four inner pixels for a target of 14: no bin gets
    // there and the high threshold is the last bin.
    cv::Mat tiny(4, 4, CV_8UC1, cv::Scalar(0));
    Derivatives(tiny, dx, dy);
    QvVP_GetCannyTH_Cb(dx, dy, &high, &low);
    EXPECT_EQ(high, 599);
    EXPECT_EQ(low, 359);
}

TEST(EdgeCleaning, DropsPiecesByTheirBoundingBox) {
    // Grey pieces must be longer than 29 pixels, whatever size is asked.
    cv::Mat edges = HorizontalStroke(29);
    DeleteSmallCC(edges, 5);
    EXPECT_EQ(cv::countNonZero(edges), 0);
    edges = HorizontalStroke(30);
    DeleteSmallCC(edges, 500);
    EXPECT_EQ(cv::countNonZero(edges), 30);

    // Chroma pieces must reach the given size.
    edges = HorizontalStroke(79);
    DeleteSmallCC2(edges, 80);
    EXPECT_EQ(cv::countNonZero(edges), 0);
    edges = HorizontalStroke(80);
    DeleteSmallCC2(edges, 80);
    EXPECT_EQ(cv::countNonZero(edges), 80);

    // A filled blob keeps only its outline.
    cv::Mat blob = cv::Mat::zeros(100, 100, CV_8UC1);
    cv::rectangle(blob, cv::Rect(20, 20, 40, 40), 255, cv::FILLED);
    DeleteSmallCC(blob, 100);
    EXPECT_EQ(cv::countNonZero(blob), 4 * 39);
}

TEST(EdgeCombination, ChromaEdgesOnlyFillGapsOfTheGreyOutline) {
    // The window of a pixel spans columns and rows -2 .. +3 around it.
    cv::Mat grey = cv::Mat::zeros(30, 30, CV_8UC1);
    grey.at<uchar>(10, 10) = 255;
    cv::Mat mask;
    ComputeCombineMask(grey, mask);
    for (int v = 7; v <= 12; ++v) {
        EXPECT_EQ(mask.at<uchar>(10, v), 0) << v;
        EXPECT_EQ(mask.at<uchar>(v, 10), 0) << v;
    }
    EXPECT_EQ(mask.at<uchar>(10, 6), 1);
    EXPECT_EQ(mask.at<uchar>(10, 13), 1);
    EXPECT_EQ(mask.at<uchar>(13, 10), 1);
    EXPECT_EQ(mask.at<uchar>(2, 20), 0);   // too near the border
    EXPECT_EQ(mask.at<uchar>(27, 20), 0);  // rows up to height - 4 only
    EXPECT_EQ(mask.at<uchar>(26, 20), 1);
    ComputeCombineMask(cv::Mat::zeros(6, 30, CV_8UC1), mask);
    EXPECT_EQ(cv::countNonZero(mask), 0);

    // Grey outline: a horizontal line with a gap. Chroma: the same line
    // whole, a parallel line 2 pixels off, and a short stroke alone.
    cv::Mat edges = cv::Mat::zeros(100, 200, CV_8UC1);
    cv::line(edges, cv::Point(10, 40), cv::Point(60, 40), 255);
    cv::line(edges, cv::Point(120, 40), cv::Point(190, 40), 255);
    cv::Mat chroma = cv::Mat::zeros(100, 200, CV_8UC1);
    cv::line(chroma, cv::Point(10, 42), cv::Point(190, 42), 255);
    cv::line(chroma, cv::Point(50, 80), cv::Point(64, 80), 255);
    CombineTowChannelEdge(edges, chroma);
    // The gap is filled (away from the grey ends), the doubled stretches are
    // not, and the lone short stroke is taken back.
    EXPECT_EQ(edges.at<uchar>(42, 90), 255);
    EXPECT_EQ(edges.at<uchar>(42, 30), 0);
    EXPECT_EQ(edges.at<uchar>(42, 150), 0);
    EXPECT_EQ(cv::countNonZero(edges.row(80)), 0);
}
