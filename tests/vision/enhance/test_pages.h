// Constructed pages for the enhancement tests: a light page of text, a dark
// board with light writing and a colourful photograph, as 3-channel images
// in the engine's byte order, plus their luma.
#pragma once

#include <string>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/image.h"

namespace test_pages {

// Rows of words in `ink` on `paper`, with a little noise so no level is
// perfectly flat.
inline cv::Mat TextPage(int width, int height, int paper, int ink, uint64_t seed = 7) {
    cv::Mat page(height, width, CV_8UC3, cv::Scalar(paper, paper, paper));
    cv::RNG rng(seed);
    const char* words[] = {"scan", "page", "letter", "invoice", "total", "paper", "ink"};
    for (int y = 60; y + 20 < height - 40; y += 46) {
        for (int x = 40; x < width - 120;) {
            const std::string w = words[rng.uniform(0, 7)];
            cv::putText(page, w, cv::Point(x, y), cv::FONT_HERSHEY_SIMPLEX, 0.9,
                        cv::Scalar(ink, ink, ink), 2, cv::LINE_AA);
            x += static_cast<int>(w.size()) * 20 + 24;
        }
    }
    cv::Mat noise(page.size(), CV_8UC3);
    rng.fill(noise, cv::RNG::NORMAL, 0, 3);
    cv::Mat out;
    page.convertTo(out, CV_16SC3);
    cv::Mat n16;
    noise.convertTo(n16, CV_16SC3);
    out += n16;
    out.convertTo(page, CV_8UC3);
    return page;
}

// A colourful photograph: a full-range luma ramp under coloured shapes.
inline cv::Mat Photograph(int width, int height) {
    cv::Mat img(height, width, CV_8UC3);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int v = 255 * x / (width - 1);
            img.at<cv::Vec3b>(y, x) =
                cv::Vec3b(static_cast<uint8_t>(v), static_cast<uint8_t>(255 * y / (height - 1)),
                          static_cast<uint8_t>(255 - v));
        }
    }
    cv::RNG rng(3);
    for (int i = 0; i < 12; ++i) {
        cv::circle(img, cv::Point(rng.uniform(0, width), rng.uniform(0, height)),
                   rng.uniform(10, width / 5),
                   cv::Scalar(rng.uniform(0, 256), rng.uniform(0, 256), rng.uniform(0, 256)), -1);
    }
    return img;
}

// The page under light falling from `bright` at the top-left corner to
// `dim` at the bottom-right one (fractions of full light).
inline cv::Mat Shaded(const cv::Mat& page, double bright, double dim) {
    cv::Mat light(page.size(), CV_32F);
    const double span = static_cast<double>(page.cols + page.rows - 2);
    for (int y = 0; y < page.rows; ++y) {
        float* row = light.ptr<float>(y);
        for (int x = 0; x < page.cols; ++x) {
            row[x] = static_cast<float>(bright + (dim - bright) * (x + y) / span);
        }
    }
    cv::Mat lit, channels[3];
    page.convertTo(lit, CV_32FC3);
    cv::split(lit, channels);
    for (cv::Mat& c : channels) c = c.mul(light);
    cv::merge(channels, 3, lit);
    cv::Mat out;
    lit.convertTo(out, CV_8UC3);
    return out;
}

struct Planes {
    cv::Mat Y, Cr, Cb;
};

// The engine's luma/chroma planes of a 3-channel page.
inline Planes Split(const cv::Mat& bgr) {
    Planes p;
    RGB24ToYCbCr(bgr, p.Y, p.Cr, p.Cb);
    return p;
}

inline cv::Mat Luma(const cv::Mat& bgr) {
    cv::Mat y;
    cv::cvtColor(bgr, y, cv::COLOR_BGR2GRAY);
    return y;
}

}  // namespace test_pages
