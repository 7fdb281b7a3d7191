// Small photographs of a page on a table for the detection tests: a filled
// quadrangle with a few printed lines, a softened edge and a little noise, as
// a camera would give them.
#pragma once

#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "vision/detect/geometry.h"

namespace photo_test {

struct Photo {
    int width = 800;
    int height = 600;
    // top-left, bottom-left, bottom-right, top-right
    std::vector<cv::Point> page;
    cv::Scalar table{60, 50, 40};
    cv::Scalar paper{235, 235, 235};
    bool print = true;
    int noise = 3;
};

inline cv::Mat Render(const Photo& p) {
    cv::Mat image(p.height, p.width, CV_8UC3, p.table);
    cv::fillConvexPoly(image, p.page, p.paper, cv::LINE_AA);
    if (p.print) {
        // Lines of "text" inside the page: short dark dashes along the rows
        // of the page's own frame.
        const cv::Point2f tl = p.page[0], bl = p.page[1], br = p.page[2], tr = p.page[3];
        for (int row = 0; row < 12; ++row) {
            const float v = 0.15f + 0.055f * row;
            for (int word = 0; word < 9; ++word) {
                const float u0 = 0.12f + 0.085f * word, u1 = u0 + 0.06f;
                auto at = [&](float u) {
                    const cv::Point2f top = tl + (tr - tl) * u, bottom = bl + (br - bl) * u;
                    return top + (bottom - top) * v;
                };
                cv::line(image, at(u0), at(u1), cv::Scalar(40, 40, 40), 2, cv::LINE_AA);
            }
        }
    }
    cv::GaussianBlur(image, image, cv::Size(3, 3), 0.8);
    if (p.noise > 0) {
        cv::Mat noise(image.size(), CV_16SC3);
        cv::RNG rng(12345);
        rng.fill(noise, cv::RNG::NORMAL, 0, p.noise);
        cv::Mat wide;
        image.convertTo(wide, CV_16SC3);
        wide += noise;
        wide.convertTo(image, CV_8UC3);
    }
    return image;
}

inline ::testing::AssertionResult CornersNear(const tem_Point got[4],
                                              const std::vector<cv::Point>& want, int tolerance) {
    for (int k = 0; k < 4; ++k) {
        if (std::abs(got[k].x - want[k].x) > tolerance ||
            std::abs(got[k].y - want[k].y) > tolerance)
            return ::testing::AssertionFailure()
                   << "corner " << k << " is (" << got[k].x << ", " << got[k].y << "), want ("
                   << want[k].x << ", " << want[k].y << ")";
    }
    return ::testing::AssertionSuccess();
}

inline std::vector<cv::Point> WholeImage(int w, int h) {
    return {{0, 0}, {0, h}, {w, h}, {w, 0}};
}

}  // namespace photo_test
