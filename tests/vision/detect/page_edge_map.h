// The edge map the Hough transform sees for a photographed page: a tilted
// bright page with text strokes and a ring on a noisy table, Canny, then the
// detector's 3 x 3 dilation (680 x 510, the reduced size of a phone photo).
// Shared by the Hough tests and its benchmark.
#pragma once

#include <vector>

#include <opencv2/imgproc.hpp>

namespace detect_test {

inline cv::Mat PageEdgeMap() {
    cv::Mat photo(510, 680, CV_8UC1);
    cv::RNG noise(7);
    noise.fill(photo, cv::RNG::NORMAL, 90, 18);
    const std::vector<cv::Point> page = {{120, 60}, {90, 450}, {590, 470}, {560, 40}};
    cv::fillConvexPoly(photo, page, cv::Scalar(215));
    for (int y = 110; y < 410; y += 22)
        for (int x = 160; x < 500; x += 37) cv::rectangle(photo, {x, y, 26, 7}, cv::Scalar(60), -1);
    cv::circle(photo, {630, 300}, 35, cv::Scalar(30), 4);
    cv::GaussianBlur(photo, photo, {5, 5}, 1.2);
    cv::Mat edges;
    cv::Canny(photo, edges, 40, 100);
    cv::dilate(edges, edges, cv::Mat::ones(3, 3, CV_8U));
    return edges;
}

}  // namespace detect_test
