// Pages made for the text-direction tests: printed lines of mixed-case
// words in OpenCV's vector fonts on white paper, and photographs of such a
// page lying on a dark table.
#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "scrivo/engine.h"

namespace textdir_test {

// An upright w x h page of justified-looking body text (colour, BGR).
inline cv::Mat TextPage(int w, int h, int font = cv::FONT_HERSHEY_SIMPLEX, double scale = 0.8,
                        uint32_t seed = 1) {
    static const char* const kWords[] = {
        "The",     "quarterly", "report",  "shows",  "that",   "freight", "by",     "rail",
        "grew",    "steadily",  "during",  "August", "while",  "postal",  "yields", "held",
        "quite",   "flat",      "against", "budget", "Our",    "harbour", "office", "expects",
        "higher",  "volumes",   "of",      "timber", "and",    "copper",  "in",     "spring",
        "Payment", "is",        "due",     "within", "thirty", "days",    "please", "keep"};
    cv::Mat page(h, w, CV_8UC3, cv::Scalar(246, 248, 250));
    std::mt19937 rng(seed);
    int baseline = 0;
    const cv::Size letter = cv::getTextSize("Hg", font, scale, 1, &baseline);
    const int pitch = letter.height * 2 + baseline;
    const int margin = w / 12;
    for (int y = h / 10 + letter.height; y < h - h / 10; y += pitch) {
        int x = margin;
        for (;;) {
            const std::string word = kWords[rng() % (sizeof kWords / sizeof *kWords)];
            const int advance = cv::getTextSize(word + " ", font, scale, 1, &baseline).width;
            if (x + advance > w - margin) break;
            cv::putText(page, word, cv::Point(x, y), font, scale, cv::Scalar(40, 35, 30), 1,
                        cv::LINE_AA);
            x += advance;
        }
    }
    return page;
}

inline cv::Mat Turned(const cv::Mat& page, int clockwiseQuarters) {
    cv::Mat out;
    switch (clockwiseQuarters & 3) {
        case 1:
            cv::rotate(page, out, cv::ROTATE_90_CLOCKWISE);
            break;
        case 2:
            cv::rotate(page, out, cv::ROTATE_180);
            break;
        case 3:
            cv::rotate(page, out, cv::ROTATE_90_COUNTERCLOCKWISE);
            break;
        default:
            out = page.clone();
    }
    return out;
}

// `page` warped onto the quadrangle (top-left, bottom-left, bottom-right,
// top-right) of a dark photograph of the given size.
inline cv::Mat Photograph(const cv::Mat& page, cv::Size size,
                          const std::array<tagVPPoint, 4>& quad) {
    const cv::Point2f from[4] = {{0.f, 0.f},
                                 {0.f, static_cast<float>(page.rows)},
                                 {static_cast<float>(page.cols), static_cast<float>(page.rows)},
                                 {static_cast<float>(page.cols), 0.f}};
    cv::Point2f to[4];
    for (int i = 0; i < 4; ++i)
        to[i] = {static_cast<float>(quad[i].x), static_cast<float>(quad[i].y)};
    cv::Mat photo(size, CV_8UC3, cv::Scalar(40, 45, 50));
    cv::warpPerspective(page, photo, cv::getPerspectiveTransform(from, to), size, cv::INTER_AREA,
                        cv::BORDER_TRANSPARENT);
    return photo;
}

}  // namespace textdir_test
