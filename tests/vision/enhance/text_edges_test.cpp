// The text-block edge map against the library's Canny and dilation, and
// every gradient kernel against the reference one.
#include <gtest/gtest.h>

#include <vector>

#include <opencv2/imgproc.hpp>

#include "test_pages.h"
#include "vision/enhance/text_edges.h"

namespace {

cv::Mat LibraryEdges(const cv::Mat& grey, int low, int high) {
    cv::Mat edges;
    cv::Canny(grey, edges, low, high, 3);
    cv::dilate(edges, edges, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3)));
    return edges;
}

std::vector<cv::Mat> Pages() {
    std::vector<cv::Mat> pages;
    pages.push_back(test_pages::Luma(test_pages::TextPage(517, 311, 215, 50)));
    pages.push_back(test_pages::Luma(test_pages::Photograph(300, 200)));
    for (const cv::Size size :
         {cv::Size(403, 257), cv::Size(17, 5), cv::Size(1, 9), cv::Size(18, 1), cv::Size(2, 2)}) {
        cv::Mat noise(size, CV_8UC1);
        cv::randu(noise, 0, 256);
        pages.push_back(noise);
        cv::Mat smooth;
        cv::GaussianBlur(noise, smooth, cv::Size(5, 5), 1.5);
        pages.push_back(smooth);
    }
    pages.push_back(cv::Mat(40, 40, CV_8UC1, cv::Scalar(255)));
    return pages;
}

}  // namespace

TEST(TextEdges, TheLibrarysCannyAndDilationByteForByte) {
    const int pairs[][2] = {{50, 150}, {30, 100}, {0, 0}, {150, 50}, {200, 201}};
    for (const EdgeKernel kernel : {EdgeKernel::kAuto, EdgeKernel::kReference, EdgeKernel::kAvx2}) {
        if (!EdgeKernelAvailable(kernel)) continue;
        for (const cv::Mat& page : Pages()) {
            for (const auto& pair : pairs) {
                cv::Mat ours;
                ASSERT_TRUE(DilatedTextEdges(page, pair[0], pair[1], ours, kernel));
                ASSERT_EQ(cv::countNonZero(ours != LibraryEdges(page, pair[0], pair[1])), 0)
                    << page.size() << " " << pair[0] << "/" << pair[1];
            }
        }
    }
}

TEST(TextEdges, RefusesWhatItCannotRead) {
    cv::Mat edges(3, 3, CV_8UC1, cv::Scalar(9));
    EXPECT_FALSE(DilatedTextEdges(cv::Mat(), 50, 150, edges));
    EXPECT_FALSE(DilatedTextEdges(cv::Mat(8, 8, CV_8UC3), 50, 150, edges));
    EXPECT_EQ(cv::countNonZero(edges != 9), 0);
}
